/// @file
/// Sends files to an upload server. Public: may include only public headers.
#ifndef TARN_GENERIC_UPLOADCLIENT_H
#define TARN_GENERIC_UPLOADCLIENT_H

#include <Tarn/Generic/Api.h>

namespace Tarn {
namespace Generic {

/// Sends one local file at a time to an IUploadServer and reports progress and outcome.
///
/// Result codes: 0 the server's answer (always 0, whatever the server made of the file); 1 the
/// connection could not be made; 2003 the connection closed before everything was sent, or reading
/// the file or sending it failed. One transfer may report more than once: a failed send reports
/// 2003 for the closed connection and again for the send, and a file whose length is a multiple of
/// 1,048,576 bytes (0 included), or less than 50 bytes below one, reports 2003 after all its data
/// was sent.
///
/// Threads: use one object from one thread at a time. Callbacks run on the connection's own threads
/// without a lock, after Upload has returned true or shortly before. A callback may call Upload or
/// Delete of its object: the transfer that it reports on then ends there. The pace is fixed: 50 ms
/// before the first byte and 100 ms after every block of at most 1,048,576 bytes.
///
/// The host must ignore SIGPIPE. Diagnostics go to the default asynchronous log at level DEBUG.
class TARN_API IUploadClient {
 public:
  virtual ~IUploadClient();

  /// Sets the callbacks; either may be null. They stay set for later uploads. Texts handed to them
  /// are valid until they return.
  /// @param onResult    `localPath` is the path given to Upload, or "" for the codes 1 and 2003;
  ///                    `storedName` is the name of the stored file, "" when the answer gave none,
  ///                    and null for the codes 1 and 2003
  /// @param onProgress  called before each block is sent with the share sent then, 0 to 100
  /// @param user        handed to both
  virtual void RegisterEvent(void (*onResult)(void* user, const char* localPath,
                                              const char* storedName, unsigned int code),
                             void (*onProgress)(void* user, const char* localPath, int percent),
                             void* user) = 0;

  /// Ends an earlier transfer, opens the file and starts to connect; everything else is reported to
  /// the callbacks. May block for up to about 3 s while the server's port is tested.
  /// @param ip    dotted IPv4 address of the server; at most 19 characters are kept
  /// @param port  the server's port, not 0
  /// @param file  path of a regular file of at most 4,294,967,245 bytes
  /// @return false, without a callback, when the file cannot be opened or is too long, the address
  /// is
  ///         empty, the port 0, or the connection cannot be begun
  virtual bool Upload(char* ip, int port, const char* file) = 0;

  /// A new client; release it with Delete. Null when memory is short.
  static IUploadClient* Create();
  /// Ends a transfer, which takes up to about a second, and destroys; null is ignored.
  static void Delete(IUploadClient* client);
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_UPLOADCLIENT_H
