#include <fmt/format.h>

#include <limits>
#include <stdexcept>

#include "orvexa/common/text.h"
#include "orvexa/model/mask_operations/limits.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/mask_operations/value_range.h"
#include "orvexa/model/measures/auto_threshold.h"
#include "orvexa/model/measures/named_expressions.h"
#include "orvexa/model/measures/role_bands.h"
#include "orvexa/model/measures/spectral_indices.h"

namespace orvexa::model {

namespace {

constexpr const char* no_method = "none";
constexpr const char* custom = "custom";
constexpr double rounding = 1e-9;  ///< so that an index exactly on a limit is not decided by its last bit

/// The method in effect: limits alone ask for no other level.
std::string method_in_effect(const Value& params) {
  if (!params.at("method").is_null()) return params.at("method").get<std::string>();
  return params.at("low").is_null() && params.at("high").is_null() ? "otsu" : no_method;
}

bool is_custom(const Value& params) {
  return params.at("index") == custom;
}

Expression expression_of(const Value& params) {
  if (params.at("expression").is_null()) {
    throw std::invalid_argument(
        "threshold_index: parameter \"index\" is \"custom\", so parameter \"expression\" has to say what is "
        "calculated, such as (N - R) / (N + R).");
  }
  try {
    return Expression(params.at("expression").get_ref<const std::string&>());
  } catch (const std::invalid_argument& wrong) {
    throw std::invalid_argument(std::string("threshold_index: ") + wrong.what());
  }
}

RoleUser role_user_of(const Value& params) {
  if (is_custom(params)) return role_user(custom, expression_of(params));
  const SpectralIndex& index = get_spectral_index(params.at("index").get_ref<const std::string&>());
  return {.name = index.key, .roles = index.roles};
}

RoleBands named_bands(const Value& params) {
  return role_bands("threshold_index", params.at("bands"), std::vector{role_user_of(params)});
}

IndexMap map_of(const ImageSource& source, const Value& params, const RunContext& context) {
  const RoleBands named = named_bands(params);
  if (is_custom(params)) return compute_index(source, expression_of(params), context, named);
  const SpectralIndex& index = get_spectral_index(params.at("index").get_ref<const std::string&>());
  return compute_index(source, index, context, named);
}

void check_capture(const ImageSource& source, const Value& params) {
  const RoleBands named = named_bands(params);
  if (is_custom(params)) {
    static_cast<void>(index_bands(source, expression_of(params), named));
  } else {
    const SpectralIndex& index = get_spectral_index(params.at("index").get_ref<const std::string&>());
    static_cast<void>(index_bands(source, index, named));
  }
}

class ThresholdIndex final : public MaskOperation {
  void check(const Value& params) const override {
    check_limits("threshold_index", params, "low", "high");
    if (!is_custom(params) && !params.at("expression").is_null()) {
      throw std::invalid_argument(
          "threshold_index: parameter \"expression\" has a value, but parameter \"index\" is \"" +
          params.at("index").get<std::string>() + "\"; choose \"custom\" to use the expression.");
    }
    static_cast<void>(named_bands(params));
    if (params.at("polarity") == "dark" && method_in_effect(params) == no_method) {
      throw std::invalid_argument(
          "threshold_index: parameter \"polarity\" is \"dark\", but without a method in effect there is no level whose "
          "side could be chosen; name one, such as otsu.");
    }
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const IndexMap map = map_of(source, params, context());
    const auto& index = params.at("index").get_ref<const std::string&>();
    chosen_bands[index] = map.bands;
    const std::string bands = common::joined(map.bands, ", ");

    constexpr double infinity = std::numeric_limits<double>::infinity();
    ValueRange limits{.low = -infinity, .high = infinity};
    if (!params.at("low").is_null()) limits.low = params.at("low").get<double>() - rounding;
    if (!params.at("high").is_null()) limits.high = params.at("high").get<double>() + rounding;
    cv::Mat kept = pixels_within(map.values, limits, context());

    const std::string method = method_in_effect(params);
    if (method == no_method) {
      note = fmt::format("{} of {}", index, bands);
      return Mask(std::move(kept));
    }
    const Histogram histogram = masked_histogram(map.values, current, context());
    const auto level = auto_threshold_level(histogram, auto_threshold_method(method), context());
    if (!level) {
      if (histogram.has_contrast()) {
        note = no_level_text(histogram, fmt::format("{} of {}", index, bands));
      } else {
        note = fmt::format("no_contrast: {} of {} {}, so the mask is empty", index, bands,
                           histogram.n == 0 ? "has no valid pixel to look at" : "has the same value everywhere");
      }
      return Mask::empty(source.get_shape());
    }
    note = fmt::format("level {:.6g} of {} of {} by {}", *level, index, bands, method);
    const bool keeps_bright = params.at("polarity") == "bright";
    const cv::Mat side =
        pixels_within(map.values, keeps_bright ? values_above(*level) : values_up_to(*level), context());
    cv::bitwise_and(kept, side, kept);
    return Mask(std::move(kept));
  }
};

std::vector<std::string> index_keys() {
  std::vector<std::string> keys;
  keys.reserve(spectral_indices().size() + 1);
  for (const SpectralIndex& index : spectral_indices()) keys.push_back(index.key);
  keys.emplace_back(custom);
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
          "limit without a value is none and a value within 1e-9 of a limit equals it, and, with a method, when its "
          "value is also above the level (bright) or not above it (dark) that threshold_auto's method of that name "
          "finds in the histogram of the pixels inside the incoming mask, 4096 bins between the lowest and the highest "
          "value. Without a value for method it is otsu when neither low nor high has a value, and none when one of "
          "them has. Pixels whose index is undefined (a zero denominator, no number) are left out and never kept. "
          "Values without contrast (none, or none farther apart than 1e-12, or 1e-12 of the greatest above 1, which is "
          "rounding) give an empty mask with the note no_contrast; a method that finds no level gives one with its own "
          "note. With the index custom an expression is calculated. " +
          expression_text(),
      .source = "The index's own source, see the operation index_statistics; levels as threshold_auto",
      .parameters = {{.name = "index",
                      .type = ParameterType::choice,
                      .default_value = "ndvi",
                      .help = "The spectral index; custom for the expression.",
                      .choices = index_keys()},
                     {.name = "expression",
                      .type = ParameterType::expression,
                      .default_value = nullptr,
                      .help = "What is calculated when the index is custom, such as (N - RE) / (N + RE)."},
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
      .check_capture = check_capture,
      .make = [] { return std::make_unique<ThresholdIndex>(); }};
  return info;
}

}  // namespace orvexa::model
