// The framing codec of TCP clients and servers, without sockets.
//
// Length-prefixed message:            Line:
//   offset  size  field                 payload bytes, then 0x0D 0x0A
//   0       4     L, unsigned; counts   Raw:
//                 these 4 bytes too       payload bytes
//   4       L-4   payload
#ifndef TARN_UTILITY_CORE_FRAMING_H
#define TARN_UTILITY_CORE_FRAMING_H

#include <Tarn/Generic/Framing.h>

#include <memory>

#include "utility/core/ReceiveBuffer.h"

namespace Tarn::Core {

constexpr int kLengthPrefixBytes = 4;
constexpr int kLineEndBytes = 2;

enum class Side { kClient, kServer };

/// A way of putting one message on the wire or of taking it off again.
enum class Form {
  kLengthPrefix,
  kLine,
  kRaw,
  kInert,  ///< receiving only: the data stays in the buffer and nothing is delivered
};

struct Forms {
  Form send;
  Form receive;
};

/// The forms of one side in one framing; an unknown framing counts as length prefix both ways.
Forms FormsOf(Side side, Generic::protocol_type type);

// --- Receiving
// -------------------------------------------------------------------------------------

enum class CutKind { kMore, kMessage, kBad };

/// One look at the front of a buffer.
struct Cut {
  CutKind kind;
  int offset;  ///< where the payload begins
  int length;  ///< the payload's length as the callback sees it
  int end;     ///< where the payload ends in the buffer; the byte there may be overwritten by a NUL
  int consumed;  ///< bytes up to the next message
};

/// Finds the first CR LF. A line that holds a NUL ends there for the callback: lines are text.
/// `scanned` remembers how far earlier calls have looked, so that each byte is looked at once.
Cut CutLine(const char* bytes, int have, int& scanned);

/// A length below 4 is bad: it does not even cover its own prefix.
Cut CutLengthPrefix(const char* bytes, int have, bool bigEndian);

/// Cuts every complete message off the front of `buffer`, of which `held` bytes are filled, and
/// moves the rest to the front once. `deliver(data, length)` gets each message with a NUL behind
/// it, in place; `goOn()` is asked before each look at the data, and when it says no, nothing but
/// `held` is touched any more. `bigEndian()` tells the byte order of the next length prefix. False
/// when the data are malformed.
template <typename BigEndian, typename GoOn, typename Deliver>
bool DrainMessages(Form form, BigEndian bigEndian, char* buffer, int& held, GoOn goOn,
                   Deliver deliver);

// --- Sending
// ---------------------------------------------------------------------------------------

/// One message as it goes on the wire. Raw messages are the caller's own bytes.
class OutgoingFrame {
 public:
  OutgoingFrame(Form form, bool bigEndian, const char* data, int length);
  OutgoingFrame(const OutgoingFrame&) = delete;
  OutgoingFrame& operator=(const OutgoingFrame&) = delete;

  /// False for null data, a negative or huge length, or when memory is short.
  [[nodiscard]] bool Valid() const { return data_ != nullptr; }
  [[nodiscard]] const char* Data() const { return data_; }
  [[nodiscard]] int Length() const { return length_; }

 private:
  char* Reserve(int bytes);
  void MakeLengthPrefixed(bool bigEndian, const char* data, int length);
  void MakeLine(const char* data, int length);

  struct Freer {
    void operator()(char* block) const;
  };

  char inline_[1024];
  std::unique_ptr<char, Freer> heap_;
  const char* data_ = nullptr;
  int length_ = 0;
};

// --- Implementation of the template
// ----------------------------------------------------------------

/// Moves what is left behind `at` to the front.
void MoveRestToFront(char* buffer, int& held, int at);

template <typename BigEndian, typename GoOn, typename Deliver>
bool DrainMessages(Form form, BigEndian bigEndian, char* buffer, int& held, GoOn goOn,
                   Deliver deliver) {
  if (form == Form::kInert) return true;
  int& scanned = HeadOf(buffer).scanned;
  if (form != Form::kLine) scanned = 0;
  if (form == Form::kRaw) {
    buffer[held] = '\0';
    deliver(buffer, held);
    held = 0;
    return true;
  }

  int at = 0;
  bool good = true;
  while (goOn()) {
    char* front = buffer + at;
    const Cut cut = form == Form::kLine ? CutLine(front, held - at, scanned)
                                        : CutLengthPrefix(front, held - at, bigEndian());
    good = cut.kind != CutKind::kBad;
    if (cut.kind != CutKind::kMessage) break;
    at += cut.consumed;
    // The byte behind a payload is a CR that has been consumed, the next message's first byte, or
    // the free byte that every buffer keeps.
    const char behind = front[cut.end];
    front[cut.end] = '\0';
    deliver(front + cut.offset, cut.length);
    if (!goOn()) {
      // The buffer may be gone together with the object; only if it is not does the rest matter.
      held -= at;
      return true;
    }
    front[cut.end] = behind;
  }
  MoveRestToFront(buffer, held, at);
  return good;
}

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_FRAMING_H
