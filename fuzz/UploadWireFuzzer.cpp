// Uploads in receipt against a plain model of the whole stream. The input's first byte tells how
// many bytes follow as lengths of the deliveries, in turn; the rest is the stream.
#include <cstring>
#include <vector>

#include "fuzz/FuzzInput.h"
#include "utility/core/UploadWire.h"

namespace Core = Tarn::Core;
using tarn_fuzz::ExactBlock;
using tarn_fuzz::FuzzInput;

namespace {

struct Outcome {
  bool rejected = false;
  int created = 0;
  int finished = 0;
  std::string stored;
  bool operator==(const Outcome& other) const = default;
};

std::vector<std::string_view> Cut(std::string_view stream, const std::string& lengths) {
  std::vector<std::string_view> deliveries;
  for (size_t i = 0; !stream.empty(); ++i) {
    const size_t wanted =
        lengths.empty() ? stream.size() : static_cast<uint8_t>(lengths[i % lengths.size()]) + 1u;
    deliveries.push_back(stream.substr(0, wanted));
    stream.remove_prefix(deliveries.back().size());
  }
  return deliveries;
}

/// Looks at the stream so far after each delivery, remembering nothing else.
Outcome Expected(std::string_view stream, const std::vector<std::string_view>& deliveries) {
  Outcome outcome;
  uint32_t total = 0;
  if (stream.size() < 50) return outcome;
  std::memcpy(&total, stream.data(), 4);
  if (total < 50) return {true, 0, 0, {}};
  outcome.created = 1;
  size_t come = 0;
  for (const std::string_view delivery : deliveries) {
    come += delivery.size();
    if (come <= 50) continue;
    outcome.stored = stream.substr(50, come - 50);
    if (come != total) continue;
    outcome.finished = 1;
    break;
  }
  return outcome;
}

Outcome Receive(const std::vector<std::string_view>& deliveries, const ExactBlock& header) {
  Outcome outcome;
  Core::UploadState state;
  for (const std::string_view delivery : deliveries) {
    const ExactBlock block(delivery);
    std::string_view rest = block.View();
    for (bool more = true; more;) {
      std::string_view part;
      switch (Core::NextUploadStep(state, header.Data(), rest, part)) {
        case Core::UploadStep::kMore:
          more = false;
          break;
        case Core::UploadStep::kReject:
          outcome.rejected = true;
          return outcome;
        case Core::UploadStep::kCreate:
          ++outcome.created;
          break;
        case Core::UploadStep::kStoreAndFinish:
          ++outcome.finished;
          [[fallthrough]];
        case Core::UploadStep::kStore:
          outcome.stored += part;
          break;
      }
    }
  }
  return outcome;
}

/// What is parsed and built again is the same up to the extension's first NUL.
void CheckHeader(std::string_view bytes) {
  const ExactBlock block(bytes);
  const Core::UploadHeader header = Core::ParseUploadHeader(block.Data());
  FUZZ_CHECK(header.md5 == bytes.substr(4, 32));
  FUZZ_CHECK(header.ext.find('\0') == std::string_view::npos && header.ext.size() <= 14);
  std::string expected(bytes.substr(0, 36 + header.ext.size()));
  expected.resize(50);
  const Core::UploadHeaderBytes built = Core::BuildUploadHeader(header);
  FUZZ_CHECK(std::string_view(built.data(), built.size()) == expected);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  std::string lengths(input.TakeByte() % 16u, '\0');
  for (char& length : lengths)
    length = static_cast<char>(input.TakeByte());
  const std::string_view stream = input.Rest();
  const std::vector<std::string_view> deliveries = Cut(stream, lengths);

  const ExactBlock header(Core::kUploadHeaderBytes);
  FUZZ_CHECK(Receive(deliveries, header) == Expected(stream, deliveries));
  FUZZ_CHECK(stream.size() < 50 || header.View() == stream.substr(0, 50));
  if (stream.size() >= 50) CheckHeader(stream.substr(0, 50));
  return 0;
}
