// One TCP connection, shared by the threads that use it.
#include "utility/os/Connection.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <new>
#include <utility>

namespace Tarn::Os {

namespace {

uint64_t NextGeneration() {
  static std::atomic<uint64_t> last{0};
  return ++last;
}

}  // namespace

Connection::Connection(Descriptor fd) : fd_(std::move(fd)), generation_(NextGeneration()) {}

Connection::~Connection() {
  if (abandoned_) static_cast<void>(fd_.Release());
}

void Connection::Shutdown() {
  MarkEnding();
  shutdown(Fd(), SHUT_RDWR);
}

void ConnectionTable::Insert(const ConnectionPtr& connection) {
  const std::lock_guard lock(mutex_);
  byDescriptor_[connection->Fd()] = connection;
}

ConnectionPtr ConnectionTable::Find(int fd) const {
  const std::lock_guard lock(mutex_);
  const auto found = byDescriptor_.find(fd);
  return found == byDescriptor_.end() ? nullptr : found->second;
}

void ConnectionTable::Erase(int fd) {
  ConnectionPtr last;  // closes, if it does, after the lock is released
  const std::lock_guard lock(mutex_);
  const auto found = byDescriptor_.find(fd);
  if (found == byDescriptor_.end()) return;
  last = std::move(found->second);
  byDescriptor_.erase(found);
}

void ConnectionTable::MarkAllEnding() {
  const std::lock_guard lock(mutex_);
  for (const auto& [fd, connection] : byDescriptor_)
    connection->MarkEnding();
}

void ConnectionTable::Clear() {
  std::unordered_map<int, ConnectionPtr> all;
  const std::lock_guard lock(mutex_);
  all.swap(byDescriptor_);
}

void LeftOpenSockets::Add(int fd) {
  struct stat status {};
  if (fstat(fd, &status) != 0) return;
  try {
    sockets_.push_back({fd, status.st_dev, status.st_ino});
  } catch (const std::bad_alloc&) {
    // Open for good then; nothing worse.
  }
}

void LeftOpenSockets::CloseAll() {
  for (const Socket& left : sockets_) {
    struct stat status {};
    const bool same =
        fstat(left.fd, &status) == 0 && status.st_dev == left.device && status.st_ino == left.inode;
    if (same) close(left.fd);
  }
  sockets_.clear();
}

}  // namespace Tarn::Os
