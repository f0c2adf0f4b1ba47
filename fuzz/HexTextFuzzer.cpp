// Hexadecimal text against scanf, pair by pair, and there and back.
#include <cstdio>

#include "fuzz/FuzzInput.h"
#include "utility/core/HexText.h"

namespace Core = Tarn::Core;
using tarn_fuzz::ExactBlock;
using tarn_fuzz::FuzzInput;

namespace {

constexpr size_t kLongest = 2048;  // the model is slow on long texts
constexpr char kUntouched = '\x5C';

// As the library promises it, with scanf itself for every pair.
size_t ModelRead(const char* text, unsigned char* out) {
  size_t count = 0;
  while (*text != '\0') {
    if (*text == ' ') {
      ++text;
      continue;
    }
    sscanf(text, "%02hhX", &out[count++]);
    text += text[1] == '\0' ? 1 : 2;
  }
  return count;
}

void CheckRead(std::string_view text) {
  const std::string ended = std::string(text) + '\0';
  const ExactBlock input(ended);
  const ExactBlock out(std::string(text.size() / 2 + 1, kUntouched));
  const ExactBlock expected(out.View());
  const size_t count =
      Core::ReadHexText(input.Data(), reinterpret_cast<unsigned char*>(out.Data()));
  FUZZ_CHECK(count == ModelRead(input.Data(), reinterpret_cast<unsigned char*>(expected.Data())));
  FUZZ_CHECK(count <= (text.size() + 1) / 2);
  FUZZ_CHECK(out.View() == expected.View());
}

void CheckRoundTrip(std::string_view bytes) {
  const ExactBlock text(3 * bytes.size() + 1);
  Core::WriteHexText(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                     text.Data());
  const ExactBlock back(bytes.size());
  FUZZ_CHECK(Core::ReadHexText(text.Data(), reinterpret_cast<unsigned char*>(back.Data())) ==
             bytes.size());
  FUZZ_CHECK(back.View() == bytes);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const FuzzInput input(data, std::min(size, kLongest));
  CheckRead(input.Rest());
  CheckRoundTrip(input.Rest());
  return 0;
}
