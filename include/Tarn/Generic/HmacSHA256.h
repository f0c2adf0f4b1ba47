/// @file
/// HMAC-SHA-256 message authentication codes (RFC 2104 with FIPS 180-4). Public: may include only
/// public headers.
#ifndef TARN_GENERIC_HMACSHA256_H
#define TARN_GENERIC_HMACSHA256_H

#include <Tarn/Generic/Api.h>

#include <cstddef>

/// Writes the 32 bytes of the code of `data` under `key`. `out32` may overlap either input. Null
/// input counts as empty; with a null `out32` nothing happens. Nothing of the key stays behind in
/// memory. May be called from any thread.
TARN_API void hmac_sha256(unsigned char* out32, const unsigned char* data, size_t dataLen,
                          const unsigned char* key, size_t keyLen);

namespace Tarn {
namespace Generic {

using ::hmac_sha256;

/// The code as text. Not thread-safe: each object holds one result.
class TARN_API CHmacSHA256 {
 public:
  CHmacSHA256();

  /// The code of the message `data` under `key` as 64 lower-case hexadecimal digits, valid until
  /// the object's next call or its end. Both may be empty. "" when a length is negative, or a
  /// pointer null although its length is not 0.
  char* Encrypt(char* data, int dataLen, char* key, int keyLen);

 private:
  char m_szResult[65];  // the last result, NUL-ended
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_HMACSHA256_H
