#include <fmt/format.h>

#include <limits>
#include <stdexcept>

#include "orvexa/common/text.h"
#include "orvexa/model/mask_operations/limits.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/mask_operations/value_range.h"
#include "orvexa/model/measures/auto_threshold.h"
#include "orvexa/model/measures/role_bands.h"
#include "orvexa/model/measures/spectral_indices.h"

namespace orvexa::model {

namespace {

constexpr const char* no_method = "none";

/// The method in effect: limits alone ask for no other level.
std::string method_in_effect(const Value& params) {
  if (!params.at("method").is_null()) return params.at("method").get<std::string>();
  return params.at("low").is_null() && params.at("high").is_null() ? "otsu" : no_method;
}

RoleBands named_bands(const Value& params) {
  return role_bands("threshold_index", params.at("bands"), std::vector{params.at("index").get<std::string>()});
}

class ThresholdIndex final : public MaskOperation {
  void check(const Value& params) const override {
    check_limits("threshold_index", params, "low", "high");
    static_cast<void>(named_bands(params));
    if (params.at("polarity") == "dark" && method_in_effect(params) == no_method) {
      throw std::invalid_argument(
          "threshold_index: parameter \"polarity\" is \"dark\", but without a method in effect there is no level whose "
          "side could be chosen; name one, such as otsu.");
    }
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const SpectralIndex& index = get_spectral_index(params.at("index").get_ref<const std::string&>());
    const IndexMap map = compute_index(source, index, context(), named_bands(params));
    chosen_bands[index.key] = map.bands;
    const std::string bands = common::joined(map.bands, ", ");

    constexpr double infinity = std::numeric_limits<double>::infinity();
    ValueRange limits{.low = -infinity, .high = infinity};
    if (!params.at("low").is_null()) limits.low = params.at("low").get<double>();
    if (!params.at("high").is_null()) limits.high = params.at("high").get<double>();
    cv::Mat kept = pixels_within(map.values, limits, context());

    const std::string method = method_in_effect(params);
    if (method == no_method) {
      note = fmt::format("{} of {}", index.key, bands);
      return Mask(std::move(kept));
    }
    const Histogram histogram = masked_histogram(map.values, current, context());
    const auto level = auto_threshold_level(histogram, auto_threshold_method(method), context());
    if (!level) {
      if (histogram.has_contrast()) {
        note = no_level_text(histogram, fmt::format("{} of {}", index.key, bands));
      } else {
        note = fmt::format("no_contrast: {} of {} {}, so the mask is empty", index.key, bands,
                           histogram.n == 0 ? "has no valid pixel to look at" : "has the same value everywhere");
      }
      return Mask::empty(source.get_shape());
    }
    note = fmt::format("level {:.6g} of {} of {} by {}", *level, index.key, bands, method);
    const bool keeps_bright = params.at("polarity") == "bright";
    const cv::Mat side =
        pixels_within(map.values, keeps_bright ? values_above(*level) : values_up_to(*level), context());
    cv::bitwise_and(kept, side, kept);
    return Mask(std::move(kept));
  }
};

std::vector<std::string> index_keys() {
  std::vector<std::string> keys;
  keys.reserve(spectral_indices().size());
  for (const SpectralIndex& index : spectral_indices()) keys.push_back(index.key);
  return keys;
}

std::vector<std::string> methods_and_none() {
  std::vector<std::string> names = auto_threshold_method_names();
  names.insert(names.begin(), no_method);
  return names;
}

}  // namespace

const MaskOperationInfo& threshold_index_info() {
  static const MaskOperationInfo info{
      .key = "threshold_index",
      .display_name = "Threshold: spectral index",
      .category = "Thresholds",
      .summary = "Keeps the pixels by the value of a spectral index, between limits or on one side of a found level.",
      .description =
          "The index is calculated from fractions of white for every pixel; its bands are those named for its roles, "
          "else chosen by their roles, all within one measurement. A pixel is kept when low <= value <= high, where a "
          "limit without a value is none, and, with a method, when its value is also above the level (bright) or not "
          "above it (dark) that threshold_auto's method of that name finds in the histogram of the pixels inside the "
          "incoming mask, 4096 bins between the lowest and the highest value. Without a value for method it is otsu "
          "when neither low nor high has a value, and none when one of them has. Pixels whose index is undefined (a "
          "zero denominator, no number) are left out and never kept. Values without contrast give an empty mask with "
          "the note no_contrast; a method that finds no level gives one with its own note.",
      .source = "The index's own source, see the operation index_statistics; levels as threshold_auto",
      .parameters = {{.name = "index",
                      .type = ParameterType::choice,
                      .default_value = "ndvi",
                      .help = "The spectral index.",
                      .choices = index_keys()},
                     role_bands_parameter(),
                     {.name = "low",
                      .type = ParameterType::real,
                      .default_value = nullptr,
                      .help = "The lowest index that is kept; without a value there is no such limit."},
                     {.name = "high",
                      .type = ParameterType::real,
                      .default_value = nullptr,
                      .help = "The highest index that is kept; without a value there is no such limit."},
                     {.name = "method",
                      .type = ParameterType::choice,
                      .default_value = nullptr,
                      .help = "How a level is found besides the limits; none for the limits alone. Without a value it "
                              "is otsu when no limit has a value, else none.",
                      .choices = methods_and_none()},
                     {.name = "polarity",
                      .type = ParameterType::choice,
                      .default_value = "bright",
                      .help = "Which side of the found level is kept.",
                      .choices = {"bright", "dark"}}},
      .make = [] { return std::make_unique<ThresholdIndex>(); }};
  return info;
}

}  // namespace orvexa::model
