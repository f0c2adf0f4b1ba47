// The download protocol, without sockets and files: one request per connection at a time.
//
// Client to server, one line: FILE CR LF, or FILE$^SUBDIR CR LF. The server takes at most 255
// characters of it.
//
// Server to client: the header, then the file's bytes, cut wherever the reads fall.
//
//   offset  size  field
//   0       4     total length = file size + 40, unsigned, in host order (little-endian)
//   4       4     error code: 0, or 2000 when the file cannot be opened; the length is 40 then
//   8       32    the file's MD5 as hexadecimal text, zeros with an error
//   40      ...   the file's bytes
#ifndef TARN_UTILITY_CORE_DOWNLOADWIRE_H
#define TARN_UTILITY_CORE_DOWNLOADWIRE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "utility/core/TransferWire.h"

namespace Tarn::Core {

constexpr size_t kDownloadHeaderBytes = 40;
constexpr size_t kDownloadErrorOffset = 4;
constexpr size_t kDownloadMd5Offset = 8;

// --- Header ---

struct DownloadHeader {
  uint32_t totalLength;
  uint32_t error;
  std::string_view md5;  ///< up to 32 characters; ends at its first NUL when parsed
};

using DownloadHeaderBytes = std::array<char, kDownloadHeaderBytes>;

/// A longer text is cut, a shorter one padded with zeros.
DownloadHeaderBytes BuildDownloadHeader(const DownloadHeader& header);

/// `bytes` holds a whole header; the text of the result points into it.
DownloadHeader ParseDownloadHeader(const char* bytes);

// --- Request ---

/// The request's line without its end; `subDir` may be empty.
std::string DownloadRequest(std::string_view file, std::string_view subDir);

/// Where a request's file lies below the root: the text itself, or SUBDIR/FILE. Begins without a
/// slash, which leads nowhere behind the root's own.
std::string DownloadPath(std::string_view request);

/// What the ".." of a path below a root can do.
enum class PathReach {
  kPlain,   ///< there is none
  kClimbs,  ///< stays below the root as written; links on the way may lead elsewhere
  kLeaves   ///< leaves the root
};
PathReach ReachOf(std::string_view path);

// --- Receiving ---

enum class DownloadPhase {
  kHeader,  ///< waiting for the header
  kData,    ///< the local file is being written
  kOver     ///< failed; whatever follows is ignored
};

/// Where one download in receipt stands. The lengths have a sign: what does not fit 31 bits shows
/// up as negative.
struct DownloadState {
  DownloadPhase phase = DownloadPhase::kHeader;
  int32_t received = 0;  ///< header bytes, then data bytes; sticks at its maximum
  int32_t expected = 0;  ///< announced data bytes
};

/// What the receiver has to do next.
enum class DownloadStep {
  kMore,    ///< wait for the next delivery
  kFailed,  ///< the server announces an error, see the header
  kCreate,  ///< the header is complete: create the file, then ask again
  kStore    ///< append `part`, then compute the rate
};

/// Takes what the next step needs off the front of `delivery`. `header` keeps the header, of which
/// no more than 40 bytes are ever written; deliveries of more than `maxDelivery` bytes are ignored
/// until it has come.
DownloadStep NextDownloadStep(DownloadState& state, char* header, size_t maxDelivery,
                              std::string_view& delivery, std::string_view& part);

/// Percent of the announced bytes; infinite when none are announced.
double DownloadRate(int32_t received, int32_t expected);

enum class DownloadVerdict {
  kGoOn,
  kComplete,
  kTooMuch  ///< more than was announced
};
DownloadVerdict JudgeDownload(int32_t received, int32_t expected);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_DOWNLOADWIRE_H
