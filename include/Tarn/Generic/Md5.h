/// @file
/// MD5 message digests (RFC 1321). Public: may include only public headers.
///
/// A digest as text is 32 lower-case hexadecimal digits. No operation throws. Null pointers are
/// harmless: null input counts as empty, a null context is ignored. Distinct objects and contexts
/// may be used by different threads at once; sharing one needs the caller's lock.
#ifndef TARN_GENERIC_MD5_H
#define TARN_GENERIC_MD5_H

#include <Tarn/Generic/Api.h>

#include <iosfwd>
#include <string>

/// The running state of the plain routines. Hosts create it anywhere and start it with MD5Init.
struct MD5_CTX {
  unsigned int state[4];     ///< the chaining words
  unsigned int count[2];     ///< bits taken in so far, low word first
  unsigned char buffer[64];  ///< input that does not fill a block yet
  unsigned char digest[16];  ///< the result, written by MD5Final
};

/// Starts a new digest.
TARN_API void MD5Init(MD5_CTX* context);
/// Adds `len` bytes. Any division of the input into calls gives the same digest.
TARN_API void MD5Update(MD5_CTX* context, unsigned char* data, unsigned int len);
/// Pads and writes context->digest. Start the context anew before the next use.
TARN_API void MD5Final(MD5_CTX* context);

/// The digest of a file's contents.
/// @param path     failure to open it writes "fopen <path> failed" to standard error
/// @param md5_len  32 for the whole digest; 16 for the short form, the digits of bytes 4 to 11
/// @return text that the caller releases with free(); null when the file cannot be opened, memory
/// is
///         short ("malloc failed." on standard error) or md5_len is anything else
TARN_API char* MD5_file(char* path, int md5_len);

/// A digest built piece by piece. Copies carry the state so far along.
class TARN_API MD5 {
 public:
  /// Ready for update().
  MD5();
  /// The finished digest of `text`, zero bytes included.
  MD5(const std::string& text);

  /// Adds `len` bytes; does nothing once finalized.
  void update(const unsigned char* data, unsigned int len);
  void update(const char* data, unsigned int len);

  /// Finishes the digest; a second call does nothing.
  /// @return this object
  MD5& finalize();

  /// The digits, or "" when not finalized (or memory is short).
  std::string hexdigest() const;

  /// Writes what hexdigest() gives.
  friend TARN_API std::ostream& operator<<(std::ostream& out, MD5 digest);

 private:
  bool finalized;            // set by finalize() for good
  unsigned char buffer[64];  // input that does not fill a block yet
  unsigned int count[2];     // bits taken in so far, low word first
  unsigned int state[4];     // the chaining words
  unsigned char digest[16];  // valid once finalized
};

TARN_API std::ostream& operator<<(std::ostream& out, MD5 digest);

/// The digits of the digest of `text`, zero bytes included; "" when memory is short.
TARN_API std::string md5(std::string text);

namespace Tarn {
namespace Generic {

using ::md5;

/// Digests of texts and files for callers that want the digits in place. Not thread-safe: each
/// object holds one result, and the pointers that it returns stay valid until its next call or its
/// end.
class TARN_API CMd5 {
 public:
  CMd5();

  /// The digits of the digest of `text` up to its NUL; "" when `text` is null.
  char* String(const char* text);

  /// The digits of the digest of the file's contents; "" on failure, which MD5_file reports on
  /// standard error.
  char* File(const char* path);

 private:
  char m_szResult[33];  // the last result, NUL-ended
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_MD5_H
