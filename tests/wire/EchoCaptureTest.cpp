// The engine's echo packets against the captures in icmp-echo.hex.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Capture.h"
#include "tests/support/Support.h"
#include "utility/Ping.h"
#include "utility/core/IcmpEcho.h"

namespace Tarn::Generic {
namespace {

using namespace tarn_test;

using Bytes = std::vector<std::optional<unsigned char>>;  // without a value: any byte

/// A byte, or several: hh, ??, hh*n.
void AppendToken(const std::string& token, Bytes& bytes) {
  const size_t star = token.find('*');
  const int count = star == std::string::npos ? 1 : std::atoi(token.c_str() + star + 1);
  std::optional<unsigned char> byte;
  if (token.compare(0, 2, "??") != 0) {
    byte = static_cast<unsigned char>(std::strtoul(token.substr(0, 2).c_str(), nullptr, 16));
  }
  bytes.insert(bytes.end(), static_cast<size_t>(count), byte);
}

Bytes CaptureOf(const std::string& name) {
  std::istringstream file(ReadFile(TARN_SOURCE_DIR "/tests/wire/icmp-echo.hex"));
  Bytes bytes;
  bool wanted = false;
  for (std::string line; std::getline(file, line);) {
    line.erase(std::min(line.find('#'), line.size()));
    if (line.compare(0, 1, "[") == 0) {
      wanted = line == "[" + name + "]";
      continue;
    }
    std::istringstream tokens(line);
    for (std::string token; wanted && tokens >> token;)
      AppendToken(token, bytes);
  }
  return bytes;
}

std::string Filled(const Bytes& capture) {
  std::string bytes;
  for (const auto& byte : capture)
    bytes += static_cast<char>(byte.value_or(0x5A));
  return bytes;
}

void ExpectFits(const Bytes& capture, const char* bytes, size_t length) {
  ASSERT_EQ(capture.size(), length);
  for (size_t i = 0; i < length; ++i) {
    if (capture[i]) {
      EXPECT_EQ(*capture[i], static_cast<unsigned char>(bytes[i])) << "byte " << i;
    }
  }
}

TEST(EchoCapture, ARequestIsBuiltAsCaptured) {
  unsigned char packet[Core::kEchoRequestLength] = {};
  Core::BuildEchoRequest(packet, 0x1234, 0x0203, {0x0102030405060708, 123456});
  ExpectFits(CaptureOf("request"), reinterpret_cast<char*>(packet), sizeof(packet));
}

TEST(EchoCapture, AnEngineSendsItsFirstRequestAsCaptured) {
  CPing_linux engine("127.0.0.1", 1000);
  ASSERT_EQ(engine.pack(1), 64);
  ExpectFits(CaptureOf("the first request of an engine"), engine.m_sendPacket, 64);
}

TEST(EchoCapture, AnEngineCountsTheCapturedReplyAsItsOwn) {
  std::string reply = Filled(CaptureOf("reply"));
  CPing_linux engine("127.0.0.1", 1000);
  engine.m_id = 0x71234;  // its low 16 bits count
  engine.m_from.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  engine.m_recvTime = {0x0102030405060708, 125456};
  const StdoutCapture output;
  EXPECT_EQ(engine.unpack(reply.data(), static_cast<int>(reply.size())), 0);
  EXPECT_EQ(engine.m_sum, 2.0);
}

// Each of the bytes that make a packet the engine's own: type, identifier.
TEST(EchoCapture, AnEngineThrowsAwayTheReplyWithAnyOfTheseBytesChanged) {
  const std::string reply = Filled(CaptureOf("reply"));
  CPing_linux engine("127.0.0.1", 1000);
  engine.m_id = 0x1234;
  engine.m_from.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const StdoutCapture output;
  for (const size_t at : {20U, 24U, 25U}) {
    std::string changed = reply;
    changed[at] = static_cast<char>(changed[at] ^ 8);
    EXPECT_EQ(engine.unpack(changed.data(), static_cast<int>(changed.size())), -1) << at;
  }
}

}  // namespace
}  // namespace Tarn::Generic
