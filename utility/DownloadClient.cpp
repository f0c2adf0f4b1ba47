// Fetches files from a download server.
#include "utility/DownloadClient.h"

#include <Tarn/Generic/AsyncLog.h>
#include <Tarn/Generic/Directory.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "utility/Transfer.h"
#include "utility/core/DownloadWire.h"
#include "utility/core/WholeNumber.h"
#include "utility/os/StreamFile.h"
#include "utility/os/ThreadOwner.h"

namespace Tarn::Generic {

namespace {

constexpr double kAllReceived = 100.0;

const char* OrEmpty(const char* text) {
  return text == nullptr ? "" : text;
}

}  // namespace

IDownloadClient::~IDownloadClient() = default;

CDownloadClient::CDownloadClient()
    : m_pTcpClient(ITcpClient::Create()),
      m_pPing(IPing::Create()),
      m_bConnected(0),
      m_szIp{},
      m_port(0),
      m_onResult(nullptr),
      m_onProgress(nullptr),
      m_pUser(nullptr),
      m_szMd5{},
      // Left untouched but for the header: a client that waits costs one page of it.
      m_buffer(Transfer::NewBlock().release()),
      m_maxlen(static_cast<int>(Core::kTransferBlockBytes)),
      m_len(0),
      m_rate(0),
      m_fileLen(0),
      m_pFile(nullptr),
      errorcode(0),
      m_bEnding(false) {}

CDownloadClient::~CDownloadClient() {
  DisConnect();
  CloseFile();
  ITcpClient::Delete(m_pTcpClient);
  IPing::Delete(m_pPing);
  std::free(m_buffer);
}

void CDownloadClient::RegisterEvent(void (*onResult)(void*, const char*, unsigned int),
                                    void (*onProgress)(void*, const char*, int), void* user) {
  const std::lock_guard lock(m_eventLock);
  m_onResult = onResult;
  m_onProgress = onProgress;
  m_pUser = user;
}

bool CDownloadClient::Down(char* ip, int port, const char* file, const char* localDir,
                           const char* subDir) {
  Transfer::LogLine("CDownloadClient::Down 1111111111111111");
  Clear();
  if (file == nullptr) return false;
  m_file = file;
  m_subDir = OrEmpty(subDir);
  m_localDir = OrEmpty(localDir);
  Transfer::TrimFolder(m_localDir);
  if (!CDirectory().CreateDir(m_localDir)) {
    Transfer::LogLine("Failure to create download directory.");
    return false;
  }
  Core::CopyText(m_szIp, OrEmpty(ip));
  m_port = port;
  return Connect();
}

void CDownloadClient::Clear() {
  // Before anything else: deliveries that come from now on belong to nobody.
  m_bEnding = true;
  Transfer::LogLine("CDownloadClient::Clear 1111111111111111");
  {
    const std::lock_guard lock(m_fileLock);
    Core::CopyText(m_szMd5, "");
    CloseFile();
  }
  DisConnect();
  const std::lock_guard lock(m_fileLock);
  m_len = 0;
  m_fileLen = 0;
  m_rate = 0;
  errorcode = 0;
  if (m_buffer != nullptr) std::memset(m_buffer, 0, Core::kDownloadHeaderBytes);
}

bool CDownloadClient::Connect() {
  if (m_szIp[0] == '\0' || m_port == 0 || m_pTcpClient == nullptr) return false;
  m_bEnding = false;
  m_pTcpClient->SetMaxBufferLen(m_maxlen);
  m_pTcpClient->SetProcType(PROTOCOL_STRING_SEND);
  m_pTcpClient->RegisterEvent(this, OnConnect, OnMessage);
  Transfer::LogLine("CDownloadClient::Connect");
  return m_pTcpClient->Connect(m_szIp, m_port, Transfer::kThreadedConnect) == 1;
}

void CDownloadClient::DisConnect() {
  m_bEnding = true;
  m_bConnected = 0;
  if (m_pTcpClient != nullptr) m_pTcpClient->Disconnect();
}

bool CDownloadClient::CreateLocalFile() try {
  const std::lock_guard lock(m_fileLock);
  Transfer::LogLine("CDownloadClient::CreateLocalFile 1111111111111111");
  const std::string path = std::string(m_localDir.GetData()) + "/" + m_file.GetData();
  m_localPath = path.c_str();
  // Short of memory the text stays another file's.
  if (path != m_localPath.GetData()) return false;
  m_pFile = Os::RewriteRegularFile(m_localPath).release();
  return m_pFile != nullptr;
} catch (const std::bad_alloc&) {
  return false;
}

bool CDownloadClient::CloseFile() {
  const std::lock_guard lock(m_fileLock);
  Transfer::LogLine("CDownloadClient::CloseFile 1111111111111111");
  FILE* file = std::exchange(m_pFile, nullptr);
  if (file == nullptr) return true;
  return Transfer::CloseAndCheck(file, m_localPath, m_szMd5, Transfer::EmptyFile::kDelete);
}

void CDownloadClient::CalcRate() {
  std::unique_lock lock(m_fileLock);
  const int received = m_len;
  const int expected = m_fileLen;
  const double rate = m_rate = Core::DownloadRate(received, expected);
  lock.unlock();
  ReportProgress(Core::CutToInt32(rate));
  if (Os::IsOrphan()) return;
  if (IAsyncLog* log = IAsyncLog::GetDefaultLogPtr()) {
    log->WriteLog(DEBUG, "CDownloadClient::CalcRate m_len:%d  m_fileLen:%d  %f", received, expected,
                  rate);
  }
  const Core::DownloadVerdict verdict = Core::JudgeDownload(received, expected);
  if (verdict == Core::DownloadVerdict::kGoOn) return;
  lock.lock();
  // The host has closed the file while the callback ran: there is nothing left to report on.
  if (m_bEnding) return;
  const bool whole = CloseFile() && verdict == Core::DownloadVerdict::kComplete;
  lock.unlock();
  ReportResult(whole ? Transfer::kDone : Transfer::kMd5Differs);
}

void CDownloadClient::OnConnect(void* client, ConnType type) {
  auto* self = static_cast<CDownloadClient*>(client);
  Transfer::LogLine("CDownloadClient::OnConnect   1111111111111111");
  if (type == CONN_SUCCESS) {
    self->OnConnected();
  } else if (type == CONN_CLOSED) {
    self->OnClosed();
  } else if (Transfer::IsFailedConnect(type)) {
    self->m_bConnected = 0;
    self->ReportResult(Transfer::kNotConnected);
  }
}

void CDownloadClient::OnConnected() try {
  // In this order: DisConnect raises the one flag and then clears the other.
  m_bConnected = 1;
  if (m_bEnding) m_bConnected = 0;
  const std::string request = Core::DownloadRequest(m_file.GetData(), m_subDir.GetData());
  if (IAsyncLog* log = IAsyncLog::GetDefaultLogPtr()) {
    log->WriteLog(DEBUG, "CDownloadClient::OnConnect  fullFile:%s", request.c_str());
  }
  // Not looked at: a connection that does not take the request is told as closed.
  m_pTcpClient->SendMsg(request.c_str(), static_cast<int>(request.size()));
} catch (const std::bad_alloc&) {
  // Without a request the server has nothing to send; the host ends the transfer.
}

void CDownloadClient::OnClosed() {
  {
    const std::lock_guard lock(m_fileLock);
    m_bConnected = 0;
    if (m_bEnding || m_rate == kAllReceived) return;
    CloseFile();
  }
  ReportResult(Transfer::kCutShort);
}

void CDownloadClient::OnMessage(void* client, const char* data, int len) {
  static_cast<CDownloadClient*>(client)->OnMessage(data, len);
}

void CDownloadClient::OnMessage(const char* data, int len) try {
  std::string_view delivery;
  if (data != nullptr && len > 0) delivery = {data, static_cast<size_t>(len)};
  switch (TakeDelivery(delivery, len)) {
    case Next::kNothing:
      break;
    case Next::kReportError:
      ReportResult(errorcode);
      break;
    case Next::kCalcRate:
      CalcRate();
      break;
  }
} catch (...) {
  // From a host's callback, say. The object may be gone.
  Transfer::LogLine("CDownloadClient::OnMessage Expection");
}

CDownloadClient::Next CDownloadClient::TakeDelivery(std::string_view delivery, int len) {
  const std::lock_guard lock(m_fileLock);
  if (IAsyncLog* log = IAsyncLog::GetDefaultLogPtr()) {
    log->WriteLog(DEBUG,
                  "CDownloadClient::OnMessage 1111111111111111  errorcode:%d m_maxlen:%d m_len:%d "
                  "m_fileLen:%d len:%d buffer:%p",
                  static_cast<int>(errorcode), m_maxlen, m_len, m_fileLen, len,
                  static_cast<void*>(m_buffer));
  }
  if (m_bEnding || m_buffer == nullptr) return Next::kNothing;
  while (true) {
    Core::DownloadState state{PhaseNow(), m_len, m_fileLen};
    std::string_view part;
    const Core::DownloadStep step =
        Core::NextDownloadStep(state, m_buffer, static_cast<size_t>(m_maxlen), delivery, part);
    m_len = state.received;
    m_fileLen = state.expected;
    switch (step) {
      case Core::DownloadStep::kMore:
        return Next::kNothing;
      case Core::DownloadStep::kFailed:
        errorcode = Core::ParseDownloadHeader(m_buffer).error;
        return Next::kReportError;
      case Core::DownloadStep::kCreate:
        Core::CopyText(m_szMd5, Core::ParseDownloadHeader(m_buffer).md5);
        if (CreateLocalFile()) break;
        // What came with the header counts, as the log shows, although there is no place for it.
        m_len = static_cast<int>(delivery.size());
        errorcode = Transfer::kNotCreated;
        return Next::kReportError;
      case Core::DownloadStep::kStore:
        Transfer::Store(m_pFile, part, m_szMd5);
        return Next::kCalcRate;
    }
  }
}

Core::DownloadPhase CDownloadClient::PhaseNow() const {
  if (errorcode != 0) return Core::DownloadPhase::kOver;
  return m_pFile != nullptr ? Core::DownloadPhase::kData : Core::DownloadPhase::kHeader;
}

CDownloadClient::Events CDownloadClient::CurrentEvents() {
  const std::lock_guard lock(m_eventLock);
  return {m_onResult, m_onProgress, m_pUser};
}

// The texts are copies: a callback may delete the object.
void CDownloadClient::ReportResult(unsigned int code) {
  const Events events = CurrentEvents();
  const CStringEx file(m_file);
  if (events.onResult != nullptr) events.onResult(events.user, file, code);
}

void CDownloadClient::ReportProgress(int percent) {
  const Events events = CurrentEvents();
  const CStringEx file(m_file);
  if (events.onProgress != nullptr) events.onProgress(events.user, file, percent);
}

IDownloadClient* IDownloadClient::Create() {
  auto* client = new (std::nothrow) CDownloadClient;
  if (client == nullptr) return nullptr;
  const bool complete = client->m_pTcpClient != nullptr && client->m_pPing != nullptr;
  if (complete && client->m_buffer != nullptr) return client;
  delete client;
  return nullptr;
}

void IDownloadClient::Delete(IDownloadClient* client) {
  delete client;
}

}  // namespace Tarn::Generic
