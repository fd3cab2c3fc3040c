#include <algorithm>
#include <cmath>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/mask_operations/rectangles.h"
#include "orvexa/model/mask_operations/region_names.h"
#include "orvexa/model/pictures/outlines.h"

namespace orvexa::model {

namespace {

/// Cells of the grid along one axis: pixels [begin, end) of each.
struct Span {
  int begin = 0;
  int end = 0;
};

/// The pixels from `from` on, `length` of them, divided into equal cells with a margin on both sides of each.
std::vector<Span> divided(int from, int length, int cells, double margin) {
  constexpr double rounding = 1e-6;  // in pixels
  const double size = double(length) / cells;
  // The first pixel whose centre is not before a place.
  const auto first_pixel = [&](double place) { return from + static_cast<int>(std::ceil(place - 0.5 - rounding)); };
  std::vector<Span> spans;
  spans.reserve(static_cast<std::size_t>(cells));
  for (int cell = 0; cell < cells; ++cell) {
    spans.push_back({first_pixel(size * (cell + margin)), first_pixel(size * (cell + 1 - margin))});
  }
  return spans;
}

class RoiGrid final : public MaskOperation {
  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const Shape shape = source.get_shape();
    const cv::Rect box = box_of_bounds(shape, current);
    const double margin = params.at("margin").get<double>();
    const std::vector<Span> rows = divided(box.y, box.height, params.at("rows").get<int>(), margin);
    const std::vector<Span> columns = divided(box.x, box.width, params.at("cols").get<int>(), margin);
    const std::vector<PixelRect> cells =
        cells_in_order(rows, columns, params.at("order").get_ref<const std::string&>() == "row");
    auto labels = std::make_shared<RegionLabels>();
    std::vector<std::string> empty;
    for (const PixelRect& cell : cells) {
      labels->names.push_back("ROI_" + std::to_string(labels->names.size() + 1));
      if (cell.is_empty()) empty.push_back(labels->names.back());
    }
    if (!empty.empty()) {
      note = "too_fine: there are fewer pixels than cells with their margins, so no pixel is in " + names_text(empty);
    }
    if (wants_overlay) draw(shape, cells);
    cv::Mat pixels(shape.height, shape.width, CV_8UC1);
    labels->image.create(shape.height, shape.width, CV_32SC1);
    for_each_stripe(shape.height, shape.width, context(), [&](int y0, int y1) {
      const cv::Rect stripe(0, y0, shape.width, y1 - y0);
      pixels(stripe).setTo(0);
      labels->image(stripe).setTo(0);
      for (std::size_t k = 0; k < cells.size(); ++k) {
        const cv::Rect part = cv_rect(cells[k]) & stripe;
        pixels(part).setTo(255);
        labels->image(part).setTo(static_cast<int>(k) + 1);
      }
    });
    return Mask(std::move(pixels)).with_labels(std::move(labels));
  }

  static cv::Rect box_of_bounds(Shape shape, const Mask* current) {
    const std::optional<Mask> bounds = current != nullptr ? current->bounds() : std::nullopt;
    return bounds ? cv::boundingRect(bounds->read_only()) : cv::Rect(0, 0, shape.width, shape.height);
  }

  static std::vector<PixelRect> cells_in_order(const std::vector<Span>& rows, const std::vector<Span>& columns,
                                               bool by_row) {
    std::vector<PixelRect> cells;
    const auto add = [&](const Span& row, const Span& column) {
      cells.push_back({column.begin, row.begin, column.end, row.end});
    };
    if (by_row) {
      for (const Span& row : rows) {
        for (const Span& column : columns) add(row, column);
      }
    } else {
      for (const Span& column : columns) {
        for (const Span& row : rows) add(row, column);
      }
    }
    return cells;
  }

  void draw(Shape shape, const std::vector<PixelRect>& cells) {
    LineDrawing drawing(shape);
    for (const PixelRect& cell : cells) drawing.outline(cell, Pen::divided);
    viz_overlay = drawing.finished(context());
  }
};

}  // namespace

const MaskOperationInfo& roi_grid_info() {
  static const MaskOperationInfo info{
      .key = "roi_grid",
      .display_name = "Regions of interest: grid",
      .category = "Regions of interest",
      .summary = "Divides the regions of interest chosen so far, or the image, into a grid of equal regions.",
      .description =
          "The box around the regions of interest that earlier steps left, or the whole image where there are none, is "
          "divided into rows x cols equal cells; a tray that does not fill the picture is first marked with roi_rect. "
          "On each of its four sides a cell loses margin times its own width or height, so that with 0 the cells fill "
          "the box and with 0.4 a fifth of the width and of the height is left. A pixel belongs to the cell that its "
          "centre lies in, so cells never overlap and differ by one pixel at most. The cells are measured on their own "
          "as ROI_1, ROI_2, ..., row by row from the top left or column by column. A cell too small for a pixel keeps "
          "its name and has none, with the note too_fine. Steps that grow a mask stay inside the cells.",
      .source = "Definition of this program",
      .parameters = {{.name = "rows",
                      .type = ParameterType::integer,
                      .default_value = 1,
                      .min = 1.0,
                      .max = 64.0,
                      .unit = "cells",
                      .help = "How many cells stand one above another."},
                     {.name = "cols",
                      .type = ParameterType::integer,
                      .default_value = 1,
                      .min = 1.0,
                      .max = 64.0,
                      .unit = "cells",
                      .help = "How many cells stand side by side."},
                     {.name = "margin",
                      .type = ParameterType::real,
                      .default_value = 0.05,
                      .min = 0.0,
                      .max = 0.4,
                      .unit = "fraction of a cell",
                      .help = "What each cell loses on each of its sides."},
                     {.name = "order",
                      .type = ParameterType::choice,
                      .default_value = "row",
                      .help = "Whether the cells are numbered row by row or column by column.",
                      .choices = {"row", "column"}}},
      ._is_roi_operation = true,
      ._requires_accumulated_mask = true,
      .makes_regions = [](const Value&) { return true; },
      .make = [] { return std::make_unique<RoiGrid>(); }};
  return info;
}

}  // namespace orvexa::model
