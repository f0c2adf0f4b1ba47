// Pending log text as a chain of recycled chunks.
#ifndef TARN_UTILITY_CORE_LOGQUEUE_H
#define TARN_UTILITY_CORE_LOGQUEUE_H

#include <cstddef>
#include <string_view>

namespace Tarn::Core {

/// A piece of a long text. Every chunk of a queue is full except the last.
struct LogChunk {
  static constexpr size_t kBytes = size_t{64} * 1024;
  LogChunk* next;
  size_t used;
  char bytes[kBytes];
  [[nodiscard]] std::string_view View() const { return {bytes, used}; }
};

/// Owns a chain of chunks.
class LogChunkList {
 public:
  LogChunkList() = default;
  LogChunkList(LogChunkList&& other) noexcept { Splice(other); }
  LogChunkList& operator=(LogChunkList&& other) noexcept;
  LogChunkList(const LogChunkList&) = delete;
  LogChunkList& operator=(const LogChunkList&) = delete;
  ~LogChunkList() { Clear(); }

  [[nodiscard]] bool Empty() const { return first_ == nullptr; }
  [[nodiscard]] size_t Count() const { return count_; }
  [[nodiscard]] const LogChunk* First() const { return first_; }
  [[nodiscard]] LogChunk* Last() { return last_; }

  void PushBack(LogChunk* chunk);
  LogChunk* PopFront();  // REQUIRES: not empty
  /// Takes over everything of `other`, behind the own chunks.
  void Splice(LogChunkList& other);
  void Clear();

 private:
  LogChunk* first_ = nullptr;
  LogChunk* last_ = nullptr;
  size_t count_ = 0;
};

/// Collects text at the price of a copy, and hands it out at the price of a pointer.
///
/// Chunks that come back are used again, and a new one is touched page by page when it is made, so
/// that a producer is slowed down neither by the allocator nor, line after line, by page faults.
/// The queue has no lock: its owner brings one.
class LogQueue {
 public:
  /// Spare chunks that are kept: one batch being written and one growing, each as long as a file
  /// takes.
  static constexpr size_t kSpareChunks = 66;

  /// Appends `text`, or as much of it as fits into `limit` bytes of pending text in all.
  /// @return true when the queue was empty before and is not now. Without memory nothing is
  /// appended.
  bool Append(std::string_view text, size_t limit = static_cast<size_t>(-1));

  /// All pending text in order; the queue is empty afterwards.
  LogChunkList TakeAll();

  /// Takes chunks back for later use. What is too much stays in `chunks`, to be freed by the caller
  /// when it no longer holds the owner's lock.
  void GiveBack(LogChunkList& chunks);

  /// Bytes pending.
  [[nodiscard]] size_t Length() const { return length_; }
  [[nodiscard]] size_t SpareCount() const { return spare_.Count(); }

 private:
  bool ProvideRoom(size_t wanted);

  LogChunkList pending_;
  LogChunkList spare_;
  size_t length_ = 0;
};

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_LOGQUEUE_H
