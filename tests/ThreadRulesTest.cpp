// Which thread calls back, under which lock, and what a stop waits for: the rules of
// docs/threads.md that hold for several classes alike.
#include <Tarn/Generic/AsyncLog.h>
#include <Tarn/Generic/Deque.h>
#include <Tarn/Generic/DownloadClient.h>
#include <Tarn/Generic/UdpClient.h>
#include <Tarn/Generic/UdpServer.h>
#include <Tarn/Generic/UploadClient.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/RawDatagrams.h"
#include "tests/support/RawPeer.h"
#include "tests/support/Support.h"
#include "utility/TcpClient.h"
#include "utility/TcpServer.h"

namespace {

using namespace Tarn::Generic;
using namespace tarn_test;

constexpr milliseconds kLook = 100ms;  // long enough to meet what must not happen

using ThreadIds = std::set<std::thread::id>;

/// Watches callbacks: their threads, and whether two ever run at once.
class CallWatch {
 public:
  /// Every callback passes through here.
  void Call(const std::string& what) {
    const bool alone = inside_.fetch_add(1) == 0;
    std::function<void()> meanwhile;
    {
      const std::lock_guard lock(mutex_);
      threads_[what].insert(std::this_thread::get_id());
      ++calls_[what];
      overlapped_ = overlapped_ || !alone;
      afterTheEnd_ = afterTheEnd_ || ended_;
      meanwhile = meanwhile_;
    }
    if (meanwhile) meanwhile();
    std::this_thread::sleep_for(1ms);  // so that a second one would be met
    --inside_;
  }

  /// Runs inside every callback from now on.
  void Meanwhile(std::function<void()> work) {
    const std::lock_guard lock(mutex_);
    meanwhile_ = std::move(work);
  }
  /// No callback may come any more.
  void End() {
    const std::lock_guard lock(mutex_);
    ended_ = true;
  }

  [[nodiscard]] bool WaitFor(const std::string& what, size_t count = 1) const {
    return WaitUntil([&] { return Calls(what) >= count; });
  }
  [[nodiscard]] size_t Calls(const std::string& what) const {
    const std::lock_guard lock(mutex_);
    const auto found = calls_.find(what);
    return found == calls_.end() ? 0 : found->second;
  }
  /// The threads of all these callbacks.
  [[nodiscard]] ThreadIds Threads(const std::vector<std::string>& whats) const {
    const std::lock_guard lock(mutex_);
    ThreadIds all;
    for (const std::string& what : whats) {
      const auto found = threads_.find(what);
      if (found != threads_.end()) all.insert(found->second.begin(), found->second.end());
    }
    return all;
  }
  [[nodiscard]] bool Overlapped() const {
    const std::lock_guard lock(mutex_);
    return overlapped_;
  }
  [[nodiscard]] bool AfterTheEnd() const {
    const std::lock_guard lock(mutex_);
    return afterTheEnd_;
  }

 private:
  mutable std::mutex mutex_;
  std::map<std::string, ThreadIds> threads_;
  std::map<std::string, size_t> calls_;
  std::function<void()> meanwhile_;
  std::atomic<int> inside_{0};
  bool overlapped_ = false;
  bool ended_ = false;
  bool afterTheEnd_ = false;
};

/// These callbacks share one thread, which is not the caller's.
void ExpectOneThread(const CallWatch& watch, const std::vector<std::string>& whats) {
  const ThreadIds threads = watch.Threads(whats);
  EXPECT_EQ(threads.size(), 1U);
  EXPECT_EQ(threads.count(std::this_thread::get_id()), 0U);
}

/// Work on a thread of its own, which is joined in the end.
class Elsewhere {
 public:
  explicit Elsewhere(std::function<void()> work)
      : thread_([this, work = std::move(work)] {
          work();
          done_ = true;
        }) {}
  ~Elsewhere() { thread_.join(); }
  Elsewhere(const Elsewhere&) = delete;
  Elsewhere& operator=(const Elsewhere&) = delete;
  [[nodiscard]] bool Ends(milliseconds limit = 5000ms) const {
    return WaitUntil([this] { return done_.load(); }, limit);
  }

 private:
  std::atomic<bool> done_{false};
  std::thread thread_;  // last: it uses the flag
};

/// Inside the next callback, does `work` on another thread; the result tells whether it ended
/// there.
bool EndsDuringACallback(CallWatch& watch, const std::function<void()>& provoke,
                         const std::function<void()>& work, milliseconds limit = 5000ms) {
  // Shared with a callback that may still look at it when this function has returned.
  struct State {
    std::atomic_flag taken = ATOMIC_FLAG_INIT;
    std::atomic<int> outcome{-1};
    std::unique_ptr<Elsewhere> elsewhere;
  };
  const auto state = std::make_shared<State>();
  watch.Meanwhile([=] {
    if (state->taken.test_and_set()) return;
    state->elsewhere = std::make_unique<Elsewhere>(work);
    state->outcome = state->elsewhere->Ends(limit) ? 1 : 0;
  });
  provoke();
  const bool called = WaitUntil([&] { return state->outcome != -1; }, 10000ms);
  watch.Meanwhile(nullptr);
  EXPECT_TRUE(called && state->elsewhere->Ends());
  return state->outcome == 1;
}

/// A stop waits for the callback that runs, and none begins after it has returned.
void ExpectStopWaitsForCallbacks(CallWatch& watch, const std::function<void()>& provoke,
                                 const std::function<void()>& stop) {
  std::atomic<bool> held{false};
  std::atomic<bool> release{false};
  watch.Meanwhile([&] {
    held = true;
    WaitUntil([&] { return release.load(); }, 20000ms);
  });
  provoke();
  EXPECT_TRUE(WaitUntil([&] { return held.load(); }));
  {
    const Elsewhere stopping([&] {
      stop();
      watch.End();
    });
    EXPECT_FALSE(stopping.Ends(kLook));
    provoke();
    release = true;
    EXPECT_TRUE(stopping.Ends(10000ms));
  }
  provoke();
  std::this_thread::sleep_for(kLook);
  EXPECT_FALSE(watch.AfterTheEnd());
  watch.Meanwhile(nullptr);
}

// --- TCP client ---

class ThreadsOfATcpClient : public testing::Test {
 protected:
  ThreadsOfATcpClient() {
    client_->SetProcType(PROTOCOL_STRING);
    Register();
  }
  ~ThreadsOfATcpClient() override { ITcpClient::Delete(client_); }

  void Register() {
    client_->RegisterEvent(
        &watch_,
        [](void* user, ConnType type) {
          static_cast<CallWatch*>(user)->Call("event " + std::to_string(type));
        },
        [](void* user, const char*, int) { static_cast<CallWatch*>(user)->Call("message"); });
  }
  void Connect() {
    ASSERT_EQ(client_->Connect("127.0.0.1", listener_.Port(), -1), 1);
    peer_ = listener_.AcceptClient();
    ASSERT_TRUE(peer_.Valid());
    ASSERT_TRUE(watch_.WaitFor("event 0"));
  }
  [[nodiscard]] std::function<void()> Lines() {
    return [this] { peer_.Send("one\r\ntwo\r\n"); };
  }

  RawListener listener_;
  CallWatch watch_;
  ITcpClient* client_ = ITcpClient::Create();
  RawPeer peer_;
};

TEST_F(ThreadsOfATcpClient, TheConnectThreadTellsTheConnectAndTheReadThreadTheRest) {
  Connect();
  ASSERT_TRUE(peer_.Send("one\r\ntwo\r\n"));
  ASSERT_TRUE(watch_.WaitFor("message", 2));
  peer_.Close();
  ASSERT_TRUE(watch_.WaitFor("event 3"));
  ExpectOneThread(watch_, {"event 0"});
  ExpectOneThread(watch_, {"message", "event 3"});
  EXPECT_EQ(watch_.Threads({"event 0", "message"}).size(), 2U);
}

TEST_F(ThreadsOfATcpClient, AFailedConnectIsToldOnTheConnectThread) {
  ASSERT_EQ(client_->Connect("127.0.0.1", FreePort(), -1), 1);
  ASSERT_TRUE(watch_.WaitFor("event 1"));
  ExpectOneThread(watch_, {"event 1"});
}

TEST_F(ThreadsOfATcpClient, AMessageMayComeWhileTheConnectIsStillBeingTold) {
  std::atomic<bool> met{false};
  watch_.Meanwhile([&] {
    const bool connecting = watch_.Threads({"event 0"}).count(std::this_thread::get_id()) == 1;
    if (connecting) met = watch_.WaitFor("message");
  });
  ASSERT_EQ(client_->Connect("127.0.0.1", listener_.Port(), -1), 1);
  peer_ = listener_.AcceptClient();
  ASSERT_TRUE(peer_.Send("early\r\n"));
  EXPECT_TRUE(WaitUntil([&] { return met.load(); }));
  watch_.Meanwhile(nullptr);
  client_->Disconnect();
}

TEST_F(ThreadsOfATcpClient, ADisconnectDuringAConnectWaitsForItsOneEvent) {
  for (size_t i = 1; i <= 5; ++i) {
    ASSERT_EQ(client_->Connect("127.0.0.1", listener_.Port(), -1), 1);
    client_->Disconnect();
    EXPECT_EQ(watch_.Calls("event 0") + watch_.Calls("event 1"), i);
  }
  EXPECT_EQ(watch_.Calls("event 3") + watch_.Calls("event 4"), 0U);
}

TEST_F(ThreadsOfATcpClient, NoLockIsHeldInCallbacks) {
  const auto work = [this] {
    Register();
    client_->SetProcType(PROTOCOL_STRING);
    client_->SendMsg("x", 1);
  };
  EXPECT_TRUE(EndsDuringACallback(
      watch_, [this] { Connect(); }, work));
  EXPECT_TRUE(EndsDuringACallback(watch_, Lines(), work));
  EXPECT_TRUE(EndsDuringACallback(
      watch_, [this] { peer_.Close(); }, work));
}

TEST_F(ThreadsOfATcpClient, DisconnectWaitsForTheCallbackThatRuns) {
  Connect();
  ExpectStopWaitsForCallbacks(watch_, Lines(), [this] { client_->Disconnect(); });
}

// --- TCP server ---

class ThreadsOfATcpServer : public testing::Test {
 protected:
  ThreadsOfATcpServer() {
    // Somebody else may take the port meanwhile; a failed start drops what was set.
    for (int tries = 0; tries < 20; ++tries) {
      server_->SetProcType(PROTOCOL_STRING);
      Register();
      port_ = FreePort();
      if (server_->Start(port_) == 1) return;
    }
    ADD_FAILURE() << "no port to listen on";
  }
  ~ThreadsOfATcpServer() override { ITcpServer::Delete(server_); }

  void Register() {
    server_->RegisterEvent(
        this,
        [](void* user, unsigned int, unsigned int cid, char*) {
          auto* self = static_cast<ThreadsOfATcpServer*>(user);
          self->cid_ = static_cast<int>(cid);
          self->watch_.Call("connect");
        },
        [](void* user, unsigned int, unsigned int) {
          static_cast<ThreadsOfATcpServer*>(user)->watch_.Call("disconnect");
        },
        [](void* user, unsigned int, unsigned int, const char*, int) {
          static_cast<ThreadsOfATcpServer*>(user)->watch_.Call("message");
        });
  }
  /// Connects and waits until its connect callback has returned.
  RawPeer Connect() {
    const size_t before = watch_.Calls("connect");
    RawPeer peer = RawPeer::Connect(port_);
    EXPECT_TRUE(watch_.WaitFor("connect", before + 1));
    return peer;
  }
  void TakeListLock() {
    server_->m_clientLock.Lock();
    server_->m_clientLock.UnLock();
  }

  CallWatch watch_;
  CTcpServer* server_ = static_cast<CTcpServer*>(ITcpServer::Create());
  std::atomic<int> cid_{0};
  int port_ = 0;
};

TEST_F(ThreadsOfATcpServer, TheAcceptThreadTellsConnectsAndTheReadThreadTheRest) {
  {
    std::vector<RawPeer> peers;
    for (int i = 0; i < 3; ++i)
      peers.push_back(Connect());
    for (RawPeer& peer : peers)
      ASSERT_TRUE(peer.Send("one\r\ntwo\r\n"));
    ASSERT_TRUE(watch_.WaitFor("message", 6));
  }
  ASSERT_TRUE(watch_.WaitFor("disconnect", 3));
  ExpectOneThread(watch_, {"connect"});
  ExpectOneThread(watch_, {"message", "disconnect"});
  EXPECT_EQ(watch_.Threads({"connect", "message"}).size(), 2U);
}

TEST_F(ThreadsOfATcpServer, TheClientListIsLockedInMessagesAndDisconnectsButNotInConnects) {
  const auto work = [this] { TakeListLock(); };
  RawPeer peer;
  EXPECT_TRUE(EndsDuringACallback(
      watch_, [&] { peer = Connect(); }, work));
  EXPECT_FALSE(EndsDuringACallback(
      watch_, [&] { peer.Send("x\r\n"); }, work, kLook));
  EXPECT_FALSE(EndsDuringACallback(
      watch_, [&] { peer.Close(); }, work, kLook));
}

TEST_F(ThreadsOfATcpServer, SendingAndRemovingNeedNoLockThatACallbackHolds) {
  const auto work = [this] {
    Register();
    server_->SendMsg(cid_, "x", 1);
    server_->Removeclient(-1);
  };
  RawPeer peer;
  EXPECT_TRUE(EndsDuringACallback(
      watch_, [&] { peer = Connect(); }, work));
  EXPECT_TRUE(EndsDuringACallback(
      watch_, [&] { peer.Send("x\r\n"); }, work));
  EXPECT_TRUE(EndsDuringACallback(
      watch_, [&] { peer.Close(); }, work));
}

TEST_F(ThreadsOfATcpServer, StopWaitsForTheCallbackThatRuns) {
  RawPeer peer = Connect();
  ExpectStopWaitsForCallbacks(
      watch_, [&] { peer.Send("one\r\ntwo\r\n"); }, [this] { server_->Stop(); });
}

TEST_F(ThreadsOfATcpServer, StopTakesTwoSecondsWithIdleClients) {
  std::vector<RawPeer> peers;
  for (int i = 0; i < 20; ++i)
    peers.push_back(Connect());
  const Stopwatch watch;
  server_->Stop();
  EXPECT_LT(watch.ElapsedMs(), AtMost(5000));
}

// --- UDP ---

class ThreadsOfUdp : public testing::Test {
 protected:
  ThreadsOfUdp() {
    server_->SetLocalIP("127.0.0.1");
    client_->SetLocalAddr("127.0.0.1", 0);
    RegisterServer();
    EXPECT_EQ(server_->Start(port_), 1);
    RegisterClient();
    EXPECT_EQ(client_->Connect("127.0.0.1", port_), 1);
    // The server answers: from then on both sides are heard.
    EXPECT_EQ(client_->SendMsg("x", 1), 1);
    EXPECT_TRUE(clientWatch_.WaitFor("message"));
  }
  ~ThreadsOfUdp() override {
    IUdpClient::Delete(client_);
    IUdpServer::Delete(server_);
  }

  void RegisterServer() {
    server_->RegisterEvent(this, [](void* user, char* ip, int port, const char* data, int len) {
      auto* self = static_cast<ThreadsOfUdp*>(user);
      self->clientPort_ = port;
      self->serverWatch_.Call("message");
      self->server_->SendMsg(ip, port, data, len);
    });
  }
  void RegisterClient() {
    client_->RegisterEvent(&clientWatch_, [](void* user, const char*, int) {
      static_cast<CallWatch*>(user)->Call("message");
    });
  }
  /// A datagram to the server and, through its answer, to the client.
  [[nodiscard]] std::function<void()> Datagrams() {
    return [this] {
      client_->SendMsg("a", 1);
      client_->SendMsg("b", 1);
    };
  }

  CallWatch serverWatch_;
  CallWatch clientWatch_;
  const int port_ = FreeUdpPort();
  std::atomic<int> clientPort_{0};
  IUdpServer* server_ = IUdpServer::Create();
  IUdpClient* client_ = IUdpClient::Create();
};

TEST_F(ThreadsOfUdp, EachReadThreadTellsOneDatagramAfterTheOther) {
  std::vector<std::thread> senders;
  for (int i = 0; i < 3; ++i) {
    senders.emplace_back([this] {
      for (int k = 0; k < 10; ++k)
        client_->SendMsg("x", 1);
    });
  }
  for (std::thread& sender : senders)
    sender.join();
  EXPECT_TRUE(serverWatch_.WaitFor("message", 31));
  EXPECT_TRUE(clientWatch_.WaitFor("message", 31));
  for (const CallWatch* watch : {&serverWatch_, &clientWatch_}) {
    ExpectOneThread(*watch, {"message"});
    EXPECT_FALSE(watch->Overlapped());
  }
}

TEST_F(ThreadsOfUdp, NoLockIsHeldInCallbacks) {
  const auto work = [this] {
    RegisterServer();
    RegisterClient();
    server_->SendMsg("127.0.0.1", clientPort_, "y", 1);
    client_->SendMsg("y", 1);
  };
  EXPECT_TRUE(EndsDuringACallback(serverWatch_, Datagrams(), work));
  EXPECT_TRUE(EndsDuringACallback(clientWatch_, Datagrams(), work));
}

TEST_F(ThreadsOfUdp, DisconnectWaitsForTheCallbackThatRuns) {
  ExpectStopWaitsForCallbacks(clientWatch_, Datagrams(), [this] { client_->Disconnect(); });
}

TEST_F(ThreadsOfUdp, StopWaitsForTheCallbackThatRuns) {
  ExpectStopWaitsForCallbacks(serverWatch_, Datagrams(), [this] { server_->Stop(); });
}

// --- Work queue ---

class ThreadsOfAQueue : public testing::Test {
 protected:
  ThreadsOfAQueue() {
    queue_->SetWaitTime(50);
    Register();
    EXPECT_TRUE(queue_->Start(1));
  }
  ~ThreadsOfAQueue() override { IDeque::Delete(queue_); }

  void Register() {
    queue_->RegisterEvent(&watch_,
                          [](void* user, void*) { static_cast<CallWatch*>(user)->Call("item"); });
  }
  [[nodiscard]] std::function<void()> Push() {
    return [this] { queue_->PushOneData(this); };
  }

  CallWatch watch_;
  IDeque* queue_ = IDeque::Create("rules");
};

TEST_F(ThreadsOfAQueue, OneWorkerTakesOneItemAfterTheOther) {
  for (int i = 0; i < 20; ++i)
    queue_->PushOneData(this);
  ASSERT_TRUE(watch_.WaitFor("item", 20));
  ExpectOneThread(watch_, {"item"});
  EXPECT_FALSE(watch_.Overlapped());
}

TEST_F(ThreadsOfAQueue, NoLockIsHeldInCallbacks) {
  EXPECT_TRUE(EndsDuringACallback(watch_, Push(), [this] {
    Register();
    queue_->PushOneData(this);
    queue_->GetLength();
  }));
}

TEST_F(ThreadsOfAQueue, StopWaitsForTheCallbackThatRuns) {
  ExpectStopWaitsForCallbacks(watch_, Push(), [this] { queue_->Stop(); });
}

// --- Transfers ---

class ThreadsOfTransfers : public testing::Test {
 protected:
  // The default log's thread lives as long as the process. Its file would be opened during whatever
  // case runs a second later.
  static void SetUpTestSuite() {
    IAsyncLog::GetDefaultLogPtr()->SetWriteLogMode(0, DEBUG, true, false);
  }

  const TempDir dir_;
  RawListener listener_;
  CallWatch watch_;
  char ip_[10] = "127.0.0.1";
};

class ThreadsOfAnUpload : public ThreadsOfTransfers {
 protected:
  ThreadsOfAnUpload() {
    WriteFile(dir_.File("a.txt"), "0123456789");
    client_->RegisterEvent(
        [](void* user, const char*, const char*, unsigned int code) {
          static_cast<CallWatch*>(user)->Call("result " + std::to_string(code));
        },
        [](void* user, const char*, int) { static_cast<CallWatch*>(user)->Call("progress"); },
        &watch_);
  }
  ~ThreadsOfAnUpload() override { IUploadClient::Delete(client_); }
  bool Upload(int port) { return client_->Upload(ip_, port, dir_.File("a.txt").c_str()); }

  IUploadClient* client_ = IUploadClient::Create();
};

TEST_F(ThreadsOfAnUpload, TheConnectThreadTellsTheProgressAndTheReadThreadTheAnswer) {
  ASSERT_TRUE(Upload(listener_.Port()));
  RawPeer peer = listener_.AcceptSpeaker();
  ASSERT_EQ(peer.Receive(60).size(), 60U);
  ASSERT_TRUE(peer.Send("{\"err\":0,\"file\":\"n\"}\r\n"));
  ASSERT_TRUE(watch_.WaitFor("result 0"));
  ExpectOneThread(watch_, {"progress"});
  ExpectOneThread(watch_, {"result 0"});
  EXPECT_EQ(watch_.Threads({"progress", "result 0"}).size(), 2U);
}

TEST_F(ThreadsOfAnUpload, AFailedConnectIsToldOnAThreadOfItsOwn) {
  ASSERT_TRUE(Upload(FreePort()));
  ASSERT_TRUE(watch_.WaitFor("result 1"));
  ExpectOneThread(watch_, {"result 1"});
}

class ThreadsOfADownload : public ThreadsOfTransfers {
 protected:
  ThreadsOfADownload() {
    client_->RegisterEvent(
        [](void* user, const char*, unsigned int code) {
          static_cast<CallWatch*>(user)->Call("result " + std::to_string(code));
        },
        [](void* user, const char*, int) { static_cast<CallWatch*>(user)->Call("progress"); },
        &watch_);
  }
  ~ThreadsOfADownload() override { IDownloadClient::Delete(client_); }
  bool Down(int port) { return client_->Down(ip_, port, "a", dir_.File("down").c_str(), nullptr); }

  IDownloadClient* client_ = IDownloadClient::Create();
};

TEST_F(ThreadsOfADownload, TheReadThreadTellsProgressAndResults) {
  ASSERT_TRUE(Down(listener_.Port()));
  RawPeer peer = listener_.AcceptSpeaker();
  ASSERT_EQ(peer.Receive(3), "a\r\n");
  // 10 bytes are announced, with an MD5 that matches nothing.
  std::string header("\x32\0\0\0\0\0\0\0", 8);
  header.append(32, '0');
  ASSERT_TRUE(peer.Send(header + "01234"));
  ASSERT_TRUE(watch_.WaitFor("progress"));
  ASSERT_TRUE(peer.Send("56789"));
  ASSERT_TRUE(watch_.WaitFor("result 2002"));
  ExpectOneThread(watch_, {"progress", "result 2002"});
  EXPECT_FALSE(watch_.Overlapped());
}

TEST_F(ThreadsOfADownload, AFailedConnectIsToldOnAThreadOfItsOwn) {
  ASSERT_TRUE(Down(FreePort()));
  ASSERT_TRUE(watch_.WaitFor("result 1"));
  ExpectOneThread(watch_, {"result 1"});
}

// --- Asynchronous log ---

TEST(ThreadsOfALog, DeleteDoesNotWaitForTheWritersPause) {
  const TempDir dir;
  const Stopwatch watch;
  for (int i = 0; i < 8; ++i) {
    // A new writer begins with its pause, of a second.
    IAsyncLog* log = IAsyncLog::Create(dir.File("app.log").c_str(), false);
    log->SetWriteLogMode(0, DEBUG, false, false);
    IAsyncLog::Delete(log);
  }
  EXPECT_LT(watch.ElapsedMs(), AtMost(6000));
}

}  // namespace
