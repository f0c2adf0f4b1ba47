/// @file
/// SHA-256 message digests (FIPS 180-4). Public: may include only public headers.
///
/// No operation fails or allocates. Null pointers are harmless: null input counts as empty, a null
/// context is ignored, a null result is not written. Distinct contexts may be used by different
/// threads at once.
#ifndef TARN_GENERIC_SHA256_H
#define TARN_GENERIC_SHA256_H

#include <Tarn/Generic/Api.h>

#include <cstddef>

/// The running state. Hosts create it anywhere and start it with sha256_init.
struct sha256_t {
  unsigned int state[8];     ///< the chaining words
  size_t count;              ///< bytes taken in so far
  unsigned char buffer[64];  ///< input that does not fill a block yet
};

/// Starts a new digest.
TARN_API void sha256_init(sha256_t* context);
/// Adds `len` bytes. Any division of the input into calls gives the same digest.
TARN_API void sha256_update(sha256_t* context, const unsigned char* data, size_t len);
/// Pads and writes the 32 bytes of the digest. Start the context anew before the next use.
TARN_API void sha256_final(sha256_t* context, unsigned char* out32);

/// The digest of `len` bytes at once; `out32` receives 32 bytes and may overlap `data`.
TARN_API void sha256_hash(unsigned char* out32, const unsigned char* data, size_t len);

namespace Tarn {
namespace Generic {

using ::sha256_hash;

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_SHA256_H
