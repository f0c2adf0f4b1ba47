// Sends files to download clients.
#include "utility/DownloadServer.h"

#include <Tarn/Generic/AsyncLog.h>

#include <algorithm>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include "utility/Deque.h"
#include "utility/Transfer.h"
#include "utility/core/DownloadWire.h"
#include "utility/core/LogText.h"
#include "utility/os/StreamFile.h"

namespace Tarn::Generic {

namespace {

constexpr int kReceiveBufferBytes = 1048576;
constexpr int kMaxWaiting = 1024;  // requests of one connection
/// Of all connections, those included that have gone since.
constexpr int kMaxQueued = 1024 * kMaxWaiting;

void LogRequest(const _DownRequest& request) try {
  if (IAsyncLog* log = IAsyncLog::GetDefaultLogPtr()) {
    log->WriteLog(DEBUG,
                  "CDownloadServer::SendFile  22222222222222222222222222222 cid:%d req->file:%s",
                  static_cast<int>(request.cid), Core::PrintableText(request.file).c_str());
  }
} catch (const std::bad_alloc&) {
  // Not even enough memory to tell.
}

}  // namespace

/// One connection, as long as somebody refers to it.
struct CDownloadServer::Link {
  explicit Link(unsigned int id) : cid(id) {}

  /// Waits for a send in progress, which ends with the connection.
  void Retire() {
    const std::lock_guard lock(sending);
    retired = true;
  }

  const unsigned int cid;
  int waiting = 0;               // requests; guarded by the server's m_lock
  std::recursive_mutex sending;  // held during every send
  bool retired = false;          // the id may be another connection's; guarded by sending
};

_DownRequest::_DownRequest() : file{}, cid(0xFFFFFFFFu) {}

IDownloadServer::~IDownloadServer() = default;

CDownloadServer::CDownloadServer()
    : m_pTcpServer(ITcpServer::Create()),
      m_pDeque(IDeque::Create("CDownloadServer_deque")),
      m_bStarted(0),
      m_blockLen(static_cast<int>(Core::kTransferBlockBytes)),
      m_bRootSet(false),
      m_bStopping(false) {
  if (m_pTcpServer != nullptr) Configure();
  if (m_pDeque != nullptr) m_pDeque->RegisterEvent(this, OnDownProc);
}

CDownloadServer::~CDownloadServer() {
  Stop();
  ITcpServer::Delete(m_pTcpServer);
  if (m_pDeque != nullptr) DropRequests();
  IDeque::Delete(m_pDeque);
}

void CDownloadServer::Configure() {
  m_pTcpServer->SetMaxBufferLen(kReceiveBufferBytes);
  m_pTcpServer->SetProcType(PROTOCOL_STRING_RECV);
  m_pTcpServer->RegisterEvent(this, OnConnect, OnDisconnect, OnMessage);
}

bool CDownloadServer::Start(int port, int threadCount) {
  if (m_pTcpServer == nullptr || m_pDeque == nullptr) return false;
  if (!m_pDeque->Start(threadCount)) return false;
  // The settings and callbacks are gone after a stop or a failed start.
  Configure();
  // Before the first request can come: a worker sends only while it is set.
  m_bStarted = 1;
  if (m_pTcpServer->Start(port) == 1) return true;
  m_bStarted = 0;
  m_pDeque->Stop();
  return false;
}

bool CDownloadServer::Stop() {
  if (m_bStarted.exchange(0) == 0) return true;
  m_bStopping = true;
  // First: it ends the sends that workers stand in.
  m_pTcpServer->Stop();
  m_pDeque->Stop();
  DropRequests();
  m_bStopping = false;
  return true;
}

/// No disconnect event will come any more, and the ids will return with other clients.
void CDownloadServer::DropRequests() {
  auto* queue = static_cast<CDeque*>(m_pDeque);
  while (!queue->IsDequeEmpty())
    delete static_cast<_DownRequest*>(queue->PopOneFromDeque());
  const CAutoLocker locker(m_lock);
  m_origins.clear();
  m_linksById.clear();
  m_links.clear();
}

bool CDownloadServer::SetPath(const char* root) {
  CStringEx taken;
  if (!Transfer::TakeFolder(root, taken)) return false;
  const CAutoLocker locker(m_lock);
  m_root = taken;
  // Nothing is left of the root folder itself, and of backslashes, which do not name it.
  m_bRootSet = !taken.IsEmpty() || root[0] == '/';
  return true;
}

void CDownloadServer::OnConnect(void* server, unsigned int sid, unsigned int cid, char* ip) {
  static_cast<CDownloadServer*>(server)->OnConnect(sid, cid, ip);
}

void CDownloadServer::OnDisconnect(void* server, unsigned int sid, unsigned int cid) {
  static_cast<CDownloadServer*>(server)->OnDisconnect(sid, cid);
}

void CDownloadServer::OnMessage(void* server, unsigned int sid, unsigned int cid, const char* data,
                                int len) {
  static_cast<CDownloadServer*>(server)->OnMessage(sid, cid, data, len);
}

void CDownloadServer::OnConnect(unsigned int sid, unsigned int cid, char* ip) {
  LinkPtr stale;
  bool added = false;
  {
    const CAutoLocker locker(m_lock);
    if (IAsyncLog* log = IAsyncLog::GetDefaultLogPtr()) {
      log->WriteLog(ERROR, "ConnectorLogs  CDownloadServer::OnConnect sid:%d cid:%d ip:%s",
                    static_cast<int>(sid), static_cast<int>(cid), ip == nullptr ? "" : ip);
    }
    // An earlier connection of this number ended without an event.
    stale = TakeLinkLocked(cid);
    added = AddLinkLocked(cid);
  }
  if (stale != nullptr) stale->Retire();
  if (!added && m_pTcpServer != nullptr) m_pTcpServer->Removeclient(static_cast<int>(cid));
}

void CDownloadServer::OnDisconnect(unsigned int sid, unsigned int cid) {
  LinkPtr link;
  {
    const CAutoLocker locker(m_lock);
    link = TakeLinkLocked(cid);
    if (link == nullptr) return;
    if (IAsyncLog* log = IAsyncLog::GetDefaultLogPtr()) {
      log->WriteLog(ERROR, "ConnectorLogs  CDownloadServer::OnDisconnect sid:%d cid:%d",
                    static_cast<int>(sid), static_cast<int>(cid));
    }
  }
  link->Retire();
}

void CDownloadServer::OnMessage(unsigned int /*sid*/, unsigned int cid, const char* data, int len) {
  std::unique_ptr<_DownRequest> request(new (std::nothrow) _DownRequest);
  if (request == nullptr) return;
  std::string_view text;
  if (data != nullptr && len > 0) text = Core::UpToNul({data, static_cast<size_t>(len)});
  Core::CopyText(request->file, text);
  request->cid = cid;
  Transfer::LogLine("CDonwnloadServer::OnMessage  222222222222222222222");
  if (!Admit(*request)) return;
  if (static_cast<CDeque*>(m_pDeque)->TryPush(request.get())) {
    static_cast<void>(request.release());
  } else {
    Begin(*request);
    Forget(*request);
  }
}

void CDownloadServer::OnDownProc(void* server, void* request) {
  auto* self = static_cast<CDownloadServer*>(server);
  const std::unique_ptr<_DownRequest> owned(static_cast<_DownRequest*>(request));
  if (owned == nullptr) return;
  self->WakeNextWorker();
  if (self->Begin(*owned)) self->SendFile(owned.get());
  self->Forget(*owned);
}

bool CDownloadServer::IsExistLink(int cid) {
  const CAutoLocker locker(m_lock);
  const auto id = static_cast<unsigned int>(cid);
  return std::find(m_links.begin(), m_links.end(), id) != m_links.end();
}

bool CDownloadServer::AddLinkLocked(unsigned int cid) try {
  m_linksById[cid] = std::make_shared<Link>(cid);
  m_links.push_back(cid);
  return true;
} catch (const std::bad_alloc&) {
  m_linksById.erase(cid);
  return false;
}

CDownloadServer::LinkPtr CDownloadServer::TakeLinkLocked(unsigned int cid) {
  LinkPtr link = FindLinkLocked(cid);
  m_linksById.erase(cid);
  m_links.remove(cid);
  return link;
}

CDownloadServer::LinkPtr CDownloadServer::FindLinkLocked(unsigned int cid) {
  const auto found = m_linksById.find(cid);
  return found == m_linksById.end() ? nullptr : found->second;
}

/// The link that a request came through; for one that came otherwise, the one that has its id.
CDownloadServer::LinkPtr CDownloadServer::LinkOf(const _DownRequest& request) {
  const CAutoLocker locker(m_lock);
  const auto found = m_origins.find(&request);
  return found == m_origins.end() ? FindLinkLocked(request.cid) : found->second;
}

bool CDownloadServer::IsCurrent(const LinkPtr& link) {
  const CAutoLocker locker(m_lock);
  return link != nullptr && FindLinkLocked(link->cid) == link;
}

/// Remembers where a request comes from; false when it is not to wait.
bool CDownloadServer::Admit(const _DownRequest& request) try {
  if (m_pDeque == nullptr || static_cast<CDeque*>(m_pDeque)->IsBeyondMax(kMaxQueued)) return false;
  const CAutoLocker locker(m_lock);
  const LinkPtr link = FindLinkLocked(request.cid);
  if (link == nullptr || link->waiting >= kMaxWaiting) return false;
  m_origins[&request] = link;
  ++link->waiting;
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

/// A request waits no more; false when its connection is gone.
bool CDownloadServer::Begin(const _DownRequest& request) {
  const LinkPtr link = LinkOf(request);
  if (!IsCurrent(link)) return false;
  const CAutoLocker locker(m_lock);
  if (m_origins.count(&request) != 0) --link->waiting;
  return !m_bStopping;
}

void CDownloadServer::Forget(const _DownRequest& request) {
  const CAutoLocker locker(m_lock);
  m_origins.erase(&request);
}

/// Requests that come at once wake one worker, which would serve them all while the others sleep:
/// one client that does not read would hold up those behind it. An empty item wakes the next worker
/// and is not delivered.
void CDownloadServer::WakeNextWorker() {
  if (!static_cast<CDeque*>(m_pDeque)->IsDequeEmpty()) m_pDeque->PushOneData(nullptr);
}

void CDownloadServer::SendFile(_DownRequest* request) {
  if (request == nullptr) return;
  LogRequest(*request);
  const LinkPtr link = LinkOf(*request);
  const Os::MallocPtr<char> block = Transfer::NewBlock();
  const Os::FilePtr file = block ? OpenRequested(request->file) : nullptr;
  const int64_t size = file ? Os::FileLength(file.get()) : -1;
  if (!Core::IsTransferable(size, Core::kDownloadHeaderBytes)) {
    Transfer::LogLine(
        "CDownloadServer::SendFile  22222222222222222222222222222 fp is null !!!!!!!!!!!!1");
    SendHeader(link, 0, Transfer::kNoSuchFile, {});
    return;
  }
  SendOpenFile(link, file.get(), static_cast<uint64_t>(size), block.get());
  Transfer::LogLine(
      "CDownloadServer::SendFile   22222222222222222222222222222 send over  !!!!!!!!!!!!1");
}

void CDownloadServer::SendOpenFile(const LinkPtr& link, FILE* file, uint64_t fileBytes,
                                   char* block) {
  // A worker that reads a long file must not hold up a stop, nor read on for nobody.
  const auto wanted = [&] { return !m_bStopping && IsCurrent(link); };
  const std::string md5 = Transfer::FileMd5(file, fileBytes, block, wanted);
  if (!wanted()) return;
  SendHeader(link, fileBytes, Transfer::kDone, md5);
  Transfer::SendBlocks(
      file, Core::FileBlocks(fileBytes, Core::kDownloadHeaderBytes), block,
      [&] { return m_bStarted != 0 && IsCurrent(link); },
      [&](int /*percent*/, std::string_view part) { return Send(link, part); });
}

void CDownloadServer::SendHeader(const LinkPtr& link, uint64_t fileBytes, unsigned int error,
                                 std::string_view md5) {
  const auto total = static_cast<uint32_t>(fileBytes + Core::kDownloadHeaderBytes);
  const Core::DownloadHeaderBytes header = Core::BuildDownloadHeader({total, error, md5});
  // Not looked at: a connection that does not take the header fails the first block, too.
  Send(link, {header.data(), header.size()});
}

/// -1 when the connection is gone, even if another one has its id by now.
int CDownloadServer::Send(const LinkPtr& link, std::string_view bytes) {
  if (link == nullptr) return -1;
  const std::lock_guard lock(link->sending);
  if (link->retired) return -1;
  return m_pTcpServer->SendMsg(static_cast<int>(link->cid), bytes.data(),
                               static_cast<int>(bytes.size()));
}

Os::FilePtr CDownloadServer::OpenRequested(const char* text) try {
  std::string root;
  {
    const CAutoLocker locker(m_lock);
    if (!m_bRootSet) return nullptr;
    root = m_root.GetData();
  }
  root += '/';
  const std::string path = Core::DownloadPath(text);
  switch (Core::ReachOf(path)) {
    case Core::PathReach::kPlain:
      return Os::OpenRegularFile((root + path).c_str());
    case Core::PathReach::kClimbs:
      return Os::OpenRegularFileBeneath(root.c_str(), path.c_str());
    case Core::PathReach::kLeaves:
      break;
  }
  return nullptr;
} catch (const std::bad_alloc&) {
  return nullptr;
}

IDownloadServer* IDownloadServer::Create() {
  auto* server = new (std::nothrow) CDownloadServer;
  if (server == nullptr || (server->m_pTcpServer != nullptr && server->m_pDeque != nullptr)) {
    return server;
  }
  delete server;
  return nullptr;
}

void IDownloadServer::Delete(IDownloadServer* server) {
  delete server;
}

}  // namespace Tarn::Generic
