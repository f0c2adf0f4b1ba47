// FTP upload: an interface that is never connected.
#include <Tarn/Generic/Ftp.h>

#include <memory>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "tests/support/RawPeer.h"
#include "tests/support/Slots.h"
#include "tests/support/Support.h"
#include "utility/Ftp.h"

namespace Tarn::Generic {
namespace {

using namespace tarn_test;

using FtpPtr = std::unique_ptr<IFtp, decltype(&IFtp::Delete)>;

FtpPtr NewFtp() {
  return {IFtp::Create(), IFtp::Delete};
}

static_assert(sizeof(CFtp) == sizeof(void*) + 8);
static_assert(std::is_abstract_v<IFtp> && std::has_virtual_destructor_v<IFtp>);

struct Arguments {
  std::string host = "127.0.0.1", user = "anonymous", password = "guest";
};

TEST(Ftp, BeginsNotConnected) {
  const FtpPtr ftp = NewFtp();
  EXPECT_EQ(ftp->Isconnect(), 0);
  EXPECT_EQ(ftp->Disconnect(), 1);
}

TEST(Ftp, StaysNotConnectedWhateverConnectIsGivenKept) {
  const FtpPtr ftp = NewFtp();
  Arguments with;
  for (const int port : {-1, 0, 21, 65535, 65536}) {
    EXPECT_EQ(ftp->Connect(with.host.data(), port, with.user.data(), with.password.data()), 0);
    EXPECT_EQ(ftp->Connect(nullptr, port, nullptr, nullptr), 0);
    EXPECT_EQ(ftp->Isconnect(), 0);
    EXPECT_EQ(ftp->Disconnect(), 1);
  }
}

TEST(Ftp, OpensNoConnectionToAListeningServer) {
  RawListener listener;
  const FtpPtr ftp = NewFtp();
  Arguments with;
  const int before = OpenDescriptors();
  EXPECT_EQ(ftp->Connect(with.host.data(), listener.Port(), with.user.data(), with.password.data()),
            0);
  EXPECT_EQ(OpenDescriptors(), before);
  EXPECT_FALSE(listener.Accept(0ms).Valid());
}

TEST(Ftp, UploadsNothingNotEvenAnExistingFileKept) {
  const TempDir dir;
  WriteFile(dir.File("a.txt"), "content");
  std::string local = dir.File("a.txt");
  std::string remote = "/a.txt";
  const FtpPtr ftp = NewFtp();
  EXPECT_EQ(ftp->UploadFile(local.data(), remote.data()), 0);
  EXPECT_EQ(ftp->UploadFile(nullptr, nullptr), 0);
  EXPECT_EQ(ReadFile(local), "content");
}

TEST(Ftp, AnswersFromItsFlagAloneKept) {
  CFtp ftp;
  ftp.m_bConnected = 7;
  EXPECT_EQ(ftp.Connect(nullptr, 21, nullptr, nullptr), 1);
  EXPECT_EQ(ftp.Isconnect(), 7);
  EXPECT_EQ(ftp.Disconnect(), 0);
  EXPECT_EQ(ftp.m_bConnected, 7);
  EXPECT_EQ(ftp.UploadFile(nullptr, nullptr), 0);
}

TEST(Ftp, IgnoresTheDeletionOfNull) {
  IFtp::Delete(nullptr);
}

TEST(Ftp, KeepsItsVirtualOperationsInOrder) {
  CFtp ftp;
  ftp.m_bConnected = 7;  // every operation answers differently
  char text[] = "x";
  EXPECT_EQ((CallSlot<int, char*, int, char*, char*>(&ftp, 2, text, 21, text, text)), 1);
  EXPECT_EQ(CallSlot<int>(&ftp, 3), 0);
  EXPECT_EQ(CallSlot<int>(&ftp, 4), 7);
  EXPECT_EQ((CallSlot<int, char*, char*>(&ftp, 5, text, text)), 0);
  EXPECT_EQ(SlotOf(&IFtp::Connect), 2U);
  EXPECT_EQ(SlotOf(&IFtp::Disconnect), 3U);
  EXPECT_EQ(SlotOf(&IFtp::Isconnect), 4U);
  EXPECT_EQ(SlotOf(&IFtp::UploadFile), 5U);
}

}  // namespace
}  // namespace Tarn::Generic
