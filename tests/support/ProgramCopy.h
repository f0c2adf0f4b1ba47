// Runs the current test case a second time, in a copy of the test program in a folder of its own:
// for files that are found beside the executable.
#ifndef TARN_TESTS_SUPPORT_PROGRAMCOPY_H
#define TARN_TESTS_SUPPORT_PROGRAMCOPY_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/support/Support.h"

namespace tarn_test {

/// True in the second run.
inline bool InProgramCopy() {
  return std::getenv("TARN_TEST_PROGRAM_COPY") != nullptr;
}

/// Puts the program into `folder`/bin and runs the current case there; its standard output. Fails
/// the case when the second run fails.
inline std::string RunInProgramCopy(const std::string& folder) {
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
  const std::filesystem::path copy = std::filesystem::path(folder) / "bin" / self.filename();
  std::filesystem::create_directory(copy.parent_path());
  // Linked when it can be: the program is large.
  std::error_code error;
  std::filesystem::create_hard_link(self, copy, error);
  if (error) std::filesystem::copy_file(self, copy);
  const testing::TestInfo* info = testing::UnitTest::GetInstance()->current_test_info();
  int status = 0;
  const std::string output =
      RunCommand("TARN_TEST_PROGRAM_COPY=1 '" + copy.string() +
                     "' --gtest_filter=" + info->test_suite_name() + "." + info->name(),
                 &status);
  EXPECT_EQ(status, 0) << output;
  return output;
}

}  // namespace tarn_test

#endif  // TARN_TESTS_SUPPORT_PROGRAMCOPY_H
