/// @file
/// IPv4 UDP server. Public: may include only public headers.
#ifndef TARN_GENERIC_UDPSERVER_H
#define TARN_GENERIC_UDPSERVER_H

#include <Tarn/Generic/Api.h>

namespace Tarn {
namespace Generic {

/// Receives datagrams from anyone on one port, or also those of a multicast group, reads them on a
/// thread of its own, and sends to any address. There is no framing: what one datagram carries is
/// one message to the callback, and a message that is sent may become several datagrams.
///
/// Threads: the callback runs on the read thread, without a lock. SendMsg may be called from any
/// thread, the callback included; datagrams of concurrent sends may come in any order. Start and
/// Stop must not be called from the callback. Diagnostics go to ILog::Trace.
class TARN_API IUdpServer {
 public:
  virtual ~IUdpServer();

  /// Sets the callback, which may be null. Stop and a failed Start drop it.
  /// @param user   handed to the callback
  /// @param onMsg  receives one datagram and its sender's dotted address (in a buffer of the
  ///               library's, valid like the data until it returns) and port: `len` bytes, at least
  ///               1, with a NUL behind them
  virtual void RegisterEvent(void* user, void (*onMsg)(void* user, char* fromIp, int fromPort,
                                                       const char* data, int len)) = 0;

  /// Receives on the address of SetLocalIP, otherwise on all addresses.
  /// @return 1 started, or already running (nothing changes then); 0 failed: callback, group and
  /// the
  ///         buffer's size are back at their defaults then
  virtual int Start(int port) = 0;

  /// Sets this end's dotted address for every later Start, at most 16 characters of it. Null is
  /// ignored. It also decides the size of the datagrams that SendMsg sends.
  virtual void SetLocalIP(const char* ip) = 0;

  /// As Start, for a multicast group: joins it on the interface that the route to the group names,
  /// and sends over at most 64 routers. From then on every start of the object is made so; a plain
  /// Start has no group to join.
  /// @param group  its dotted address; at most 16 characters are kept
  /// @return as Start; 1 even when the group could not be joined
  virtual int ConnectMultiCast(const char* group, int port) = 0;

  /// Stops and joins the read thread, which takes up to a second. Callback, group and the buffer's
  /// size go back to their defaults; the address of SetLocalIP stays.
  virtual void Stop() = 0;

  /// Sends to one address, as datagrams of at most 49152 bytes when it is this end's own (that of
  /// SetLocalIP, otherwise of Tarn::GetLocalIP) and of at most 1400 bytes otherwise. Waits up to a
  /// millisecond for a full socket, and on without a limit once it has begun to send.
  /// @return `len`, also when the server stops meanwhile; -1 when not running, on bad arguments or
  ///         when the socket stays full; a negated error number on other failures
  virtual int SendMsg(const char* ip, int port, const char* data, int len) = 0;

  /// Capacity of the receive buffer in bytes, 10485760 at first and after every Stop; 0 or more. A
  /// longer datagram is cut without notice. Call before Start.
  virtual void SetMaxBufferLen(int len) = 0;

  /// 1 while running, 0 otherwise.
  virtual int IsWorking() = 0;

  /// A new server; release it with Delete. Null when memory is short.
  static IUdpServer* Create();
  /// Stops and destroys; null is ignored.
  static void Delete(IUdpServer* server);
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_UDPSERVER_H
