#pragma once

#include <cstdint>
#include <span>

#include "orvexa/model/measures/region_set.h"

namespace orvexa::model {

/// Which neighbours of pixels belong to the same region, for measures of pixels together: pairs, small windows.
class SameRegion {
 public:
  /// @param regions  must live as long as this.
  explicit SameRegion(const RegionSet& regions) : _regions(regions) {}

  /// Rows of the mask and of the labels that one row of pixels and its neighbours stand in.
  struct Row {
    const std::uint8_t* set = nullptr;    ///< null outside the image
    const std::int32_t* label = nullptr;  ///< null where nobody made regions
  };
  [[nodiscard]] Row row(int y) const {
    if (y < 0 || y >= _regions.shape().height) return {};
    const std::span<const std::int32_t> labels = _regions.label_row(y);
    return {_regions.mask().row(y).data(), labels.empty() ? nullptr : labels.data()};
  }
  /// Whether the pixel (x, row) is set and in the region with this label; 0 = in no region or in whatever region.
  [[nodiscard]] bool holds(const Row& row, int x, std::int32_t label) const {
    if (row.set == nullptr || x < 0 || x >= _regions.shape().width || row.set[x] == 0) return false;
    return label == 0 || row.label == nullptr || row.label[x] == label;
  }

 private:
  const RegionSet& _regions;
};

}  // namespace orvexa::model
