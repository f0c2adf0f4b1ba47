// Lets a test make allocations of its own thread fail. Only programs that link FailingNew.cpp have
// it.
#ifndef TARN_TESTS_SUPPORT_FAILINGNEW_H
#define TARN_TESTS_SUPPORT_FAILINGNEW_H

#include <cstddef>
#include <limits>

namespace tarn_test {

/// While it lives, the next `count` uses of operator new on this thread that ask for at least
/// `minimum` bytes throw std::bad_alloc, or give null in the form that does not throw.
class FailingNew {
 public:
  explicit FailingNew(int count = std::numeric_limits<int>::max(), std::size_t minimum = 0);
  ~FailingNew();
  FailingNew(const FailingNew&) = delete;
  FailingNew& operator=(const FailingNew&) = delete;
  /// How many have failed so far.
  [[nodiscard]] int Failed() const;

 private:
  int count_;
};

}  // namespace tarn_test

#endif  // TARN_TESTS_SUPPORT_FAILINGNEW_H
