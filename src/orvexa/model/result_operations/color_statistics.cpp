#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "orvexa/model/measures/color.h"
#include "orvexa/model/measures/color_planes.h"
#include "orvexa/model/measures/color_rows.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

class ColorStatistics final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

/// The measured quantities of a pixel, in this order.
struct Quantity {
  const char* name;
  const char* unit;
};
constexpr std::array<Quantity, 8> quantities{{{"red", "fraction of white"},
                                              {"green", "fraction of white"},
                                              {"blue", "fraction of white"},
                                              {"saturation", ""},
                                              {"value", "fraction of white"},
                                              {"lab_l", ""},
                                              {"lab_a", ""},
                                              {"lab_b", ""}}};

/// Sums of one group in one stripe, taken about its first pixel so that nothing cancels.
struct ColorSums {
  std::int64_t n = 0;
  std::int64_t n_invalid = 0;
  std::array<double, quantities.size()> pivot{};
  std::array<double, quantities.size()> sum{};
  std::array<double, quantities.size()> squares{};
  std::int64_t n_hue = 0;
  double cosines = 0;
  double sines = 0;

  void add(const std::array<double, quantities.size()>& values) {
    if (n == 0) pivot = values;
    ++n;
    for (std::size_t k = 0; k < values.size(); ++k) {
      const double difference = values[k] - pivot[k];
      sum[k] += difference;
      squares[k] += difference * difference;
    }
  }
};

/// Means and sums of squares about them, put together in a fixed order.
/// Source: T. F. Chan, G. H. Golub, R. J. LeVeque, Algorithms for computing the sample variance, The American
/// Statistician 37(3), 1983, 242-247.
struct ColorMoments {
  std::int64_t n = 0;
  std::int64_t n_invalid = 0;
  std::array<double, quantities.size()> mean{};
  std::array<double, quantities.size()> squares{};
  std::int64_t n_hue = 0;
  double cosines = 0;
  double sines = 0;

  void add(const ColorSums& sums) {
    ColorMoments other;
    other.n = sums.n;
    other.n_invalid = sums.n_invalid;
    other.n_hue = sums.n_hue;
    other.cosines = sums.cosines;
    other.sines = sums.sines;
    if (sums.n > 0) {
      const auto count = static_cast<double>(sums.n);
      for (std::size_t k = 0; k < mean.size(); ++k) {
        other.mean[k] = sums.pivot[k] + sums.sum[k] / count;
        other.squares[k] = std::max(0.0, sums.squares[k] - sums.sum[k] * sums.sum[k] / count);
      }
    }
    add(other);
  }

  void add(const ColorMoments& other) {
    n_invalid += other.n_invalid;
    n_hue += other.n_hue;
    cosines += other.cosines;
    sines += other.sines;
    if (other.n == 0) return;
    const auto own = static_cast<double>(n);
    const auto more = static_cast<double>(other.n);
    for (std::size_t k = 0; k < mean.size(); ++k) {
      const double difference = other.mean[k] - mean[k];
      mean[k] += difference * (more / (own + more));
      squares[k] += other.squares[k] + difference * difference * (own / (own + more) * more);
    }
    n += other.n;
  }
};

void measure_runs(std::span<const RegionPixels::Run> runs, const ColorSource& colors, std::span<ColorSums> groups) {
  ColorRow row(colors);
  for (const RegionPixels::Run& run : runs) {
    row.read(run.y);
    ColorSums& sums = groups[run.group];
    for (auto x = static_cast<std::size_t>(run.x0); x < static_cast<std::size_t>(run.x1); ++x) {
      if (!row.is_valid(x)) {
        ++sums.n_invalid;
        continue;
      }
      const Rgb share = row.encoded(x);
      const Hsv hsv = to_hsv(share);
      const Lab lab = row.lab(x);
      sums.add({share.r, share.g, share.b, hsv.saturation, hsv.value, lab.l, lab.a, lab.b});
      if (hsv.saturation >= least_saturation_with_hue) {
        const double angle = hsv.hue * std::numbers::pi / 180;
        ++sums.n_hue;
        sums.cosines += std::cos(angle);
        sums.sines += std::sin(angle);
      }
    }
  }
}

void write_row(ResultRow& row, const std::string& name, const ColorMoments& moments) {
  const auto n = static_cast<double>(moments.n);
  const char* const no_pixel = "No pixel has a valid value.";
  if (row.is_empty()) {
    const std::string_view reason = row.empty_reason();
    row.leave_out(name + ".color.n", reason);
    row.leave_out(name + ".color.n_invalid", reason);
  } else {
    row.set(name + ".color.n", Value(moments.n));
    row.set(name + ".color.n_invalid", Value(moments.n_invalid));
  }
  for (std::size_t k = 0; k < quantities.size(); ++k) {
    const std::string prefix = name + "." + quantities[k].name;
    if (moments.n == 0) {
      const std::string_view reason = row.is_empty() ? row.empty_reason() : no_pixel;
      row.leave_out(prefix + ".mean", reason);
      row.leave_out(prefix + ".sd", reason);
    } else {
      row.set(prefix + ".mean", moments.mean[k]);
      row.set(prefix + ".sd", std::sqrt(moments.squares[k] / n));
    }
  }
  const std::string hue = name + ".hue.";
  if (row.is_empty()) {
    for (const char* part : {"n", "n_invalid", "mean", "resultant_length"}) {
      row.leave_out(hue + part, row.empty_reason());
    }
    return;
  }
  row.set(hue + "n", Value(moments.n_hue));
  row.set(hue + "n_invalid", Value(moments.n + moments.n_invalid - moments.n_hue));
  if (moments.n_hue == 0) {
    const char* const no_hue = "No pixel is coloured enough to have a hue.";
    row.leave_out(hue + "mean", moments.n == 0 ? no_pixel : no_hue);
    row.leave_out(hue + "resultant_length", moments.n == 0 ? no_pixel : no_hue);
    return;
  }
  const double resultant = std::hypot(moments.cosines, moments.sines) / static_cast<double>(moments.n_hue);
  // Sums of millions of cosines are good to some ten digits.
  if (resultant < 1e-10) {
    row.leave_out(hue + "mean", "The hues cancel each other: they have no mean direction.");
  } else {
    const double degrees = std::atan2(moments.sines, moments.cosines) * 180 / std::numbers::pi;
    const double turned = degrees < 0 ? degrees + 360 : degrees;
    row.set(hue + "mean", turned < 360 ? turned : 0.0);
  }
  row.set(hue + "resultant_length", std::min(1.0, resultant));
}

OperationResult ColorStatistics::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const ColorPlanes planes = find_color_planes(capture, info().key, params.at("image").get_ref<const std::string&>());
  OperationResult result;
  Value& chosen = result.chosen_bands["image"] = Value::array();
  for (const Band& band : planes.rgb) chosen.push_back(band.name);

  const ColorSource colors(planes.rgb);
  const RegionPixels pixels(regions, context());
  const std::vector<ColorMoments> groups = pixels.reduce<ColorSums, ColorMoments>(
      context(),
      [&](std::span<const RegionPixels::Run> runs, std::span<ColorSums> sums) { measure_runs(runs, colors, sums); });
  ColorMoments whole;
  for (const ColorMoments& group : groups) whole.add(group);

  const std::string& name = planes.name;
  result.units[name + ".color.n"] = "px";
  result.units[name + ".color.n_invalid"] = "px";
  for (const Quantity& quantity : quantities) {
    for (const char* part : {".mean", ".sd"}) result.units[name + "." + quantity.name + part] = quantity.unit;
  }
  result.units[name + ".hue.n"] = "px";
  result.units[name + ".hue.n_invalid"] = "px";
  result.units[name + ".hue.mean"] = "degrees";
  result.units[name + ".hue.resultant_length"] = "";
  write_rows(result, regions, [&](const Region&, int index, ResultRow& row) {
    const bool is_whole = index < 0 || regions.is_single();
    write_row(row, name, is_whole ? whole : groups[static_cast<std::size_t>(index)]);
  });
  return result;
}

}  // namespace

const ResultOperationInfo& color_statistics_info() {
  static const ResultOperationInfo info{
      .key = "color_statistics",
      .display_name = "Statistics of colour",
      .category = "Colour",
      .summary = "Describes the colour inside the mask and inside each region in RGB, HSV and CIELAB.",
      .description =
          "Of one colour image, as `<measurement>.<image>.<quantity>.<statistic>`: mean and sd (of the population) of "
          "red, green, blue, saturation and value (fractions of white, cut to 0 to 1) and of CIELAB lab_l (0 to 100), "
          "lab_a, lab_b (sRGB encoding, D65, 2 degree observer); color.n and color.n_invalid are the pixels behind "
          "them. Hue is an angle: hue.mean is the direction of the sum of unit vectors in degrees of 0 to 360, "
          "hue.resultant_length the length of that sum divided by n (1 = all hues equal, 0 = no common direction). "
          "Pixels with a saturation below 0.02 have no hue and count under hue.n_invalid. A mask or region without "
          "pixels has none of them; what is left out says why.",
      .source =
          "K. V. Mardia, P. E. Jupp, Directional Statistics, Wiley, 2000 (hue); A. R. Smith, Color Gamut Transform "
          "Pairs, SIGGRAPH Computer Graphics 12(3), 1978, 12-19 (HSV); ISO/CIE 11664-4 and IEC 61966-2-1 (CIELAB)",
      .parameters = {color_image_parameter(), each_region_parameter()},
      .required_measurements = std::vector<MeasurementRequirement>{std::vector<std::string>{"CLR", "MSP"}},
      .check_capture = check_color_capture("color_statistics"),
      .operation_class = {.make = [] { return std::make_unique<ColorStatistics>(); }}};
  return info;
}

}  // namespace orvexa::model
