// How a message goes out as datagrams: their size, and how many of them one call may carry.
#ifndef TARN_UTILITY_CORE_DATAGRAMRUNS_H
#define TARN_UTILITY_CORE_DATAGRAMRUNS_H

#include <cstddef>

namespace Tarn::Core {

constexpr int kDatagramToSelf = 49152;   ///< bytes, towards this host itself
constexpr int kDatagramToOthers = 1400;  ///< bytes, below a common path's limit

/// The largest datagram towards `peer` from `local`, both dotted texts.
int DatagramLimit(const char* local, const char* peer);

/// How many of `left` bytes one call may carry when the platform cuts them into datagrams of
/// `limit` bytes: all of them, or a whole number of datagrams. At least one datagram.
size_t SegmentedRun(size_t left, size_t limit);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_DATAGRAMRUNS_H
