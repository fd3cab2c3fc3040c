#include <cmath>

#include "orvexa/model/mask_operations/band_parameter.h"
#include "orvexa/model/mask_operations/local_threshold.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/measures/gaussian_filter.h"
#include "orvexa/model/measures/local_windows.h"
#include "orvexa/model/measures/smoothing.h"

namespace orvexa::model {

namespace {

class ThresholdAdaptive final : public MaskOperation {
  void check(const Value& params) const override {
    check_window("threshold_adaptive", params);
    check_smoothing("threshold_adaptive", params);
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const Band band = smoothed(find_band(source, params.at("band").get<std::string>()), params, context());
    chosen_bands["band"] = band.name;
    const cv::Mat& plane = band.image.read_only();
    const double offset = params.at("offset").get<double>() * band.white.counts;
    const bool is_mean = params.at("method") == "mean";
    // Levels are rounded results: what is closer to one than its rounding equals it.
    const double tolerance = (is_mean ? 1e-12 : 1e-9) * band.white.counts;
    const bool bright = keeps_bright(params);
    cv::Mat kept(plane.rows, plane.cols, CV_8UC1);
    const auto compare = [&](int y, std::span<const double> values, const auto& mean_at) {
      std::uint8_t* out = kept.ptr<std::uint8_t>(y);
      for (std::size_t x = 0; x < values.size(); ++x) {
        const double mean = mean_at(x);
        const bool is_valid = std::isfinite(values[x]) && !std::isnan(mean);
        out[x] = is_valid && (values[x] - (mean - offset) > tolerance) == bright ? 255 : 0;
      }
    };
    if (is_mean) {
      for_each_row_of_moments(plane, current, window_radius(params), context(),
                              [&](int y, std::span<const WindowMoments> moments) {
                                std::vector<double> values(moments.size());
                                band.read_row(y, values);
                                compare(y, values, [&](std::size_t x) { return moments[x].mean; });
                              });
    } else {
      const double sigma = (params.at("window").get<int>() - 1) / 6.0;
      for_each_gaussian_row(plane, current, sigma, GaussianBorder::left_out, context(),
                            [&](int y, std::span<const double> means) {
                              std::vector<double> values(means.size());
                              band.read_row(y, values);
                              compare(y, values, [&](std::size_t x) { return means[x]; });
                            });
    }
    return Mask(std::move(kept));
  }
};

}  // namespace

const MaskOperationInfo& threshold_adaptive_info() {
  static const MaskOperationInfo info{
      .key = "threshold_adaptive",
      .display_name = "Threshold: local mean",
      .category = "Thresholds",
      .summary = "Compares each pixel of one band with the mean of its surroundings.",
      .description =
          std::string("The level of a pixel is t = m - offset, where m is the mean of the square window around it "
                      "(mean), or the mean with the weights exp(-d^2 / (2 sigma^2)) within 4 sigma, sigma = (window - "
                      "1) / 6 (gaussian); all in fractions of white. ") +
          window_text() + smoothing_text(),
      .source = "R. C. Gonzalez, R. E. Woods, Digital Image Processing, 4th edition, Pearson 2018, section 10.3",
      .parameters = with_smoothing({band_parameter(),
                                    window_parameter(51),
                                    {.name = "method",
                                     .type = ParameterType::choice,
                                     .default_value = "mean",
                                     .help = "Whether all pixels of the window weigh the same (mean) or near ones more "
                                             "(gaussian).",
                                     .choices = {"mean", "gaussian"}},
                                    {.name = "offset",
                                     .type = ParameterType::real,
                                     .default_value = 0.0,
                                     .min = -1.0,
                                     .max = 1.0,
                                     .unit = "fraction of white",
                                     .help = "The level is the mean less this number."},
                                    polarity_parameter()}),
      .check_capture = check_band,
      .make = [] { return std::make_unique<ThresholdAdaptive>(); }};
  return info;
}

}  // namespace orvexa::model
