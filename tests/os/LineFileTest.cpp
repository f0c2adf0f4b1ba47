// Appending whole texts to files that others append to as well.
#include "utility/os/LineFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Support.h"

namespace {

using namespace tarn_test;
using Tarn::Os::AppendPieces;
using Tarn::Os::AppendText;
using Tarn::Os::Descriptor;
using Tarn::Os::Echo;
using Tarn::Os::OpenAppend;

iovec Piece(std::string& text) {
  return {text.data(), text.size()};
}

TEST(LineFile, AppendsBehindWhatIsThere) {
  const TempDir dir;
  WriteFile(dir.File("a"), "old\n");
  const Descriptor file = OpenAppend(dir.File("a").c_str());
  ASSERT_TRUE(file.Valid());
  EXPECT_EQ(AppendText(file.Get(), "new\n"), 0);
  EXPECT_EQ(ReadFile(dir.File("a")), "old\nnew\n");
}

TEST(LineFile, MakesAMissingFileWithThePermissionsOfFopen) {
  const TempDir dir;
  const mode_t mask = umask(0027);
  const Descriptor file = OpenAppend(dir.File("a").c_str());
  umask(mask);
  struct stat status {};
  ASSERT_EQ(fstat(file.Get(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640U);
}

TEST(LineFile, IsForAppendingAndReadingAndClosedOnExec) {
  const TempDir dir;
  const Descriptor file = OpenAppend(dir.File("a").c_str());
  const int flags = fcntl(file.Get(), F_GETFL);
  EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
  EXPECT_NE(flags & O_APPEND, 0);
  EXPECT_NE(fcntl(file.Get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(LineFile, ReportsWhyAFileCannotBeOpened) {
  const TempDir dir;
  EXPECT_FALSE(OpenAppend(dir.File("missing/a").c_str()).Valid());
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(OpenAppend(dir.Path().c_str()).Valid());
  EXPECT_EQ(errno, EISDIR);
}

TEST(LineFile, NeverTakesTheNumberOfAStandardStream) {
  const TempDir dir;
  const int status = RunInChild([&] {
    close(0);
    close(1);
    close(2);
    const Descriptor file = OpenAppend(dir.File("a").c_str());
    const bool lowAreFree =
        fcntl(0, F_GETFD) == -1 && fcntl(1, F_GETFD) == -1 && fcntl(2, F_GETFD) == -1;
    return file.Get() >= 3 && lowAreFree ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(LineFile, WritesPiecesAsOneText) {
  const TempDir dir;
  const Descriptor file = OpenAppend(dir.File("a").c_str());
  std::string one = "one ";
  std::string none;
  std::string two = "two\n";
  std::array<iovec, 4> pieces = {Piece(none), Piece(one), Piece(none), Piece(two)};
  EXPECT_EQ(AppendPieces(file.Get(), pieces.data(), pieces.size()), 0);
  EXPECT_EQ(ReadFile(dir.File("a")), "one two\n");
}

TEST(LineFile, NothingToWriteIsSuccess) {
  const TempDir dir;
  const Descriptor file = OpenAppend(dir.File("a").c_str());
  EXPECT_EQ(AppendPieces(file.Get(), nullptr, 0), 0);
  EXPECT_EQ(AppendText(file.Get(), {}), 0);
  EXPECT_EQ(ReadFile(dir.File("a")), "");
}

TEST(LineFile, TakesMorePiecesThanOneCallDoes) {
  const TempDir dir;
  const Descriptor file = OpenAppend(dir.File("a").c_str());
  std::vector<std::string> texts(3000);
  std::vector<iovec> pieces;
  std::string all;
  for (size_t i = 0; i < texts.size(); ++i) {
    texts[i] = std::to_string(i) + ",";
    all += texts[i];
    pieces.push_back(Piece(texts[i]));
  }
  EXPECT_EQ(AppendPieces(file.Get(), pieces.data(), pieces.size()), 0);
  EXPECT_EQ(ReadFile(dir.File("a")), all);
}

TEST(LineFile, LinesOfManyAppendersNeverMix) {
  const TempDir dir;
  const std::string path = dir.File("a");
  std::vector<std::thread> writers;
  for (char letter : {'a', 'b', 'c', 'd'}) {
    writers.emplace_back([&path, letter] {
      const Descriptor file = OpenAppend(path.c_str());
      std::string head(300, letter);
      std::string tail(200, letter);
      tail += '\n';
      for (int i = 0; i < 300; ++i) {
        std::array<iovec, 2> pieces = {Piece(head), Piece(tail)};
        AppendPieces(file.Get(), pieces.data(), pieces.size());
      }
    });
  }
  for (auto& writer : writers)
    writer.join();
  std::istringstream lines(ReadFile(path));
  std::map<std::string, int> counts;
  for (std::string line; std::getline(lines, line);)
    ++counts[line];
  EXPECT_EQ(counts.size(), 4U);
  for (const auto& [line, count] : counts) {
    EXPECT_EQ(line, std::string(500, line[0]));
    EXPECT_EQ(count, 300);
  }
}

TEST(LineFile, GoesOnAfterSignalsAndShortWrites) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  const Descriptor reader(ends[0]);
  Descriptor writer(ends[1]);
  struct sigaction action {};
  struct sigaction former {};
  action.sa_handler = [](int) {};  // without SA_RESTART: the write is cut short or fails with EINTR
  sigaction(SIGALRM, &action, &former);
  const itimerval often{{0, 1000}, {0, 1000}};
  const itimerval never{};

  std::string sent = PatternBytes(300000);
  std::string tail = PatternBytes(300000, 2);
  int result = -1;
  std::string received;
  std::thread consumer([&] {
    std::array<char, 3000> block{};
    ssize_t count = 0;
    while ((count = read(reader.Get(), block.data(), block.size())) != 0) {
      if (count > 0) received.append(block.data(), static_cast<size_t>(count));
      std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
  });
  setitimer(ITIMER_REAL, &often, nullptr);
  std::array<iovec, 2> pieces = {Piece(sent), Piece(tail)};
  result = AppendPieces(writer.Get(), pieces.data(), pieces.size());
  setitimer(ITIMER_REAL, &never, nullptr);
  writer.Reset();
  consumer.join();
  sigaction(SIGALRM, &former, nullptr);
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(received == PatternBytes(300000) + PatternBytes(300000, 2));
}

TEST(LineFile, ReportsAFailedWrite) {
  const TempDir dir;
  const int status = RunInChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{10, 10};
    setrlimit(RLIMIT_FSIZE, &limit);
    const Descriptor file = OpenAppend(dir.File("a").c_str());
    return AppendText(file.Get(), "0123456789abc") == -EFBIG ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(ReadFile(dir.File("a")), "0123456789");
  EXPECT_EQ(AppendText(-1, "x"), -EBADF);
}

TEST(LineFile, TheEchoIsFlushed) {
  const TempDir dir;
  const int status = RunInChild([&] {
    if (freopen(dir.File("out").c_str(), "w", stdout) == nullptr) return 1;
    Echo("a line\n");
    return 0;  // _exit: what is still in a buffer is lost
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(ReadFile(dir.File("out")), "a line\n");
}

}  // namespace
