// The placeholder behind IFtp.
#ifndef TARN_UTILITY_FTP_H
#define TARN_UTILITY_FTP_H

#include <Tarn/Generic/Ftp.h>

namespace Tarn::Generic {

class TARN_API CFtp : public IFtp {
 public:
  CFtp();
  ~CFtp() override;
  CFtp(const CFtp&) = delete;
  CFtp& operator=(const CFtp&) = delete;

  int Connect(char* host, int port, char* user, char* password) override;
  int Disconnect() override;
  int Isconnect() override;
  int UploadFile(char* localPath, char* remotePath) override;

  // The state is open to tests.
  int m_bConnected;  // no operation sets it
};

}  // namespace Tarn::Generic

#endif  // TARN_UTILITY_FTP_H
