// The framing codec of TCP clients and servers, without sockets.
#include "utility/core/Framing.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace Tarn::Core {

namespace {

using Generic::protocol_type;

struct Row {
  protocol_type type;
  Forms client;
  Forms server;
};

// Every asymmetry between the two directions and the two sides is here and nowhere else.
constexpr std::array kRows{
    Row{Generic::PROTOCOL_STRING, {Form::kLine, Form::kLine}, {Form::kLine, Form::kLine}},
    Row{Generic::PROTOCOL_NONE, {Form::kRaw, Form::kRaw}, {Form::kRaw, Form::kRaw}},
    Row{Generic::PROTOCOL_STRING_RECV, {Form::kRaw, Form::kLine}, {Form::kRaw, Form::kLine}},
    Row{Generic::PROTOCOL_STRING_SEND, {Form::kLine, Form::kRaw}, {Form::kLine, Form::kRaw}},
    // Kept: HTTP is a placeholder on the client and unknown to the server. Hosts that select it
    // rely on a silent client and on a server that frames as by default.
    Row{Generic::PROTOCOL_HTTP,
        {Form::kRaw, Form::kInert},
        {Form::kLengthPrefix, Form::kLengthPrefix}},
};

uint32_t LoadLength(const char* bytes, bool bigEndian) {
  uint32_t value = 0;
  std::memcpy(&value, bytes, sizeof(value));
  return bigEndian ? __builtin_bswap32(value) : value;
}

void StoreLength(char* bytes, uint32_t value, bool bigEndian) {
  if (bigEndian) value = __builtin_bswap32(value);
  std::memcpy(bytes, &value, sizeof(value));
}

}  // namespace

Forms FormsOf(Side side, protocol_type type) {
  for (const Row& row : kRows) {
    if (row.type == type) return side == Side::kClient ? row.client : row.server;
  }
  return {Form::kLengthPrefix, Form::kLengthPrefix};
}

Cut CutLine(const char* bytes, int have, int& scanned) {
  int from = std::clamp(scanned, 0, have);
  while (from < have) {
    const void* found = std::memchr(bytes + from, '\n', static_cast<size_t>(have - from));
    if (found == nullptr) break;
    const int lineFeed = static_cast<int>(static_cast<const char*>(found) - bytes);
    if (lineFeed > 0 && bytes[lineFeed - 1] == '\r') {
      scanned = 0;
      const int end = lineFeed - 1;
      const auto length = static_cast<int>(strnlen(bytes, static_cast<size_t>(end)));
      return {CutKind::kMessage, 0, length, end, lineFeed + 1};
    }
    from = lineFeed + 1;
  }
  scanned = have;
  return {CutKind::kMore, 0, 0, 0, 0};
}

Cut CutLengthPrefix(const char* bytes, int have, bool bigEndian) {
  if (have < kLengthPrefixBytes) return {CutKind::kMore, 0, 0, 0, 0};
  const uint32_t total = LoadLength(bytes, bigEndian);
  if (total < kLengthPrefixBytes) return {CutKind::kBad, 0, 0, 0, 0};
  if (static_cast<uint32_t>(have) < total) return {CutKind::kMore, 0, 0, 0, 0};
  const int end = static_cast<int>(total);
  return {CutKind::kMessage, kLengthPrefixBytes, end - kLengthPrefixBytes, end, end};
}

void MoveRestToFront(char* buffer, int& held, int at) {
  if (at == 0) return;
  held -= at;
  std::memmove(buffer, buffer + at, static_cast<size_t>(held));
}

OutgoingFrame::OutgoingFrame(Form form, bool bigEndian, const char* data, int length) {
  if (data == nullptr || length < 0 || length > INT_MAX - kLengthPrefixBytes) return;
  switch (form) {
    case Form::kLengthPrefix:
      MakeLengthPrefixed(bigEndian, data, length);
      break;
    case Form::kLine:
      MakeLine(data, length);
      break;
    case Form::kRaw:
    case Form::kInert:
      data_ = data;
      length_ = length;
  }
}

char* OutgoingFrame::Reserve(int bytes) {
  if (static_cast<size_t>(bytes) <= sizeof(inline_)) return inline_;
  heap_.reset(static_cast<char*>(std::malloc(static_cast<size_t>(bytes))));
  return heap_.get();
}

void OutgoingFrame::MakeLengthPrefixed(bool bigEndian, const char* data, int length) {
  char* frame = Reserve(length + kLengthPrefixBytes);
  if (frame == nullptr) return;
  StoreLength(frame, static_cast<uint32_t>(length) + kLengthPrefixBytes, bigEndian);
  std::memcpy(frame + kLengthPrefixBytes, data, static_cast<size_t>(length));
  data_ = frame;
  length_ = length + kLengthPrefixBytes;
}

// Kept: exactly length + 2 bytes of the text plus CR LF go out. A text that ends early is filled up
// with NULs and one that is longer than `length` pushes the CR LF off the wire; peers count on the
// length argument alone deciding how many bytes they get.
void OutgoingFrame::MakeLine(const char* data, int length) {
  const auto total = static_cast<size_t>(length) + kLineEndBytes;
  char* frame = Reserve(static_cast<int>(total));
  if (frame == nullptr) return;
  const size_t text = strnlen(data, total);
  std::memcpy(frame, data, text);
  std::memset(frame + text, 0, total - text);
  if (text < total) frame[text] = '\r';
  if (text + 1 < total) frame[text + 1] = '\n';
  data_ = frame;
  length_ = static_cast<int>(total);
}

void OutgoingFrame::Freer::operator()(char* block) const {
  std::free(block);
}

}  // namespace Tarn::Core
