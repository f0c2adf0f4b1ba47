// The download protocol, without sockets and files: one request per connection at a time.
#include "utility/core/DownloadWire.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace Tarn::Core {

namespace {

constexpr std::string_view kSeparator = "$^";
constexpr double kComplete = 100.0;
constexpr double kTolerance = 0.0001;

DownloadStep TakeHeader(DownloadState& state, char* header, size_t maxDelivery,
                        std::string_view& delivery) {
  const std::string_view taken = std::exchange(delivery, {});
  // Kept: the header comes within the first delivery or never. A shorter one stalls the transfer
  // until the connection closes; servers send the header as one piece.
  if (taken.size() > maxDelivery || state.received > 0) return DownloadStep::kMore;
  if (!taken.empty())
    std::memcpy(header, taken.data(), std::min(taken.size(), kDownloadHeaderBytes));
  state.received = static_cast<int32_t>(std::min<size_t>(taken.size(), INT32_MAX));
  if (taken.size() < kDownloadHeaderBytes) return DownloadStep::kMore;
  const DownloadHeader parsed = ParseDownloadHeader(header);
  if (parsed.error != 0) {
    state.phase = DownloadPhase::kOver;
    return DownloadStep::kFailed;
  }
  const uint32_t expected = parsed.totalLength - static_cast<uint32_t>(kDownloadHeaderBytes);
  state = {DownloadPhase::kData, 0, static_cast<int32_t>(expected)};
  delivery = taken.substr(kDownloadHeaderBytes);
  return DownloadStep::kCreate;
}

DownloadStep TakeData(DownloadState& state, std::string_view& delivery, std::string_view& part) {
  if (delivery.empty()) return DownloadStep::kMore;
  part = std::exchange(delivery, {});
  // Saturated, not wrapped: the count is looked at after every delivery, and one that is too large
  // ends the transfer.
  const uint64_t sum = static_cast<uint64_t>(state.received) + part.size();
  state.received = static_cast<int32_t>(std::min<uint64_t>(sum, INT32_MAX));
  return DownloadStep::kStore;
}

}  // namespace

DownloadHeaderBytes BuildDownloadHeader(const DownloadHeader& header) {
  DownloadHeaderBytes bytes{};
  std::memcpy(bytes.data(), &header.totalLength, sizeof header.totalLength);
  std::memcpy(bytes.data() + kDownloadErrorOffset, &header.error, sizeof header.error);
  header.md5.copy(bytes.data() + kDownloadMd5Offset, kTransferMd5Bytes);
  return bytes;
}

DownloadHeader ParseDownloadHeader(const char* bytes) {
  DownloadHeader header{};
  std::memcpy(&header.totalLength, bytes, sizeof header.totalLength);
  std::memcpy(&header.error, bytes + kDownloadErrorOffset, sizeof header.error);
  header.md5 = UpToNul({bytes + kDownloadMd5Offset, kTransferMd5Bytes});
  return header;
}

std::string DownloadRequest(std::string_view file, std::string_view subDir) {
  std::string request(file);
  if (!subDir.empty()) request.append(kSeparator).append(subDir);
  return request;
}

std::string DownloadPath(std::string_view request) {
  std::string path(request);
  const size_t separator = request.find(kSeparator);
  if (separator != std::string_view::npos) {
    // The folder comes second on the wire; whatever a further separator sets apart is left out.
    const std::string_view rest = request.substr(separator + kSeparator.size());
    path = rest.substr(0, rest.find(kSeparator));
    path.append("/").append(request.substr(0, separator));
  }
  return path.erase(0, std::min(path.find_first_not_of('/'), path.size()));
}

PathReach ReachOf(std::string_view path) {
  bool climbs = false;
  size_t depth = 0;
  for (bool last = false; !last;) {
    const size_t end = path.find('/');
    const std::string_view name = path.substr(0, end);
    last = end == std::string_view::npos;
    if (!last) path.remove_prefix(end + 1);
    if (name == "..") {
      if (depth == 0) return PathReach::kLeaves;
      climbs = true;
      --depth;
    } else if (!name.empty() && name != ".") {
      ++depth;
    }
  }
  return climbs ? PathReach::kClimbs : PathReach::kPlain;
}

DownloadStep NextDownloadStep(DownloadState& state, char* header, size_t maxDelivery,
                              std::string_view& delivery, std::string_view& part) {
  switch (state.phase) {
    case DownloadPhase::kHeader:
      return TakeHeader(state, header, maxDelivery, delivery);
    case DownloadPhase::kData:
      return TakeData(state, delivery, part);
    case DownloadPhase::kOver:
      break;
  }
  return DownloadStep::kMore;
}

double DownloadRate(int32_t received, int32_t expected) {
  if (expected == 0) return std::numeric_limits<double>::infinity();
  return kComplete * received / expected;
}

DownloadVerdict JudgeDownload(int32_t received, int32_t expected) {
  // A length of 0, one that does not even cover the header, or one of 2 GiB and more.
  if (expected <= 0) return DownloadVerdict::kTooMuch;
  // Not by the rate: deliveries end anywhere, and a long file of which a byte is still on its way
  // would count as complete, and be found to differ.
  if (received < expected) return DownloadVerdict::kGoOn;
  // Kept: slightly more than announced counts as complete, so that the MD5 decides.
  const double rate = DownloadRate(received, expected);
  return std::fabs(rate - kComplete) < kTolerance ? DownloadVerdict::kComplete
                                                  : DownloadVerdict::kTooMuch;
}

}  // namespace Tarn::Core
