// IPv4 UDP client: datagrams to and from one peer or group, read on a thread of its own.
#include "utility/UdpClient.h"

#include <Tarn/Generic/Log.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "utility/core/DatagramRuns.h"

namespace Tarn {
namespace Generic {

namespace {

constexpr int kBufferBytes = 102400;
constexpr int kSendWaitMs = 1000;

}  // namespace

IUdpClient::~IUdpClient() = default;

CUdpClient::CUdpClient() {
  ResetField(1);
  m_bMultiCast = 0;
  m_localIp[0] = '\0';
  m_localPort = 0;
  m_packetLen = Core::kDatagramToSelf;
}

CUdpClient::~CUdpClient() {
  CUdpClient::Disconnect();
}

void CUdpClient::RegisterEvent(void* user, void (*onMsg)(void*, const char*, int)) {
  const std::lock_guard lock(m_lock);
  m_pUser = user;
  m_onMsg = onMsg;
}

int CUdpClient::Connect(const char* ip, int port) {
  // What was set for this connection stays when an earlier one ends only now.
  if (Os::JoinThread(m_readThread, m_bReading)) DropSocket();
  const UdpAddress peer(ip);
  {
    const std::lock_guard lock(m_lock);
    std::memcpy(m_ip, peer.text, sizeof(m_ip));
    m_port = port;
  }
  if (InitSocket() != 0) {
    ILog::Trace("CUdpClient::Connect InitSocket error !");
    ResetField(0);
    return 0;
  }
  m_packetLen = Core::DatagramLimit(LocalAddress(OwnAddress()).text, peer.text);
  // Kept: the thread goes by its creator's name. Hosts that list their threads know it so.
  if (Os::StartThread(m_readThread, m_bReading, ReadThreadTask, this, nullptr) == 0) return 1;
  ResetField(0);
  return 0;
}

int CUdpClient::SetLocalAddr(const char* ip, int port) {
  if (ip == nullptr) return 0;
  const UdpAddress own(ip);
  const std::lock_guard lock(m_lock);
  std::memcpy(m_localIp, own.text, sizeof(m_localIp));
  m_localPort = port;
  return 1;
}

int CUdpClient::ConnectMultiCast(char* group, int port) {
  m_bMultiCast = 1;
  return Connect(group, port);
}

void CUdpClient::Disconnect() {
  // A thread that found no memory for its buffer has reset the fields: what was set since stays.
  if (Os::JoinThread(m_readThread, m_bReading) && m_sockfd != 0) ResetField(0);
  // Kept: told even when there was nothing to close. Logs are read for it.
  ILog::Trace("CUdpClient::Disconnect closesocket");
}

int CUdpClient::SendMsg(const char* data, int len) {
  const UdpSocketPtr socket = m_socket.Get();
  if (socket == nullptr) {
    ILog::Trace("CUdpClient::SendMsg error for socket:%d", 0);
    return -1;
  }
  if (data == nullptr || len < 0) return -1;
  const auto [peer, port] = CurrentPeer();
  const Os::WaitResult wait = Os::WaitSendable(socket->Fd(), kSendWaitMs);
  if (wait != Os::WaitResult::kReady) {
    ILog::Trace("CUdpClient::SendMsg select error for nSockStatus:%d, dst[%s:%d], socket: %d",
                wait == Os::WaitResult::kTimeout ? 0 : -1, peer.text, port, socket->Fd());
    return -1;
  }
  const Os::SendResult result =
      socket->Send(Os::AddressOf(peer.text, port), data, static_cast<size_t>(len),
                   static_cast<size_t>(m_packetLen.load()));
  if (result.end != Os::SendResult::End::kFailed) return len;
  char reason[128];
  ILog::Trace("CUdpClient::SendMsg sendto send_ret:%d errCode: %d %s", result.sendResult,
              result.error, strerror_r(result.error, reason, sizeof(reason)));
  return -result.error;
}

void CUdpClient::SetMaxBufferLen(int len) {
  m_maxBufferLen = len;
}

int CUdpClient::InitSocket() {
  Os::Descriptor fd = Os::OpenDatagramSocket();
  if (!fd.Valid()) return -1;
  const int socket = fd.Get();
  m_sockfd = socket;
  if (BindLocally() != 0) return -1;
  if (SetNonblocking() != 0) {
    const int error = errno;
    ILog::Trace("CUdpClient::InitSocket SetNonblocking error:%d", error);
    return -1;
  }
  if (m_bMultiCast != 0) {
    // Kept: failures do not matter. A host without a route to the group still sends and receives.
    Os::JoinGroup(socket, CurrentPeer().address.text, HostAddress().text);
    Os::SetMulticastTtl(socket, kUdpMulticastHops);
  }
  if (SetBufferSizes() != 0) return -1;
  // Only now: a message sent meanwhile would bind the socket to wherever the platform likes.
  return m_socket.Set(std::move(fd)) == 0 ? -1 : 0;
}

int CUdpClient::SetNonblocking() {
  const int error = -Os::SetNonblockingAlone(m_sockfd);
  if (error == 0) return 0;
  errno = error;
  return -1;
}

int CUdpClient::GetFreePort() {
  const std::lock_guard lock(m_lock);
  return m_localPort;
}

void CUdpClient::ResetField(int first) {
  if (first != 0) {
    m_readThread = 0;
    m_bReading = 0;
  }
  DropSocket();
  m_maxBufferLen = kBufferBytes;
  const std::lock_guard lock(m_lock);
  m_ip[0] = '\0';
  m_port = 0;
  m_pUser = nullptr;
  m_onMsg = nullptr;
}

CUdpClient::Peer CUdpClient::CurrentPeer() {
  const std::lock_guard lock(m_lock);
  return {UdpAddress(m_ip), m_port};
}

UdpAddress CUdpClient::OwnAddress() {
  const std::lock_guard lock(m_lock);
  return UdpAddress(m_localIp);
}

void CUdpClient::DropSocket() {
  m_sockfd = 0;
  m_socket.Drop();
  m_buffer = nullptr;
  m_dataLen = 0;
}

int CUdpClient::BindLocally() {
  // A member of a group listens on the group's port.
  const int port = m_bMultiCast != 0 ? CurrentPeer().port : GetFreePort();
  Os::SetReuseAddress(m_sockfd);
  const int error =
      -Os::BindAddress(m_sockfd, Os::AddressOf(LocalAddress(OwnAddress()).text, port));
  if (error != 0) {
    ILog::Trace("CUdpClient::InitSocket bind error:%d, nLocalPort: %d", error, port);
    return -1;
  }
  ILog::Trace("CUdpClient::InitSocket bind ok, nLocalPort: %d", port);
  return 0;
}

int CUdpClient::SetBufferSizes() {
  int error = -Os::SetReceiveBufferSize(m_sockfd, kUdpSocketBufferBytes);
  if (error != 0) {
    ILog::Trace("CUdpClient::InitSocket setsockopt SO_RCVBUF error:%d", error);
    return -1;
  }
  error = -Os::SetSendBufferSize(m_sockfd, kUdpSocketBufferBytes);
  if (error != 0) {
    ILog::Trace("CUdpClient::InitSocket setsockopt SO_SNDBUF error:%d", error);
    return -1;
  }
  return 0;
}

void* CUdpClient::ReadThreadTask(void* client) {
  static_cast<CUdpClient*>(client)->RunReading();
  return nullptr;
}

void CUdpClient::RunReading() {
  const UdpSocketPtr socket = m_socket.Get();
  if (socket == nullptr) return;
  DatagramBuffer owned(Core::NewDatagramBuffer(m_maxBufferLen));
  // Kept: the flag stays set, as hosts that look at it know.
  if (owned == nullptr) return ResetField(0);
  char* const buffer = owned.get();
  m_buffer = buffer;
  socket->SetBuffer(std::move(owned));
  socket->Receive(m_bReading, m_maxBufferLen,
                  [this, buffer](int len, const sockaddr_in&) { Deliver(buffer, len); });
}

void CUdpClient::Deliver(const char* data, int len) {
  void* user = nullptr;
  void (*onMsg)(void*, const char*, int) = nullptr;
  {
    const std::lock_guard lock(m_lock);
    user = m_pUser;
    onMsg = m_onMsg;
  }
  m_dataLen = len;
  if (onMsg != nullptr) onMsg(user, data, len);
}

IUdpClient* IUdpClient::Create() {
  return new (std::nothrow) CUdpClient;
}

void IUdpClient::Delete(IUdpClient* client) {
  delete client;
}

}  // namespace Generic
}  // namespace Tarn
