// A descriptor that wakes the main thread when another one has something for it.
#ifndef TARN_TOOLS_WAKEUP_H
#define TARN_TOOLS_WAKEUP_H

namespace tarn_tool {

class Wakeup {
 public:
  Wakeup();
  ~Wakeup();
  Wakeup(const Wakeup&) = delete;
  Wakeup& operator=(const Wakeup&) = delete;

  /// Readable from a Raise to the next Clear; -1 when the platform refused.
  [[nodiscard]] int Descriptor() const { return event_; }
  void Raise();
  void Clear();

 private:
  const int event_;
};

}  // namespace tarn_tool

#endif  // TARN_TOOLS_WAKEUP_H
