// The framing codec without sockets.
#include "utility/core/Framing.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/Support.h"

namespace {

using namespace Tarn::Core;
namespace Generic = Tarn::Generic;
using Generic::protocol_type;

using Messages = std::vector<std::string>;
using BufferPtr = std::unique_ptr<char, ReceiveBufferFreer>;

/// A receiving end: feeds bytes as reads would and collects what is delivered.
class Receiver {
 public:
  explicit Receiver(Form form, int capacity = 8192, bool bigEndian = true)
      : form_(form), bigEndian_(bigEndian), buffer_(NewReceiveBuffer(capacity)) {}

  /// False when the data are malformed or do not fit.
  bool Feed(const std::string& bytes) {
    const int room = RoomIn(buffer_.get(), INT_MAX, held_);
    if (room < static_cast<int>(bytes.size())) return false;
    std::memcpy(buffer_.get() + held_, bytes.data(), bytes.size());
    held_ += static_cast<int>(bytes.size());
    return DrainMessages(
        form_, [this] { return bigEndian_; }, buffer_.get(), held_, [this] { return goOn_; },
        [this](const char* data, int length) {
          EXPECT_EQ(data[length], '\0');
          messages_.emplace_back(data, static_cast<size_t>(length));
          if (messages_.size() == stopAfter_) goOn_ = false;
          if (messages_.size() == swapAfter_) bigEndian_ = false;
        });
  }

  Form form_;
  bool bigEndian_;
  BufferPtr buffer_;
  int held_ = 0;
  bool goOn_ = true;
  size_t stopAfter_ = SIZE_MAX;
  size_t swapAfter_ = SIZE_MAX;
  Messages messages_;
};

std::string Prefixed(const std::string& payload, bool bigEndian = true) {
  const auto total = static_cast<unsigned>(payload.size() + 4);
  std::string frame;
  for (int i = 0; i < 4; ++i) {
    const int shift = bigEndian ? 24 - 8 * i : 8 * i;
    frame.push_back(static_cast<char>((total >> shift) & 0xFF));
  }
  return frame + payload;
}

std::string Encoded(Form form, const std::string& payload, int length, bool bigEndian = true) {
  const OutgoingFrame frame(form, bigEndian, payload.c_str(), length);
  if (!frame.Valid()) return "invalid";
  return std::string(frame.Data(), static_cast<size_t>(frame.Length()));
}

TEST(FramingForms, FollowTheTableOnBothSidesKept) {
  struct Expected {
    int type;
    Form send;
    Form clientReceives;
    Form serverReceives;
  };
  for (const Expected& row : {Expected{0, Form::kLine, Form::kLine, Form::kLine},
                              {1, Form::kLengthPrefix, Form::kLengthPrefix, Form::kLengthPrefix},
                              {2, Form::kRaw, Form::kRaw, Form::kRaw},
                              {3, Form::kRaw, Form::kLine, Form::kLine},
                              {4, Form::kLine, Form::kRaw, Form::kRaw}}) {
    const auto type = static_cast<protocol_type>(row.type);
    EXPECT_EQ(FormsOf(Side::kClient, type).send, row.send) << row.type;
    EXPECT_EQ(FormsOf(Side::kServer, type).send, row.send) << row.type;
    EXPECT_EQ(FormsOf(Side::kClient, type).receive, row.clientReceives) << row.type;
    EXPECT_EQ(FormsOf(Side::kServer, type).receive, row.serverReceives) << row.type;
  }
}

TEST(FramingForms, HttpIsAPlaceholderOnTheClientAndUnknownToTheServerKept) {
  const Forms client = FormsOf(Side::kClient, Generic::PROTOCOL_HTTP);
  EXPECT_EQ(client.send, Form::kRaw);
  EXPECT_EQ(client.receive, Form::kInert);
  const Forms server = FormsOf(Side::kServer, Generic::PROTOCOL_HTTP);
  EXPECT_EQ(server.send, Form::kLengthPrefix);
  EXPECT_EQ(server.receive, Form::kLengthPrefix);
}

TEST(FramingForms, AnyOtherValueIsLengthPrefixBothWaysKept) {
  for (const int type : {-1, 6, 7, 1000, INT_MIN, INT_MAX}) {
    for (const Side side : {Side::kClient, Side::kServer}) {
      const Forms forms = FormsOf(side, static_cast<protocol_type>(type));
      EXPECT_EQ(forms.send, Form::kLengthPrefix);
      EXPECT_EQ(forms.receive, Form::kLengthPrefix);
    }
  }
}

TEST(FramingEncode, PrefixesTheTotalLengthInNetworkOrderKept) {
  EXPECT_EQ(Encoded(Form::kLengthPrefix, "abc", 3), std::string("\0\0\0\7abc", 7));
}

TEST(FramingEncode, PrefixesInHostOrderWhenAsked) {
  EXPECT_EQ(Encoded(Form::kLengthPrefix, "abc", 3, false), std::string("\7\0\0\0abc", 7));
}

TEST(FramingEncode, PrefixesAnEmptyPayload) {
  EXPECT_EQ(Encoded(Form::kLengthPrefix, "", 0), std::string("\0\0\0\4", 4));
}

TEST(FramingEncode, PrefixesPayloadsBeyondTheInlineBuffer) {
  const std::string payload = tarn_test::PatternBytes(1 << 20);
  const OutgoingFrame frame(Form::kLengthPrefix, true, payload.data(), 1 << 20);
  ASSERT_TRUE(frame.Valid());
  EXPECT_EQ(std::string(frame.Data(), static_cast<size_t>(frame.Length())), Prefixed(payload));
}

TEST(FramingEncode, EndsALineWithCrLf) {
  EXPECT_EQ(Encoded(Form::kLine, "hi", 2), "hi\r\n");
  EXPECT_EQ(Encoded(Form::kLine, "", 0), "\r\n");
}

TEST(FramingEncode, LineWithAnEarlyNulIsFilledUpWithNulsKept) {
  EXPECT_EQ(Encoded(Form::kLine, std::string("x\0yz", 4), 4), std::string("x\r\n\0\0\0", 6));
  EXPECT_EQ(Encoded(Form::kLine, std::string("\0", 1), 1), std::string("\r\n\0", 3));
}

TEST(FramingEncode, LineLongerThanItsLengthPushesTheLineEndOutKept) {
  EXPECT_EQ(Encoded(Form::kLine, "hello", 2), "hell");
  EXPECT_EQ(Encoded(Form::kLine, "hello", 4), "hello\r");
  EXPECT_EQ(Encoded(Form::kLine, "hello", 0), "he");
}

TEST(FramingEncode, LineNeverReadsBeyondLengthAndTwoBytes) {
  const auto payload =
      std::make_unique<char[]>(6);  // exact, so that a sanitizer sees one byte more
  std::memcpy(payload.get(), "abcdef", 6);
  const OutgoingFrame frame(Form::kLine, true, payload.get(), 4);
  EXPECT_EQ(std::string(frame.Data(), static_cast<size_t>(frame.Length())), "abcdef");
}

TEST(FramingEncode, SendsRawBytesAsTheyAre) {
  const std::string payload("a\0b", 3);
  EXPECT_EQ(Encoded(Form::kRaw, payload, 3), payload);
}

TEST(FramingEncode, RefusesNullDataAndImpossibleLengths) {
  for (const Form form : {Form::kLengthPrefix, Form::kLine, Form::kRaw}) {
    EXPECT_FALSE(OutgoingFrame(form, true, nullptr, 3).Valid());
    EXPECT_FALSE(OutgoingFrame(form, true, "abc", -1).Valid());
    EXPECT_FALSE(OutgoingFrame(form, true, "abc", INT_MIN).Valid());
    EXPECT_FALSE(OutgoingFrame(form, true, "abc", INT_MAX).Valid());
    EXPECT_FALSE(OutgoingFrame(form, true, "abc", INT_MAX - 3).Valid());
  }
}

TEST(FramingReceive, DeliversTwoPrefixedMessagesOfOneReadInOrder) {
  Receiver receiver(Form::kLengthPrefix);
  EXPECT_TRUE(receiver.Feed(Prefixed("first") + Prefixed("second")));
  EXPECT_EQ(receiver.messages_, (Messages{"first", "second"}));
  EXPECT_EQ(receiver.held_, 0);
}

TEST(FramingReceive, DeliversAPrefixedMessageOnceItsLastByteIsThere) {
  Receiver receiver(Form::kLengthPrefix);
  const std::string frame = Prefixed("payload");
  for (size_t i = 0; i + 1 < frame.size(); ++i) {
    EXPECT_TRUE(receiver.Feed(frame.substr(i, 1)));
    EXPECT_TRUE(receiver.messages_.empty());
  }
  EXPECT_TRUE(receiver.Feed(frame.substr(frame.size() - 1)));
  EXPECT_EQ(receiver.messages_, (Messages{"payload"}));
}

TEST(FramingReceive, DeliversAnEmptyPrefixedMessage) {
  Receiver receiver(Form::kLengthPrefix);
  EXPECT_TRUE(receiver.Feed(std::string("\0\0\0\4", 4)));
  EXPECT_EQ(receiver.messages_, (Messages{""}));
}

TEST(FramingReceive, ReadsTheLengthInHostOrderWhenAsked) {
  Receiver receiver(Form::kLengthPrefix, 8192, false);
  EXPECT_TRUE(receiver.Feed(Prefixed("little", false)));
  EXPECT_EQ(receiver.messages_, (Messages{"little"}));
}

TEST(FramingReceive, ReadsEveryLengthInTheOrderOfItsMoment) {
  Receiver receiver(Form::kLengthPrefix);
  receiver.swapAfter_ = 1;
  EXPECT_TRUE(receiver.Feed(Prefixed("big") + Prefixed("little", false)));
  EXPECT_EQ(receiver.messages_, (Messages{"big", "little"}));
}

TEST(FramingReceive, ALengthBelowFourIsMalformed) {
  for (const char length : {'\0', '\1', '\2', '\3'}) {
    Receiver receiver(Form::kLengthPrefix);
    EXPECT_FALSE(receiver.Feed(std::string("\0\0\0", 3) + length));
    EXPECT_TRUE(receiver.messages_.empty());
  }
}

TEST(FramingReceive, AMessageBeforeAMalformedOneIsStillDelivered) {
  Receiver receiver(Form::kLengthPrefix);
  EXPECT_FALSE(receiver.Feed(Prefixed("good") + std::string("\0\0\0\0", 4)));
  EXPECT_EQ(receiver.messages_, (Messages{"good"}));
}

TEST(FramingReceive, AHugeLengthWaitsForMoreWithoutOverflow) {
  for (const std::string& prefix :
       {std::string("\xFF\xFF\xFF\xFF"), std::string("\x80\0\0\0", 4)}) {
    Receiver receiver(Form::kLengthPrefix);
    EXPECT_TRUE(receiver.Feed(prefix + "data"));
    EXPECT_TRUE(receiver.messages_.empty());
    EXPECT_EQ(receiver.held_, 8);
  }
}

TEST(FramingReceive, AMessageOfCapacityLessOneFits) {
  Receiver receiver(Form::kLengthPrefix, 8192);
  const std::string payload(8191 - 4, 'x');
  EXPECT_TRUE(receiver.Feed(Prefixed(payload)));
  EXPECT_EQ(receiver.messages_, (Messages{payload}));
}

TEST(FramingReceive, AMessageOfCapacityNeverFits) {
  Receiver receiver(Form::kLengthPrefix, 8192);
  const std::string frame = Prefixed(std::string(8192 - 4, 'x'));
  EXPECT_TRUE(receiver.Feed(frame.substr(0, 8191)));
  EXPECT_EQ(RoomIn(receiver.buffer_.get(), 8192, receiver.held_), 0);
  EXPECT_TRUE(receiver.messages_.empty());
}

TEST(FramingReceive, CutsLinesAtCrLf) {
  Receiver receiver(Form::kLine);
  EXPECT_TRUE(receiver.Feed("a\r\nb\r\n"));
  EXPECT_EQ(receiver.messages_, (Messages{"a", "b"}));
}

TEST(FramingReceive, ALineWaitsForItsLineFeed) {
  Receiver receiver(Form::kLine);
  EXPECT_TRUE(receiver.Feed("a\r"));
  EXPECT_TRUE(receiver.messages_.empty());
  EXPECT_TRUE(receiver.Feed("\n"));
  EXPECT_EQ(receiver.messages_, (Messages{"a"}));
}

TEST(FramingReceive, ALineWithANulEndsThereKept) {
  Receiver receiver(Form::kLine);
  EXPECT_TRUE(receiver.Feed(std::string("x\0y\r\nz\r\n", 8)));
  EXPECT_EQ(receiver.messages_, (Messages{"x", "z"}));
}

TEST(FramingReceive, EmptyLinesAreDeliveredKept) {
  Receiver receiver(Form::kLine);
  EXPECT_TRUE(receiver.Feed("\r\n\r\nq\r\n"));
  EXPECT_EQ(receiver.messages_, (Messages{"", "", "q"}));
}

TEST(FramingReceive, LoneCrAndLoneLfAreDataKept) {
  Receiver receiver(Form::kLine);
  EXPECT_TRUE(receiver.Feed("\na\nb\rc\r\r\nd\n\r"));
  EXPECT_EQ(receiver.messages_, (Messages{"\na\nb\rc\r"}));
}

TEST(FramingReceive, NeverPairsACrWithAByteBehindTheData) {
  Receiver receiver(Form::kLine);
  EXPECT_TRUE(receiver.Feed("abc\r\n"));
  receiver.messages_.clear();
  // A stale LF stands behind the new data in the buffer.
  EXPECT_TRUE(receiver.Feed("abc\r"));
  EXPECT_EQ(receiver.buffer_.get()[4], '\n');
  EXPECT_TRUE(receiver.messages_.empty());
}

TEST(FramingReceive, RawReadsAreDeliveredWhole) {
  Receiver receiver(Form::kRaw);
  const std::string first("a\r\nb\0c", 6);
  EXPECT_TRUE(receiver.Feed(first));
  EXPECT_TRUE(receiver.Feed("second"));
  EXPECT_EQ(receiver.messages_, (Messages{first, "second"}));
}

TEST(FramingReceive, TheInertFormKeepsItsData) {
  Receiver receiver(Form::kInert);
  EXPECT_TRUE(receiver.Feed("GET / HTTP/1.1\r\n\r\n"));
  EXPECT_TRUE(receiver.messages_.empty());
  EXPECT_EQ(receiver.held_, 18);
}

TEST(FramingReceive, StopsBetweenMessagesWhenTold) {
  for (const Form form : {Form::kLine, Form::kLengthPrefix}) {
    Receiver receiver(form);
    receiver.stopAfter_ = 1;
    const std::string both = form == Form::kLine ? "a\r\nb\r\n" : Prefixed("a") + Prefixed("b");
    EXPECT_TRUE(receiver.Feed(both));
    EXPECT_EQ(receiver.messages_, (Messages{"a"}));
  }
}

TEST(FramingReceive, EverySplitInTwoGivesTheSameMessages) {
  const Messages payloads{"", "a", "two words", std::string(300, 'z'), "", "end"};
  for (const Form form : {Form::kLine, Form::kLengthPrefix}) {
    std::string stream;
    for (const auto& payload : payloads) {
      stream += form == Form::kLine ? payload + "\r\n" : Prefixed(payload);
    }
    for (size_t cut = 0; cut <= stream.size(); ++cut) {
      Receiver receiver(form);
      ASSERT_TRUE(receiver.Feed(stream.substr(0, cut)));
      ASSERT_TRUE(receiver.Feed(stream.substr(cut)));
      ASSERT_EQ(receiver.messages_, payloads) << "cut at " << cut;
      ASSERT_EQ(receiver.held_, 0);
    }
  }
}

TEST(FramingReceive, ChangingTheFramingForgetsWhereTheLineScanWas) {
  Receiver receiver(Form::kLine);
  EXPECT_TRUE(receiver.Feed("abcdefgh"));
  receiver.form_ = Form::kRaw;
  EXPECT_TRUE(receiver.Feed("i"));
  receiver.form_ = Form::kLine;
  EXPECT_TRUE(receiver.Feed("x\r\ny"));
  EXPECT_EQ(receiver.messages_, (Messages{"abcdefghi", "x"}));
}

TEST(FramingReceive, AFullBufferOfSmallMessagesIsLinearInItsBytes) {
  // Not timed: a scan or a move of the rest for each message would not end within the test's limit.
  constexpr int kCapacity = 2 << 20;
  Receiver receiver(Form::kLine, kCapacity);
  std::string stream;
  while (stream.size() + 2 < kCapacity - 1)
    stream += "\r\n";
  EXPECT_TRUE(receiver.Feed(stream));
  EXPECT_EQ(receiver.messages_.size(), stream.size() / 2);
}

TEST(FramingReceive, ALineThatArrivesByteByByteIsScannedOnce) {
  BufferPtr buffer(NewReceiveBuffer(1 << 16));
  int scanned = 0;
  std::memset(buffer.get(), '\n', 60000);
  for (int have = 0; have < 60000; ++have) {
    ASSERT_EQ(CutLine(buffer.get(), have, scanned).kind, CutKind::kMore);
    ASSERT_EQ(scanned, have);
  }
}

TEST(ReceiveBuffer, RefusesCapacitiesThatAreNotPositive) {
  EXPECT_EQ(NewReceiveBuffer(0), nullptr);
  EXPECT_EQ(NewReceiveBuffer(-5), nullptr);
  EXPECT_EQ(NewReceiveBuffer(INT_MIN), nullptr);
}

TEST(ReceiveBuffer, KeepsItsOwnCapacityWhateverTheSettingBecomes) {
  const BufferPtr buffer(NewReceiveBuffer(100));
  EXPECT_EQ(RoomIn(buffer.get(), 100, 0), 99);
  EXPECT_EQ(RoomIn(buffer.get(), 1000000, 0), 99);
  EXPECT_EQ(RoomIn(buffer.get(), INT_MAX, 99), 0);
  EXPECT_EQ(RoomIn(buffer.get(), 50, 20), 29);
  EXPECT_EQ(RoomIn(buffer.get(), 50, 60), 0);
  EXPECT_EQ(RoomIn(buffer.get(), -1, 0), 0);
  EXPECT_EQ(RoomIn(buffer.get(), INT_MIN, 0), 0);
}

}  // namespace
