/// @file
/// Typed access to one INI file. Public: may include only public headers.
#ifndef TARN_GENERIC_SETTING_H
#define TARN_GENERIC_SETTING_H

#include <Tarn/Generic/Api.h>

#include <string>

namespace Tarn {
namespace Generic {

// The destructor is not virtual and cannot become so: that would move every operation's slot. Hosts
// that ask for the warning need not hear about it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

/// One INI file, read and written key by key; every call opens the file anew (see Profile.h for its
/// syntax). Nothing is owned beside the path, so objects may be copied. There is no virtual
/// destructor: do not delete a derived object through this class.
///
/// Threads: the readers and writers may be called from several threads at once as long as no Load
/// runs; the result of GetString is shared by the whole process, GetString2 is the safe form.
///
/// Numbers are read and written with "." as the decimal point in every locale. No call throws.
class TARN_API CSetting {
 public:
  /// No file yet: readers give their defaults and writers 0 until Load.
  CSetting();
  /// The file `name` in the folder of the running program; the path is cut to 255 characters.
  CSetting(const char* name);

  /// Uses the file `path` from now on, cut to 255 characters. @return whether it exists
  virtual bool Load(const char* path);

  /// The value, at most 254 characters, or the trimmed default.
  /// @return a buffer that the whole process shares: valid until the next GetString of any object
  ///         on any thread
  virtual const char* GetString(const char* section, const char* key, const char* def);

  /// The value, or the trimmed default, as a copy; empty when memory is short.
  virtual std::string GetString2(const char* section, const char* key, const char* def);

  /// The number that the value begins with, 0 when it begins with none; `def` when the key is
  /// missing or empty. A number beyond the range of int keeps its low 32 bits, as with `atoi`.
  virtual int GetInt(const char* section, const char* key, int def);

  /// The same for numbers with a fraction or an exponent.
  virtual float GetFloat(const char* section, const char* key, float def);

  /// Sets an entry. @return 1 when done, else 0, as WritePrivateProfileString
  virtual int WriteString(const char* section, const char* key, const char* value);

  /// Sets an entry to a decimal number.
  virtual int WriteInt(const char* section, const char* key, int value);

  /// Sets an entry to a number with two decimals, as in 2.50.
  virtual int WriteFloat(const char* section, const char* key, float value);

 private:
  char m_szPath[256];  // the file's path; empty means none
};

#pragma GCC diagnostic pop

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_SETTING_H
