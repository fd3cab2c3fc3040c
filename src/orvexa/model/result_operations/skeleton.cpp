#include <array>
#include <cstdint>
#include <utility>

#include "orvexa/model/measures/skeleton.h"
#include "orvexa/model/pictures/shape_picture.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/region_shapes.h"
#include "orvexa/model/result_operations/result_rows.h"
#include "orvexa/model/scale_units.h"

namespace orvexa::model {

namespace {

class SkeletonOperation final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

constexpr std::array<std::uint8_t, 3> skeleton_color{255, 255, 0};

OperationResult SkeletonOperation::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const double prune =
      longest_in_pixels("Skeleton", params.at("prune").get<double>(), params.at("unit").get<std::string>(), capture);
  const std::vector<Skeleton> skeletons = measure_pictures(
      regions, context(), [&](const cv::Mat& picture) { return find_skeleton(picture, prune, context()); });
  const std::optional<double> scale = capture.millimetres_per_pixel();

  OperationResult result;
  add_length_units(result, "skeleton_length", scale);
  for (const char* name : {"skeleton_branches", "skeleton_ends", "skeleton_junctions"}) result.units[name] = "";
  result.units["skeleton_pixels"] = "px";
  write_filled_rows(result, regions, [&](const Region&, int index, ResultRow& row) {
    const Skeleton& own = measured_of(skeletons, index);
    set_length(row, "skeleton_length", own.length, scale);
    row.set("skeleton_branches", Value(own.branches));
    row.set("skeleton_ends", Value(own.ends));
    row.set("skeleton_junctions", Value(own.junctions));
    row.set("skeleton_pixels", Value(own.pixels.size()));
  });
  if (!params.at("picture").get<bool>()) return result;
  ShapePicture picture(capture, regions.mask(), context());
  for (std::size_t k = 0; k < regions.regions().size(); ++k) {
    const PixelRect& box = regions.regions()[k].box;
    for (const cv::Point& pixel : skeletons[k + 1].pixels) {
      picture.draw_pixel(pixel + cv::Point(box.x0, box.y0), skeleton_color);
    }
  }
  result.images.insert_or_assign("skeleton", std::move(picture).take());
  return result;
}

}  // namespace

const ResultOperationInfo& skeleton_info() {
  static const ResultOperationInfo info{
      .key = "skeleton",
      .display_name = "Skeleton",
      .category = "Shape",
      .summary = "Thins the mask and each region to lines of one pixel and measures them.",
      .description =
          "The skeleton is what is left when border pixels are taken off in the two alternating half-steps "
          "of Zhang and Suen until nothing changes; outside the image nothing is set. A block of 2 x 2 "
          "pixels that stands alone, which the half-steps would remove, keeps its upper left pixel. Two "
          "pixels of the skeleton are joined when they share a side, or a corner and no third pixel shares "
          "a side with both. skeleton_length = sum over the joins, 1 over a side and sqrt(2) over a corner "
          "(0 for a single pixel); skeleton_ends = pixels joined with exactly one other; skeleton_junctions"
          " = groups of joined pixels that are each joined with three or more; skeleton_branches = "
          "connected lines when the junction pixels are taken out; skeleton_pixels = all pixels. The "
          "half-steps begin at the lower right, so a turned picture may have a slightly different skeleton."
          " The picture shows the skeleton of each region (of the whole mask where there are no regions) in"
          " yellow. skeleton_length_mm appears where the capture declares its scale. The whole mask is "
          "thinned as one set: regions that touch have other skeletons alone. A mask or region without "
          "pixels has none of them.",
      .source =
          "T. Y. Zhang, C. Y. Suen, A fast parallel algorithm for thinning digital patterns, Communications of the ACM "
          "27(3), 1984, 236-239, doi:10.1145/357994.358023",
      .parameters = {{.name = "prune",
                      .type = ParameterType::real,
                      .default_value = 0.0,
                      .min = 0,
                      .max = 10000,
                      .unit = "px or mm",
                      .help =
                          "Lines from an end to a junction that are at most this long are taken off, all at once; 0 "
                          "keeps every line."},
                     length_unit_parameter(),
                     shape_picture_parameter("the skeleton")},
      .check_capture = check_scale_for("Skeleton"),
      .operation_class = {._requires_mask_operation = std::vector<std::string>{"*"},
                          .make = [] { return std::make_unique<SkeletonOperation>(); }}};
  return info;
}

}  // namespace orvexa::model
