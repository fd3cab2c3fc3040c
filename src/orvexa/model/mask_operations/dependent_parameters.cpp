#include "orvexa/model/mask_operations/dependent_parameters.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>

namespace orvexa::model {

void refuse_unless_chosen(const MaskOperationInfo& info, const Value& params,
                          std::initializer_list<std::string_view> unused, std::string_view by,
                          std::initializer_list<std::string_view> users) {
  const auto& chosen = params.at(std::string(by)).get_ref<const std::string&>();
  if (std::ranges::find(users, chosen) != users.end()) return;
  std::string choices;
  for (const std::string_view user : users) choices += fmt::format("{}\"{}\"", choices.empty() ? "" : " or ", user);
  refuse_unused(info.key, info.parameters, params, unused,
                fmt::format("parameter \"{}\" is \"{}\"; choose {} to use it", by, chosen, choices));
}

}  // namespace orvexa::model
