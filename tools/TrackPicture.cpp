// The picture of a track: a script for gnuplot, and gnuplot run over it.
#include "tools/TrackPicture.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <numbers>
#include <string>

#include "tools/Console.h"

extern char** environ;

namespace tarn_tool {

namespace {

constexpr double kMetresPerDegree = 111195;
constexpr double kWidthToHeight = 1.45;

__attribute__((format(printf, 1, 2))) std::string Formatted(const char* format, ...) {
  std::array<char, 400> text{};
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  return text.data();
}

/// A part of the map, degrees.
struct Frame {
  double west;
  double east;
  double south;
  double north;

  [[nodiscard]] double DegreesHigh() const { return north - south; }
  /// How much longer a degree of latitude is than one of longitude.
  [[nodiscard]] double Stretch() const {
    return 1 / std::cos((north + south) / 2 * std::numbers::pi / 180);
  }
  [[nodiscard]] double MetresWide() const { return (east - west) / Stretch() * kMetresPerDegree; }
  [[nodiscard]] MapPoint At(double right, double up) const {
    return {west + right * (east - west), south + up * (north - south)};
  }
};

void Include(Frame& frame, const std::vector<MapPoint>& points) {
  for (const MapPoint& point : points) {
    frame.west = std::min(frame.west, point.lon);
    frame.east = std::max(frame.east, point.lon);
    frame.south = std::min(frame.south, point.lat);
    frame.north = std::max(frame.north, point.lat);
  }
}

/// What holds all points.
Frame ExtentOf(const TrackPicture& picture) {
  const MapPoint first = picture.measured.front();
  Frame extent{first.lon, first.lon, first.lat, first.lat};
  Include(extent, picture.measured);
  Include(extent, picture.filtered);
  Include(extent, picture.predicted);
  return extent;
}

/// A forecast from odd numbers may lie anywhere, at no number too.
bool IsOnTheMap(const Frame& extent) {
  return extent.south > -90 && extent.north < 90 && extent.east - extent.west < 720;
}

/// The extent with a margin, in the proportions of the picture.
Frame FrameAround(const Frame& extent) {
  constexpr double kSmallest = 1e-4;
  constexpr double kMargin = 1.16;
  const double stretch = extent.Stretch();
  const double needed = (extent.east - extent.west) / stretch / kWidthToHeight;
  const double high = kMargin * std::max({needed, extent.DegreesHigh(), kSmallest});
  const double wide = high * kWidthToHeight * stretch;
  const MapPoint centre = extent.At(0.5, 0.5);
  return {centre.lon - wide / 2, centre.lon + wide / 2, centre.lat - high / 2,
          centre.lat + high / 2};
}

/// 1, 2 or 5 times a power of ten, not above `limit`.
double RoundLength(double limit) {
  const double power = std::pow(10, std::floor(std::log10(limit)));
  for (const double factor : {5.0, 2.0}) {
    if (factor * power <= limit) return factor * power;
  }
  return power;
}

/// A line of round length at the lower left with its length above it.
std::string ScaleBar(const Frame& frame) {
  const double metres = RoundLength(frame.MetresWide() / 5);
  const MapPoint left = frame.At(0.03, 0.04);
  const double right = left.lon + metres / frame.MetresWide() * (frame.east - frame.west);
  const std::string text =
      metres < 1000 ? Formatted("%g m", metres) : Formatted("%g km", metres / 1000);
  return Formatted("set arrow from %.9f,%.9f to %.9f,%.9f heads size screen 0.006,90 lw 2 front\n",
                   left.lon, left.lat, right, left.lat) +
         Formatted("set label '%s' at %.9f,%.9f center offset 0,0.7 front\n", text.c_str(),
                   (left.lon + right) / 2, left.lat);
}

/// Marks an end of the track and names it on the side where the track is not.
std::string EndLabel(const char* text, const Frame& frame, const MapPoint& point, double raised) {
  const bool left = point.lon < frame.At(0.5, 0.5).lon;
  return Formatted("set label '%s' at %.9f,%.9f %s offset %g,%g front point pt 6 ps 1.6 lw 2\n",
                   text, point.lon, point.lat, left ? "right" : "left", left ? -1.6 : 1.6, raised);
}

/// As many decimals as gnuplot's steps need: never less than a tenth of the range.
int Decimals(double range) {
  return std::max(0, -static_cast<int>(std::floor(std::log10(range / 10))));
}

std::string DataBlock(const char* name, const std::vector<MapPoint>& points) {
  std::string block = Formatted("$%s << EOD\n", name);
  for (const MapPoint& point : points)
    block += Formatted("%.9f %.9f\n", point.lon, point.lat);
  return block + "EOD\n";
}

/// The last part of a path, as a gnuplot text may hold it.
std::string TitleName(const std::string& path) {
  std::string name;
  for (const char c : path.substr(path.find_last_of('/') + 1)) {
    name += c < ' ' || c > '~' ? '?' : c;
    if (c == '\'') name += c;  // doubled within single quotes
  }
  return name;
}

std::string Script(const TrackPicture& picture) {
  const Frame frame = FrameAround(ExtentOf(picture));
  // Colours that are told apart without red and green; marks that are told apart without colours.
  return "set encoding utf8\n"
         "set terminal svg size 1100,860 font 'Helvetica,15' background '#ffffff'\n"
         "set title 'Track of " +
         TitleName(picture.source) +
         "' noenhanced font ',20'\n"
         "set xlabel 'longitude (°)'\nset ylabel 'latitude (°)'\n"
         "set grid lc rgb '#dddddd' lw 1 lt 1\nset border lc rgb '#888888'\n"
         "set xtics nomirror tc rgb '#000000'\nset ytics nomirror tc rgb '#000000'\n"
         "set key outside bottom center horizontal Left reverse maxcols 3 samplen 2.5 width -9 "
         "font ',13'\n" +
         Formatted("set format x '%%.%df'\nset format y '%%.%df'\n",
                   Decimals(frame.east - frame.west), Decimals(frame.DegreesHigh())) +
         Formatted("set size ratio -%.9f\n", frame.Stretch()) +
         Formatted("set xrange [%.9f:%.9f]\nset yrange [%.9f:%.9f]\n", frame.west, frame.east,
                   frame.south, frame.north) +
         ScaleBar(frame) + EndLabel("start", frame, picture.measured.front(), -0.7) +
         EndLabel("end", frame, picture.measured.back(), 0.7) +
         DataBlock("measured", picture.measured) + DataBlock("filtered", picture.filtered) +
         DataBlock("predicted", picture.predicted) +
         // Drawn last what must not be hidden; the legend's order is its own.
         "plot $measured with points lc rgb '#333333' pt 7 ps 0.5 title 'measured fixes', "
         "$filtered with lines lc rgb '#0072b2' lw 2.5 title 'filtered (Kalman), next fix', "
         "$predicted with linespoints lc rgb '#d55e00' lw 1.2 dt (6,4) pt 2 ps 0.6"
         " title 'predicted (dead reckoning), next fix', "
         "$measured with points lc rgb '#333333' pt 7 ps 0.5 notitle\n";
}

/// A descriptor that is closed in time.
class OpenFile {
 public:
  explicit OpenFile(int descriptor) : descriptor_(descriptor) {}
  ~OpenFile() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  [[nodiscard]] int Get() const { return descriptor_; }
  [[nodiscard]] bool IsOpen() const { return descriptor_ >= 0; }

 private:
  const int descriptor_;
};

/// Fills a file without a name and goes back to its beginning.
bool Fill(const OpenFile& file, const std::string& text) {
  return file.IsOpen() &&
         write(file.Get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
         lseek(file.Get(), 0, SEEK_SET) == 0;
}

/// Starts gnuplot with both files as its input and output.
/// @return an error number; 0 when it runs
int StartGnuplot(const OpenFile& input, const OpenFile& output, pid_t& process) {
  posix_spawn_file_actions_t actions;
  if (const int error = posix_spawn_file_actions_init(&actions)) return error;
  int error = posix_spawn_file_actions_adddup2(&actions, input.Get(), STDIN_FILENO);
  if (error == 0) {
    error = posix_spawn_file_actions_adddup2(&actions, output.Get(), STDOUT_FILENO);
  }
  // -d: nobody's own settings.
  char name[] = "gnuplot";
  char plain[] = "-d";
  char standardInput[] = "-";
  char* arguments[] = {name, plain, standardInput, nullptr};
  if (error == 0) error = posix_spawnp(&process, name, &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

bool EndsWell(pid_t process) {
  int status = 0;
  while (waitpid(process, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool RunGnuplot(const std::string& script, const OpenFile& output) {
  const OpenFile input(memfd_create("tarn-track", MFD_CLOEXEC));
  if (!Fill(input, script)) {
    Complain("no room for the plot: %s", ErrorText().c_str());
    return false;
  }
  pid_t process = 0;
  if (const int error = StartGnuplot(input, output, process)) {
    errno = error;
    if (error == ENOENT) {
      Complain("gnuplot, which draws the picture, is not installed (Debian package gnuplot-nox)");
    } else {
      Complain("gnuplot cannot be started: %s", ErrorText().c_str());
    }
    return false;
  }
  if (EndsWell(process)) return true;
  Complain("gnuplot could not draw the picture");
  return false;
}

}  // namespace

bool DrawTrack(const TrackPicture& picture, const std::string& file) {
  if (!IsOnTheMap(ExtentOf(picture))) {
    Complain("%s: a forecast leaves the map", picture.source.c_str());
    return false;
  }
  const std::string unfinished = file + ".part";
  const OpenFile output(open(unfinished.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!output.IsOpen()) {
    Complain("%s: %s", unfinished.c_str(), ErrorText().c_str());
    return false;
  }
  if (RunGnuplot(Script(picture), output)) {
    if (rename(unfinished.c_str(), file.c_str()) == 0) return true;
    Complain("%s: %s", file.c_str(), ErrorText().c_str());
  }
  unlink(unfinished.c_str());
  return false;
}

}  // namespace tarn_tool
