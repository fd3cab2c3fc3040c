#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/measures/bands.h"

namespace orvexa::model {

/// What a band is for: the part of the spectrum that formulas mean by a letter.
struct BandRole {
  std::string_view name;        ///< "N"
  std::string_view meaning;     ///< "near infrared"
  std::string_view image_name;  ///< the customary name of such an image; empty where there is none
  double centre_nm;             ///< nearest first
  double from_nm;               ///< the least centre that a band of this role may have
  double to_nm;
  int color_channel;  ///< in a plain colour picture; -1 where it has none
};

/// Every role: B, G, R, RE, RE2, N, R531, R570.
[[nodiscard]] std::span<const BandRole> band_roles();
/// @throws std::invalid_argument for another name.
[[nodiscard]] const BandRole& get_band_role(std::string_view name);

/// Planes for names that a formula calculates with each other, in their order: each as `find_band`, but those that are
/// roles (and no image's name) all in one measurement as `find_roles`. Full names of several measurements may stand
/// side by side; roles never mix with another measurement.
/// @throws std::runtime_error as these two, or when a role and a named image are of different measurements.
[[nodiscard]] std::vector<Band> find_bands(const ImageSource& source, const std::vector<std::string>& names,
                                           const RoleBands& named = {});

}  // namespace orvexa::model
