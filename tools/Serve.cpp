// tarn serve: an upload and a download server until a signal stops them.
#include <Tarn/Generic/DownloadServer.h>
#include <Tarn/Generic/UploadServer.h>

#include <csignal>
#include <memory>
#include <string>

#include "tools/Commands.h"
#include "tools/Console.h"
#include "tools/Network.h"
#include "tools/StopSignals.h"

namespace tarn_tool {

namespace {

using Tarn::Generic::IDownloadServer;
using Tarn::Generic::IUploadServer;

struct ServerDeleter {
  void operator()(IUploadServer* server) const { IUploadServer::Delete(server); }
  void operator()(IDownloadServer* server) const { IDownloadServer::Delete(server); }
};
using UploadServerPtr = std::unique_ptr<IUploadServer, ServerDeleter>;
using DownloadServerPtr = std::unique_ptr<IDownloadServer, ServerDeleter>;

/// The save folder below the served one: what is stored beside it, as uploads\NAME, can be fetched
/// again, and nothing outside the served folder is touched.
std::string SaveFolder(const ServeOptions& options) {
  return options.folder + "/uploads";
}

bool SetFolders(const ServeOptions& options, IUploadServer& uploads, IDownloadServer& downloads) {
  if (!downloads.SetPath(options.folder.c_str())) {
    Complain("the folder %s cannot be made", options.folder.c_str());
    return false;
  }
  if (!uploads.SetPath(SaveFolder(options).c_str())) {
    Complain("the folder %s cannot be made", SaveFolder(options).c_str());
    return false;
  }
  return true;
}

bool StartServers(const ServeOptions& options, IUploadServer& uploads, IDownloadServer& downloads) {
  const int uploadPort =
      StartOn(options.uploadPort, Transport::kTcp, [&](int port) { return uploads.Start(port); });
  if (uploadPort == 0) {
    Complain("no upload server can listen on port %d", options.uploadPort);
    return false;
  }
  const int downloadPort = StartOn(options.downloadPort, Transport::kTcp, [&](int port) {
    return downloads.Start(port, options.workers);
  });
  if (downloadPort == 0) {
    Complain("no download server can listen on port %d", options.downloadPort);
    return false;
  }
  Say("listening on port %d for uploads to %s\\NAME", uploadPort, SaveFolder(options).c_str());
  Say("listening on port %d for downloads from %s", downloadPort, options.folder.c_str());
  return true;
}

int RunServers(const ServeOptions& options, const StopSignals& signals) {
  const UploadServerPtr uploads(IUploadServer::Create());
  const DownloadServerPtr downloads(IDownloadServer::Create());
  if (!uploads || !downloads) {
    Complain("out of memory");
    return 1;
  }
  if (!SetFolders(options, *uploads, *downloads)) return 1;
  if (!StartServers(options, *uploads, *downloads)) return 1;
  int stop = 0;
  while (stop == 0)
    stop = signals.Wait();
  Say("stopped by %s", stop == SIGINT ? "SIGINT" : "SIGTERM");
  uploads->Stop();
  downloads->Stop();
  return 0;
}

}  // namespace

int Serve(const ServeOptions& options) {
  return WithStopSignals([&](const StopSignals& signals) { return RunServers(options, signals); });
}

}  // namespace tarn_tool
