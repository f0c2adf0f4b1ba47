// The tarn command: reads the command line and runs the verb.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <functional>

#include "tools/Commands.h"
#include "tools/Console.h"
#include "tools/Geo.h"
#include "tools/Wire.h"

namespace tarn_tool {

namespace {

constexpr int kUsageError = 2;

void AddServe(CLI::App& app, ServeOptions& options, std::function<int()>& verb) {
  CLI::App* serve =
      app.add_subcommand("serve", "Receive uploads and serve downloads until SIGINT or SIGTERM");
  serve
      ->add_option("--dir", options.folder,
                   "Folder that is served; uploads are stored in it as uploads\\NAME")
      ->required();
  const auto addPort = [serve](const char* name, int& port, const char* help) {
    serve->add_option(name, port, help)->check(CLI::Range(0, 65535))->capture_default_str();
  };
  addPort("--upload-port", options.uploadPort, "TCP port of the uploads; 0 takes a free one");
  addPort("--download-port", options.downloadPort, "TCP port of the downloads; 0 takes a free one");
  serve->add_option("--workers", options.workers, "Downloads at a time")
      ->check(CLI::Range(1, 1024))
      ->capture_default_str();
  serve->callback([&] { verb = [&options] { return Serve(options); }; });
}

void AddPut(CLI::App& app, PutOptions& options, std::function<int()>& verb) {
  CLI::App* put = app.add_subcommand("put", "Upload one file");
  put->add_option("HOST:PORT", options.server, "The upload server")->required();
  put->add_option("FILE", options.file, "The file to send")->required();
  put->add_option("--wait", options.waitSeconds, "Seconds to wait for the answer once all is sent")
      ->check(CLI::Range(0, 86400))
      ->capture_default_str();
  put->callback([&] { verb = [&options] { return Put(options); }; });
}

void AddGet(CLI::App& app, GetOptions& options, std::function<int()>& verb) {
  CLI::App* get = app.add_subcommand("get", "Download one file");
  get->add_option("HOST:PORT", options.server, "The download server")->required();
  get->add_option("FILE", options.file, "The file's name on the server")->required();
  get->add_option("--sub", options.subFolder, "Folder below the server's root");
  get->add_option("--to", options.localFolder, "Folder to store it in; made when missing")
      ->capture_default_str();
  get->add_option("--wait", options.waitSeconds, "Seconds to wait while nothing comes")
      ->check(CLI::Range(1, 86400))
      ->capture_default_str();
  get->callback([&] { verb = [&options] { return Get(options); }; });
}

void AddHash(CLI::App& app, HashOptions& options, std::function<int()>& verb) {
  CLI::App* hash = app.add_subcommand("hash", "Print digests or checksums of files");
  CLI::Option_group* kinds = hash->add_option_group("algorithm");
  const auto addKind = [&](const char* name, const char* help, HashKind kind) {
    return kinds->add_flag_callback(
        name, [&options, kind] { options.kind = kind; }, help);
  };
  addKind("--md5", "MD5 (the default)", HashKind::kMd5);
  addKind("--sha256", "SHA-256", HashKind::kSha256);
  CLI::Option* hmac =
      addKind("--hmac", "HMAC-SHA-256 with the key of --key", HashKind::kHmacSha256);
  addKind("--crc32", "CRC-32 of ISO-HDLC", HashKind::kCrc32);
  addKind("--crc8", "the library's CRC-8; at most 10,000,000 bytes", HashKind::kCrc8);
  kinds->require_option(0, 1);
  CLI::Option* key = hash->add_option("--key", options.key, "Key of the HMAC, as text");
  hmac->needs(key);
  key->needs(hmac);
  hash->add_option("FILE", options.files, "Files; - is standard input")->required();
  hash->callback([&] { verb = [&options] { return Hash(options); }; });
}

void AddTrack(CLI::App& app, TrackOptions& options, std::function<int()>& verb) {
  CLI::App* track = app.add_subcommand("track", "Filter and foretell a target's track; draw it");
  track->add_option("FILE", options.file, "CSV with the columns time,lat,lon,speed,course")
      ->required();
  track->add_option("--out", options.picture, "The picture, SVG")->required();
  track->callback([&] { verb = [&options] { return Track(options); }; });
}

int Run(int argc, char** argv) {
  CLI::App app(
      "File upload and download, file digests, positions, tracks and messages with libTarn.Generic",
      "tarn");
  app.set_version_flag("--version", "tarn " TARN_VERSION);
  app.require_subcommand(1);
  ServeOptions serve;
  PutOptions put;
  GetOptions get;
  HashOptions hash;
  TrackOptions track;
  std::function<int()> verb;
  AddServe(app, serve, verb);
  AddPut(app, put, verb);
  AddGet(app, get, verb);
  AddHash(app, hash, verb);
  AddGeo(app, verb);
  AddTrack(app, track, verb);
  AddTcp(app, verb);
  AddUdp(app, verb);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kUsageError;
  }
  return verb();
}

}  // namespace

}  // namespace tarn_tool

int main(int argc, char** argv) {
  try {
    return tarn_tool::Run(argc, argv);
  } catch (const std::exception& error) {
    tarn_tool::Complain("%s", error.what());
    return 1;
  }
}
