// One TCP connection, shared by the threads that use it.
#ifndef TARN_UTILITY_OS_CONNECTION_H
#define TARN_UTILITY_OS_CONNECTION_H

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

#include "utility/os/Handle.h"
#include "utility/os/Socket.h"

namespace Tarn::Os {

/// Owns a connected (or connecting) descriptor. Every thread that uses it holds a reference;
/// whoever ends the connection marks it and drops its reference, and the last user closes. So a
/// descriptor number never changes its meaning under somebody who still uses it.
///
/// Descriptor numbers return, generations do not: across a gap in a lock only these are trusted.
class Connection {
 public:
  explicit Connection(Descriptor fd);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  [[nodiscard]] int Fd() const { return fd_.Get(); }
  /// Unique in the process, ascending, never 0.
  [[nodiscard]] uint64_t Generation() const { return generation_; }

  /// Tells all users to end; senders notice within a send slice.
  void MarkEnding() { ending_ = true; }
  [[nodiscard]] bool Ending() const { return ending_; }

  /// MarkEnding, and ends both directions of the stream at once.
  void Shutdown();

  /// True for the first caller only: the end of a connection is reported once.
  bool ClaimReport() { return !reported_.exchange(true); }

  /// Sends one frame; frames of two senders never mix. The first piece is always tried, since a
  /// callback may still answer while whoever ends the connection waits for it. The rest goes on
  /// until the connection ends or `goOn()` says no. Nothing follows a frame that was cut short.
  template <typename GoOn>
  SendResult Send(const char* data, size_t length, GoOn goOn);

  /// The descriptor stays open when the last user goes.
  void Abandon() { abandoned_ = true; }

 private:
  Descriptor fd_;
  const uint64_t generation_;
  std::atomic<bool> ending_{false};
  std::atomic<bool> reported_{false};
  std::atomic<bool> abandoned_{false};
  std::mutex sendMutex_;
  bool cut_ = false;  ///< guarded by sendMutex_
};

template <typename GoOn>
SendResult Connection::Send(const char* data, size_t length, GoOn goOn) {
  const std::lock_guard sending(sendMutex_);
  bool first = !cut_;
  const SendResult result = SendAll(fd_.Get(), data, length, SendMode::kNeverBlock, [&] {
    return std::exchange(first, false) || (!Ending() && goOn());
  });
  if (result.end == SendResult::End::kStopped) cut_ = true;
  return result;
}

using ConnectionPtr = std::shared_ptr<Connection>;

/// The connections of one server by descriptor. Its lock is a leaf: nothing is called while it is
/// held.
class ConnectionTable {
 public:
  /// Throws std::bad_alloc when memory is short; the table is unchanged then.
  void Insert(const ConnectionPtr& connection);
  /// Null for a descriptor that is not in the table.
  [[nodiscard]] ConnectionPtr Find(int fd) const;
  void Erase(int fd);
  void MarkAllEnding();
  void Clear();

 private:
  mutable std::mutex mutex_;
  std::unordered_map<int, ConnectionPtr> byDescriptor_;
};

/// Descriptors that were left open on purpose, to be closed later if they still are the same
/// sockets: their owner may have closed them meanwhile, and the numbers may be somebody else's.
class LeftOpenSockets {
 public:
  /// Forgets the descriptor instead when memory is short.
  void Add(int fd);
  void CloseAll();

 private:
  struct Socket {
    int fd;
    dev_t device;
    ino_t inode;
  };
  std::vector<Socket> sockets_;
};

}  // namespace Tarn::Os

#endif  // TARN_UTILITY_OS_CONNECTION_H
