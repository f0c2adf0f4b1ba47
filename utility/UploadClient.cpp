// Sends files to an upload server.
#include "utility/UploadClient.h"

#include <Tarn/Generic/AsyncLog.h>
#include <Tarn/Generic/DateTime.h>
#include <cjson/cJSON.h>

#include <cstdio>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "utility/Transfer.h"
#include "utility/core/LogText.h"
#include "utility/core/UploadWire.h"
#include "utility/os/StreamFile.h"
#include "utility/os/ThreadOwner.h"

namespace Tarn::Generic {

namespace {

constexpr int kReceiveBufferBytes = 524288;
constexpr unsigned int kPingTimeoutMs = 500;
constexpr unsigned long kPauseBeforeMs = 50;
constexpr int kAllSent = 100;
constexpr size_t kMaxStoredName = 255;

/// A length whose total fits the header; -1 is none.
bool IsSendable(int64_t fileBytes) {
  return Core::IsTransferable(fileBytes, Core::kUploadHeaderBytes);
}

struct Answer {
  std::string storedName;
  unsigned int code = 0;
};

struct JsonDeleter {
  void operator()(cJSON* node) const { cJSON_Delete(node); }
};

/// What is missing or of another type stays as it is in an empty answer.
Answer ParseAnswer(std::string_view text) {
  Answer answer;
  const std::unique_ptr<cJSON, JsonDeleter> tree(cJSON_ParseWithLength(text.data(), text.size()));
  const cJSON* err = cJSON_GetObjectItem(tree.get(), "err");
  if (cJSON_IsNumber(err)) answer.code = static_cast<unsigned int>(err->valueint);
  const cJSON* file = cJSON_GetObjectItem(tree.get(), "file");
  if (cJSON_IsString(file))
    answer.storedName = std::string_view(file->valuestring).substr(0, kMaxStoredName);
  return answer;
}

void LogUnparsed(std::string_view text) try {
  if (IAsyncLog* log = IAsyncLog::GetDefaultLogPtr()) {
    log->WriteLog(DEBUG, "CUploadClient 解析JSON失败，内容为:%s",
                  Core::PrintableText(text).c_str());
  }
} catch (const std::bad_alloc&) {
  // Not even enough memory to tell.
}

}  // namespace

IUploadClient::~IUploadClient() = default;

CUploadClient::CUploadClient()
    : m_pTcpClient(ITcpClient::Create()),
      m_pPing(IPing::Create()),
      m_bConnected(0),
      m_szIp{},
      m_port(0),
      m_blockLen(static_cast<int>(Core::kTransferBlockBytes)),
      m_progress(0),
      m_onResult(nullptr),
      m_onProgress(nullptr),
      m_pUser(nullptr),
      m_szExt{},
      m_pFile(nullptr),
      m_bEnding(false) {}

CUploadClient::~CUploadClient() {
  DisConnect();
  ITcpClient::Delete(m_pTcpClient);
  IPing::Delete(m_pPing);
}

void CUploadClient::RegisterEvent(void (*onResult)(void*, const char*, const char*, unsigned int),
                                  void (*onProgress)(void*, const char*, int), void* user) {
  const std::lock_guard lock(m_eventLock);
  m_onResult = onResult;
  m_onProgress = onProgress;
  m_pUser = user;
}

bool CUploadClient::Upload(char* ip, int port, const char* file) {
  DisConnect();
  if (file == nullptr) return false;
  Os::FilePtr opened = Os::OpenRegularFile(file);
  if (!opened || !IsSendable(Os::FileLength(opened.get()))) return false;
  m_localPath = file;
  Core::CopyText(m_szExt, Core::UploadExtension(file));
  Core::CopyText(m_szIp, ip == nullptr ? "" : ip);
  m_port = port;
  m_progress = 0;
  m_pFile = opened.release();
  if (Connect()) return true;
  TakeFile();
  return false;
}

bool CUploadClient::Connect() {
  if (m_bConnected != 0) return true;
  if (m_szIp[0] == '\0' || m_port == 0 || m_pTcpClient == nullptr || m_pPing == nullptr)
    return false;
  if (m_pPing->Ping(m_szIp, kPingTimeoutMs) == 0) return false;
  m_bEnding = false;
  m_pTcpClient->SetMaxBufferLen(kReceiveBufferBytes);
  m_pTcpClient->SetProcType(PROTOCOL_STRING_RECV);
  m_pTcpClient->RegisterEvent(this, OnConnect, OnMessage);
  return m_pTcpClient->Connect(m_szIp, m_port, Transfer::kThreadedConnect) == 1;
}

void CUploadClient::DisConnect() {
  // In this order: OnConnected raises the one flag and then looks at the other.
  m_bEnding = true;
  m_bConnected = 0;
  if (m_pTcpClient != nullptr) m_pTcpClient->Disconnect();
  TakeFile();
}

void CUploadClient::SendFile() {
  const Os::FilePtr file = TakeFile();
  // Closed by an event that came first and has reported it.
  if (!file) return;
  const Os::MallocPtr<char> block = Transfer::NewBlock();
  const int64_t size = Os::FileLength(file.get());
  if (!block || !IsSendable(size)) {
    ReportUnreadable();
    return;
  }
  SendHeader(file.get(), static_cast<uint64_t>(size), block.get());
  if (Os::IsOrphan()) return;
  Transfer::LogLine("Send file start.");
  SendBlocks(file.get(), static_cast<uint64_t>(size), block.get());
  Transfer::LogLine("Send file end.");
}

// The result is not looked at: a connection that does not take the header fails the first block,
// too.
void CUploadClient::SendHeader(FILE* file, uint64_t fileBytes, char* block) {
  const std::string md5 =
      Transfer::FileMd5(file, fileBytes, block, [this] { return m_bConnected != 0; });
  if (m_bConnected == 0) return;
  const Core::UploadHeaderBytes header = Core::BuildUploadHeader(
      {static_cast<uint32_t>(fileBytes + Core::kUploadHeaderBytes), md5, m_szExt});
  m_pTcpClient->SendMsg(header.data(), static_cast<int>(header.size()));
}

void CUploadClient::SendBlocks(FILE* file, uint64_t fileBytes, char* block) {
  const auto goOn = [this] { return m_bConnected != 0; };
  const auto send = [this](int percent, std::string_view part) {
    ReportProgress(percent);
    if (Os::IsOrphan()) return -1;
    return m_pTcpClient->SendMsg(part.data(), static_cast<int>(part.size()));
  };
  const Core::FileBlocks blocks(fileBytes, Core::kUploadHeaderBytes);
  const Transfer::SendEnd end = Transfer::SendBlocks(file, blocks, block, goOn, send);
  if (end == Transfer::SendEnd::kReadFailed) {
    ReportUnreadable();
  } else if (end == Transfer::SendEnd::kSendFailed && !m_bEnding) {
    // The host that ends a transfer itself hears no more of it.
    Transfer::LogLine("Send file error.");
    ReportFailure(Transfer::kCutShort);
  }
}

void CUploadClient::OnConnect(void* client, ConnType type) {
  auto* self = static_cast<CUploadClient*>(client);
  if (type == CONN_SUCCESS) return self->OnConnected();
  // Taken before the callback, which may start the next upload or delete the object.
  const Os::FilePtr file = self->TakeFile();
  if (type == CONN_CLOSED) {
    self->m_bConnected = 0;
    if (self->m_progress != kAllSent) self->ReportFailure(Transfer::kCutShort);
  } else if (Transfer::IsFailedConnect(type)) {
    self->m_bConnected = 0;
    self->ReportFailure(Transfer::kNotConnected);
  }
}

void CUploadClient::OnConnected() {
  m_bConnected = 1;
  if (m_bEnding) m_bConnected = 0;
  CDateTime::SleepMilisecond(kPauseBeforeMs);
  SendFile();
}

void CUploadClient::OnMessage(void* client, const char* data, int len) {
  static_cast<CUploadClient*>(client)->OnMessage(data, len);
}

void CUploadClient::OnMessage(const char* data, int len) {
  std::string_view text;
  if (data != nullptr && len > 0) text = {data, static_cast<size_t>(len)};
  Answer answer;
  try {
    answer = ParseAnswer(text);
  } catch (const std::bad_alloc&) {
    LogUnparsed(text);
  }
  const Events events = CurrentEvents();
  const CStringEx localPath(m_localPath);
  if (events.onResult == nullptr) return;
  events.onResult(events.user, localPath, answer.storedName.c_str(), answer.code);
}

CUploadClient::Events CUploadClient::CurrentEvents() {
  const std::lock_guard lock(m_eventLock);
  return {m_onResult, m_onProgress, m_pUser};
}

Os::FilePtr CUploadClient::TakeFile() {
  return Os::FilePtr(m_pFile.exchange(nullptr));
}

// The texts are copies: a callback may delete the object.
void CUploadClient::ReportUnreadable() {
  Transfer::LogLine("Read file error.");
  ReportFailure(Transfer::kCutShort);
}

void CUploadClient::ReportFailure(unsigned int code) {
  const Events events = CurrentEvents();
  const CStringEx path(m_errorPath);
  if (events.onResult != nullptr) events.onResult(events.user, path, nullptr, code);
}

void CUploadClient::ReportProgress(int percent) {
  m_progress = percent;
  const Events events = CurrentEvents();
  const CStringEx path(m_localPath);
  if (events.onProgress != nullptr) events.onProgress(events.user, path, percent);
}

IUploadClient* IUploadClient::Create() {
  auto* client = new (std::nothrow) CUploadClient;
  if (client == nullptr || (client->m_pTcpClient != nullptr && client->m_pPing != nullptr)) {
    return client;
  }
  delete client;
  return nullptr;
}

void IUploadClient::Delete(IUploadClient* client) {
  delete client;
}

}  // namespace Tarn::Generic
