#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/measures/bands.h"
#include "orvexa/model/measures/expression.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// A spectral index as a row of data.
struct SpectralIndex {
  std::string key;                 ///< "ndvi"
  std::string display_name;        ///< "Normalised difference vegetation index"
  std::string formula;             ///< "(N - R) / (N + R)"
  std::string source;              ///< published source
  std::vector<std::string> roles;  ///< arguments of `value`, in order
  /// It depends on the scale of its inputs and needs reflectance (a declared white level or a reference). Excess red,
  /// which depends on it too, is of colour photographs by definition and takes the greatest count for white.
  bool needs_reflectance = false;
  /// From fractions of white; a non-finite result is an invalid pixel.
  std::function<double(std::span<const double>)> value;
};

/// Every index, in the order of menus and documents.
[[nodiscard]] const std::vector<SpectralIndex>& spectral_indices();
/// @throws std::invalid_argument with the nearest known key.
[[nodiscard]] const SpectralIndex& get_spectral_index(std::string_view key);

/// An index over a capture: the map of its values and the bands chosen.
struct IndexMap {
  cv::Mat values;                  ///< height x width, CV_64FC1; NaN where the pixel is invalid
  std::vector<std::string> bands;  ///< names of the chosen bands in the order of the index's roles
};
/// @param named  bands for roles that are not looked for, see `find_roles`.
/// @throws std::runtime_error when a band is missing, or "needs reflectance: WhiteLevel or a reference is not
/// declared".
[[nodiscard]] IndexMap compute_index(const ImageSource& source, const SpectralIndex& index, const RunContext& context,
                                     const RoleBands& named = {});
/// The same of a user's formula; the bands stand in the order of its names.
/// @throws std::runtime_error as above and as `find_bands`.
[[nodiscard]] IndexMap compute_index(const ImageSource& source, const Expression& expression, const RunContext& context,
                                     const RoleBands& named = {});

/// The bands that these would take, with the same errors: whether a capture can have the index.
[[nodiscard]] std::vector<Band> index_bands(const ImageSource& source, const SpectralIndex& index,
                                            const RoleBands& named = {});
[[nodiscard]] std::vector<Band> index_bands(const ImageSource& source, const Expression& expression,
                                            const RoleBands& named = {});

}  // namespace orvexa::model
