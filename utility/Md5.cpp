// MD5 over input of any division, in three forms on one engine.
#include <Tarn/Generic/Md5.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <ostream>
#include <type_traits>

#include "utility/core/DigestText.h"
#include "utility/core/Md5Block.h"
#include "utility/os/Handle.h"

using Tarn::Core::kMd5BlockBytes;
using Tarn::Core::Md5Blocks;
using Tarn::Core::WriteDigest;

static_assert(sizeof(MD5_CTX) == 104 && offsetof(MD5_CTX, count) == 16 &&
                  offsetof(MD5_CTX, buffer) == 24 && offsetof(MD5_CTX, digest) == 88,
              "hosts hold the context");
static_assert(sizeof(MD5) == 108 && std::is_trivially_copyable<MD5>::value,
              "hosts hold and copy the object");
static_assert(sizeof(Tarn::Generic::CMd5) == 33, "hosts hold the object");

namespace {

constexpr size_t kDigestBytes = 16;
constexpr size_t kDigits = 2 * kDigestBytes;
constexpr size_t kLengthAt = 56;          // the bit count ends the last block
constexpr size_t kReadBytes = 64 * 1024;  // on the stack; larger reads gain nothing measurable

/// The fields that MD5 and MD5_CTX hold in different places.
struct Engine {
  uint32_t (&state)[4];
  uint32_t (&count)[2];
  unsigned char (&buffer)[kMd5BlockBytes];

  [[nodiscard]] uint64_t Bits() const { return uint64_t{count[1]} << 32 | count[0]; }
  void SetBits(uint64_t bits) {
    count[0] = static_cast<uint32_t>(bits);
    count[1] = static_cast<uint32_t>(bits >> 32);
  }
  [[nodiscard]] size_t Held() const { return count[0] / 8 % kMd5BlockBytes; }

  void Start() {
    state[0] = 0x67452301;
    state[1] = 0xefcdab89;
    state[2] = 0x98badcfe;
    state[3] = 0x10325476;
    SetBits(0);
  }
  void Add(const unsigned char* data, size_t len);
  void Finish(unsigned char (&digest)[kDigestBytes]);
};

void Engine::Add(const unsigned char* data, size_t len) {
  if (data == nullptr || len == 0) return;
  const size_t held = Held();
  SetBits(Bits() + uint64_t{len} * 8);
  if (held != 0) {
    const size_t taken = std::min(len, kMd5BlockBytes - held);
    std::memcpy(buffer + held, data, taken);
    if (held + taken < kMd5BlockBytes) return;
    Md5Blocks(state, buffer, 1);
    data += taken;
    len -= taken;
  }
  const size_t rest = len % kMd5BlockBytes;
  Md5Blocks(state, data, len / kMd5BlockBytes);
  std::memcpy(buffer, data + len - rest, rest);
}

void Engine::Finish(unsigned char (&digest)[kDigestBytes]) {
  size_t held = Held();
  buffer[held++] = 0x80;
  if (held > kLengthAt) {
    std::memset(buffer + held, 0, kMd5BlockBytes - held);
    Md5Blocks(state, buffer, 1);
    held = 0;
  }
  std::memset(buffer + held, 0, kLengthAt - held);
  std::memcpy(buffer + kLengthAt, count, sizeof count);
  Md5Blocks(state, buffer, 1);
  std::memcpy(digest, state, sizeof digest);
}

Engine EngineOf(MD5_CTX& context) {
  return {context.state, context.count, context.buffer};
}

/// Adds what the file still gives. A failing read ends it like the end of the file, so a folder
/// counts as empty.
void AddFile(Engine engine, FILE* file) {
  alignas(64) unsigned char block[kReadBytes];
  setvbuf(file, nullptr, _IONBF, 0);  // straight into `block`
  while (const size_t len = fread(block, 1, sizeof block, file))
    engine.Add(block, len);
}

/// The digits of the form `md5Len`, in malloc memory; null for other forms.
char* NewDigits(const unsigned char (&digest)[kDigestBytes], int md5Len) {
  const bool whole = md5Len == 32;
  if (!whole && md5Len != 16 && md5Len >= -1) return nullptr;
  // A length below -1 asks for more memory than there is.
  char* text = md5Len < 0 ? nullptr : static_cast<char*>(malloc(static_cast<size_t>(md5Len) + 1));
  if (text == nullptr) {
    fputs("malloc failed.\n", stderr);
    return nullptr;
  }
  if (whole) {
    WriteDigest(text, digest, kDigestBytes);
  } else {
    WriteDigest(text, digest + 4, 8);
  }
  return text;
}

}  // namespace

void MD5Init(MD5_CTX* context) {
  if (context != nullptr) EngineOf(*context).Start();
}

void MD5Update(MD5_CTX* context, unsigned char* data, unsigned int len) {
  if (context != nullptr) EngineOf(*context).Add(data, len);
}

void MD5Final(MD5_CTX* context) {
  if (context != nullptr) EngineOf(*context).Finish(context->digest);
}

char* MD5_file(char* path, int md5_len) {
  const Tarn::Os::FilePtr file(path != nullptr ? fopen(path, "rbe") : nullptr);
  if (file == nullptr) {
    fprintf(stderr, "fopen %s failed\n", path != nullptr ? path : "(null)");
    return nullptr;
  }
  MD5_CTX context;
  MD5Init(&context);
  AddFile(EngineOf(context), file.get());
  MD5Final(&context);
  return NewDigits(context.digest, md5_len);
}

MD5::MD5() : finalized(false), buffer(), digest() {
  Engine{state, count, buffer}.Start();
}

MD5::MD5(const std::string& text) : MD5() {
  Engine{state, count, buffer}.Add(reinterpret_cast<const unsigned char*>(text.data()),
                                   text.size());
  finalize();
}

void MD5::update(const unsigned char* data, unsigned int len) {
  if (!finalized) Engine{state, count, buffer}.Add(data, len);
}

void MD5::update(const char* data, unsigned int len) {
  update(reinterpret_cast<const unsigned char*>(data), len);
}

MD5& MD5::finalize() {
  if (finalized) return *this;
  Engine{state, count, buffer}.Finish(digest);
  std::memset(buffer, 0, sizeof buffer);
  std::memset(count, 0, sizeof count);
  finalized = true;
  return *this;
}

std::string MD5::hexdigest() const {
  if (!finalized) return std::string();
  char digits[kDigits + 1];
  WriteDigest(digits, digest, kDigestBytes);
  try {
    return std::string(digits, kDigits);
  } catch (const std::bad_alloc&) {
    return std::string();
  }
}

std::ostream& operator<<(std::ostream& out, MD5 digest) {
  return out << digest.hexdigest();
}

std::string md5(std::string text) {
  return MD5(text).hexdigest();
}

namespace Tarn {
namespace Generic {

CMd5::CMd5() : m_szResult() {}

char* CMd5::String(const char* text) {
  m_szResult[0] = '\0';
  if (text == nullptr) return m_szResult;
  MD5_CTX context;
  Engine engine = EngineOf(context);
  engine.Start();
  engine.Add(reinterpret_cast<const unsigned char*>(text), std::strlen(text));
  engine.Finish(context.digest);
  WriteDigest(m_szResult, context.digest, kDigestBytes);
  return m_szResult;
}

char* CMd5::File(const char* path) {
  m_szResult[0] = '\0';
  const Os::MallocPtr<char> digits(MD5_file(const_cast<char*>(path), kDigits));
  if (digits != nullptr) std::memcpy(m_szResult, digits.get(), sizeof m_szResult);
  return m_szResult;
}

}  // namespace Generic
}  // namespace Tarn
