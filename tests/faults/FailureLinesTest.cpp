// The lines that failures of TCP objects leave in the trace log, byte for byte. Calls of one kind
// fail one after the other, until the one behind the line has been met.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <ostream>
#include <string>

#include "tests/faults/FaultInjector.h"
#include "tests/support/Capture.h"
#include "tests/support/RawPeer.h"
#include "utility/TcpClient.h"
#include "utility/TcpServer.h"

namespace {

using namespace Tarn::Generic;
using namespace tarn_test;

constexpr int kThreaded = -1;
constexpr int kTimed = 2000;
constexpr int kMostPlaces = 24;

struct Line {
  const char* name;
  Call call;
  int timeout;
  const char* text;  ///< "PORT" stands for the port
};

/// The case is named so.
void PrintTo(const Line& line, std::ostream* out) {
  *out << line.name;
}

std::string With(std::string text, int port) {
  if (const size_t at = text.find("PORT"); at != std::string::npos)
    text.replace(at, 4, std::to_string(port));
  return text;
}

/// What a client prints when the `nth` call fails while it connects.
std::string ConnectWithFault(const Line& line, int nth, int& port) {
  RawListener listener;
  port = listener.Port();
  const std::string wanted = With(line.text, port);
  const std::unique_ptr<ITcpClient, void (*)(ITcpClient*)> client(ITcpClient::Create(),
                                                                  ITcpClient::Delete);
  std::atomic<bool> told{false};
  client->RegisterEvent(
      &told, [](void* user, ConnType) { *static_cast<std::atomic<bool>*>(user) = true; }, nullptr);
  StdoutCapture capture;
  FailCall(line.call, nth, false);
  const int result = client->Connect("127.0.0.1", port, line.timeout);
  if (result == 1 && line.timeout == kThreaded) WaitUntil([&] { return told.load(); });
  // All lines but the reader's are there by now.
  if (result == 1 && line.call == Call::kPoll)
    WaitUntil([&] { return capture.Text().find(wanted) != std::string::npos; });
  StopFailing();
  std::string text = capture.Text();
  listener.Close();  // ends the connection, and so the reader
  return text;
}

class ClientLines : public testing::TestWithParam<Line> {};

TEST_P(ClientLines, AreWrittenAsMonitorsKnowThem) {
  std::string all;
  for (int nth = 1; nth <= kMostPlaces; ++nth) {
    int port = 0;
    const std::string text = ConnectWithFault(GetParam(), nth, port);
    if (text.find(With(GetParam().text, port)) != std::string::npos) return;
    all += text;
  }
  FAIL() << "never printed; but:\n" << all;
}

INSTANTIATE_TEST_SUITE_P(
    , ClientLines,
    testing::Values(Line{"NoSocket", Call::kSocket, kTimed,
                         " CTcpClient::Connect initsocket fail 127.0.0.1:PORT error code:24\r\n"},
                    Line{"NoKeepAlive", Call::kSetsockopt, kThreaded,
                         " CTcpClient::SetHeartOpen setsockopt failed 127.0.0.1:PORT 105\r\n"},
                    Line{"NoReceiveBuffer", Call::kSetsockopt, kTimed,
                         " CTcpClient::SetNonblocking setsockopt SO_RCVBUF error:105\r\n"},
                    Line{"NoSendBuffer", Call::kSetsockopt, kTimed,
                         " CTcpClient::SetNonblocking setsockopt SO_SNDBUF error:105\r\n"},
                    Line{"SetUpFails", Call::kSetsockopt, kThreaded,
                         " CTcpClient::ConnectThreadTask setnonblocking fail 127.0.0.1:PORT, error "
                         "code:105\r\n"},
                    Line{"NoReaderBehindAThread", Call::kPthreadCreate, kThreaded,
                         " CTcpClient::ConnectThreadTask open readtask fail 127.0.0.1:PORT\r\n"},
                    Line{"NoReaderBehindATimedConnect", Call::kPthreadCreate, kTimed,
                         " CTcpClient::AsynConnect open readtask fail 127.0.0.1:PORT\r\n"},
                    Line{"WaitingFails", Call::kPoll, kTimed,
                         " CTcpClient::ReadThreadTask select fd fail 127.0.0.1:PORT\r\n"}));

class ServerLines : public testing::TestWithParam<Line> {};

TEST_P(ServerLines, AreWrittenAsMonitorsKnowThem) {
  const std::unique_ptr<ITcpServer, void (*)(ITcpServer*)> server(ITcpServer::Create(),
                                                                  ITcpServer::Delete);
  // Somebody else may take the port meanwhile.
  std::string text;
  const bool told = WaitUntil([&] {
    const int port = FreePort();
    StdoutCapture capture;
    FailCall(GetParam().call, 1, false);
    EXPECT_EQ(server->Start(port), 0);
    StopFailing();
    text = capture.Text();
    return text.find(With(GetParam().text, port)) != std::string::npos;
  });
  EXPECT_TRUE(told) << text;
}

INSTANTIATE_TEST_SUITE_P(
    , ServerLines,
    testing::Values(Line{"NoSocket", Call::kSocket, 0,
                         " CTcpServer::InitSocket socket create failed. port:PORT err:24\r\n"},
                    Line{"NotReusable", Call::kSetsockopt, 0,
                         " CTcpServer::InitSocket setsockopt failed. port:PORT err:105\r\n"},
                    Line{"PortTaken", Call::kBind, 0,
                         " CTcpServer::InitSocket bind failed. port:PORT err:98\r\n"},
                    Line{"NotListening", Call::kListen, 0,
                         " CTcpServer::InitSocket listen failed. port:PORT err:98\r\n"}));

}  // namespace
