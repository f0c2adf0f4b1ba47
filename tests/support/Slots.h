// Where a virtual operation stands in its class's virtual table: what programs compiled against the
// public headers rely on.
#ifndef TARN_TESTS_SUPPORT_SLOTS_H
#define TARN_TESTS_SUPPORT_SLOTS_H

#include <cstddef>
#include <cstring>

namespace tarn_test {

/// Calls what stands at `slot` of the object's virtual table. The two destructors take a slot each.
template <typename Result, typename... Args>
Result CallSlot(void* object, int slot, Args... args) {
  void** const table = *static_cast<void***>(object);
  return reinterpret_cast<Result (*)(void*, Args...)>(table[slot])(object, args...);
}

/// The slot of a virtual operation, as the platform's ABI writes a pointer to it.
template <typename Member>
size_t SlotOf(Member member) {
  static_assert(sizeof(member) == 16);
  size_t words[2];
  std::memcpy(words, &member, sizeof(words));
  return (words[0] - 1) / sizeof(void*);
}

}  // namespace tarn_test

#endif  // TARN_TESTS_SUPPORT_SLOTS_H
