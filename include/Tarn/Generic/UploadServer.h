/// @file
/// Receives files from upload clients. Public: may include only public headers.
#ifndef TARN_GENERIC_UPLOADSERVER_H
#define TARN_GENERIC_UPLOADSERVER_H

#include <Tarn/Generic/Api.h>

#include <cstdio>

namespace Tarn {
namespace Generic {

/// The state of one connection of an upload server. A plain record: copies share the buffer and the
/// file, which the server frees when it drops the record.
struct TARN_API _UpRequest {
  /// All zero, but `cid` is 0xFFFFFFFF.
  _UpRequest();

  char name[256];         ///< stored name; not empty once the header is complete
  char path[256];         ///< stored path
  unsigned int cid;       ///< the connection's id
  char* header;           ///< 1,048,576 bytes from malloc, of which the first 50 receive the header
  unsigned int received;  ///< header bytes until the header is complete, then data bytes
  unsigned int expected;  ///< announced data bytes
  FILE* file;             ///< the stored file while it is being written, or null
  char md5[40];           ///< announced MD5, 32 hexadecimal characters and zeros
  char ext[24];           ///< announced extension, 14 characters and zeros
};

/// Stores the files that upload clients send, one per connection, under names of its own making
/// (local time to the millisecond, three random digits, the extension announced by the client).
///
/// The stored path is the save folder, a backslash and the name. Peers rely on that path: the file
/// lies beside the save folder, its own name beginning with the folder's name and the backslash
/// (with no save folder set, a backslash and the name in the working folder). A file that is not
/// received whole, or whose MD5 differs from the announced one, is deleted.
///
/// Answer to the client when all announced bytes have come: the line {"err":0,"file":"NAME"}; "err"
/// is always 0. A connection whose file could not be created or whose MD5 differed is dropped after
/// the answer; one that announces less than the header's own 50 bytes is dropped without.
///
/// Threads: Start, Stop and SetPath may be called from one thread at a time. Received data is
/// written and checked on the one read thread of the server, so that the check of a long file holds
/// up its other connections. The host must ignore SIGPIPE. Connects and disconnects are written to
/// the default asynchronous log at level ERROR.
class TARN_API IUploadServer {
 public:
  virtual ~IUploadServer();

  /// Listens on all addresses.
  /// @return false when that failed, or, changing nothing, when the server already runs
  virtual bool Start(int port) = 0;

  /// Stops within about two seconds and closes the files in receipt, deleting those that are not
  /// whole; each is read once for its MD5, which takes its time on top.
  /// @return true
  virtual bool Stop() = 0;

  /// Sets the save folder and creates it when it is missing (one level, access for the owner only).
  /// @return false when it cannot be created; nothing changes then
  virtual bool SetPath(const char* folder) = 0;

  /// A new server; release it with Delete. Null when memory is short.
  static IUploadServer* Create();
  /// Stops and destroys; null is ignored.
  static void Delete(IUploadServer* server);
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_UPLOADSERVER_H
