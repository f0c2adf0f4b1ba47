#include "tests/support/FailingNew.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int failuresLeft = 0;
thread_local std::size_t smallest = 0;

bool Fails(std::size_t size) noexcept {
  if (failuresLeft == 0 || size < smallest) return false;
  --failuresLeft;
  return true;
}

void* Allocate(std::size_t size) noexcept {
  return Fails(size) ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* Allocate(std::size_t size, std::align_val_t alignment) noexcept {
  const auto step = static_cast<std::size_t>(alignment);
  return Fails(size) ? nullptr : std::aligned_alloc(step, (size + step - 1) / step * step);
}

}  // namespace

// All forms: those of the sanitizers would not go through the first one.
void* operator new(std::size_t size) {
  if (void* block = Allocate(size)) return block;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return Allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  if (void* block = Allocate(size, alignment)) return block;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, std::align_val_t alignment,
                   const std::nothrow_t& /*tag*/) noexcept {
  return Allocate(size, alignment);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t /*size*/) noexcept {
  std::free(block);
}
void operator delete(void* block, std::align_val_t /*alignment*/) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  std::free(block);
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return Allocate(size);
}
void operator delete[](void* block) noexcept {
  std::free(block);
}
void operator delete[](void* block, std::size_t /*size*/) noexcept {
  std::free(block);
}

namespace tarn_test {

FailingNew::FailingNew(int count, std::size_t minimum) : count_(count) {
  smallest = minimum;
  failuresLeft = count;
}

FailingNew::~FailingNew() {
  failuresLeft = 0;
}

int FailingNew::Failed() const {
  return count_ - failuresLeft;
}

}  // namespace tarn_test
