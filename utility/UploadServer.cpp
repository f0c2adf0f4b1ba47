// Receives files from upload clients.
#include "utility/UploadServer.h"

#include <Tarn/Generic/AsyncLog.h>
#include <Tarn/Generic/DateTime.h>
#include <cjson/cJSON.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "utility/Transfer.h"
#include "utility/core/UploadWire.h"
#include "utility/os/StreamFile.h"

namespace Tarn::Generic {

namespace {

constexpr int kReceiveBufferBytes = 1048576;
constexpr size_t kSpareHeaderBytes = 64;
constexpr int kNumbers = 1000;  // that three digits can show

struct JsonDeleter {
  void operator()(cJSON* node) const { cJSON_Delete(node); }
  void operator()(char* text) const { cJSON_free(text); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDeleter>;
using JsonText = std::unique_ptr<char, JsonDeleter>;

/// {"err":0,"file":"NAME"}; null when memory is short.
JsonText AnswerText(const char* name) {
  const JsonPtr answer(cJSON_CreateObject());
  if (!answer || cJSON_AddNumberToObject(answer.get(), "err", 0) == nullptr ||
      cJSON_AddStringToObject(answer.get(), "file", name) == nullptr) {
    return nullptr;
  }
  return JsonText(cJSON_PrintUnformatted(answer.get()));
}

Core::UploadPhase PhaseOf(const _UpRequest& request) {
  if (request.file != nullptr) return Core::UploadPhase::kData;
  return request.name[0] == '\0' ? Core::UploadPhase::kHeader : Core::UploadPhase::kDone;
}

Core::UploadTime LocalNow() {
  const _SYSTEMTIME now = CDateTime().GetTime();
  return {now.year, now.month, now.day, now.hour, now.minute, now.second, now.milliseconds};
}

/// A number below 1000; every process draws its own sequence.
int DrawNumber() {
  // Where the system has placed the library differs from process to process.
  static std::atomic<uint64_t> index{static_cast<uint64_t>(CDateTime::GetMilisecondTime()) +
                                     reinterpret_cast<uintptr_t>(&index)};
  return Core::UploadNumber(index++);
}

}  // namespace

_UpRequest::_UpRequest()
    : name{},
      path{},
      cid(0xFFFFFFFFu),
      header(nullptr),
      received(0),
      expected(0),
      file(nullptr),
      md5{},
      ext{} {}

IUploadServer::~IUploadServer() = default;

CUploadServer::CUploadServer()
    : m_pTcpServer(ITcpServer::Create()), m_bStarted(0), m_blockLen(kReceiveBufferBytes) {
  if (m_pTcpServer != nullptr) Configure();
}

CUploadServer::~CUploadServer() {
  Stop();
  ITcpServer::Delete(m_pTcpServer);
  while (!m_requests.empty())
    DropLocked(m_requests.begin());
}

void CUploadServer::Configure() {
  m_pTcpServer->SetMaxBufferLen(kReceiveBufferBytes);
  m_pTcpServer->SetProcType(PROTOCOL_STRING_SEND);
  m_pTcpServer->RegisterEvent(this, OnConnect, OnDisconnect, OnMessage);
}

bool CUploadServer::Start(int port) {
  if (m_pTcpServer == nullptr) return false;
  // A server that runs refuses a second start, and must stay stoppable.
  if (m_bStarted != 0) return m_pTcpServer->Start(port) == 1;
  // The settings and callbacks are gone after a stop or a failed start.
  Configure();
  m_bStarted = m_pTcpServer->Start(port) == 1 ? 1 : 0;
  return m_bStarted != 0;
}

bool CUploadServer::Stop() {
  if (m_bStarted.exchange(0) == 0) return true;
  m_pTcpServer->Stop();
  // No disconnect event will come any more, and the numbers will return with other clients.
  const CAutoLocker locker(m_lock);
  while (!m_requests.empty())
    DropLocked(m_requests.begin());
  return true;
}

bool CUploadServer::SetPath(const char* folder) {
  CStringEx taken;
  if (!Transfer::TakeFolder(folder, taken)) return false;
  const CAutoLocker locker(m_lock);
  m_folder = taken;
  return true;
}

void CUploadServer::OnConnect(void* server, unsigned int sid, unsigned int cid, char* ip) {
  static_cast<CUploadServer*>(server)->OnConnect(sid, cid, ip);
}

void CUploadServer::OnDisconnect(void* server, unsigned int sid, unsigned int cid) {
  static_cast<CUploadServer*>(server)->OnDisconnect(sid, cid);
}

void CUploadServer::OnMessage(void* server, unsigned int sid, unsigned int cid, const char* data,
                              int len) {
  static_cast<CUploadServer*>(server)->OnMessage(sid, cid, data, len);
}

void CUploadServer::OnConnect(unsigned int sid, unsigned int cid, char* ip) {
  const CAutoLocker locker(m_lock);
  if (IAsyncLog* log = IAsyncLog::GetDefaultLogPtr()) {
    log->WriteLog(ERROR, "ConnectorLogs  CUploadServer::OnConnect sid:%d cid:%d ip:%s",
                  static_cast<int>(sid), static_cast<int>(cid), ip == nullptr ? "" : ip);
  }
  // An earlier connection of this number ended without an event.
  const Position stale = FindLocked(cid);
  if (stale != m_requests.end()) DropLocked(stale);
  if (!AppendLocked(cid) && m_pTcpServer != nullptr) {
    m_pTcpServer->Removeclient(static_cast<int>(cid));
  }
}

void CUploadServer::OnDisconnect(unsigned int sid, unsigned int cid) {
  const CAutoLocker locker(m_lock);
  const Position request = FindLocked(cid);
  if (request == m_requests.end()) return;
  if (IAsyncLog* log = IAsyncLog::GetDefaultLogPtr()) {
    log->WriteLog(ERROR, "ConnectorLogs  CUploadServer::OnDisconnect sid:%d cid:%d",
                  static_cast<int>(sid), static_cast<int>(cid));
  }
  DropLocked(request);
}

void CUploadServer::OnMessage(unsigned int /*sid*/, unsigned int cid, const char* data, int len) {
  const CAutoLocker locker(m_lock);
  const Position request = FindLocked(cid);
  if (request == m_requests.end() || ProcData(&*request, data, len)) return;
  // A removal on request raises no disconnect event: nobody else would free the record.
  if (m_pTcpServer != nullptr) m_pTcpServer->Removeclient(static_cast<int>(cid));
  DropLocked(request);
}

CUploadServer::Position CUploadServer::FindLocked(unsigned int cid) {
  return std::find_if(m_requests.begin(), m_requests.end(),
                      [cid](const _UpRequest& request) { return request.cid == cid; });
}

void CUploadServer::DropLocked(Position position) {
  _UpRequest request = *position;
  m_requests.erase(position);
  std::free(request.header);
  CloseFile(&request);
}

bool CUploadServer::AppendLocked(unsigned int cid) {
  // Left untouched: a connection that sends nothing costs one page of it.
  Os::MallocPtr<char> header(
      static_cast<char*>(std::malloc(static_cast<size_t>(m_blockLen) + kSpareHeaderBytes)));
  if (!header) return false;
  try {
    m_requests.emplace_back();
  } catch (const std::bad_alloc&) {
    return false;
  }
  m_requests.back().cid = cid;
  m_requests.back().header = header.release();
  return true;
}

bool CUploadServer::ProcData(_UpRequest* request, const char* data, int len) {
  if (request == nullptr || request->header == nullptr) return false;
  if (data == nullptr || len <= 0) return true;
  std::string_view delivery(data, static_cast<size_t>(len));
  while (true) {
    Core::UploadState state{PhaseOf(*request), request->received, request->expected};
    std::string_view part;
    const Core::UploadStep step = Core::NextUploadStep(state, request->header, delivery, part);
    request->received = state.received;
    request->expected = state.expected;
    switch (step) {
      case Core::UploadStep::kMore:
        return true;
      case Core::UploadStep::kReject:
        return false;
      case Core::UploadStep::kCreate:
        if (!BeginFile(request)) return false;
        break;
      case Core::UploadStep::kStore:
        Transfer::Store(request->file, part, request->md5);
        break;
      case Core::UploadStep::kStoreAndFinish:
        Transfer::Store(request->file, part, request->md5);
        return FinishFile(request);
    }
  }
}

bool CUploadServer::BeginFile(_UpRequest* request) {
  const Core::UploadHeader header = Core::ParseUploadHeader(request->header);
  Core::CopyText(request->md5, header.md5);
  Core::CopyText(request->ext, header.ext);
  if (CreateLocalFile(request)) return true;
  SendMsg(static_cast<int>(request->cid), request->name, Transfer::kNotCreated);
  return false;
}

bool CUploadServer::FinishFile(_UpRequest* request) {
  const bool matches = CloseFile(request);
  SendMsg(static_cast<int>(request->cid), request->name,
          matches ? Transfer::kDone : Transfer::kMd5Differs);
  return matches;
}

void CUploadServer::SendMsg(int cid, char* name, int /*code*/) {
  // Kept: "err" is 0 whatever the code. Clients take the stored name from every answer.
  const JsonText text = AnswerText(name == nullptr ? "" : name);
  if (!text || m_pTcpServer == nullptr) return;
  m_pTcpServer->SendMsg(cid, text.get(), static_cast<int>(std::strlen(text.get())));
}

bool CUploadServer::CreateLocalFile(_UpRequest* request) try {
  const Core::UploadTime now = LocalNow();
  const int first = DrawNumber();
  for (int i = 0; i < kNumbers; ++i) {
    const std::string name = Core::UploadName(now, (first + i) % kNumbers, request->ext);
    // Kept: a backslash, so that the file lies beside the save folder. Hosts look for it there.
    const std::string path = std::string(m_folder.GetData()) + "\\" + name;
    Core::CopyText(request->name, name);
    Core::CopyText(request->path, path);
    // A path that does not fit would name another file than the one announced.
    if (!Core::IsUploadExtension(request->ext) || path.size() >= sizeof request->path) return false;
    request->file = Os::CreateNewFile(request->path).release();
    if (request->file != nullptr) return true;
    if (errno != EEXIST) return false;
  }
  return false;
} catch (const std::bad_alloc&) {
  return false;
}

bool CUploadServer::CloseFile(_UpRequest* request) {
  if (request == nullptr || request->file == nullptr) return true;
  FILE* file = std::exchange(request->file, nullptr);
  return Transfer::CloseAndCheck(file, request->path, request->md5, Transfer::EmptyFile::kKeep);
}

IUploadServer* IUploadServer::Create() {
  auto* server = new (std::nothrow) CUploadServer;
  if (server == nullptr || server->m_pTcpServer != nullptr) return server;
  delete server;
  return nullptr;
}

void IUploadServer::Delete(IUploadServer* server) {
  delete server;
}

}  // namespace Tarn::Generic
