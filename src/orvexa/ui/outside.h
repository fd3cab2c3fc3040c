#pragma once

#include <filesystem>
#include <functional>

namespace orvexa::ui {

/// Shows a file or folder with the program that the desktop has for it.
/// @return whether the desktop took it.
using Opener = std::function<bool(const std::filesystem::path&)>;
[[nodiscard]] bool open_outside(const std::filesystem::path& path);

}  // namespace orvexa::ui
