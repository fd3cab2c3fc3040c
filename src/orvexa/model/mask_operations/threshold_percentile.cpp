#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "orvexa/model/mask_operations/band_parameter.h"
#include "orvexa/model/mask_operations/limits.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/mask_operations/value_range.h"
#include "orvexa/model/measures/ordered_values.h"
#include "orvexa/model/measures/smoothing.h"

namespace orvexa::model {

namespace {

class ThresholdPercentile final : public MaskOperation {
  void check(const Value& params) const override {
    check_limits("threshold_percentile", params, "low", "high");
    check_smoothing("threshold_percentile", params);
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const Band unfiltered = find_band(source, params.at("band").get<std::string>());
    const Band band = smoothed(unfiltered, params, context());
    chosen_bands["band"] = band.name;
    const OrderedValues values(band, current, context());
    if (values.size() == 0) {
      note = fmt::format("no_pixel: there is no pixel to look at in {}, so the mask is empty", band.name);
      return Mask::empty(band.shape());
    }
    const ValueRange range{.low = values.quantile(params.at("low").get<double>() / 100, context()),
                           .high = values.quantile(params.at("high").get<double>() / 100, context()),
                           .is_inverted = params.at("invert").get<bool>()};
    note = fmt::format("from {:.6g} to {:.6g} {} ({:.6g} to {:.6g} of white) in {}", range.low, range.high,
                       unit_of(unfiltered), range.low / band.white.counts, range.high / band.white.counts, band.name);
    return Mask(pixels_within(band.image.read_only(), range, context()));
  }
};

}  // namespace

const MaskOperationInfo& threshold_percentile_info() {
  static const MaskOperationInfo info{
      .key = "threshold_percentile",
      .display_name = "Threshold: percentiles",
      .category = "Thresholds",
      .summary = "Keeps the pixels of one band between two percentiles of its values.",
      .description =
          std::string(
              "The percentiles are those of the values of the pixels inside the incoming mask, of type 7: linear "
              "between the order statistics around (n - 1) p / 100. A pixel is kept when low percentile <= v <= high "
              "percentile, so 0 and 100 are the lowest and the highest value; with invert the pixels outside are kept. "
              "Pixels that are not a number are left out and never kept. A mask without pixels gives an empty mask "
              "with the note no_pixel. ") +
          smoothing_text(),
      .source =
          "R. J. Hyndman, Y. Fan, Sample quantiles in statistical packages, The American Statistician 50(4), "
          "1996, 361-365",
      .parameters = with_smoothing({band_parameter(),
                                    {.name = "low",
                                     .type = ParameterType::real,
                                     .default_value = 5.0,
                                     .min = 0.0,
                                     .max = 100.0,
                                     .unit = "%",
                                     .help = "The percentile from which values are kept."},
                                    {.name = "high",
                                     .type = ParameterType::real,
                                     .default_value = 100.0,
                                     .min = 0.0,
                                     .max = 100.0,
                                     .unit = "%",
                                     .help = "The percentile up to which values are kept."},
                                    {.name = "invert",
                                     .type = ParameterType::boolean,
                                     .default_value = false,
                                     .help = "Keeps the pixels outside the range instead."}}),
      .check_capture = check_band,
      .make = [] { return std::make_unique<ThresholdPercentile>(); }};
  return info;
}

}  // namespace orvexa::model
