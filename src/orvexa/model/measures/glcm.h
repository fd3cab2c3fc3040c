#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "orvexa/model/measures/bands.h"
#include "orvexa/model/measures/region_pixels.h"
#include "orvexa/model/measures/statistics.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// What a matrix of co-occurring grey levels says: P(i, j) = share of the pairs whose levels are i and j, each pair
/// taken both ways, so that P is symmetric.
/// Source: R. M. Haralick, K. Shanmugam, I. Dinstein, Textural features for image classification, IEEE Trans. Syst. Man
/// Cybern. SMC-3(6), 1973, 610-621, doi:10.1109/TSMC.1973.4309314.
struct CooccurrenceFeatures {
  std::int64_t pairs = 0;             ///< each counted once; the rest is 0 when there is none
  double contrast = 0;                ///< sum of P (i - j)^2
  double dissimilarity = 0;           ///< sum of P |i - j|
  double homogeneity = 0;             ///< sum of P / (1 + (i - j)^2)
  double asm_ = 0;                    ///< angular second moment, sum of P^2
  double energy = 0;                  ///< its square root
  double entropy = 0;                 ///< - sum of P log2 P, in bits
  std::optional<double> correlation;  ///< absent where all levels are equal
};

/// One symbol for each unordered pair of levels below 256: 0 .. 32895.
[[nodiscard]] constexpr std::uint16_t pair_symbol(std::uint8_t a, std::uint8_t b) {
  const unsigned high = a > b ? a : b;
  const unsigned low = a > b ? b : a;
  return static_cast<std::uint16_t>(high * (high + 1) / 2 + low);
}

/// @param pairs  how often each symbol occurs, ascending.
[[nodiscard]] CooccurrenceFeatures cooccurrence_features(std::span<const ValueCount> pairs);

/// The four directions of Haralick: 0, 45, 90 and 135 degrees.
constexpr std::size_t glcm_directions = 4;

struct GlcmSettings {
  int distance = 1;  ///< columns and rows from one pixel of a pair to the other; along both in the diagonals
  int levels = 32;   ///< 2 .. 256
  double low = 0;    ///< fraction of white where the first level begins; what is below belongs to it too
  double high = 1;   ///< where the last one ends
};

using DirectionFeatures = std::array<CooccurrenceFeatures, glcm_directions>;

/// Features of the whole mask and of each region: only pairs with both pixels in the mask, and in the same region.
struct RegionTexture {
  DirectionFeatures whole;
  std::vector<DirectionFeatures> regions;
  std::int64_t invalid_in_whole = 0;  ///< pixels that are not a finite number
  std::vector<std::int64_t> invalid;  ///< of each region
};
[[nodiscard]] RegionTexture measure_glcm(const Band& band, const RegionPixels& pixels, const GlcmSettings& settings,
                                         const RunContext& context);

}  // namespace orvexa::model
