// The pinger with its fixed answer, the echo engine behind it, and host names.
#include "utility/Ping.h"

#include <Tarn/Generic/Ping.h>
#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <clocale>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/support/Capture.h"
#include "tests/support/Support.h"

namespace {

// Answers the resolver gives for names below ".test", in network order.
std::vector<in_addr> AddressesOf(const std::string& name) {
  const auto at = [](const char* text) { return in_addr{inet_addr(text)}; };
  if (name == "one.test") return {at("10.1.2.3")};
  if (name == "two.test") return {at("10.1.2.3"), at("192.168.0.4")};
  if (name == "many.test") return std::vector<in_addr>(3, at("1.2.3.4"));
  return {};
}

constexpr size_t kBytesForMany = 5000;
bool protocolsFail = false;

// Lays the answer out in the caller's buffer, as the platform does.
int Answer(const std::string& name, hostent* host, char* buffer, size_t length, hostent** found,
           int* error) {
  *found = nullptr;
  const std::vector<in_addr> addresses = AddressesOf(name);
  if (addresses.empty()) {
    *error = HOST_NOT_FOUND;
    errno = ESRCH;
    return 0;
  }
  if (name == "many.test" && length < kBytesForMany) {
    *error = NETDB_INTERNAL;
    errno = ERANGE;
    return ERANGE;
  }
  auto** const list = reinterpret_cast<char**>(buffer);
  char* data = buffer + sizeof(char*) * (addresses.size() + 1);
  for (size_t i = 0; i < addresses.size(); ++i, data += sizeof(in_addr)) {
    std::memcpy(data, &addresses[i], sizeof(in_addr));
    list[i] = data;
  }
  list[addresses.size()] = nullptr;
  host->h_addr_list = list;
  host->h_addrtype = AF_INET;
  host->h_length = sizeof(in_addr);
  *found = host;
  return 0;
}

}  // namespace

// These stand in front of the platform's own.
extern "C" int gethostbyname_r(const char* name, hostent* host, char* buffer, size_t length,
                               hostent** found, int* error) {
  static const auto next =
      reinterpret_cast<decltype(&gethostbyname_r)>(dlsym(RTLD_NEXT, "gethostbyname_r"));
  const std::string text = name;
  if (text.size() > 5 && text.substr(text.size() - 5) == ".test") {
    return Answer(text, host, buffer, length, found, error);
  }
  return next(name, host, buffer, length, found, error);
}

extern "C" int getprotobyname_r(const char* name, protoent* protocol, char* buffer, size_t length,
                                protoent** found) {
  static const auto next =
      reinterpret_cast<decltype(&getprotobyname_r)>(dlsym(RTLD_NEXT, "getprotobyname_r"));
  if (!protocolsFail) return next(name, protocol, buffer, length, found);
  *found = nullptr;
  return ENOENT;
}

namespace Tarn::Generic {
namespace {

using namespace tarn_test;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

static_assert(std::has_virtual_destructor_v<CPing_linux>);

struct Deleter {
  void operator()(IPing* ping) const { IPing::Delete(ping); }
};
using PingPtr = std::unique_ptr<IPing, Deleter>;

TEST(PingTest, EveryAddressAnswersAtOnceKept) {
  const PingPtr ping(IPing::Create());
  for (const char* const address : {"10.255.255.1", "127.0.0.1", "no such host", ""}) {
    std::string text = address;
    const Stopwatch watch;
    EXPECT_EQ(ping->Ping(text.data(), 500), 1);
    EXPECT_LT(watch.ElapsedMs(), AtMost(400));
  }
  EXPECT_EQ(ping->Ping(nullptr, 500), 1);
  EXPECT_EQ(ping->Ping(nullptr, UINT_MAX), 1);
}

TEST(PingTest, PrintsNothing) {
  const PingPtr ping(IPing::Create());
  char address[] = "10.255.255.1";
  StdoutCapture output;
  ping->Ping(address, 500);
  EXPECT_EQ(output.Text(), "");
}

TEST(PingTest, TheTwoNumberFormIsNotSupportedKept) {
  const PingPtr ping(IPing::Create());
  EXPECT_EQ(ping->Ping(1U, 2U), 0);
}

TEST(PingTest, DeleteIgnoresNull) {
  IPing::Delete(nullptr);
}

TEST(PingTest, TheVirtualTableHasItsFixedOrder) {
  const PingPtr ping(IPing::Create());
  void* const object = ping.get();
  void** const table = *static_cast<void***>(object);
  char address[] = "1.2.3.4";
  const auto numbers = reinterpret_cast<int (*)(void*, unsigned, unsigned)>(table[2]);
  const auto text = reinterpret_cast<int (*)(void*, char*, unsigned)>(table[3]);
  EXPECT_EQ(numbers(object, 1, 2), 0);
  EXPECT_EQ(text(object, address, 2), 1);
}

TEST(HostNameTest, OneAddressIsItsDottedText) {
  EXPECT_STREQ(IPing::getHostIpByName("one.test").c_str(), "10.1.2.3");
  EXPECT_STREQ(IPing::getHostIpByName("127.0.0.1").c_str(), "127.0.0.1");
}

TEST(HostNameTest, SeveralAddressesAreJoinedByAPointKept) {
  EXPECT_STREQ(IPing::getHostIpByName("two.test").c_str(), "10.1.2.3.192.168.0.4");
}

TEST(HostNameTest, AnswersBeyondTheFirstBufferAreFetchedAgain) {
  EXPECT_STREQ(IPing::getHostIpByName("many.test").c_str(), "1.2.3.4.1.2.3.4.1.2.3.4");
}

TEST(HostNameTest, AnUnknownNameGivesAnEmptyText) {
  EXPECT_STREQ(IPing::getHostIpByName("none.test").c_str(), "");
  EXPECT_STREQ(IPing::getHostIpByName(std::string(300, 'a').c_str()).c_str(), "");
  EXPECT_STREQ(IPing::getHostIpByName("").c_str(), "");
  EXPECT_STREQ(IPing::getHostIpByName(nullptr).c_str(), "");
}

TEST(HostNameTest, AgreesWithAnotherProgramOnLocalhost) {
  const std::string expected = RunCommand(
      "python3 -c \"import socket; print('.'.join(socket.gethostbyname_ex('localhost')[2]), "
      "end='')\"");
  EXPECT_EQ(IPing::getHostIpByName("localhost").c_str(), expected);
}

TEST(HostNameTest, ManyThreadsMayResolveAtOnce) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      for (int round = 0; round < 20; ++round) {
        EXPECT_STREQ(IPing::getHostIpByName(i % 2 == 0 ? "one.test" : "127.0.0.9").c_str(),
                     i % 2 == 0 ? "10.1.2.3" : "127.0.0.9");
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
}

// An engine whose "raw socket" is a datagram socket of the loopback interface: what is sent there
// arrives as a packet, its sender's address included.
class Engine : public CPing_linux {
 public:
  explicit Engine(int timeout = 2000) : CPing_linux("127.0.0.1", timeout) {
    m_sockfd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    m_dest.sin_family = AF_INET;
    m_dest.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(m_sockfd, reinterpret_cast<sockaddr*>(&m_dest), sizeof(m_dest)), 0);
    socklen_t length = sizeof(m_dest);
    getsockname(m_sockfd, reinterpret_cast<sockaddr*>(&m_dest), &length);
  }
  void Deliver(const std::string& packet) {
    EXPECT_EQ(sendto(m_sockfd, packet.data(), packet.size(), 0,
                     reinterpret_cast<sockaddr*>(&m_dest), sizeof(m_dest)),
              static_cast<ssize_t>(packet.size()));
  }
  // A reply to the request `sequence`, sent the given time before now.
  std::string Reply(int sequence, long agoMs = 0) {
    pack(sequence);
    std::string icmp(m_sendPacket, 64);
    icmp[0] = '\0';
    timeval sent{};
    gettimeofday(&sent, nullptr);
    sent.tv_sec -= agoMs / 1000;
    std::memcpy(icmp.data() + 8, &sent, sizeof(sent));
    return WithHeader(icmp);
  }
  static std::string WithHeader(const std::string& icmp) {
    std::string header(20, '\0');
    header[0] = 0x45;
    header[8] = 61;
    return header + icmp;
  }
  // Unpacks a packet as if it had just come from `source`.
  int Unpack(std::string packet, const char* source = "127.0.0.1") {
    m_from.sin_family = AF_INET;
    m_from.sin_addr.s_addr = inet_addr(source);
    gettimeofday(&m_recvTime, nullptr);
    return unpack(packet.data(), static_cast<int>(packet.size()));
  }
};

TEST(PingEngineTest, BeginsWithItsStartValues) {
  const CPing_linux engine("some.host", 700);
  EXPECT_EQ(engine.m_host, "some.host");
  EXPECT_EQ(engine.m_ip, "some.host");
  EXPECT_EQ(engine.m_lost, 0);
  EXPECT_EQ(engine.m_avg, -1.0);
  EXPECT_EQ(engine.m_min, -1.0);
  EXPECT_EQ(engine.m_max, -1.0);
  EXPECT_EQ(engine.m_sum, 0.0);
  EXPECT_EQ(engine.m_sent, 0);
  EXPECT_EQ(engine.m_received, 0);
  EXPECT_EQ(engine.m_sockfd, 0);
  EXPECT_EQ(engine.m_id, getpid());
  EXPECT_EQ(engine.m_timeout, 700);
  EXPECT_EQ(engine.m_count, 4);
}

TEST(PingEngineTest, CapsItsTimeoutKept) {
  EXPECT_EQ(CPing_linux("h", 60000).m_timeout, 20000);
  EXPECT_EQ(CPing_linux("h", 20001).m_timeout, 20000);
  EXPECT_EQ(CPing_linux("h", 20000).m_timeout, 20000);
  EXPECT_EQ(CPing_linux("h", -5).m_timeout, -5);
  EXPECT_EQ(CPing_linux(nullptr, 1).m_host, "");
}

TEST(PingEngineTest, PingAnswersWithoutSendingKept) {
  CPing_linux engine("127.0.0.1", 500);
  EXPECT_EQ(engine.ping(3), 1);
  EXPECT_EQ(engine.m_sent, 0);
}

TEST(PingEngineTest, ChecksumsLikeTheWire) {
  unsigned short words[] = {0x0100, 0x03f2, 0xf5f4, 0xf7f6};  // in the memory order of this machine
  EXPECT_EQ(CPing_linux::cal_chksum(words, 8), 0x0d22);
  unsigned short odd[] = {0x00ab};
  EXPECT_EQ(CPing_linux::cal_chksum(odd, 1), 0xFF54);
  EXPECT_EQ(CPing_linux::cal_chksum(words, 0), 0xFFFF);
  EXPECT_EQ(CPing_linux::cal_chksum(words, -3), 0xFFFF);
  EXPECT_EQ(CPing_linux::cal_chksum(nullptr, 8), 0xFFFF);
}

TEST(PingEngineTest, PacksARequest) {
  CPing_linux engine("127.0.0.1", 500);
  engine.m_id = 0x7ABCD;
  timeval before{};
  gettimeofday(&before, nullptr);
  EXPECT_EQ(engine.pack(3), 64);
  const std::string bytes(engine.m_sendPacket, 64);
  EXPECT_EQ(bytes.substr(0, 2), std::string("\x08\0", 2));
  EXPECT_EQ(bytes.substr(4, 4), std::string("\xAB\xCD\0\x03", 4));
  timeval sent{};
  std::memcpy(&sent, bytes.data() + 8, sizeof(sent));
  EXPECT_GE(sent.tv_sec, before.tv_sec);
  EXPECT_LE(sent.tv_sec, before.tv_sec + 5);
  EXPECT_EQ(CPing_linux::cal_chksum(reinterpret_cast<unsigned short*>(engine.m_sendPacket), 64), 0);
}

TEST(PingEngineTest, SubtractsTimes) {
  CPing_linux engine("h", 1);
  timeval later{12, 100'000};
  timeval earlier{10, 900'000};
  engine.tv_sub(&later, &earlier);
  EXPECT_EQ(later.tv_sec, 1);
  EXPECT_EQ(later.tv_usec, 200'000);
  EXPECT_EQ(earlier.tv_sec, 10);
}

TEST(PingEngineTest, CountsItsOwnReply) {
  Engine engine;
  StdoutCapture output;
  EXPECT_EQ(engine.Unpack(engine.Reply(2, 3000)), 0);
  EXPECT_THAT(output.Text(),
              testing::MatchesRegex(
                  "64\tbyte from 127.0.0.1\t: icmp_seq=2\tttl=61\trtt=3[0-9][0-9][0-9].000\tms\n"));
  EXPECT_EQ(engine.m_sum, engine.m_min);
  EXPECT_EQ(engine.m_sum, engine.m_max);
}

TEST(PingEngineTest, KeepsTheShortestAndTheLongestRoundTrip) {
  Engine engine;
  StdoutCapture output;
  engine.Unpack(engine.Reply(1, 2000));
  engine.Unpack(engine.Reply(2, 9000));
  engine.Unpack(engine.Reply(3, 1000));
  EXPECT_GE(engine.m_min, 1000.0);
  EXPECT_LT(engine.m_min, 2000.0);
  EXPECT_GE(engine.m_max, 9000.0);
  EXPECT_GE(engine.m_sum, 12000.0);
}

TEST(PingEngineTest, PrintsItsTimesIndependentlyOfTheLocale) {
  Engine engine;
  for (const char* const name : {"de_DE.UTF-8", "fr_FR.UTF-8", "C"}) {
    if (std::setlocale(LC_NUMERIC, name) == nullptr) continue;
    StdoutCapture output;
    engine.Unpack(engine.Reply(1));
    EXPECT_THAT(output.Text(), HasSubstr(".000\tms\n"));
    std::setlocale(LC_NUMERIC, "C");
  }
}

void ExpectThrownAway(Engine& engine, const std::string& packet, const char* source, int length) {
  StdoutCapture output;
  EXPECT_EQ(engine.Unpack(packet, source), -1);
  EXPECT_EQ(output.Text(), "throw away the old package " + std::to_string(length) + "\tbyte from " +
                               source + "\t: icmp_seq=5\tttl=61\trtt=0.000\tms\n");
  EXPECT_EQ(engine.m_sum, 0.0);
}

TEST(PingEngineTest, ThrowsAwayWhatIsNotItsReplyKept) {
  Engine engine;
  const std::string reply = engine.Reply(5);
  ExpectThrownAway(engine, reply, "127.0.0.2", 64);
  std::string request = reply;
  request[20] = 8;
  ExpectThrownAway(engine, request, "127.0.0.1", 64);
  std::string foreign = reply;
  foreign[24] = static_cast<char>(foreign[24] ^ 1);
  ExpectThrownAway(engine, foreign, "127.0.0.1", 64);
}

TEST(PingEngineTest, ThrowsAwayAReplyThatIsTooShortForASendTime) {
  Engine engine;
  for (const size_t length : {8U, 23U}) {
    ExpectThrownAway(engine, engine.Reply(5).substr(0, 20 + length), "127.0.0.1",
                     static_cast<int>(length));
  }
  StdoutCapture output;
  EXPECT_EQ(engine.Unpack(engine.Reply(5).substr(0, 20 + 24)), 0);
}

TEST(PingEngineTest, ReportsPacketsThatAreTooShortKept) {
  Engine engine;
  const std::string whole = engine.Reply(5);
  for (size_t length = 0; length < 28; ++length) {
    const std::vector<char> exact(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
    StdoutCapture output;
    EXPECT_EQ(engine.unpack(const_cast<char*>(exact.data()), static_cast<int>(length)), -1);
    EXPECT_EQ(output.Text(), "ICMP packets's length is less than 8");
  }
  StdoutCapture output;
  EXPECT_EQ(engine.unpack(nullptr, 64), -1);
  EXPECT_EQ(engine.unpack(nullptr, -1), -1);
}

TEST(PingEngineTest, SendsAllItsRequestsKept) {
  Engine engine;
  StdoutCapture output;
  engine.send_packet();
  EXPECT_EQ(engine.m_sent, 4);
  for (char sequence = 1; sequence <= 4; ++sequence) {
    char packet[100];
    ASSERT_EQ(recv(engine.m_sockfd, packet, sizeof(packet), MSG_DONTWAIT), 64);
    EXPECT_EQ(packet[0], 8);
    EXPECT_EQ(packet[7], sequence);
  }
  EXPECT_EQ(output.Text(), "");
  engine.send_packet();
  EXPECT_EQ(engine.m_sent, 4);
}

TEST(PingEngineTest, ReportsEveryRequestThatCannotBeSent) {
  CPing_linux engine("127.0.0.1", 10);
  StdoutCapture output;
  engine.send_packet();
  std::string expected;
  for (int i = 0; i < 4; ++i)
    expected += "send_packet: send error :9\n";
  EXPECT_EQ(output.Text(), expected);
  EXPECT_EQ(engine.m_sent, 4);
}

TEST(PingEngineTest, ReceivesUntilEveryRequestHasItsReply) {
  Engine engine;
  engine.m_sent = 2;
  engine.Deliver(engine.Reply(1));
  engine.Deliver(Engine::WithHeader(std::string(8, '\x03')));
  engine.Deliver("short");
  engine.Deliver(engine.Reply(2));
  StdoutCapture output;
  engine.recv_packet();
  EXPECT_EQ(engine.m_received, 2);
  const std::string text = output.Text();
  EXPECT_THAT(text, StartsWith("64\tbyte from 127.0.0.1\t: icmp_seq=1\tttl=61\trtt="));
  EXPECT_THAT(text, HasSubstr("throw away the old package 8\tbyte from 127.0.0.1\t: icmp_seq=771"));
  EXPECT_THAT(text, HasSubstr("ICMP packets's length is less than 864\tbyte from"));
  EXPECT_EQ(engine.m_from.sin_port, engine.m_dest.sin_port);
}

TEST(PingEngineTest, StopsReceivingWhenNoReplyComesInTime) {
  Engine engine(60);
  engine.m_sent = 1;
  StdoutCapture output;
  const Stopwatch watch;
  errno = 0;
  engine.recv_packet();
  EXPECT_GE(watch.ElapsedMs(), 59);
  EXPECT_LT(watch.ElapsedMs(), AtMost(2000));
  EXPECT_THAT(output.Text(), testing::MatchesRegex("recv_packet: select time out :[0-9]+\n"));
  EXPECT_EQ(engine.m_received, 0);
}

TEST(PingEngineTest, ANegativeTimeoutIsAnErrorNotAnEndlessWaitKept) {
  Engine engine(-1);
  engine.m_sent = 1;
  StdoutCapture output;
  engine.recv_packet();
  EXPECT_EQ(output.Text(), "recv_packet: select error :22\nrecv_packet: select error :22");
}

TEST(PingEngineTest, NeverWaitsForTheStandardInput) {
  CPing_linux engine("127.0.0.1", 100);
  engine.m_sent = 1;
  StdoutCapture output;
  engine.recv_packet();
  EXPECT_EQ(output.Text(), "recv_packet: select error :9\nrecv_packet: select error :9");
}

TEST(PingEngineTest, AnEmptyPacketEndsReceiving) {
  Engine engine;
  engine.m_sent = 1;
  engine.Deliver("");
  StdoutCapture output;
  engine.recv_packet();
  EXPECT_EQ(output.Text(), "recv_packet: recv error :0\n");
}

TEST(PingEngineTest, GoesOnWaitingAfterASignalKept) {
  Engine engine(10000);
  engine.m_sent = 1;
  struct sigaction action {};
  action.sa_handler = [](int) {};
  struct sigaction old {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, &old), 0);
  StdoutCapture output;
  std::atomic<bool> done{false};
  std::thread receiver([&] {
    engine.recv_packet();
    done = true;
  });
  const std::string interrupted = "recv_packet: select error :4\nrecv_packet: select error :4\n";
  EXPECT_TRUE(WaitUntil([&] {
    pthread_kill(receiver.native_handle(), SIGUSR1);
    std::fflush(stdout);
    return output.Text().find(interrupted) == 0;
  }));
  engine.Deliver(engine.Reply(1));
  receiver.join();
  EXPECT_TRUE(done);
  EXPECT_EQ(engine.m_received, 1);
  sigaction(SIGUSR1, &old, nullptr);
}

std::string Statistics(CPing_linux& engine) {
  StdoutCapture output;
  engine.statistics(0);
  return output.Text();
}

TEST(PingEngineTest, TheLossIsDividedFirstKept) {
  CPing_linux engine("h", 1);
  engine.m_sent = 4;
  engine.m_received = 3;
  engine.m_sum = 30.0;
  EXPECT_EQ(Statistics(engine),
            "------statistics------\n4 packets transmitted, 3 received , %0 lost\n");
  EXPECT_EQ(engine.m_lost, 1);
  EXPECT_EQ(engine.m_avg, 10.0);
}

TEST(PingEngineTest, ALossOfEverythingIsAHundredPercentKept) {
  CPing_linux engine("h", 1);
  engine.m_sent = 4;
  EXPECT_EQ(Statistics(engine),
            "------statistics------\n4 packets transmitted, 0 received , %100 lost\n");
  EXPECT_EQ(engine.m_lost, 4);
  EXPECT_EQ(engine.m_avg, 0.0);
}

TEST(PingEngineTest, StatisticsOfNothingAreZeros) {
  CPing_linux engine("h", 1);
  EXPECT_EQ(Statistics(engine),
            "------statistics------\n0 packets transmitted, 0 received , %0 lost\n");
  EXPECT_EQ(engine.m_avg, 0.0);
}

TEST(PingEngineTest, CloseSocketClosesOnce) {
  Engine engine;
  const int fd = engine.m_sockfd;
  EXPECT_EQ(engine.CloseSocket(), 1);
  EXPECT_EQ(engine.m_sockfd, 0);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(engine.CloseSocket(), 1);
}

TEST(PingEngineTest, ReportsAMissingProtocol) {
  CPing_linux engine("127.0.0.1", 1);
  StdoutCapture output;
  protocolsFail = true;
  EXPECT_EQ(engine.CreateSocket(), 0);
  protocolsFail = false;
  EXPECT_EQ(output.Text(), "CreateSocket: getprotobyname failed:2\n");
}

bool RawSocketsAllowed() {
  const int fd = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
  if (fd >= 0) close(fd);
  return fd >= 0;
}

TEST(PingEngineTest, ReportsASocketThatIsNotAllowed) {
  const int status = RunInChild([] {
    if (getuid() == 0 && setuid(65534) != 0) return 2;
    CPing_linux engine("127.0.0.1", 1);
    StdoutCapture output;
    if (engine.CreateSocket() != 0) return 3;
    return output.Text() == "CreateSocket: create socket failed:1\n" ? 0 : 4;
  });
  EXPECT_EQ(status, 0);
}

TEST(PingEngineTest, ASocketCostsTheWholeProgramItsRootRightsKept) {
  if (!RawSocketsAllowed() || getuid() != 0) GTEST_SKIP() << "raw sockets need root";
  const int status = RunInChild([] {
    // As a program that belongs to root and that somebody else has started.
    if (setresuid(65534, 0, 0) != 0) return 2;
    CPing_linux engine("127.0.0.1", 1);
    if (engine.CreateSocket() != 1) return 3;
    if (geteuid() != 65534) return 4;
    return seteuid(0) == 0 ? 5 : 0;
  });
  EXPECT_EQ(status, 0);
}

TEST(PingEngineTest, FindsTheDestinationByName) {
  if (!RawSocketsAllowed()) GTEST_SKIP() << "raw sockets need root";
  CPing_linux engine("two.test", 1);
  EXPECT_EQ(engine.CreateSocket(), 1);
  EXPECT_EQ(engine.m_ip, "10.1.2.3");
  EXPECT_EQ(engine.m_host, "two.test");
  EXPECT_GT(engine.m_sockfd, 2);
  const int first = engine.m_sockfd;
  EXPECT_EQ(engine.CreateSocket(), 1);
  EXPECT_EQ(engine.m_sockfd, first);  // the old socket was closed first
}

TEST(PingEngineTest, ReportsAnUnknownDestination) {
  if (!RawSocketsAllowed()) GTEST_SKIP() << "raw sockets need root";
  CPing_linux engine("none.test", 1);
  StdoutCapture output;
  EXPECT_EQ(engine.CreateSocket(), 0);
  EXPECT_EQ(output.Text(), "CreateSocket: gethostbyname error none.test failed:3\n");
}

TEST(PingEngineTest, PingsTheLoopbackInterface) {
  if (!RawSocketsAllowed()) GTEST_SKIP() << "raw sockets need root";
  CPing_linux engine("127.0.0.1", 2000);
  ASSERT_EQ(engine.CreateSocket(), 1);
  StdoutCapture output;
  engine.send_packet();
  engine.recv_packet();
  engine.statistics(0);
  EXPECT_EQ(engine.m_sent, 4);
  EXPECT_EQ(engine.m_received, 4);
  EXPECT_EQ(engine.m_lost, 0);
  EXPECT_GE(engine.m_min, 0.0);
  EXPECT_THAT(output.Text(), HasSubstr("64\tbyte from 127.0.0.1\t: icmp_seq=4\tttl="));
  EXPECT_THAT(output.Text(), EndsWith("4 packets transmitted, 4 received , %0 lost\n"));
}

}  // namespace
}  // namespace Tarn::Generic
