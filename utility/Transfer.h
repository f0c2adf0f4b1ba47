// What the transfer services have in common. Internal to the upload and download families.
#ifndef TARN_UTILITY_TRANSFER_H
#define TARN_UTILITY_TRANSFER_H

#include <Tarn/Generic/DateTime.h>
#include <Tarn/Generic/Md5.h>
#include <Tarn/Generic/StringEx.h>
#include <Tarn/Generic/TcpClient.h>

#include <cstdint>
#include <cstdio>
#include <new>
#include <string>
#include <string_view>

#include "utility/core/TransferWire.h"
#include "utility/os/Handle.h"
#include "utility/os/StreamFile.h"
#include "utility/os/ThreadOwner.h"

namespace Tarn::Generic::Transfer {

// Result codes.
constexpr unsigned int kDone = 0;
constexpr unsigned int kNotConnected = 1;
constexpr unsigned int kNoSuchFile = 2000;
constexpr unsigned int kNotCreated = 2001;
constexpr unsigned int kMd5Differs = 2002;
constexpr unsigned int kCutShort = 2003;

constexpr int kThreadedConnect = -1;
constexpr unsigned long kPauseAfterBlockMs = 100;

/// CONN_FAILED, or the value beside it that is reserved and means the same.
bool IsFailedConnect(ConnType type);

/// One line in the default log at level DEBUG.
void LogLine(const char* text);

/// Strips the slashes and then the backslashes off the end.
void TrimFolder(CStringEx& folder);

/// Creates a folder when it is missing and keeps its trimmed path; false when that failed.
bool TakeFolder(const char* path, CStringEx& folder);

/// Room for one block; null when memory is short.
Os::MallocPtr<char> NewBlock();

// --- Sending ---

/// MD5 of the bytes that will be sent, through the file that will be read. Ended by `goOn`: a long
/// file must not hold up whoever waits for the thread. Empty when memory is short.
template <typename GoOn>
std::string FileMd5(FILE* file, uint64_t fileBytes, char* block, GoOn goOn);

enum class SendEnd { kAll, kStopped, kReadFailed, kSendFailed };

/// Sends a file block by block, with a pause after each. `goOn()` is asked before every block;
/// `send(percent, bytes)` sends one and returns -1 when that failed. Nothing is called any more
/// once one of them has made the calling thread an orphan.
template <typename GoOn, typename Send>
SendEnd SendBlocks(FILE* file, Core::FileBlocks blocks, char* block, GoOn goOn, Send send);

// --- Receiving ---

/// Appends to a file in receipt. When that fails the expected MD5 is cleared: bytes are missing, so
/// no content can match from here on.
void Store(FILE* file, std::string_view part, char* md5);

enum class EmptyFile { kKeep, kDelete };

/// Closes a received file and deletes it when its MD5 is not the expected one, or when it is empty
/// and should not be; false then.
bool CloseAndCheck(FILE* file, const char* path, const char* md5, EmptyFile empty);

// --- Implementation of the templates ---

template <typename GoOn>
std::string FileMd5(FILE* file, uint64_t fileBytes, char* block, GoOn goOn) try {
  MD5 md5;
  Core::FileBlocks blocks(fileBytes, 0);
  while (blocks.HasNext() && goOn()) {
    const size_t count = Os::ReadAt(file, blocks.Offset(), block, blocks.Length());
    if (count < 1) break;
    md5.update(block, static_cast<unsigned int>(count));
    blocks.Advance(count);
  }
  return md5.finalize().hexdigest();
} catch (const std::bad_alloc&) {
  return {};
}

template <typename GoOn, typename Send>
SendEnd SendBlocks(FILE* file, Core::FileBlocks blocks, char* block, GoOn goOn, Send send) {
  while (blocks.HasNext()) {
    if (!goOn()) return SendEnd::kStopped;
    const size_t count = Os::ReadAt(file, blocks.Offset(), block, blocks.Length());
    if (count < 1) return SendEnd::kReadFailed;
    const int sent = send(blocks.Advance(count), std::string_view(block, count));
    if (Os::IsOrphan()) return SendEnd::kStopped;
    CDateTime::SleepMilisecond(kPauseAfterBlockMs);
    if (sent == -1) return SendEnd::kSendFailed;
  }
  return SendEnd::kAll;
}

}  // namespace Tarn::Generic::Transfer

#endif  // TARN_UTILITY_TRANSFER_H
