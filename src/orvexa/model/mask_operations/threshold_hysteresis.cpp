#include <algorithm>
#include <limits>

#include "orvexa/model/mask_operations/band_parameter.h"
#include "orvexa/model/mask_operations/component_filter.h"
#include "orvexa/model/mask_operations/limits.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/mask_operations/value_range.h"
#include "orvexa/model/measures/smoothing.h"

namespace orvexa::model {

namespace {

/// Which components have a pixel that is set in the picture.
std::vector<char> touched(const Components& components, const cv::Mat& picture, const RunContext& context) {
  std::vector<char> is_touched(components.components.size(), 0);
  for_each_piece(components.runs.size(), context, [&](std::size_t begin, std::size_t end) {
    for (std::size_t k = begin; k < end; ++k) {
      const Components::Run& run = components.runs[k];
      char& known = is_touched[static_cast<std::size_t>(run.label - 1)];
      const std::uint8_t* row = picture.ptr<std::uint8_t>(run.y);
      if (known == 0 && std::any_of(row + run.x0, row + run.x1, [](std::uint8_t pixel) { return pixel != 0; })) {
        known = 1;
      }
    }
  });
  return is_touched;
}

class ThresholdHysteresis final : public MaskOperation {
  void check(const Value& params) const override {
    check_limits("threshold_hysteresis", params, "low", "high");
    check_smoothing("threshold_hysteresis", params);
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const Band band = smoothed(find_band(source, params.at("band").get<std::string>()), params, context());
    chosen_bands["band"] = band.name;
    Mask over_low(above(band, params.at("low").get<double>()));
    if (current != nullptr) over_low = over_low & *current;
    const cv::Mat over_high = above(band, params.at("high").get<double>());
    const int connectivity = params.at("connectivity").get_ref<const std::string&>() == "4" ? 4 : 8;
    const Components components = label_components(over_low, connectivity, context());
    return Mask(only_kept(over_low, components, touched(components, over_high, context()), context()));
  }

  [[nodiscard]] cv::Mat above(const Band& band, double fraction) const {
    return pixels_within(band.image.read_only(), values_above(high_limit_in_counts(band, fraction)), context());
  }
};

}  // namespace

const MaskOperationInfo& threshold_hysteresis_info() {
  static const MaskOperationInfo info{
      .key = "threshold_hysteresis",
      .display_name = "Threshold: hysteresis",
      .category = "Thresholds",
      .summary = "Keeps the connected parts above a low level that somewhere rise above a high one.",
      .description =
          std::string(
              "The pixels of the incoming mask with v > low, where v is a fraction of white, are split into connected "
              "components, 8-connected (corners join) or 4-connected (only sides join). A component is kept, all of "
              "it, when one of its pixels has v > high. In 8 and 16 bit a level within a millionth of white of a whole "
              "count means that count. Pixels that are not a number are never kept. ") +
          smoothing_text(),
      .source = "J. Canny, A Computational Approach to Edge Detection, IEEE Trans. PAMI 8(6), 1986, 679-698",
      .parameters = with_smoothing({band_parameter(),
                                    {.name = "low",
                                     .type = ParameterType::real,
                                     .default_value = 0.25,
                                     .unit = "fraction of white",
                                     .help = "What is kept lies above this level."},
                                    {.name = "high",
                                     .type = ParameterType::real,
                                     .default_value = 0.5,
                                     .unit = "fraction of white",
                                     .help = "Each connected part that is kept has a pixel above this level."},
                                    {.name = "connectivity",
                                     .type = ParameterType::choice,
                                     .default_value = "8",
                                     .help = "Whether pixels that touch only at a corner are connected (8) or not (4).",
                                     .choices = {"4", "8"}}}),
      .check_capture = check_band,
      .make = [] { return std::make_unique<ThresholdHysteresis>(); }};
  return info;
}

}  // namespace orvexa::model
