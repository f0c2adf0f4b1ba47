// The command's verbs. Each returns the exit status of the process.
#ifndef TARN_TOOLS_COMMANDS_H
#define TARN_TOOLS_COMMANDS_H

#include <string>
#include <vector>

namespace tarn_tool {

struct ServeOptions {
  std::string folder;    ///< made when missing; what is uploaded lands in it as uploads\NAME
  int uploadPort = 0;    ///< 0: any free one
  int downloadPort = 0;  ///< 0: any free one
  int workers = 4;       ///< downloads at a time
};
/// Runs an upload and a download server until SIGINT or SIGTERM.
int Serve(const ServeOptions& options);

struct PutOptions {
  std::string server;  ///< host:port
  std::string file;
  int waitSeconds = 30;  ///< for the answer, once everything is on its way
};
/// Uploads one file.
int Put(const PutOptions& options);

struct GetOptions {
  std::string server;  ///< host:port
  std::string file;
  std::string subFolder;          ///< on the server; may be empty
  std::string localFolder = ".";  ///< made when missing
  int waitSeconds = 30;           ///< without any news
};
/// Downloads one file.
int Get(const GetOptions& options);

enum class HashKind { kMd5, kSha256, kHmacSha256, kCrc32, kCrc8 };
struct HashOptions {
  HashKind kind = HashKind::kMd5;
  std::string key;  ///< of the HMAC
  std::vector<std::string> files;
};
/// Prints one "<digest>  <file>" line per file, in the form that md5sum --check reads.
int Hash(const HashOptions& options);

struct TrackOptions {
  std::string file;     ///< rows of time,lat,lon,speed,course
  std::string picture;  ///< SVG
};
/// Filters and foretells a track and draws it.
int Track(const TrackOptions& options);

}  // namespace tarn_tool

#endif  // TARN_TOOLS_COMMANDS_H
