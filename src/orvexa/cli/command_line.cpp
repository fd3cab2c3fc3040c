#include "orvexa/cli/command_line.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <csignal>
#include <exception>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/console.h"
#include "orvexa/common/logger.h"
#include "orvexa/common/parallel.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"
#include "orvexa/common/version.h"

namespace orvexa::cli {

namespace {

/// The usage line says which arguments cannot be left out, which the library does not know.
class HelpFormatter : public CLI::Formatter {
 public:
  explicit HelpFormatter() {
    column_width(24);
    label("Positionals", "Arguments");
  }
  std::map<const CLI::App*, const CommandInfo*> commands;

 protected:
  [[nodiscard]] std::string make_usage(const CLI::App* app, std::string) const override {
    return "Usage: " + usage_text(*commands.at(app)) + "\n";
  }
};

/// The option has an empty value: a variable of a script that was not set, most often.
struct EmptyValue : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The library's parser for the commands of the table.
class Parser {
 public:
  CLI::App app{program_info().summary, "orvexa"};
  GivenWords given;

  Parser() {
    app.formatter(_formatter);
    app.set_version_flag("--version", "orvexa " + std::string(common::program_version()), "Show the version");
    std::map<std::string, CLI::App*> apps{{"", &app}};
    describe(app, program_info());
    for (const CommandInfo* command : all_commands()) {
      const std::size_t last_blank = command->name.rfind(' ');
      const bool is_inside_group = last_blank != std::string::npos;
      CLI::App& parent = *apps.at(is_inside_group ? command->name.substr(0, last_blank) : "");
      CLI::App* made = parent.add_subcommand(command->name.substr(last_blank + 1), command->summary);
      made->group("Commands");
      apps[command->name] = made;
      describe(*made, *command);
      for (const ArgumentInfo& argument : command->arguments) add(*made, argument);
      for (const OptionInfo& option : command->options) add(*made, option);
    }
    for (const auto& [name, made] : apps) {
      // After the options of its own, so that these come first in a command's help.
      add_common_options(*made);
      // Without this limit a file that is named like a command would be taken for a second command.
      if (!command_of(*made).run) made->require_subcommand(0, 1);
    }
  }

  /// "orvexa", "orvexa run", "orvexa workflow check": what the user chose so far.
  [[nodiscard]] const CLI::App& chosen() const {
    const CLI::App* deepest = &app;
    while (!deepest->get_subcommands().empty()) deepest = deepest->get_subcommands().back();
    return *deepest;
  }
  [[nodiscard]] const CommandInfo& command_of(const CLI::App& made) const { return *_formatter->commands.at(&made); }

 private:
  void describe(CLI::App& made, const CommandInfo& command) {
    _formatter->commands[&made] = &command;
    std::string footer = command.remarks + "Example:";
    for (const std::string& example : command.examples) footer += "\n  " + example;
    made.footer(footer);
  }

  void add(CLI::App& made, const ArgumentInfo& argument) {
    GivenWords::Slot& slot = given.place(argument.name);
    (argument.repeats ? made.add_option(argument.name, slot.texts, argument.help)
                      : made.add_option(argument.name, slot.text, argument.help))
        ->type_name("");
  }

  CLI::Option& add(CLI::App& made, const OptionInfo& option) {
    GivenWords::Slot& slot = given.place(option.name);
    const std::string names = option.letter.empty() ? option.name : option.letter + "," + option.name;
    if (option.value.empty()) return *made.add_flag(names, slot.is_set, option.help);
    CLI::Option& added = option.repeats ? *made.add_option(names, slot.texts, option.help)->allow_extra_args(false)
                                        : *made.add_option(names, slot.text, option.help);
    added.each([&slot, &option](const std::string& value) {
      if (value.empty() && !option.may_be_empty) throw EmptyValue(option.name);
      slot.is_set = true;
    });
    return *added.type_name(option.value);
  }

  void add_common_options(CLI::App& made) {
    const std::string group = "Options of every command";
    for (const OptionInfo& option : common_options()) {
      if (option.name == "--help") {
        made.set_help_flag(option.letter + "," + option.name, option.help)->group(group);
      } else {
        add(made, option).group(group);
      }
    }
  }

  std::shared_ptr<HelpFormatter> _formatter = std::make_shared<HelpFormatter>();
};

std::string see_help(const CommandInfo& command) {
  return fmt::format("; see {} --help.", full_name(command));
}

/// The sentence for arguments that nothing was made for.
std::string unexpected_argument_sentence(const Parser& parser) {
  const CLI::App& chosen = parser.chosen();
  const CommandInfo& command = parser.command_of(chosen);
  const std::vector<std::string> rest = parser.app.remaining(true);
  std::vector<std::string> names;
  if (!command.run) {
    for (const CLI::App* inner : chosen.get_subcommands([](auto*) { return true; })) names.push_back(inner->get_name());
    for (const std::string& word : rest) {
      if (word.starts_with("-")) continue;
      return fmt::format("There is no command \"{} {}\"{}{}", full_name(command), word,
                         common::did_you_mean(word, names), see_help(command));
    }
    names.clear();
  }
  const std::string word = rest.empty() ? "" : rest.front();
  if (!word.starts_with("-")) {
    return fmt::format("{}: \"{}\" is one argument too many{}", full_name(command), word, see_help(command));
  }
  for (const OptionInfo& option : command.options) names.push_back(option.name);
  for (const OptionInfo& option : common_options()) names.push_back(option.name);
  return fmt::format("{} has no option \"{}\"{}{}", full_name(command), word, common::did_you_mean(word, names),
                     see_help(command));
}

void expect_required(const CommandInfo& command, const GivenWords& given) {
  const auto missing = [&](const std::string& what) {
    return UsageError(fmt::format("{}: {} is missing{}", full_name(command), what, see_help(command)));
  };
  if (!command.run) throw missing("a command");
  for (const ArgumentInfo& argument : command.arguments) {
    if (!argument.may_be_left_out && !given.has(argument.name)) throw missing(argument.name);
  }
  for (const OptionInfo& option : command.options) {
    if (option.is_required && !given.has(option.name)) throw missing("the option " + option_text(option));
  }
}

common::LogLevel log_level(const std::string& text) {
  if (text.empty()) return common::LogLevel::off;
  const std::array<std::pair<const char*, common::LogLevel>, 5> levels{{{"debug", common::LogLevel::debug},
                                                                        {"info", common::LogLevel::info},
                                                                        {"warning", common::LogLevel::warning},
                                                                        {"error", common::LogLevel::error},
                                                                        {"off", common::LogLevel::off}}};
  for (const auto& [name, level] : levels) {
    if (text == name) return level;
  }
  throw UsageError(fmt::format("--log-level is \"{}\"; one of debug, info, warning, error, off is expected.", text));
}

/// @return the help or version text, when that was asked for.
std::optional<std::string> parse(Parser& parser, int argc, char** argv) try {
  parser.app.parse(argc, argv);
  return std::nullopt;
} catch (const CLI::CallForHelp&) {
  return parser.app.help();
} catch (const CLI::CallForVersion& version) {
  return version.what() + std::string("\n");
} catch (const CLI::ExtrasError&) {
  throw UsageError(unexpected_argument_sentence(parser));
} catch (const EmptyValue& option) {
  const CommandInfo& command = parser.command_of(parser.chosen());
  throw UsageError(fmt::format("{}: the value of {} is empty{}", full_name(command), option.what(), see_help(command)));
} catch (const CLI::ArgumentMismatch& mismatch) {
  const CommandInfo& command = parser.command_of(parser.chosen());
  const std::string text = mismatch.what();
  const std::string name = text.substr(0, text.find_first_of(": "));
  const auto option = std::ranges::find(command.options, name, &OptionInfo::name);
  const bool repeats = option != command.options.end() && option->repeats;
  throw UsageError(fmt::format("{}: the option {} needs {}{}", full_name(command), name,
                               repeats ? "a value" : "one value, given once", see_help(command)));
} catch (const CLI::ParseError&) {
  const CommandInfo& command = parser.command_of(parser.chosen());
  throw UsageError(fmt::format("{}: these arguments cannot be understood{}", full_name(command), see_help(command)));
}

int execute(Console& console, const Parser& parser) {
  const GivenWords& given = parser.given;
  console.json = given.flag("--json");
  console.quiet = given.flag("--quiet");
  common::logger.set_level(log_level(given.text("--log-level")));
  constexpr int max_threads = 1024;
  common::set_thread_count(given.whole_number("--threads", 0, 0, max_threads));
  const CommandInfo& command = parser.command_of(parser.chosen());
  expect_required(command, given);
  return command.run(console, given);
}

int fail(Console& console, const CommandInfo& command, const std::string& sentence, int exit_code) try {
  console.error(sentence);
  if (!console.json) return exit_code;
  const common::Value document = {{"error", common::to_valid_utf8(sentence)}};
  if (command.answers_by_line) {
    console.answer_json_line(document);
  } else {
    console.answer_json(document);
  }
  return exit_code;
} catch (const std::exception&) {
  return exit_code;  // standard output is what failed, and standard error has its sentence
}

}  // namespace

int run_command_line(int argc, char** argv) {
  // A reader that has gone is an error of write(2), not the end of the process.
  std::signal(SIGPIPE, SIG_IGN);
  Console console;
  Parser parser;
  const auto fail_with = [&](const std::string& sentence, int exit_code) {
    return fail(console, parser.command_of(parser.chosen()), sentence, exit_code);
  };
  try {
    if (const auto text = parse(parser, argc, argv)) {
      console.answer(*text);
      return exit_done;
    }
    return execute(console, parser);
  } catch (const UsageError& wrong) {
    // Arguments that were not understood were not stored either.
    const std::span<char*> words(argv, static_cast<std::size_t>(argc));
    console.json =
        std::any_of(words.begin(), words.end(), [](const char* word) { return std::string_view(word) == "--json"; });
    return fail_with(wrong.what(), exit_wrong_usage);
  } catch (const std::bad_alloc&) {
    return fail_with("There is not enough memory for this.", exit_failed);
  } catch (const std::exception& failure) {
    return fail_with(failure.what(), exit_failed);
  }
}

}  // namespace orvexa::cli
