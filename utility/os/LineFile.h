// Appending whole texts to files that others append to as well, and echoing them.
#ifndef TARN_UTILITY_OS_LINEFILE_H
#define TARN_UTILITY_OS_LINEFILE_H

#include <sys/uio.h>

#include <string_view>

#include "utility/os/Handle.h"

namespace Tarn::Os {

/// Opens `path` for reading and appending, and makes it when it is missing (0666 less the umask),
/// as fopen with "a+" does. The descriptor is never a standard stream's number and is closed on
/// exec. Invalid on failure; errno tells why.
Descriptor OpenAppend(const char* path);

/// Appends the pieces as one text with one call, so that no other appender's text gets into it;
/// only a short write needs more. The pieces are used up.
/// @return 0, or a negative error number; then the rest is not written
int AppendPieces(int fd, iovec* pieces, size_t count);

/// AppendPieces for one piece.
int AppendText(int fd, std::string_view text);

/// Writes `text` to standard output, below all other threads' texts, and flushes.
void Echo(std::string_view text);

}  // namespace Tarn::Os

#endif  // TARN_UTILITY_OS_LINEFILE_H
