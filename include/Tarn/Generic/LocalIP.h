/// @file
/// The host's own address. Public: may include only public headers.
#ifndef TARN_GENERIC_LOCALIP_H
#define TARN_GENERIC_LOCALIP_H

#include <Tarn/Generic/Api.h>

namespace Tarn {

/// Finds an IPv4 address of this host: that of the last interface in the platform's list that is
/// up, the loopback interface included. May be called from several threads at once.
/// @param out  receives four raw bytes, out[0] the first number of the dotted form; no terminator.
///             Untouched when the result is 0.
/// @return 1; 0 when no interface is up, `out` is null, or the platform refuses (told on standard
/// error)
TARN_API int GetLocalIP(char* out);

}  // namespace Tarn

#endif  // TARN_GENERIC_LOCALIP_H
