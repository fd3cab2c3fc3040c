#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace orvexa::cli {

/// Words in lines of at most `width` characters, each line indented and ended by a line feed. A line feed in the text
/// ends a paragraph.
[[nodiscard]] std::string wrapped_text(std::string_view text, std::size_t width, std::size_t indent = 0);

}  // namespace orvexa::cli
