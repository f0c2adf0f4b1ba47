// Sends files to an upload server. Internal: hosts use <Tarn/Generic/UploadClient.h>.
#ifndef TARN_UTILITY_UPLOADCLIENT_H
#define TARN_UTILITY_UPLOADCLIENT_H

#include <Tarn/Generic/Ping.h>
#include <Tarn/Generic/StringEx.h>
#include <Tarn/Generic/TcpClient.h>
#include <Tarn/Generic/UploadClient.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <mutex>

#include "utility/os/Handle.h"

namespace Tarn {
namespace Generic {

/// The client behind IUploadClient.
///
/// The open file has one owner at a time: the object until the sending loop takes it, then the
/// loop. Events of the read thread may find the object without a file and leave the loop's alone.
/// After every callback and every send the loop asks whether a callback has ended its thread's
/// service; if so, the object may be gone. The last two members are bookkeeping of the object's
/// own.
class TARN_API CUploadClient : public IUploadClient {
 public:
  CUploadClient();
  ~CUploadClient() override;
  CUploadClient(const CUploadClient&) = delete;
  CUploadClient& operator=(const CUploadClient&) = delete;

  void RegisterEvent(void (*onResult)(void*, const char*, const char*, unsigned int),
                     void (*onProgress)(void*, const char*, int), void* user) override;
  bool Upload(char* ip, int port, const char* file) override;

  bool Connect();
  void DisConnect();
  void SendFile();

  static void OnConnect(void* client, ConnType type);
  static void OnMessage(void* client, const char* data, int len);
  void OnMessage(const char* data, int len);

  ITcpClient* m_pTcpClient;       ///< owned
  IPing* m_pPing;                 ///< owned
  std::atomic<int> m_bConnected;  ///< the sending loop goes on while set
  char m_szIp[20];                ///< the server's address
  int m_port;                     ///< the server's port
  int m_blockLen;                 ///< bytes sent at a time
  std::atomic<int> m_progress;    ///< percent of the current file
  void (*m_onResult)(void*, const char*, const char*, unsigned int);  ///< guarded by m_eventLock
  void (*m_onProgress)(void*, const char*, int);                      ///< guarded by m_eventLock
  void* m_pUser;                                                      ///< guarded by m_eventLock
  CStringEx m_errorPath;       ///< never assigned: reports of failures carry an empty path
  CStringEx m_localPath;       ///< written while no thread of the connection runs
  char m_szExt[20];            ///< the path from its last "." on
  std::atomic<FILE*> m_pFile;  ///< null while the sending loop has it

 private:
  struct Events {
    void (*onResult)(void*, const char*, const char*, unsigned int);
    void (*onProgress)(void*, const char*, int);
    void* user;
  };

  void SendHeader(FILE* file, uint64_t fileBytes, char* block);
  void SendBlocks(FILE* file, uint64_t fileBytes, char* block);
  void OnConnected();
  Events CurrentEvents();
  Os::FilePtr TakeFile();
  void ReportUnreadable();
  void ReportFailure(unsigned int code);
  void ReportProgress(int percent);

  std::mutex m_eventLock;       ///< a leaf
  std::atomic<bool> m_bEnding;  ///< DisConnect has been called and no Connect since
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_UTILITY_UPLOADCLIENT_H
