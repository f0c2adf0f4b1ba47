// IPv4 TCP client: one connection, read on a thread of its own.
#include "utility/TcpClient.h"

#include <Tarn/Generic/DateTime.h>
#include <Tarn/Generic/Log.h>
#include <Tarn/Generic/Ping.h>
#include <Tarn/Generic/StringEx.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <new>
#include <random>

#include "utility/os/Socket.h"

namespace Tarn {
namespace Generic {

namespace {

constexpr int kThreadedConnect = -1;
constexpr int kPingTimeoutMs = 500;
constexpr int kLowestLocalPort = 1025;
constexpr int kHighestLocalPort = 65535;
constexpr int kMaxPortAttempts = 256;
constexpr int kSocketBufferBytes = 4 * 1024 * 1024;
constexpr int kReadWaitMs = 1000;
constexpr int kConnectSliceMs = 10;
constexpr int kConnectGraceMs = 200;
constexpr unsigned long kNoBufferPauseMs = 200;

bool PingAnswers(char* ip) {
  IPing* ping = IPing::Create();
  if (ping == nullptr) return true;
  const bool answered = ping->Ping(ip, static_cast<unsigned int>(kPingTimeoutMs)) != 0;
  IPing::Delete(ping);
  return answered;
}

Os::ConnectionPtr NewConnection(Os::Descriptor fd) {
  try {
    return std::make_shared<Os::Connection>(std::move(fd));
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return nullptr;
  }
}

}  // namespace

ITcpClient::~ITcpClient() = default;

CTcpClient::CTcpClient() : m_alive(std::make_shared<const char>('\0')) {
  ResetField();
  m_localPort = 0;
  m_bConnecting = 0;
  m_bHeartOpen = true;
  m_heartTime = 10000;
  m_heartInterval = 1000;
}

CTcpClient::~CTcpClient() {
  CTcpClient::Disconnect();
}

void CTcpClient::RegisterEvent(void* user, void (*onConn)(void*, ConnType),
                               void (*onMsg)(void*, const char*, int)) {
  const std::lock_guard lock(m_eventLock);
  m_pUser = user;
  m_onConn = onConn;
  m_onMsg = onMsg;
}

int CTcpClient::Connect(const char* ip, int port, int timeout) {
  if (m_bConnecting.exchange(1) != 0) return 1;
  Disconnect();
  // Disconnect clears the flag when it joins the thread of an earlier connect.
  m_bConnecting = 1;
  if (ip == nullptr) ip = "";
  snprintf(m_ip, sizeof(m_ip), "%s", ip);
  m_port = port;
  if (InitSocket() != 0) {
    const int error = errno;
    ILog::Trace("CTcpClient::Connect initsocket fail %s:%d error code:%d", ip, port, error);
    m_bConnecting = 0;
    return 0;
  }
  if (timeout != kThreadedConnect) {
    m_bConnecting = 0;
    return AsynConnect(timeout);
  }
  CStringEx name;
  name.Format("CTcpClient_Connect_ConnectThreadTask_%s:%d", ip, port);
  if (Os::StartThread(m_connectThread, ConnectThreadTask, this, name.c_str()) == 0) return 1;
  m_bConnecting = 0;
  return 0;
}

void CTcpClient::Disconnect() {
  // Ends a connect that is under way and a send that a callback on the connect thread is stuck in.
  if (const auto connection = CurrentConnection()) connection->MarkEnding();
  if (Os::JoinThread(m_connectThread)) m_bConnecting = 0;
  m_bReading = 0;
  Os::JoinThread(m_readThread);
}

int CTcpClient::SendMsg(const char* data, int len) {
  const int fd = m_sockfd;
  if (fd <= 0) return -1;
  const Core::OutgoingFrame frame(Core::FormsOf(Core::Side::kClient, m_procType).send,
                                  m_bEndian != 0, data, len);
  if (!frame.Valid()) return -1;
  const int result = WriteSfd(fd, frame.Data(), frame.Length());
  if (result < 0) {
    const int error = errno;
    ILog::Trace("CTcpClient::SendMsg send error [%d]", error);
  }
  return result > 0 ? result : -1;
}

void CTcpClient::SetMaxBufferLen(int len) {
  m_maxBufferLen = len;
}

void CTcpClient::SetProcType(protocol_type type) {
  m_procType = type;
}

void CTcpClient::DisableEndian() {
  m_bEndian = 0;
}

void CTcpClient::StartHeartOpen(bool open, int time, int interval) {
  m_bHeartOpen = open;
  // Kept: the numbers are never applied; hosts pass values in units of their own.
  m_heartTime = time;
  m_heartInterval = interval;
}

int CTcpClient::AsynConnect(int timeout) {
  const auto connection = CurrentConnection();
  if (connection == nullptr) return 0;
  SetNonblocking();
  // Kept: a connect that succeeds at once counts as a failure, too.
  if (Os::Connect(connection->Fd(), m_ip, m_port) != -EINPROGRESS) return 0;
  if (timeout < 0) return 0;
  // Kept: a refused connect passes as ready and shows up as CONN_CLOSED from the reader.
  if (Os::WaitConnected(connection->Fd(), timeout) != Os::WaitResult::kReady) return 0;
  if (m_bHeartOpen && SetHeartOpen() != 0) {
    CloseConnection(connection);
    return 0;
  }
  if (StartReading("CTcpClient_AsynConnect_ReadThreadTask") == 0) return 1;
  ILog::Trace("CTcpClient::AsynConnect open readtask fail %s:%d", m_ip, m_port.load());
  CloseConnection(connection);
  return 0;
}

int CTcpClient::InitSocket() {
  Os::Descriptor fd = Os::OpenStreamSocket();
  if (!fd.Valid()) return -1;
  const auto connection = NewConnection(std::move(fd));
  if (connection == nullptr) return -1;
  // A socket left by a failed connect is closed here, with its last reference.
  SetConnection(connection);
  BindToRandomPort(connection->Fd());
  return 0;
}

/// Binds and tests the server's port. Once the bind has worked every later one fails, so with a
/// server that does not answer the loop only counts down; callers know the quarter second that
/// takes.
void CTcpClient::BindToRandomPort(int fd) {
  const bool answered = PingAnswers(m_ip);
  const auto seed = static_cast<uint64_t>(CDateTime::GetMilisecondTime());
  std::minstd_rand0 generator(static_cast<uint32_t>(seed));
  std::uniform_int_distribution<int> ports(kLowestLocalPort, kHighestLocalPort);
  for (int attempts = 0;; ++attempts) {
    int port = ports(generator);
    if (port == m_port) port = ports(generator);
    m_localPort = static_cast<unsigned int>(port);
    if (attempts > kMaxPortAttempts) return;
    if (Os::BindPort(fd, port) == 0) {
      if (!answered) return;
      const int probed = Os::ProbePort(m_ip, m_port);
      if (probed == 0 || probed == -ECONNREFUSED) return;
    }
    CDateTime::SleepMilisecond(1);
  }
}

int CTcpClient::SetNonblocking() {
  const int fd = m_sockfd;
  Os::SetNoDelayByOneByte(fd);
  if (Os::SetNonblocking(fd) != 0) return -1;
  int error = -Os::SetReceiveBufferSize(fd, kSocketBufferBytes);
  if (error != 0) {
    ILog::Trace("CTcpClient::SetNonblocking setsockopt SO_RCVBUF error:%d", error);
  } else if ((error = -Os::SetSendBufferSize(fd, kSocketBufferBytes)) != 0) {
    ILog::Trace("CTcpClient::SetNonblocking setsockopt SO_SNDBUF error:%d", error);
  }
  if (error == 0) return 0;
  errno = error;
  return -1;
}

int CTcpClient::SetHeartOpen() {
  const int error = -Os::SetKeepAlive(m_sockfd);
  if (error == 0) return 0;
  ILog::Trace("CTcpClient::SetHeartOpen setsockopt failed %s:%d %d", m_ip, m_port.load(), error);
  return -1;
}

void CTcpClient::ProcConnectEvent(ConnType type) {
  void* user = nullptr;
  void (*onConn)(void*, ConnType) = nullptr;
  {
    const std::lock_guard lock(m_eventLock);
    user = m_pUser;
    onConn = m_onConn;
  }
  const std::weak_ptr<const char> alive = m_alive;
  if (onConn != nullptr) onConn(user, type);
  // The host may have stopped or deleted this object meanwhile.
  if (!Os::IsOrphan() && !alive.expired()) m_bConnecting = 0;
}

int CTcpClient::WriteSfd(int fd, const char* data, int len) {
  if (!m_bWritable) return -1;
  if (len <= 0) return len;
  const auto connection = CurrentConnection();
  if (connection == nullptr || connection->Fd() != fd) return len;
  const Os::SendResult result =
      connection->Send(data, static_cast<size_t>(len), [] { return true; });
  // Kept: a connection that ends meanwhile counts as written; its end is told by event.
  if (result.end != Os::SendResult::End::kFailed || connection->Ending()) return len;

  ILog::Trace("CTcpClient::WriteSfd send send_ret:%d errCode: %d", result.sendResult, result.error);
  const std::weak_ptr<const char> alive = m_alive;
  ReportEnd(connection, CONN_CLOSED);
  if (alive.expired()) {
    connection->Shutdown();
  } else {
    CloseConnection(connection);
  }
  errno = result.error;
  return -result.error;
}

void CTcpClient::ResetField() {
  m_sockfd = 0;
  m_maxBufferLen = 8192;
  m_ip[0] = '\0';
  m_port = 0;
  m_buffer = nullptr;
  m_dataLen = 0;
  m_bReading = 0;
  m_bWritable = false;
  m_connectThread = 0;
  m_readThread = 0;
  m_bEndian = 1;
  m_procType = PROTOCOL_BYTE;
  RegisterEvent(nullptr, nullptr, nullptr);
  ResetHttpEncodeFlag();
}

void CTcpClient::ResetHttpEncodeFlag() {
  m_httpFlag = false;
  m_httpValue1 = 0;
  m_httpValue2 = 0;
  m_httpField[0] = m_httpField[1] = m_httpField[2] = '\0';
  m_httpValue3 = 0;
  m_httpValue4 = 0;
}

int CTcpClient::ProcStringMsg() {
  return Drain(Core::Form::kLine);
}

int CTcpClient::ProcByteMsg() {
  return Drain(Core::Form::kLengthPrefix);
}

int CTcpClient::ProcNoneMsg() {
  return Drain(Core::Form::kRaw);
}

// Kept: delivers nothing, so the buffer fills up and the connection ends; the mode is a
// placeholder.
int CTcpClient::ProcHttpMsg() {
  return Drain(Core::Form::kInert);
}

int CTcpClient::ProcMessages() {
  switch (Core::FormsOf(Core::Side::kClient, m_procType).receive) {
    case Core::Form::kLine:
      return ProcStringMsg();
    case Core::Form::kRaw:
      return ProcNoneMsg();
    case Core::Form::kInert:
      return ProcHttpMsg();
    case Core::Form::kLengthPrefix:
      break;
  }
  return ProcByteMsg();
}

int CTcpClient::Drain(Core::Form form) {
  char* buffer = m_buffer;
  if (buffer == nullptr) return 0;
  int held = m_dataLen;
  const bool good = Core::DrainMessages(
      form, [this] { return m_bEndian != 0; }, buffer, held,
      [this] { return !Os::IsOrphan() && m_bReading != 0; },
      [this](const char* data, int length) {
        void* user = nullptr;
        void (*onMsg)(void*, const char*, int) = nullptr;
        {
          const std::lock_guard lock(m_eventLock);
          user = m_pUser;
          onMsg = m_onMsg;
        }
        if (onMsg != nullptr) onMsg(user, data, length);
      });
  if (Os::IsOrphan()) return 0;
  m_dataLen = held;
  return good ? 0 : -1;
}

void CTcpClient::SetConnection(const Os::ConnectionPtr& connection) {
  Os::ConnectionPtr previous = connection;
  {
    const std::lock_guard lock(m_connectionLock);
    m_connection.swap(previous);
  }
  m_sockfd = connection->Fd();
}

Os::ConnectionPtr CTcpClient::CurrentConnection() {
  const std::lock_guard lock(m_connectionLock);
  return m_connection;
}

void CTcpClient::CloseConnection(const Os::ConnectionPtr& connection) {
  connection->Shutdown();
  int expected = connection->Fd();
  m_sockfd.compare_exchange_strong(expected, 0);
  const std::lock_guard lock(m_connectionLock);
  if (m_connection == connection) m_connection.reset();
}

void CTcpClient::ReportEnd(const Os::ConnectionPtr& connection, ConnType type) {
  if (connection->ClaimReport()) ProcConnectEvent(type);
}

/// Starts the read thread: 0 or an error number.
int CTcpClient::StartReading(const char* threadName) {
  CStringEx name;
  name.Format("%s_%s:%d", threadName, m_ip, m_port.load());
  m_bWritable = true;
  m_bReading = 1;
  const int error = Os::StartThread(m_readThread, ReadThreadTask, this, name.c_str());
  if (error == 0) return 0;
  m_bWritable = false;
  m_bReading = 0;
  return error;
}

void* CTcpClient::ConnectThreadTask(void* client) {
  static_cast<CTcpClient*>(client)->RunConnect();
  return nullptr;
}

void CTcpClient::RunConnect() {
  const auto connection = CurrentConnection();
  if (connection == nullptr) return;
  const int error = -ConnectInterruptibly(*connection);
  ILog::Trace("CTcpClient::ConnectThreadTask %s:%d nSockStatus:%d, error code:%d", m_ip,
              m_port.load(), error == 0 ? 0 : -1, error);
  bool connected = false;
  if (error != 0) {
    ProcConnectEvent(CONN_FAILED);
  } else {
    connected = FinishThreadedConnect();
  }
  if (!connected && !Os::IsOrphan()) CloseConnection(connection);
}

/// Waits for the connect in slices, so that Disconnect can end it: 0 or a negated error number.
/// Even when Disconnect comes at once, a peer that answers soon is connected, as hosts expect.
int CTcpClient::ConnectInterruptibly(const Os::Connection& connection) {
  const int fd = connection.Fd();
  int result = Os::SetNonblocking(fd);
  if (result == 0) result = Os::Connect(fd, m_ip, m_port);
  if (result != -EINPROGRESS) return result;
  for (int slices = 0; slices < kConnectGraceMs / kConnectSliceMs || !connection.Ending();
       ++slices) {
    const Os::WaitResult wait = Os::WaitWritable(fd, kConnectSliceMs);
    if (wait == Os::WaitResult::kReady) return -Os::PendingError(fd);
    if (wait == Os::WaitResult::kFailed) return -errno;
  }
  return -ECANCELED;
}

/// What follows a successful connect. False when the socket is to be closed.
bool CTcpClient::FinishThreadedConnect() {
  bool connected = true;
  if (m_bHeartOpen && SetHeartOpen() != 0) {
    // Kept: the failure is told at once, yet the remaining steps are taken before the socket
    // closes.
    ProcConnectEvent(CONN_FAILED);
    if (Os::IsOrphan()) return false;
    connected = false;
  }
  if (SetNonblocking() != 0) {
    const int error = errno;
    ILog::Trace("CTcpClient::ConnectThreadTask setnonblocking fail %s:%d, error code:%d", m_ip,
                m_port.load(), error);
    ProcConnectEvent(CONN_FAILED);
    return false;
  }
  if (StartReading("CTcpClient_ReadThreadTask") != 0) {
    ILog::Trace("CTcpClient::ConnectThreadTask open readtask fail %s:%d", m_ip, m_port.load());
    ProcConnectEvent(CONN_FAILED);
    return false;
  }
  ProcConnectEvent(CONN_SUCCESS);
  return connected;
}

void* CTcpClient::ReadThreadTask(void* client) {
  static_cast<CTcpClient*>(client)->RunReading();
  return nullptr;
}

void CTcpClient::RunReading() {
  const auto connection = CurrentConnection();
  if (connection == nullptr) {
    // The socket was closed before this thread began.
    m_bWritable = false;
    m_bReading = 0;
    return;
  }
  const std::unique_ptr<char, Core::ReceiveBufferFreer> buffer(
      Core::NewReceiveBuffer(m_maxBufferLen));
  m_buffer = buffer.get();
  m_dataLen = 0;
  if (buffer == nullptr) {
    CDateTime::SleepMilisecond(kNoBufferPauseMs);
    ReportEnd(connection, CONN_ERROR);
    if (Os::IsOrphan()) return;
    CloseConnection(connection);
    m_bWritable = false;
    return;
  }
  ReadUntilEnd(connection);
  if (Os::IsOrphan()) return;
  m_bWritable = false;
  CloseConnection(connection);
  m_buffer = nullptr;
  m_bReading = 0;
}

void CTcpClient::ReadUntilEnd(const Os::ConnectionPtr& connection) {
  while (m_bReading != 0) {
    const Os::WaitResult wait = Os::WaitReadable(connection->Fd(), kReadWaitMs);
    if (m_bReading == 0) return;
    if (wait == Os::WaitResult::kTimeout || wait == Os::WaitResult::kInterrupted) continue;
    if (wait == Os::WaitResult::kFailed) {
      ILog::Trace("CTcpClient::ReadThreadTask select fd fail %s:%d", m_ip, m_port.load());
      return ReportEnd(connection, CONN_ERROR);
    }
    const ReadEnd end = ReadOnce(*connection);
    if (Os::IsOrphan()) return;
    if (end == ReadEnd::kClosed) return ReportEnd(connection, CONN_CLOSED);
    if (end == ReadEnd::kError) {
      const int error = errno;
      ILog::Trace("CTcpClient::ReadThreadTask recv data nSockStatus is -1,%s:%d error code:%d",
                  m_ip, m_port.load(), error);
      return ReportEnd(connection, CONN_ERROR);
    }
  }
}

CTcpClient::ReadEnd CTcpClient::ReadOnce(const Os::Connection& connection) {
  char* buffer = m_buffer;
  const int held = m_dataLen;
  const int room = Core::RoomIn(buffer, m_maxBufferLen, held);
  // A full buffer ends the connection as if the peer had closed.
  const int count = room > 0 ? Os::ReceiveNow(connection.Fd(), buffer + held, room) : 0;
  if (count == -EAGAIN) return ReadEnd::kGoOn;
  if (count <= 0) return ReadEnd::kClosed;
  m_dataLen = held + count;
  return ProcMessages() == 0 ? ReadEnd::kGoOn : ReadEnd::kError;
}

ITcpClient* ITcpClient::Create() {
  try {
    return new CTcpClient;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void ITcpClient::Delete(ITcpClient* client) {
  delete client;
}

}  // namespace Generic
}  // namespace Tarn
