#pragma once

#include <string>

#include "orvexa/common/clock.h"
#include "orvexa/model/entities/result_bundle.h"

namespace orvexa::controller {

/// The content of a numerical results file: a head of four lines ("# Orvexa Numerical Results", local time, capture,
/// "#"), then "name=value" for every metric that is a number or a boolean, by name in code point order. Of metrics that
/// share a name the last operation's value stands; other values are left out.
[[nodiscard]] std::string numerical_results_text(const model::ResultMap& results, const std::string& capture_name,
                                                 common::TimePoint generated);

}  // namespace orvexa::controller
