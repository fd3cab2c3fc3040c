#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// Points of one dimension or more, one after the other.
struct PointList {
  std::size_t dimensions = 1;
  std::vector<double> numbers;

  [[nodiscard]] std::size_t size() const { return numbers.size() / dimensions; }
  [[nodiscard]] std::span<const double> point(std::size_t i) const {
    return std::span(numbers).subspan(i * dimensions, dimensions);
  }
};

struct KMeansSettings {
  std::size_t k = 3;       ///< at least 1
  std::uint64_t seed = 0;  ///< of std::mt19937_64
  int starts = 5;          ///< at least 1
};

struct Clusters {
  PointList centres;   ///< fewer than k where the points have fewer different values; none without points
  double inertia = 0;  ///< sum of the squared distances of the points from their nearest centres
};

struct NearestCentre {
  std::size_t centre = 0;
  double squared_distance = 0;
};

/// Of equally near centres the first.
[[nodiscard]] NearestCentre nearest_centre(const PointList& centres, std::span<const double> point);

/// The centres with the least sum of squared distances that `starts` starts find: each begins with k-means++ and is
/// improved until no point changes its centre, at most 300 times. A centre that loses all points takes the point that
/// is farthest from its own. The same for any number of threads. Sources: S. P. Lloyd, Least squares quantization in
/// PCM, IEEE Transactions on Information Theory 28(2), 1982, 129-137; D. Arthur, S. Vassilvitskii, k-means++: the
/// advantages of careful seeding, SODA 2007, 1027-1035.
[[nodiscard]] Clusters k_means(const PointList& points, const KMeansSettings& settings, const RunContext& context);

}  // namespace orvexa::model
