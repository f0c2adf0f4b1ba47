// Receives files from upload clients. Internal: hosts use <Tarn/Generic/UploadServer.h>.
#ifndef TARN_UTILITY_UPLOADSERVER_H
#define TARN_UTILITY_UPLOADSERVER_H

#include <Tarn/Generic/Lock.h>
#include <Tarn/Generic/StringEx.h>
#include <Tarn/Generic/TcpServer.h>
#include <Tarn/Generic/UploadServer.h>

#include <atomic>
#include <list>

namespace Tarn {
namespace Generic {

/// The server behind IUploadServer.
///
/// Events arrive on the TCP server's threads and hold m_lock throughout, file writing and MD5
/// checks included. Lock order: the TCP server's client list (held by its callers during messages
/// and disconnects), m_lock, the log. Stop waits for those threads and therefore takes m_lock only
/// after.
class TARN_API CUploadServer : public IUploadServer {
 public:
  CUploadServer();
  ~CUploadServer() override;
  CUploadServer(const CUploadServer&) = delete;
  CUploadServer& operator=(const CUploadServer&) = delete;

  bool Start(int port) override;
  bool Stop() override;
  bool SetPath(const char* folder) override;

  static void OnConnect(void* server, unsigned int sid, unsigned int cid, char* ip);
  static void OnDisconnect(void* server, unsigned int sid, unsigned int cid);
  static void OnMessage(void* server, unsigned int sid, unsigned int cid, const char* data,
                        int len);
  void OnConnect(unsigned int sid, unsigned int cid, char* ip);
  void OnDisconnect(unsigned int sid, unsigned int cid);
  void OnMessage(unsigned int sid, unsigned int cid, const char* data, int len);

  /// Takes one delivery; false when the connection is to be dropped.
  bool ProcData(_UpRequest* request, const char* data, int len);
  /// Answers the client.
  void SendMsg(int cid, char* name, int code);
  /// Makes name and path and opens the stored file; false when that failed.
  bool CreateLocalFile(_UpRequest* request);
  /// Closes the stored file, if open, and deletes it when its MD5 is not the announced one; false
  /// then.
  bool CloseFile(_UpRequest* request);

  ITcpServer* m_pTcpServer;          ///< owned
  std::atomic<int> m_bStarted;       ///< the TCP server runs
  std::list<_UpRequest> m_requests;  ///< one per connection; guarded by m_lock
  CLock m_lock;
  int m_blockLen;      ///< size of the header buffers, which clients' blocks never exceed
  CStringEx m_folder;  ///< the save folder without trailing separators; guarded by m_lock

 private:
  using Position = std::list<_UpRequest>::iterator;

  void Configure();
  Position FindLocked(unsigned int cid);
  void DropLocked(Position position);
  bool AppendLocked(unsigned int cid);
  bool BeginFile(_UpRequest* request);
  bool FinishFile(_UpRequest* request);
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_UTILITY_UPLOADSERVER_H
