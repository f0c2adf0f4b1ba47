// Opening the files that the transfer services read and write.
#ifndef TARN_UTILITY_OS_STREAMFILE_H
#define TARN_UTILITY_OS_STREAMFILE_H

#include <cstdint>

#include "utility/os/Handle.h"

namespace Tarn::Os {

/// Opens a regular file for binary reading; null with errno set for everything else. A folder would
/// open "successfully", a FIFO without a writer would block for ever.
FilePtr OpenRegularFile(const char* path);

/// The same for a path relative to `folder` that must not leave it on any way, be it by "..", a
/// link or a leading slash (EXDEV otherwise). Where the platform cannot promise that, nothing
/// opens.
FilePtr OpenRegularFileBeneath(const char* folder, const char* path);

/// Creates a file, or empties one, for binary reading and writing; null with errno set. Anything
/// but a regular file is refused: closing one that is no good deletes it.
FilePtr RewriteRegularFile(const char* path);

/// Creates a file that does not exist yet (EEXIST otherwise; a link at that place counts as
/// existing) and opens it for binary reading and writing; null with errno set.
FilePtr CreateNewFile(const char* path);

/// The length of an open file in bytes; -1 with errno set.
int64_t FileLength(FILE* file);

/// Reads up to `length` bytes at `offset` as the file is now, past the stream's own buffer: bytes
/// read, fewer at the file's end or on failure.
size_t ReadAt(FILE* file, uint64_t offset, char* buffer, size_t length);

}  // namespace Tarn::Os

#endif  // TARN_UTILITY_OS_STREAMFILE_H
