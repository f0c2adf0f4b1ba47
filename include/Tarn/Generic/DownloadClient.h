/// @file
/// Fetches files from a download server. Public: may include only public headers.
#ifndef TARN_GENERIC_DOWNLOADCLIENT_H
#define TARN_GENERIC_DOWNLOADCLIENT_H

#include <Tarn/Generic/Api.h>

namespace Tarn {
namespace Generic {

/// Fetches one file at a time from an IDownloadServer into a local folder and reports progress and
/// outcome.
///
/// Result codes: 0 the file has come and its MD5 is the announced one; 1 the connection could not
/// be made; 2000 the server cannot open the file; 2001 the local file could not be created; 2002
/// the MD5 differs, or more data came than was announced; 2003 the connection closed before the
/// end. Other codes are the server's own. One transfer may report more than once: after any code
/// but 0 a closed connection is still told by 2003, unless exactly the announced bytes had come.
///
/// What to expect of odd files: an empty one is never complete, the transfer ends with 2003 when
/// the server closes. One of 2,147,483,648 bytes and more ends with 2002. The local file is written
/// in its final place and deleted when the transfer fails.
///
/// Threads: use one object from one thread at a time. Callbacks run on the connection's own threads
/// without a lock, after Down has returned true or shortly before. A callback may call Down or
/// Delete of its object: the transfer that it reports on then ends there.
///
/// The host must ignore SIGPIPE. Diagnostics go to the default asynchronous log at level DEBUG.
class TARN_API IDownloadClient {
 public:
  virtual ~IDownloadClient();

  /// Sets the callbacks; either may be null. They stay set for later downloads. `fileName` is the
  /// name given to Down and valid until they return.
  /// @param onResult    the code, see above
  /// @param onProgress  called for every delivery of data with the share that has come, 0 to 100;
  ///                    -2147483648 when data comes although none was announced, and a negative
  ///                    share when the announced length is 2,147,483,648 and more
  /// @param user        handed to both
  virtual void RegisterEvent(void (*onResult)(void* user, const char* fileName, unsigned int code),
                             void (*onProgress)(void* user, const char* fileName, int percent),
                             void* user) = 0;

  /// Ends an earlier transfer, deleting its file when it was not complete, and starts to connect;
  /// everything else is reported to the callbacks. May block for up to about 3 s while the server's
  /// port is tested.
  /// @param ip        dotted IPv4 address of the server; at most 19 characters are kept
  /// @param port      the server's port, not 0
  /// @param file      the file's name on the server, and in the local folder
  /// @param localDir  the local folder, made when it is missing (one level, access for the owner
  ///                  only); slashes and then backslashes at its end are left out
  /// @param subDir    the folder below the server's root; null or empty for the root itself
  /// @return false, without a callback, when the file's name is null, the folder cannot be made,
  ///         the address is empty, the port 0, or the connection cannot be begun
  virtual bool Down(char* ip, int port, const char* file, const char* localDir,
                    const char* subDir) = 0;

  /// A new client; release it with Delete. Null when memory is short.
  static IDownloadClient* Create();
  /// Ends a transfer, which takes up to about a second, and destroys; null is ignored. A file that
  /// is not complete is deleted.
  static void Delete(IDownloadClient* client);
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_DOWNLOADCLIENT_H
