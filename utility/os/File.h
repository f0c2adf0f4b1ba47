// Whole files: reading one, and rewriting one in place.
#ifndef TARN_UTILITY_OS_FILE_H
#define TARN_UTILITY_OS_FILE_H

#include <sys/types.h>

#include <string>
#include <string_view>

#include "utility/os/Handle.h"

namespace Tarn::Os {

/// Opens a file, close-on-exec and never as descriptor 0, 1 or 2. @return the descriptor or -errno
int OpenFile(const char* path, int flags, mode_t mode = 0);

/// Reads a file to its end. @return 0 or -errno @throw std::bad_alloc
int ReadWholeFile(const char* path, std::string& content);

/// A regular file that is read, changed in memory, and written back to the same inode, so that its
/// owner, mode and links stay. A failure leaves the old content.
class EditedFile {
 public:
  /// Opens and reads the file. @return 0 or -errno @throw std::bad_alloc
  /// @param create  makes an empty file when there is none; one that appears meanwhile is edited
  int Open(const char* path, bool create);
  [[nodiscard]] const std::string& Content() const { return content_; }
  /// Replaces the content on the disk. @return 0 or -errno
  int Replace(std::string_view content);

 private:
  void Restore();

  Descriptor file_;
  std::string content_;
};

}  // namespace Tarn::Os

#endif  // TARN_UTILITY_OS_FILE_H
