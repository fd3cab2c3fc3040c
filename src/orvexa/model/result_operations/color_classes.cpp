#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

#include "orvexa/model/measures/color_planes.h"
#include "orvexa/model/measures/reference_colors.h"
#include "orvexa/model/pictures/heat_map.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

constexpr const char* key = "color_classes";

class ColorClasses final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
  void check(const Value& params) const override { check_palette(key, "palette", params.at("palette")); }
};

struct ClassSum {
  std::int64_t n = 0;
  double differences = 0;
};

/// What one group has of each class; no list where no pixel was valid.
struct ClassSums {
  std::vector<ClassSum> classes;
  std::int64_t n_invalid = 0;

  void add(const ClassSums& other) {
    n_invalid += other.n_invalid;
    if (other.classes.empty()) return;
    classes.resize(other.classes.size());
    for (std::size_t k = 0; k < classes.size(); ++k) {
      classes[k].n += other.classes[k].n;
      classes[k].differences += other.classes[k].differences;
    }
  }
  [[nodiscard]] std::int64_t n() const {
    std::int64_t sum = 0;
    for (const ClassSum& own : classes) sum += own.n;
    return sum;
  }
};

struct Nearest {
  std::size_t color = 0;
  double difference = std::numeric_limits<double>::infinity();
};

/// Of equally near centres the first.
Nearest nearest_color(const std::vector<NamedColor>& palette, const Lab& lab) {
  Nearest nearest;
  for (std::size_t k = 0; k < palette.size(); ++k) {
    if (least_delta_e_2000(palette[k].lab.l, lab.l) >= nearest.difference) continue;
    const double difference = delta_e_2000(lab, palette[k].lab);
    if (difference < nearest.difference) nearest = {k, difference};
  }
  return nearest;
}

/// Adds the pixels of the runs to their groups and writes the number of each pixel's class, from 1, into the map.
void classify_runs(std::span<const RegionPixels::Run> runs, const ColorSource& colors,
                   const std::vector<NamedColor>& palette, std::span<ClassSums> groups, cv::Mat& map) {
  ColorRow row(colors);
  for (const RegionPixels::Run& run : runs) {
    row.read(run.y);
    ClassSums& sums = groups[run.group];
    std::uint8_t* out = map.ptr<std::uint8_t>(run.y);
    for (auto x = static_cast<std::size_t>(run.x0); x < static_cast<std::size_t>(run.x1); ++x) {
      if (!row.is_valid(x)) {
        ++sums.n_invalid;
        continue;
      }
      const Nearest nearest = nearest_color(palette, row.lab(x));
      if (sums.classes.empty()) sums.classes.resize(palette.size());
      ClassSum& own = sums.classes[nearest.color];
      ++own.n;
      own.differences += nearest.difference;
      out[x] = static_cast<std::uint8_t>(nearest.color + 1);
    }
  }
}

std::string class_prefix(const std::string& image, const NamedColor& color) {
  return image + ".class." + color.name;
}

void write_class(ResultRow& row, const std::string& prefix, const ClassSum& own, std::int64_t n) {
  if (row.is_empty() || n == 0) {
    const std::string_view reason = row.is_empty() ? row.empty_reason() : "No pixel has a valid value.";
    for (const char* part : {".n", ".share", ".delta_e.mean"}) row.leave_out(prefix + part, reason);
    return;
  }
  row.set(prefix + ".n", Value(own.n));
  row.set(prefix + ".share", static_cast<double>(own.n) / static_cast<double>(n));
  if (own.n == 0) {
    row.leave_out(prefix + ".delta_e.mean", "No pixel belongs to this class.");
  } else {
    row.set(prefix + ".delta_e.mean", own.differences / static_cast<double>(own.n));
  }
}

void write_row(ResultRow& row, const std::string& image, const std::vector<NamedColor>& palette, ClassSums sums) {
  const std::int64_t n = sums.n();
  sums.classes.resize(palette.size());
  for (const auto& [name, count] : {std::pair(".classes.n", n), std::pair(".classes.n_invalid", sums.n_invalid)}) {
    if (row.is_empty()) {
      row.leave_out(image + name, row.empty_reason());
    } else {
      row.set(image + name, Value(count));
    }
  }
  row.expect_more(3 * palette.size());
  for (std::size_t k = 0; k < palette.size(); ++k)
    write_class(row, class_prefix(image, palette[k]), sums.classes[k], n);
}

/// The colour of a class centre, cut to what a screen can show.
std::array<std::uint8_t, 3> shown_color(const Lab& lab) {
  const Rgb rgb = to_rgb(lab);
  const auto count = [](double share) {
    return static_cast<std::uint8_t>(std::lround(255 * std::clamp(share, 0.0, 1.0)));
  };
  return {count(rgb.r), count(rgb.g), count(rgb.b)};
}

ResultImage class_picture(const cv::Mat& map, const std::vector<NamedColor>& palette, const RunContext& context) {
  std::vector<std::array<std::uint8_t, 3>> color_of{no_value_color};
  for (const NamedColor& color : palette) color_of.push_back(shown_color(color.lab));
  cv::Mat picture(map.rows, map.cols, CV_8UC3);
  cv::Mat numbers(map.rows, map.cols, CV_32FC1);
  for_each_stripe(map.rows, map.cols, context, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      const std::uint8_t* number = map.ptr<std::uint8_t>(y);
      std::uint8_t* rgb = picture.ptr<std::uint8_t>(y);
      float* out = numbers.ptr<float>(y);
      for (int x = 0; x < map.cols; ++x, rgb += 3) {
        std::ranges::copy(color_of[number[x]], rgb);
        out[x] = number[x] == 0 ? std::numeric_limits<float>::quiet_NaN() : static_cast<float>(number[x]);
      }
    }
  });
  return {.picture = Image(std::move(picture)), .numbers = Image(std::move(numbers))};
}

void add_class_table(OperationResult& result, const std::vector<NamedColor>& palette) {
  ResultTable& table = result.tables["palette"];
  table.columns = {"number", "name", "L", "a", "b"};
  for (std::size_t k = 0; k < palette.size(); ++k) {
    const auto& [name, lab] = palette[k];
    table.rows.push_back({static_cast<std::int64_t>(k + 1), name, lab.l, lab.a, lab.b});
  }
}

OperationResult ColorClasses::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const ColorPlanes planes = find_color_planes(capture, key, params.at("image").get_ref<const std::string&>());
  const std::vector<NamedColor> palette = palette_from(params.at("palette"));
  OperationResult result;
  Value& chosen = result.chosen_bands["image"] = Value::array();
  for (const Band& band : planes.rgb) chosen.push_back(band.name);
  add_class_table(result, palette);

  const ColorSource colors(planes.rgb);
  cv::Mat map = cv::Mat::zeros(regions.shape().height, regions.shape().width, CV_8UC1);
  const RegionPixels pixels(regions, context());
  const std::vector<ClassSums> groups = pixels.reduce<ClassSums, ClassSums>(
      context(), [&](std::span<const RegionPixels::Run> runs, std::span<ClassSums> sums) {
        classify_runs(runs, colors, palette, sums, map);
      });
  ClassSums whole;
  for (const ClassSums& group : groups) whole.add(group);

  result.units[planes.name + ".classes.n"] = "px";
  result.units[planes.name + ".classes.n_invalid"] = "px";
  for (const NamedColor& color : palette) {
    const std::string prefix = class_prefix(planes.name, color);
    result.units[prefix + ".n"] = "px";
    result.units[prefix + ".share"] = "fraction of the valid pixels";
    result.units[prefix + ".delta_e.mean"] = "";
  }
  write_rows(result, regions, [&](const Region&, int index, ResultRow& row) {
    const bool is_whole = index < 0 || regions.is_single();
    write_row(row, planes.name, palette, is_whole ? whole : groups[static_cast<std::size_t>(index)]);
  });
  result.images.insert_or_assign("classes", class_picture(map, palette, context()));
  return result;
}

/// Colours that have a name in CSS, in CIELAB rounded to a tenth.
Value default_palette() {
  const auto color = [](const char* name, double l, double a, double b) {
    return Value{{"name", name}, {"lab", Value::array({l, a, b})}};
  };
  return Value::array({color("black", 0.0, 0.0, 0.0), color("grey", 53.6, 0.0, 0.0), color("white", 100.0, 0.0, 0.0),
                       color("red", 53.2, 80.1, 67.2), color("orange", 74.9, 23.9, 78.9),
                       color("yellow", 97.1, -21.6, 94.5), color("green", 46.2, -51.7, 49.9),
                       color("blue", 32.3, 79.2, -107.9), color("brown", 37.5, 49.7, 30.5)});
}

}  // namespace

const ResultOperationInfo& color_classes_info() {
  static const ResultOperationInfo info{
      .key = key,
      .display_name = "Colour classes",
      .category = "Colour",
      .summary = "Says how much of the mask and of each region has which colour of a palette.",
      .description =
          "Each pixel of one colour image belongs to the colour of the palette from which its difference by CIEDE2000 "
          "(kL = kC = kH = 1) is least, of equally near ones to the first; colours are compared in CIELAB (sRGB "
          "encoding, D65, 2 degree observer; R, G, B as fractions of white, cut to 0 to 1). For each colour, as "
          "`<measurement>.<image>.class.<name>`: `.n` pixels, `.share` of the valid pixels, `.delta_e.mean` of their "
          "differences from the colour itself, which a class without pixels does not have. `<measurement>.<image>"
          ".classes.n` and `.n_invalid` are the pixels behind them; those that are not a number are left out. The "
          "picture `classes` shows each pixel in the colour of its class, light grey outside the mask; its numbers are "
          "the places in the palette, from 1, as in the table `palette`. A mask or region without pixels has none of "
          "the metrics; what is left out says why.",
      .source =
          "ISO/CIE 11664-4 (CIELAB); ISO/CIE 11664-6 (CIEDE2000); IEC 61966-2-1 (sRGB); G. Sharma, W. Wu, E. N. Dalal, "
          "The CIEDE2000 color-difference formula, Color Research and Application 30(1), 2005, 21-30, "
          "doi:10.1002/col.20070",
      .parameters = {color_image_parameter(),
                     {.name = "palette",
                      .type = ParameterType::palette,
                      .default_value = default_palette(),
                      .min = -200.0,
                      .max = 200.0,
                      .help = "The colours with their names, L from 0 to 100, from 1 to 64 of them."},
                     each_region_parameter()},
      .required_measurements = std::vector<MeasurementRequirement>{std::vector<std::string>{"CLR", "MSP"}},
      .check_capture = check_color_capture(key),
      .operation_class = {.make = [] { return std::make_unique<ColorClasses>(); }}};
  return info;
}

}  // namespace orvexa::model
