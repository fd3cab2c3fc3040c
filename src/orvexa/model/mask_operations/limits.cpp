#include "orvexa/model/mask_operations/limits.h"

#include <fmt/format.h>

#include <stdexcept>
#include <string>

#include "orvexa/common/text.h"

namespace orvexa::model {

void check_limits(std::string_view operation, const common::Value& params, std::string_view low,
                  std::string_view high) {
  const common::Value& from = params.at(std::string(low));
  const common::Value& to = params.at(std::string(high));
  if (from.is_null() || to.is_null() || from.get<double>() <= to.get<double>()) return;
  throw std::invalid_argument(fmt::format("{}: parameter \"{}\" is {}, but it must not be above \"{}\", which is {}.",
                                          operation, low, common::number_text(from.get<double>()), high,
                                          common::number_text(to.get<double>())));
}

}  // namespace orvexa::model
