#pragma once

#include <string_view>

#include "orvexa/common/value.h"

namespace orvexa::model {

/// Two checked parameters, a lower and an upper limit, each a number or null for none.
/// @throws std::invalid_argument with a sentence when the lower one is above the upper one.
void check_limits(std::string_view operation, const common::Value& params, std::string_view low, std::string_view high);

}  // namespace orvexa::model
