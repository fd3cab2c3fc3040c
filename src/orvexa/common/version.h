#pragma once

#include <string_view>

namespace orvexa::common {

/// The program's version, "0.1.0".
[[nodiscard]] std::string_view program_version();

/// How this program was built: build type and compiler, "Release, GNU 12.2.0".
[[nodiscard]] std::string_view build_text();

/// Versions of the libraries that have none to ask for at run time, as their packages declared them when the program
/// was built: "yaml-cpp" "0.7.0". An empty text for a library that is not among them.
[[nodiscard]] std::string_view built_with(std::string_view library);

}  // namespace orvexa::common
