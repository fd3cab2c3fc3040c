#include "orvexa/model/measures/bilateral_filter.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace orvexa::model {

namespace {

/// exp(-t^2 / 2) for t >= 0. The library's filter for floats scales its table by the values that it is given, so that a
/// pixel's result would depend on the piece of the picture that it is filtered with.
class BellTable {
 public:
  BellTable() : _values(static_cast<std::size_t>(end * steps) + 2) {
    for (std::size_t i = 0; i + 2 < _values.size(); ++i) {
      const double t = double(i) / steps;
      _values[i] = std::exp(-0.5 * t * t);
    }
  }
  [[nodiscard]] double at(double t) const {
    const double place = std::min(t, end) * steps;
    const auto i = static_cast<std::size_t>(place);
    return _values[i] + (place - double(i)) * (_values[i + 1] - _values[i]);
  }

 private:
  static constexpr double end = 9;
  static constexpr double steps = 1024;  // the interpolation is off by 1 / (8 steps^2) = 1.2e-7 at most
  std::vector<double> _values;           ///< the last two are 0
};

struct Neighbour {
  int dy = 0;
  int dx = 0;
  double weight = 0;
};

std::vector<Neighbour> disc_of_neighbours(int radius, double sigma_space) {
  std::vector<Neighbour> neighbours;
  for (int dy = -radius; dy <= radius; ++dy) {
    for (int dx = -radius; dx <= radius; ++dx) {
      const int square = dx * dx + dy * dy;
      if (square == 0 || square > radius * radius) continue;
      neighbours.push_back({dy, dx, std::exp(-0.5 * square / (sigma_space * sigma_space))});
    }
  }
  return neighbours;
}

template <typename T>
cv::Mat filtered(const cv::Mat& plane, int radius, double sigma_space, double sigma_value, const RunContext& context) {
  const BellTable bell;
  const std::vector<Neighbour> neighbours = disc_of_neighbours(radius, sigma_space);
  const double per_sigma = 1 / sigma_value;
  const auto width = static_cast<std::size_t>(plane.cols);
  cv::Mat result(plane.rows, plane.cols, CV_32FC1);
  for_each_stripe(plane.rows, plane.cols, context, [&](int y0, int y1) {
    std::vector<double> sums(width);
    std::vector<double> weights(width);
    for (int y = y0; y < y1; ++y) {
      context.check();
      const T* row = plane.ptr<T>(y);
      std::copy_n(row, width, sums.begin());
      std::fill(weights.begin(), weights.end(), 1.0);
      for (const Neighbour& neighbour : neighbours) {
        const T* other = plane.ptr<T>(std::clamp(y + neighbour.dy, 0, plane.rows - 1));
        for (int x = 0; x < plane.cols; ++x) {
          const double there = double(other[std::clamp(x + neighbour.dx, 0, plane.cols - 1)]);
          const double distance = std::abs(there - double(row[x])) * per_sigma;
          if (!std::isfinite(distance)) continue;  // one of them does not count
          const double weight = neighbour.weight * bell.at(distance);
          sums[static_cast<std::size_t>(x)] += weight * there;
          weights[static_cast<std::size_t>(x)] += weight;
        }
      }
      float* out = result.ptr<float>(y);
      for (std::size_t x = 0; x < width; ++x) out[x] = static_cast<float>(sums[x] / weights[x]);
    }
  });
  return result;
}

}  // namespace

cv::Mat bilateral_filtered(const cv::Mat& plane, int radius, double sigma_space, double sigma_value,
                           const RunContext& context) {
  if (radius < 1 || !(sigma_space > 0) || !(sigma_value > 0)) {
    throw std::invalid_argument("A bilateral filter's radius and sigmas are above 0.");
  }
  switch (plane.type()) {
    case CV_8UC1:
      return filtered<std::uint8_t>(plane, radius, sigma_space, sigma_value, context);
    case CV_16UC1:
      return filtered<std::uint16_t>(plane, radius, sigma_space, sigma_value, context);
    case CV_32FC1:
      return filtered<float>(plane, radius, sigma_space, sigma_value, context);
    default:
      throw std::invalid_argument("Bilateral means are taken on one channel of 8 or 16 bits or of floats.");
  }
}

}  // namespace orvexa::model
