#include <algorithm>
#include <limits>

#include "orvexa/model/measures/color_planes.h"
#include "orvexa/model/measures/reference_colors.h"
#include "orvexa/model/pictures/heat_map.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

constexpr const char* key = "color_difference";

class ColorDifferenceStatistics final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
  void check(const Value& params) const override {
    if (params.at("reference") == "point") {
      refuse_unused(key, info().parameters, params, {"lab_l", "lab_a", "lab_b"},
                    "parameter \"reference\" is \"point\"; choose \"lab\" to use it");
    } else {
      refuse_unused(key, info().parameters, params, {"point", "radius"},
                    "parameter \"reference\" is \"lab\"; choose \"point\" to use it");
    }
  }
};

Lab reference_color(const ColorSource& colors, const Value& params) {
  if (params.at("reference") == "point") {
    return picked_color(colors, params.at("point"), params.at("radius").get<int>());
  }
  return {params.at("lab_l").get<double>(), params.at("lab_a").get<double>(), params.at("lab_b").get<double>()};
}

/// NaN outside the mask and where the colour is not valid.
cv::Mat difference_map(const ColorSource& colors, const Mask& mask, const Lab& reference, ColorDifference difference,
                       const RunContext& context) {
  const auto [height, width] = colors.shape();
  cv::Mat map(height, width, CV_64FC1);
  for_each_stripe(height, width, context, [&, columns = static_cast<std::size_t>(width)](int y0, int y1) {
    ColorRow row(colors);
    for (int y = y0; y < y1; ++y) {
      row.read(y);
      const std::uint8_t* counts = mask.row(y).data();
      double* out = map.ptr<double>(y);
      for (std::size_t x = 0; x < columns; ++x) {
        const bool has_value = counts[x] != 0 && row.is_valid(x);
        out[x] = has_value ? difference(row.lab(x), reference) : std::numeric_limits<double>::quiet_NaN();
      }
    }
  });
  return map;
}

struct Formula {
  const char* name;
  ColorDifference difference;
};
constexpr Formula formulas[] = {{"delta_e_76", delta_e_76}, {"delta_e_2000", delta_e_2000}};

OperationResult ColorDifferenceStatistics::compute(const CaptureSet& capture, const RegionSet& regions,
                                                   const Value& params) {
  const ColorPlanes planes = find_color_planes(capture, key, params.at("image").get_ref<const std::string&>());
  OperationResult result;
  Value& chosen = result.chosen_bands["image"] = Value::array();
  for (const Band& band : planes.rgb) chosen.push_back(band.name);

  const ColorSource colors(planes.rgb);
  const Lab reference = reference_color(colors, params);
  ResultTable& table = result.tables["reference"];
  table.columns = {"reference", "L", "a", "b"};
  table.rows.push_back({params.at("reference"), reference.l, reference.a, reference.b});

  const RegionPixels pixels(regions, context());
  for (const Formula& formula : formulas) {
    const cv::Mat map = difference_map(colors, regions.mask(), reference, formula.difference, context());
    const RegionStatistics statistics = pixels.measure(map, context());
    add_statistics(result, regions, planes.name + "." + formula.name, statistics, {});
    // One is what the eye just sees: less is not worth all the colours.
    const HeatScale scale{0, std::max(1.0, statistics.whole.p95), formula.name};
    result.images.insert_or_assign(formula.name,
                                   ResultImage{.picture = heat_map_picture(map, regions.mask(), scale, context()),
                                               .numbers = map_numbers(map, regions.mask(), context())});
  }
  return result;
}

ParameterInfo lab_parameter(const char* name, double value, double min, double max, const char* help) {
  return {.name = name, .type = ParameterType::real, .default_value = value, .min = min, .max = max, .help = help};
}

}  // namespace

const ResultOperationInfo& color_difference_info() {
  static const ResultOperationInfo info{
      .key = key,
      .display_name = "Colour difference",
      .category = "Colour",
      .summary = "Describes how far the colours inside the mask and inside each region are from a reference colour.",
      .description =
          "Of each pixel of one colour image the difference from a reference colour in CIELAB (sRGB encoding, D65, 2 "
          "degree observer; R, G, B as fractions of white, cut to 0 to 1): delta_e_76 = sqrt(dL^2 + da^2 + db^2), "
          "delta_e_2000 = CIEDE2000 with kL = kC = kH = 1. As `<measurement>.<image>.delta_e_76.<statistic>` and "
          "`.delta_e_2000.<statistic>`: " +
          statistics_text() +
          " The reference is given by hand, or it is the mean in CIELAB of the valid pixels whose centres lie not "
          "farther than radius from the picked pixel's, whether the mask holds them or not; the table `reference` says "
          "which it was. The maps run from 0 to the 95 % quantile, at least to 1; their numbers are saved as 32-bit "
          "float.",
      .source =
          "ISO/CIE 11664-4 (CIELAB, difference of 1976); ISO/CIE 11664-6 (CIEDE2000); IEC 61966-2-1 (sRGB); G. Sharma, "
          "W. Wu, E. N. Dalal, The CIEDE2000 color-difference formula, Color Research and Application 30(1), 2005, "
          "21-30, doi:10.1002/col.20070",
      .parameters = {color_image_parameter(),
                     {.name = "reference",
                      .type = ParameterType::choice,
                      .default_value = "point",
                      .help = "Whether the reference colour is the one at the point or the one given by hand as lab.",
                      .choices = {"point", "lab"}},
                     {.name = "point",
                      .type = ParameterType::point,
                      .default_value = Value::array({0.5, 0.5}),
                      .min = 0.0,
                      .max = 1.0,
                      .unit = "fraction of the image",
                      .help = "The point whose colour is the reference.",
                      .interaction = Interaction{"point"}},
                     patch_radius_parameter(),
                     lab_parameter("lab_l", 50, 0, 100, "The lightness L of a reference colour given by hand."),
                     lab_parameter("lab_a", 0, -200, 200, "The a (green to red) of a reference colour given by hand."),
                     lab_parameter("lab_b", 0, -200, 200,
                                   "The b (blue to yellow) of a reference colour given by hand."),
                     each_region_parameter()},
      .required_measurements = std::vector<MeasurementRequirement>{std::vector<std::string>{"CLR", "MSP"}},
      .check_capture = check_color_capture(key),
      .operation_class = {.make = [] { return std::make_unique<ColorDifferenceStatistics>(); }}};
  return info;
}

}  // namespace orvexa::model
