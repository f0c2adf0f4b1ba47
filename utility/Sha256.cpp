// SHA-256 over input of any division; whole blocks go to the kernel where they lie.
#include <Tarn/Generic/Sha256.h>

#include <algorithm>
#include <cstring>

#include "utility/core/Sha256Block.h"

using Tarn::Core::kSha256BlockBytes;
using Tarn::Core::Sha256Blocks;

static_assert(sizeof(sha256_t) == 104 && offsetof(sha256_t, count) == 32 &&
                  offsetof(sha256_t, buffer) == 40,
              "hosts hold the context");

namespace {

constexpr size_t kLengthAt = 56;  // the bit count ends the last block

}  // namespace

void sha256_init(sha256_t* context) {
  static constexpr unsigned int kStart[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                             0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  if (context == nullptr) return;
  std::memcpy(context->state, kStart, sizeof kStart);
  context->count = 0;
}

void sha256_update(sha256_t* context, const unsigned char* data, size_t len) {
  if (context == nullptr || data == nullptr || len == 0) return;
  const size_t held = context->count % kSha256BlockBytes;
  context->count += len;
  if (held != 0) {
    const size_t taken = std::min(len, kSha256BlockBytes - held);
    std::memcpy(context->buffer + held, data, taken);
    if (held + taken < kSha256BlockBytes) return;
    Sha256Blocks(context->state, context->buffer, 1);
    data += taken;
    len -= taken;
  }
  const size_t rest = len % kSha256BlockBytes;
  if (len != rest) Sha256Blocks(context->state, data, len / kSha256BlockBytes);
  if (rest != 0) std::memcpy(context->buffer, data + len - rest, rest);
}

void sha256_final(sha256_t* context, unsigned char* out32) {
  if (context == nullptr || out32 == nullptr) return;
  size_t held = context->count % kSha256BlockBytes;
  context->buffer[held++] = 0x80;
  if (held > kLengthAt) {
    std::memset(context->buffer + held, 0, kSha256BlockBytes - held);
    Sha256Blocks(context->state, context->buffer, 1);
    held = 0;
  }
  std::memset(context->buffer + held, 0, kLengthAt - held);
  const unsigned long bits = __builtin_bswap64(context->count * 8);
  std::memcpy(context->buffer + kLengthAt, &bits, sizeof bits);
  Sha256Blocks(context->state, context->buffer, 1);
  for (size_t i = 0; i < 8; i++) {
    const unsigned int word = __builtin_bswap32(context->state[i]);
    std::memcpy(out32 + 4 * i, &word, sizeof word);
  }
}

void sha256_hash(unsigned char* out32, const unsigned char* data, size_t len) {
  sha256_t context;
  sha256_init(&context);
  sha256_update(&context, data, len);
  sha256_final(&context, out32);
}
