#pragma once

#include <vector>

#include "orvexa/common/value.h"
#include "orvexa/controller/controller.h"

namespace orvexa::cli {

/// Every operation as a document, mask operations first, then result operations by category: "key", "kind" ("mask" or
/// "result"), "display_name", "category", "summary", "description", "source", "requires" (what it needs, in words) and
/// "parameters" with name, type, default, what is allowed, unit and help.
[[nodiscard]] std::vector<common::Value> operation_documents(const controller::Controller& controller);

}  // namespace orvexa::cli
