#pragma once

#include <filesystem>
#include <string>

namespace orvexa::test {

// Where things lie on this machine. Functions with one source file behind them rather than macros: a macro would stand
// in every compiler call, and no compiler cache could serve two checkouts.

/// The checkout.
[[nodiscard]] std::filesystem::path source_folder();
/// The `orvexa` that was built with the tests.
[[nodiscard]] std::string program();

}  // namespace orvexa::test
