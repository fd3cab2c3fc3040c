#include "orvexa/model/measures/histogram.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <type_traits>

namespace orvexa::model {

namespace {

constexpr std::size_t float_bins = 4096;

/// Calls `visit(value)` for the pixels of a row that the mask keeps.
template <typename T, typename Visit>
void visit_row(const T* values, const std::uint8_t* kept, int width, const Visit& visit) {
  if (kept == nullptr) {
    for (int x = 0; x < width; ++x) visit(values[x]);
  } else {
    for (int x = 0; x < width; ++x) {
      if (kept[x] != 0) visit(values[x]);
    }
  }
}

void expect_same_size(const cv::Mat& values, const Mask* mask) {
  if (mask != nullptr && mask->shape() != Shape{values.rows, values.cols}) {
    throw std::invalid_argument("A histogram's mask is as large as its image.");
  }
}

const std::uint8_t* mask_row(const Mask* mask, int y) {
  return mask == nullptr ? nullptr : mask->row(y).data();
}

/// One bin a count. Sums of whole numbers are the same in any order, so stripes are added as they come.
template <typename T>
Histogram integer_histogram(const cv::Mat& plane, const Mask* mask, const RunContext& context) {
  constexpr std::size_t bin_count = std::size_t{std::numeric_limits<T>::max()} + 1;
  Histogram histogram;
  histogram.bins.resize(bin_count);
  std::mutex guard;
  for_each_stripe(plane.rows, plane.cols, context, [&](int y0, int y1) {
    std::vector<std::uint32_t> bins(bin_count);
    for (int y = y0; y < y1; ++y) visit_row(plane.ptr<T>(y), mask_row(mask, y), plane.cols, [&](T v) { ++bins[v]; });
    const std::lock_guard lock(guard);
    for (std::size_t i = 0; i < bin_count; ++i) histogram.bins[i] += bins[i];
  });
  for (const std::int64_t count : histogram.bins) histogram.n += count;
  if (histogram.n > 0) {
    const auto is_filled = [](std::int64_t count) { return count > 0; };
    const auto lowest = std::find_if(histogram.bins.begin(), histogram.bins.end(), is_filled);
    const auto highest = std::find_if(histogram.bins.rbegin(), histogram.bins.rend(), is_filled);
    histogram.min = double(lowest - histogram.bins.begin());
    histogram.max = double(histogram.bins.rend() - highest - 1);
  }
  return histogram;
}

/// The bin whose (left edge, right edge] holds the value; the lowest value belongs to bin 0. The edges are those of
/// `Histogram::level`, so that "value > level of a bin" and "counted in a higher bin" are the same thing.
std::size_t bin_of(const Histogram& histogram, double value) {
  if (histogram.step <= 0) return 0;
  const double position = std::ceil((value - histogram.first) / histogram.step) - 1;
  auto bin = static_cast<std::size_t>(std::clamp(position, 0.0, double(float_bins - 1)));
  while (bin > 0 && value <= histogram.level(bin - 1)) --bin;
  while (bin + 1 < float_bins && value > histogram.level(bin)) ++bin;
  return bin;
}

template <typename T>
Histogram float_histogram(const cv::Mat& plane, const Mask* mask, const RunContext& context) {
  Histogram histogram;
  histogram.bins.resize(float_bins);
  double lowest = std::numeric_limits<double>::infinity();
  double highest = -lowest;
  std::mutex guard;
  for_each_stripe(plane.rows, plane.cols, context, [&](int y0, int y1) {
    T low = std::numeric_limits<T>::infinity();
    T high = -low;
    std::int64_t n = 0;
    std::int64_t n_invalid = 0;
    for (int y = y0; y < y1; ++y) {
      visit_row(plane.ptr<T>(y), mask_row(mask, y), plane.cols, [&](T value) {
        if (!std::isfinite(value)) {
          ++n_invalid;
          return;
        }
        ++n;
        low = std::min(low, value);
        high = std::max(high, value);
      });
    }
    const std::lock_guard lock(guard);
    histogram.n += n;
    histogram.n_invalid += n_invalid;
    lowest = std::min(lowest, double(low));
    highest = std::max(highest, double(high));
  });
  if (histogram.n == 0) return histogram;
  histogram.min = lowest;
  histogram.max = highest;
  histogram.first = lowest;
  histogram.step = highest / double(float_bins) - lowest / double(float_bins);
  for_each_stripe(plane.rows, plane.cols, context, [&](int y0, int y1) {
    std::vector<std::uint32_t> bins(float_bins);
    for (int y = y0; y < y1; ++y) {
      visit_row(plane.ptr<T>(y), mask_row(mask, y), plane.cols, [&](T value) {
        if (std::isfinite(value)) ++bins[bin_of(histogram, double(value))];
      });
    }
    const std::lock_guard lock(guard);
    for (std::size_t i = 0; i < float_bins; ++i) histogram.bins[i] += bins[i];
  });
  return histogram;
}

}  // namespace

double Histogram::level(std::size_t bin) const {
  const bool is_integer = bins.size() != float_bins;
  return first + step * double(is_integer ? bin : bin + 1);
}

double rounding_of_map(double greatest_magnitude) {
  return 1e-12 * std::max(1.0, greatest_magnitude);
}

Histogram masked_histogram(const Band& band, const Mask* mask, const RunContext& context) {
  const Image plane = band.plane(context);
  const cv::Mat& pixels = plane.read_only();
  expect_same_size(pixels, mask);
  switch (plane.type()) {
    case PixelType::u8:
      return integer_histogram<std::uint8_t>(pixels, mask, context);
    case PixelType::u16:
      return integer_histogram<std::uint16_t>(pixels, mask, context);
    case PixelType::f32:
      break;
  }
  return float_histogram<float>(pixels, mask, context);
}

Histogram masked_histogram(const cv::Mat& values, const Mask* mask, const RunContext& context) {
  if (values.type() != CV_64FC1) throw std::invalid_argument("A map of values has one channel of doubles.");
  expect_same_size(values, mask);
  Histogram histogram = float_histogram<double>(values, mask, context);
  histogram.rounding = rounding_of_map(std::max(std::abs(histogram.min), std::abs(histogram.max)));
  return histogram;
}

}  // namespace orvexa::model
