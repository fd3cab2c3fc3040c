#include <cmath>

#include "orvexa/model/mask_operations/band_parameter.h"
#include "orvexa/model/mask_operations/dependent_parameters.h"
#include "orvexa/model/mask_operations/local_threshold.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/measures/local_windows.h"
#include "orvexa/model/measures/smoothing.h"

namespace orvexa::model {

namespace {

class ThresholdSauvola final : public MaskOperation {
  void check(const Value& params) const override {
    check_window("threshold_sauvola", params);
    check_smoothing("threshold_sauvola", params);
    refuse_unless_chosen(info(), params, {"r"}, "variant", {"sauvola"});
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const Band band = smoothed(find_band(source, params.at("band").get<std::string>()), params, context());
    chosen_bands["band"] = band.name;
    const cv::Mat& plane = band.image.read_only();
    const double k = params.at("k").get<double>();
    const double r = params.at("r").get<double>() * band.white.counts;
    const bool is_sauvola = params.at("variant") == "sauvola";
    // A level is a rounded result: what is closer to it than its rounding equals it.
    const double tolerance = 1e-12 * band.white.counts;
    const bool bright = keeps_bright(params);
    const auto level_of = [&](const WindowMoments& window) {
      return is_sauvola ? window.mean * (1 + k * (window.sd / r - 1)) : window.mean - k * window.sd;
    };
    cv::Mat kept(plane.rows, plane.cols, CV_8UC1);
    for_each_row_of_moments(plane, current, window_radius(params), context(),
                            [&](int y, std::span<const WindowMoments> moments) {
                              std::vector<double> values(moments.size());
                              band.read_row(y, values);
                              std::uint8_t* out = kept.ptr<std::uint8_t>(y);
                              for (std::size_t x = 0; x < values.size(); ++x) {
                                const double level = level_of(moments[x]);
                                const bool is_valid = std::isfinite(values[x]) && !std::isnan(level);
                                out[x] = is_valid && (values[x] - level > tolerance) == bright ? 255 : 0;
                              }
                            });
    return Mask(std::move(kept));
  }
};

}  // namespace

const MaskOperationInfo& threshold_sauvola_info() {
  static const MaskOperationInfo info{
      .key = "threshold_sauvola",
      .display_name = "Threshold: Sauvola, Niblack",
      .category = "Thresholds",
      .summary = "Compares each pixel of one band with a level from mean and spread of its surroundings.",
      .description =
          std::string("With mean m and standard deviation s (of the population) of the square window around a pixel, "
                      "in fractions of white, its level is t = m (1 + k (s / r - 1)) (sauvola) or t = m - k s "
                      "(niblack, which has no r). ") +
          window_text() + smoothing_text(),
      .source =
          "J. Sauvola, M. Pietikäinen, Adaptive document image binarization, Pattern Recognition 33(2), 2000, "
          "225-236; W. Niblack, An Introduction to Digital Image Processing, Prentice-Hall 1986",
      .parameters = with_smoothing({band_parameter(),
                                    window_parameter(25),
                                    {.name = "variant",
                                     .type = ParameterType::choice,
                                     .default_value = "sauvola",
                                     .help = "Which formula gives the level.",
                                     .choices = {"sauvola", "niblack"}},
                                    {.name = "k",
                                     .type = ParameterType::real,
                                     .default_value = 0.2,
                                     .min = 0.0,
                                     .max = 1.0,
                                     .help = "The weight of the standard deviation."},
                                    {.name = "r",
                                     .type = ParameterType::real,
                                     .default_value = 0.5,
                                     .min = 0.001,
                                     .max = 10.0,
                                     .unit = "fraction of white",
                                     .help = "The largest standard deviation that is expected: half of the range."},
                                    polarity_parameter()}),
      .check_capture = check_band,
      .make = [] { return std::make_unique<ThresholdSauvola>(); }};
  return info;
}

}  // namespace orvexa::model
