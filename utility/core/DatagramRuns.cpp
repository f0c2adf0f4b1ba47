// How a message goes out as datagrams: their size, and how many of them one call may carry.
#include "utility/core/DatagramRuns.h"

#include <algorithm>
#include <cstring>

namespace Tarn::Core {

namespace {

constexpr size_t kMostSegments = 64;     // of one call, on every kernel that cuts at all
constexpr size_t kMostRunBytes = 65507;  // what an IPv4 packet holds behind its two headers

}  // namespace

int DatagramLimit(const char* local, const char* peer) {
  return std::strcmp(local, peer) == 0 ? kDatagramToSelf : kDatagramToOthers;
}

size_t SegmentedRun(size_t left, size_t limit) {
  const size_t datagrams = std::clamp<size_t>(kMostRunBytes / limit, 1, kMostSegments);
  return std::min(left, datagrams * limit);
}

}  // namespace Tarn::Core
