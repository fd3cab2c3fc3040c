#include "orvexa/model/measures/gaussian_filter.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <type_traits>

#include "orvexa/common/parallel.h"

namespace orvexa::model {

namespace {

/// Columns that are summed at once: small enough for the processor's nearest memory.
constexpr std::size_t block_size = 256;

/// out[i] = weights[0] * centre[i] + sum over k of weights[k] * (before(k)[i] + after(k)[i]). `before` and `after` give
/// where the values at distance k begin.
template <typename Before, typename After>
void add_symmetric(std::span<const double> weights, const double* centre, const Before& before, const After& after,
                   std::span<double> out) {
  std::array<double, block_size> sum{};
  for (std::size_t begin = 0; begin < out.size(); begin += block_size) {
    const std::size_t n = std::min(block_size, out.size() - begin);
    for (std::size_t i = 0; i < n; ++i) sum[i] = weights[0] * centre[begin + i];
    for (std::size_t k = 1; k < weights.size(); ++k) {
      const double weight = weights[k];
      const double* a = before(k) + begin;
      const double* b = after(k) + begin;
      for (std::size_t i = 0; i < n; ++i) sum[i] += weight * (a[i] + b[i]);
    }
    std::copy_n(sum.begin(), n, out.begin() + static_cast<std::ptrdiff_t>(begin));
  }
}

template <typename T>
bool counts(T value) {
  if constexpr (std::is_floating_point_v<T>) return std::isfinite(value);
  return true;
}

/// Whether some pixel does not count, so that weights must be summed beside the values.
template <typename T>
bool has_gaps(const cv::Mat& plane, const Mask* mask, const RunContext& context) {
  if (mask != nullptr) return true;
  if constexpr (!std::is_floating_point_v<T>) return false;
  std::atomic<bool> found{false};
  for_each_stripe(plane.rows, plane.cols, context, [&](int y0, int y1) {
    for (int y = y0; y < y1 && !found; ++y) {
      const T* values = plane.ptr<T>(y);
      if (!std::all_of(values, values + plane.cols, counts<T>)) found = true;
    }
  });
  return found;
}

/// The share of the kernel that lies inside [0, size) when its centre is at each place.
std::vector<double> weights_inside(std::span<const double> weights, int size) {
  const int radius = static_cast<int>(weights.size()) - 1;
  std::vector<double> inside(static_cast<std::size_t>(size));
  for (int at = 0; at < size; ++at) {
    double sum = 0;
    for (int k = -std::min(radius, at); k <= std::min(radius, size - 1 - at); ++k) {
      sum += weights[static_cast<std::size_t>(std::abs(k))];
    }
    inside[static_cast<std::size_t>(at)] = sum;
  }
  return inside;
}

/// Sums along x of the rows from `first` on.
struct RowSums {
  int first = 0;
  cv::Mat values;
  cv::Mat weights;
};

template <typename T>
class GaussianRows {
 public:
  GaussianRows(const cv::Mat& plane, const Mask* mask, double sigma, GaussianBorder border, const RunContext& context)
      : _plane(plane),
        _mask(mask),
        _weights(gaussian_weights(sigma)),
        _radius(static_cast<int>(_weights.size()) - 1),
        _border(border),
        _has_gaps(has_gaps<T>(plane, mask, context)),
        _context(context) {
    if (_border == GaussianBorder::left_out && !_has_gaps) {
      _inside_x = weights_inside(_weights, plane.cols);
      _inside_y = weights_inside(_weights, plane.rows);
    }
  }

  void run(const std::function<void(int y, std::span<const double> means)>& row) const {
    // Rows above and below a tile are summed along x again for it: a tile is at least as high as they are together.
    const int height = std::max(stripe_height(_plane.cols), 2 * _radius);
    const int tiles = (_plane.rows + height - 1) / height;
    common::parallel_for(static_cast<std::size_t>(tiles), [&](std::size_t tile) {
      const int y0 = static_cast<int>(tile) * height;
      run_tile(y0, std::min(_plane.rows, y0 + height), row);
    });
  }

 private:
  [[nodiscard]] std::size_t width() const { return static_cast<std::size_t>(_plane.cols); }

  /// A row with `_radius` places before and behind it.
  void read_padded(int y, std::vector<double>& values, std::vector<double>& weights) const {
    const T* pixels = _plane.ptr<T>(y);
    const std::uint8_t* kept = _mask == nullptr ? nullptr : _mask->row(y).data();
    const auto radius = static_cast<std::size_t>(_radius);
    for (std::size_t x = 0; x < width(); ++x) {
      const bool does_count = (kept == nullptr || kept[x] != 0) && counts(pixels[x]);
      values[radius + x] = does_count ? double(pixels[x]) : 0.0;
      if (_has_gaps) weights[radius + x] = does_count ? 1.0 : 0.0;
    }
    pad(values);
    if (_has_gaps) pad(weights);
  }
  void pad(std::vector<double>& padded) const {
    const bool is_replicated = _border == GaussianBorder::replicated;
    const auto radius = static_cast<std::size_t>(_radius);
    const double before = is_replicated ? padded[radius] : 0.0;
    const double after = is_replicated ? padded[radius + width() - 1] : 0.0;
    std::fill_n(padded.begin(), radius, before);
    std::fill_n(padded.end() - _radius, radius, after);
  }

  void sum_along_x(const std::vector<double>& padded, double* out) const {
    const double* centre = padded.data() + _radius;
    add_symmetric(
        _weights, centre, [&](std::size_t k) { return centre - k; }, [&](std::size_t k) { return centre + k; },
        std::span(out, width()));
  }

  void sum_along_y(const cv::Mat& sums, int first, int y, std::span<double> out) const {
    const std::vector<double> nothing(_border == GaussianBorder::left_out ? width() : 0, 0.0);
    const auto row_at = [&](int at) {
      const int inside = std::clamp(at, 0, _plane.rows - 1);
      if (inside != at && _border == GaussianBorder::left_out) return nothing.data();
      return sums.ptr<double>(inside - first);
    };
    add_symmetric(
        _weights, row_at(y), [&](std::size_t k) { return row_at(y - static_cast<int>(k)); },
        [&](std::size_t k) { return row_at(y + static_cast<int>(k)); }, out);
  }

  [[nodiscard]] RowSums sums_of_rows(int begin, int end) const {
    RowSums sums{.first = begin, .values = cv::Mat(end - begin, _plane.cols, CV_64FC1), .weights = {}};
    if (_has_gaps) sums.weights.create(end - begin, _plane.cols, CV_64FC1);
    std::vector<double> values(width() + 2 * static_cast<std::size_t>(_radius));
    std::vector<double> weights(_has_gaps ? values.size() : 0);
    for (int y = begin; y < end; ++y) {
      _context.check();
      read_padded(y, values, weights);
      sum_along_x(values, sums.values.ptr<double>(y - begin));
      if (_has_gaps) sum_along_x(weights, sums.weights.ptr<double>(y - begin));
    }
    return sums;
  }

  void run_tile(int y0, int y1, const std::function<void(int y, std::span<const double> means)>& row) const {
    const RowSums sums = sums_of_rows(std::max(0, y0 - _radius), std::min(_plane.rows, y1 + _radius));
    std::vector<double> means(width());
    std::vector<double> weights(width());
    for (int y = y0; y < y1; ++y) {
      _context.check();
      sum_along_y(sums.values, sums.first, y, means);
      if (_has_gaps) {
        sum_along_y(sums.weights, sums.first, y, weights);
        // A weight that is only rounding would make a mean out of nothing; no window's real weight is that small.
        constexpr double least_weight = 1e-14;
        for (std::size_t x = 0; x < width(); ++x) {
          means[x] = weights[x] > least_weight ? means[x] / weights[x] : std::numeric_limits<double>::quiet_NaN();
        }
      } else if (_border == GaussianBorder::left_out) {
        const double inside_y = _inside_y[static_cast<std::size_t>(y)];
        for (std::size_t x = 0; x < width(); ++x) means[x] /= _inside_x[x] * inside_y;
      }
      row(y, means);
    }
  }

  const cv::Mat& _plane;
  const Mask* _mask;
  std::vector<double> _weights;
  int _radius;
  GaussianBorder _border;
  bool _has_gaps;
  std::vector<double> _inside_x;
  std::vector<double> _inside_y;
  const RunContext& _context;
};

}  // namespace

std::vector<double> gaussian_weights(double sigma) {
  if (!(sigma > 0)) throw std::invalid_argument("A Gaussian's sigma is above 0.");
  constexpr double truncate = 4.0;
  const auto radius = static_cast<std::size_t>(std::floor(truncate * sigma + 0.5));
  std::vector<double> weights(radius + 1);
  double sum = 0;
  for (std::size_t k = 0; k <= radius; ++k) {
    const double at = double(k) / sigma;
    weights[k] = std::exp(-0.5 * at * at);
    sum += k == 0 ? weights[k] : 2 * weights[k];
  }
  for (double& weight : weights) weight /= sum;
  return weights;
}

void for_each_gaussian_row(const cv::Mat& plane, const Mask* mask, double sigma, GaussianBorder border,
                           const RunContext& context,
                           const std::function<void(int y, std::span<const double> means)>& row) {
  switch (plane.type()) {
    case CV_8UC1:
      return GaussianRows<std::uint8_t>(plane, mask, sigma, border, context).run(row);
    case CV_16UC1:
      return GaussianRows<std::uint16_t>(plane, mask, sigma, border, context).run(row);
    case CV_32FC1:
      return GaussianRows<float>(plane, mask, sigma, border, context).run(row);
    default:
      throw std::invalid_argument("Gaussian means are taken on one channel of 8 or 16 bits or of floats.");
  }
}

}  // namespace orvexa::model
