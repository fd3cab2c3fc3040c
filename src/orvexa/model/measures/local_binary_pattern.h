#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "orvexa/model/measures/bands.h"
#include "orvexa/model/measures/region_pixels.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// Rotation-invariant uniform patterns of eight neighbours at distance 1: pattern 0 to 8 = that many neighbours are not
/// darker than the pixel and they stand together, pattern 9 = any other. Neighbours in the diagonals are interpolated
/// bilinearly at (+-sqrt(1/2), +-sqrt(1/2)).
/// Source: T. Ojala, M. Pietikäinen, T. Mäenpää, Multiresolution gray-scale and rotation invariant texture
/// classification with local binary patterns, IEEE Trans. Pattern Anal. Mach. Intell. 24(7), 2002, 971-987,
/// doi:10.1109/TPAMI.2002.1017623.
constexpr std::size_t lbp_patterns = 10;

/// How often each pattern occurs. Only pixels whose 3 x 3 pixels are valid and in the same region have one.
struct PatternCounts {
  std::vector<std::uint32_t> whole;    ///< lbp_patterns numbers
  std::vector<std::uint32_t> regions;  ///< lbp_patterns numbers for each region
};
[[nodiscard]] PatternCounts count_patterns(const Band& band, const RegionPixels& pixels, const RunContext& context);

}  // namespace orvexa::model
