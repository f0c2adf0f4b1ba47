// Cutting and encoding of stream messages. The first byte chooses form, byte order and how the rest
// is cut into reads.
//
// Checked: any cut of a stream gives the messages that a plain model finds in the whole; what is
// held back never exceeds what came; an encoded message is cut back into itself.
#include "utility/core/Framing.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/FuzzInput.h"

namespace {

using namespace Tarn::Core;
using Messages = std::vector<std::string>;

/// What a whole stream holds, and whether its end is malformed.
struct Expected {
  Messages messages;
  bool good = true;
};

Expected ModelLines(std::string_view stream) {
  Expected expected;
  for (size_t at = stream.find("\r\n"); at != std::string_view::npos; at = stream.find("\r\n")) {
    const std::string_view line = stream.substr(0, at);
    expected.messages.emplace_back(line.substr(0, line.find('\0')));
    stream.remove_prefix(at + 2);
  }
  return expected;
}

Expected ModelPrefixed(std::string_view stream, bool bigEndian) {
  Expected expected;
  while (stream.size() >= 4) {
    uint64_t total = 0;
    for (size_t i = 0; i < 4; ++i) {
      const auto byte = static_cast<unsigned char>(stream[bigEndian ? i : 3 - i]);
      total = total * 256 + byte;
    }
    if (total < 4) {
      expected.good = false;
      break;
    }
    if (stream.size() < total) break;
    expected.messages.emplace_back(stream.substr(4, total - 4));
    stream.remove_prefix(total);
  }
  return expected;
}

void CheckReceiving(Form form, bool bigEndian, size_t step, std::string_view stream) {
  const std::unique_ptr<char, ReceiveBufferFreer> buffer(
      NewReceiveBuffer(static_cast<int>(stream.size()) + 1));
  Messages messages;
  int held = 0;
  bool good = true;
  for (size_t at = 0; at < stream.size() && good; at += step) {
    const std::string_view read = stream.substr(at, step);
    FUZZ_CHECK(RoomIn(buffer.get(), static_cast<int>(stream.size()) + 1, held) >=
               static_cast<int>(read.size()));
    std::memcpy(buffer.get() + held, read.data(), read.size());
    held += static_cast<int>(read.size());
    good = DrainMessages(
        form, [=] { return bigEndian; }, buffer.get(), held, [] { return true; },
        [&](const char* data, int length) {
          FUZZ_CHECK(data[length] == '\0');
          messages.emplace_back(data, static_cast<size_t>(length));
        });
    FUZZ_CHECK(held >= 0 && held <= static_cast<int>(at + read.size()));
  }
  const Expected expected =
      form == Form::kLine ? ModelLines(stream) : ModelPrefixed(stream, bigEndian);
  FUZZ_CHECK(messages == expected.messages);
  FUZZ_CHECK(good == expected.good);
}

void CheckRoundTrip(Form form, bool bigEndian, std::string_view payload) {
  const std::string text(payload);
  const OutgoingFrame frame(form, bigEndian, text.c_str(), static_cast<int>(text.size()));
  FUZZ_CHECK(frame.Valid());
  const std::string_view wire(frame.Data(), static_cast<size_t>(frame.Length()));
  if (form == Form::kLine) {
    FUZZ_CHECK(wire.size() == text.size() + 2);
    FUZZ_CHECK(wire.substr(0, std::strlen(text.c_str()) + 2) == std::string(text.c_str()) + "\r\n");
    return;
  }
  const Expected back = ModelPrefixed(wire, bigEndian);
  FUZZ_CHECK(back.good && back.messages == Messages{text});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tarn_fuzz::FuzzInput input(data, size);
  const uint8_t choice = input.TakeByte();
  const Form form = (choice & 1) != 0 ? Form::kLine : Form::kLengthPrefix;
  const bool bigEndian = (choice & 2) == 0;
  CheckReceiving(form, bigEndian, size_t{choice} / 4 + 1, input.Rest());
  CheckRoundTrip(form, bigEndian, input.Rest());
  return 0;
}
