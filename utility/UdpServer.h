// IPv4 UDP server. Internal: hosts use <Tarn/Generic/UdpServer.h>.
#ifndef TARN_UTILITY_UDPSERVER_H
#define TARN_UTILITY_UDPSERVER_H

#include <Tarn/Generic/UdpServer.h>

#include <atomic>
#include <mutex>

#include "utility/UdpSocket.h"
#include "utility/os/ThreadOwner.h"

namespace Tarn {
namespace Generic {

/// The server behind IUdpServer.
///
/// The read thread and the senders hold the socket that was current when they began; m_sockfd and
/// m_buffer mirror it. The socket and a lock for what several threads look at stand behind the
/// usual fields.
class TARN_API CUdpServer : public IUdpServer {
 public:
  CUdpServer();
  ~CUdpServer() override;

  void RegisterEvent(void* user, void (*onMsg)(void*, char*, int, const char*, int)) override;
  int Start(int port) override;
  void SetLocalIP(const char* ip) override;
  int ConnectMultiCast(const char* group, int port) override;
  void Stop() override;
  int SendMsg(const char* ip, int port, const char* data, int len) override;
  void SetMaxBufferLen(int len) override;
  int IsWorking() override;

  /// Thread body; the argument is the server.
  static void* ReadThreadTask(void* server);

  /// Opens and binds a socket: 0 or -1.
  int InitSocket();
  /// Makes O_NONBLOCK the socket's only flag: 0 or -1.
  int SetNonblocking();
  /// Back to the defaults; `first`: there is nothing to close yet.
  void ResetField(int first);

  std::atomic<int> m_bReading;      ///< the read thread goes on while set
  std::atomic<int> m_sockfd;        ///< 0: none
  std::atomic<char*> m_buffer;      ///< the read thread's; null while there is none
  std::atomic<int> m_maxBufferLen;  ///< bytes
  void (*m_onMsg)(void*, char*, int, const char*, int);  ///< may be null; guarded by m_lock
  void* m_pUser;                                         ///< guarded by m_lock
  std::atomic<int> m_port;                               ///< of the socket
  Os::ThreadHandle m_readThread;                         ///< 0: none
  char m_localIp[17];             ///< of SetLocalIP, or empty; guarded by m_lock
  std::atomic<int> m_bMultiCast;  ///< joins m_groupIp, for good
  char m_groupIp[17];             ///< guarded by m_lock

 private:
  UdpAddress OwnAddress();
  UdpAddress GroupAddress();
  int SetBufferSizes();
  void RunReading();
  void Deliver(const sockaddr_in& sender, const char* data, int len);

  std::mutex m_lock;  ///< a leaf
  UdpSocketHolder m_socket;
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_UTILITY_UDPSERVER_H
