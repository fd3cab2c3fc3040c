#include "orvexa/model/mask_operations/value_range.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace orvexa::model {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

template <typename T>
double smallest_of_type_from(double low) {
  if (std::is_integral_v<T>) return std::ceil(low);
  if (low > double(std::numeric_limits<T>::max())) return infinity;
  const T nearest = static_cast<T>(std::max(low, double(std::numeric_limits<T>::lowest())));
  return double(double(nearest) < low ? std::nextafter(nearest, std::numeric_limits<T>::infinity()) : nearest);
}

template <typename T>
double greatest_of_type_up_to(double high) {
  return std::is_integral_v<T> ? std::floor(high) : -smallest_of_type_from<T>(-high);
}

/// Fills rows y0..y1-1 of `kept`.
template <typename T>
void compare_rows(const cv::Mat& plane, const ValueRange& range, int y0, int y1, cv::Mat& kept) {
  constexpr double lowest = std::numeric_limits<T>::lowest();
  constexpr double greatest = std::numeric_limits<T>::max();
  const double low = std::max(lowest, smallest_of_type_from<T>(range.low));
  const double high = std::min(greatest, greatest_of_type_up_to<T>(range.high));
  const cv::Mat rows = plane.rowRange(y0, y1);
  cv::Mat out = kept.rowRange(y0, y1);
  if (low > high) {
    out.setTo(0);
  } else {
    cv::inRange(rows, cv::Scalar(low), cv::Scalar(high), out);
  }
  if (!range.is_inverted) return;
  cv::bitwise_not(out, out);
  if (std::is_floating_point_v<T>) {
    cv::Mat is_finite;
    cv::inRange(rows, cv::Scalar(lowest), cv::Scalar(greatest), is_finite);
    cv::bitwise_and(out, is_finite, out);
  }
}

template <typename T>
cv::Mat compare(const cv::Mat& plane, const ValueRange& range, const RunContext& context) {
  cv::Mat kept(plane.rows, plane.cols, CV_8UC1);
  for_each_stripe(plane.rows, plane.cols, context,
                  [&](int y0, int y1) { compare_rows<T>(plane, range, y0, y1, kept); });
  return kept;
}

}  // namespace

cv::Mat pixels_within(const cv::Mat& plane, const ValueRange& range, const RunContext& context) {
  switch (plane.type()) {
    case CV_8UC1:
      return compare<std::uint8_t>(plane, range, context);
    case CV_16UC1:
      return compare<std::uint16_t>(plane, range, context);
    case CV_32FC1:
      return compare<float>(plane, range, context);
    case CV_64FC1:
      return compare<double>(plane, range, context);
    default:
      throw std::invalid_argument("Values are compared on one channel of 8 or 16 bits or of floats.");
  }
}

ValueRange values_above(double level) {
  return {.low = std::nextafter(level, infinity), .high = infinity};
}

ValueRange values_up_to(double level) {
  return {.low = -infinity, .high = level};
}

double rounding_in_counts(const Band& band) {
  constexpr double millionth = 1e-6;
  return millionth * band.white.counts;
}

double low_limit_in_counts(const Band& band, double fraction) {
  const double counts = fraction * band.white.counts;
  if (band.image.type() != PixelType::f32) return counts - rounding_in_counts(band);
  return double(static_cast<float>(counts));
}

double high_limit_in_counts(const Band& band, double fraction) {
  const double counts = fraction * band.white.counts;
  if (band.image.type() != PixelType::f32) return counts + rounding_in_counts(band);
  return double(static_cast<float>(counts));
}

const char* unit_of(const Band& band) {
  return band.counts ? "reflectance" : "counts";
}

}  // namespace orvexa::model
