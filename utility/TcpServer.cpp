// IPv4 TCP server: one accept thread, one read thread for all clients.
#include "utility/TcpServer.h"

#include <Tarn/Generic/DateTime.h>
#include <Tarn/Generic/Log.h>
#include <Tarn/Generic/StringEx.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "utility/Deque.h"
#include "utility/os/Socket.h"

namespace Tarn {
namespace Generic {

namespace {

constexpr size_t kMaxClients = 1024;
constexpr int kBacklog = 4096;
constexpr int kWaitMs = 1000;
constexpr unsigned long kShortOfResourcesPauseMs = 50;

using BufferPtr = std::unique_ptr<char, Core::ReceiveBufferFreer>;

/// A callback on the read thread that stops its own server still looks at the message in the
/// buffer: buffers that it frees live until the thread ends.
thread_local std::vector<BufferPtr> buffersOfOrphan;

/// Takes over the descriptor, unless memory is short.
Os::ConnectionPtr NewConnection(int fd) {
  Os::Descriptor owned(fd);
  try {
    return std::make_shared<Os::Connection>(std::move(owned));
  } catch (const std::bad_alloc&) {
    static_cast<void>(owned.Release());
    return nullptr;
  }
}

}  // namespace

struct CTcpServer::Events {
  void* user;
  void (*onConnect)(void*, unsigned int, unsigned int, char*);
  void (*onDisconnect)(void*, unsigned int, unsigned int);
  void (*onMsg)(void*, unsigned int, unsigned int, const char*, int);
};

/// The id as the caller gave it, and which connection had it then: 0 for none.
struct CTcpServer::RemovalRequest {
  unsigned int id;
  uint64_t generation;
};

ITcpServer::~ITcpServer() = default;

CTcpServer::CTcpServer() {
  m_removeDeque = IDeque::Create("CTcpServer_remove_deque");
  if (m_removeDeque == nullptr) throw std::bad_alloc();
  m_removeDeque->RegisterEvent(this, OnRemoveProc);
  m_onDisconnect = nullptr;
  ResetField(1);
}

CTcpServer::~CTcpServer() {
  CTcpServer::Stop();
  JoinThreads();
  {
    const CAutoLocker lock(m_clientLock);
    LeaveClientsLocked();
    m_leftOpen.CloseAll();
  }
  DrainRemovals();
  IDeque::Delete(m_removeDeque);
}

void CTcpServer::RegisterEvent(void* user,
                               void (*onConnect)(void*, unsigned int, unsigned int, char*),
                               void (*onDisconnect)(void*, unsigned int, unsigned int),
                               void (*onMsg)(void*, unsigned int, unsigned int, const char*, int)) {
  const std::lock_guard lock(m_eventLock);
  m_pUser = user;
  m_onConnect = onConnect;
  m_onDisconnect = onDisconnect;
  m_onMsg = onMsg;
}

int CTcpServer::Start(int port) {
  if (m_bReading != 0) return 0;
  JoinThreads();
  DrainRemovals();
  {
    const CAutoLocker lock(m_clientLock);
    m_leftOpen.CloseAll();
  }
  m_port = port;
  if (InitSocket() == 0 && m_readiness.Open() == 0) {
    CStringEx name;
    name.Format("CTcpServer_AcceptThreadTask port:%d", port);
    // Raised here and not on the new thread, so that Stop works from the first instant.
    m_bReading = 1;
    if (Os::StartThread(m_acceptThread, AcceptThreadTask, this, name.c_str()) == 0) {
      m_removeDeque->Start(1);
      return 1;
    }
  }
  ResetField(0);
  return 0;
}

void CTcpServer::Stop() {
  if (m_bReading.exchange(0) == 0) return;
  const bool onReadThread = Os::IsSelf(m_readThread);
  // Callbacks of the read thread hold the lock that the other threads need in order to end.
  if (onReadThread) m_clientLock.UnLock();
  m_connections.MarkAllEnding();
  JoinThreads();
  RunRemovals();
  ResetField(0);
  m_removeDeque->Stop();
  DrainRemovals();
}

int CTcpServer::SendMsg(int cid, const char* data, int len) {
  if (m_listenfd <= 0) return -1;
  const Core::OutgoingFrame frame(Core::FormsOf(Core::Side::kServer, m_procType).send,
                                  m_bEndian != 0, data, len);
  if (!frame.Valid()) return -1;
  const int result = WriteSfd(cid, frame.Data(), frame.Length());
  return result > 0 ? result : -1;
}

int CTcpServer::Removeclient(int cid) {
  const auto connection = m_connections.Find(cid);
  const uint64_t generation = connection == nullptr ? 0 : connection->Generation();
  // Marked at once: a message callback that is stuck in a send to this client holds the list, which
  // the worker needs.
  if (connection != nullptr) connection->MarkEnding();
  auto* request = new (std::nothrow) RemovalRequest{static_cast<unsigned int>(cid), generation};
  if (request == nullptr) return 1;
  if (!static_cast<CDeque*>(m_removeDeque)->TryPush(request)) delete request;
  return 1;
}

void CTcpServer::SetMaxBufferLen(int len) {
  m_maxBufferLen = len;
}

void CTcpServer::SetProcType(protocol_type type) {
  m_procType = type;
}

void CTcpServer::DisableEndian() {
  m_bEndian = 0;
}

void CTcpServer::OnRemoveProc(void* user, void* data) {
  static_cast<CTcpServer*>(user)->OnRemoveProc(data);
}

// Kept: no disconnect callback for a removal that was asked for; owners have dropped their records.
void CTcpServer::OnRemoveProc(void* data) {
  const std::unique_ptr<RemovalRequest> request(static_cast<RemovalRequest*>(data));
  const CAutoLocker lock(m_clientLock);
  const auto peer = m_peers.find(request->generation);
  if (peer == m_peers.end()) return;
  if (m_bReading != 0) {
    EraseClientLocked(peer);
  } else {
    // A callback that stops the server may still look at this client's buffer: it goes with the
    // others.
    peer->second.removed = true;
  }
}

int CTcpServer::InitSocket() {
  Os::Descriptor fd = Os::OpenStreamSocket();
  if (!fd.Valid()) {
    const int error = errno;
    ILog::Trace("CTcpServer::InitSocket socket create failed. port:%d err:%d", m_port.load(),
                error);
    return -1;
  }
  m_listenfd = fd.Release();
  if (const int error = -Os::SetReuseAddress(m_listenfd); error != 0) {
    ILog::Trace("CTcpServer::InitSocket setsockopt failed. port:%d err:%d", m_port.load(), error);
    return -1;
  }
  if (const int error = -Os::BindPort(m_listenfd, m_port); error != 0) {
    ILog::Trace("CTcpServer::InitSocket bind failed. port:%d err:%d", m_port.load(), error);
    return -1;
  }
  if (SetNonblocking() != 0) return -1;
  if (const int error = -Os::Listen(m_listenfd, kBacklog); error != 0) {
    ILog::Trace("CTcpServer::InitSocket listen failed. port:%d err:%d", m_port.load(), error);
    return -1;
  }
  return 0;
}

int CTcpServer::SetNonblocking() {
  Os::SetNoDelayByOneByte(m_listenfd);
  return Os::SetNonblocking(m_listenfd) == 0 ? 0 : -1;
}

int CTcpServer::AddClientToList(int fd, char* ip, int port) {
  const CAutoLocker lock(m_clientLock);
  if (m_clientList.size() >= kMaxClients) return 0;
  Os::SetNoDelayByOneByte(fd);
  BufferPtr buffer(Core::NewReceiveBuffer(m_maxBufferLen));
  if (buffer == nullptr) return 0;
  const auto connection = NewConnection(fd);
  if (connection == nullptr) return 0;
  try {
    const auto info = m_clientList.insert(m_clientList.end(), st_clientinfo{});
    snprintf(info->ip, sizeof(info->ip), "%s", ip);
    info->port = port;
    info->sockfd = fd;
    info->buffer = buffer.get();
    m_peers.emplace(connection->Generation(), Peer{info, connection, false});
    m_connections.Insert(connection);
  } catch (const std::bad_alloc&) {
    connection->Abandon();
    m_peers.erase(connection->Generation());
    if (!m_clientList.empty() && m_clientList.back().sockfd == fd) m_clientList.pop_back();
    return 0;
  }
  static_cast<void>(buffer.release());
  return 1;
}

int CTcpServer::WriteSfd(int fd, const char* data, int len) {
  if (len <= 0) return len;
  const auto length = static_cast<size_t>(len);
  const auto connection = m_connections.Find(fd);
  Os::SendResult result{};
  if (connection == nullptr) {
    // Kept: an id that is not a client is used as a descriptor as it stands.
    bool first = true;
    result = Os::SendAll(fd, data, length, Os::SendMode::kAsIs,
                         [&] { return std::exchange(first, false) || m_listenfd > 0; });
  } else {
    result = connection->Send(data, length, [this] { return m_bReading != 0; });
  }
  if (result.end == Os::SendResult::End::kAll) return len;
  return result.end == Os::SendResult::End::kStopped ? -ECANCELED : -result.error;
}

void CTcpServer::ResetField(int first) {
  m_port = 0;
  if (first == 0) {
    CloseListener();
  } else {
    m_acceptThread = 0;
    m_readThread = 0;
  }
  m_listenfd = 0;
  m_bReading = 0;
  m_maxBufferLen = 8192;
  m_bEndian = 1;
  m_procType = PROTOCOL_BYTE;
  {
    const CAutoLocker lock(m_clientLock);
    LeaveClientsLocked();
  }
  const std::lock_guard lock(m_eventLock);
  // Kept: the disconnect callback stays; hosts register it once and the others before each start.
  m_pUser = nullptr;
  m_onConnect = nullptr;
  m_onMsg = nullptr;
}

int CTcpServer::ProcStringMsg(st_clientinfo* client) {
  return Drain(client, Core::Form::kLine);
}

int CTcpServer::ProcByteMsg(st_clientinfo* client) {
  return Drain(client, Core::Form::kLengthPrefix);
}

int CTcpServer::ProcNoneMsg(st_clientinfo* client) {
  return Drain(client, Core::Form::kRaw);
}

int CTcpServer::ProcMessages(st_clientinfo* client) {
  switch (Core::FormsOf(Core::Side::kServer, m_procType).receive) {
    case Core::Form::kLine:
      return ProcStringMsg(client);
    case Core::Form::kRaw:
      return ProcNoneMsg(client);
    case Core::Form::kLengthPrefix:
    case Core::Form::kInert:
      break;
  }
  return ProcByteMsg(client);
}

int CTcpServer::Drain(st_clientinfo* client, Core::Form form) {
  const auto cid = static_cast<unsigned int>(client->sockfd);
  const auto sid = static_cast<unsigned int>(m_listenfd.load());
  int held = client->datalen;
  const bool good = Core::DrainMessages(
      form, [this] { return m_bEndian != 0; }, client->buffer, held,
      [this] { return !Os::IsOrphan() && m_bReading != 0; },
      [&](const char* data, int length) {
        const Events events = CurrentEvents();
        if (events.onMsg != nullptr) events.onMsg(events.user, sid, cid, data, length);
      });
  if (Os::IsOrphan()) return 0;
  client->datalen = held;
  return good ? 0 : -1;
}

CTcpServer::Events CTcpServer::CurrentEvents() {
  const std::lock_guard lock(m_eventLock);
  return {m_pUser, m_onConnect, m_onDisconnect, m_onMsg};
}

/// The read thread is known once the accept thread, which starts it, has ended.
void CTcpServer::JoinThreads() {
  Os::JoinThread(m_acceptThread);
  Os::JoinThread(m_readThread);
}

void CTcpServer::CloseListener() {
  const int fd = m_listenfd.exchange(0);
  if (fd <= 0) return;
  Os::ShutdownBoth(fd);
  Os::Descriptor(fd).Reset();
}

/// Empties the list. Kept: the client sockets stay open, as hosts that stop a server may still hold
/// their numbers. Those whose removal was asked for are closed.
void CTcpServer::LeaveClientsLocked() {
  for (auto& [generation, peer] : m_peers) {
    peer.connection->MarkEnding();
    if (peer.removed) continue;
    peer.connection->Abandon();
    m_leftOpen.Add(peer.connection->Fd());
  }
  m_connections.Clear();
  m_peers.clear();
  m_readiness.Close();
  for (st_clientinfo& client : m_clientList) {
    BufferPtr buffer(client.buffer);
    if (Os::IsOrphan()) buffersOfOrphan.push_back(std::move(buffer));
  }
  m_clientList.clear();
}

/// Carries out what the worker has not come to: hosts that want a client's socket closed remove it
/// before they stop the server.
void CTcpServer::RunRemovals() {
  auto* queue = static_cast<CDeque*>(m_removeDeque);
  while (void* request = queue->PopOneFromDeque())
    OnRemoveProc(request);
}

void CTcpServer::DrainRemovals() {
  auto* queue = static_cast<CDeque*>(m_removeDeque);
  while (!queue->IsDequeEmpty()) {
    delete static_cast<RemovalRequest*>(queue->PopOneFromDeque());
  }
}

void* CTcpServer::AcceptThreadTask(void* server) {
  auto* self = static_cast<CTcpServer*>(server);
  if (!self->RunAccepting()) self->ResetField(0);
  return nullptr;
}

/// False when the read thread cannot be started.
bool CTcpServer::RunAccepting() {
  CStringEx name;
  name.Format("CTcpServer_ReadThreadTask port:%d", m_port.load());
  if (Os::StartThread(m_readThread, ReadThreadTask, this, name.c_str()) != 0) return false;
  while (m_bReading != 0) {
    if (Os::WaitReadable(m_listenfd, kWaitMs) != Os::WaitResult::kReady) continue;
    AcceptOnce();
    if (Os::IsOrphan()) break;
  }
  return true;
}

void CTcpServer::AcceptOnce() {
  Os::Descriptor fd = Os::Accept(m_listenfd);
  if (!fd.Valid()) {
    const bool gone = errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
    // Out of descriptors or memory: the connection stays in the backlog, so trying at once would
    // spin.
    if (!gone) CDateTime::SleepMilisecond(kShortOfResourcesPauseMs);
    return;
  }
  Os::PeerAddress address{};
  if (Os::PeerOf(fd.Get(), address) != 0) return;
  if (AddClientToList(fd.Get(), address.ip, address.port) == 0) return;
  const int cid = fd.Release();
  const Events events = CurrentEvents();
  if (events.onConnect != nullptr) {
    events.onConnect(events.user, static_cast<unsigned int>(m_listenfd.load()),
                     static_cast<unsigned int>(cid), address.ip);
    if (Os::IsOrphan()) return;
  }
  ListenTo(cid);
}

/// Lets the read thread hear a client whose connect callback has returned; wakes it if need be.
void CTcpServer::ListenTo(int fd) {
  const CAutoLocker lock(m_clientLock);
  const auto connection = m_connections.Find(fd);
  if (connection == nullptr) return;  // removed meanwhile
  if (m_readiness.Add(fd, connection->Generation()) == 0) return;
  const auto peer = m_peers.find(connection->Generation());
  if (peer != m_peers.end()) EraseClientLocked(peer);
}

void* CTcpServer::ReadThreadTask(void* server) {
  static_cast<CTcpServer*>(server)->RunReading();
  return nullptr;
}

void CTcpServer::RunReading() {
  while (m_bReading != 0) {
    ServeReadyClients();
    if (Os::IsOrphan()) return;
  }
}

/// Waits once and serves, in the order of the list, whoever has something to read.
void CTcpServer::ServeReadyClients() {
  const auto ready = m_readiness.Wait(kWaitMs);
  if (ready.empty()) return;
  m_clientLock.Lock();
  for (const uint64_t generation : ready) {
    const auto peer = m_peers.find(generation);
    if (peer == m_peers.end()) continue;
    ServeClientLocked(peer);
    // A callback has stopped the server: it has released the lock, too.
    if (Os::IsOrphan()) return;
  }
  m_clientLock.UnLock();
}

void CTcpServer::ServeClientLocked(Peers::iterator peer) {
  bool malformed = false;
  if (ReadClientLocked(peer->second, malformed) || Os::IsOrphan()) return;
  EndClientLocked(peer, malformed);
}

/// Reads once and delivers what is whole. False when the client is to go.
bool CTcpServer::ReadClientLocked(const Peer& peer, bool& malformed) {
  st_clientinfo& client = *peer.info;
  const int room = Core::RoomIn(client.buffer, m_maxBufferLen, client.datalen);
  // A full buffer ends the connection as if the peer had closed.
  const int count =
      room > 0 ? Os::ReceiveNow(client.sockfd, client.buffer + client.datalen, room) : 0;
  if (count == -EAGAIN) return true;
  if (count <= 0) return false;
  client.datalen += count;
  client.buffer[client.datalen] = '\0';
  malformed = ProcMessages(&client) != 0;
  return !malformed;
}

void CTcpServer::EndClientLocked(Peers::iterator peer, bool malformed) {
  const Os::ConnectionPtr connection = peer->second.connection;
  connection->Shutdown();
  const Events events = CurrentEvents();
  // Kept: for a peer that has gone it is the connect callback that decides whether the disconnect
  // callback is called.
  const bool told = malformed || events.onConnect != nullptr;
  if (told && events.onDisconnect != nullptr) {
    // Kept: the server id is 0 here, unlike in the other callbacks.
    events.onDisconnect(events.user, 0, static_cast<unsigned int>(connection->Fd()));
    if (Os::IsOrphan()) return;
  }
  EraseClientLocked(peer);
}

/// The last user of the connection closes it; a sender in progress ends within a send slice.
void CTcpServer::EraseClientLocked(Peers::iterator peer) {
  const Os::ConnectionPtr connection = peer->second.connection;
  connection->MarkEnding();
  m_readiness.Remove(connection->Fd());
  m_connections.Erase(connection->Fd());
  Core::FreeReceiveBuffer(peer->second.info->buffer);
  m_clientList.erase(peer->second.info);
  m_peers.erase(peer);
}

ITcpServer* ITcpServer::Create() {
  try {
    return new CTcpServer;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void ITcpServer::Delete(ITcpServer* server) {
  delete server;
}

}  // namespace Generic
}  // namespace Tarn
