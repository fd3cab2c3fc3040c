#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "orvexa/model/mask_operations/limits.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/measures/color.h"
#include "orvexa/model/measures/color_planes.h"

namespace orvexa::model {

namespace {

constexpr double rounding = 1e-9;  ///< so that a hue or share exactly on a limit is not decided by its last bit

struct Limits {
  double from = 0;
  double to = 0;

  [[nodiscard]] bool hold(double value) const { return value >= from - rounding && value <= to + rounding; }
};

class HueLimits {
 public:
  HueLimits(double from, double to) : _from(from), _to(to) {}

  [[nodiscard]] bool are_the_full_circle() const { return _to - _from >= 360 - rounding; }
  [[nodiscard]] bool hold(double degrees) const {
    if (_from <= _to)
      return holds_unwrapped(degrees) || holds_unwrapped(degrees + 360) || holds_unwrapped(degrees - 360);
    return degrees >= _from - rounding || degrees <= _to + rounding;
  }

 private:
  [[nodiscard]] bool holds_unwrapped(double degrees) const { return Limits{_from, _to}.hold(degrees); }
  double _from;
  double _to;
};

class ThresholdHsv final : public MaskOperation {
  void check(const Value& params) const override {
    check_limits("threshold_hsv", params, "s_min", "s_max");
    check_limits("threshold_hsv", params, "v_min", "v_max");
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const std::vector<Band> rgb =
        find_color_planes(source, info().key, params.at("image").get_ref<const std::string&>()).rgb;
    chosen_bands["bands"] = {rgb[0].name, rgb[1].name, rgb[2].name};
    note = "hue, saturation and value of " + rgb[0].name + ", " + rgb[1].name + ", " + rgb[2].name;
    const auto number = [&](const char* name) { return params.at(name).get<double>(); };
    const HueLimits hue(number("hue_from"), number("hue_to"));
    const Limits saturation{number("s_min"), number("s_max")};
    const Limits brightness{number("v_min"), number("v_max")};
    const bool any_hue = hue.are_the_full_circle();
    const auto is_kept = [&](double r, double g, double b) {
      if (!std::isfinite(r + g + b)) return false;
      const Hsv hsv = to_hsv({std::clamp(r, 0.0, 1.0), std::clamp(g, 0.0, 1.0), std::clamp(b, 0.0, 1.0)});
      if (!brightness.hold(hsv.value) || !saturation.hold(hsv.saturation)) return false;
      return any_hue || (hsv.saturation >= least_saturation_with_hue && hue.hold(hsv.hue));
    };

    const Shape shape = source.get_shape();
    cv::Mat pixels(shape.height, shape.width, CV_8UC1);
    for_each_stripe(shape.height, shape.width, context(), [&](int y0, int y1) {
      const auto width = static_cast<std::size_t>(shape.width);
      std::vector<double> r(width);
      std::vector<double> g(width);
      std::vector<double> b(width);
      for (int y = y0; y < y1; ++y) {
        rgb[0].read_normalised_row(y, r);
        rgb[1].read_normalised_row(y, g);
        rgb[2].read_normalised_row(y, b);
        const std::uint8_t* counts = current != nullptr ? current->row(y).data() : nullptr;
        std::uint8_t* out = pixels.ptr<std::uint8_t>(y);
        for (std::size_t x = 0; x < width; ++x) {
          out[x] = (counts == nullptr || counts[x] != 0) && is_kept(r[x], g[x], b[x]) ? 255 : 0;
        }
      }
    });
    return Mask(std::move(pixels));
  }
};

ParameterInfo limit_parameter(const char* name, double value, double max, const char* unit, const char* help) {
  return {.name = name,
          .type = ParameterType::real,
          .default_value = value,
          .min = 0.0,
          .max = max,
          .unit = unit,
          .help = help};
}

}  // namespace

const MaskOperationInfo& threshold_hsv_info() {
  static const MaskOperationInfo info{
      .key = "threshold_hsv",
      .display_name = "Threshold: hue, saturation, value",
      .category = "Thresholds",
      .summary = "Keeps the pixels whose colour lies in a range of hue, saturation and value.",
      .description =
          "With R, G, B as fractions of white, cut to 0 to 1: value V = max(R, G, B), saturation S = (V - min) / V (0 "
          "for black), hue H = 60 degrees times (G - B) / (V - min) where R is greatest, 2 + (B - R) / (V - min) where "
          "G is, 4 + (R - G) / (V - min) where B is, taken round the circle. A pixel is kept when all three lie in "
          "their ranges, limits included. A hue range whose start is above its end wraps over 0, so 350 to 10 are the "
          "reds. A pixel with S < 0.02 has no hue and is outside every hue range but the full circle 0 to 360, which "
          "asks nothing of the hue. Pixels that are not a number are never kept.",
      .source = "A. R. Smith, Color Gamut Transform Pairs, SIGGRAPH Computer Graphics 12(3), 1978, 12-19",
      .parameters = {color_image_parameter(),
                     limit_parameter("hue_from", 0.0, 360.0, "degrees", "The start of the hue range."),
                     limit_parameter("hue_to", 360.0, 360.0, "degrees",
                                     "The end of the hue range; below its start the range wraps over 0."),
                     limit_parameter("s_min", 0.0, 1.0, "", "The lowest saturation that is kept."),
                     limit_parameter("s_max", 1.0, 1.0, "", "The highest saturation that is kept."),
                     limit_parameter("v_min", 0.0, 1.0, "fraction of white", "The lowest value that is kept."),
                     limit_parameter("v_max", 1.0, 1.0, "fraction of white", "The highest value that is kept.")},
      .check_capture = check_color_capture("threshold_hsv"),
      .make = [] { return std::make_unique<ThresholdHsv>(); }};
  return info;
}

}  // namespace orvexa::model
