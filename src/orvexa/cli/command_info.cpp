#include "orvexa/cli/command_info.h"

#include <fmt/format.h>

#include <array>
#include <charconv>

namespace orvexa::cli {

bool GivenWords::has(std::string_view name) const {
  const Slot& given = slot(name);
  return given.is_set || !given.text.empty() || !given.texts.empty();
}

int GivenWords::whole_number(std::string_view option, int usual, int min, int max) const {
  const std::string& given = text(option);
  if (given.empty()) return usual;
  int value = 0;
  const char* const end = given.data() + given.size();
  const auto [stopped, failure] = std::from_chars(given.data(), end, value);
  if (failure != std::errc{} || stopped != end || value < min || value > max) {
    throw UsageError(fmt::format("{} is \"{}\"; a whole number from {} to {} is expected.", option, given, min, max));
  }
  return value;
}

double GivenWords::positive_number(std::string_view option, double usual, double max) const {
  const std::string& given = text(option);
  if (given.empty()) return usual;
  double value = 0;
  const char* const end = given.data() + given.size();
  const auto [stopped, failure] = std::from_chars(given.data(), end, value);
  if (failure != std::errc{} || stopped != end || !(value > 0 && value <= max)) {
    throw UsageError(fmt::format("{} is \"{}\"; a number above 0 and at most {} is expected.", option, given, max));
  }
  return value;
}

const GivenWords::Slot& GivenWords::slot(std::string_view name) const {
  const auto found = _slots.find(name);
  if (found == _slots.end()) throw std::out_of_range(fmt::format("The command has no {}.", name));
  return found->second;
}

const CommandInfo& program_info() {
  static const CommandInfo info{.name = "",
                                .summary = "Measures things in camera pictures.",
                                .options = {{.name = "--version", .help = "Show the version"}},
                                .remarks =
                                    "Exit codes: 0 all done; 1 failed, or some files or operations failed;\n"
                                    "2 wrong usage; 3 none of several captures was done; 130 interrupted.\n",
                                .examples = {"orvexa sample samples", "orvexa ops threshold_auto"}};
  return info;
}

std::span<const OptionInfo> common_options() {
  static const std::array<OptionInfo, 5> options{
      {{.name = "--json", .help = "Answer with one JSON document on standard output"},
       {.name = "--quiet", .help = "Only the answer and errors: no progress, no remarks"},
       {.name = "--log-level",
        .value = "LEVEL",
        .help = "Log lines on standard error: debug, info, warning, error or off (default)",
        .choices = {"debug", "info", "warning", "error", "off"}},
       {.name = "--threads", .value = "N", .help = "Use at most N threads; 0 (default) = as many as there are cores"},
       {.name = "--help", .letter = "-h", .help = "Show this help"}}};
  return options;
}

std::string full_name(const CommandInfo& command) {
  return command.name.empty() ? "orvexa" : "orvexa " + command.name;
}

std::string usage_text(const CommandInfo& command) {
  std::string text = full_name(command);
  if (!command.run) return text + " COMMAND [ARGUMENTS] [OPTIONS]";
  if (!command.usage.empty()) return text + " " + command.usage;
  for (const ArgumentInfo& argument : command.arguments) {
    const std::string word = argument.name + (argument.repeats ? "..." : "");
    text += argument.may_be_left_out ? " [" + word + "]" : " " + word;
  }
  for (const OptionInfo& option : command.options) {
    if (option.is_required) text += " " + option_text(option);
  }
  return text + " [OPTIONS]";
}

std::string option_text(const OptionInfo& option) {
  const std::string& name = option.letter.empty() ? option.name : option.letter;
  return option.value.empty() ? name : name + " " + option.value;
}

}  // namespace orvexa::cli
