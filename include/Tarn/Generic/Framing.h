/// @file
/// How TCP clients and servers cut their byte streams into messages.
/// Public: may include only public headers.
#ifndef TARN_GENERIC_FRAMING_H
#define TARN_GENERIC_FRAMING_H

namespace Tarn {
namespace Generic {

/// The framing of a TCP object, chosen by SetProcType. It is never negotiated: both peers must be
/// configured to match.
///
/// - line: the payload followed by CR LF. Payloads are texts; a received line ends at its first
/// NUL.
/// - length prefix: 4 bytes that count themselves and the payload, unsigned, big-endian
/// (little-endian
///   after DisableEndian), then the payload.
/// - raw: the payload as it is; every read is delivered whole.
///
/// Any other value frames by length prefix in both directions.
enum protocol_type : int {
  PROTOCOL_STRING = 0,       ///< sends lines, receives lines
  PROTOCOL_BYTE = 1,         ///< sends and receives length-prefixed messages; the default
  PROTOCOL_NONE = 2,         ///< sends and receives raw bytes
  PROTOCOL_STRING_RECV = 3,  ///< sends raw bytes, receives lines
  PROTOCOL_STRING_SEND = 4,  ///< sends lines, receives raw bytes
  PROTOCOL_HTTP = 5          ///< client: sends raw bytes, delivers nothing; server: length prefix
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_FRAMING_H
