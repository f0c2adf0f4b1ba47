// Runs of datagrams against cutting one datagram at a time. The input: three bytes of message
// length, which a number of datagrams bounds, and two of datagram size.
#include <vector>

#include "fuzz/FuzzInput.h"
#include "utility/core/DatagramRuns.h"

namespace Core = Tarn::Core;
using tarn_fuzz::FuzzInput;

namespace {

constexpr size_t kMostBytes = 65507;
constexpr size_t kMostDatagrams = 64;
constexpr size_t kMostCut = 300;  // more would only make the inputs slow

std::vector<size_t> OneByOne(size_t left, size_t limit) {
  std::vector<size_t> datagrams;
  for (; left > limit; left -= limit)
    datagrams.push_back(limit);
  if (left > 0) datagrams.push_back(left);
  return datagrams;
}

size_t TakeNumber(FuzzInput& input, int bytes) {
  size_t number = 0;
  for (int i = 0; i < bytes; ++i)
    number = number << 8 | input.TakeByte();
  return number;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  const size_t asked = TakeNumber(input, 3);
  const size_t limit = TakeNumber(input, 2) + 1;
  const size_t length = asked % (kMostCut * limit);

  std::vector<size_t> datagrams;
  size_t runs = 0;
  for (size_t left = length; left > 0; ++runs) {
    const size_t run = Core::SegmentedRun(left, limit);
    FUZZ_CHECK(run > 0 && run <= left);
    const std::vector<size_t> cut = OneByOne(run, limit);
    FUZZ_CHECK(cut.size() == 1 || (cut.size() <= kMostDatagrams && run <= kMostBytes));
    datagrams.insert(datagrams.end(), cut.begin(), cut.end());
    left -= run;
  }
  FUZZ_CHECK(datagrams == OneByOne(length, limit));
  // No run was shorter than it had to be.
  const size_t whole = std::clamp<size_t>(kMostBytes / limit, 1, kMostDatagrams);
  FUZZ_CHECK(runs == (length + whole * limit - 1) / (whole * limit));
  return 0;
}
