// Receive buffers that know their own capacity.
#include "utility/core/ReceiveBuffer.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace Tarn::Core {

namespace {

char* NewBuffer(int capacity, size_t bytes) {
  void* block = std::malloc(sizeof(ReceiveBufferHead) + bytes);
  if (block == nullptr) return nullptr;
  new (block) ReceiveBufferHead{capacity, 0};
  return static_cast<char*>(block) + sizeof(ReceiveBufferHead);
}

}  // namespace

char* NewReceiveBuffer(int capacity) {
  return capacity <= 0 ? nullptr : NewBuffer(capacity, static_cast<size_t>(capacity));
}

char* NewDatagramBuffer(int capacity) {
  return capacity < 0 ? nullptr : NewBuffer(capacity, static_cast<size_t>(capacity) + 1);
}

void FreeReceiveBuffer(char* buffer) {
  if (buffer != nullptr) std::free(buffer - sizeof(ReceiveBufferHead));
}

ReceiveBufferHead& HeadOf(char* buffer) {
  return *reinterpret_cast<ReceiveBufferHead*>(buffer - sizeof(ReceiveBufferHead));
}

int RoomIn(char* buffer, int setting, int held) {
  const int size = std::min(setting, HeadOf(buffer).capacity);
  return size > held ? size - held - 1 : 0;
}

int DatagramRoomIn(char* buffer, int setting) {
  return std::max(0, std::min(setting, HeadOf(buffer).capacity));
}

}  // namespace Tarn::Core
