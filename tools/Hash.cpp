// tarn hash: digests and checksums of files.
#include <Tarn/Generic/Crc.h>
#include <Tarn/Generic/HmacSHA256.h>
#include <Tarn/Generic/Md5.h>
#include <Tarn/Generic/Sha256.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/Commands.h"
#include "tools/Console.h"

namespace tarn_tool {

namespace {

using Tarn::Generic::CRC;
using Bytes = std::vector<unsigned char>;

struct FileCloser {
  void operator()(FILE* file) const {
    if (file != stdin) fclose(file);
  }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

std::string Hex(const unsigned char* bytes, size_t length) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < length; ++i) {
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 15];
  }
  return text;
}

/// Hands the file to `use` piece by piece; false with errno set when reading failed.
bool ForEachPiece(FILE* file, const std::function<void(const unsigned char*, size_t)>& use) {
  Bytes piece(524288);
  size_t got = 0;
  while ((got = fread(piece.data(), 1, piece.size(), file)) > 0)
    use(piece.data(), got);
  return ferror(file) == 0;
}

std::optional<std::string> Md5Of(FILE* file) {
  MD5 hash;
  if (!ForEachPiece(file, [&hash](const unsigned char* data, size_t length) {
        hash.update(data, static_cast<unsigned int>(length));
      })) {
    return std::nullopt;
  }
  return hash.finalize().hexdigest();
}

std::optional<std::string> Sha256Of(FILE* file) {
  sha256_t hash;
  sha256_init(&hash);
  if (!ForEachPiece(file, [&hash](const unsigned char* data, size_t length) {
        sha256_update(&hash, data, length);
      })) {
    return std::nullopt;
  }
  unsigned char digest[32];
  sha256_final(&hash, digest);
  return Hex(digest, sizeof digest);
}

/// The whole file, for what the library computes in one call only; EFBIG when it holds more than
/// `limit`.
std::optional<Bytes> ReadWhole(FILE* file, size_t limit) {
  Bytes content;
  const bool read = ForEachPiece(file, [&](const unsigned char* data, size_t length) {
    if (content.size() <= limit) content.insert(content.end(), data, data + length);
  });
  if (!read) return std::nullopt;
  if (content.size() > limit) {
    errno = EFBIG;
    return std::nullopt;
  }
  return content;
}

std::optional<std::string> HmacOf(FILE* file, const std::string& key) {
  const std::optional<Bytes> content = ReadWhole(file, SIZE_MAX);
  if (!content) return std::nullopt;
  unsigned char digest[32];
  hmac_sha256(digest, content->data(), content->size(),
              reinterpret_cast<const unsigned char*>(key.data()), key.size());
  return Hex(digest, sizeof digest);
}

std::optional<std::string> Crc32Of(FILE* file) {
  const std::optional<Bytes> content = ReadWhole(file, UINT_MAX);
  if (!content) return std::nullopt;
  const unsigned int sum =
      CRC().CRC_32(content->data(), static_cast<unsigned int>(content->size()));
  std::array<char, 9> text{};
  snprintf(text.data(), text.size(), "%08x", sum);
  return text.data();
}

std::optional<std::string> Crc8Of(FILE* file) {
  // The library answers 0 for anything longer, which nobody should take for a checksum.
  constexpr size_t kLongest = 10000000;
  std::optional<Bytes> content = ReadWhole(file, kLongest);
  if (!content) return std::nullopt;
  const unsigned char sum =
      CRC().CRC_8(content->data(), static_cast<unsigned int>(content->size()));
  return Hex(&sum, 1);
}

std::optional<std::string> DigestOf(FILE* file, const HashOptions& options) {
  switch (options.kind) {
    case HashKind::kMd5:
      return Md5Of(file);
    case HashKind::kSha256:
      return Sha256Of(file);
    case HashKind::kHmacSha256:
      return HmacOf(file, options.key);
    case HashKind::kCrc32:
      return Crc32Of(file);
    case HashKind::kCrc8:
      return Crc8Of(file);
  }
  return std::nullopt;
}

/// md5sum's line: a name with a backslash or a line end is escaped, and a backslash leads the line.
std::string Line(const std::string& digest, const std::string& name) {
  std::string shown;
  for (const char c : name) {
    if (c == '\\') {
      shown += "\\\\";
    } else if (c == '\n') {
      shown += "\\n";
    } else if (c == '\r') {
      shown += "\\r";
    } else {
      shown += c;
    }
  }
  return (shown == name ? "" : "\\") + digest + "  " + shown;
}

bool HashFile(const std::string& name, const HashOptions& options) {
  const FilePtr file(name == "-" ? stdin : fopen(name.c_str(), "rbe"));
  if (!file) {
    Complain("%s: %s", name.c_str(), ErrorText().c_str());
    return false;
  }
  const std::optional<std::string> digest = DigestOf(file.get(), options);
  if (!digest) {
    Complain("%s: %s", name.c_str(), ErrorText().c_str());
    return false;
  }
  puts(Line(*digest, name).c_str());
  return true;
}

}  // namespace

int Hash(const HashOptions& options) {
  bool complete = true;
  for (const std::string& name : options.files)
    complete = HashFile(name, options) && complete;
  return fflush(stdout) == 0 && complete ? 0 : 1;
}

}  // namespace tarn_tool
