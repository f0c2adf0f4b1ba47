// Sends files to download clients. Internal: hosts use <Tarn/Generic/DownloadServer.h>.
#ifndef TARN_UTILITY_DOWNLOADSERVER_H
#define TARN_UTILITY_DOWNLOADSERVER_H

#include <Tarn/Generic/Deque.h>
#include <Tarn/Generic/DownloadServer.h>
#include <Tarn/Generic/Lock.h>
#include <Tarn/Generic/StringEx.h>
#include <Tarn/Generic/TcpServer.h>

#include <atomic>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string_view>

#include "utility/os/Handle.h"

namespace Tarn {
namespace Generic {

/// The server behind IDownloadServer.
///
/// Ids of connections return, so every connection has a link of its own beside its id in m_links,
/// and a request keeps the link that it came through. A link is retired in the disconnect event,
/// before its id can return, and nothing is sent through a retired one: a file never continues in
/// another client's connection.
///
/// Lock order: the TCP server's client list (held by its callers during messages and disconnects),
/// then m_lock or the lock of one link, then the log. Files are read and sent without m_lock. The
/// last four members are bookkeeping of the object's own.
class TARN_API CDownloadServer : public IDownloadServer {
 public:
  CDownloadServer();
  ~CDownloadServer() override;
  CDownloadServer(const CDownloadServer&) = delete;
  CDownloadServer& operator=(const CDownloadServer&) = delete;

  bool Start(int port, int threadCount) override;
  bool Stop() override;
  bool SetPath(const char* root) override;

  static void OnConnect(void* server, unsigned int sid, unsigned int cid, char* ip);
  static void OnDisconnect(void* server, unsigned int sid, unsigned int cid);
  static void OnMessage(void* server, unsigned int sid, unsigned int cid, const char* data,
                        int len);
  void OnConnect(unsigned int sid, unsigned int cid, char* ip);
  void OnDisconnect(unsigned int sid, unsigned int cid);
  void OnMessage(unsigned int sid, unsigned int cid, const char* data, int len);

  /// The queue's callback: serves and frees `request`, a _DownRequest.
  static void OnDownProc(void* server, void* request);
  /// Whether the id is that of a connection.
  bool IsExistLink(int cid);
  /// Sends the header and the file, unless the connection that asked is gone.
  void SendFile(_DownRequest* request);

  ITcpServer* m_pTcpServer;         ///< owned
  IDeque* m_pDeque;                 ///< owned; the requests that wait
  std::atomic<int> m_bStarted;      ///< files are sent while set
  CStringEx m_root;                 ///< without trailing separators; guarded by m_lock
  int m_blockLen;                   ///< bytes sent at a time
  std::list<unsigned int> m_links;  ///< the ids of the connections; guarded by m_lock
  CLock m_lock;

 private:
  struct Link;
  using LinkPtr = std::shared_ptr<Link>;

  void Configure();
  bool AddLinkLocked(unsigned int cid);
  LinkPtr TakeLinkLocked(unsigned int cid);
  LinkPtr FindLinkLocked(unsigned int cid);
  LinkPtr LinkOf(const _DownRequest& request);
  bool IsCurrent(const LinkPtr& link);
  bool Admit(const _DownRequest& request);
  bool Begin(const _DownRequest& request);
  void Forget(const _DownRequest& request);
  void WakeNextWorker();
  void DropRequests();
  Os::FilePtr OpenRequested(const char* text);
  int Send(const LinkPtr& link, std::string_view bytes);
  void SendHeader(const LinkPtr& link, uint64_t fileBytes, unsigned int error,
                  std::string_view md5);
  void SendOpenFile(const LinkPtr& link, FILE* file, uint64_t fileBytes, char* block);

  std::map<unsigned int, LinkPtr> m_linksById;       ///< guarded by m_lock
  std::map<const _DownRequest*, LinkPtr> m_origins;  ///< of the requests; guarded by m_lock
  bool m_bRootSet;                                   ///< guarded by m_lock
  std::atomic<bool> m_bStopping;                     ///< nothing new is begun
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_UTILITY_DOWNLOADSERVER_H
