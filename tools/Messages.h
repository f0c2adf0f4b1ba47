// What tarn tcp and tarn udp share: the messages they send, and showing those that arrive.
#ifndef TARN_TOOLS_MESSAGES_H
#define TARN_TOOLS_MESSAGES_H

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "tools/StopSignals.h"

namespace tarn_tool {

/// What both listening and sending take.
struct ReceiveOptions {
  std::string saveFile;  ///< takes the bytes of the messages; empty: none
  int count = 0;         ///< messages to wait for; 0: no matter how many
};

struct SendOptions : ReceiveOptions {
  std::string target;              ///< HOST:PORT
  std::vector<std::string> lines;  ///< a message each
  std::string file;                ///< one message; empty: none
  int waitSeconds = 1;             ///< for answers, after the last message
};

struct ListenOptions : ReceiveOptions {
  int port = 0;  ///< 0: any free one
  bool echo = false;
};

void AddOptions(CLI::App& verb, SendOptions& options);
void AddOptions(CLI::App& verb, ListenOptions& options);

/// Shows and counts what arrives. Its operations may be called from any thread.
class Messages {
 public:
  explicit Messages(const ReceiveOptions& options);
  ~Messages();
  Messages(const Messages&) = delete;
  Messages& operator=(const Messages&) = delete;

  /// False (and told) when the platform refused what is needed.
  [[nodiscard]] bool Valid() const { return valid_; }

  /// Shows one message, "message from PEER, 5 bytes: hello" with unprintable bytes as \xNN.
  void Show(const std::string& peer, std::string_view bytes);
  /// The peer is gone, or nothing can come from it.
  void End();

  /// Wakes whoever waits for the descriptor.
  void Wake();
  /// Can be read after every message, End and Wake until Done is called.
  [[nodiscard]] int Descriptor() const { return event_; }
  /// True when there is nothing more to wait for.
  [[nodiscard]] bool Done();

  /// As many messages as asked for have come, if a number was.
  [[nodiscard]] bool Complete();
  [[nodiscard]] bool Ended();

 private:
  struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
  };

  const int wanted_;
  const int event_;
  bool valid_ = false;
  std::mutex mutex_;  ///< for what follows
  std::unique_ptr<FILE, FileCloser> save_;
  int come_ = 0;
  bool ended_ = false;
};

/// Tells of the signal that ends the command.
/// @return the exit status
int Interrupted(int signal);

/// Waits for the messages asked for or a signal, and tells which.
/// @return the exit status
int Listen(Messages& messages, const StopSignals& signals);

/// Sends the lines, the file, or the lines of standard input, then waits for answers.
/// @param send  sends one message; false when it failed, which it has told
/// @return the exit status
int Converse(const SendOptions& options, Messages& messages, const StopSignals& signals,
             const std::function<bool(std::string_view)>& send);

}  // namespace tarn_tool

#endif  // TARN_TOOLS_MESSAGES_H
