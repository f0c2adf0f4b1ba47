// What the transfer services have in common.
#include "utility/Transfer.h"

#include <Tarn/Generic/AsyncLog.h>
#include <Tarn/Generic/Directory.h>

#include <cstdlib>
#include <cstring>

namespace Tarn::Generic::Transfer {

namespace {

constexpr ConnType kReservedFailure = static_cast<ConnType>(2);

/// True when all that was written has a length above 0.
bool HoldsData(FILE* file) {
  return std::fflush(file) == 0 && Os::FileLength(file) > 0;
}

}  // namespace

bool IsFailedConnect(ConnType type) {
  return type == CONN_FAILED || type == kReservedFailure;
}

void LogLine(const char* text) {
  if (IAsyncLog* log = IAsyncLog::GetDefaultLogPtr()) log->WriteLog(DEBUG, "%s", text);
}

void TrimFolder(CStringEx& folder) {
  folder.TrimEnd('/');
  folder.TrimEnd('\\');
}

bool TakeFolder(const char* path, CStringEx& folder) {
  if (!CDirectory().CreateDir(path)) return false;
  folder = path;
  TrimFolder(folder);
  return true;
}

Os::MallocPtr<char> NewBlock() {
  return Os::MallocPtr<char>(static_cast<char*>(std::malloc(Core::kTransferBlockBytes)));
}

void Store(FILE* file, std::string_view part, char* md5) {
  if (std::fwrite(part.data(), 1, part.size(), file) != part.size()) md5[0] = '\0';
}

bool CloseAndCheck(FILE* file, const char* path, const char* md5, EmptyFile empty) {
  const bool wanted = empty == EmptyFile::kKeep || HoldsData(file);
  const bool closed = std::fclose(file) == 0;
  CMd5 stored;
  const char* digest = stored.File(path);
  if (wanted && closed && *digest != '\0' && std::strcmp(digest, md5) == 0) return true;
  std::remove(path);
  return false;
}

}  // namespace Tarn::Generic::Transfer
