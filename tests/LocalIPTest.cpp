// The host's own address, on this host and on others.
#include <Tarn/Generic/LocalIP.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Capture.h"
#include "tests/support/Support.h"

namespace {

struct Interface {
  std::string name;
  uint32_t address;  // host order
  bool up;
  sa_family_t family = AF_INET;
};

// What the platform answers while a FakeHost lives.
const std::vector<Interface>* fakeInterfaces = nullptr;
bool listingFails = false;
bool socketsFail = false;

int AnswerList(ifconf& list) {
  if (listingFails) {
    errno = ENOTTY;
    return -1;
  }
  int used = 0;
  for (const Interface& each : *fakeInterfaces) {
    ifreq record{};
    std::strncpy(record.ifr_name, each.name.c_str(), IFNAMSIZ - 1);
    sockaddr_in address{};
    address.sin_family = each.family;
    address.sin_addr.s_addr = htonl(each.address);
    std::memcpy(&record.ifr_addr, &address, sizeof(address));
    if (used + static_cast<int>(sizeof(record)) > list.ifc_len) break;
    std::memcpy(list.ifc_buf + used, &record, sizeof(record));
    used += static_cast<int>(sizeof(record));
  }
  list.ifc_len = used;
  return 0;
}

int AnswerFlags(ifreq& record) {
  for (const Interface& each : *fakeInterfaces) {
    if (each.name != record.ifr_name) continue;
    record.ifr_flags = each.up ? IFF_UP : 0;
    return 0;
  }
  errno = ENODEV;
  return -1;
}

}  // namespace

// These stand in front of the platform's own.
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
  static const auto next =
      reinterpret_cast<int (*)(int, unsigned long, void*)>(dlsym(RTLD_NEXT, "ioctl"));
  va_list args;
  va_start(args, request);
  void* const arg = va_arg(args, void*);
  va_end(args);
  if (fakeInterfaces == nullptr) return next(fd, request, arg);
  if (request == SIOCGIFCONF) return AnswerList(*static_cast<ifconf*>(arg));
  if (request == SIOCGIFFLAGS) return AnswerFlags(*static_cast<ifreq*>(arg));
  return next(fd, request, arg);
}

extern "C" int socket(int domain, int type, int protocol) noexcept {
  static const auto next = reinterpret_cast<int (*)(int, int, int)>(dlsym(RTLD_NEXT, "socket"));
  if (socketsFail) {
    errno = EMFILE;
    return -1;
  }
  return next(domain, type, protocol);
}

namespace Tarn {
namespace {

using namespace tarn_test;

class FakeHost {
 public:
  explicit FakeHost(std::vector<Interface> interfaces) : interfaces_(std::move(interfaces)) {
    fakeInterfaces = &interfaces_;
  }
  ~FakeHost() {
    fakeInterfaces = nullptr;
    listingFails = false;
    socketsFail = false;
  }
  FakeHost(const FakeHost&) = delete;
  FakeHost& operator=(const FakeHost&) = delete;

 private:
  std::vector<Interface> interfaces_;
};

constexpr uint32_t Ip(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
  return a << 24 | b << 16 | c << 8 | d;
}

// The four bytes as text, or "none".
std::string LocalIp() {
  unsigned char out[4] = {};
  if (GetLocalIP(reinterpret_cast<char*>(out)) != 1) return "none";
  std::string text;
  for (const unsigned char byte : out)
    text += (text.empty() ? "" : ".") + std::to_string(byte);
  return text;
}

TEST(LocalIPTest, IsTheAddressOfTheLastInterfaceThatIsUp) {
  const std::string expected = RunCommand(
      "python3 -c \"import fcntl,socket,struct,array\n"
      "s=socket.socket(socket.AF_INET,socket.SOCK_DGRAM)\n"
      "b=array.array('B',bytes(4000))\n"
      "n=struct.unpack('iL',fcntl.ioctl(s,0x8912,struct.pack('iL',4000,b.buffer_info()[0])))[0]\n"
      "r,p='none',None\n"
      "for i in range(0,n,40):\n"
      "  e=b.tobytes()[i:i+40]; name=e[:16].split(b'\\0')[0].split(b':')[0]\n"
      "  if struct.unpack('H',e[16:18])[0]!=2 or name==p: continue\n"
      "  p=name; f=fcntl.ioctl(s,0x8913,name.ljust(40,b'\\0'))\n"
      "  if struct.unpack('H',f[16:18])[0]&1: r=socket.inet_ntoa(e[20:24])\n"
      "print(r,end='')\"");
  ASSERT_FALSE(expected.empty());
  EXPECT_EQ(LocalIp(), expected);
}

TEST(LocalIPTest, LoopbackCountsWhenItIsTheOnlyInterfaceKept) {
  const FakeHost host({{"lo", Ip(127, 0, 0, 1), true}});
  char out[4];
  ASSERT_EQ(GetLocalIP(out), 1);
  EXPECT_EQ(out[0], 127);
  EXPECT_EQ(out[1], 0);
  EXPECT_EQ(out[2], 0);
  EXPECT_EQ(out[3], 1);
}

TEST(LocalIPTest, TheLastInterfaceWinsKept) {
  const FakeHost host({{"lo", Ip(127, 0, 0, 1), true},
                       {"eth0", Ip(10, 0, 0, 5), true},
                       {"eth1", Ip(192, 168, 200, 250), true}});
  EXPECT_EQ(LocalIp(), "192.168.200.250");
}

TEST(LocalIPTest, InterfacesThatAreDownDoNotCount) {
  const FakeHost host({{"eth0", Ip(10, 0, 0, 5), true}, {"eth1", Ip(10, 0, 0, 6), false}});
  EXPECT_EQ(LocalIp(), "10.0.0.5");
}

TEST(LocalIPTest, RecordsOfOtherFamiliesDoNotCount) {
  const FakeHost host({{"eth0", Ip(10, 0, 0, 5), true}, {"eth1", Ip(1, 1, 1, 1), true, AF_INET6}});
  EXPECT_EQ(LocalIp(), "10.0.0.5");
}

TEST(LocalIPTest, AnAliasRightBehindItsInterfaceIsSkippedKept) {
  const FakeHost host({{"eth0", Ip(10, 0, 0, 5), true}, {"eth0:1", Ip(10, 0, 0, 99), true}});
  EXPECT_EQ(LocalIp(), "10.0.0.5");
}

TEST(LocalIPTest, AnAliasElsewhereCountsWithTheStateOfItsInterfaceKept) {
  const FakeHost up({{"eth0", Ip(10, 0, 0, 5), true},
                     {"lo", Ip(127, 0, 0, 1), true},
                     {"eth0:1", Ip(10, 0, 0, 9), false}});
  EXPECT_EQ(LocalIp(), "10.0.0.9");
}

TEST(LocalIPTest, AnAliasOfAnInterfaceThatIsDownIsSkippedToo) {
  const FakeHost host({{"lo", Ip(127, 0, 0, 1), true},
                       {"eth0", Ip(10, 0, 0, 5), false},
                       {"eth0:1", Ip(10, 0, 0, 9), true}});
  EXPECT_EQ(LocalIp(), "127.0.0.1");
}

TEST(LocalIPTest, WithoutAnInterfaceThatIsUpThereIsNoneAndTheOutputIsUntouched) {
  for (const auto& interfaces :
       {std::vector<Interface>{}, std::vector<Interface>{{"eth0", Ip(10, 0, 0, 5), false}}}) {
    const FakeHost host(interfaces);
    char out[4] = {1, 2, 3, 4};
    StderrCapture errors;
    EXPECT_EQ(GetLocalIP(out), 0);
    EXPECT_EQ(errors.Text(), "");
    EXPECT_EQ(std::string(out, 4), "\x01\x02\x03\x04");
  }
}

TEST(LocalIPTest, WritesFourBytesWithoutATerminatorKept) {
  const FakeHost host({{"eth0", Ip(10, 20, 30, 40), true}});
  char out[6] = {'x', 'x', 'x', 'x', 'x', 'x'};
  EXPECT_EQ(GetLocalIP(out), 1);
  EXPECT_EQ(std::string(out, 6), "\x0a\x14\x1e\x28xx");
}

TEST(LocalIPTest, TakesMoreInterfacesThanItsListHolds) {
  std::vector<Interface> interfaces;
  for (uint32_t i = 0; i < 150; ++i)
    interfaces.push_back({"e" + std::to_string(i), i + 1, true});
  const FakeHost host(interfaces);
  EXPECT_EQ(LocalIp(), "0.0.0.100");
}

TEST(LocalIPTest, AFailingSocketIsToldOnStandardError) {
  const FakeHost host({});
  StderrCapture errors;
  socketsFail = true;
  char out[4];
  EXPECT_EQ(GetLocalIP(out), 0);
  EXPECT_EQ(errors.Text(), "socket failed: Too many open files\n");
}

TEST(LocalIPTest, AFailingListIsToldOnStandardError) {
  const FakeHost host({});
  StderrCapture errors;
  listingFails = true;
  char out[4];
  EXPECT_EQ(GetLocalIP(out), 0);
  EXPECT_EQ(errors.Text(), "ioctl error: Inappropriate ioctl for device\n");
}

TEST(LocalIPTest, NullIsRefused) {
  EXPECT_EQ(GetLocalIP(nullptr), 0);
}

TEST(LocalIPTest, ManyThreadsMayAskAtOnce) {
  const std::string expected = LocalIp();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 20; ++round)
        EXPECT_EQ(LocalIp(), expected);
    });
  }
  for (std::thread& thread : threads)
    thread.join();
}

}  // namespace
}  // namespace Tarn
