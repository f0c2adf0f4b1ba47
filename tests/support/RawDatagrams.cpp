#include "tests/support/RawDatagrams.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

namespace tarn_test {

namespace {

sockaddr_in Address(const std::string& ip, int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<unsigned short>(port));
  inet_pton(AF_INET, ip.c_str(), &address.sin_addr);
  return address;
}

sockaddr_in LocalAddress(int fd) {
  sockaddr_in address{};
  socklen_t size = sizeof(address);
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  return address;
}

std::string Dotted(const sockaddr_in& address) {
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &address.sin_addr, text, sizeof(text));
  return text;
}

}  // namespace

RawDatagrams::RawDatagrams(const std::string& ip, int port)
    : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const int on = 1;
  const int large = 4 << 20;
  setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &large, sizeof(large));
  const sockaddr_in address = Address(ip, port);
  if (bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    close(fd_);
    fd_ = -1;
    return;
  }
  port_ = ntohs(LocalAddress(fd_).sin_port);
}

RawDatagrams::~RawDatagrams() {
  if (fd_ >= 0) close(fd_);
}

bool RawDatagrams::Send(const std::string& ip, int port, const std::string& bytes) {
  const sockaddr_in address = Address(ip, port);
  return sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                sizeof(address)) == static_cast<ssize_t>(bytes.size());
}

std::optional<Datagram> RawDatagrams::Receive(milliseconds limit) {
  pollfd item{fd_, POLLIN, 0};
  if (poll(&item, 1, static_cast<int>(Bound(limit).count())) <= 0) return std::nullopt;
  std::array<char, 65536> block;
  sockaddr_in from{};
  socklen_t size = sizeof(from);
  const ssize_t count = recvfrom(fd_, block.data(), block.size(), MSG_DONTWAIT,
                                 reinterpret_cast<sockaddr*>(&from), &size);
  if (count < 0) return std::nullopt;
  return Datagram{Dotted(from), ntohs(from.sin_port),
                  std::string(block.data(), static_cast<size_t>(count))};
}

std::vector<Datagram> RawDatagrams::Receive(size_t count, milliseconds limit) {
  std::vector<Datagram> all;
  while (all.size() < count) {
    std::optional<Datagram> next = Receive(limit);
    if (!next) break;
    all.push_back(std::move(*next));
  }
  return all;
}

bool RawDatagrams::Join(const std::string& group, const std::string& interfaceIp) {
  const ip_mreq membership{Address(group, 0).sin_addr, Address(interfaceIp, 0).sin_addr};
  return setsockopt(fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof(membership)) == 0;
}

int FreeUdpPort() {
  return FreePortFor(SOCK_DGRAM);
}

std::string BoundTo(int fd) {
  const sockaddr_in address = LocalAddress(fd);
  return Dotted(address) + ":" + std::to_string(ntohs(address.sin_port));
}

int SocketOption(int fd, int level, int name) {
  int value = 0;
  socklen_t size = sizeof(value);
  return getsockopt(fd, level, name, &value, &size) == 0 ? value : -1;
}

OwnNetwork::OwnNetwork() : thread_([this] { Work(); }) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return ready_; });
}

OwnNetwork::~OwnNetwork() {
  {
    const std::lock_guard lock(mutex_);
    ends_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void OwnNetwork::Run(const std::function<void()>& body) {
  std::unique_lock lock(mutex_);
  body_ = &body;
  changed_.notify_all();
  changed_.wait(lock, [this] { return body_ == nullptr; });
}

bool OwnNetwork::Ip(const std::string& arguments) {
  int status = -1;
  Run([&] { RunCommand("ip " + arguments + " 2>&1", &status); });
  return status == 0;
}

void OwnNetwork::Work() {
  int status = -1;
  if (unshare(CLONE_NEWNET) == 0) RunCommand("ip link set lo up 2>&1", &status);
  std::unique_lock lock(mutex_);
  valid_ = status == 0;
  threadId_ = gettid();
  ready_ = true;
  changed_.notify_all();
  while (true) {
    changed_.wait(lock, [this] { return ends_ || body_ != nullptr; });
    if (ends_) return;
    lock.unlock();
    (*body_)();
    lock.lock();
    body_ = nullptr;
    changed_.notify_all();
  }
}

bool Connect(OwnNetwork& first, OwnNetwork& second, int mtu) {
  const std::string bytes = " mtu " + std::to_string(mtu);
  return first.Ip("link add cable0" + bytes + " type veth peer name cable1" + bytes + " netns " +
                  std::to_string(second.ThreadId())) &&
         first.Ip("address add 10.77.0.1/24 dev cable0") && first.Ip("link set cable0 up") &&
         second.Ip("address add 10.77.0.2/24 dev cable1") && second.Ip("link set cable1 up");
}

}  // namespace tarn_test
