/// @file
/// Sends files to download clients. Public: may include only public headers.
#ifndef TARN_GENERIC_DOWNLOADSERVER_H
#define TARN_GENERIC_DOWNLOADSERVER_H

#include <Tarn/Generic/Api.h>

namespace Tarn {
namespace Generic {

/// One request of a download client, as it waits for a worker.
struct TARN_API _DownRequest {
  /// All zero, but `cid` is 0xFFFFFFFF.
  _DownRequest();

  char file[256];    ///< the requested text: FILE, or FILE$^SUBDIR
  unsigned int cid;  ///< the connection's id
};

/// Sends the files below a root folder to the clients that ask for them, on worker threads of its
/// own: a request waits until a worker is free, and at most 1,024 requests of one connection wait.
///
/// The request FILE is the file FILE below the root, FILE$^SUBDIR is SUBDIR/FILE. Nothing outside
/// the root can be named: a path that leaves it counts as missing, and one with a ".." that stays
/// inside is opened in such a way that no link on it leads outside either. Links on other paths
/// are the operator's and followed. Only regular files of at most 4,294,967,255 bytes are sent;
/// everything else counts as missing, too: the client is told 2000.
///
/// Threads: Start, Stop and SetPath may be called from one thread at a time. The pace is fixed:
/// 100 ms after every block of at most 1,048,576 bytes. The host must ignore SIGPIPE. Connects and
/// disconnects are written to the default asynchronous log at level ERROR, requests at level DEBUG.
class TARN_API IDownloadServer {
 public:
  virtual ~IDownloadServer();

  /// Listens on all addresses.
  /// @param threadCount  workers, and thereby transfers at a time; with 0 requests only wait
  /// @return false when that failed, threadCount is negative, or, changing nothing, when the server
  ///         already runs
  virtual bool Start(int port, int threadCount) = 0;

  /// Ends the transfers in progress and stops within about three seconds. Requests that wait are
  /// dropped.
  /// @return true
  virtual bool Stop() = 0;

  /// Sets the root folder and creates it when it is missing (one level, access for the owner only).
  /// Slashes and then backslashes at its end are left out. Before the first call every file counts
  /// as missing.
  /// @return false when it cannot be created; nothing changes then
  virtual bool SetPath(const char* root) = 0;

  /// A new server; release it with Delete. Null when memory is short.
  static IDownloadServer* Create();
  /// Stops and destroys; null is ignored.
  static void Delete(IDownloadServer* server);
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_DOWNLOADSERVER_H
