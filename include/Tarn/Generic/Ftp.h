/// @file
/// FTP upload, reserved. Public: may include only public headers.
#ifndef TARN_GENERIC_FTP_H
#define TARN_GENERIC_FTP_H

#include <Tarn/Generic/Api.h>

namespace Tarn {
namespace Generic {

/// Reserves the interface for uploading files to an FTP server, so that programs written against it
/// link and run. It never opens a connection: every object is not connected for its whole life, and
/// no argument is looked at. Stateless: use from any thread.
class TARN_API IFtp {
 public:
  virtual ~IFtp();

  /// @return 0: not connected
  virtual int Connect(char* host, int port, char* user, char* password) = 0;
  /// @return 1: not connected any more
  virtual int Disconnect() = 0;
  /// @return 0: not connected
  virtual int Isconnect() = 0;
  /// @return 0: failed
  virtual int UploadFile(char* localPath, char* remotePath) = 0;

  /// A new object; release it with Delete. Null when memory is short.
  static IFtp* Create();
  /// Destroys; null is ignored.
  static void Delete(IFtp* ftp);
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_FTP_H
