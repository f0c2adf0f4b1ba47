/// @file
/// The library's text class. Public: may include only public headers.
#ifndef TARN_GENERIC_STRINGEX_H
#define TARN_GENERIC_STRINGEX_H

#include <vector>

#include <Tarn/Generic/Api.h>

/// Converts a NUL-ended buffer in place, byte by byte, with `toupper` of the current locale.
/// @return s; null stays null
TARN_API char* strtoUpper(char* s);
/// Converts a NUL-ended buffer in place, byte by byte, with `tolower` of the current locale.
/// @return s; null stays null
TARN_API char* strtoLower(char* s);

namespace Tarn {
namespace Generic {

/// An owned, NUL-ended byte string. Texts of at most 62 characters live inside the object, longer
/// ones in a heap block of its own.
///
/// Threads: an object must not be used by two threads at once; distinct objects are independent.
/// Lengths, counts and indexes are in bytes; the length is always that up to the first NUL. No
/// character encoding is known, and comparisons are byte by byte. Arguments may point into the
/// object's own text. Pointers to the text are valid until the next changing operation.
/// Errors: nothing throws. A null text counts as empty where a value is taken and matches nothing
/// where a text is sought; when memory is short the text stays as it was.
class TARN_API CStringEx {
 public:
  /// The empty text.
  CStringEx();
  /// A text of one character; empty when c is NUL.
  CStringEx(char c);
  /// See Assign.
  CStringEx(const char* s, int len = -1);
  CStringEx(const CStringEx& other);
  ~CStringEx();

  /// Takes the first `len` bytes of s, all of s when `len` is negative. A `len` beyond the end of s
  /// fills up with NULs, which do not count as text.
  void Assign(const char* s, int len);
  CStringEx& operator=(const CStringEx& other);
  CStringEx& operator=(const char* s);
  CStringEx& operator=(char c);
  /// Makes the text empty and gives back heap storage.
  void Empty();
  bool IsEmpty() const;
  int GetLength() const;

  /// The text itself, never null.
  operator const char*() const;
  /// The text itself, never null.
  const char* GetData() const;
  /// The text itself, never null.
  const char* c_str() const;
  /// The byte at i, which should not be behind the terminator: the text's storage is all that
  /// bounds it. Outside the storage the result is NUL.
  char GetAt(int i) const;
  /// Same as GetAt.
  char operator[](int i) const;
  /// Writes the byte at i; a NUL shortens the text in place. Storage that the object does not have
  /// is left alone.
  void SetAt(int i, char c);

  /// Adds s to the end.
  ///
  /// Beware: after a text of more than 62 characters has been shortened in place (by a trim or
  /// SetAt), an append with a result of at most 62 characters adds s not to the text, but to what
  /// the object last held while it was short. Assign or Empty it first.
  void Append(const char* s);
  CStringEx& operator+=(const CStringEx& other);
  CStringEx& operator+=(const char* s);
  CStringEx& operator+=(char c);
  CStringEx operator+(const CStringEx& other) const;
  CStringEx operator+(const char* s) const;

  /// The result of `strcmp`.
  int Compare(const char* s) const;
  /// Compares by `strcmp`. To compare with another object, hand over its c_str(): since C++20 two
  /// objects side by side are ambiguous.
  bool operator==(const char* s) const;
  bool operator!=(const char* s) const;
  bool operator<(const char* s) const;
  bool operator<=(const char* s) const;
  bool operator>(const char* s) const;
  bool operator>=(const char* s) const;

  /// Converts every byte by the current locale.
  /// @return the text
  char* ToUpper();
  /// Converts every byte by the current locale.
  /// @return the text
  char* ToLower();

  /// The first n bytes, n clamped to 0 ... length.
  CStringEx Left(int n) const;
  /// The last n bytes, n clamped to 0 ... length.
  CStringEx Right(int n) const;
  /// `count` bytes from `start`, up to the end when `count` is negative or reaches beyond it.
  /// `start` is clamped to 0 ... length.
  CStringEx SubString(int start, int count) const;

  /// A `start` equal to the length finds nothing, unless it is 0. NUL finds the terminator.
  /// @return the index of the first c at or behind `start`, or -1
  int Find(char c, int start = 0) const;
  /// An empty s is found at any `start` up to the length, the length included.
  /// @return the index of the first s at or behind `start`, or -1
  int Find(const char* s, int start = 0) const;
  /// @return the index of the last c, or -1
  int ReverseFind(char c) const;
  /// Whether Find finds it.
  bool Contians(char c);
  /// Whether Find finds it.
  bool Contians(const char* s);
  /// Whether two bytes with the high bit set stand side by side, the first at an even index. A
  /// two-byte character at an odd index is not seen.
  bool ContiansChinaChar();
  /// Whether any byte is punctuation (`ispunct`).
  bool ContiansSpecialChar();

  /// Replaces every occurrence, from the left; inserted text is not searched again. Takes time
  /// proportional to the text.
  /// @return how many were replaced; 0 when both are equal or oldText is empty
  int Replace(const char* oldText, const char* newText);
  /// TrimEnd, then TrimStart. Only the given byte is removed, not white space in general. Trims
  /// work in place and keep the storage.
  void Trim(char c = ' ');
  /// Overwrites every c at the end with NUL.
  void TrimEnd(char c = ' ');
  /// Removes every c from the beginning.
  void TrimStart(char c = ' ');

  /// The fields between the occurrences of the whole text `delimiter`, empty ones included: "a,,b"
  /// gives three, "a," two, a text without the delimiter (or with an empty one) itself. Takes time
  /// proportional to the text.
  /// @return the fields; none when the text is empty or memory is short
  std::vector<CStringEx> Split(const char* delimiter);

  /// Takes the formatted text, cut to 10239 characters.
  CStringEx& Format(const char* format, ...) __attribute__((format(printf, 2, 3)));
  /// Appends the formatted text, cut to 10239 characters. See Append.
  CStringEx& AppendFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));
  /// Takes the formatted text, cut to 63 characters.
  CStringEx& SmallFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));

 private:
  char* m_pData;        // the text: m_szBuffer, or a malloc block
  char m_szBuffer[64];  // short texts; keeps the last one while the text is long; the last byte is
                        // NUL
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_STRINGEX_H
