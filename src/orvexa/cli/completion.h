#pragma once

#include <span>
#include <string>

#include "orvexa/cli/command_info.h"
#include "orvexa/cli/step_words.h"

namespace orvexa::cli {

/// A script for bash that completes commands, options, files, operations and their parameters.
/// @param operations  those that it offers, in this order.
[[nodiscard]] std::string bash_completion(std::span<const CommandInfo* const> commands,
                                          std::span<const NamedOperation> operations);

}  // namespace orvexa::cli
