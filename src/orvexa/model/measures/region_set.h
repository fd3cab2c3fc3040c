#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "orvexa/model/mask.h"
#include "orvexa/model/measures/pixel_rows.h"
#include "orvexa/model/pick_geometry.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// One region of a final mask in coordinates of the full frame.
struct Region {
  std::string name;       ///< "ROI_1", or the name that the operation that made it gave
  int label = 0;          ///< 1.. ; 0 for the whole mask
  std::int64_t area = 0;  ///< pixels
  PixelRect box;          ///< tight box of its pixels; empty when it has none
};

/// The regions of a final mask, made in one pass: what every result operation works on. Where no operation made
/// regions there is one, "ROI_1", with every pixel of the mask.
class RegionSet {
 public:
  explicit RegionSet(Mask mask, const RunContext& context = {});

  [[nodiscard]] Shape shape() const { return _mask.shape(); }
  [[nodiscard]] const Mask& mask() const { return _mask; }
  /// The whole final mask, regions or not.
  [[nodiscard]] const Region& whole() const { return _whole; }
  [[nodiscard]] const std::vector<Region>& regions() const { return _regions; }
  /// Whether the single region is the whole mask (nobody made regions), so that it need not be measured twice.
  [[nodiscard]] bool is_single() const { return !_labels; }
  /// The same pixels as if nobody had made regions.
  [[nodiscard]] RegionSet joined() const;
  /// Index into `regions()` of the pixel, -1 where it belongs to none. Only meaningful where the mask is set.
  [[nodiscard]] int region_at(int y, int x) const { return _labels ? _labels->image.at<std::int32_t>(y, x) - 1 : 0; }
  /// Labels of one row: `region_at` + 1, for loops over pixels. Empty when nobody made regions.
  [[nodiscard]] std::span<const std::int32_t> label_row(int y) const {
    if (!_labels) return {};
    return {_labels->image.ptr<std::int32_t>(y), static_cast<std::size_t>(shape().width)};
  }
  /// The pixels of a region of `regions()` in raster order, in the full frame; empty when nobody made regions.
  [[nodiscard]] std::span<const PixelRun> runs(const Region& region) const;
  /// The pixels of the whole mask or of a region, with the upper left of its box as (0, 0).
  [[nodiscard]] PixelRows rows(const Region& region) const;
  /// The region alone as a 0/255 picture of its box (for shape measures); an empty Mat when it has no pixel. It may
  /// share the mask's pixels and is not to be written to.
  [[nodiscard]] cv::Mat crop(const Region& region, const RunContext& context = {}) const;

 private:
  void make_single();

  Mask _mask;
  std::shared_ptr<const RegionLabels> _labels;
  /// The runs of all regions, one region after the other, and where those of each begin.
  struct Runs {
    std::vector<PixelRun> runs;
    std::vector<std::size_t> begin;
  };
  std::shared_ptr<const Runs> _runs;
  Region _whole;
  std::vector<Region> _regions;
};

}  // namespace orvexa::model
