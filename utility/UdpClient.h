// IPv4 UDP client. Internal: hosts use <Tarn/Generic/UdpClient.h>.
#ifndef TARN_UTILITY_UDPCLIENT_H
#define TARN_UTILITY_UDPCLIENT_H

#include <Tarn/Generic/UdpClient.h>

#include <atomic>
#include <mutex>

#include "utility/UdpSocket.h"
#include "utility/os/ThreadOwner.h"

namespace Tarn {
namespace Generic {

/// The client behind IUdpClient.
///
/// The read thread and the senders hold the socket that was current when they began; m_sockfd and
/// m_buffer mirror it. The socket and a lock for what several threads look at stand behind the
/// usual fields.
class TARN_API CUdpClient : public IUdpClient {
 public:
  CUdpClient();
  ~CUdpClient() override;

  void RegisterEvent(void* user, void (*onMsg)(void*, const char*, int)) override;
  int Connect(const char* ip, int port) override;
  int SetLocalAddr(const char* ip, int port) override;
  int ConnectMultiCast(char* group, int port) override;
  void Disconnect() override;
  int SendMsg(const char* data, int len) override;
  void SetMaxBufferLen(int len) override;

  /// Thread body; the argument is the client.
  static void* ReadThreadTask(void* client);

  /// Opens and binds a socket: 0 or -1.
  int InitSocket();
  /// Makes O_NONBLOCK the socket's only flag: 0 or -1 with errno set.
  int SetNonblocking();
  /// The local port of SetLocalAddr; 0 lets the platform choose.
  int GetFreePort();
  /// Back to the defaults; `first`: there is nothing to close yet.
  void ResetField(int first);

  std::atomic<int> m_sockfd;                 ///< 0: none
  std::atomic<int> m_maxBufferLen;           ///< bytes
  char m_ip[17];                             ///< the peer or group; guarded by m_lock
  int m_port;                                ///< its port; guarded by m_lock
  char m_localIp[17];                        ///< of SetLocalAddr, or empty; guarded by m_lock
  int m_localPort;                           ///< of SetLocalAddr, or 0; guarded by m_lock
  std::atomic<char*> m_buffer;               ///< the read thread's; null while there is none
  std::atomic<int> m_dataLen;                ///< bytes of the last datagram
  std::atomic<int> m_packetLen;              ///< bytes of the largest datagram to be sent
  std::atomic<int> m_bReading;               ///< the read thread goes on while set
  Os::ThreadHandle m_readThread;             ///< 0: none
  void* m_pUser;                             ///< guarded by m_lock, like the callback
  void (*m_onMsg)(void*, const char*, int);  ///< may be null
  std::atomic<int> m_bMultiCast;             ///< the peer is a group, for good

 private:
  struct Peer {
    UdpAddress address;
    int port;
  };

  Peer CurrentPeer();
  UdpAddress OwnAddress();
  void DropSocket();
  int BindLocally();
  int SetBufferSizes();
  void RunReading();
  void Deliver(const char* data, int len);

  std::mutex m_lock;  ///< a leaf
  UdpSocketHolder m_socket;
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_UTILITY_UDPCLIENT_H
