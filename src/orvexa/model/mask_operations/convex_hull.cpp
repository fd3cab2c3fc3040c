#include <algorithm>
#include <memory>
#include <numeric>
#include <span>
#include <utility>
#include <vector>

#include "orvexa/model/mask_operations/component_filter.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/measures/component_pictures.h"
#include "orvexa/model/measures/scan_conversion.h"
#include "orvexa/model/measures/shape_measures.h"
#include "orvexa/model/pictures/outlines.h"

namespace orvexa::model {

namespace {

/// The hulls of several regions as rows of pixels, those of one row of the image together, the later region's last.
class HullRows {
 public:
  struct Row {
    PixelRow pixels;
    std::int32_t label = 0;
  };

  HullRows(const std::vector<std::vector<PixelRow>>& hulls, int height)
      : _begin(static_cast<std::size_t>(height) + 1, 0) {
    for (const std::vector<PixelRow>& hull : hulls) {
      for (const PixelRow& row : hull) ++_begin[static_cast<std::size_t>(row.y) + 1];
    }
    std::inclusive_scan(_begin.begin(), _begin.end(), _begin.begin());
    std::vector<std::size_t> next = _begin;
    _rows.resize(_begin.back());
    std::int32_t label = 0;
    for (const std::vector<PixelRow>& hull : hulls) {
      ++label;
      for (const PixelRow& row : hull) _rows[next[static_cast<std::size_t>(row.y)]++] = {row, label};
    }
  }
  [[nodiscard]] std::span<const Row> of_rows(int y0, int y1) const {
    const std::size_t begin = _begin[static_cast<std::size_t>(y0)];
    return std::span(_rows).subspan(begin, _begin[static_cast<std::size_t>(y1)] - begin);
  }

 private:
  std::vector<std::size_t> _begin;
  std::vector<Row> _rows;
};

class ConvexHullMask final : public MaskOperation {
  std::optional<Mask> compute(const ImageSource&, const Mask* current, const Value& params) override {
    const bool per_region = params.at("per_region").get<bool>();
    const Shape shape = current->shape();
    const HullRows hulls(hulls_of(parts_of(*current, per_region)), shape.height);
    cv::Mat pixels(shape.height, shape.width, CV_8UC1);
    for_each_stripe(shape.height, shape.width, context(), [&](int y0, int y1) {
      current->read_only().rowRange(y0, y1).copyTo(pixels.rowRange(y0, y1));
      for (const auto& [row, label] : hulls.of_rows(y0, y1)) {
        std::uint8_t* at = pixels.ptr<std::uint8_t>(row.y);
        std::fill(at + row.x0, at + row.x1, std::uint8_t{255});
      }
    });
    if (wants_overlay) draw(pixels);
    Mask mask(std::move(pixels));
    return per_region && current->labels() ? mask.with_labels(grown_labels(*current, hulls)) : mask;
  }

  [[nodiscard]] Components parts_of(const Mask& mask, bool per_region) const {
    if (per_region && mask.labels()) return components_of_regions(mask, context());
    Components parts = label_components(mask, 8, context());
    return per_region ? parts : joined(std::move(parts));
  }

  /// All components as one.
  [[nodiscard]] static Components joined(Components parts) {
    if (parts.components.empty()) return parts;
    Components::Component& whole = parts.components.front();
    for (const Components::Component& part : std::span(parts.components).subspan(1)) {
      whole.area += part.area;
      whole.box = {std::min(whole.box.x0, part.box.x0), std::min(whole.box.y0, part.box.y0),
                   std::max(whole.box.x1, part.box.x1), std::max(whole.box.y1, part.box.y1)};
    }
    parts.components.resize(1);
    for (Components::Run& run : parts.runs) run.label = 1;
    return parts;
  }

  [[nodiscard]] std::vector<std::vector<PixelRow>> hulls_of(const Components& parts) const {
    return measure_components(parts, context(), std::vector<PixelRow>(),
                              [&](const cv::Mat& picture, const Components::Component& part) {
                                CornerHull hull = corner_hull(picture, context());
                                for (cv::Point& vertex : hull.vertices) vertex += cv::Point(part.box.x0, part.box.y0);
                                return rows_of_hull(hull.vertices);
                              });
  }

  /// What a hull adds becomes part of its region; what was in the mask stays where it belongs.
  [[nodiscard]] std::shared_ptr<const RegionLabels> grown_labels(const Mask& before, const HullRows& hulls) const {
    const Shape shape = before.shape();
    auto grown = std::make_shared<RegionLabels>();
    grown->names = before.labels()->names;
    grown->image.create(shape.height, shape.width, CV_32SC1);
    for_each_stripe(shape.height, shape.width, context(), [&](int y0, int y1) {
      before.labels()->image.rowRange(y0, y1).copyTo(grown->image.rowRange(y0, y1));
      for (const auto& [row, label] : hulls.of_rows(y0, y1)) {
        const std::uint8_t* was_set = before.read_only().ptr<std::uint8_t>(row.y);
        std::int32_t* at = grown->image.ptr<std::int32_t>(row.y);
        for (int x = row.x0; x < row.x1; ++x) {
          if (was_set[x] == 0) at[x] = label;
        }
      }
    });
    return grown;
  }

  void draw(const cv::Mat& grown) {
    const Components parts = label_components(grown, 8, context());
    LineDrawing drawing(parts.shape);
    drawing.outline(parts, std::vector<Pen>(parts.components.size(), Pen::changed), context());
    viz_overlay = drawing.finished(context());
  }
};

}  // namespace

const MaskOperationInfo& convex_hull_mask_info() {
  static const MaskOperationInfo info{
      .key = "convex_hull",
      .display_name = "Convex hull",
      .category = "Shape of the mask",
      .summary = "Fills each part of the mask to its convex hull.",
      .description =
          "The hull is that of the corners of the pixels, where the pixel in column x covers x to x + 1, as the "
          "measurement convex_hull takes it. A pixel is added when its centre lies inside the hull; one with its "
          "centre exactly on the rim is not. So a rectangle stays as it is, and the steps of a slanting rim are filled "
          "where more than half of a pixel is inside. With per_region each region that an earlier step made has a hull "
          "of its own, and what the hull adds belongs to the region, where hulls overlap to the later one; without "
          "such regions each 8-connected component has one. Otherwise one hull is put around the whole mask. The "
          "result stays inside the regions of interest chosen so far, or inside the image where there are none. The "
          "picture of the step shows the rims of the result blue.",
      .source =
          "A. M. Andrew, Another efficient algorithm for convex hulls in two dimensions, Information Processing "
          "Letters 9(5), 1979, 216-219",
      .parameters = {{.name = "per_region",
                      .type = ParameterType::boolean,
                      .default_value = true,
                      .help = "Gives each region or connected part its own hull, instead of one to the whole mask."}},
      ._preview_unconstrained = true,
      .needs_mask = true,
      .make = [] { return std::make_unique<ConvexHullMask>(); }};
  return info;
}

}  // namespace orvexa::model
