// The filter of a moving target's track: R. E. Kalman, "A New Approach to Linear Filtering and
// Prediction Problems", 1960, with five states: latitude, longitude (degrees), a free quantity,
// speed (knots), course.
#ifndef TARN_UTILITY_CORE_TRACKFILTER_H
#define TARN_UTILITY_CORE_TRACKFILTER_H

#include <array>

namespace Tarn::Core {

using Vector5 = std::array<double, 5>;
using Row5 = double[5];  // a matrix is a pointer to the first of five rows

enum TrackIndex : int { kTrackLat, kTrackLon, kTrackAux, kTrackSpeed, kTrackCourse };

/// The filter's state, wherever its owner keeps it.
struct TrackFilter {
  double* x;  // state
  Row5* K;    // gain
  Row5* F;    // transition
  Row5* H;    // measurement: the identity, so it is left out of every product
  Row5* Q;    // process noise
  Row5* R;    // measurement noise
  Row5* P;    // covariance
};

/// Zeroes the state and sets the diagonals and the motion; all other elements stay.
void ResetTrack(const TrackFilter& filter);

/// Predicts the state by one step and corrects it by a measurement. Keeps the gain as it was where
/// the innovation's covariance has no inverse.
void CorrectTrack(const TrackFilter& filter, const Vector5& measured);

/// Sets how far a target moves in `dt` seconds per knot. `lat` and `course` go into sine and cosine
/// as they are.
void SetTrackMotion(Row5* F, double lat, double course, double dt);

/// The state after one step.
[[nodiscard]] Vector5 PredictTrack(const Row5* F, const double* x);

/// Gauss-Jordan elimination with partial pivoting (W. H. Press et al., "Numerical Recipes", 2.1).
/// `out` may be `in`.
/// @return false when a pivot is exactly 0; `out` is incomplete then
[[nodiscard]] bool Invert(const Row5* in, Row5* out);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_TRACKFILTER_H
