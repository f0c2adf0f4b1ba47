// The TCP server against bare sockets.
#include "utility/TcpServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/CallbackLog.h"
#include "tests/support/Capture.h"
#include "tests/support/RawPeer.h"

namespace {

using namespace Tarn::Generic;
using namespace tarn_test;

struct ServerEvent {
  std::string kind;  // connect, disconnect, message
  unsigned int sid = 0;
  unsigned int cid = 0;
  std::string text;
  std::string thread;
};

std::string ThisThreadName() {
  char name[16] = "";
  pthread_getname_np(pthread_self(), name, sizeof(name));
  return name;
}

/// Code that a test puts into a callback, also while the server runs.
template <typename... Args>
class Hook {
 public:
  Hook& operator=(std::function<void(Args...)> code) {
    const std::lock_guard lock(mutex_);
    code_ = std::move(code);
    return *this;
  }
  void operator()(Args... args) const {
    std::function<void(Args...)> code;
    {
      const std::lock_guard lock(mutex_);
      code = code_;
    }
    if (code) code(args...);
  }

 private:
  mutable std::mutex mutex_;
  std::function<void(Args...)> code_;
};

/// A started server with all callbacks recorded.
class Server {
 public:
  explicit Server(protocol_type type = PROTOCOL_BYTE) : type_(type) {
    server_ = static_cast<CTcpServer*>(ITcpServer::Create());
    Configure();
    Start();
  }
  ~Server() { ITcpServer::Delete(server_); }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  void Configure() {
    server_->RegisterEvent(
        this,
        [](void* user, unsigned int sid, unsigned int cid, char* ip) {
          auto* self = static_cast<Server*>(user);
          self->onConnect_(cid);
          self->log_.Add({"connect", sid, cid, ip, ThisThreadName()});
        },
        [](void* user, unsigned int sid, unsigned int cid) {
          auto* self = static_cast<Server*>(user);
          self->onDisconnect_(cid);
          self->log_.Add({"disconnect", sid, cid, "", ThisThreadName()});
        },
        [](void* user, unsigned int sid, unsigned int cid, const char* data, int len) {
          auto* self = static_cast<Server*>(user);
          EXPECT_EQ(data[len], '\0');
          std::string text(data, static_cast<size_t>(len));
          self->onMessage_(cid, text);
          self->log_.Add({"message", sid, cid, std::move(text), ThisThreadName()});
        });
    server_->SetProcType(type_);
  }
  void Start() {
    for (int tries = 0; tries < 20; ++tries) {
      port_ = FreePort();
      if (server_->Start(port_) == 1) return;
      Configure();
    }
    FAIL() << "no port to listen on";
  }

  RawPeer Connect(int receiveBuffer = 0) { return RawPeer::Connect(port_, receiveBuffer); }
  /// Connects and waits for the connect callback; `cid` receives the id.
  RawPeer ConnectKnown(unsigned int& cid) {
    const size_t before = Of("connect").size();
    RawPeer peer = Connect();
    EXPECT_TRUE(WaitUntil([&] { return Of("connect").size() > before; }));
    const auto connects = Of("connect");
    cid = connects.empty() ? 0 : connects.back().cid;
    return peer;
  }
  std::vector<ServerEvent> Of(const std::string& kind) {
    std::vector<ServerEvent> found;
    for (auto& event : log_.All()) {
      if (event.kind == kind) found.push_back(event);
    }
    return found;
  }
  bool WaitForKind(const std::string& kind, size_t count) {
    return WaitUntil([&] { return Of(kind).size() >= count; });
  }
  std::vector<std::string> Messages() {
    std::vector<std::string> texts;
    for (auto& event : Of("message"))
      texts.push_back(event.text);
    return texts;
  }
  size_t Clients() {
    const CAutoLocker lock(server_->m_clientLock);
    return server_->m_clientList.size();
  }

  CTcpServer* server_;
  protocol_type type_;
  int port_ = 0;
  CallbackLog<ServerEvent> log_;
  Hook<unsigned int> onConnect_;
  Hook<unsigned int> onDisconnect_;
  Hook<unsigned int, const std::string&> onMessage_;
};

std::string Frame(const std::string& payload) {
  const auto total = static_cast<unsigned>(payload.size() + 4);
  const char head[4] = {static_cast<char>(total >> 24), static_cast<char>(total >> 16),
                        static_cast<char>(total >> 8), static_cast<char>(total)};
  return std::string(head, 4) + payload;
}

void RaiseDescriptorLimit(rlim_t count) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_cur >= count) return;
  limit.rlim_cur = count;
  limit.rlim_max = std::max(limit.rlim_max, count);
  setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(TcpServer, ReportsConnectMessageAndDisconnectWithTheirIdsKept) {
  Server server;
  const auto sid = static_cast<unsigned int>(server.server_->m_listenfd.load());
  RawPeer peer = server.Connect();
  ASSERT_TRUE(server.WaitForKind("connect", 1));
  ASSERT_TRUE(peer.Send(Frame("hello")));
  ASSERT_TRUE(server.WaitForKind("message", 1));
  peer.Close();
  ASSERT_TRUE(server.WaitForKind("disconnect", 1));
  const auto events = server.log_.All();
  ASSERT_EQ(events.size(), 3U);
  EXPECT_EQ(events[0].sid, sid);
  EXPECT_EQ(events[0].text, "127.0.0.1");
  EXPECT_EQ(events[1].sid, sid);
  EXPECT_EQ(events[1].text, "hello");
  EXPECT_EQ(events[1].cid, events[0].cid);
  EXPECT_EQ(events[2].cid, events[0].cid);
}

TEST(TcpServer, DisconnectCallbackHasServerIdZeroKept) {
  Server server;
  server.Connect().Close();
  ASSERT_TRUE(server.WaitForKind("disconnect", 1));
  EXPECT_EQ(server.Of("disconnect")[0].sid, 0U);
  EXPECT_TRUE(WaitUntil([&] { return server.Clients() == 0; }));
  EXPECT_EQ(server.Of("disconnect").size(), 1U);
}

TEST(TcpServer, ResetByThePeerIsADisconnectToo) {
  Server server;
  unsigned int cid = 0;
  server.ConnectKnown(cid).Reset();
  ASSERT_TRUE(server.WaitForKind("disconnect", 1));
  EXPECT_EQ(server.Of("disconnect")[0].cid, cid);
}

TEST(TcpServer, WithoutAConnectCallbackThereIsNoDisconnectCallbackKept) {
  Server server;
  server.server_->RegisterEvent(
      &server, nullptr,
      [](void* user, unsigned int sid, unsigned int cid) {
        static_cast<Server*>(user)->log_.Add({"disconnect", sid, cid, "", ""});
      },
      nullptr);
  RawPeer peer = server.Connect();
  ASSERT_TRUE(WaitUntil([&] { return server.Clients() == 1; }));
  peer.Close();
  EXPECT_TRUE(WaitUntil([&] { return server.Clients() == 0; }));
  EXPECT_EQ(server.log_.Count(), 0U);
}

TEST(TcpServer, MalformedDataDisconnectEvenWithoutAConnectCallbackKept) {
  Server server;
  server.server_->RegisterEvent(
      &server, nullptr,
      [](void* user, unsigned int sid, unsigned int cid) {
        static_cast<Server*>(user)->log_.Add({"disconnect", sid, cid, "", ""});
      },
      nullptr);
  RawPeer peer = server.Connect();
  ASSERT_TRUE(peer.Send(std::string("\0\0\0\3", 4)));
  EXPECT_TRUE(server.log_.WaitFor(1));
  EXPECT_TRUE(peer.WaitClosed());
}

TEST(TcpServer, MessagesWithoutACallbackAreCutAndDroppedKept) {
  Server server;
  server.server_->RegisterEvent(&server, nullptr, nullptr, nullptr);
  RawPeer peer = server.Connect();
  ASSERT_TRUE(peer.Send(Frame("a") + Frame("b") + "\0"));
  EXPECT_TRUE(WaitUntil([&] {
    const CAutoLocker lock(server.server_->m_clientLock);
    return server.server_->m_clientList.size() == 1 &&
           server.server_->m_clientList.front().datalen == 0;
  }));
  EXPECT_EQ(server.log_.Count(), 0U);
}

TEST(TcpServer, CutsPrefixedMessagesWhateverTheReads) {
  Server server;
  RawPeer peer = server.Connect();
  const std::string stream = Frame("one") + Frame("") + Frame("three");
  for (const char byte : stream)
    ASSERT_TRUE(peer.Send(std::string(1, byte)));
  ASSERT_TRUE(server.WaitForKind("message", 3));
  EXPECT_EQ(server.Messages(), (std::vector<std::string>{"one", "", "three"}));
}

TEST(TcpServer, CutsLinesAndAnswersInLines) {
  Server server(PROTOCOL_STRING);
  server.onMessage_ = [&](unsigned int cid, const std::string& text) {
    EXPECT_EQ(
        server.server_->SendMsg(static_cast<int>(cid), text.c_str(), static_cast<int>(text.size())),
        static_cast<int>(text.size()) + 2);
  };
  RawPeer peer = server.Connect();
  ASSERT_TRUE(peer.Send("hi\r\nthere\r\n"));
  EXPECT_EQ(peer.Receive(11), "hi\r\nthere\r\n");
}

TEST(TcpServer, StringRecvReceivesLinesAndSendsRaw) {
  Server server(PROTOCOL_STRING_RECV);
  unsigned int cid = 0;
  RawPeer peer = server.ConnectKnown(cid);
  EXPECT_EQ(server.server_->SendMsg(static_cast<int>(cid), "raw", 3), 3);
  EXPECT_EQ(peer.Receive(3), "raw");
  ASSERT_TRUE(peer.Send("line\r\nrest"));
  ASSERT_TRUE(server.WaitForKind("message", 1));
  EXPECT_EQ(server.Messages(), (std::vector<std::string>{"line"}));
}

TEST(TcpServer, StringSendReceivesRawAndSendsLines) {
  Server server(PROTOCOL_STRING_SEND);
  unsigned int cid = 0;
  RawPeer peer = server.ConnectKnown(cid);
  EXPECT_EQ(server.server_->SendMsg(static_cast<int>(cid), "line", 4), 6);
  EXPECT_EQ(peer.Receive(6), "line\r\n");
  ASSERT_TRUE(peer.Send("no end"));
  ASSERT_TRUE(server.WaitForKind("message", 1));
  EXPECT_EQ(server.Messages(), (std::vector<std::string>{"no end"}));
}

TEST(TcpServer, HttpFramesByLengthPrefixKept) {
  Server server(PROTOCOL_HTTP);
  unsigned int cid = 0;
  RawPeer peer = server.ConnectKnown(cid);
  ASSERT_TRUE(peer.Send(Frame("body")));
  ASSERT_TRUE(server.WaitForKind("message", 1));
  EXPECT_EQ(server.Messages(), (std::vector<std::string>{"body"}));
  EXPECT_EQ(server.server_->SendMsg(static_cast<int>(cid), "abc", 3), 7);
  EXPECT_EQ(peer.Receive(7), std::string("\0\0\0\7abc", 7));
}

TEST(TcpServer, DisableEndianSwapsThePrefixBothWaysKept) {
  Server server;
  server.server_->DisableEndian();
  unsigned int cid = 0;
  RawPeer peer = server.ConnectKnown(cid);
  EXPECT_EQ(server.server_->SendMsg(static_cast<int>(cid), "abc", 3), 7);
  EXPECT_EQ(peer.Receive(7), std::string("\7\0\0\0abc", 7));
  ASSERT_TRUE(peer.Send(std::string("\6\0\0\0hi", 6)));
  ASSERT_TRUE(server.WaitForKind("message", 1));
  EXPECT_EQ(server.Messages(), (std::vector<std::string>{"hi"}));
}

TEST(TcpServer, TheLargestMessageThatFitsIsDelivered) {
  Server server;
  RawPeer peer = server.Connect();
  const std::string payload = PatternBytes(8191 - 4);
  ASSERT_TRUE(peer.Send(Frame(payload)));
  ASSERT_TRUE(server.WaitForKind("message", 1));
  EXPECT_EQ(server.Messages()[0], payload);
}

TEST(TcpServer, AMessageThatCannotFitEndsTheConnectionKept) {
  Server server;
  RawPeer peer = server.Connect();
  peer.Send(Frame(std::string(8192 - 4, 'x')));
  EXPECT_TRUE(server.WaitForKind("disconnect", 1));
  EXPECT_TRUE(peer.WaitClosed());
  EXPECT_TRUE(server.Messages().empty());
}

TEST(TcpServer, ALengthBelowFourEndsTheConnection) {
  Server server;
  RawPeer peer = server.Connect();
  ASSERT_TRUE(peer.Send(Frame("good") + std::string("\0\0\0\0", 4)));
  EXPECT_TRUE(server.WaitForKind("disconnect", 1));
  EXPECT_EQ(server.Messages(), (std::vector<std::string>{"good"}));
}

TEST(TcpServer, GrowingTheBufferSettingNeverReadsPastLiveBuffers) {
  Server server;
  unsigned int cid = 0;
  RawPeer peer = server.ConnectKnown(cid);
  server.server_->SetMaxBufferLen(1 << 20);
  peer.Send(Frame(std::string(100000, 'x')));
  EXPECT_TRUE(server.WaitForKind("disconnect", 1));
}

TEST(TcpServer, ABufferSettingThatIsNotPositiveRefusesClientsSilentlyKept) {
  Server server;
  server.server_->SetMaxBufferLen(0);
  RawPeer peer = server.Connect();
  EXPECT_TRUE(peer.WaitClosed());
  EXPECT_EQ(server.log_.Count(), 0U);
}

TEST(TcpServer, HearsANewClientAtOnce) {
  Server server;
  unsigned int cid = 0;
  RawPeer first = server.ConnectKnown(cid);  // the reader is in its one-second wait now
  const Stopwatch watch;
  RawPeer peer = server.Connect();
  ASSERT_TRUE(peer.Send(Frame("now")));
  ASSERT_TRUE(server.WaitForKind("message", 1));
  EXPECT_LT(watch.ElapsedMs(), AtMost(700));
}

TEST(TcpServer, DeliversNothingBeforeTheConnectCallbackHasReturned) {
  Server server;
  std::atomic<bool> inside{false};
  std::atomic<bool> early{false};
  server.onConnect_ = [&](unsigned int) {
    inside = true;
    // The message is on its way; give a reader that does not wait its chance.
    WaitUntil([&] { return early.load(); }, 200ms);
    inside = false;
  };
  server.onMessage_ = [&](unsigned int, const std::string&) {
    if (inside) early = true;
  };
  RawPeer peer = server.Connect();
  ASSERT_TRUE(peer.Send(Frame("eager")));
  ASSERT_TRUE(server.WaitForKind("message", 1));
  EXPECT_FALSE(early);
  EXPECT_EQ(server.log_.All()[0].kind, "connect");
}

TEST(TcpServer, CallbacksRunOnTheirThreads) {
  Server server;
  server.Connect().Send(Frame("x"));
  ASSERT_TRUE(server.WaitForKind("disconnect", 1));
  // The long names are refused by the platform, so both threads keep the inherited one; what counts
  // is that messages and disconnects share the reader and connects do not.
  const auto events = server.log_.All();
  ASSERT_EQ(events.size(), 3U);
  EXPECT_EQ(events[0].kind, "connect");
  EXPECT_EQ(events[1].kind, "message");
  EXPECT_EQ(events[2].kind, "disconnect");
}

TEST(TcpServer, ThreadsGoByTheirCreatorsNameKept) {
  const std::string before = ThisThreadName();
  pthread_setname_np(pthread_self(), "creator");
  Server server;
  pthread_setname_np(pthread_self(), before.c_str());
  server.Connect().Send(Frame("x"));
  ASSERT_TRUE(server.WaitForKind("disconnect", 1));
  for (const ServerEvent& event : server.log_.All())
    EXPECT_EQ(event.thread, "creator") << event.kind;
}

TEST(TcpServer, SmallMessagesMayWaitForAnAcknowledgementKept) {
  Server server;
  unsigned int cid = 0;
  RawPeer peer = server.ConnectKnown(cid);
  int value = -1;
  socklen_t size = sizeof(value);
  EXPECT_EQ(getsockopt(static_cast<int>(cid), IPPROTO_TCP, TCP_NODELAY, &value, &size), 0);
  EXPECT_EQ(value, 0);
}

TEST(TcpServer, RemoveclientClosesWithoutADisconnectCallbackKept) {
  Server server;
  unsigned int cid = 0;
  RawPeer peer = server.ConnectKnown(cid);
  EXPECT_EQ(server.server_->Removeclient(static_cast<int>(cid)), 1);
  EXPECT_TRUE(peer.WaitClosed());
  EXPECT_EQ(server.Clients(), 0U);
  EXPECT_TRUE(server.Of("disconnect").empty());
}

TEST(TcpServer, RemovalOfAnUnknownIdIsIgnoredKept) {
  Server server;
  unsigned int cid = 0;
  RawPeer peer = server.ConnectKnown(cid);
  EXPECT_EQ(server.server_->Removeclient(static_cast<int>(cid) + 100), 1);
  EXPECT_EQ(server.server_->Removeclient(0), 1);
  EXPECT_EQ(server.server_->Removeclient(-1), 1);
  ASSERT_TRUE(peer.Send(Frame("still here")));
  EXPECT_TRUE(server.WaitForKind("message", 1));
}

TEST(TcpServer, RemoveclientWorksFromInsideEachCallback) {
  Server server;
  server.onMessage_ = [&](unsigned int cid, const std::string&) {
    server.server_->Removeclient(static_cast<int>(cid));
  };
  RawPeer peer = server.Connect();
  ASSERT_TRUE(peer.Send(Frame("remove me")));
  EXPECT_TRUE(peer.WaitClosed());

  server.onConnect_ = [&](unsigned int cid) {
    server.server_->Removeclient(static_cast<int>(cid));
  };
  RawPeer second = server.Connect();
  EXPECT_TRUE(second.WaitClosed());
  EXPECT_TRUE(server.Of("disconnect").empty());
}

TEST(TcpServer, ALateRemovalNeverHitsTheNextOwnerOfTheNumber) {
  Server server;
  unsigned int first = 0;
  RawPeer old = server.ConnectKnown(first);
  std::atomic<bool> blocked{false};
  std::atomic<bool> release{false};
  unsigned int other = 0;
  RawPeer holder = server.ConnectKnown(other);
  server.onMessage_ = [&](unsigned int, const std::string&) {
    // With the list locked the removal waits; meanwhile its client goes by itself.
    server.server_->Removeclient(static_cast<int>(first));
    blocked = true;
    WaitUntil([&] { return release.load(); });
  };
  ASSERT_TRUE(holder.Send(Frame("hold")));
  ASSERT_TRUE(WaitUntil([&] { return blocked.load(); }));
  old.Close();
  release = true;
  ASSERT_TRUE(WaitUntil([&] { return server.Clients() == 1; }));
  server.onMessage_ = nullptr;
  unsigned int again = 0;
  RawPeer next = server.ConnectKnown(again);
  ASSERT_TRUE(next.Send(Frame("alive")));
  EXPECT_TRUE(WaitUntil([&] { return server.Messages().size() == 2; }));
}

TEST(TcpServer, ARemovalAskedOfAServerThatDoesNotRunIsForgotten) {
  // The leak checker tells when a request outlives its server.
  ITcpServer* never = ITcpServer::Create();
  EXPECT_EQ(never->Removeclient(7), 1);
  ITcpServer::Delete(never);

  ITcpServer* stopped = ITcpServer::Create();
  ASSERT_EQ(stopped->Start(FreePort()), 1);
  stopped->Stop();
  EXPECT_EQ(stopped->Removeclient(7), 1);
  ITcpServer::Delete(stopped);
}

TEST(TcpServer, StopCarriesOutTheRemovalsAskedForBefore) {
  Server server;
  constexpr int kPeers = 3;
  std::vector<RawPeer> peers;
  std::vector<unsigned int> ids(kPeers);
  for (unsigned int& id : ids)
    peers.push_back(server.ConnectKnown(id));
  std::atomic<bool> stopping{false};
  server.onMessage_ = [&](unsigned int, const std::string&) {
    // With the list locked no removal can be carried out before the server has begun to stop.
    stopping = true;
    WaitUntil([&] { return server.server_->m_bReading == 0; });
  };
  ASSERT_TRUE(peers[0].Send(Frame("hold")));
  ASSERT_TRUE(WaitUntil([&] { return stopping.load(); }));
  server.server_->Removeclient(static_cast<int>(ids[1]));
  server.server_->Removeclient(static_cast<int>(ids[2]));
  server.server_->Stop();
  EXPECT_FALSE(peers[0].WaitReadable(0ms));
  EXPECT_TRUE(peers[1].WaitClosed(0ms));
  EXPECT_TRUE(peers[2].WaitClosed(0ms));
}

TEST(TcpServer, RemovingTheClientAndStoppingInItsMessageCallbackIsSafe) {
  struct Context {
    ITcpServer* server;
    std::atomic<bool> done{false};
  } context{ITcpServer::Create()};
  context.server->SetProcType(PROTOCOL_NONE);
  context.server->RegisterEvent(
      &context, nullptr, nullptr,
      [](void* user, unsigned int, unsigned int cid, const char* data, int len) {
        auto* self = static_cast<Context*>(user);
        self->server->Removeclient(static_cast<int>(cid));
        self->server->Stop();
        EXPECT_EQ(std::string(data, static_cast<size_t>(len)), "bye");
        self->done = true;
      });
  const int port = FreePort();
  ASSERT_EQ(context.server->Start(port), 1);
  RawPeer peer = RawPeer::Connect(port);
  ASSERT_TRUE(peer.Send("bye"));
  EXPECT_TRUE(peer.WaitClosed());
  EXPECT_TRUE(WaitUntil([&] { return context.done.load(); }));
  ITcpServer::Delete(context.server);
}

TEST(TcpServer, TheNumberOfAClientIsNotUsedAnewDuringItsDisconnectCallback) {
  Server server;
  unsigned int cid = 0;
  RawPeer peer = server.ConnectKnown(cid);
  std::atomic<bool> reused{false};
  server.onDisconnect_ = [&](unsigned int id) {
    const int fresh = dup(1);
    reused = fresh == static_cast<int>(id);
    close(fresh);
  };
  peer.Close();
  ASSERT_TRUE(server.WaitForKind("disconnect", 1));
  EXPECT_FALSE(reused);
}

TEST(TcpServer, SendMsgBeforeStartAndAfterStopFails) {
  ITcpServer* server = ITcpServer::Create();
  EXPECT_EQ(server->SendMsg(1, "abc", 3), -1);
  ASSERT_EQ(server->Start(FreePort()), 1);
  server->Stop();
  EXPECT_EQ(server->SendMsg(1, "abc", 3), -1);
  ITcpServer::Delete(server);
}

TEST(TcpServer, SendMsgRefusesBadArguments) {
  Server server;
  unsigned int cid = 0;
  RawPeer peer = server.ConnectKnown(cid);
  const int id = static_cast<int>(cid);
  EXPECT_EQ(server.server_->SendMsg(id, nullptr, 3), -1);
  EXPECT_EQ(server.server_->SendMsg(id, "abc", -1), -1);
  EXPECT_EQ(server.server_->SendMsg(id, "abc", INT_MAX), -1);
  EXPECT_EQ(server.server_->SendMsg(-1, "abc", 3), -1);
  server.server_->SetProcType(PROTOCOL_NONE);
  EXPECT_EQ(server.server_->SendMsg(id, "abc", 0), -1);
}

TEST(TcpServer, SendMsgToAnIdThatIsNoClientWritesToThatDescriptorKept) {
  Server server(PROTOCOL_NONE);
  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  EXPECT_EQ(server.server_->SendMsg(pair[0], "direct", 6), 6);
  char text[6];
  EXPECT_EQ(read(pair[1], text, 6), 6);
  EXPECT_EQ(std::string(text, 6), "direct");
  close(pair[0]);
  close(pair[1]);
}

TEST(TcpServer, AMessageCallbackMayStillAnswerWhileTheServerStops) {
  Server server(PROTOCOL_NONE);
  std::atomic<bool> asked{false};
  std::atomic<int> result{0};
  server.onMessage_ = [&](unsigned int cid, const std::string&) {
    asked = true;
    WaitUntil([&] { return server.server_->m_bReading == 0; });
    result = server.server_->SendMsg(static_cast<int>(cid), "answer", 6);
  };
  RawPeer peer = server.Connect();
  ASSERT_TRUE(peer.Send("question"));
  ASSERT_TRUE(WaitUntil([&] { return asked.load(); }));
  server.server_->Stop();
  EXPECT_EQ(result, 6);
  EXPECT_EQ(peer.Receive(6), "answer");
}

TEST(TcpServer, WriteSfdWritesToAnyDescriptorAndNothingForANegativeLength) {
  CTcpServer server;
  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  EXPECT_EQ(server.WriteSfd(pair[0], "direct", 6), 6);
  EXPECT_EQ(server.WriteSfd(pair[0], "", 0), 0);
  EXPECT_EQ(server.WriteSfd(pair[0], "", -1), -1);
  EXPECT_EQ(server.WriteSfd(-1, "x", 1), -EBADF);
  char text[8];
  EXPECT_EQ(recv(pair[1], text, sizeof(text), MSG_DONTWAIT), 6);
  close(pair[0]);
  close(pair[1]);
}

TEST(TcpServer, FramesOfConcurrentSendersNeverMix) {
  Server server;
  unsigned int cid = 0;
  RawPeer peer = server.ConnectKnown(cid);
  constexpr int kSenders = 4;
  constexpr int kFrames = 60;
  constexpr size_t kPayload = 40000;
  std::vector<std::thread> senders;
  for (int i = 0; i < kSenders; ++i) {
    senders.emplace_back([&, i] {
      const std::string payload(kPayload, static_cast<char>('a' + i));
      for (int k = 0; k < kFrames; ++k) {
        EXPECT_EQ(server.server_->SendMsg(static_cast<int>(cid), payload.data(), kPayload),
                  static_cast<int>(kPayload) + 4);
      }
    });
  }
  for (int k = 0; k < kSenders * kFrames; ++k) {
    const std::string frame = peer.Receive(kPayload + 4, 20000ms);
    ASSERT_EQ(frame.size(), kPayload + 4);
    ASSERT_EQ(frame, Frame(std::string(kPayload, frame[4])));
  }
  for (auto& sender : senders)
    sender.join();
}

TEST(TcpServer, ABlockedSendEndsWhenTheServerStops) {
  Server server(PROTOCOL_NONE);
  unsigned int cid = 0;
  RawPeer peer = server.ConnectKnown(cid);
  const std::string much(64 << 20, 'x');
  std::atomic<int> result{1};
  std::thread sender([&] {
    result =
        server.server_->SendMsg(static_cast<int>(cid), much.data(), static_cast<int>(much.size()));
  });
  ASSERT_TRUE(peer.WaitReadable(5000ms));
  const Stopwatch watch;
  server.server_->Stop();
  sender.join();
  EXPECT_EQ(result, -1);
  EXPECT_LT(watch.ElapsedMs(), AtMost(2500 + 500));
}

TEST(TcpServer, ABlockedSendEndsWhenItsClientIsRemoved) {
  Server server(PROTOCOL_NONE);
  unsigned int cid = 0;
  RawPeer peer = server.ConnectKnown(cid);
  const std::string much(64 << 20, 'x');
  std::atomic<int> result{1};
  std::thread sender([&] {
    result =
        server.server_->SendMsg(static_cast<int>(cid), much.data(), static_cast<int>(much.size()));
  });
  ASSERT_TRUE(peer.WaitReadable(5000ms));
  server.server_->Removeclient(static_cast<int>(cid));
  sender.join();
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(peer.WaitClosed());
}

TEST(TcpServer, ABlockedSendInAMessageCallbackEndsWhenItsClientIsRemoved) {
  Server server(PROTOCOL_NONE);
  const std::string much(64 << 20, 'x');
  std::atomic<int> result{1};
  std::atomic<unsigned int> stuck{0};
  server.onMessage_ = [&](unsigned int cid, const std::string&) {
    stuck = cid;
    result =
        server.server_->SendMsg(static_cast<int>(cid), much.data(), static_cast<int>(much.size()));
  };
  RawPeer peer = server.Connect();
  ASSERT_TRUE(peer.Send("go"));
  ASSERT_TRUE(peer.WaitReadable(5000ms));
  server.server_->Removeclient(static_cast<int>(stuck));
  EXPECT_TRUE(WaitUntil([&] { return result == -1; }));
  EXPECT_TRUE(peer.WaitClosed());
}

TEST(TcpServer, NoFrameFollowsOneThatARemovalHasCutShort) {
  Server server(PROTOCOL_NONE);
  const std::string much(64 << 20, 'x');
  std::atomic<unsigned int> stuck{0};
  std::atomic<bool> cut{false};
  std::atomic<bool> drained{false};
  server.onMessage_ = [&](unsigned int cid, const std::string&) {
    stuck = cid;
    const int id = static_cast<int>(cid);
    EXPECT_EQ(server.server_->SendMsg(id, much.data(), static_cast<int>(much.size())), -1);
    cut = true;
    WaitUntil([&] { return drained.load(); });
    EXPECT_EQ(server.server_->SendMsg(id, "next", 4), -1);
  };
  RawPeer peer = server.Connect();
  ASSERT_TRUE(peer.Send("go"));
  ASSERT_TRUE(peer.WaitReadable(5000ms));
  server.server_->Removeclient(static_cast<int>(stuck));
  EXPECT_TRUE(WaitUntil([&] { return cut.load(); }));
  std::string received;
  while (peer.WaitReadable(50ms))
    received += peer.Receive(1 << 16, 50ms);
  drained = true;
  received += peer.ReceiveAll();
  EXPECT_EQ(received.find_first_not_of('x'), std::string::npos);
}

TEST(TcpServer, AClientToBeRemovedStillGetsWhatItsSocketTakesKept) {
  Server server(PROTOCOL_NONE);
  server.onMessage_ = [&](unsigned int cid, const std::string&) {
    server.server_->Removeclient(static_cast<int>(cid));
    EXPECT_EQ(server.server_->SendMsg(static_cast<int>(cid), "last", 4), 4);
  };
  RawPeer peer = server.Connect();
  ASSERT_TRUE(peer.Send("go"));
  EXPECT_EQ(peer.ReceiveAll(), "last");
}

TEST(TcpServer, ABlockedSendInAMessageCallbackEndsWhenThePeerVanishes) {
  Server server(PROTOCOL_NONE);
  const std::string much(64 << 20, 'x');
  std::atomic<int> result{1};
  server.onMessage_ = [&](unsigned int cid, const std::string&) {
    result =
        server.server_->SendMsg(static_cast<int>(cid), much.data(), static_cast<int>(much.size()));
  };
  RawPeer peer = server.Connect();
  ASSERT_TRUE(peer.Send("go"));
  ASSERT_TRUE(peer.WaitReadable(5000ms));
  peer.Reset();
  EXPECT_TRUE(WaitUntil([&] { return result == -1; }));
}

TEST(TcpServer, ASecondStartWhileRunningChangesNothing) {
  Server server;
  EXPECT_EQ(server.server_->Start(FreePort()), 0);
  RawPeer peer = server.Connect();
  ASSERT_TRUE(peer.Send(Frame("still")));
  EXPECT_TRUE(server.WaitForKind("message", 1));
}

TEST(TcpServer, StopDropsSettingsAndCallbacksButNotTheDisconnectCallbackKept) {
  Server server(PROTOCOL_STRING);
  server.server_->SetMaxBufferLen(100);
  server.server_->DisableEndian();
  server.server_->Stop();
  EXPECT_EQ(server.server_->m_procType, PROTOCOL_BYTE);
  EXPECT_EQ(server.server_->m_maxBufferLen, 8192);
  EXPECT_EQ(server.server_->m_bEndian, 1);
  EXPECT_EQ(server.server_->m_port, 0);
  EXPECT_EQ(server.server_->m_listenfd, 0);
  EXPECT_EQ(server.server_->m_pUser, nullptr);
  EXPECT_EQ(server.server_->m_onConnect, nullptr);
  EXPECT_EQ(server.server_->m_onMsg, nullptr);
  EXPECT_NE(server.server_->m_onDisconnect, nullptr);
}

TEST(TcpServer, ServesAgainAfterStopAndStart) {
  Server server;
  for (int round = 0; round < 2; ++round) {
    RawPeer peer = server.Connect();
    ASSERT_TRUE(peer.Send(Frame("round")));
    ASSERT_TRUE(server.WaitForKind("message", static_cast<size_t>(round) + 1));
    server.server_->Stop();
    server.Configure();
    server.Start();
  }
}

TEST(TcpServer, StopRightAfterStartWorks) {
  ITcpServer* server = ITcpServer::Create();
  for (int i = 0; i < 3; ++i) {
    const Stopwatch watch;
    ASSERT_EQ(server->Start(FreePort()), 1);
    server->Stop();
    EXPECT_LT(watch.ElapsedMs(), AtMost(3000));
    EXPECT_EQ(server->SendMsg(1, "x", 1), -1);
  }
  ITcpServer::Delete(server);
}

TEST(TcpServer, StopWithoutStartDoesNothing) {
  ITcpServer* server = ITcpServer::Create();
  server->Stop();
  server->Stop();
  ITcpServer::Delete(server);
  ITcpServer::Delete(nullptr);
}

TEST(TcpServer, StopLeavesClientSocketsOpenUntilTheNextStartKept) {
  Server server;
  unsigned int cid = 0;
  RawPeer peer = server.ConnectKnown(cid);
  server.server_->Stop();
  EXPECT_FALSE(peer.WaitReadable(100ms));
  struct stat status {};
  EXPECT_EQ(fstat(static_cast<int>(cid), &status), 0);
  server.Configure();
  server.Start();
  EXPECT_TRUE(peer.WaitClosed());
}

TEST(TcpServer, ALeftOpenNumberThatTheHostHasClosedIsLeftAlone) {
  Server server;
  unsigned int cid = 0;
  RawPeer peer = server.ConnectKnown(cid);
  server.server_->Stop();
  close(static_cast<int>(cid));
  int pipes[2];
  ASSERT_EQ(pipe(pipes), 0);  // the host uses the numbers for something else now
  dup2(pipes[1], static_cast<int>(cid));
  server.Configure();
  server.Start();
  struct stat status {};
  EXPECT_EQ(fstat(static_cast<int>(cid), &status), 0);
  close(pipes[0]);
  if (pipes[1] != static_cast<int>(cid)) close(pipes[1]);
  close(static_cast<int>(cid));
}

TEST(TcpServer, AFailedBindIsLoggedAndReturnsZeroKept) {
  int blocker = socket(AF_INET, SOCK_STREAM, 0);  // not re-usable, listening on all addresses
  sockaddr_in address{};
  address.sin_family = AF_INET;
  ASSERT_EQ(bind(blocker, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  ASSERT_EQ(listen(blocker, 1), 0);
  socklen_t size = sizeof(address);
  getsockname(blocker, reinterpret_cast<sockaddr*>(&address), &size);
  const int port = ntohs(address.sin_port);
  auto* server = static_cast<CTcpServer*>(ITcpServer::Create());
  server->SetProcType(PROTOCOL_NONE);
  server->RegisterEvent(
      server, [](void*, unsigned int, unsigned int, char*) {}, nullptr, nullptr);
  std::string output;
  {
    StdoutCapture capture;
    EXPECT_EQ(server->Start(port), 0);
    output = capture.Text();
  }
  EXPECT_THAT(output, testing::HasSubstr("CTcpServer::InitSocket bind failed. port:" +
                                         std::to_string(port) + " err:98\r\n"));
  EXPECT_EQ(server->m_procType, PROTOCOL_BYTE);
  EXPECT_EQ(server->m_onConnect, nullptr);
  EXPECT_EQ(server->m_listenfd, 0);
  close(blocker);
  ITcpServer::Delete(server);
}

TEST(TcpServer, ServesClientsInTheOrderTheyCame) {
  Server server;
  std::vector<RawPeer> peers;
  for (int i = 0; i < 5; ++i) {
    unsigned int cid = 0;
    peers.push_back(server.ConnectKnown(cid));
  }
  // One client holds the reader; the others send in reverse meanwhile.
  std::atomic<bool> holding{false};
  std::atomic<bool> release{false};
  server.onMessage_ = [&](unsigned int, const std::string& text) {
    if (text != "hold") return;
    holding = true;
    WaitUntil([&] { return release.load(); });
  };
  ASSERT_TRUE(peers[0].Send(Frame("hold")));
  ASSERT_TRUE(WaitUntil([&] { return holding.load(); }));
  for (int i = 4; i > 0; --i) {
    ASSERT_TRUE(peers[static_cast<size_t>(i)].Send(Frame(std::to_string(i))));
  }
  release = true;
  ASSERT_TRUE(server.WaitForKind("message", 5));
  EXPECT_EQ(server.Messages(), (std::vector<std::string>{"hold", "1", "2", "3", "4"}));
}

TEST(TcpServer, ServesOneThousandAndTwentyFourClientsAndClosesTheNextKept) {
  RaiseDescriptorLimit(4096);
  Server server;
  std::vector<RawPeer> peers;
  for (size_t i = 0; i < 1024; ++i) {
    peers.push_back(server.Connect());
    ASSERT_TRUE(peers.back().Valid()) << i;
  }
  ASSERT_TRUE(WaitUntil([&] { return server.log_.Count() == 1024; }, 20000ms));
  RawPeer extra = server.Connect();
  EXPECT_TRUE(extra.WaitClosed());
  EXPECT_EQ(server.Of("connect").size(), 1024U);

  for (auto& peer : peers)
    ASSERT_TRUE(peer.Send(Frame("all")));
  ASSERT_TRUE(WaitUntil([&] { return server.log_.Count() == 2048; }, 20000ms));
  unsigned int highest = 0;
  for (const auto& event : server.Of("message"))
    highest = std::max(highest, event.cid);
  EXPECT_GT(highest, 1023U);
  EXPECT_EQ(server.server_->SendMsg(static_cast<int>(highest), "high", 4), 8);

  peers.pop_back();
  ASSERT_TRUE(server.WaitForKind("disconnect", 1));
  ASSERT_TRUE(WaitUntil([&] { return server.Clients() == 1023; }));
  RawPeer next = server.Connect();
  ASSERT_TRUE(next.Send(Frame("next")));
  EXPECT_TRUE(WaitUntil([&] { return server.Messages().size() == 1025; }));
}

TEST(TcpServer, TwoServersAndRestartsUnderTraffic) {
  Server one;
  Server two(PROTOCOL_STRING);
  std::atomic<bool> stop{false};
  std::thread traffic([&] {
    while (!stop) {
      RawPeer a = one.Connect();
      a.Send(Frame("a"));
      RawPeer b = RawPeer::Connect(two.port_);
      b.Send("b\r\n");
    }
  });
  ASSERT_TRUE(one.WaitForKind("message", 5));
  ASSERT_TRUE(two.WaitForKind("message", 5));
  two.server_->Stop();
  stop = true;
  traffic.join();
}

TEST(TcpServer, DeletingTheServerInAMessageCallbackIsSafe) {
  struct Context {
    ITcpServer* server;
    std::atomic<bool> done{false};
  } context{ITcpServer::Create()};
  context.server->SetProcType(PROTOCOL_NONE);
  context.server->RegisterEvent(
      &context, nullptr, nullptr,
      [](void* user, unsigned int, unsigned int, const char* data, int len) {
        auto* self = static_cast<Context*>(user);
        ITcpServer::Delete(self->server);
        EXPECT_EQ(std::string(data, static_cast<size_t>(len)), "bye");
        self->done = true;
      });
  const int port = FreePort();
  ASSERT_EQ(context.server->Start(port), 1);
  RawPeer peer = RawPeer::Connect(port);
  ASSERT_TRUE(peer.Send("bye"));
  EXPECT_TRUE(WaitUntil([&] { return context.done.load(); }));
}

TEST(TcpServer, StoppingTheServerInAConnectCallbackIsSafe) {
  struct Context {
    ITcpServer* server;
    std::atomic<bool> done{false};
  } context{ITcpServer::Create()};
  context.server->RegisterEvent(
      &context,
      [](void* user, unsigned int, unsigned int, char*) {
        static_cast<Context*>(user)->server->Stop();
        static_cast<Context*>(user)->done = true;
      },
      nullptr, nullptr);
  const int port = FreePort();
  ASSERT_EQ(context.server->Start(port), 1);
  RawPeer peer = RawPeer::Connect(port);
  EXPECT_TRUE(WaitUntil([&] { return context.done.load(); }));
  ITcpServer::Delete(context.server);
}

TEST(TcpServer, AClientAddedToAServerThatNeverRanIsReleasedWithIt) {
  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  RawPeer peer(pair[1]);
  {
    CTcpServer server;
    char ip[] = "192.168.100.200";
    EXPECT_EQ(server.AddClientToList(pair[0], ip, 4711), 1);
    EXPECT_STREQ(server.m_clientList.front().ip, "192.168.100.200");
  }
  EXPECT_TRUE(peer.WaitClosed());
}

TEST(TcpServer, RunningOutOfDescriptorsDoesNotSpinAndRecovers) {
  // In a child process, whose descriptor limit it is.
  const int status = RunInChild([] {
    auto* server = new Server;
    std::vector<int> fillers;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 100;
    setrlimit(RLIMIT_NOFILE, &limit);
    RawPeer peer(socket(AF_INET, SOCK_STREAM, 0));
    while (true) {
      const int fd = dup(2);
      if (fd < 0) break;
      fillers.push_back(fd);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<unsigned short>(server->port_));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(peer.Fd(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) return 1;
    const clock_t before = clock();
    if (server->log_.WaitFor(1, 500ms)) return 2;
    // A spinning accept loop would burn the whole half second.
    if (clock() - before > CLOCKS_PER_SEC / 4) return 3;
    for (const int fd : fillers)
      close(fd);
    return server->log_.WaitFor(1) ? 0 : 4;
  });
  EXPECT_EQ(status, 0) << "exit code " << (status >> 8);
}

}  // namespace
