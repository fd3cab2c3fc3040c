#include "orvexa/cli/man_page.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "orvexa/common/utf8.h"
#include "orvexa/common/version.h"

namespace orvexa::cli {

namespace {

/// Text as roff shows it letter by letter, on one line.
std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '\\':
        result += "\\e";
        break;
      case '-':
        result += "\\-";
        break;
      case '\'':
        result += "\\(aq";
        break;
      case '"':
        result += "\\(dq";
        break;
      case '`':
        result += "\\(ga";
        break;
      case '^':
        result += "\\(ha";
        break;
      case '~':
        result += "\\(ti";
        break;
      default:
        result += c;
    }
  }
  // A line that begins with a dot is a request.
  return result.starts_with('.') ? "\\&" + result : result;
}

std::string bold(std::string_view text) {
  return "\\fB" + escaped(text) + "\\fR";
}

std::string italic(std::string_view text) {
  return "\\fI" + escaped(text) + "\\fR";
}

/// An entry of a list: what it is about, and lines on it.
std::string entry(const std::string& about, std::string_view text) {
  return ".TP\n" + about + "\n" + escaped(text) + ".\n";
}

std::string option_name(const OptionInfo& option) {
  std::string text = option.letter.empty() ? "" : bold(option.letter) + ", ";
  text += bold(option.name);
  return option.value.empty() ? text : text + " " + italic(option.value);
}

std::string options_text(std::span<const OptionInfo> options) {
  std::string text;
  for (const OptionInfo& option : options) text += entry(option_name(option), option.help);
  return text;
}

/// Sentences on lines of their own, each of them a paragraph's line.
std::string remarks_text(std::string_view remarks) {
  if (remarks.empty()) return "";
  std::string text = ".PP\n";
  while (!remarks.empty()) {
    const std::size_t end = remarks.find('\n');
    text += escaped(remarks.substr(0, end)) + "\n";
    remarks.remove_prefix(end == std::string_view::npos ? remarks.size() : end + 1);
  }
  return text;
}

std::string examples_text(const CommandInfo& command) {
  if (command.examples.empty()) return "";
  std::string text = ".PP\n.nf\n.RS 4\n";
  for (const std::string& example : command.examples) text += escaped(example) + "\n";
  return text + ".RE\n.fi\n";
}

std::string command_text(const CommandInfo& command) {
  std::string text = ".SS " + escaped(usage_text(command)) + "\n" + escaped(command.summary) + ".\n";
  for (const ArgumentInfo& argument : command.arguments) text += entry(italic(argument.name), argument.help);
  return text + options_text(command.options) + remarks_text(command.remarks) + examples_text(command);
}

std::string operations_text(const std::string& title, std::span<const ListedOperation> operations) {
  std::string text = ".SS " + escaped(title) + "\n";
  for (const ListedOperation& operation : operations) {
    text += ".TP\n" + bold(operation.key) + "\n" + escaped(operation.summary) + "\n";
  }
  return text;
}

/// Letters beyond ASCII by their number, so that the page is read alike in every locale.
std::string in_ascii(const std::string& page) {
  std::string result;
  for (std::size_t at = 0; at < page.size();) {
    const common::Utf8Step letter = common::first_code_point(std::string_view(page).substr(at));
    result += letter.code < 0x80 ? std::string(1, page[at])
                                 : fmt::format("\\[u{:04X}]", static_cast<std::uint32_t>(letter.code));
    at += letter.length;
  }
  return result;
}

}  // namespace

std::string man_page(std::span<const CommandInfo* const> commands, std::span<const ListedOperation> mask_operations,
                     std::span<const ListedOperation> result_operations) {
  const CommandInfo& program = program_info();
  std::string page = "'\\\" Made by: orvexa man\n";
  page += fmt::format(".TH ORVEXA 1 \"\" \"orvexa {}\" \"User Commands\"\n", common::program_version());
  page += ".SH NAME\norvexa \\- measures things in camera pictures\n";
  page += ".SH SYNOPSIS\n" + bold("orvexa") + " " + italic("COMMAND") + " [" + italic("ARGUMENTS") + "] [" +
          italic("OPTIONS") + "]\n";
  page +=
      ".SH DESCRIPTION\n"
      "A capture is several pictures of one object, described by a header file HDR_*.INF, or one ordinary image file.\n"
      "A workflow is a text file: mask steps that say which pixels count, then operations that measure them.\n"
      "A run turns both into a folder of numbers, masks and overlays.\n";
  page += ".SH OPTIONS\n" + options_text(program.options);
  page += ".PP\nEvery command has these:\n" + options_text(common_options());
  page += ".SH COMMANDS\n";
  for (const CommandInfo* command : commands) {
    if (command->run) page += command_text(*command);
  }
  page += ".SH OPERATIONS\nThe parameters of one are shown by " + bold("orvexa ops") + " " + italic("KEY") + ".\n";
  page += operations_text("Mask operations", mask_operations);
  page += operations_text("Result operations", result_operations);
  page += ".SH EXIT STATUS\n" + remarks_text(program.remarks).substr(4);
  page += ".SH EXAMPLES\n" + examples_text(program).substr(4);
  return in_ascii(page);
}

}  // namespace orvexa::cli
