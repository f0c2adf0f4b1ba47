/// @file
/// Checksums: CRC-32 and the library's own CRC-8. Public: may include only public headers.
#ifndef TARN_GENERIC_CRC_H
#define TARN_GENERIC_CRC_H

#include <Tarn/Generic/Api.h>

/// The steps of CRC_8: with the register r, the next byte b makes it Table_CRC8[r ^ b]. Each entry
/// is that of the Dallas/Maxim 1-Wire table (polynomial 0x31, reflected) exclusive-or 0x21. Read
/// only: it is not const merely to be exported, and CRC_8 does not look at changes.
extern TARN_API unsigned char Table_CRC8[256];

namespace Tarn {
namespace Generic {

/// Checksums of byte runs. Stateless, so one object serves any number of threads. Null data gives
/// 0.
class TARN_API CRC {
 public:
  CRC();

  /// The register after `len` steps through Table_CRC8, starting with 0. Not one of the standard
  /// CRC-8s: a single byte 0x00 already gives 0x21. 0 when `len` is above 10,000,000.
  unsigned char CRC_8(unsigned char* data, unsigned int len);

  /// The CRC-32 of ISO-HDLC and IEEE 802.3 (as in zip and PNG): "123456789" gives 0xCBF43926.
  unsigned int CRC_32(const unsigned char* data, unsigned int len);
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_CRC_H
