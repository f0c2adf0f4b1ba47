// CConvertLonLat: camera pixels and the track filter.
#include <Tarn/Generic/ConvertLonLat.h>

#include "utility/core/Camera.h"
#include "utility/core/DirectProblem.h"
#include "utility/core/TrackFilter.h"

namespace Tarn::Generic {

namespace {

Core::Picture PictureOf(const window_info& window) {
  return {window.width, window.height, window.ratio};
}

Core::CameraView ViewOf(const angle_info& angle) {
  return {angle.pan, angle.tilt, angle.fov};
}

Core::Vector5 StateOf(const MeasuredValue& value) {
  return {value.lat, value.lon, value.aux, value.speed, value.course};
}

}  // namespace

std::pair<double, double> CConvertLonLat::pixel_to_camera(const window_info& window,
                                                          const angle_info& angle,
                                                          const point_info& point) {
  const Core::Direction direction =
      Core::DirectionOfPixel(PictureOf(window), ViewOf(angle), {point.x, point.y});
  return {direction.horizontal, direction.vertical};
}

std::pair<int, int> CConvertLonLat::camera_to_pixel(const window_info& window,
                                                    const angle_info& angle,
                                                    const std::pair<double, double>& angles) {
  const Core::Pixel pixel =
      Core::PixelOfDirection(PictureOf(window), ViewOf(angle), {angles.first, angles.second});
  return {pixel.x, pixel.y};
}

void CConvertLonLat::KalmanInit() {
  Core::ResetTrack({m_x, m_K, m_F, m_H, m_Q, m_R, m_P});
}

void CConvertLonLat::SetValueData(MeasuredValue last, MeasuredValue cur) {
  m_lastValue = last;
  m_curValue = cur;
}

void CConvertLonLat::KalmanFilter(double dt, MeasuredValue& out) {
  Core::CorrectTrack({m_x, m_K, m_F, m_H, m_Q, m_R, m_P}, StateOf(m_curValue));
  Core::SetTrackMotion(m_F, m_lastValue.lat, m_lastValue.course, dt);
  const Core::Vector5 next = Core::PredictTrack(m_F, m_x);
  out.time = m_curValue.time + dt;
  out.lat = next[Core::kTrackLat];
  out.lon = next[Core::kTrackLon];
  out.speed = next[Core::kTrackSpeed];
  out.aux = next[Core::kTrackAux];
  out.course = next[Core::kTrackCourse];
}

void CConvertLonLat::PredictValueBySD(MeasuredValue cur, MeasuredValue& out, double dt) {
  out.aux = cur.aux;
  out.course = cur.course;
  out.speed = cur.speed;
  // Kept: speed * dt stands where the bearing belongs and the course where the distance belongs.
  // Hosts that know fill the record to match.
  const Core::Position reached = Core::MoveByGauss({cur.lon, cur.lat}, cur.speed * dt, cur.course);
  out.lon = reached.lon;
  out.lat = reached.lat;
}

bool CConvertLonLat::MatrixInverse(double (*in)[5], double (*out)[5]) {
  if (in == nullptr || out == nullptr) return false;
  return Core::Invert(in, out);
}

}  // namespace Tarn::Generic
