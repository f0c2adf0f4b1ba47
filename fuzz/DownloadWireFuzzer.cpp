// Downloads in receipt against a plain model of the deliveries, and request paths against another
// way of walking them. The input's first byte tells how many bytes follow as lengths of the
// deliveries, in turn; the rest is the stream, and the request.
#include <cstring>
#include <vector>

#include "fuzz/FuzzInput.h"
#include "utility/core/DownloadWire.h"

namespace Core = Tarn::Core;
using tarn_fuzz::ExactBlock;
using tarn_fuzz::FuzzInput;

namespace {

constexpr size_t kMaxDelivery = 200;

struct Outcome {
  uint32_t error = 0;
  int created = 0;
  int rated = 0;
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

/// The first delivery that is not too long decides everything.
Outcome Expected(std::vector<std::string_view> deliveries) {
  Outcome outcome;
  while (!deliveries.empty() && deliveries.front().size() > kMaxDelivery)
    deliveries.erase(deliveries.begin());
  if (deliveries.empty() || deliveries.front().size() < 40) return outcome;
  std::memcpy(&outcome.error, deliveries.front().data() + 4, 4);
  if (outcome.error != 0) return outcome;
  outcome.created = 1;
  deliveries.front().remove_prefix(40);
  for (const std::string_view delivery : deliveries) {
    outcome.stored += delivery;
    outcome.rated += delivery.empty() ? 0 : 1;
  }
  return outcome;
}

Outcome Receive(const std::vector<std::string_view>& deliveries, const ExactBlock& header) {
  Outcome outcome;
  Core::DownloadState state;
  for (const std::string_view delivery : deliveries) {
    const ExactBlock block(delivery);
    std::string_view rest = block.View();
    for (bool more = true; more;) {
      std::string_view part;
      switch (Core::NextDownloadStep(state, header.Data(), kMaxDelivery, rest, part)) {
        case Core::DownloadStep::kMore:
          more = false;
          break;
        case Core::DownloadStep::kFailed:
          outcome.error = Core::ParseDownloadHeader(header.Data()).error;
          break;
        case Core::DownloadStep::kCreate:
          ++outcome.created;
          break;
        case Core::DownloadStep::kStore:
          outcome.stored += part;
          ++outcome.rated;
          break;
      }
    }
  }
  return outcome;
}

/// What is parsed and built again is the same up to the MD5's first NUL.
void CheckHeader(std::string_view bytes) {
  const ExactBlock block(bytes);
  const Core::DownloadHeader header = Core::ParseDownloadHeader(block.Data());
  std::string expected(bytes.substr(0, 8 + header.md5.size()));
  expected.resize(40);
  const Core::DownloadHeaderBytes built = Core::BuildDownloadHeader(header);
  FUZZ_CHECK(std::string_view(built.data(), built.size()) == expected);
}

std::vector<std::string> Split(std::string text, const std::string& separator) {
  std::vector<std::string> fields;
  for (size_t at = 0; (at = text.find(separator)) != std::string::npos;) {
    fields.push_back(text.substr(0, at));
    text.erase(0, at + separator.size());
  }
  fields.push_back(text);
  return fields;
}

/// Keeps the names that a walk from "/root" has taken, instead of counting them.
void CheckPath(const std::string& request) {
  const ExactBlock block(request);
  const std::string path = Core::DownloadPath(block.View());
  const std::vector<std::string> parts = Split(request, "$^");
  std::string whole = parts.size() < 2 ? request : parts[1] + "/" + parts[0];
  while (!whole.empty() && whole[0] == '/')
    whole.erase(0, 1);
  FUZZ_CHECK(path == whole);

  std::vector<std::string> walk{"root"};
  bool left = false;
  bool climbed = false;
  for (const std::string& name : Split(whole, "/")) {
    if (name.empty() || name == ".") continue;
    if (name != "..") {
      walk.push_back(name);
      continue;
    }
    climbed = true;
    walk.pop_back();
    left = left || walk.empty();
    if (left) break;
  }
  const ExactBlock exact(path);
  const Core::PathReach reach = Core::ReachOf(exact.View());
  FUZZ_CHECK((reach == Core::PathReach::kLeaves) == left);
  FUZZ_CHECK((reach == Core::PathReach::kPlain) == !climbed);
}

void CheckVerdict(int32_t received, int32_t expected) {
  const Core::DownloadVerdict verdict = Core::JudgeDownload(received, expected);
  FUZZ_CHECK((verdict == Core::DownloadVerdict::kGoOn) == (expected > 0 && received < expected));
  if (expected <= 0) FUZZ_CHECK(verdict == Core::DownloadVerdict::kTooMuch);
  if (received == expected) FUZZ_CHECK(verdict == Core::DownloadVerdict::kComplete);
  // Less than a byte is tolerated here.
  if (expected > 900000 || received <= expected) return;
  FUZZ_CHECK(verdict == Core::DownloadVerdict::kTooMuch);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  std::string lengths(input.TakeByte() % 16u, '\0');
  for (char& length : lengths)
    length = static_cast<char>(input.TakeByte());
  const std::string_view stream = input.Rest();
  const std::vector<std::string_view> deliveries = Cut(stream, lengths);

  const ExactBlock header(Core::kDownloadHeaderBytes);
  FUZZ_CHECK(Receive(deliveries, header) == Expected(deliveries));
  if (stream.size() >= 40) CheckHeader(stream.substr(0, 40));
  CheckPath(std::string(stream));
  if (stream.size() >= 8) {
    int32_t received = 0;
    int32_t expected = 0;
    std::memcpy(&received, stream.data(), 4);
    std::memcpy(&expected, stream.data() + 4, 4);
    if (received > 0) CheckVerdict(received, expected);
  }
  return 0;
}
