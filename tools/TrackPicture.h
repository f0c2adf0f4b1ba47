// A track as a picture.
#ifndef TARN_TOOLS_TRACKPICTURE_H
#define TARN_TOOLS_TRACKPICTURE_H

#include <string>
#include <vector>

namespace tarn_tool {

/// Degrees; a longitude may lie beyond 180 where a track crosses it.
struct MapPoint {
  double lon;
  double lat;
};

struct TrackPicture {
  std::string source;  ///< what the title names
  std::vector<MapPoint> measured;
  std::vector<MapPoint> filtered;   ///< where the filter expects the fix behind each measured one
  std::vector<MapPoint> predicted;  ///< the same by dead reckoning
};

/// Draws all three with gnuplot into an SVG file, which is replaced only by a complete picture.
/// @return false after a complaint
bool DrawTrack(const TrackPicture& picture, const std::string& file);

}  // namespace tarn_tool

#endif  // TARN_TOOLS_TRACKPICTURE_H
