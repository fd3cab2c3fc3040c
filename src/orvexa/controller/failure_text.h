#pragma once

#include <string>

namespace orvexa::controller {

/// The text of the failure that is being handled. Only inside a `catch (...)`.
[[nodiscard]] std::string failure_text();

}  // namespace orvexa::controller
