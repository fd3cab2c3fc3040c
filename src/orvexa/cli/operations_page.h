#pragma once

#include <span>
#include <string>

#include "orvexa/common/value.h"

namespace orvexa::cli {

/// The page docs/operations.md of all operations.
/// @param operations  as `operation_documents` gives them.
[[nodiscard]] std::string operations_page(std::span<const common::Value> operations);

}  // namespace orvexa::cli
