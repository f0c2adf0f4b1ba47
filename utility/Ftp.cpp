// The FTP interface without FTP behind it.
#include "utility/Ftp.h"

#include <new>

namespace Tarn::Generic {

IFtp::~IFtp() = default;

CFtp::CFtp() : m_bConnected(0) {}

CFtp::~CFtp() {
  if (m_bConnected != 0) CFtp::Disconnect();
}

int CFtp::Connect(char* /*host*/, int /*port*/, char* /*user*/, char* /*password*/) {
  return m_bConnected != 0 ? 1 : 0;
}

// There is nothing to end: the answer only tells whether there is no connection.
int CFtp::Disconnect() {
  return m_bConnected == 0 ? 1 : 0;
}

int CFtp::Isconnect() {
  return m_bConnected;
}

int CFtp::UploadFile(char* /*localPath*/, char* /*remotePath*/) {
  return 0;
}

IFtp* IFtp::Create() {
  return new (std::nothrow) CFtp;
}

void IFtp::Delete(IFtp* ftp) {
  delete ftp;
}

}  // namespace Tarn::Generic
