// Download clients whose host deletes them, or begins the next download, inside a callback.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/DownloadFixtures.h"
#include "utility/os/ThreadOwner.h"

namespace {

using namespace Tarn::Generic;
using namespace tarn_test;
using testing::ElementsAre;
using testing::IsEmpty;
using Result = DownloadEvents::Result;

/// Delivers on a thread that the stand-in's Disconnect joins, as the real one does.
class DownloadSelfCallTest : public DownloadClientFixture {
 protected:
  void FeedOnThread(const std::string& stream) {
    stream_ = stream;
    tcp_->onDisconnect = [this] { Tarn::Os::JoinThread(thread_); };
    ASSERT_EQ(Tarn::Os::StartThread(thread_, Run, this, "read"), 0);
    EXPECT_TRUE(WaitUntil([this] { return ended_.load(); }));
    Tarn::Os::JoinThread(thread_);
  }
  static void* Run(void* test) {
    auto* self = static_cast<DownloadSelfCallTest*>(test);
    self->Feed(self->stream_);
    self->ended_ = true;
    return nullptr;
  }

  std::string stream_;
  Tarn::Os::ThreadHandle thread_{0};
  std::atomic<bool> ended_{false};
};

TEST_F(DownloadSelfCallTest, SurvivesItsDeletionInTheProgressCallback) {
  Begin();
  events_.onProgress = [this] { IDownloadClient::Delete(client_); };
  FeedOnThread(DownloadStream("0123456789").substr(0, 45));
  client_ = nullptr;
  EXPECT_THAT(events_.Progress(), ElementsAre(50));
  EXPECT_THAT(events_.Results(), IsEmpty());
  EXPECT_THAT(Fetched(), IsEmpty());
}

TEST_F(DownloadSelfCallTest, SurvivesItsDeletionInTheResultCallback) {
  Begin();
  events_.onResult = [this] { IDownloadClient::Delete(client_); };
  FeedOnThread(DownloadStream("0123456789"));
  client_ = nullptr;
  EXPECT_THAT(events_.Codes(), ElementsAre(0u));
  EXPECT_EQ(ReadFile(Path()), "0123456789");
}

TEST_F(DownloadSelfCallTest, SurvivesItsDeletionInTheCallbackOfAMissingFile) {
  Begin();
  events_.onResult = [this] { IDownloadClient::Delete(client_); };
  FeedOnThread(MissingFile());
  client_ = nullptr;
  EXPECT_THAT(events_.Codes(), ElementsAre(2000u));
}

TEST_F(DownloadSelfCallTest, LeavesADownloadBegunInTheProgressCallbackAlone) {
  Begin();
  events_.onProgress = [this] {
    if (tcp_->connects > 1) return;
    EXPECT_TRUE(Down("b.bin", Folder()));
  };
  FeedOnThread(DownloadStream("0123456789"));
  EXPECT_THAT(events_.Results(), IsEmpty());
  EXPECT_THAT(Fetched(), IsEmpty());
  tcp_->onDisconnect = nullptr;
  Raise(CONN_SUCCESS);
  Feed(DownloadStream("next"));
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"b.bin", 0}));
  EXPECT_EQ(ReadFile(dir_.File("down/b.bin")), "next");
}

TEST_F(DownloadSelfCallTest, LeavesADownloadBegunInTheResultCallbackAlone) {
  Begin();
  events_.onResult = [this] {
    if (tcp_->connects > 1) return;
    EXPECT_TRUE(Down("b.bin", Folder()));
  };
  Raise(CONN_FAILED);
  tcp_->onDisconnect = nullptr;
  Raise(CONN_SUCCESS);
  Feed(DownloadStream("next"));
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"a.bin", 1}, Result{"b.bin", 0}));
}

}  // namespace
