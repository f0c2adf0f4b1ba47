// Pending log text as a chain of recycled chunks.
#include "utility/core/LogQueue.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace Tarn::Core {

namespace {

constexpr size_t kPage = 4096;

LogChunk* MakeChunk() {
  auto* chunk = new (std::nothrow) LogChunk;
  if (chunk == nullptr) return nullptr;
  // Through volatile, or the compiler would see that nobody reads these bytes.
  volatile char* bytes = chunk->bytes;
  for (size_t at = 0; at < LogChunk::kBytes; at += kPage)
    bytes[at] = 0;
  return chunk;
}

}  // namespace

LogChunkList& LogChunkList::operator=(LogChunkList&& other) noexcept {
  if (this != &other) {
    Clear();
    Splice(other);
  }
  return *this;
}

void LogChunkList::PushBack(LogChunk* chunk) {
  chunk->next = nullptr;
  (first_ == nullptr ? first_ : last_->next) = chunk;
  last_ = chunk;
  ++count_;
}

LogChunk* LogChunkList::PopFront() {
  LogChunk* chunk = first_;
  first_ = chunk->next;
  if (first_ == nullptr) last_ = nullptr;
  --count_;
  return chunk;
}

void LogChunkList::Splice(LogChunkList& other) {
  if (other.Empty()) return;
  (first_ == nullptr ? first_ : last_->next) = other.first_;
  last_ = other.last_;
  count_ += other.count_;
  other.first_ = other.last_ = nullptr;
  other.count_ = 0;
}

void LogChunkList::Clear() {
  while (!Empty())
    delete PopFront();
}

bool LogQueue::Append(std::string_view text, size_t limit) {
  text = text.substr(0, limit - std::min(limit, length_));
  if (text.empty() || !ProvideRoom(text.size())) return false;
  const bool wasEmpty = length_ == 0;
  length_ += text.size();
  for (;;) {
    if (pending_.Empty() || pending_.Last()->used == LogChunk::kBytes) {
      LogChunk* chunk = spare_.PopFront();
      chunk->used = 0;
      pending_.PushBack(chunk);
    }
    LogChunk* last = pending_.Last();
    const size_t part = std::min(text.size(), LogChunk::kBytes - last->used);
    std::memcpy(last->bytes + last->used, text.data(), part);
    last->used += part;
    text.remove_prefix(part);
    if (text.empty()) return wasEmpty;
  }
}

LogChunkList LogQueue::TakeAll() {
  length_ = 0;
  return std::move(pending_);
}

void LogQueue::GiveBack(LogChunkList& chunks) {
  while (!chunks.Empty() && spare_.Count() < kSpareChunks)
    spare_.PushBack(chunks.PopFront());
}

// Before anything is copied, so that no line is ever torn by a lack of memory.
bool LogQueue::ProvideRoom(size_t wanted) {
  const size_t room = pending_.Empty() ? 0 : LogChunk::kBytes - pending_.Last()->used;
  if (wanted <= room) return true;
  const size_t chunks = (wanted - room - 1) / LogChunk::kBytes + 1;
  while (spare_.Count() < chunks) {
    LogChunk* chunk = MakeChunk();
    if (chunk == nullptr) return false;
    spare_.PushBack(chunk);
  }
  return true;
}

}  // namespace Tarn::Core
