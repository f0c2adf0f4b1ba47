/// @file
/// Symmetric encryption: texts (CAes) and whole blocks (AES). Public: may include only public
/// headers.
#ifndef TARN_GENERIC_AES_H
#define TARN_GENERIC_AES_H

#include <Tarn/Generic/Api.h>

#include <cstddef>

/// A chain of 32 zero bytes, to be given to AES::MakeKey.
extern TARN_API char sm_chain0[32];
/// Texts for hosts that want to report what AES passes over in silence: use before MakeKey, ...
extern TARN_API char sm_szErrorMsg1[23];
/// ... and data that is not a whole number of blocks.
extern TARN_API char sm_szErrorMsg2[32];

/// The product of the low bytes of `a` and `b` in the field GF(2^8) of the cipher (FIPS 197,
/// section 4.2).
/// @return 0 to 255
TARN_API int Mul(int a, int b);

/// The products of the low byte of `a` with each of the four bytes at `b`, the first one in the
/// highest byte of the result. 0 when `b` is null.
TARN_API int Mul4(int a, char* b);

/// The block cipher Rijndael with keys and blocks of 16, 24 or 32 bytes in any combination; with
/// blocks of 16 bytes it is AES (FIPS 197).
///
/// Modes: 0 ECB; 1 CBC; 2 CFB over whole blocks (its feedback is one block wide); any other number
/// means ECB. CBC and CFB start with the chain given to MakeKey and carry it on from call to call,
/// so that a long text may be passed in pieces. Encrypt and Decrypt move the same chain: use one
/// object, or MakeKey again, for each direction.
///
/// Nothing is padded and nothing reported: unusable arguments, and every operation before a
/// successful MakeKey, leave all memory as it is. `in` and `out` are the same memory or do not
/// overlap.
///
/// Threads: one object is used by one thread at a time. No operation throws. The keys are wiped
/// from memory when the object ends.
class TARN_API AES {
 public:
  AES();
  virtual ~AES();

  /// Sets the key and starts the chain anew. Nothing happens (an earlier key stays) when `key` is
  /// null or a size is not 16, 24 or 32.
  /// @param key        `keylength` bytes
  /// @param chain      `blockSize` bytes, the initialisation vector; null means zeros
  /// @param keylength  in bytes
  /// @param blockSize  in bytes
  void MakeKey(const char* key, const char* chain, int keylength, int blockSize);

  /// One block of the object's size, without chain.
  void EncryptBlock(const char* in, char* out);
  void DecryptBlock(const char* in, char* out);

  /// One block of 16 bytes, whatever the object's size (if that is larger, then with the beginning
  /// of each round key), without chain.
  void DefEncryptBlock(const char* in, char* out);
  void DefDecryptBlock(const char* in, char* out);

  /// Runs `n` bytes through the cipher in the given mode. Nothing happens when `n` is 0 or not a
  /// multiple of the block size.
  void Encrypt(const char* in, char* out, size_t n, int mode);
  void Decrypt(const char* in, char* out, size_t n, int mode);

  /// Exclusive-or of one block of `chain` into `buff`.
  void Xor(char* buff, const char* chain);

 private:
  bool m_bInit;       // MakeKey has succeeded
  int m_keyLength;    // bytes
  int m_blockSize;    // bytes
  int m_rounds;       // 10, 12 or 14
  int m_Ke[15][8];    // round keys of encryption, a row each, valid with m_bInit
  int m_Kd[15][8];    // round keys of decryption in the order of their use
  char m_chain0[32];  // the chain as given to MakeKey
  char m_chain[32];   // the chain as the modes have moved it on
};

namespace Tarn {
namespace Generic {

/// Encrypts short texts with AES-128 and PKCS#7 padding to base64, and back.
///
/// The results belong to the object: each stays valid until its next operation or its end. Passed
/// to that operation it therefore counts as empty; use two objects, or copy.
///
/// Threads: one object is used by one thread at a time. No operation throws; failures give "".
class TARN_API CAes {
 public:
  /// ECB, and a chain of zeros.
  CAes();

  /// @param mode  0 ECB, 1 CBC, 2 CFB; anything else means ECB
  void SetType(int mode);

  /// Sets the chain, the initialisation vector of CBC and CFB: the first 16 of its characters are
  /// used. A shorter text replaces the characters that it has and ends them with a zero byte;
  /// behind it stays what was there. At most 99 characters are kept; null changes nothing.
  void SetChain(const char* chain);

  /// @param key   exactly 16 characters
  /// @param text  shorter than 752 bytes; of a longer one only the first 1,023 characters of the
  ///              result are kept, which Decrypt cannot turn back
  /// @return the base64 text; "" when the key has another length or an argument is null
  char* Encrypt(const char* key, const char* text);

  /// The reverse with the same key, mode and chain.
  /// @return the text, with zero bytes behind it; "" when the key has another length, an argument
  /// is
  ///         null, what is decoded is empty, longer than 1,024 bytes or not a whole number of
  ///         blocks, and usually when the key is wrong
  char* Decrypt(const char* key, const char* base64text);

 private:
  char m_szOutput[1024];  // the last result, NUL-ended
  char m_szChain[100];    // starts with the chain
  int m_mode;             // 0, 1 or 2
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_AES_H
