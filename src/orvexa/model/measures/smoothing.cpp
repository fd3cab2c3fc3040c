#include "orvexa/model/measures/smoothing.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>
#include <stdexcept>

#include "orvexa/model/measures/bilateral_filter.h"
#include "orvexa/model/measures/gaussian_filter.h"
#include "orvexa/model/measures/median_filter.h"

namespace orvexa::model {

namespace {

/// The bilateral filter's work grows with the square of its radius.
constexpr int largest_bilateral_radius = 5;

cv::Mat gaussian_filtered(const cv::Mat& plane, double sigma, const RunContext& context) {
  cv::Mat result(plane.rows, plane.cols, CV_32FC1);
  for_each_gaussian_row(plane, nullptr, sigma, GaussianBorder::replicated, context,
                        [&](int y, std::span<const double> means) {
                          float* out = result.ptr<float>(y);
                          for (std::size_t x = 0; x < means.size(); ++x) out[x] = static_cast<float>(means[x]);
                          if (plane.type() != CV_32FC1) return;
                          const float* own = plane.ptr<float>(y);
                          for (std::size_t x = 0; x < means.size(); ++x) {
                            if (!std::isfinite(own[x])) out[x] = own[x];
                          }
                        });
  return result;
}

}  // namespace

ParameterList with_smoothing(ParameterList parameters) {
  ParameterList own{{.name = "smooth",
                     .type = ParameterType::choice,
                     .default_value = "none",
                     .help = "The filter that the band passes first.",
                     .choices = {"none", "gaussian", "median", "bilateral"}},
                    {.name = "smooth_sigma",
                     .type = ParameterType::real,
                     .default_value = 1.0,
                     .min = 0.1,
                     .max = 50.0,
                     .unit = "px",
                     .help = "Standard deviation of the gaussian filter, and of the bilateral one in space."},
                    {.name = "smooth_radius",
                     .type = ParameterType::integer,
                     .default_value = 1,
                     .min = 1.0,
                     .max = double(largest_median_radius),
                     .unit = "px",
                     .help = fmt::format("Radius of the median's square window, and of the bilateral filter's disc, "
                                         "which has {} at most.",
                                         largest_bilateral_radius)},
                    {.name = "smooth_range",
                     .type = ParameterType::real,
                     .default_value = 0.1,
                     .min = 0.0001,
                     .max = 10.0,
                     .unit = "fraction of white",
                     .help = "Standard deviation of the bilateral filter in values."}};
  parameters.insert(parameters.end(), std::make_move_iterator(own.begin()), std::make_move_iterator(own.end()));
  return parameters;
}

const char* smoothing_text() {
  return "With smooth the band passes a filter first, all of it, whatever the mask; beyond the border the nearest "
         "pixel "
         "counts again, and pixels that are not a number do not count and stay as they are. gaussian: weights "
         "exp(-d^2 / (2 sigma^2)) within 4 sigma; median: over the square of (2 radius + 1)^2 pixels; bilateral: over "
         "the disc of the radius, weights exp(-d^2 / (2 sigma^2)) exp(-(v - v0)^2 / (2 range^2)) (C. Tomasi, R. "
         "Manduchi, ICCV 1998, 839-846). The median keeps the image's counts, the other two give counts in 32-bit "
         "float, which are then treated like a float image.";
}

void check_smoothing(std::string_view operation, const Value& params) {
  static const ParameterList own = with_smoothing({});
  const auto& filter = params.at("smooth").get_ref<const std::string&>();
  const auto refuse = [&](std::initializer_list<std::string_view> unused) {
    refuse_unused(operation, own, params, unused,
                  fmt::format("parameter \"smooth\" is \"{}\" and does not use it", filter));
  };
  if (filter == "none") refuse({"smooth_sigma", "smooth_radius", "smooth_range"});
  if (filter == "gaussian") refuse({"smooth_radius", "smooth_range"});
  if (filter == "median") refuse({"smooth_sigma", "smooth_range"});
  const int radius = params.at("smooth_radius").get<int>();
  if (filter != "bilateral" || radius <= largest_bilateral_radius) return;
  throw std::invalid_argument(
      fmt::format("{}: parameter \"smooth_radius\" is {}, but the bilateral filter's radius is from 1 to {}.",
                  operation, radius, largest_bilateral_radius));
}

Band smoothed(const Band& band, const Value& params, const RunContext& context) {
  Band result{band.plane(context), 0, band.white, band.name, band.measurement};
  const auto& filter = params.at("smooth").get_ref<const std::string&>();
  if (filter == "none") return result;
  const cv::Mat& plane = result.image.read_only();
  const double sigma = params.at("smooth_sigma").get<double>();
  const int radius = params.at("smooth_radius").get<int>();
  if (filter == "gaussian") {
    result.image = Image(gaussian_filtered(plane, sigma, context));
  } else if (filter == "median") {
    result.image = Image(median_filtered(plane, radius, context));
  } else {
    const double range = params.at("smooth_range").get<double>() * band.white.counts;
    result.image = Image(bilateral_filtered(plane, radius, sigma, range, context));
  }
  return result;
}

}  // namespace orvexa::model
