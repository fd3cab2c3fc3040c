#pragma once

#include <span>
#include <string>

#include "orvexa/cli/command_info.h"

namespace orvexa::cli {

/// An operation as the man page lists it.
struct ListedOperation {
  std::string key;
  std::string summary;
};

/// The man page orvexa(1) in the language of man(7), ASCII.
[[nodiscard]] std::string man_page(std::span<const CommandInfo* const> commands,
                                   std::span<const ListedOperation> mask_operations,
                                   std::span<const ListedOperation> result_operations);

}  // namespace orvexa::cli
