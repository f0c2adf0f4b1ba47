/// @file
/// Reachability test and host names. Public: may include only public headers.
#ifndef TARN_GENERIC_PING_H
#define TARN_GENERIC_PING_H

#include <Tarn/Generic/Api.h>
#include <Tarn/Generic/StringEx.h>

namespace Tarn {
namespace Generic {

/// Tells whether a host can be reached. Stateless: use from any thread.
class TARN_API IPing {
 public:
  virtual ~IPing();

  /// Not supported. @return 0
  virtual int Ping(unsigned int ip, unsigned int timeout) = 0;
  /// Answers at once, without sending anything: callers go on to connect and learn the truth there.
  /// @return 1 for every address
  virtual int Ping(char* ip, unsigned int timeout) = 0;

  /// Resolves a host name to its IPv4 addresses; may be called from several threads at once. Blocks
  /// as long as the platform's resolver does.
  /// @return the dotted addresses, joined by "." when there are several (two addresses give eight
  ///         numbers); empty when the name is unknown or null
  static CStringEx getHostIpByName(const char* name);

  /// A new pinger; release it with Delete. Null when memory is short.
  static IPing* Create();
  /// Destroys; null is ignored.
  static void Delete(IPing* ping);
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_PING_H
