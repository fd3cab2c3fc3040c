#include <cmath>
#include <limits>

#include "orvexa/model/mask_operations/band_parameter.h"
#include "orvexa/model/mask_operations/limits.h"
#include "orvexa/model/mask_operations/local_threshold.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/measures/local_windows.h"
#include "orvexa/model/measures/smoothing.h"

namespace orvexa::model {

namespace {

class TextureThreshold final : public MaskOperation {
  void check(const Value& params) const override {
    check_limits("texture_threshold", params, "low", "high");
    check_smoothing("texture_threshold", params);
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const Band band = smoothed(find_band(source, params.at("band").get<std::string>()), params, context());
    chosen_bands["band"] = band.name;
    const cv::Mat& plane = band.image.read_only();
    const int radius = params.at("radius").get<int>();
    const double white = band.white.counts;
    constexpr double infinity = std::numeric_limits<double>::infinity();
    // A measure is a rounded result: what is closer than this to a limit equals it.
    constexpr double tolerance = 1e-9;
    const double low = params.at("low").get<double>() - tolerance;
    const double high = (params.at("high").is_null() ? infinity : params.at("high").get<double>()) + tolerance;
    cv::Mat kept(plane.rows, plane.cols, CV_8UC1);
    const auto keep = [&](int y, std::size_t x, double measure) {
      kept.at<std::uint8_t>(y, static_cast<int>(x)) = measure >= low && measure <= high ? 255 : 0;  // NaN is neither
    };

    const auto& measure = params.at("measure").get_ref<const std::string&>();
    if (measure == "sd") {
      for_each_row_of_moments(plane, current, radius, context(), [&](int y, std::span<const WindowMoments> moments) {
        for (std::size_t x = 0; x < moments.size(); ++x) keep(y, x, moments[x].sd / white);
      });
    } else if (measure == "range") {
      for_each_row_of_ranges(plane, current, radius, context(), [&](int y, std::span<const double> ranges) {
        for (std::size_t x = 0; x < ranges.size(); ++x) keep(y, x, ranges[x] / white);
      });
    } else {
      for_each_row_of_entropies(plane, white, current, radius, context(),
                                [&](int y, int begin, std::span<const double> entropies) {
                                  for (std::size_t x = 0; x < entropies.size(); ++x) {
                                    keep(y, static_cast<std::size_t>(begin) + x, entropies[x]);
                                  }
                                });
    }
    remove_invalid(plane, kept);
    return Mask(std::move(kept));
  }

  void remove_invalid(const cv::Mat& plane, cv::Mat& kept) const {
    if (plane.type() != CV_32FC1) return;
    for_each_stripe(plane.rows, plane.cols, context(), [&](int y0, int y1) {
      for (int y = y0; y < y1; ++y) {
        const float* values = plane.ptr<float>(y);
        std::uint8_t* out = kept.ptr<std::uint8_t>(y);
        for (int x = 0; x < plane.cols; ++x) {
          if (!std::isfinite(values[x])) out[x] = 0;
        }
      }
    });
  }
};

}  // namespace

const MaskOperationInfo& texture_threshold_info() {
  static const MaskOperationInfo info{
      .key = "texture_threshold",
      .display_name = "Threshold: texture",
      .category = "Thresholds",
      .summary = "Keeps the pixels whose surroundings are as rough or as smooth as two limits say.",
      .description =
          std::string(
              "A measure of the square window of (2 radius + 1)^2 pixels around each pixel decides; the pixel is kept "
              "when low <= measure <= high, where high without a value is none and a measure within 1e-9 of a limit "
              "equals it. Measures: sd, the standard deviation (of the population) in fractions of white; range, the "
              "highest less the lowest value in fractions of white; entropy, -sum of p log2 p in bits over the values "
              "rounded to 256 levels from 0 to white (values outside count at the ends), so 0 to 8. A window sees the "
              "pixels of the incoming mask that lie in the image and are a number, and nothing else: at the border and "
              "at the edge of the mask it has fewer pixels. Pixels that are not a number are never kept. ") +
          window_precision_text() + smoothing_text(),
      .source =
          "C. E. Shannon, A Mathematical Theory of Communication, Bell System Technical Journal 27(3), 1948, 379-423; "
          "R. C. Gonzalez, R. E. Woods, Digital Image Processing, 4th edition, Pearson 2018, section 11.3",
      .parameters =
          with_smoothing({band_parameter(),
                          {.name = "radius",
                           .type = ParameterType::integer,
                           .default_value = 5,
                           .min = 1.0,
                           .max = 50.0,
                           .unit = "px",
                           .help = "How far the window reaches on each side of its pixel."},
                          {.name = "measure",
                           .type = ParameterType::choice,
                           .default_value = "sd",
                           .help = "The measure that decides.",
                           .choices = {"sd", "entropy", "range"}},
                          {.name = "low",
                           .type = ParameterType::real,
                           .default_value = 0.02,
                           .min = 0.0,
                           .unit = "fraction of white or bit",
                           .help = "The lowest measure that is kept; 0 for no such limit."},
                          {.name = "high",
                           .type = ParameterType::real,
                           .default_value = nullptr,
                           .unit = "fraction of white or bit",
                           .help = "The highest measure that is kept; without a value there is no such limit."}}),
      .check_capture = check_band,
      .make = [] { return std::make_unique<TextureThreshold>(); }};
  return info;
}

}  // namespace orvexa::model
