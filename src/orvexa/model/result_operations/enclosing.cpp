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

class Enclosing final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

struct Shapes {
  EnclosingRectangle rectangle;
  EnclosingCircle circle;
};

constexpr std::array<std::uint8_t, 3> rectangle_color{255, 255, 0};
constexpr std::array<std::uint8_t, 3> circle_color{0, 255, 255};

ResultImage picture_of(const CaptureSet& capture, const RegionSet& regions, const std::vector<Shapes>& shapes,
                       const RunContext& context) {
  ShapePicture picture(capture, regions.mask(), context);
  for (std::size_t k = 0; k < regions.regions().size(); ++k) {
    const Region& region = regions.regions()[k];
    if (region.area == 0) continue;
    const cv::Point2d corner(region.box.x0, region.box.y0);
    const Shapes& own = shapes[k + 1];
    picture.draw_circle(corner + own.circle.centre, own.circle.radius, circle_color);
    for (std::size_t side = 0; side < 4; ++side) {
      picture.draw_line(corner + own.rectangle.corners.at(side), corner + own.rectangle.corners.at((side + 1) % 4),
                        rectangle_color);
    }
  }
  return std::move(picture).take();
}

OperationResult Enclosing::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const std::vector<Shapes> shapes = measure_rows(regions, context(), [&](const PixelRows& rows) {
    const CornerHull hull = corner_hull(rows, context());
    return Shapes{hull.least_rectangle(), hull.least_circle()};
  });
  const std::optional<double> scale = capture.millimetres_per_pixel();

  OperationResult result;
  for (const char* name : {"min_rectangle_length", "min_rectangle_width"}) add_length_units(result, name, scale);
  result.units["min_rectangle_angle"] = "degrees";
  add_area_units(result, "min_rectangle_area", scale);
  result.units["rectangularity"] = "";
  for (const char* name : {"min_rectangle_x", "min_rectangle_y"}) add_length_units(result, name, scale);
  for (const char* name : {"min_circle_diameter", "min_circle_x", "min_circle_y"})
    add_length_units(result, name, scale);
  write_filled_rows(result, regions, [&](const Region& region, int index, ResultRow& row) {
    const auto& [rectangle, circle] = measured_of(shapes, index);
    const double area = rectangle.length * rectangle.width;
    set_length(row, "min_rectangle_length", rectangle.length, scale);
    set_length(row, "min_rectangle_width", rectangle.width, scale);
    row.set("min_rectangle_angle", rectangle.direction);
    set_area(row, "min_rectangle_area", Value(area), scale);
    row.set("rectangularity", static_cast<double>(region.area) / area);
    set_length(row, "min_rectangle_x", region.box.x0 + rectangle.centre.x, scale);
    set_length(row, "min_rectangle_y", region.box.y0 + rectangle.centre.y, scale);
    set_length(row, "min_circle_diameter", 2 * circle.radius, scale);
    set_length(row, "min_circle_x", region.box.x0 + circle.centre.x, scale);
    set_length(row, "min_circle_y", region.box.y0 + circle.centre.y, scale);
  });
  if (params.at("picture").get<bool>()) {
    result.images.insert_or_assign("shapes", picture_of(capture, regions, shapes, context()));
  }
  return result;
}

}  // namespace

const ResultOperationInfo& enclosing_info() {
  static const ResultOperationInfo info{
      .key = "enclosing",
      .display_name = "Enclosing rectangle and circle",
      .category = "Shape",
      .summary =
          "Gives the smallest rectangle, in any direction, and the smallest circle around the mask and each region.",
      .description =
          "Both hold all corners of the pixels, where the pixel in column x covers x to x + 1. min_rectangle_length "
          "and min_rectangle_width = longer and shorter side of the rectangle of the least area (of several the one "
          "with the shortest longer side), min_rectangle_angle = direction of the longer side, or of the one below 90 "
          "degrees where both are equal, min_rectangle_area = length * width, min_rectangle_x and min_rectangle_y = "
          "its centre; rectangularity = area / min_rectangle_area, at most 1. min_circle_diameter = diameter of the "
          "smallest circle, min_circle_x and min_circle_y = its centre. Angles are in degrees from 0 to below 180, "
          "counter-clockwise from the x axis as the picture is looked at (0 = along a row, 90 = along a column). "
          "Positions count columns and rows of pixels: the centre of the first pixel of the image is (0, 0). The "
          "picture shows the rectangle of each region (of the whole mask where there are no regions) in yellow and the "
          "circle in cyan. Lengths, positions and areas in millimetres appear as <name>_mm and <name>_mm2 where the "
          "capture declares its scale. The whole mask is measured as one set. A mask or region without pixels has none "
          "of them.",
      .source =
          "H. Freeman, R. Shapira, Determining the minimum-area encasing rectangle for an arbitrary closed curve, "
          "Communications of the ACM 18(7), 1975, 409-413, doi:10.1145/360881.360919; G. T. Toussaint, Solving "
          "geometric problems with the rotating calipers, Proc. IEEE MELECON, 1983; E. Welzl, Smallest enclosing disks "
          "(balls and ellipsoids), LNCS 555, 1991, 359-370, doi:10.1007/BFb0038202",
      .parameters = {shape_picture_parameter("the rectangles and circles")},
      .operation_class = {._requires_mask_operation = std::vector<std::string>{"*"},
                          .make = [] { return std::make_unique<Enclosing>(); }}};
  return info;
}

}  // namespace orvexa::model
