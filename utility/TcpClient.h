// IPv4 TCP client. Internal: hosts use <Tarn/Generic/TcpClient.h>.
#ifndef TARN_UTILITY_TCPCLIENT_H
#define TARN_UTILITY_TCPCLIENT_H

#include <Tarn/Generic/TcpClient.h>

#include <atomic>
#include <memory>
#include <mutex>

#include "utility/core/Framing.h"
#include "utility/os/Connection.h"
#include "utility/os/ThreadOwner.h"

namespace Tarn {
namespace Generic {

/// The client behind ITcpClient.
///
/// The connect and read threads work on the connection record that was current when they started;
/// m_sockfd, m_buffer and m_dataLen mirror it. Behind the usual fields stand the record itself, the
/// locks that pair callbacks with their user pointer, and a token that tells a sender whose
/// callback has deleted the client that it is gone.
class TARN_API CTcpClient : public ITcpClient {
 public:
  CTcpClient();
  ~CTcpClient() override;

  void RegisterEvent(void* user, void (*onConn)(void*, ConnType),
                     void (*onMsg)(void*, const char*, int)) override;
  int Connect(const char* ip, int port, int timeout) override;
  void Disconnect() override;
  int SendMsg(const char* data, int len) override;
  void SetMaxBufferLen(int len) override;
  void SetProcType(protocol_type type) override;
  void DisableEndian() override;
  void StartHeartOpen(bool open, int time, int interval) override;

  /// Thread bodies; the argument is the client.
  static void* ConnectThreadTask(void* client);
  static void* ReadThreadTask(void* client);

  /// Connects the socket of InitSocket within `timeout` milliseconds: 1 or 0.
  int AsynConnect(int timeout);
  /// Makes a socket bound to a random local port and tests the server's port: 0, or -1 without
  /// socket.
  int InitSocket();
  /// Non-blocking mode and 4 MiB buffers: 0 or -1.
  int SetNonblocking();
  /// Keep-alive: 0 or -1.
  int SetHeartOpen();
  /// Raises an event; a connect is no longer under way afterwards.
  void ProcConnectEvent(ConnType type);
  /// Writes all bytes to the current connection: `len`, also when the connection ends meanwhile;
  /// otherwise -1 or a negated error number.
  int WriteSfd(int fd, const char* data, int len);
  void ResetField();
  void ResetHttpEncodeFlag();

  /// Cut what is held in m_buffer into messages: 0, or -1 when the data are malformed.
  int ProcStringMsg();
  int ProcByteMsg();
  int ProcNoneMsg();
  int ProcHttpMsg();

  std::atomic<int> m_sockfd;                 ///< 0: none
  std::atomic<int> m_maxBufferLen;           ///< bytes
  char m_ip[17];                             ///< the server's dotted address
  std::atomic<int> m_port;                   ///< the server's port
  std::atomic<unsigned int> m_localPort;     ///< the last port drawn by InitSocket
  std::atomic<char*> m_buffer;               ///< the read thread's; null while there is none
  std::atomic<int> m_dataLen;                ///< bytes held in m_buffer
  std::atomic<int> m_bReading;               ///< the read thread goes on while set
  std::atomic<bool> m_bWritable;             ///< sending is allowed
  Os::ThreadHandle m_connectThread;          ///< 0: none
  Os::ThreadHandle m_readThread;             ///< 0: none
  std::atomic<int> m_bEndian;                ///< length prefix big-endian
  std::atomic<protocol_type> m_procType;     ///< framing
  void* m_pUser;                             ///< guarded by m_eventLock, like both callbacks
  void (*m_onConn)(void*, ConnType);         ///< may be null
  void (*m_onMsg)(void*, const char*, int);  ///< may be null
  std::atomic<int> m_bConnecting;            ///< a connect is under way
  std::atomic<bool> m_bHeartOpen;            ///< SO_KEEPALIVE for the next connect
  std::atomic<int> m_heartTime;              ///< stored only
  std::atomic<int> m_heartInterval;          ///< stored only
  bool m_httpFlag;                           ///< the HTTP state: cleared, never read
  int m_httpValue1;
  int m_httpValue2;
  char m_httpField[3];
  int m_httpValue3;
  int m_httpValue4;

 private:
  enum class ReadEnd { kGoOn, kClosed, kError };

  void SetConnection(const Os::ConnectionPtr& connection);
  Os::ConnectionPtr CurrentConnection();
  void CloseConnection(const Os::ConnectionPtr& connection);
  void ReportEnd(const Os::ConnectionPtr& connection, ConnType type);

  void BindToRandomPort(int fd);
  int StartReading(const char* threadName);
  void RunConnect();
  int ConnectInterruptibly(const Os::Connection& connection);
  bool FinishThreadedConnect();
  void RunReading();
  void ReadUntilEnd(const Os::ConnectionPtr& connection);
  ReadEnd ReadOnce(const Os::Connection& connection);
  int ProcMessages();
  int Drain(Core::Form form);

  std::mutex m_eventLock;
  std::mutex m_connectionLock;
  Os::ConnectionPtr m_connection;       ///< guarded by m_connectionLock
  std::shared_ptr<const char> m_alive;  ///< expires with the object
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_UTILITY_TCPCLIENT_H
