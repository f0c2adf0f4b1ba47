// IPv4 UDP server: datagrams from anyone, read on a thread of its own, and to anyone.
#include "utility/UdpServer.h"

#include <Tarn/Generic/Log.h>
#include <Tarn/Generic/StringEx.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "utility/core/DatagramRuns.h"

namespace Tarn {
namespace Generic {

namespace {

constexpr int kBufferBytes = 10 * 1024 * 1024;
constexpr int kSendWaitMs = 1;

}  // namespace

IUdpServer::~IUdpServer() = default;

CUdpServer::CUdpServer() {
  ResetField(1);
  m_bMultiCast = 0;
  m_localIp[0] = '\0';
}

CUdpServer::~CUdpServer() {
  CUdpServer::Stop();
}

void CUdpServer::RegisterEvent(void* user, void (*onMsg)(void*, char*, int, const char*, int)) {
  const std::lock_guard lock(m_lock);
  m_pUser = user;
  m_onMsg = onMsg;
}

int CUdpServer::Start(int port) {
  if (m_bReading != 0) return 1;
  DatagramBuffer buffer(Core::NewDatagramBuffer(m_maxBufferLen));
  m_port = port;
  if (buffer != nullptr && InitSocket() == 0) {
    m_buffer = buffer.get();
    m_socket.Get()->SetBuffer(std::move(buffer));
    CStringEx name;
    name.Format("CUdpServer_ReadThreadTask port:%d", port);
    const int error = Os::StartThread(m_readThread, m_bReading, ReadThreadTask, this, name.c_str());
    if (error == 0) return 1;
  }
  ResetField(0);
  return 0;
}

void CUdpServer::SetLocalIP(const char* ip) {
  if (ip == nullptr) return;
  const UdpAddress own(ip);
  const std::lock_guard lock(m_lock);
  std::memcpy(m_localIp, own.text, sizeof(m_localIp));
}

int CUdpServer::ConnectMultiCast(const char* group, int port) {
  m_bMultiCast = 1;
  const UdpAddress address(group);
  {
    const std::lock_guard lock(m_lock);
    std::memcpy(m_groupIp, address.text, sizeof(m_groupIp));
  }
  return Start(port);
}

void CUdpServer::Stop() {
  if (Os::JoinThread(m_readThread, m_bReading)) ResetField(0);
}

int CUdpServer::SendMsg(const char* ip, int port, const char* data, int len) {
  const UdpSocketPtr socket = m_socket.Get();
  if (socket == nullptr || ip == nullptr || data == nullptr || len < 0) return -1;
  if (Os::WaitSendable(socket->Fd(), kSendWaitMs) != Os::WaitResult::kReady) return -1;
  // A short message is one datagram anyway: no need to find this host's address.
  const int limit = len <= Core::kDatagramToOthers
                        ? Core::kDatagramToOthers
                        : Core::DatagramLimit(LocalAddress(OwnAddress()).text, ip);
  const Os::SendResult result = socket->Send(Os::AddressOf(ip, port), data,
                                             static_cast<size_t>(len), static_cast<size_t>(limit));
  if (result.end != Os::SendResult::End::kFailed) return len;
  ILog::Trace("CUdpServer::SendMsg sendto send_ret:%d errCode: %d", result.sendResult,
              result.error);
  return -result.error;
}

void CUdpServer::SetMaxBufferLen(int len) {
  m_maxBufferLen = len;
}

int CUdpServer::IsWorking() {
  return m_bReading;
}

int CUdpServer::InitSocket() {
  Os::Descriptor fd = Os::OpenDatagramSocket();
  if (!fd.Valid()) {
    ILog::Trace("CUdpServer::InitSocket socket create failed.");
    return -1;
  }
  const int socket = fd.Get();
  m_sockfd = socket;
  if (Os::SetReuseAddress(socket) != 0) {
    ILog::Trace("setsockopt failed.");
    return -1;
  }
  const UdpAddress own = OwnAddress();
  const int error =
      -Os::BindAddress(socket, Os::AddressOf(own.text[0] != '\0' ? own.text : "0.0.0.0", m_port));
  if (error != 0) {
    ILog::Trace("CUdpServer::InitSocket bind failed. port:%d error:%d", m_port.load(), error);
    return -1;
  }
  if (SetNonblocking() != 0) return -1;
  if (m_bMultiCast != 0) {
    // Kept: failures do not matter. Without a route to the group the server still serves its port.
    Os::JoinGroup(socket, GroupAddress().text, "0.0.0.0");
    Os::SetMulticastTtl(socket, kUdpMulticastHops);
  }
  if (SetBufferSizes() != 0) return -1;
  // Only now: a message sent meanwhile would bind the socket to wherever the platform likes.
  return m_socket.Set(std::move(fd)) == 0 ? -1 : 0;
}

int CUdpServer::SetNonblocking() {
  return Os::SetNonblockingAlone(m_sockfd) == 0 ? 0 : -1;
}

void CUdpServer::ResetField(int first) {
  if (first != 0) m_readThread = 0;
  m_bReading = 0;
  m_sockfd = 0;
  m_socket.Drop();
  m_buffer = nullptr;
  m_port = 0;
  m_maxBufferLen = kBufferBytes;
  const std::lock_guard lock(m_lock);
  m_groupIp[0] = '\0';
  m_pUser = nullptr;
  m_onMsg = nullptr;
}

UdpAddress CUdpServer::OwnAddress() {
  const std::lock_guard lock(m_lock);
  return UdpAddress(m_localIp);
}

UdpAddress CUdpServer::GroupAddress() {
  const std::lock_guard lock(m_lock);
  return UdpAddress(m_groupIp);
}

int CUdpServer::SetBufferSizes() {
  int error = -Os::SetReceiveBufferSize(m_sockfd, kUdpSocketBufferBytes);
  if (error != 0) {
    ILog::Trace("CUdpServer::InitSocket setsockopt SO_RCVBUF error:%d", error);
    return -1;
  }
  error = -Os::SetSendBufferSize(m_sockfd, kUdpSocketBufferBytes);
  if (error != 0) {
    ILog::Trace("CUdpServer::InitSocket setsockopt SO_SNDBUF error:%d", error);
    return -1;
  }
  return 0;
}

void* CUdpServer::ReadThreadTask(void* server) {
  static_cast<CUdpServer*>(server)->RunReading();
  return nullptr;
}

void CUdpServer::RunReading() {
  const UdpSocketPtr socket = m_socket.Get();
  if (socket == nullptr) return;
  const char* const buffer = m_buffer;
  socket->Receive(m_bReading, m_maxBufferLen, [this, buffer](int len, const sockaddr_in& sender) {
    Deliver(sender, buffer, len);
  });
}

void CUdpServer::Deliver(const sockaddr_in& sender, const char* data, int len) {
  void* user = nullptr;
  void (*onMsg)(void*, char*, int, const char*, int) = nullptr;
  {
    const std::lock_guard lock(m_lock);
    user = m_pUser;
    onMsg = m_onMsg;
  }
  if (onMsg == nullptr) return;
  char from[30];
  snprintf(from, sizeof(from), "%s", Os::DottedText(sender.sin_addr).text);
  onMsg(user, from, ntohs(sender.sin_port), data, len);
}

IUdpServer* IUdpServer::Create() {
  return new (std::nothrow) CUdpServer;
}

void IUdpServer::Delete(IUdpServer* server) {
  delete server;
}

}  // namespace Generic
}  // namespace Tarn
