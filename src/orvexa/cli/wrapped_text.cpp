#include "orvexa/cli/wrapped_text.h"

namespace orvexa::cli {

std::string wrapped_text(std::string_view text, std::size_t width, std::size_t indent) {
  std::string result;
  std::string line;
  const auto end_line = [&] {
    if (!line.empty()) result += std::string(indent, ' ') + line + "\n";
    line.clear();
  };
  while (!text.empty()) {
    const std::size_t end = text.find_first_of(" \n");
    const std::string_view word = text.substr(0, end);
    const bool ends_paragraph = end != std::string_view::npos && text[end] == '\n';
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (!line.empty() && indent + line.size() + 1 + word.size() > width) end_line();
    if (!word.empty()) line += (line.empty() ? "" : " ") + std::string(word);
    if (ends_paragraph) end_line();
  }
  end_line();
  return result;
}

}  // namespace orvexa::cli
