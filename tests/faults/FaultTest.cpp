// Every platform call on the road of a message and of a transfer fails once, at each place where it
// is made, and from the first place onwards: nothing crashes, leaks or hangs, and the same objects
// work again afterwards. Each round runs in a child process, many at a time, since rounds mostly
// wait.
#include <Tarn/Generic/AsyncLog.h>
#include <Tarn/Generic/DownloadClient.h>
#include <Tarn/Generic/DownloadServer.h>
#include <Tarn/Generic/Profile.h>
#include <Tarn/Generic/TcpClient.h>
#include <Tarn/Generic/TcpServer.h>
#include <Tarn/Generic/UploadClient.h>
#include <Tarn/Generic/UploadServer.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/faults/FaultInjector.h"
#include "tests/support/RawPeer.h"

namespace {

using namespace Tarn::Generic;
using namespace tarn_test;

constexpr size_t kRoundsAtOnce = 16;
constexpr unsigned kLongestRoundSeconds = 90;  // a hang ends the round
constexpr int kMostPlaces = 16;
constexpr int kPlacesAtOnce = 8;
constexpr auto kShort = 700ms;      // for what a fault may have broken
constexpr auto kLong = 8s;          // for what must work
constexpr int kNothingFailed = 77;  // exit code: the call is not made that often

/// A port may be taken by somebody else between two rounds; a fault would stay.
bool WorksAgain(const std::function<bool()>& attempt) {
  return attempt() || attempt() || attempt();
}

// --- The road of a message ---

struct Message {
  std::atomic<bool> received{false};
};

/// Starts, connects, sends, removes, disconnects and stops; true when the message went through.
bool SendAMessage(ITcpServer* server, ITcpClient* client, milliseconds patience) {
  Message message;
  server->RegisterEvent(
      &message, [](void*, unsigned int, unsigned int, char*) {},
      [](void*, unsigned int, unsigned int) {},
      [](void* user, unsigned int, unsigned int, const char*, int) {
        static_cast<Message*>(user)->received = true;
      });
  const int port = FreePort();
  bool sent = server->Start(port) == 1;
  client->RegisterEvent(nullptr, nullptr, nullptr);
  sent = client->Connect("127.0.0.1", port, -1) == 1 && sent;
  if (sent && WaitUntil([&] { return client->SendMsg("abc", 3) == 7; }, patience)) {
    WaitUntil([&] { return message.received.load(); }, patience);
  }
  server->Removeclient(12345);
  client->Disconnect();
  server->Stop();
  return message.received;
}

int MessageRound(Call call, int nth, bool onwards) {
  ITcpServer* server = ITcpServer::Create();
  ITcpClient* client = ITcpClient::Create();
  FailCall(call, nth, onwards);
  SendAMessage(server, client, kShort);
  ITcpServer::Delete(ITcpServer::Create());
  ITcpClient::Delete(ITcpClient::Create());
  const bool failed = StopFailing();
  const bool works = WorksAgain([&] { return SendAMessage(server, client, kLong); });
  ITcpClient::Delete(client);
  ITcpServer::Delete(server);
  if (!works) return 1;
  return failed ? 0 : kNothingFailed;
}

// --- The road of an upload ---

bool SendAFile(IUploadServer* server, IUploadClient* client, const std::string& file,
               milliseconds patience) {
  struct Result {
    std::atomic<bool> stored{false};
  } result;
  const int port = FreePort();
  bool done = server->Start(port);
  client->RegisterEvent(
      [](void* user, const char*, const char* name, unsigned int code) {
        if (code == 0 && name != nullptr && *name != '\0')
          static_cast<Result*>(user)->stored = true;
      },
      nullptr, &result);
  char ip[] = "127.0.0.1";
  done = client->Upload(ip, port, file.c_str()) && done;
  if (done) WaitUntil([&] { return result.stored.load(); }, patience);
  client->RegisterEvent(nullptr, nullptr, nullptr);
  server->Stop();
  return result.stored;
}

int UploadRound(Call call, int nth, bool onwards) {
  TempDir folder;
  const std::string file = folder.File("sent.txt");
  WriteFile(file, PatternBytes(5000));
  IUploadServer* server = IUploadServer::Create();
  server->SetPath(folder.File("stored").c_str());
  IUploadClient* client = IUploadClient::Create();
  FailCall(call, nth, onwards);
  SendAFile(server, client, file, kShort);
  WritePrivateProfileString("a", "b", "c", folder.File("x.ini").c_str());
  const bool failed = StopFailing();
  const bool works = WorksAgain([&] { return SendAFile(server, client, file, kLong); });
  IUploadClient::Delete(client);
  IUploadServer::Delete(server);
  if (!works) return 1;
  return failed ? 0 : kNothingFailed;
}

// --- The road of a download ---

bool FetchAFile(IDownloadServer* server, IDownloadClient* client, const std::string& folder,
                milliseconds patience) {
  struct Result {
    std::atomic<bool> fetched{false};
  } result;
  const int port = FreePort();
  bool done = server->Start(port, 2);
  client->RegisterEvent(
      [](void* user, const char*, unsigned int code) {
        if (code == 0) static_cast<Result*>(user)->fetched = true;
      },
      nullptr, &result);
  char ip[] = "127.0.0.1";
  done = client->Down(ip, port, "kept.txt", folder.c_str(), nullptr) && done;
  if (done) WaitUntil([&] { return result.fetched.load(); }, patience);
  client->RegisterEvent(nullptr, nullptr, nullptr);
  server->Stop();
  return result.fetched;
}

int DownloadRound(Call call, int nth, bool onwards) {
  TempDir folder;
  IDownloadServer* server = IDownloadServer::Create();
  server->SetPath(folder.File("root").c_str());
  WriteFile(folder.File("root/kept.txt"), PatternBytes(5000));
  IDownloadClient* client = IDownloadClient::Create();
  FailCall(call, nth, onwards);
  FetchAFile(server, client, folder.File("fetched"), kShort);
  const bool failed = StopFailing();
  const bool works =
      WorksAgain([&] { return FetchAFile(server, client, folder.File("fetched"), kLong); });
  IDownloadClient::Delete(client);
  IDownloadServer::Delete(server);
  if (!works || ReadFile(folder.File("fetched/kept.txt")) != PatternBytes(5000)) return 1;
  return failed ? 0 : kNothingFailed;
}

// --- Rounds ---

using Round = std::function<int(Call, int, bool)>;

struct Plan {
  Call call;
  int nth;
  bool onwards;
  [[nodiscard]] std::string Text() const {
    return std::string(NameOf(call)) + " fails at place " + std::to_string(nth) +
           (onwards ? " and onwards" : "");
  }
};

pid_t Launch(const Round& round, const Plan& plan) {
  fflush(stdout);
  const pid_t child = fork();
  if (child != 0) return child;
  // The library tells its failures on standard output; here they are expected.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) _exit(2);
  alarm(kLongestRoundSeconds);
  const int code = round(plan.call, plan.nth, plan.onwards);
  // Not _exit: the leak checker looks at the end of the process.
  std::exit(code);
}

/// Runs all rounds of one road, a call's later places only while its earlier ones are reached.
void RunAll(const Round& round, std::vector<Call> calls) {
  std::map<pid_t, Plan> running;
  std::vector<Plan> waiting;
  for (const Call call : calls) {
    waiting.push_back({call, 1, true});
    for (int place = 1; place <= kPlacesAtOnce; ++place)
      waiting.push_back({call, place, false});
  }
  std::reverse(waiting.begin(), waiting.end());
  while (!waiting.empty() || !running.empty()) {
    while (!waiting.empty() && running.size() < kRoundsAtOnce) {
      running.emplace(Launch(round, waiting.back()), waiting.back());
      waiting.pop_back();
    }
    int status = 0;
    const pid_t ended = wait(&status);
    const auto found = running.find(ended);
    if (found == running.end()) continue;
    const Plan plan = found->second;
    running.erase(found);
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    EXPECT_TRUE(code == 0 || code == kNothingFailed)
        << plan.Text() << ": "
        << (WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                                : "exit code " + std::to_string(code));
    const int next = plan.nth + kPlacesAtOnce;
    if (code == 0 && !plan.onwards && next <= kMostPlaces) {
      waiting.push_back({plan.call, next, false});
    }
  }
}

TEST(Faults, OfListeningAndWaitingOnTheRoadOfAMessage) {
  RunAll(MessageRound, {Call::kBind, Call::kListen, Call::kAccept4, Call::kGetpeername, Call::kPoll,
                        Call::kEpollCreate, Call::kEpollCtl});
}

TEST(Faults, OfConnectionsOnTheRoadOfAMessage) {
  RunAll(MessageRound, {Call::kSocket, Call::kSetsockopt, Call::kConnect, Call::kSend, Call::kRecv,
                        Call::kFcntl});
}

TEST(Faults, OfThreadsFilesAndMemoryOnTheRoadOfAMessage) {
  RunAll(MessageRound,
         {Call::kPthreadCreate, Call::kOpen, Call::kWritev, Call::kFdopen, Call::kNew});
}

TEST(Faults, OnTheRoadOfAnUpload) {
  RunAll(UploadRound, {Call::kSocket, Call::kSend, Call::kRecv, Call::kPthreadCreate, Call::kOpen,
                       Call::kWritev, Call::kFdopen, Call::kNew});
}

TEST(Faults, OnTheRoadOfADownload) {
  RunAll(DownloadRound,
         {Call::kSend, Call::kRecv, Call::kPthreadCreate, Call::kOpen, Call::kFdopen, Call::kNew});
}

}  // namespace
