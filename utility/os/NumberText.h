// Numbers at the beginning of a text, read as in the "C" locale whatever locale the host has set.
#ifndef TARN_UTILITY_OS_NUMBERTEXT_H
#define TARN_UTILITY_OS_NUMBERTEXT_H

namespace Tarn::Os {

/// White space, a sign, decimal digits; 0 without digits. A number beyond 32 bits keeps its low 32
/// bits (of the 64-bit number, which stops at its ends), as hosts have always got it.
int IntFromText(const char* text);

/// White space, a sign, a decimal or hexadecimal number, "inf" or "nan"; 0 without a number.
double DoubleFromText(const char* text);

}  // namespace Tarn::Os

#endif  // TARN_UTILITY_OS_NUMBERTEXT_H
