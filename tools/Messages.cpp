// What tarn tcp and tarn udp share: the messages they send, and showing those that arrive.
#include "tools/Messages.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdint>
#include <optional>

#include "tools/Console.h"

namespace tarn_tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kShownBytes = 1000;

std::string Printable(std::string_view bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes.substr(0, kShownBytes)) {
    if (c == '\\') {
      text += "\\\\";
    } else if (c >= ' ' && c <= '~') {
      text += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      text += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
    }
  }
  if (bytes.size() > kShownBytes) {
    text += " ... and " + std::to_string(bytes.size() - kShownBytes) + " more";
  }
  return text;
}

/// The whole file; complains when it cannot be read.
std::optional<std::string> ReadWhole(const std::string& path) {
  FILE* const file = fopen(path.c_str(), "rbe");
  std::string content;
  if (file != nullptr) {
    std::array<char, 65536> piece;
    size_t got = 0;
    while (content.size() <= INT_MAX && (got = fread(piece.data(), 1, piece.size(), file)) > 0)
      content.append(piece.data(), got);
  }
  const bool read = file != nullptr && ferror(file) == 0;
  if (!read) Complain("%s: %s", path.c_str(), ErrorText().c_str());
  if (file != nullptr) fclose(file);
  if (!read) return std::nullopt;
  if (content.size() > INT_MAX) {
    Complain("%s: longer than a message can be", path.c_str());
    return std::nullopt;
  }
  return content;
}

/// The lines of standard input as they come in.
class InputLines {
 public:
  /// Reads once, which does not block when the input is known to be readable, and hands all
  /// complete lines (at the end also an incomplete one) to `take` until that returns false.
  /// @return false at the end of the input, or when `take` did
  bool Read(const std::function<bool(std::string_view)>& take) {
    std::array<char, 65536> piece;
    const ssize_t got = read(STDIN_FILENO, piece.data(), piece.size());
    if (got > 0) pending_.append(piece.data(), static_cast<size_t>(got));
    size_t begin = 0;
    for (size_t end; (end = pending_.find('\n', begin)) != std::string::npos; begin = end + 1)
      if (!take(std::string_view(pending_).substr(begin, end - begin))) return false;
    pending_.erase(0, begin);
    if (got > 0) return true;
    if (!pending_.empty()) take(pending_);
    return false;
  }

 private:
  std::string pending_;
};

/// Sends what standard input brings until it ends or nothing more is to be waited for.
/// @return a signal's number, 0 otherwise
int SendInput(Messages& messages, const StopSignals& signals,
              const std::function<bool(std::string_view)>& send) {
  InputLines input;
  while (!messages.Done()) {
    if (const int signal = signals.Wait({messages.Descriptor(), STDIN_FILENO})) return signal;
    pollfd ready{STDIN_FILENO, POLLIN, 0};
    if (poll(&ready, 1, 0) > 0 && !input.Read(send)) return 0;
  }
  return 0;
}

/// Waits for the rest of the answers.
/// @return a signal's number, 0 otherwise
int AwaitAnswers(const SendOptions& options, Messages& messages, const StopSignals& signals) {
  const auto end = Clock::now() + std::chrono::seconds(options.waitSeconds);
  while (!messages.Done()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    if (left <= 0) return 0;
    const int slice = static_cast<int>(std::min<long long>(left, INT_MAX));
    if (const int signal = signals.Wait({messages.Descriptor()}, slice)) return signal;
  }
  return 0;
}

}  // namespace

void AddOptions(CLI::App& verb, SendOptions& options) {
  verb.add_option("HOST:PORT", options.target, "Where to send to")->required();
  CLI::Option* lines =
      verb.add_option("LINE", options.lines, "Messages; without any, the lines of standard input");
  verb.add_option("--file", options.file, "Send this file as one message")->excludes(lines);
  verb.add_option("--wait", options.waitSeconds, "Seconds to wait for answers once all is sent")
      ->check(CLI::Range(0, 86400))
      ->capture_default_str();
  verb.add_option("--count", options.count, "End after so many answers; fewer are a failure")
      ->check(CLI::Range(1, INT_MAX));
  verb.add_option("--save", options.saveFile, "Write the bytes of the answers to this file");
}

void AddOptions(CLI::App& verb, ListenOptions& options) {
  verb.add_option("--port", options.port, "Port; 0 takes a free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  verb.add_flag("--echo", options.echo, "Send every message back");
  verb.add_option("--count", options.count, "End after so many messages")
      ->check(CLI::Range(1, INT_MAX));
  verb.add_option("--save", options.saveFile, "Write the bytes of the messages to this file");
}

Messages::Messages(const ReceiveOptions& options)
    : wanted_(options.count), event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!options.saveFile.empty()) save_.reset(fopen(options.saveFile.c_str(), "wbe"));
  valid_ = event_ >= 0 && (options.saveFile.empty() || save_ != nullptr);
  if (!valid_) {
    Complain("%s: %s", event_ < 0 ? "eventfd" : options.saveFile.c_str(), ErrorText().c_str());
  }
}

Messages::~Messages() {
  if (event_ >= 0) close(event_);
}

void Messages::Show(const std::string& peer, std::string_view bytes) {
  Say("message from %s, %zu bytes: %s", peer.c_str(), bytes.size(), Printable(bytes).c_str());
  const std::lock_guard guard(mutex_);
  ++come_;
  if (save_ != nullptr && (fwrite(bytes.data(), 1, bytes.size(), save_.get()) != bytes.size() ||
                           fflush(save_.get()) != 0)) {
    Complain("the message could not be saved: %s", ErrorText().c_str());
  }
  Wake();
}

void Messages::End() {
  const std::lock_guard guard(mutex_);
  ended_ = true;
  Wake();
}

void Messages::Wake() {
  eventfd_write(event_, 1);
}

bool Messages::Done() {
  // Emptied before the look: what comes after it wakes again.
  uint64_t count = 0;
  [[maybe_unused]] const ssize_t got = read(event_, &count, sizeof count);
  return Ended() || (wanted_ > 0 && Complete());
}

bool Messages::Complete() {
  const std::lock_guard guard(mutex_);
  return come_ >= wanted_;
}

bool Messages::Ended() {
  const std::lock_guard guard(mutex_);
  return ended_;
}

int Interrupted(int signal) {
  Complain("interrupted by %s", signal == SIGINT ? "SIGINT" : "SIGTERM");
  return kInterrupted + signal;
}

int Listen(Messages& messages, const StopSignals& signals) {
  while (!messages.Done()) {
    const int stop = signals.Wait({messages.Descriptor()});
    if (stop == 0) continue;
    Say("stopped by %s", stop == SIGINT ? "SIGINT" : "SIGTERM");
    break;
  }
  return 0;
}

int Converse(const SendOptions& options, Messages& messages, const StopSignals& signals,
             const std::function<bool(std::string_view)>& send) {
  bool sent = true;
  const auto sendNext = [&](std::string_view message) { return sent = send(message); };
  int signal = 0;
  if (!options.file.empty()) {
    const std::optional<std::string> content = ReadWhole(options.file);
    sent = content && sendNext(*content);
  } else if (!options.lines.empty()) {
    for (size_t i = 0; i < options.lines.size() && sent; ++i)
      sendNext(options.lines[i]);
  } else {
    signal = SendInput(messages, signals, sendNext);
    sent = sent && (messages.Complete() || !messages.Ended());
  }
  if (signal == 0 && sent) signal = AwaitAnswers(options, messages, signals);
  if (signal != 0) return Interrupted(signal);
  return sent && messages.Complete() ? 0 : 1;
}

}  // namespace tarn_tool
