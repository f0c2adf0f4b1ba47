// The block cipher with its chain, and texts through it; the cipher itself is core/AesBlock.
#include <Tarn/Generic/Aes.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "utility/core/AesBlock.h"
#include "utility/core/Base64.h"

using Tarn::Core::AesKeys;
using Tarn::Core::AesMode;
using Tarn::Core::kAesBlockBytes;

static_assert(sizeof(AES) == 1048 && sizeof(Tarn::Generic::CAes) == 1128, "hosts hold the objects");

char sm_chain0[32] = {};
char sm_szErrorMsg1[23] = "Object not Initialized";
char sm_szErrorMsg2[32] = "Data not multiple of Block Size";

namespace {

AesMode ModeOf(int mode) {
  if (mode == 1) return AesMode::kCbc;
  return mode == 2 ? AesMode::kCfb : AesMode::kEcb;
}

const unsigned char* Bytes(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}

unsigned char* Bytes(char* text) {
  return reinterpret_cast<unsigned char*>(text);
}

/// How many blocks `n` bytes are; 0 when they are not whole blocks. Divides by constants: a
/// division by a variable takes about as long as a block.
size_t WholeBlocks(size_t n, int blockSize) {
  const size_t blocks = blockSize == 16 ? n / 16 : blockSize == 24 ? n / 24 : n / 32;
  return blocks * static_cast<size_t>(blockSize) == n ? blocks : 0;
}

/// In pieces of fixed length: a call to copy so few bytes takes longer than the copying.
void CopyChain(char (&to)[32], const char* chain, int blockSize) {
  std::memset(to, 0, sizeof to);
  if (chain == nullptr) return;
  std::memcpy(to, chain, 16);
  for (int i = 16; i < blockSize; i += 8)
    std::memcpy(to + i, chain + i, 8);
}

unsigned Product(int a, char b) {
  return Tarn::Core::GfMultiply(static_cast<unsigned char>(a), static_cast<unsigned char>(b));
}

}  // namespace

int Mul(int a, int b) {
  return static_cast<int>(Product(a, static_cast<char>(b)));
}

int Mul4(int a, char* b) {
  if (b == nullptr) return 0;
  return static_cast<int>(Product(a, b[0]) << 24 | Product(a, b[1]) << 16 | Product(a, b[2]) << 8 |
                          Product(a, b[3]));
}

AES::AES() : m_bInit(false), m_keyLength(0), m_blockSize(0), m_rounds(0), m_chain0(), m_chain() {}

AES::~AES() {
  if (!m_bInit) return;
  explicit_bzero(m_Ke, sizeof m_Ke);
  explicit_bzero(m_Kd, sizeof m_Kd);
}

void AES::MakeKey(const char* key, const char* chain, int keylength, int blockSize) {
  using Tarn::Core::IsAesSize;
  if (key == nullptr || !IsAesSize(keylength) || !IsAesSize(blockSize)) return;
  m_keyLength = keylength;
  m_blockSize = blockSize;
  m_rounds = Tarn::Core::AesRounds(keylength, blockSize);
  CopyChain(m_chain0, chain, blockSize);
  CopyChain(m_chain, chain, blockSize);
  Tarn::Core::ExpandAesKey(Bytes(key), keylength, blockSize, m_Ke, m_Kd);
  m_bInit = true;
}

void AES::EncryptBlock(const char* in, char* out) {
  if (!m_bInit || in == nullptr || out == nullptr) return;
  const AesKeys keys{m_Ke, m_Kd, m_rounds, m_blockSize};
  EncryptAes(keys, AesMode::kEcb, nullptr, Bytes(in), Bytes(out), 1);
}

void AES::DecryptBlock(const char* in, char* out) {
  if (!m_bInit || in == nullptr || out == nullptr) return;
  const AesKeys keys{m_Ke, m_Kd, m_rounds, m_blockSize};
  DecryptAes(keys, AesMode::kEcb, nullptr, Bytes(in), Bytes(out), 1);
}

void AES::DefEncryptBlock(const char* in, char* out) {
  if (!m_bInit || in == nullptr || out == nullptr) return;
  const AesKeys keys{m_Ke, m_Kd, m_rounds, kAesBlockBytes};
  EncryptAes(keys, AesMode::kEcb, nullptr, Bytes(in), Bytes(out), 1);
}

void AES::DefDecryptBlock(const char* in, char* out) {
  if (!m_bInit || in == nullptr || out == nullptr) return;
  const AesKeys keys{m_Ke, m_Kd, m_rounds, kAesBlockBytes};
  DecryptAes(keys, AesMode::kEcb, nullptr, Bytes(in), Bytes(out), 1);
}

void AES::Encrypt(const char* in, char* out, size_t n, int mode) {
  if (!m_bInit || in == nullptr || out == nullptr) return;
  const size_t blocks = WholeBlocks(n, m_blockSize);
  const AesKeys keys{m_Ke, m_Kd, m_rounds, m_blockSize};
  EncryptAes(keys, ModeOf(mode), Bytes(m_chain), Bytes(in), Bytes(out), blocks);
}

void AES::Decrypt(const char* in, char* out, size_t n, int mode) {
  if (!m_bInit || in == nullptr || out == nullptr) return;
  const size_t blocks = WholeBlocks(n, m_blockSize);
  const AesKeys keys{m_Ke, m_Kd, m_rounds, m_blockSize};
  DecryptAes(keys, ModeOf(mode), Bytes(m_chain), Bytes(in), Bytes(out), blocks);
}

void AES::Xor(char* buff, const char* chain) {
  if (!m_bInit || buff == nullptr || chain == nullptr) return;
  for (int i = 0; i < m_blockSize; i++)
    buff[i] = static_cast<char>(buff[i] ^ chain[i]);
}

namespace Tarn {
namespace Generic {

namespace {

constexpr size_t kKeyBytes = 16;
constexpr size_t kBlock = kAesBlockBytes;
// The ciphertext that the first 1,024 characters of base64 hold. The cipher only looks back, so
// what would follow changes nothing in them.
constexpr size_t kMostCiphertext = 768;
// One character more than a text can have that decodes to 1,024 bytes.
constexpr size_t kMostBase64 = 1367;
// Pad values up to 22 count as padding, as explained below.
constexpr int kPadLimit = 23;

bool IsKey(const char* key) {
  return key != nullptr && strnlen(key, kKeyBytes + 1) == kKeyBytes;
}

/// Fills `out` with the text and its padding, or with what of the text has room.
/// @return the bytes that count
size_t PadText(const char* text, unsigned char (&out)[kMostCiphertext]) {
  const size_t length = strnlen(text, kMostCiphertext);
  const size_t pad = std::min(kBlock - length % kBlock, kMostCiphertext - length);
  std::memcpy(out, text, length);
  std::memset(out + length, static_cast<int>(pad), pad);
  return length + pad;
}

/// Zeros the padding, or everything when the padding is not whole.
/// REQUIRES: size > 0
void RemovePadding(char* text, size_t size) {
  const int pad = static_cast<signed char>(text[size - 1]);
  // Kept: values from 17 to 22 count, too, and values outside leave the text as it is. Peers send
  // texts that were padded to more than one block, or not at all.
  if (pad <= 0 || pad >= kPadLimit) return;
  const size_t count = static_cast<size_t>(pad);
  const bool whole = count <= size && std::all_of(text + size - count, text + size,
                                                  [pad](char c) { return c == pad; });
  const size_t zeroed = whole ? count : size;
  std::memset(text + size - zeroed, 0, zeroed);
}

}  // namespace

CAes::CAes() : m_szOutput(), m_szChain(), m_mode(0) {}

void CAes::SetType(int mode) {
  m_mode = mode >= 0 && mode <= 2 ? mode : 0;
}

void CAes::SetChain(const char* chain) {
  if (chain == nullptr) return;
  // Kept: what stands behind a shorter text stays. Peers that change the chain do the same.
  const size_t length = strnlen(chain, sizeof m_szChain - 1);
  std::memcpy(m_szChain, chain, length);
  m_szChain[length] = '\0';
}

char* CAes::Encrypt(const char* key, const char* text) {
  // Kept: cleared before the arguments are looked at. They may be this very buffer, and count as
  // empty then.
  std::memset(m_szOutput, 0, sizeof m_szOutput);
  if (!IsKey(key) || text == nullptr) return m_szOutput;
  unsigned char work[kMostCiphertext];
  const size_t size = PadText(text, work);
  char* const bytes = reinterpret_cast<char*>(work);
  AES cipher;
  cipher.MakeKey(key, m_szChain, kKeyBytes, kAesBlockBytes);
  cipher.Encrypt(bytes, bytes, size, m_mode);
  Core::EncodeBase64(work, size, m_szOutput);
  m_szOutput[sizeof m_szOutput - 1] = '\0';
  return m_szOutput;
}

char* CAes::Decrypt(const char* key, const char* base64text) {
  std::memset(m_szOutput, 0, sizeof m_szOutput);  // Kept: first, as in Encrypt
  if (!IsKey(key) || base64text == nullptr) return m_szOutput;
  unsigned char work[Core::Base64DecodedLimit(kMostBase64)];
  const size_t size = Core::DecodeBase64({base64text, strnlen(base64text, kMostBase64)}, work);
  if (size == 0 || size > sizeof m_szOutput) return m_szOutput;
  AES cipher;
  cipher.MakeKey(key, m_szChain, kKeyBytes, kAesBlockBytes);
  cipher.Decrypt(reinterpret_cast<char*>(work), m_szOutput, size, m_mode);
  RemovePadding(m_szOutput, size);
  m_szOutput[sizeof m_szOutput - 1] = '\0';
  return m_szOutput;
}

}  // namespace Generic
}  // namespace Tarn
