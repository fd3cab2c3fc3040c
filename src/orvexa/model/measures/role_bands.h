#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/measures/bands.h"
#include "orvexa/model/operation_base.h"

namespace orvexa::model {

/// The parameter `bands` of operations on spectral indices: bands named by hand for roles, as
/// ROLE=MEASUREMENT.IMAGE[.channel].
[[nodiscard]] ParameterInfo role_bands_parameter();

/// A formula and the roles in it.
struct RoleUser {
  std::string name;
  std::vector<std::string> roles;
};

/// What the parameter says.
/// @param users  the formulas that are calculated.
/// @throws std::invalid_argument with a sentence for an entry of another form, a role that there is not, one that none
/// of the formulas uses, and one that is named twice.
[[nodiscard]] RoleBands role_bands(std::string_view operation, const Value& entries, std::span<const RoleUser> users);
/// The same for indices.
[[nodiscard]] RoleBands role_bands(std::string_view operation, const Value& entries,
                                   std::span<const std::string> index_keys);

}  // namespace orvexa::model
