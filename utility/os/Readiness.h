// Waiting for many descriptors, by the ids of their connections.
#ifndef TARN_UTILITY_OS_READINESS_H
#define TARN_UTILITY_OS_READINESS_H

#include <array>
#include <cstdint>

#include "utility/os/Handle.h"

namespace Tarn::Os {

/// The cost of a wait grows with the descriptors that are ready, not with those that are idle.
/// Add and Remove may be called while another thread waits.
class Readiness {
 public:
  static constexpr size_t kMaxReady = 1024;

  /// Ids in ascending order.
  class Ids {
   public:
    Ids(const uint64_t* first, size_t count) : first_(first), count_(count) {}
    [[nodiscard]] bool empty() const { return count_ == 0; }
    [[nodiscard]] const uint64_t* begin() const { return first_; }
    [[nodiscard]] const uint64_t* end() const { return first_ + count_; }

   private:
    const uint64_t* first_;
    size_t count_;
  };

  /// Begins anew with no descriptor; 0 or a negated error number.
  int Open();
  void Close();

  /// From now on (an ongoing Wait included) `id` is reported whenever `fd` can be read.
  int Add(int fd, uint64_t id);
  void Remove(int fd);

  /// The ids that became readable, at end of stream or in error; empty after the time-out, a
  /// signal or a failure. Valid until the next call.
  Ids Wait(int timeoutMs);

 private:
  Descriptor epoll_;
  std::array<uint64_t, kMaxReady> ready_{};
};

}  // namespace Tarn::Os

#endif  // TARN_UTILITY_OS_READINESS_H
