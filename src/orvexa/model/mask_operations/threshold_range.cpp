#include "orvexa/model/mask_operations/band_parameter.h"
#include "orvexa/model/mask_operations/limits.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/mask_operations/value_range.h"
#include "orvexa/model/measures/smoothing.h"

namespace orvexa::model {

namespace {

class ThresholdRange final : public MaskOperation {
  void check(const Value& params) const override {
    check_limits("threshold_range", params, "low", "high");
    check_smoothing("threshold_range", params);
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask*, const Value& params) override {
    const Band band = smoothed(find_band(source, params.at("band").get<std::string>()), params, context());
    chosen_bands["band"] = band.name;
    const ValueRange range{.low = low_limit_in_counts(band, params.at("low").get<double>()),
                           .high = high_limit_in_counts(band, params.at("high").get<double>()),
                           .is_inverted = params.at("invert").get<bool>()};
    return Mask(pixels_within(band.image.read_only(), range, context()));
  }
};

}  // namespace

const MaskOperationInfo& threshold_range_info() {
  static const MaskOperationInfo info{
      .key = "threshold_range",
      .display_name = "Threshold: range",
      .category = "Thresholds",
      .summary = "Keeps the pixels of one band whose values lie between two limits.",
      .description =
          std::string(
              "A pixel is kept when low <= v <= high, where v is its count divided by the white level: the declared "
              "one, else 255, 65535 or 1.0 by the image's type. The comparison is exact in counts: in 8 and 16 bit a "
              "limit within a millionth of white of a whole count means that count, so 0.392157 is count 100 of 255; "
              "in a float image limits are rounded to its type. Limits may lie outside 0 to 1. With invert the pixels "
              "outside the range are kept. Pixels that are not a number are never kept. ") +
          smoothing_text(),
      .source = "R. C. Gonzalez, R. E. Woods, Digital Image Processing, 4th edition, Pearson 2018, section 10.3",
      .parameters = with_smoothing({band_parameter(),
                                    {.name = "low",
                                     .type = ParameterType::real,
                                     .default_value = 0.0,
                                     .unit = "fraction of white",
                                     .help = "The lowest value that is kept."},
                                    {.name = "high",
                                     .type = ParameterType::real,
                                     .default_value = 1.0,
                                     .unit = "fraction of white",
                                     .help = "The highest value that is kept."},
                                    {.name = "invert",
                                     .type = ParameterType::boolean,
                                     .default_value = false,
                                     .help = "Keeps the pixels outside the range instead."}}),
      .check_capture = check_band,
      .make = [] { return std::make_unique<ThresholdRange>(); }};
  return info;
}

}  // namespace orvexa::model
