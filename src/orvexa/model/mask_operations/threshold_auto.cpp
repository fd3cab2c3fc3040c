#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "orvexa/model/mask_operations/band_parameter.h"
#include "orvexa/model/mask_operations/limits.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/mask_operations/value_range.h"
#include "orvexa/model/measures/auto_threshold.h"
#include "orvexa/model/measures/smoothing.h"

namespace orvexa::model {

namespace {

/// A limit as the last level of the background: in an integer image a whole count.
double last_level(const Band& band, double fraction) {
  const double counts = high_limit_in_counts(band, fraction);
  return band.image.type() == PixelType::f32 ? counts : std::floor(counts);
}

class ThresholdAuto final : public MaskOperation {
  void check(const Value& params) const override {
    check_limits("threshold_auto", params, "min", "max");
    check_smoothing("threshold_auto", params);
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const Band unfiltered = find_band(source, params.at("band").get<std::string>());
    const Band band = smoothed(unfiltered, params, context());
    chosen_bands["band"] = band.name;
    const auto& method = params.at("method").get_ref<const std::string&>();
    const Histogram histogram = masked_histogram(band, current, context());
    const auto found = auto_threshold_level(histogram, auto_threshold_method(method), context());
    if (!found) {
      note = no_level_text(histogram, band.name);
      return Mask::empty(band.shape());
    }
    double level = *found * params.at("factor").get<double>();
    if (!params.at("min").is_null()) level = std::max(level, last_level(band, params.at("min").get<double>()));
    if (!params.at("max").is_null()) level = std::min(level, last_level(band, params.at("max").get<double>()));
    note = fmt::format("level {:.6g} {} ({:.6g} of white) in {} by {}", level, unit_of(unfiltered),
                       level / band.white.counts, band.name, method);

    // A product such as 100 * 0.7 may fall a rounding short of a whole count; that must not move the count.
    if (band.image.type() != PixelType::f32) level += 1e-9 * std::abs(level);
    const bool keeps_bright = params.at("polarity").get_ref<const std::string&>() == "bright";
    const ValueRange range = keeps_bright ? values_above(level) : values_up_to(level);
    return Mask(pixels_within(band.image.read_only(), range, context()));
  }
};

std::string methods_text() {
  std::string text;
  for (const AutoThresholdMethodInfo& info : auto_threshold_methods()) {
    text += fmt::format("{}{}: {}", text.empty() ? "" : "; ", info.name, info.description);
  }
  return text;
}

std::string sources_text() {
  std::string text;
  for (const AutoThresholdMethodInfo& info : auto_threshold_methods()) {
    text += fmt::format("{}{}: {}", text.empty() ? "" : "; ", info.name, info.source);
  }
  return text;
}

}  // namespace

const MaskOperationInfo& threshold_auto_info() {
  static const MaskOperationInfo info{
      .key = "threshold_auto",
      .display_name = "Threshold: automatic",
      .category = "Thresholds",
      .summary = "Finds a level between dark and bright pixels of one band and keeps one side.",
      .description =
          "The level t is chosen from the histogram of the pixels inside the incoming mask, one bin a count for 8 and "
          "16 bit, 4096 bins between the lowest and the highest value for float. Methods: " +
          methods_text() +
          ". The level, in counts, is multiplied by factor, then raised to min and lowered to max, which are fractions "
          "of white and, in 8 and 16 bit, stand for the last whole count below them or within a millionth of white "
          "above. Bright keeps the pixels with a value > t, dark those with a value <= t. Pixels without contrast "
          "(none, or all of one value) give an empty mask with the note no_contrast. Pixels that are not a number are "
          "left out and never kept. " +
          smoothing_text(),
      .source = sources_text(),
      .parameters =
          with_smoothing({band_parameter(),
                          {.name = "method",
                           .type = ParameterType::choice,
                           .default_value = "otsu",
                           .help = "How the level is chosen.",
                           .choices = auto_threshold_method_names()},
                          {.name = "factor",
                           .type = ParameterType::real,
                           .default_value = 1.0,
                           .min = 0.1,
                           .max = 10.0,
                           .help = "The level is multiplied by this number."},
                          {.name = "min",
                           .type = ParameterType::real,
                           .default_value = nullptr,
                           .unit = "fraction of white",
                           .help = "The level is never below this value; without a value there is no such limit."},
                          {.name = "max",
                           .type = ParameterType::real,
                           .default_value = nullptr,
                           .unit = "fraction of white",
                           .help = "The level is never above this value; without a value there is no such limit."},
                          {.name = "polarity",
                           .type = ParameterType::choice,
                           .default_value = "bright",
                           .help = "Which side of the level is kept.",
                           .choices = {"bright", "dark"}}}),
      .check_capture = check_band,
      .make = [] { return std::make_unique<ThresholdAuto>(); }};
  return info;
}

}  // namespace orvexa::model
