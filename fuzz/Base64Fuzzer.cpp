// Base64 against a bit-by-bit model, and there and back.
#include <cstring>

#include "fuzz/FuzzInput.h"
#include "utility/core/Base64.h"

namespace Core = Tarn::Core;
using tarn_fuzz::ExactBlock;
using tarn_fuzz::FuzzInput;

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Six bits at a time from a stream of bits.
std::string ModelEncode(std::string_view bytes) {
  std::string text;
  unsigned bits = 0;
  int held = 0;
  for (const char c : bytes) {
    bits = (bits << 8 | static_cast<unsigned char>(c)) & 0xFFFF;
    for (held += 8; held >= 6; held -= 6)
      text += kAlphabet[bits >> (held - 6) & 63];
  }
  if (held > 0) text += kAlphabet[bits << (6 - held) & 63];
  while (text.size() % 4 != 0)
    text += '=';
  return text;
}

std::string ModelDecode(std::string_view text) {
  std::string bytes;
  unsigned bits = 0;
  int held = 0;
  for (const char c : text) {
    const char* place = c == '\0' ? nullptr : std::strchr(kAlphabet, c);
    if (place == nullptr) break;
    bits = (bits << 6 | static_cast<unsigned>(place - kAlphabet)) & 0xFFFF;
    held += 6;
    if (held < 8) continue;
    held -= 8;
    bytes += static_cast<char>(bits >> held);
  }
  return bytes;
}

std::string Decode(std::string_view text) {
  const ExactBlock input(text);
  const ExactBlock out(Core::Base64DecodedLimit(text.size()));
  const size_t count =
      Core::DecodeBase64(input.View(), reinterpret_cast<unsigned char*>(out.Data()));
  FUZZ_CHECK(count <= out.Size());
  return std::string(out.View().substr(0, count));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const FuzzInput input(data, size);
  const std::string_view bytes = input.Rest();
  const ExactBlock text(Core::Base64EncodedLength(bytes.size()));
  Core::EncodeBase64(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                     text.Data());
  FUZZ_CHECK(text.View() == ModelEncode(bytes));
  FUZZ_CHECK(Decode(text.View()) == bytes);
  FUZZ_CHECK(Decode(bytes) == ModelDecode(bytes));
  return 0;
}
