#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "orvexa/model/mask_operations/component_filter.h"
#include "orvexa/model/mask_operations/morphology.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/pictures/outlines.h"

namespace orvexa::model {

namespace {

class ClearBorder final : public MaskOperation {
  std::optional<Mask> compute(const ImageSource&, const Mask* current, const Value& params) override {
    const int buffer = params.at("buffer").get<int>();
    const Components components = find_parts(get_display_name(), *current, params, context());
    std::vector<char> is_kept;
    is_kept.reserve(components.components.size());
    for (const Components::Component& component : components.components) {
      const bool is_near = component.area > 0 && is_near_the_image_border(component.box, components.shape, buffer);
      is_kept.push_back(is_near ? 0 : 1);
    }
    const auto bounds = params.at("limit") == "roi" ? current->bounds() : std::nullopt;
    if (bounds) drop_those_near_the_rim(components, bounds->read_only(), buffer, is_kept);
    if (wants_overlay) viz_overlay = kept_and_rejected(components, is_kept, context());
    if (!is_kept.empty() && std::ranges::count(is_kept, char{1}) == 0) {
      note = "touches_border: all " + std::to_string(is_kept.size()) + " parts of the mask reach the border";
    }
    return Mask(only_kept(components, is_kept, context()));
  }

  /// Whether a pixel lies in the first or last `buffer` + 1 rows or columns.
  static bool is_near_the_image_border(const PixelRect& box, Shape shape, int buffer) {
    return box.x0 <= buffer || box.y0 <= buffer || box.x1 >= shape.width - buffer || box.y1 >= shape.height - buffer;
  }

  /// The same for the rim of the bounds, which may have any shape.
  void drop_those_near_the_rim(const Components& components, const cv::Mat& bounds, int buffer,
                               std::vector<char>& is_kept) const {
    cv::Mat outside;
    cv::bitwise_not(bounds, outside);
    const cv::Mat near_rim =
        morphology(outside, {MorphologyStep::dilation}, square_element(double(buffer) + 1), {}, context());
    for_each_piece(components.runs.size(), context(), [&](std::size_t begin, std::size_t end) {
      for (std::size_t k = begin; k < end; ++k) {
        const Components::Run& run = components.runs[k];
        char& kept = is_kept[static_cast<std::size_t>(run.label - 1)];
        const std::uint8_t* row = near_rim.ptr<std::uint8_t>(run.y);
        if (kept != 0 && std::memchr(row + run.x0, 255, static_cast<std::size_t>(run.x1 - run.x0)) != nullptr) kept = 0;
      }
    });
  }
};

}  // namespace

const MaskOperationInfo& clear_border_info() {
  static const MaskOperationInfo info{
      .key = "clear_border",
      .display_name = "Remove parts at the border",
      .category = "Shape of the mask",
      .summary = "Removes the connected parts of the mask that reach the border, and so may be cut off.",
      .description =
          "The mask is split into 8-connected components or, with of = regions, into the regions that an earlier step "
          "made, such as split_touching; pixels of no region are then removed. A part is removed whole when one of its "
          "pixels lies in the first or last buffer + 1 rows or columns of the image. With the limit roi it is also "
          "removed when a pixel is at most buffer + 1 pixels, counted along rows, columns and diagonals, from a pixel "
          "outside the regions of interest chosen so far. When no part is left the note says touches_border. The "
          "picture of the step shows the rims of what is kept green and of what is removed red.",
      .source = "P. Soille, Morphological Image Analysis, 2nd edition, Springer 2003",
      .parameters = {{.name = "buffer",
                      .type = ParameterType::integer,
                      .default_value = 0,
                      .min = 0.0,
                      .max = 10000.0,
                      .unit = "px",
                      .help = "How far from the border a part must be to be kept; 0 removes those that touch it."},
                     {.name = "limit",
                      .type = ParameterType::choice,
                      .default_value = "image",
                      .help = "Which border counts: that of the image alone, or also the rim of the regions of "
                              "interest.",
                      .choices = {"image", "roi"}},
                     parts_parameter()},
      .needs_mask = true,
      .make = [] { return std::make_unique<ClearBorder>(); }};
  return info;
}

}  // namespace orvexa::model
