// tarn put: uploads one file and tells what became of it.
#include <Tarn/Generic/UploadClient.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <memory>
#include <optional>
#include <string>

#include "tools/Commands.h"
#include "tools/Console.h"
#include "tools/Mailbox.h"
#include "tools/Network.h"
#include "tools/StopSignals.h"

namespace tarn_tool {

namespace {

using std::chrono::milliseconds;
using Tarn::Generic::IUploadClient;
using Clock = std::chrono::steady_clock;

constexpr long long kBlockBytes = 1048576;
constexpr long long kHeaderBytes = 50;

/// What the client has reported so far, with the times at which it did.
struct Reports {
  int percent = 0;
  std::optional<Clock::time_point> sent;      ///< when the last block was about to go out
  std::optional<Clock::time_point> failed;    ///< when the first failure was reported
  unsigned int failure = 0;                   ///< its code
  std::optional<Clock::time_point> answered;  ///< when the server's answer came
  unsigned int answer = 0;                    ///< its code
  std::string storedName;
};

using UploadMailbox = Mailbox<Reports>;

void OnResult(void* mailbox, const char* /*localPath*/, const char* storedName, unsigned int code) {
  static_cast<UploadMailbox*>(mailbox)->Add([storedName, code](Reports& reports) {
    // Only the server's answer comes with a name, be it an empty one.
    if (storedName != nullptr) {
      reports.answered = Clock::now();
      reports.answer = code;
      reports.storedName = storedName;
    } else if (!reports.failed) {
      reports.failed = Clock::now();
      reports.failure = code;
    }
  });
}

void OnProgress(void* mailbox, const char* /*localPath*/, int percent) {
  static_cast<UploadMailbox*>(mailbox)->Add([percent](Reports& reports) {
    reports.percent = percent;
    if (percent >= 100) reports.sent = Clock::now();
  });
}

struct ClientDeleter {
  void operator()(IUploadClient* client) const { IUploadClient::Delete(client); }
};
using ClientPtr = std::unique_ptr<IUploadClient, ClientDeleter>;

/// The file's size when it can be uploaded.
std::optional<long long> CheckFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0) {
    Complain("%s: %s", path.c_str(), ErrorText().c_str());
    return std::nullopt;
  }
  if (!S_ISREG(status.st_mode)) {
    Complain("%s: not a regular file", path.c_str());
    return std::nullopt;
  }
  if (status.st_size > UINT_MAX - kHeaderBytes) {
    Complain("%s: longer than an upload can announce", path.c_str());
    return std::nullopt;
  }
  return status.st_size;
}

/// One upload from the first report to the exit status.
class Upload {
 public:
  Upload(UploadMailbox& mailbox, const StopSignals& signals, long long size, int waitSeconds)
      : mailbox_(mailbox), signals_(signals), size_(size), wait_(waitSeconds * 1000LL) {}

  int Follow() {
    int signal = 0;
    for (;;) {
      reports_ = mailbox_.Read();
      if (reports_.percent > 0) progress_.Show(reports_.percent);
      const std::optional<Clock::time_point> end = DecisionTime();
      if (end && *end <= Clock::now()) break;
      if (signal != 0) break;
      signal = signals_.Wait({mailbox_.Descriptor()}, MillisecondsUntil(end));
    }
    progress_.End();
    if (Decided() || signal == 0) return Tell();
    Complain("interrupted at %d %%", reports_.percent);
    return kInterrupted + signal;
  }

 private:
  /// The client also tries to read what would follow such a file and reports 2003 for it, although
  /// all data was sent. The answer then comes before or after that report.
  [[nodiscard]] bool EndReadFails() const {
    return (size_ + kHeaderBytes - 1) / kBlockBytes * kBlockBytes >= size_;
  }

  /// The server answers after it has checked the file, at 100 MB a second if it is slow.
  [[nodiscard]] milliseconds CheckTime() const { return milliseconds(size_ / 100000); }

  [[nodiscard]] bool Decided() const { return reports_.answered || reports_.failed; }

  /// When to stop waiting for further reports; none while blocks are still being sent.
  [[nodiscard]] std::optional<Clock::time_point> DecisionTime() const {
    if (reports_.answered) {
      const bool complete = reports_.failed || !EndReadFails();
      return *reports_.answered + milliseconds(complete ? 0 : 1000);
    }
    if (reports_.failed) {
      // What was not sent whole is not answered, and an empty file never is.
      const bool hope = reports_.sent.has_value();
      return *reports_.failed + (hope ? milliseconds(3000) + CheckTime() : milliseconds(0));
    }
    if (reports_.sent) return *reports_.sent + wait_ + CheckTime();
    return std::nullopt;
  }

  static int MillisecondsUntil(const std::optional<Clock::time_point>& end) {
    if (!end) return -1;
    const auto left = std::chrono::ceil<milliseconds>(*end - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
  }

  /// The server's answer decides where there is one.
  int Tell() const {
    if (reports_.failed) {
      Complain("the client reports %u: %s", reports_.failure, ResultWords(reports_.failure));
    }
    if (!reports_.answered) return TellNoAnswer();
    if (reports_.answer != 0) {
      Complain("the server answers %u: %s", reports_.answer, ResultWords(reports_.answer));
      return 1;
    }
    if (reports_.storedName.empty()) {
      Complain("the server's answer names no file");
      return 1;
    }
    if (reports_.failed) Complain("all data was sent before that: the server's answer counts");
    Say("the server answers 0: %s", ResultWords(0));
    Say("stored as %s", reports_.storedName.c_str());
    return 0;
  }

  [[nodiscard]] int TellNoAnswer() const {
    if (size_ == 0 && reports_.failure == 2003) {
      Complain("an empty file is never answered; the server keeps it unless it was refused");
    } else if (!reports_.failed) {
      Complain("the server did not answer");
    }
    return 1;
  }

  UploadMailbox& mailbox_;
  const StopSignals& signals_;
  const long long size_;
  const milliseconds wait_;
  Reports reports_;
  Progress progress_;
};

int RunUpload(const PutOptions& options, const StopSignals& signals) {
  std::optional<Target> target = ParseTarget(options.server);
  if (!target) return 1;
  const std::optional<long long> size = CheckFile(options.file);
  if (!size) return 1;
  UploadMailbox mailbox;  // outlives the client, whose threads report to it
  const ClientPtr client(IUploadClient::Create());
  if (!client || mailbox.Descriptor() < 0) {
    Complain("out of memory or descriptors");
    return 1;
  }
  client->RegisterEvent(OnResult, OnProgress, &mailbox);
  Say("sending %s (%lld bytes) to %s:%d", options.file.c_str(), *size, target->address.data(),
      target->port);
  if (!client->Upload(target->address.data(), target->port, options.file.c_str())) {
    Complain("the upload could not be begun");
    return 1;
  }
  return Upload(mailbox, signals, *size, options.waitSeconds).Follow();
}

}  // namespace

int Put(const PutOptions& options) {
  return WithStopSignals([&](const StopSignals& signals) { return RunUpload(options, signals); });
}

}  // namespace tarn_tool
