// Fetches files from a download server. Internal: hosts use <Tarn/Generic/DownloadClient.h>.
#ifndef TARN_UTILITY_DOWNLOADCLIENT_H
#define TARN_UTILITY_DOWNLOADCLIENT_H

#include <Tarn/Generic/DownloadClient.h>
#include <Tarn/Generic/Ping.h>
#include <Tarn/Generic/StringEx.h>
#include <Tarn/Generic/TcpClient.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string_view>

#include "utility/core/DownloadWire.h"

namespace Tarn {
namespace Generic {

/// The client behind IDownloadClient.
///
/// Deliveries and events come on the threads of the connection, while the host may end the transfer
/// on its own: what they share is guarded by m_fileLock, which no callback of the host is called
/// with. After every callback the thread asks whether that has ended its service; if so, the object
/// may be gone. The last three members are bookkeeping of the object's own.
class TARN_API CDownloadClient : public IDownloadClient {
 public:
  CDownloadClient();
  ~CDownloadClient() override;
  CDownloadClient(const CDownloadClient&) = delete;
  CDownloadClient& operator=(const CDownloadClient&) = delete;

  void RegisterEvent(void (*onResult)(void*, const char*, unsigned int),
                     void (*onProgress)(void*, const char*, int), void* user) override;
  bool Down(char* ip, int port, const char* file, const char* localDir,
            const char* subDir) override;

  /// Ends an earlier transfer and forgets about it.
  void Clear();
  bool Connect();
  void DisConnect();
  /// Makes the local path and opens the file; false when that failed.
  bool CreateLocalFile();
  /// Closes the local file, if open, and deletes it when it is empty or its MD5 is not the
  /// announced one; false then.
  bool CloseFile();
  /// Reports how much has come, and the result when that is all.
  void CalcRate();

  static void OnConnect(void* client, ConnType type);
  static void OnMessage(void* client, const char* data, int len);
  void OnMessage(const char* data, int len);

  ITcpClient* m_pTcpClient;                              ///< owned
  IPing* m_pPing;                                        ///< owned, not used
  std::atomic<int> m_bConnected;                         ///< told by the last event
  char m_szIp[20];                                       ///< the server's address
  int m_port;                                            ///< the server's port
  void (*m_onResult)(void*, const char*, unsigned int);  ///< guarded by m_eventLock
  void (*m_onProgress)(void*, const char*, int);         ///< guarded by m_eventLock
  void* m_pUser;                                         ///< guarded by m_eventLock
  // Written while no thread of the connection runs.
  CStringEx m_file;    ///< the name on the server, and the one handed to the callbacks
  CStringEx m_subDir;  ///< the folder on the server; may be empty
  CStringEx m_localDir;
  // Guarded by m_fileLock.
  CStringEx m_localPath;
  char m_szMd5[40];        ///< announced MD5, 32 hexadecimal characters and zeros
  char* m_buffer;          ///< owned, m_maxlen bytes from malloc; receives the header
  int m_maxlen;            ///< longest delivery
  int m_len;               ///< header bytes until the header is complete, then data bytes
  double m_rate;           ///< percent
  int m_fileLen;           ///< announced data bytes
  FILE* m_pFile;           ///< the local file while it is being written, or null
  unsigned int errorcode;  ///< the transfer has failed by it; 0 otherwise

 private:
  struct Events {
    void (*onResult)(void*, const char*, unsigned int);
    void (*onProgress)(void*, const char*, int);
    void* user;
  };
  enum class Next { kNothing, kReportError, kCalcRate };

  Next TakeDelivery(std::string_view delivery, int len);
  [[nodiscard]] Core::DownloadPhase PhaseNow() const;
  void OnConnected();
  void OnClosed();
  Events CurrentEvents();
  void ReportResult(unsigned int code);
  void ReportProgress(int percent);

  std::mutex m_eventLock;           ///< a leaf
  std::recursive_mutex m_fileLock;  ///< before the log's locks
  std::atomic<bool> m_bEnding;      ///< the host has ended the transfer and not begun another
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_UTILITY_DOWNLOADCLIENT_H
