#include "orvexa/model/measures/role_bands.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "orvexa/common/text.h"
#include "orvexa/model/measures/spectral_indices.h"

namespace orvexa::model {

namespace {

constexpr const char* parameter_name = "bands";

/// MEASUREMENT.IMAGE, with or without what follows.
bool is_full_name(std::string_view name) {
  const std::size_t dot = name.find('.');
  return dot != std::string_view::npos && dot > 0 && dot + 1 < name.size();
}

bool is_used(std::string_view role, std::span<const RoleUser> users) {
  return std::ranges::any_of(
      users, [&](const RoleUser& user) { return std::ranges::find(user.roles, role) != user.roles.end(); });
}

/// "ndvi uses N, R; gndvi uses N, G"
std::string usage_text(std::span<const RoleUser> users) {
  std::vector<std::string> texts;
  for (const RoleUser& user : users) {
    texts.push_back(user.name + " uses " + (user.roles.empty() ? "none" : common::joined(user.roles, ", ")));
  }
  return common::joined(texts, "; ");
}

}  // namespace

ParameterInfo role_bands_parameter() {
  return {.name = parameter_name,
          .type = ParameterType::bands,
          .default_value = Value::array(),
          .help =
              "Bands for roles that are not to be looked for, each as ROLE=MEASUREMENT.IMAGE, such as N=MSP.NIR2, "
              "or with a channel, such as R=CLR.RGB.R."};
}

RoleBands role_bands(std::string_view operation, const Value& entries, std::span<const std::string> index_keys) {
  std::vector<RoleUser> users;
  for (const std::string& key : index_keys) users.push_back({key, get_spectral_index(key).roles});
  return role_bands(operation, entries, users);
}

RoleBands role_bands(std::string_view operation, const Value& entries, std::span<const RoleUser> users) {
  RoleBands bands;
  const std::vector<std::string> known = role_names();
  for (const Value& value : entries) {
    const auto& entry = value.get_ref<const std::string&>();
    const auto refused = [&](const std::string& why) {
      return std::invalid_argument(fmt::format("{}: parameter \"{}\" holds \"{}\", but {}.", operation, parameter_name,
                                               common::to_valid_utf8(entry), why));
    };
    const std::size_t equals = std::min(entry.find('='), entry.size());
    const std::string role(common::trimmed(std::string_view(entry).substr(0, equals)));
    const std::string band(common::trimmed(std::string_view(entry).substr(std::min(equals + 1, entry.size()))));
    if (role.empty() || !is_full_name(band)) {
      throw refused(
          "an entry is a role and the full name of its band: ROLE=MEASUREMENT.IMAGE, such as N=MSP.NIR, or with a "
          "channel, such as R=CLR.RGB.R");
    }
    if (std::ranges::find(known, role) == known.end()) {
      throw refused(fmt::format("there is no role \"{}\"; the roles are {}", common::to_valid_utf8(role),
                                common::joined(known, ", ")));
    }
    if (!is_used(role, users)) {
      throw refused(fmt::format("no chosen index uses the role {}: {}", role, usage_text(users)));
    }
    const auto earlier = bands.find(role);
    if (earlier != bands.end()) {
      throw refused(fmt::format("the role {} already has the band {}", role, common::to_valid_utf8(earlier->second)));
    }
    bands.emplace(role, band);
  }
  return bands;
}

}  // namespace orvexa::model
