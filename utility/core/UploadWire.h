// The upload protocol, without sockets and files: one upload per connection.
//
// Client to server: the header, then the file's bytes, cut wherever the reads fall.
//
//   offset  size  field
//   0       4     total length = file size + 50, unsigned, in host order (little-endian)
//   4       32    the file's MD5 as hexadecimal text
//   36      14    the path from its last "." on, cut or padded with zeros
//   50      ...   the file's bytes
//
// Server to client, when all of them have come: {"err":0,"file":"NAME"} CR LF
#ifndef TARN_UTILITY_CORE_UPLOADWIRE_H
#define TARN_UTILITY_CORE_UPLOADWIRE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "utility/core/TransferWire.h"

namespace Tarn::Core {

constexpr size_t kUploadHeaderBytes = 50;
constexpr size_t kUploadMd5Offset = 4;
constexpr size_t kUploadExtOffset = 36;
constexpr size_t kUploadExtBytes = 14;

// --- Header ---

struct UploadHeader {
  uint32_t totalLength;
  std::string_view md5;  ///< up to 32 characters
  std::string_view ext;  ///< up to 14 characters; ends at its first NUL when parsed
};

using UploadHeaderBytes = std::array<char, kUploadHeaderBytes>;

/// Longer texts are cut, shorter ones padded with zeros.
UploadHeaderBytes BuildUploadHeader(const UploadHeader& header);

/// `bytes` holds a whole header; the texts of the result point into it.
UploadHeader ParseUploadHeader(const char* bytes);

/// The text from the last "." of a path on, dot included; empty without one.
std::string_view UploadExtension(std::string_view path);

// --- Receiving ---

enum class UploadPhase {
  kHeader,  ///< fewer than 50 bytes have come
  kData,    ///< the stored file is being written
  kDone     ///< answered; whatever follows is ignored
};

/// Where one upload in receipt stands.
struct UploadState {
  UploadPhase phase = UploadPhase::kHeader;
  uint32_t received =
      0;  ///< header bytes in the header phase, then data bytes; sticks at its maximum
  uint32_t expected = 0;  ///< announced data bytes
};

/// What the receiver has to do next.
enum class UploadStep {
  kMore,            ///< wait for the next delivery
  kReject,          ///< the announced length does not even cover the header: drop the connection
  kCreate,          ///< the header is complete: create the file, then ask again
  kStore,           ///< append `part`, then ask again
  kStoreAndFinish,  ///< append `part`, the last of the announced bytes; check the file and answer
};

/// Takes what the next step needs off the front of `delivery`. `header` keeps the header bytes of a
/// connection between deliveries; no more than 50 bytes are ever written to it.
UploadStep NextUploadStep(UploadState& state, char* header, std::string_view& delivery,
                          std::string_view& part);

// --- Names ---

/// A moment of local time.
struct UploadTime {
  int year, month, day, hour, minute, second, milliseconds;
};

/// The stored name: the time, `number` with three digits, the extension.
std::string UploadName(const UploadTime& time, int number, std::string_view ext);

/// True when an announced extension keeps the stored file in its folder.
bool IsUploadExtension(std::string_view ext);

/// One of a sequence of well-spread numbers below 1000, told apart by `index`.
int UploadNumber(uint64_t index);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_UPLOADWIRE_H
