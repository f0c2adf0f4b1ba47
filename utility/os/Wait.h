// Waiting for one descriptor, without a bound on descriptor numbers.
#ifndef TARN_UTILITY_OS_WAIT_H
#define TARN_UTILITY_OS_WAIT_H

namespace Tarn::Os {

/// What a wait on a descriptor reported.
enum class WaitResult {
  kReady,        ///< ready, at end of stream, or in error: the next call tells which
  kExceptional,  ///< out-of-band data (only asked for by WaitConnected)
  kTimeout,
  kInterrupted,  ///< a signal ended the wait; errno is EINTR
  kFailed,       ///< errno tells why
};

/// Waits until `fd` can be read without blocking. A negative descriptor fails with EBADF.
WaitResult WaitReadable(int fd, int timeoutMs);

/// Waits until `fd` can be written without blocking.
WaitResult WaitWritable(int fd, int timeoutMs);

/// As above; goes on after signals.
WaitResult WaitSendable(int fd, int timeoutMs);

/// Waits for the end of a non-blocking connect: kReady as soon as the socket is writable, which it
/// is after a refusal, too; kExceptional when it is flagged exceptional. Goes on after signals.
WaitResult WaitConnected(int fd, int timeoutMs);

}  // namespace Tarn::Os

#endif  // TARN_UTILITY_OS_WAIT_H
