// A UDP client and a UDP server with recorded callbacks.
#ifndef TARN_TESTS_UDPFIXTURES_H
#define TARN_TESTS_UDPFIXTURES_H

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/CallbackLog.h"
#include "tests/support/RawDatagrams.h"
#include "utility/UdpClient.h"
#include "utility/UdpServer.h"

namespace tarn_test {

class UdpClient {
 public:
  UdpClient()
      : client_(static_cast<Tarn::Generic::CUdpClient*>(Tarn::Generic::IUdpClient::Create())) {
    Register();
  }
  ~UdpClient() { Tarn::Generic::IUdpClient::Delete(client_); }
  UdpClient(const UdpClient&) = delete;
  UdpClient& operator=(const UdpClient&) = delete;

  Tarn::Generic::CUdpClient* operator->() const { return client_; }
  void Register() {
    client_->RegisterEvent(this, [](void* user, const char* data, int len) {
      auto* self = static_cast<UdpClient*>(user);
      EXPECT_EQ(data[len], '\0');
      self->log_.Add(std::string(data, static_cast<size_t>(len)));
      if (self->onMessage_) self->onMessage_();
    });
  }
  /// The port of this end.
  [[nodiscard]] int Port() const {
    const std::string bound = BoundTo(client_->m_sockfd);
    return std::stoi(bound.substr(bound.find(':') + 1));
  }

  Tarn::Generic::CUdpClient* client_;
  CallbackLog<std::string> log_;
  std::function<void()> onMessage_;
};

class UdpServer {
 public:
  UdpServer()
      : server_(static_cast<Tarn::Generic::CUdpServer*>(Tarn::Generic::IUdpServer::Create())) {
    Register();
  }
  ~UdpServer() { Tarn::Generic::IUdpServer::Delete(server_); }
  UdpServer(const UdpServer&) = delete;
  UdpServer& operator=(const UdpServer&) = delete;

  Tarn::Generic::CUdpServer* operator->() const { return server_; }
  void Register() {
    server_->RegisterEvent(this, [](void* user, char* ip, int port, const char* data, int len) {
      auto* self = static_cast<UdpServer*>(user);
      EXPECT_EQ(data[len], '\0');
      self->log_.Add({ip, port, std::string(data, static_cast<size_t>(len))});
      if (self->onMessage_) self->onMessage_();
    });
  }

  Tarn::Generic::CUdpServer* server_;
  CallbackLog<Datagram> log_;
  std::function<void()> onMessage_;
};

inline std::vector<size_t> Sizes(const std::vector<Datagram>& datagrams) {
  std::vector<size_t> sizes;
  for (const Datagram& each : datagrams)
    sizes.push_back(each.bytes.size());
  return sizes;
}

inline std::string Joined(const std::vector<Datagram>& datagrams) {
  std::string all;
  for (const Datagram& each : datagrams)
    all += each.bytes;
  return all;
}

/// The sizes of the datagrams that `total` bytes make.
inline std::vector<size_t> SizesOf(size_t total, size_t limit) {
  std::vector<size_t> sizes(total / limit, limit);
  if (total % limit != 0) sizes.push_back(total % limit);
  return sizes;
}

}  // namespace tarn_test

#endif  // TARN_TESTS_UDPFIXTURES_H
