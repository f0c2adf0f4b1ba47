/// @file
/// Questions about folders and paths. Public: may include only public headers.
#ifndef TARN_GENERIC_DIRECTORY_H
#define TARN_GENERIC_DIRECTORY_H

#include <Tarn/Generic/Api.h>
#include <Tarn/Generic/StringEx.h>

namespace Tarn {
namespace Generic {

// The destructor is not virtual and cannot become so: that would move every operation's slot. Hosts
// that ask for the warning need not hear about it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

/// The folder of the executable, existence tests, making and removing folders, cutting paths.
///
/// Make one where it is needed; never delete a derived object through a pointer to this class.
/// Threads: an object must not be used by two threads at once. Failures show in the results;
/// nothing throws. A null path counts as one that does not exist, or as an empty text.
class TARN_API CDirectory {
 public:
  CDirectory();
  CDirectory(const CDirectory&) = default;
  CDirectory& operator=(const CDirectory&) = default;
  ~CDirectory();

  /// The folder that holds the running executable, without a trailing "/". An executable in the
  /// root folder gives its own path.
  /// @return the object's own buffer, valid until the next call; empty when the executable's path
  ///         cannot be read or has 256 characters or more
  virtual char* GetCurrentPath();
  /// Whether there is a file or folder of that name.
  virtual bool IsExist(const char* path);
  /// Makes one folder, for the owner only (0700); its parent must exist.
  /// @return true when made, or when anything of that name exists already
  virtual bool CreateDir(const char* path);
  /// Removes an empty folder. Its entries are looked for under `path`, a backslash and their name:
  /// what has such a name is removed with all that it holds, what has not stays, and then the
  /// folder too.
  /// @return false when the folder cannot be opened, after saying so on standard output
  virtual bool RemoveDir(const char* path);
  /// The part behind the last "/", or, without any, behind the last "\"; empty without either.
  virtual CStringEx GetPathName(const char* path);
  /// The part before the last "/", or, without any, before the last "\"; empty without either.
  virtual CStringEx GetPathDir(const char* path);

 private:
  char m_szPath[256];  // the result of GetCurrentPath
};

#pragma GCC diagnostic pop

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_DIRECTORY_H
