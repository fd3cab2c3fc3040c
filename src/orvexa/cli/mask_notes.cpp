#include "orvexa/cli/mask_notes.h"

#include <fmt/format.h>

namespace orvexa::cli {

bool is_warning(const model::MaskNote& note) {
  const std::size_t end = note.text.find_first_not_of("abcdefghijklmnopqrstuvwxyz_");
  return end != std::string::npos && note.text.substr(0, end).find('_') != std::string::npos &&
         note.text.substr(end).starts_with(": ");
}

std::string note_sentence(const model::MaskNote& note) {
  return fmt::format("mask step {} ({}): {}.", note.step + 1, note.op, note.text);
}

}  // namespace orvexa::cli
