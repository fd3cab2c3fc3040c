#include <fmt/format.h>
#include <algorithm>
#include <cmath>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/measures/components.h"
#include "orvexa/model/measures/distance_map.h"
#include "orvexa/model/measures/watershed.h"
#include "orvexa/model/pictures/outlines.h"

namespace orvexa::model {

namespace {

/// Heights are whole numbers of this part of a pixel, so that what only rounding makes higher is level.
constexpr double steps_a_pixel = 256;

/// The rows y0 to y1 - 1 of a map of distances after a Gaussian, cut off at 4 sigma, the border of the image repeated.
cv::Mat smoothed_rows(const cv::Mat& distances, double sigma, int y0, int y1) {
  constexpr double truncation = 4;
  const int size = 2 * static_cast<int>(std::lround(truncation * sigma)) + 1;
  if (size == 1) return distances.rowRange(y0, y1);
  // The filter looks at the rows above and below these by itself.
  cv::Mat rows;
  cv::GaussianBlur(distances.rowRange(y0, y1), rows, cv::Size(size, size), sigma, sigma, cv::BORDER_REPLICATE);
  return rows;
}

class SplitTouching final : public MaskOperation {
  std::optional<Mask> compute(const ImageSource&, const Mask* current, const Value& params) override {
    const Components components = label_components(*current, 8, context());
    const Relief relief{heights_of(current->read_only(), params.at("sigma").get<double>()), current->read_only()};
    const std::vector<cv::Point> seeds =
        find_summits(relief, components, params.at("min_distance").get<int>(), context());
    auto regions = std::make_shared<RegionLabels>();
    regions->image = flood_from(seeds, relief, context());
    static_cast<void>(number_in_raster_order(static_cast<int>(seeds.size()), regions->image, context()));
    for (std::size_t k = 1; k <= seeds.size(); ++k) regions->names.push_back("ROI_" + std::to_string(k));
    note = fmt::format("{} connected {} divided into {} {}", components.components.size(),
                       components.components.size() == 1 ? "part" : "parts", seeds.size(),
                       seeds.size() == 1 ? "region" : "regions");
    if (wants_overlay) draw(components, regions->image, seeds);
    return current->with_labels(std::move(regions));
  }

  [[nodiscard]] cv::Mat heights_of(const cv::Mat& mask, double sigma) const {
    std::optional<cv::Mat> heights = squared_distance_map(mask, context());
    // A mask without a rim has no place that is farther from it than another.
    if (!heights) return cv::Mat::zeros(mask.size(), CV_32SC1);
    cv::Mat distances(mask.size(), CV_32FC1);
    for_each_stripe(mask.rows, mask.cols, context(), [&](int y0, int y1) {
      cv::Mat rows = distances.rowRange(y0, y1);
      heights->rowRange(y0, y1).convertTo(rows, CV_32F);
      cv::sqrt(rows, rows);
    });
    for_each_stripe(mask.rows, mask.cols, context(), [&](int y0, int y1) {
      cv::Mat rows = heights->rowRange(y0, y1);
      smoothed_rows(distances, sigma, y0, y1).convertTo(rows, CV_32S, steps_a_pixel);
    });
    return *heights;
  }

  void draw(const Components& components, const cv::Mat& labels, const std::vector<cv::Point>& seeds) {
    LineDrawing drawing(components.shape);
    drawing.outline(components, std::vector<Pen>(components.components.size(), Pen::kept), context());
    drawing.divide(labels, Pen::divided, context());
    for (const cv::Point& seed : seeds) drawing.cross(seed, Pen::mark);
    viz_overlay = drawing.finished(context());
  }
};

}  // namespace

const MaskOperationInfo& split_touching_info() {
  static const MaskOperationInfo info{
      .key = "split_touching",
      .display_name = "Split touching objects",
      .category = "Shape of the mask",
      .summary = "Divides parts of the mask at their necks into regions, and keeps the mask itself.",
      .description =
          "The Euclidean distance of each pixel to the nearest one outside the mask (outside the image nothing is) is "
          "smoothed with a Gaussian, cut off at 4 sigma, and taken in steps of 1/256 of a pixel. Its summits, from the "
          "highest to the lowest, are the seeds, without those less than min_distance from one of the same 8-connected "
          "part that was taken before. From the seeds the pixels are given away from the highest distance to the "
          "lowest, each to the seed that reaches it first through its 8 neighbours, so that regions meet where the "
          "mask is narrow. Every pixel of the mask gets a region and no pixel is lost; regions of earlier steps are "
          "replaced. They are measured on their own as ROI_1, ROI_2, ... in the raster order of their first pixel. "
          "More smoothing and a larger distance split less. The picture of the step shows the rims of the parts green, "
          "the lines between regions yellow and the seeds magenta.",
      .source =
          "L. Vincent, P. Soille, Watersheds in digital spaces: an efficient algorithm based on immersion simulations, "
          "IEEE Trans. Pattern Analysis and Machine Intelligence 13(6), 1991, 583-598, doi:10.1109/34.87344",
      .parameters = {{.name = "min_distance",
                      .type = ParameterType::integer,
                      .default_value = 10,
                      .min = 1.0,
                      .max = 500.0,
                      .unit = "px",
                      .help = "The least distance between the middles of two objects that are split."},
                     {.name = "sigma",
                      .type = ParameterType::real,
                      .default_value = 1.0,
                      .min = 0.0,
                      .max = 20.0,
                      .unit = "px",
                      .help = "Standard deviation of the Gaussian that smooths the distances; 0 does not smooth."}},
      .needs_mask = true,
      .makes_regions = [](const Value&) { return true; },
      .make = [] { return std::make_unique<SplitTouching>(); }};
  return info;
}

}  // namespace orvexa::model
