// IPv4 TCP server. Internal: hosts use <Tarn/Generic/TcpServer.h>.
#ifndef TARN_UTILITY_TCPSERVER_H
#define TARN_UTILITY_TCPSERVER_H

#include <Tarn/Generic/Deque.h>
#include <Tarn/Generic/Lock.h>
#include <Tarn/Generic/TcpServer.h>

#include <atomic>
#include <list>
#include <map>
#include <mutex>

#include "utility/core/Framing.h"
#include "utility/os/Connection.h"
#include "utility/os/Readiness.h"
#include "utility/os/ThreadOwner.h"

namespace Tarn {
namespace Generic {

/// The server behind ITcpServer.
///
/// Every client has a record in m_clientList and a connection, found by generation under the list
/// lock and by descriptor through a table with a leaf lock of its own, so that sending never needs
/// the list. These, the epoll set and the sockets left open by Stop stand behind the usual fields.
///
/// A callback on the read thread that stops or deletes the server takes the list lock away from the
/// read thread, which then is an orphan: it unlocks nothing and touches nothing any more.
class TARN_API CTcpServer : public ITcpServer {
 public:
  CTcpServer();
  ~CTcpServer() override;

  void RegisterEvent(void* user, void (*onConnect)(void*, unsigned int, unsigned int, char*),
                     void (*onDisconnect)(void*, unsigned int, unsigned int),
                     void (*onMsg)(void*, unsigned int, unsigned int, const char*, int)) override;
  int Start(int port) override;
  void Stop() override;
  int SendMsg(int cid, const char* data, int len) override;
  int Removeclient(int cid) override;
  void SetMaxBufferLen(int len) override;
  void SetProcType(protocol_type type) override;
  void DisableEndian() override;

  /// Thread bodies; the argument is the server.
  static void* AcceptThreadTask(void* server);
  static void* ReadThreadTask(void* server);
  /// The removal queue's callback: takes over `data`, a removal request.
  static void OnRemoveProc(void* user, void* data);
  void OnRemoveProc(void* data);

  /// Opens the listening socket: 0 or -1.
  int InitSocket();
  int SetNonblocking();
  /// Takes a connection into the list, but does not read it yet: 1, or 0 when the list is full or
  /// memory is short; then the descriptor is still the caller's.
  int AddClientToList(int fd, char* ip, int port);
  /// Writes all bytes: `len` or a negated error number.
  int WriteSfd(int fd, const char* data, int len);
  /// Back to the defaults; `first`: there is nothing to close yet.
  void ResetField(int first);

  /// Cut what a client's buffer holds into messages: 0, or -1 when the data are malformed.
  int ProcStringMsg(st_clientinfo* client);
  int ProcByteMsg(st_clientinfo* client);
  int ProcNoneMsg(st_clientinfo* client);

  std::atomic<int> m_port;                // of the listening socket
  std::atomic<int> m_listenfd;            // 0: none; the sid of the callbacks
  std::atomic<int> m_bReading;            // the server runs
  std::atomic<int> m_maxBufferLen;        // bytes
  std::atomic<int> m_bEndian;             // length prefix big-endian
  std::atomic<protocol_type> m_procType;  // framing
  Os::ThreadHandle m_acceptThread;        // 0: none
  Os::ThreadHandle m_readThread;          // 0: none
  std::list<st_clientinfo> m_clientList;  // guarded by m_clientLock
  CLock m_clientLock;
  void* m_pUser;  // guarded by m_eventLock, like the callbacks
  void (*m_onConnect)(void*, unsigned int, unsigned int, char*);
  void (*m_onDisconnect)(void*, unsigned int, unsigned int);
  void (*m_onMsg)(void*, unsigned int, unsigned int, const char*, int);
  IDeque* m_removeDeque;  // clients to be removed

 private:
  struct Events;
  struct RemovalRequest;
  struct Peer {
    std::list<st_clientinfo>::iterator info;
    Os::ConnectionPtr connection;
    bool removed;  // on request, while the server stops
  };
  using Peers = std::map<uint64_t, Peer>;

  Events CurrentEvents();
  void JoinThreads();
  void CloseListener();
  void LeaveClientsLocked();
  void RunRemovals();
  void DrainRemovals();
  bool RunAccepting();
  void AcceptOnce();
  void ListenTo(int fd);
  void RunReading();
  void ServeReadyClients();
  void ServeClientLocked(Peers::iterator peer);
  bool ReadClientLocked(const Peer& peer, bool& malformed);
  void EndClientLocked(Peers::iterator peer, bool malformed);
  void EraseClientLocked(Peers::iterator peer);
  int ProcMessages(st_clientinfo* client);
  int Drain(st_clientinfo* client, Core::Form form);

  std::mutex m_eventLock;
  Peers m_peers;  // by generation, which is the order of the list; guarded by m_clientLock
  Os::ConnectionTable m_connections;
  Os::Readiness m_readiness;
  Os::LeftOpenSockets m_leftOpen;  // guarded by m_clientLock
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_UTILITY_TCPSERVER_H
