// tarn get: fetches one file and tells what became of it.
#include <Tarn/Generic/DownloadClient.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>

#include "tools/Commands.h"
#include "tools/Console.h"
#include "tools/Mailbox.h"
#include "tools/Network.h"
#include "tools/StopSignals.h"

namespace tarn_tool {

namespace {

using std::chrono::milliseconds;
using Tarn::Generic::IDownloadClient;
using Clock = std::chrono::steady_clock;

/// What the client has reported so far.
struct Reports {
  std::optional<int> percent;
  std::optional<unsigned int> code;  ///< the first one; what follows tells of the closed connection
  Clock::time_point latest = Clock::now();
};

using DownloadMailbox = Mailbox<Reports>;

void OnResult(void* mailbox, const char* /*file*/, unsigned int code) {
  static_cast<DownloadMailbox*>(mailbox)->Add([code](Reports& reports) {
    if (!reports.code) reports.code = code;
    reports.latest = Clock::now();
  });
}

void OnProgress(void* mailbox, const char* /*file*/, int percent) {
  static_cast<DownloadMailbox*>(mailbox)->Add([percent](Reports& reports) {
    reports.percent = percent;
    reports.latest = Clock::now();
  });
}

struct ClientDeleter {
  void operator()(IDownloadClient* client) const { IDownloadClient::Delete(client); }
};
using ClientPtr = std::unique_ptr<IDownloadClient, ClientDeleter>;

int Tell(const GetOptions& options, unsigned int code) {
  if (code != 0) {
    Complain("the client reports %u: %s", code, ResultWords(code));
    return 1;
  }
  Say("the client reports 0: %s", ResultWords(0));
  Say("stored as %s/%s", options.localFolder.c_str(), options.file.c_str());
  return 0;
}

/// Waits for the result, as long as something comes now and then.
int Follow(const GetOptions& options, DownloadMailbox& mailbox, const StopSignals& signals) {
  Progress progress;
  int signal = 0;
  for (;;) {
    const Reports reports = mailbox.Read();
    if (reports.percent) progress.Show(*reports.percent);
    const auto left = std::chrono::ceil<milliseconds>(
        reports.latest + std::chrono::seconds(options.waitSeconds) - Clock::now());
    const bool over = reports.code || signal != 0 || left <= milliseconds(0);
    if (!over) {
      signal = signals.Wait({mailbox.Descriptor()}, static_cast<int>(left.count()));
      continue;
    }
    progress.End();
    if (reports.code) return Tell(options, *reports.code);
    if (signal != 0) {
      Complain("interrupted at %d %%", reports.percent.value_or(0));
      return kInterrupted + signal;
    }
    Complain("nothing has come for %d s; an empty file is never complete", options.waitSeconds);
    return 1;
  }
}

int RunDownload(const GetOptions& options, const StopSignals& signals) {
  std::optional<Target> target = ParseTarget(options.server);
  if (!target) return 1;
  DownloadMailbox mailbox;  // outlives the client, whose threads report to it
  const ClientPtr client(IDownloadClient::Create());
  if (!client || mailbox.Descriptor() < 0) {
    Complain("out of memory or descriptors");
    return 1;
  }
  client->RegisterEvent(OnResult, OnProgress, &mailbox);
  Say("fetching %s from %s:%d", options.file.c_str(), target->address.data(), target->port);
  if (!client->Down(target->address.data(), target->port, options.file.c_str(),
                    options.localFolder.c_str(), options.subFolder.c_str())) {
    Complain("the download could not be begun, or the folder %s cannot be made",
             options.localFolder.c_str());
    return 1;
  }
  return Follow(options, mailbox, signals);
}

}  // namespace

int Get(const GetOptions& options) {
  return WithStopSignals([&](const StopSignals& signals) { return RunDownload(options, signals); });
}

}  // namespace tarn_tool
