// Where the library's threads leave what they report, for the main thread to find.
#ifndef TARN_TOOLS_MAILBOX_H
#define TARN_TOOLS_MAILBOX_H

#include <mutex>

#include "tools/Wakeup.h"

namespace tarn_tool {

/// Reports that any thread changes; the descriptor wakes the main thread.
template <typename Reports>
class Mailbox {
 public:
  /// -1 when the platform refused.
  [[nodiscard]] int Descriptor() const { return wakeup_.Descriptor(); }

  /// The reports, now that the descriptor has been noticed.
  Reports Read() {
    wakeup_.Clear();
    const std::lock_guard guard(mutex_);
    return reports_;
  }

  /// Calls `change` with the reports.
  template <typename Change>
  void Add(Change change) {
    {
      const std::lock_guard guard(mutex_);
      change(reports_);
    }
    wakeup_.Raise();
  }

 private:
  Wakeup wakeup_;
  std::mutex mutex_;
  Reports reports_;
};

}  // namespace tarn_tool

#endif  // TARN_TOOLS_MAILBOX_H
