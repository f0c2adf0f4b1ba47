// Shared by the fuzz targets: the input in a block of its exact size, and a check that stays in
// optimised builds.
#ifndef TARN_FUZZ_FUZZINPUT_H
#define TARN_FUZZ_FUZZINPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#define FUZZ_CHECK(condition)                                                            \
  do {                                                                                   \
    if (!(condition)) {                                                                  \
      std::fprintf(stderr, "%s:%d: %s does not hold\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                      \
    }                                                                                    \
  } while (false)

namespace tarn_fuzz {

/// A heap block of exactly the bytes given, so that the address sanitizer sees one byte too far.
class ExactBlock {
 public:
  explicit ExactBlock(std::string_view bytes) : ExactBlock(bytes.size()) {
    std::copy(bytes.begin(), bytes.end(), block_.get());
  }
  explicit ExactBlock(size_t size) : block_(new char[size]()), size_(size) {}
  [[nodiscard]] char* Data() const { return block_.get(); }
  [[nodiscard]] size_t Size() const { return size_; }
  [[nodiscard]] std::string_view View() const { return {block_.get(), size_}; }

 private:
  std::unique_ptr<char[]> block_;
  size_t size_;
};

/// The bytes that the fuzzer gives, and what is left of them.
class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size)
      : block_(std::string_view(reinterpret_cast<const char*>(data), size)), left_(block_.View()) {}

  /// All that is left.
  [[nodiscard]] std::string_view Rest() const { return left_; }

  /// The text up to the next newline, which is left out.
  std::string TakeLine() {
    const std::string line(left_.substr(0, left_.find('\n')));
    left_.remove_prefix(std::min(line.size() + 1, left_.size()));
    return line;
  }

  /// The next byte; 0 when nothing is left.
  uint8_t TakeByte() {
    if (left_.empty()) return 0;
    const uint8_t byte = static_cast<uint8_t>(left_.front());
    left_.remove_prefix(1);
    return byte;
  }

 private:
  ExactBlock block_;
  std::string_view left_;
};

}  // namespace tarn_fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

#endif  // TARN_FUZZ_FUZZINPUT_H
