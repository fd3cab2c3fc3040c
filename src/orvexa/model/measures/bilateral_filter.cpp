#include "orvexa/model/measures/bilateral_filter.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace orvexa::model {

namespace {

/// exp(-t^2 / 2) for t >= 0, for values that are not whole numbers. The library's filter for floats scales its table by
/// the values that it is given, so that a pixel's result would depend on the piece of the picture that it is filtered
/// with.
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

/// The second weight of a neighbour by how far its value is away: for counts one number each, so that the inner loop
/// only looks up.
template <typename T>
class ValueWeights {
 public:
  explicit ValueWeights(double sigma_value) : _per_sigma(1 / sigma_value) {
    if constexpr (std::is_integral_v<T>) {
      _of_difference.resize(std::size_t{std::numeric_limits<T>::max()} + 1);
      for (std::size_t i = 0; i < _of_difference.size(); ++i) {
        const double t = double(i) * _per_sigma;
        _of_difference[i] = std::exp(-0.5 * t * t);
      }
    }
  }
  [[nodiscard]] double at(T a, T b) const {
    if constexpr (std::is_integral_v<T>) {
      return _of_difference[static_cast<std::size_t>(std::abs(int{a} - int{b}))];
    } else {
      const double distance = std::abs(double(a) - double(b)) * _per_sigma;
      return std::isfinite(distance) ? _bell.at(distance) : 0.0;  // one of them does not count
    }
  }

 private:
  BellTable _bell;
  double _per_sigma;
  std::vector<double> _of_difference;
};

/// The row with its first and last pixel repeated `radius` times before and behind it.
template <typename T>
void read_padded(const cv::Mat& plane, int y, int radius, std::vector<T>& padded) {
  const T* row = plane.ptr<T>(std::clamp(y, 0, plane.rows - 1));
  padded.assign(static_cast<std::size_t>(radius), row[0]);
  padded.insert(padded.end(), row, row + plane.cols);
  padded.insert(padded.end(), static_cast<std::size_t>(radius), row[plane.cols - 1]);
  if constexpr (std::is_floating_point_v<T>) {
    // Weight 0 times something that is no number would be none either.
    for (T& value : padded) value = std::isfinite(value) ? value : std::numeric_limits<T>::max();
  }
}

template <typename T>
cv::Mat filtered(const cv::Mat& plane, int radius, double sigma_space, double sigma_value, const RunContext& context) {
  const ValueWeights<T> value_weights(sigma_value);
  const std::vector<Neighbour> neighbours = disc_of_neighbours(radius, sigma_space);
  const auto width = static_cast<std::size_t>(plane.cols);
  cv::Mat result(plane.rows, plane.cols, CV_32FC1);
  for_each_stripe(plane.rows, plane.cols, context, [&](int y0, int y1) {
    std::vector<double> sums(width);
    std::vector<double> weights(width);
    std::vector<T> padded;
    for (int y = y0; y < y1; ++y) {
      context.check();
      const T* row = plane.ptr<T>(y);
      std::copy_n(row, width, sums.begin());
      std::fill(weights.begin(), weights.end(), 1.0);
      int padded_row = -radius - 1;
      for (const Neighbour& neighbour : neighbours) {
        if (neighbour.dy != padded_row) read_padded(plane, y + neighbour.dy, radius, padded);
        padded_row = neighbour.dy;
        const T* other = padded.data() + radius + neighbour.dx;
        for (std::size_t x = 0; x < width; ++x) {
          const double weight = neighbour.weight * value_weights.at(other[x], row[x]);
          sums[x] += weight * double(other[x]);
          weights[x] += weight;
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
