/// @file
/// IPv4 TCP client. Public: may include only public headers.
#ifndef TARN_GENERIC_TCPCLIENT_H
#define TARN_GENERIC_TCPCLIENT_H

#include <Tarn/Generic/Api.h>
#include <Tarn/Generic/Framing.h>

namespace Tarn {
namespace Generic {

/// Connection events of ITcpClient. The value 2 is reserved and never raised.
enum ConnType : int {
  CONN_SUCCESS = 0,  ///< the threaded connect succeeded, messages are being read
  CONN_FAILED = 1,   ///< the threaded connect failed
  CONN_CLOSED = 3,   ///< the peer closed, the receive buffer is full, or a send failed for good
  CONN_ERROR = 4     ///< waiting failed, no memory for the receive buffer, or a malformed message
};

/// One connection to one server, read on a thread of its own.
///
/// Threads: CONN_SUCCESS and CONN_FAILED are raised on the connect thread, CONN_CLOSED and
/// CONN_ERROR (at most one of the two per connection) and messages on the read thread; a send that
/// fails for good raises CONN_CLOSED on the thread that called SendMsg. Messages never overlap, but
/// reading begins before CONN_SUCCESS is raised, so that the first ones may come meanwhile. No lock
/// is held during a callback. SendMsg may be called from any thread, callbacks included; frames of
/// concurrent sends never mix. Connect and Disconnect must not be called from a callback of the
/// same object.
///
/// The host must ignore SIGPIPE. Every diagnostic goes to ILog::Trace.
class TARN_API ITcpClient {
 public:
  virtual ~ITcpClient();

  /// Sets the callbacks; either may be null. They stay set over reconnects.
  /// @param user    handed to both callbacks
  /// @param onConn  receives connection events
  /// @param onMsg   receives one message: `len` bytes with a NUL behind them, valid until it
  /// returns
  virtual void RegisterEvent(void* user, void (*onConn)(void* user, ConnType type),
                             void (*onMsg)(void* user, const char* data, int len)) = 0;

  /// Ends an earlier connection and connects to a dotted IPv4 address (at most 16 characters are
  /// kept).
  ///
  /// First a short-lived second connection tests the server's port, for up to 3 s, on the caller's
  /// thread; its outcome does not decide the result.
  /// @param timeout  -1: connect on a thread of its own and report by event. 0 or more: connect now
  ///                 within that many milliseconds, raising no event. Below -1: fail.
  /// @return 1 connected, or connecting (also when a threaded connect is already under way, which
  ///         then goes on unchanged); 0 failed
  virtual int Connect(const char* ip, int port, int timeout) = 0;

  /// Ends the connection and joins its threads. Takes up to about a second, the reader's own wait,
  /// and as long as a callback that is running. Raises no event of its own; a threaded connect that
  /// is under way tells its outcome first.
  virtual void Disconnect() = 0;

  /// Sends one message in the current framing.
  /// @return the bytes written, framing included; -1 when not connected, on bad arguments or on
  /// failure
  virtual int SendMsg(const char* data, int len) = 0;

  /// Capacity of the receive buffer in bytes, 8192 at first. A message must fit with one byte to
  /// spare, or the connection ends. Call before Connect.
  virtual void SetMaxBufferLen(int len) = 0;

  /// The framing, PROTOCOL_BYTE at first. Read anew for every send and every received chunk.
  virtual void SetProcType(protocol_type type) = 0;

  /// Switches the length prefix to little-endian, for good.
  virtual void DisableEndian() = 0;

  /// Turns SO_KEEPALIVE of later connections on (the default) or off. The two numbers are stored
  /// and never applied: the operating system's timing stays in force.
  virtual void StartHeartOpen(bool open, int time, int interval) = 0;

  /// A new client; release it with Delete. Null when memory is short.
  static ITcpClient* Create();
  /// Disconnects and destroys; null is ignored.
  static void Delete(ITcpClient* client);
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_TCPCLIENT_H
