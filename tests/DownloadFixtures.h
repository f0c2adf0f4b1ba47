// What the download tests share.
#ifndef TARN_TESTS_DOWNLOADFIXTURES_H
#define TARN_TESTS_DOWNLOADFIXTURES_H

#include <sys/stat.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/TransferFixtures.h"
#include "utility/Deque.h"
#include "utility/DownloadClient.h"
#include "utility/DownloadServer.h"

namespace tarn_test {

inline std::string DownloadHeaderFor(uint32_t total, uint32_t error, const std::string& md5) {
  std::string header(40, '\0');
  std::memcpy(header.data(), &total, 4);
  std::memcpy(header.data() + 4, &error, 4);
  md5.copy(header.data() + 8, 32);
  return header;
}

/// What a server sends for a file with this content.
inline std::string DownloadStream(const std::string& content) {
  return DownloadHeaderFor(static_cast<uint32_t>(content.size()) + 40, 0, Md5Of(content)) + content;
}

/// What a server sends for a file that it cannot open.
inline std::string MissingFile() {
  return DownloadHeaderFor(40, 2000, "");
}

struct DownloadResult {
  std::string file;
  unsigned int code;
  bool operator==(const DownloadResult& other) const = default;
};

/// What a download client has told its host.
class DownloadEvents : public TransferEvents<DownloadResult> {
 public:
  using Result = DownloadResult;

  void Register(Tarn::Generic::IDownloadClient& client) {
    client.RegisterEvent(OnResult, OnProgress, static_cast<TransferEvents*>(this));
  }
  static void OnResult(void* user, const char* file, unsigned int code) {
    static_cast<DownloadEvents*>(static_cast<TransferEvents*>(user))->AddResult({file, code});
  }
};

/// A download client with a stand-in for its TCP client.
class DownloadClientFixture : public TransferFixture {
 protected:
  DownloadClientFixture() : client_(new Tarn::Generic::CDownloadClient), tcp_(new FakeTcpClient) {
    Tarn::Generic::ITcpClient::Delete(client_->m_pTcpClient);
    client_->m_pTcpClient = tcp_;
    events_.Register(*client_);
  }
  ~DownloadClientFixture() override { Tarn::Generic::IDownloadClient::Delete(client_); }

  bool Down(const char* file, const std::string& localDir, const char* subDir = nullptr) {
    char ip[] = "127.0.0.1";
    return client_->Down(ip, 4711, file, localDir.c_str(), subDir);
  }
  /// Begins the download of a.bin, up to the request.
  void Begin() {
    ASSERT_TRUE(Down("a.bin", Folder()));
    Raise(Tarn::Generic::CONN_SUCCESS);
  }
  void Raise(Tarn::Generic::ConnType type) {
    Tarn::Generic::CDownloadClient::OnConnect(client_, type);
  }
  void Feed(std::string_view bytes) {
    Tarn::Generic::CDownloadClient::OnMessage(client_, bytes.data(),
                                              static_cast<int>(bytes.size()));
  }
  [[nodiscard]] std::string Folder() const { return dir_.File("down"); }
  [[nodiscard]] std::string Path() const { return dir_.File("down/a.bin"); }
  [[nodiscard]] std::vector<std::string> Fetched() const { return ListDir(Folder()); }

  const TempDir dir_;
  DownloadEvents events_;
  Tarn::Generic::CDownloadClient* client_;  // null once a case has deleted it
  FakeTcpClient* tcp_;                      // owned by client_
};

using Messages = std::vector<std::pair<int, std::string>>;

/// A download server with a stand-in for its TCP server. It runs without workers: what waits is
/// served by Serve.
class DownloadServerFixture : public TransferFixture {
 protected:
  DownloadServerFixture() : tcp_(new FakeTcpServer) {
    Tarn::Generic::ITcpServer::Delete(server_.m_pTcpServer);
    server_.m_pTcpServer = tcp_;
    server_.SetPath(Root().c_str());
    server_.Start(4711, 0);
  }

  void Connect(unsigned int cid) {
    char ip[] = "127.0.0.1";
    server_.OnConnect(3, cid, ip);
  }
  void Ask(unsigned int cid, std::string_view text) {
    server_.OnMessage(3, cid, text.data(), static_cast<int>(text.size()));
  }
  Tarn::Generic::CDeque& Queue() { return *static_cast<Tarn::Generic::CDeque*>(server_.m_pDeque); }
  void Serve() {
    while (!Queue().IsDequeEmpty())
      Tarn::Generic::CDownloadServer::OnDownProc(&server_, Queue().PopOneFromDeque());
  }
  /// What one request is answered with.
  std::string Answer(std::string_view text) {
    tcp_->sent.clear();
    Connect(7);
    Ask(7, text);
    Serve();
    server_.OnDisconnect(0, 7);
    std::string all;
    for (const auto& [cid, bytes] : tcp_->sent)
      all += bytes;
    return all;
  }
  void Put(const std::string& name, const std::string& content) {
    WriteFile(Root() + "/" + name, content);
  }
  void MakeFolder(const std::string& name) { mkdir((Root() + "/" + name).c_str(), 0700); }
  [[nodiscard]] std::string Root() const { return dir_.File("root"); }

  const TempDir dir_;
  Tarn::Generic::CDownloadServer server_;
  FakeTcpServer* tcp_;  // owned by server_
};

}  // namespace tarn_test

#endif  // TARN_TESTS_DOWNLOADFIXTURES_H
