/// @file
/// IPv4 TCP server. Public: may include only public headers.
#ifndef TARN_GENERIC_TCPSERVER_H
#define TARN_GENERIC_TCPSERVER_H

#include <Tarn/Generic/Api.h>
#include <Tarn/Generic/Framing.h>

namespace Tarn {
namespace Generic {

/// One accepted connection of a TCP server.
struct st_clientinfo {
  char ip[20];  ///< the peer's dotted address
  int port;     ///< the peer's port, host order
  int sockfd;   ///< the connection's descriptor, which is also the client id
  int datalen;  ///< bytes held in `buffer`
  char*
      buffer;  ///< the receive buffer; owned by the server, its true capacity stands in front of it
};

/// Listens on one port and reads up to 1024 clients on one shared thread.
///
/// Threads: the connect callback runs on the accept thread, without a lock; the message and
/// disconnect callbacks run on the read thread with the client list locked, so they may call
/// SendMsg and Removeclient but must not wait for another thread that needs the list; no client is
/// accepted, read or removed meanwhile. A client's messages begin after its connect callback has
/// returned. SendMsg and Removeclient may be called from any thread; frames to one client never
/// mix. Stop must not be called from a callback.
///
/// The host must ignore SIGPIPE. Failures to listen go to ILog::Trace.
class TARN_API ITcpServer {
 public:
  virtual ~ITcpServer();

  /// Sets the callbacks; register the connect and the disconnect callback both or neither. `sid` is
  /// the listening descriptor, but always 0 in the disconnect callback; `cid` is the client's id.
  /// @param user          handed to all callbacks
  /// @param onConnect     a client has come; `ip` is its dotted address, valid until it returns
  /// @param onDisconnect  a client has gone by itself; its number is not used anew before it
  /// returns
  /// @param onMsg         one message: `len` bytes with a NUL behind them, valid until it returns
  virtual void RegisterEvent(
      void* user, void (*onConnect)(void* user, unsigned int sid, unsigned int cid, char* ip),
      void (*onDisconnect)(void* user, unsigned int sid, unsigned int cid),
      void (*onMsg)(void* user, unsigned int sid, unsigned int cid, const char* data, int len)) = 0;

  /// Listens on all addresses.
  /// @return 1 started; 0 when already running (nothing changes then) or failed (the settings and
  /// the
  ///         connect and message callbacks are back at their defaults then)
  virtual int Start(int port) = 0;

  /// Stops within about two seconds. The settings and the connect and message callbacks go back to
  /// their defaults (the disconnect callback stays), so set them again before the next Start.
  /// Clients are not told: their connections stay open until the next Start or the server's end,
  /// but for those whose removal was asked for before.
  virtual void Stop() = 0;

  /// Sends one message in the current framing. A full socket blocks the caller until there is room,
  /// the client goes or the server stops. An id that is not a client is used as a descriptor.
  /// @return the bytes written, framing included; -1 when not started, on bad arguments or on
  /// failure
  virtual int SendMsg(int cid, const char* data, int len) = 0;

  /// Asks for the removal of a client, which happens soon on a thread of the server's own, without
  /// a disconnect callback; a send that waits for room in its socket ends. An unknown id is
  /// ignored.
  /// @return 1
  virtual int Removeclient(int cid) = 0;

  /// Capacity of every receive buffer in bytes, 8192 at first. A message must fit with one byte to
  /// spare, or its client is dropped. Call before Start.
  virtual void SetMaxBufferLen(int len) = 0;

  /// The framing, PROTOCOL_BYTE at first. Read anew for every send and every received chunk.
  virtual void SetProcType(protocol_type type) = 0;

  /// Switches the length prefix to little-endian until the server stops.
  virtual void DisableEndian() = 0;

  /// A new server; release it with Delete. Null when memory is short.
  static ITcpServer* Create();
  /// Stops and destroys; null is ignored.
  static void Delete(ITcpServer* server);
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_TCPSERVER_H
