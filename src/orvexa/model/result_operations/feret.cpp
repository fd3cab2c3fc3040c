#include <array>
#include <cstdint>
#include <utility>

#include "orvexa/model/measures/shape_measures.h"
#include "orvexa/model/pictures/shape_picture.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/region_shapes.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

class Feret final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

struct Diameters {
  FeretDiameter greatest;
  FeretDiameter least;
};

constexpr std::array<std::uint8_t, 3> greatest_color{255, 255, 0};
constexpr std::array<std::uint8_t, 3> least_color{0, 255, 255};

OperationResult Feret::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const std::vector<Diameters> diameters = measure_rows(regions, context(), [&](const PixelRows& rows) {
    const CornerHull hull = corner_hull(rows, context());
    return Diameters{hull.greatest_feret(), hull.least_feret()};
  });
  const std::optional<double> scale = capture.millimetres_per_pixel();

  OperationResult result;
  for (const std::string name : {"feret_max", "feret_min"}) {
    add_length_units(result, name, scale);
    result.units[name + "_angle"] = "degrees";
    add_length_units(result, name + "_across", scale);
  }
  write_filled_rows(result, regions, [&](const Region&, int index, ResultRow& row) {
    const auto set = [&](const std::string& name, const FeretDiameter& diameter) {
      set_length(row, name, diameter.length, scale);
      row.set(name + "_angle", diameter.direction);
      set_length(row, name + "_across", diameter.across, scale);
    };
    set("feret_max", measured_of(diameters, index).greatest);
    set("feret_min", measured_of(diameters, index).least);
  });
  if (!params.at("picture").get<bool>()) return result;
  ShapePicture picture(capture, regions.mask(), context());
  for (std::size_t k = 0; k < regions.regions().size(); ++k) {
    const Region& region = regions.regions()[k];
    if (region.area == 0) continue;
    const cv::Point2d corner(region.box.x0, region.box.y0);
    const Diameters& own = diameters[k + 1];
    picture.draw_line(corner + own.least.from, corner + own.least.to, least_color);
    picture.draw_line(corner + own.greatest.from, corner + own.greatest.to, greatest_color);
  }
  result.images.insert_or_assign("diameters", std::move(picture).take());
  return result;
}

}  // namespace

const ResultOperationInfo& feret_info() {
  static const ResultOperationInfo info{
      .key = "feret",
      .display_name = "Feret diameters",
      .category = "Shape",
      .summary = "Measures the greatest and the least diameter of the mask and of each region and their directions.",
      .description =
          "A Feret diameter is the distance of two parallel lines that hold the shape between them, as a "
          "caliper measures it. It is taken from the corners of the pixels, where the pixel in column x "
          "covers x to x + 1: a single pixel has the greatest diameter sqrt(2) and the least 1. feret_max "
          "and feret_min = greatest and least diameter; feret_max_angle and feret_min_angle = the direction"
          " in which each is measured; feret_max_across and feret_min_across = extent of the shape "
          "perpendicular to that direction. Angles are in degrees from 0 to below 180, counter-clockwise "
          "from the x axis as the picture is looked at (0 = along a row, 90 = along a column). Of several "
          "diameters of the same length the one with the least extent across counts, then the one with the "
          "least angle. The picture shows feret_max of each region (of the whole mask where there are no "
          "regions) in yellow and feret_min in cyan. Lengths in mm appear as <name>_mm where the capture "
          "declares its scale. The whole mask is measured as one set. A mask or region without pixels has "
          "none of them.",
      .source =
          "ISO 13322-1, Particle size analysis - Image analysis methods - Part 1: Static image analysis methods; M. I. "
          "Shamos, Computational Geometry, PhD thesis, Yale University, 1978",
      .parameters = {shape_picture_parameter("the diameters")},
      .operation_class = {._requires_mask_operation = std::vector<std::string>{"*"},
                          .make = [] { return std::make_unique<Feret>(); }}};
  return info;
}

}  // namespace orvexa::model
