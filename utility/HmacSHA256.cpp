// HMAC-SHA-256 on the stack; what could give the key away is wiped before returning.
#include <Tarn/Generic/HmacSHA256.h>

#include <Tarn/Generic/Sha256.h>

#include <cstring>

#include "utility/core/DigestText.h"

namespace {

constexpr size_t kBlockBytes = 64;
constexpr size_t kDigestBytes = 32;
constexpr unsigned char kInnerPad = 0x36;
constexpr unsigned char kOuterPad = 0x5c;

/// Everything that is derived from the key.
struct Secrets {
  unsigned char pad[kBlockBytes] = {};  // the key, filled up with zeros, then masked
  unsigned char inner[kDigestBytes];
  sha256_t hash;

  Secrets(const unsigned char* key, size_t len) {
    if (len > kBlockBytes) {
      sha256_init(&hash);
      sha256_update(&hash, key, len);
      sha256_final(&hash, pad);
    } else if (len != 0) {
      std::memcpy(pad, key, len);
    }
  }
  ~Secrets() { explicit_bzero(this, sizeof *this); }
  Secrets(const Secrets&) = delete;
  Secrets& operator=(const Secrets&) = delete;

  void Mask(unsigned char mask) {
    for (unsigned char& byte : pad)
      byte = static_cast<unsigned char>(byte ^ mask);
  }

  /// SHA-256 of the masked key and the `len` bytes behind it.
  void Hash(const unsigned char* data, size_t len, unsigned char* out32) {
    sha256_init(&hash);
    sha256_update(&hash, pad, kBlockBytes);
    sha256_update(&hash, data, len);
    sha256_final(&hash, out32);
  }
};

}  // namespace

void hmac_sha256(unsigned char* out32, const unsigned char* data, size_t dataLen,
                 const unsigned char* key, size_t keyLen) {
  if (out32 == nullptr) return;
  Secrets secrets(key, key != nullptr ? keyLen : 0);
  secrets.Mask(kInnerPad);
  secrets.Hash(data, dataLen, secrets.inner);
  secrets.Mask(kInnerPad ^ kOuterPad);
  secrets.Hash(secrets.inner, kDigestBytes, out32);
}

namespace Tarn {
namespace Generic {

CHmacSHA256::CHmacSHA256() : m_szResult() {}

char* CHmacSHA256::Encrypt(char* data, int dataLen, char* key, int keyLen) {
  m_szResult[0] = '\0';
  if (dataLen < 0 || (data == nullptr && dataLen != 0)) return m_szResult;
  if (keyLen < 0 || (key == nullptr && keyLen != 0)) return m_szResult;
  unsigned char code[kDigestBytes];
  hmac_sha256(code, reinterpret_cast<const unsigned char*>(data), static_cast<size_t>(dataLen),
              reinterpret_cast<const unsigned char*>(key), static_cast<size_t>(keyLen));
  Core::WriteDigest(m_szResult, code, sizeof code);
  return m_szResult;
}

}  // namespace Generic
}  // namespace Tarn
