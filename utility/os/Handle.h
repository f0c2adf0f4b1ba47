// Move-only owners of platform resources.
#ifndef TARN_UTILITY_OS_HANDLE_H
#define TARN_UTILITY_OS_HANDLE_H

#include <dirent.h>
#include <iconv.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

namespace Tarn::Os {

/// Owns one value of `Traits::Type`; `Traits::Empty()` means none, `Traits::Close` ends it.
template <typename Traits>
class ScopedHandle {
 public:
  using Type = typename Traits::Type;

  ScopedHandle() noexcept = default;
  explicit ScopedHandle(Type value) noexcept : value_(value) {}
  ScopedHandle(ScopedHandle&& other) noexcept : value_(other.Release()) {}
  ScopedHandle& operator=(ScopedHandle&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  ScopedHandle(const ScopedHandle&) = delete;
  ScopedHandle& operator=(const ScopedHandle&) = delete;
  ~ScopedHandle() { Reset(); }

  [[nodiscard]] Type Get() const noexcept { return value_; }
  [[nodiscard]] bool Valid() const noexcept { return value_ != Traits::Empty(); }
  [[nodiscard]] Type Release() noexcept { return std::exchange(value_, Traits::Empty()); }
  void Reset(Type value = Traits::Empty()) noexcept {
    const Type old = std::exchange(value_, value);
    if (old != Traits::Empty()) Traits::Close(old);
  }

 private:
  Type value_ = Traits::Empty();
};

struct DescriptorTraits {
  using Type = int;
  static Type Empty() noexcept { return -1; }
  // Never retried on EINTR: the descriptor is gone either way.
  static void Close(Type fd) noexcept { ::close(fd); }
};
using Descriptor = ScopedHandle<DescriptorTraits>;

struct IconvTraits {
  using Type = iconv_t;
  static Type Empty() noexcept { return reinterpret_cast<iconv_t>(-1); }
  static void Close(Type converter) noexcept { ::iconv_close(converter); }
};
using IconvHandle = ScopedHandle<IconvTraits>;

struct FileCloser {
  void operator()(FILE* file) const noexcept { ::fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

struct DirCloser {
  void operator()(DIR* dir) const noexcept { ::closedir(dir); }
};
using DirPtr = std::unique_ptr<DIR, DirCloser>;

struct Freer {
  void operator()(void* block) const noexcept { ::free(block); }
};
/// A `malloc` block.
template <typename T>
using MallocPtr = std::unique_ptr<T, Freer>;

}  // namespace Tarn::Os

#endif  // TARN_UTILITY_OS_HANDLE_H
