#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "orvexa/model/measures/bands.h"
#include "orvexa/model/measures/region_pixels.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// How sharp the pixels of a region are. Neighbours are those of the image, whether or not they are in the region.
struct Sharpness {
  std::int64_t n = 0;  ///< pixels with valid values all around: not at the image's border
  /// Variance (of the population) of the Laplacian above + below + left + right - 4 centre, in squared counts; 0 when n
  /// is 0. Source: J. L. Pech-Pacheco, G. Cristóbal, J. Chamorro-Martínez, J. Fernández-Valdivia, Diatom autofocusing
  /// in brightfield microscopy: a comparative study, ICPR 2000, vol. 3, 314-317, doi:10.1109/ICPR.2000.903548.
  double laplacian_variance = 0;
  /// 0 = sharp to 1 = blurred: how little of the absolute differences between neighbours is lost when the picture is
  /// blurred once more, the greater of both directions; absent without any difference. Source: F. Crété, T. Dolmiere,
  /// P. Ladret, M. Nicolas, The blur effect: perception and estimation with a new no-reference perceptual blur metric,
  /// SPIE 6492, 2007, 64920I, doi:10.1117/12.702790.
  std::optional<double> blur_effect;
};

struct RegionSharpness {
  Sharpness whole;
  std::vector<Sharpness> regions;
};
/// Differences are Sobel's, the second blur is a mean of 11 pixels along the direction with mirrored borders.
[[nodiscard]] RegionSharpness measure_sharpness(const Band& band, const RegionPixels& pixels,
                                                const RunContext& context);

}  // namespace orvexa::model
