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

/// From this radius on sums are taken by way of their spectrum, whose work does not depend on the radius.
constexpr int least_spectral_radius = 32;

/// Circular convolution of rows of `size` numbers with a symmetric kernel.
class SpectralKernel {
 public:
  /// @param length  what the rows hold; where a sum reaches beyond them it is of no use.
  SpectralKernel(std::span<const double> weights, int length) : _size(cv::getOptimalDFTSize(length)) {
    cv::Mat kernel = cv::Mat::zeros(1, _size, CV_64FC1);
    double* at = kernel.ptr<double>();
    for (std::size_t k = 0; k < weights.size(); ++k) {
      at[k] = weights[k];
      if (k > 0) at[static_cast<std::size_t>(_size) - k] = weights[k];
    }
    cv::dft(kernel, _spectrum);
  }
  [[nodiscard]] int size() const { return _size; }

  void convolve(cv::Mat& rows) const {
    cv::dft(rows, rows, cv::DFT_ROWS);
    // A row is Re 0, Re 1, Im 1, Re 2, Im 2, ..., and the kernel's spectrum is real.
    const double* factors = _spectrum.ptr<double>();
    for (int y = 0; y < rows.rows; ++y) {
      double* row = rows.ptr<double>(y);
      row[0] *= factors[0];
      for (int j = 1; j < _size; ++j) row[j] *= factors[j - (j + 1) % 2];
    }
    cv::dft(rows, rows, cv::DFT_ROWS | cv::DFT_INVERSE | cv::DFT_SCALE | cv::DFT_REAL_OUTPUT);
  }

 private:
  int _size;
  cv::Mat _spectrum;
};

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
    // Rows above and below a tile are summed along x again for it: a tile is higher than they are together.
    const int height = std::max(stripe_height(_plane.cols), 3 * _radius);
    const int tiles = (_plane.rows + height - 1) / height;
    common::parallel_for(static_cast<std::size_t>(tiles), [&](std::size_t tile) {
      const int y0 = static_cast<int>(tile) * height;
      run_tile(y0, std::min(_plane.rows, y0 + height), row);
    });
  }

 private:
  [[nodiscard]] std::size_t width() const { return static_cast<std::size_t>(_plane.cols); }
  [[nodiscard]] bool is_spectral() const { return _radius >= least_spectral_radius; }

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
    if (is_spectral()) {
      add_spectral_sums(sums);
      return sums;
    }
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

  void add_spectral_sums(RowSums& sums) const {
    constexpr int rows_at_once = 16;
    std::vector<double> values(width() + 2 * static_cast<std::size_t>(_radius));
    std::vector<double> weights(_has_gaps ? values.size() : 0);
    const SpectralKernel kernel(_weights, static_cast<int>(values.size()));
    cv::Mat value_rows;
    cv::Mat weight_rows;
    const int rows = sums.values.rows;
    for (int begin = 0; begin < rows; begin += rows_at_once) {
      _context.check();
      const int count = std::min(rows_at_once, rows - begin);
      value_rows = cv::Mat::zeros(count, kernel.size(), CV_64FC1);
      if (_has_gaps) weight_rows = cv::Mat::zeros(count, kernel.size(), CV_64FC1);
      for (int i = 0; i < count; ++i) {
        read_padded(sums.first + begin + i, values, weights);
        std::copy(values.begin(), values.end(), value_rows.ptr<double>(i));
        if (_has_gaps) std::copy(weights.begin(), weights.end(), weight_rows.ptr<double>(i));
      }
      const cv::Range columns(_radius, _radius + _plane.cols);
      kernel.convolve(value_rows);
      value_rows.colRange(columns).copyTo(sums.values.rowRange(begin, begin + count));
      if (!_has_gaps) continue;
      kernel.convolve(weight_rows);
      weight_rows.colRange(columns).copyTo(sums.weights.rowRange(begin, begin + count));
    }
  }

  /// Replaces rows y0 to y1 - 1 by their sums along y.
  void sum_spectrally_along_y(cv::Mat& sums, int first, int y0, int y1) const {
    constexpr int columns_at_once = 32;
    const int length = y1 - y0 + 2 * _radius;
    const SpectralKernel kernel(_weights, length);
    for (int begin = 0; begin < sums.cols; begin += columns_at_once) {
      _context.check();
      const int count = std::min(columns_at_once, sums.cols - begin);
      cv::Mat columns = cv::Mat::zeros(count, kernel.size(), CV_64FC1);
      for (int i = 0; i < length; ++i) {
        const int y = y0 - _radius + i;
        const int inside = std::clamp(y, 0, _plane.rows - 1);
        if (inside != y && _border == GaussianBorder::left_out) continue;
        const double* row = sums.ptr<double>(inside - first) + begin;
        for (int k = 0; k < count; ++k) columns.at<double>(k, i) = row[k];
      }
      kernel.convolve(columns);
      for (int y = y0; y < y1; ++y) {
        double* row = sums.ptr<double>(y - first) + begin;
        for (int k = 0; k < count; ++k) row[k] = columns.at<double>(k, y - y0 + _radius);
      }
    }
  }

  /// The sums of a row of a tile, along x and y.
  void read_sums(const cv::Mat& sums, int first, int y, std::span<double> out) const {
    if (is_spectral()) {
      std::copy_n(sums.ptr<double>(y - first), out.size(), out.begin());
    } else {
      sum_along_y(sums, first, y, out);
    }
  }

  void run_tile(int y0, int y1, const std::function<void(int y, std::span<const double> means)>& row) const {
    RowSums sums = sums_of_rows(std::max(0, y0 - _radius), std::min(_plane.rows, y1 + _radius));
    if (is_spectral()) {
      sum_spectrally_along_y(sums.values, sums.first, y0, y1);
      if (_has_gaps) sum_spectrally_along_y(sums.weights, sums.first, y0, y1);
    }
    std::vector<double> means(width());
    std::vector<double> weights(width());
    for (int y = y0; y < y1; ++y) {
      _context.check();
      read_sums(sums.values, sums.first, y, means);
      if (_has_gaps) read_sums(sums.weights, sums.first, y, weights);
      scale(y, means, weights);
      row(y, means);
    }
  }

  /// Sums to means, where weights are missing.
  void scale(int y, std::span<double> means, std::span<const double> weights) const {
    if (_has_gaps) {
      // A weight that is only rounding would make a mean out of nothing; no window's real weight is that small.
      constexpr double least_weight = 1e-14;
      for (std::size_t x = 0; x < width(); ++x) {
        means[x] = weights[x] > least_weight ? means[x] / weights[x] : std::numeric_limits<double>::quiet_NaN();
      }
    } else if (_border == GaussianBorder::left_out) {
      const double inside_y = _inside_y[static_cast<std::size_t>(y)];
      for (std::size_t x = 0; x < width(); ++x) means[x] /= _inside_x[x] * inside_y;
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
