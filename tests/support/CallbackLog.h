// Collects what callbacks report, in order, from any thread.
#ifndef TARN_TESTS_SUPPORT_CALLBACKLOG_H
#define TARN_TESTS_SUPPORT_CALLBACKLOG_H

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/Support.h"

namespace tarn_test {

template <typename Event>
class CallbackLog {
 public:
  void Add(Event event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
    changed_.notify_all();
  }
  /// True when at least `count` events have come within the limit.
  bool WaitFor(size_t count, milliseconds limit = 5000ms) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return events_.size() >= count; });
  }
  [[nodiscard]] std::vector<Event> All() const {
    const std::lock_guard lock(mutex_);
    return events_;
  }
  [[nodiscard]] size_t Count() const { return All().size(); }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<Event> events_;
};

}  // namespace tarn_test

#endif  // TARN_TESTS_SUPPORT_CALLBACKLOG_H
