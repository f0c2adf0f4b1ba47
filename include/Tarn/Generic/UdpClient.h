/// @file
/// IPv4 UDP client. Public: may include only public headers.
#ifndef TARN_GENERIC_UDPCLIENT_H
#define TARN_GENERIC_UDPCLIENT_H

#include <Tarn/Generic/Api.h>

namespace Tarn {
namespace Generic {

/// Exchanges datagrams with one peer, or with a multicast group, and reads on a thread of its own.
/// There is no framing: what one datagram carries is one message to the callback, and a message
/// that is sent may become several datagrams.
///
/// Threads: the callback runs on the read thread, without a lock. SendMsg may be called from any
/// thread, the callback included; datagrams of concurrent sends may come in any order. Connect and
/// Disconnect must not be called from the callback.
///
/// Datagrams of every sender are delivered, not only the peer's. Diagnostics go to ILog::Trace.
class TARN_API IUdpClient {
 public:
  virtual ~IUdpClient();

  /// Sets the callback, which may be null. Disconnect and a failed Connect drop it.
  /// @param user   handed to the callback
  /// @param onMsg  receives one datagram: `len` bytes, at least 1, with a NUL behind them, valid
  ///               until it returns
  virtual void RegisterEvent(void* user, void (*onMsg)(void* user, const char* data, int len)) = 0;

  /// Opens the socket, bound to the address and port of SetLocalAddr (otherwise to the address of
  /// Tarn::GetLocalIP and any free port), and begins to read. A connection that is open ends first,
  /// which takes up to a second; callback and settings stay then.
  /// @param ip    the peer's dotted address; at most 16 characters are kept
  /// @param port  the peer's port
  /// @return 1; 0 when the socket could not be had or bound. The callback and the buffer's size are
  ///         back at their defaults then.
  virtual int Connect(const char* ip, int port) = 0;

  /// Sets the address and port of this end for every later Connect; an empty address and port 0
  /// leave the choice as told there.
  /// @return 1; 0 when `ip` is null, which changes nothing
  virtual int SetLocalAddr(const char* ip, int port) = 0;

  /// As Connect, for a multicast group: joins it on the interface of Tarn::GetLocalIP, binds the
  /// group's port (SetLocalAddr's is not used), and sends over at most 64 routers. From then on all
  /// connections of the object are made so.
  ///
  /// A socket that is bound to an address of this host sends to the group but hears nothing of it.
  /// To hear it, call SetLocalAddr("0.0.0.0", 0) first.
  /// @return as Connect; 1 even when the group could not be joined
  virtual int ConnectMultiCast(char* group, int port) = 0;

  /// Ends the connection and joins the read thread, which takes up to a second. The callback, the
  /// peer and the buffer's size go back to their defaults; the address of SetLocalAddr stays.
  virtual void Disconnect() = 0;

  /// Sends to the peer, as datagrams of at most 49152 bytes when the peer has this end's own
  /// address and of at most 1400 bytes otherwise. Waits up to a second for a full socket, and on
  /// without a limit once it has begun to send.
  /// @return `len`, also when the connection ends meanwhile; -1 when not connected, on bad
  ///         arguments or when the socket stays full; a negated error number on other failures
  virtual int SendMsg(const char* data, int len) = 0;

  /// Capacity of the receive buffer in bytes, 102400 at first and after every Disconnect; 0 or
  /// more. A longer datagram is cut without notice. Call before Connect.
  virtual void SetMaxBufferLen(int len) = 0;

  /// A new client; release it with Delete. Null when memory is short.
  static IUdpClient* Create();
  /// Disconnects and destroys; null is ignored.
  static void Delete(IUdpClient* client);
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_UDPCLIENT_H
