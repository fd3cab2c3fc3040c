#include "orvexa/model/mask_operations/region_names.h"

#include <fmt/format.h>

#include <cstdint>

#include "orvexa/common/text.h"

namespace orvexa::model {

std::string names_text(std::span<const std::string> names) {
  constexpr std::size_t most = 10;
  if (names.size() <= most) return common::joined(names, ", ");
  return fmt::format("{} regions: {} and {} more",
                     common::grouped_integer_text(static_cast<std::int64_t>(names.size())),
                     common::joined(names.first(most), ", "),
                     common::grouped_integer_text(static_cast<std::int64_t>(names.size() - most)));
}

}  // namespace orvexa::model
