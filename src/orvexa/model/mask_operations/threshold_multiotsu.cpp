#include <fmt/format.h>

#include <limits>
#include <stdexcept>

#include "orvexa/common/text.h"
#include "orvexa/model/mask_operations/band_parameter.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/mask_operations/value_range.h"
#include "orvexa/model/measures/multi_otsu.h"
#include "orvexa/model/measures/smoothing.h"

namespace orvexa::model {

namespace {

/// Which classes are kept, the darkest first.
std::vector<bool> kept_classes(const Value& params) {
  const auto classes = params.at("classes").get<std::size_t>();
  std::vector<bool> is_kept(classes, false);
  for (const Value& entry : params.at("keep")) {
    const auto number = static_cast<std::size_t>(std::stoi(entry.get<std::string>()));
    if (number > classes) {
      throw std::invalid_argument(fmt::format(
          "threshold_multiotsu: parameter \"keep\" names class {}, but \"classes\" is {}.", number, classes));
    }
    is_kept[number - 1] = true;
  }
  return is_kept;
}

class ThresholdMultiotsu final : public MaskOperation {
  void check(const Value& params) const override {
    check_smoothing("threshold_multiotsu", params);
    static_cast<void>(kept_classes(params));
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const Band unfiltered = find_band(source, params.at("band").get<std::string>());
    const Band band = smoothed(unfiltered, params, context());
    chosen_bands["band"] = band.name;
    const Histogram histogram = masked_histogram(band, current, context());
    const int classes = params.at("classes").get<int>();
    const auto levels = multi_otsu_levels(histogram, classes, context());
    if (!levels) {
      note = fmt::format("no_contrast: {} has {}, so {} classes cannot be parted and the mask is empty", band.name,
                         histogram.n == 0            ? "no pixel to look at"
                         : !histogram.has_contrast() ? "the same value everywhere"
                                                     : "fewer different values than classes",
                         classes);
      return Mask::empty(band.shape());
    }
    std::vector<std::string> texts;
    for (const double level : *levels) texts.push_back(fmt::format("{:.6g}", level));
    note = fmt::format("levels {} {} in {}", common::joined(texts, ", "), unit_of(unfiltered), band.name);
    return Mask(kept_pixels(band, *levels, kept_classes(params)));
  }

  [[nodiscard]] cv::Mat kept_pixels(const Band& band, const std::vector<double>& levels,
                                    const std::vector<bool>& is_kept) const {
    cv::Mat kept = cv::Mat::zeros(band.shape().height, band.shape().width, CV_8UC1);
    for (std::size_t k = 0; k < is_kept.size(); ++k) {
      if (!is_kept[k]) continue;
      ValueRange range{.low = -std::numeric_limits<double>::infinity(),
                       .high = std::numeric_limits<double>::infinity()};
      if (k > 0) range.low = values_above(levels[k - 1]).low;
      if (k < levels.size()) range.high = levels[k];
      cv::bitwise_or(kept, pixels_within(band.image.read_only(), range, context()), kept);
    }
    return kept;
  }
};

}  // namespace

const MaskOperationInfo& threshold_multiotsu_info() {
  static const MaskOperationInfo info{
      .key = "threshold_multiotsu",
      .display_name = "Threshold: several classes",
      .category = "Thresholds",
      .summary = "Parts the values of one band into 3 to 5 classes and keeps some of them.",
      .description =
          std::string(
              "The levels are those with the greatest variance between the classes, sum of n_k (m_k - m)^2, where n_k "
              "and m_k are number and mean of the values of class k and m is the mean of all; exact over the histogram "
              "of the pixels inside the incoming mask, one bin a count for 8 and 16 bit, 4096 bins between the lowest "
              "and the highest value for float. Of equally good levels the lowest are taken. A pixel belongs to class "
              "1 when v <= t1, to class 2 when t1 < v <= t2, and so on. Fewer different values than classes (none, or "
              "one) give an empty mask with the note no_contrast. Pixels that are not a number are left out and never "
              "kept. ") +
          smoothing_text(),
      .source =
          "P.-S. Liao, T.-S. Chen, P.-C. Chung, A Fast Algorithm for Multilevel Thresholding, J. Information "
          "Science and Engineering 17(5), 2001, 713-727",
      .parameters = with_smoothing({band_parameter(),
                                    {.name = "classes",
                                     .type = ParameterType::integer,
                                     .default_value = 3,
                                     .min = 3.0,
                                     .max = 5.0,
                                     .unit = "classes",
                                     .help = "Into how many classes the values are parted."},
                                    {.name = "keep",
                                     .type = ParameterType::choices,
                                     .default_value = Value::array({"3"}),
                                     .help = "The classes whose pixels are kept; 1 is the darkest.",
                                     .choices = {"1", "2", "3", "4", "5"}}}),
      .check_capture = check_band,
      .make = [] { return std::make_unique<ThresholdMultiotsu>(); }};
  return info;
}

}  // namespace orvexa::model
