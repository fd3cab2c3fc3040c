#include "orvexa/cli/command_line.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <exception>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <span>
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

constexpr int max_threads = 1024;

struct Options {
  bool json = false;
  bool quiet = false;
  std::string log_level = "off";
  std::string threads = "0";
  std::string workflow;
  std::string capture;
  std::string output_folder;
  std::string operation;
  std::vector<std::string> workflow_files;
  std::string sample_folder;
  std::string sample_count = "0";
  bool force = false;
};

/// The usage line is written by hand: it says which arguments cannot be left out.
class HelpFormatter : public CLI::Formatter {
 public:
  explicit HelpFormatter() {
    column_width(24);
    label("Positionals", "Arguments");
  }
  std::map<const CLI::App*, std::string> usages;

 protected:
  [[nodiscard]] std::string make_usage(const CLI::App* app, std::string) const override {
    return "Usage: " + usages.at(app) + "\n";
  }
};

/// Options that every command has; they may stand before or after its name.
void add_common_options(CLI::App& app, Options& options) {
  const std::string group = "Options of every command";
  app.set_help_flag("-h,--help", "Show this help")->group(group);
  app.add_flag("--json", options.json, "Answer with one JSON document on standard output")->group(group);
  app.add_flag("--quiet", options.quiet, "Only the answer and errors: no progress, no remarks")->group(group);
  app.add_option("--log-level", options.log_level,
                 "Log lines on standard error: debug, info, warning, error or off (default)")
      ->type_name("LEVEL")
      ->group(group);
  app.add_option("--threads", options.threads, "Use at most N threads; 0 (default) = as many as there are cores")
      ->type_name("N")
      ->group(group);
}

CLI::Option* add_argument(CLI::App& app, const std::string& name, auto& variable, const std::string& help) {
  return app.add_option(name, variable, help)->type_name("");
}

struct Commands {
  CLI::App app{"Measures things in camera pictures.", "orvexa"};
  CLI::App* run = nullptr;
  CLI::App* info = nullptr;
  CLI::App* ops = nullptr;
  CLI::App* workflow = nullptr;
  CLI::App* check = nullptr;
  CLI::App* sample = nullptr;

  explicit Commands(Options& options) {
    app.formatter(_formatter);
    _formatter->usages[&app] = "orvexa COMMAND [ARGUMENTS] [OPTIONS]";
    app.set_version_flag("--version", "orvexa " + std::string(common::program_version()), "Show the version");
    app.footer(
        "Exit codes: 0 all done; 1 failed, or some operations failed; 2 wrong usage; 130 interrupted.\n"
        "Example:\n"
        "  orvexa sample samples\n"
        "  orvexa ops threshold_auto");

    run = add(app, "run", "orvexa run WORKFLOW CAPTURE -o DIR [OPTIONS]",
              "Run a workflow on one capture and write a results folder",
              "The results folder is made inside DIR and named after the capture. It appears complete or not at all.\n"
              "Example:\n"
              "  orvexa run leaves.yaml captures/HDR_plot_0007.INF -o results");
    add_argument(*run, "WORKFLOW", options.workflow, "A workflow file");
    add_argument(*run, "CAPTURE", options.capture, "A header file HDR_*.INF, or an ordinary image file");
    run->add_option("-o,--output", options.output_folder, "The folder to make the results folder in")->type_name("DIR");

    info = add(app, "info", "orvexa info CAPTURE [OPTIONS]",
               "Show what a capture holds: measurements, images, sizes, types, white level, date",
               "Example:\n"
               "  orvexa info captures/HDR_plot_0007.INF");
    add_argument(*info, "CAPTURE", options.capture, "A header file HDR_*.INF, or an ordinary image file");

    ops = add(app, "ops", "orvexa ops [KEY] [OPTIONS]", "List every operation, or show one with its parameters",
              "Example:\n"
              "  orvexa ops\n"
              "  orvexa ops threshold_auto");
    add_argument(*ops, "KEY", options.operation, "The operation to show");

    workflow = add(app, "workflow", "orvexa workflow COMMAND [ARGUMENTS] [OPTIONS]", "Look after workflow files",
                   "Example:\n"
                   "  orvexa workflow check leaves.yaml");
    check = add(*workflow, "check", "orvexa workflow check FILE... [OPTIONS]",
                "List what is wrong with workflow files, by step",
                "Exit codes: 0 nothing is wrong with any of them; 1 something is.\n"
                "Example:\n"
                "  orvexa workflow check leaves.yaml discs.yaml");
    add_argument(*check, "FILE", options.workflow_files, "Workflow files");

    sample = add(app, "sample", "orvexa sample DIR [OPTIONS]",
                 "Write captures drawn by the program, with known answers, and workflows for them",
                 "Files of another content are never overwritten without --force.\n"
                 "Example:\n"
                 "  orvexa sample samples");
    add_argument(*sample, "DIR", options.sample_folder, "The folder to write into; made when it is not there");
    sample
        ->add_option("--count", options.sample_count,
                     "Besides, write N small numbered plots into DIR/series, for trying a batch (default 0)")
        ->type_name("N");
    sample->add_flag("--force", options.force, "Overwrite files of another content");

    // Without this limit a file that is named like a command would be taken for a second command.
    for (CLI::App* command : {&app, workflow}) command->require_subcommand(0, 1);
    // After the options of its own, so that these come first in a command's help.
    for (CLI::App* command : {&app, run, info, ops, workflow, check, sample}) add_common_options(*command, options);
  }

  /// "orvexa", "orvexa run", "orvexa workflow check": what the user chose so far.
  [[nodiscard]] const CLI::App& chosen() const {
    const CLI::App* deepest = &app;
    while (!deepest->get_subcommands().empty()) deepest = deepest->get_subcommands().back();
    return *deepest;
  }

 private:
  CLI::App* add(CLI::App& parent, const std::string& name, const std::string& usage, const std::string& summary,
                const std::string& footer) {
    CLI::App* command = parent.add_subcommand(name, summary);
    command->group("Commands");
    _formatter->usages[command] = usage;
    command->footer(footer);
    return command;
  }

  std::shared_ptr<HelpFormatter> _formatter = std::make_shared<HelpFormatter>();
};

std::string full_name(const CLI::App& command) {
  return command.get_parent() == nullptr ? command.get_name()
                                         : full_name(*command.get_parent()) + " " + command.get_name();
}

std::string see_help(const CLI::App& command) {
  return fmt::format("; see {} --help.", full_name(command));
}

/// The sentence for arguments that nothing was made for.
std::string unexpected_argument_sentence(const Commands& commands) {
  const CLI::App& chosen = commands.chosen();
  const std::vector<std::string> rest = commands.app.remaining(true);
  const auto has_commands = [](const CLI::App& app) {
    return !app.get_subcommands([](auto*) { return true; }).empty();
  };
  std::vector<std::string> names;
  if (has_commands(chosen)) {
    for (const CLI::App* command : chosen.get_subcommands([](auto*) { return true; }))
      names.push_back(command->get_name());
    for (const std::string& word : rest) {
      if (word.starts_with("-")) continue;
      return fmt::format("There is no command \"{} {}\"{}{}", full_name(chosen), word,
                         common::did_you_mean(word, names), see_help(chosen));
    }
    names.clear();
  }
  const std::string word = rest.empty() ? "" : rest.front();
  if (!word.starts_with("-")) {
    return fmt::format("{}: \"{}\" is one argument too many{}", full_name(chosen), word, see_help(chosen));
  }
  for (const CLI::Option* option : chosen.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return fmt::format("{} has no option \"{}\"{}{}", full_name(chosen), word, common::did_you_mean(word, names),
                     see_help(chosen));
}

void expect_given(const CLI::App& command, const std::string& value, const std::string& what) {
  if (value.empty()) throw UsageError(fmt::format("{}: {} is missing{}", full_name(command), what, see_help(command)));
}

int whole_number(const std::string& option, const std::string& text, int min, int max) {
  int value = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (failure != std::errc{} || end != text.data() + text.size() || value < min || value > max) {
    throw UsageError(fmt::format("{} is \"{}\"; a whole number from {} to {} is expected.", option, text, min, max));
  }
  return value;
}

common::LogLevel log_level(const std::string& text) {
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
std::optional<std::string> parse(Commands& commands, int argc, char** argv) try {
  commands.app.parse(argc, argv);
  return std::nullopt;
} catch (const CLI::CallForHelp&) {
  return commands.app.help();
} catch (const CLI::CallForVersion& version) {
  return version.what() + std::string("\n");
} catch (const CLI::ExtrasError&) {
  throw UsageError(unexpected_argument_sentence(commands));
} catch (const CLI::ArgumentMismatch& mismatch) {
  const std::string text = mismatch.what();
  throw UsageError(fmt::format("{}: the option {} needs one value, given once{}", full_name(commands.chosen()),
                               text.substr(0, text.find_first_of(": ")), see_help(commands.chosen())));
} catch (const CLI::ParseError&) {
  throw UsageError(fmt::format("{}: these arguments cannot be understood{}", full_name(commands.chosen()),
                               see_help(commands.chosen())));
}

int execute(Console& console, const Commands& commands, const Options& options) {
  console.json = options.json;
  console.quiet = options.quiet;
  common::logger.set_level(log_level(options.log_level));
  common::set_thread_count(whole_number("--threads", options.threads, 0, max_threads));

  const CLI::App* chosen = &commands.chosen();
  if (chosen == commands.run) {
    expect_given(*chosen, options.workflow, "WORKFLOW");
    expect_given(*chosen, options.capture, "CAPTURE");
    expect_given(*chosen, options.output_folder, "the option -o DIR");
    return run_command(console, {options.workflow, options.capture, options.output_folder});
  }
  if (chosen == commands.info) {
    expect_given(*chosen, options.capture, "CAPTURE");
    return info_command(console, options.capture);
  }
  if (chosen == commands.ops) {
    return ops_command(console, options.operation.empty() ? std::nullopt : std::optional(options.operation));
  }
  if (chosen == commands.check) {
    if (options.workflow_files.empty()) expect_given(*chosen, "", "FILE");
    return workflow_check_command(console, options.workflow_files);
  }
  if (chosen == commands.sample) {
    expect_given(*chosen, options.sample_folder, "DIR");
    constexpr int max_samples = 100'000;
    return sample_command(console, {.folder = options.sample_folder,
                                    .count = whole_number("--count", options.sample_count, 0, max_samples),
                                    .force = options.force});
  }
  throw UsageError(fmt::format("{}: a command is missing{}", full_name(*chosen), see_help(*chosen)));
}

int fail(Console& console, const std::string& sentence, int exit_code) try {
  console.error(sentence);
  if (console.json) console.answer_json({{"error", common::to_valid_utf8(sentence)}});
  return exit_code;
} catch (const std::exception&) {
  return exit_code;  // standard output is what failed, and standard error has its sentence
}

}  // namespace

int run_command_line(int argc, char** argv) {
  // A reader that has gone is an error of write(2), not the end of the process.
  std::signal(SIGPIPE, SIG_IGN);
  Console console;
  Options options;
  Commands commands(options);
  try {
    if (const auto text = parse(commands, argc, argv)) {
      console.answer(*text);
      return exit_done;
    }
    return execute(console, commands, options);
  } catch (const UsageError& wrong) {
    // Arguments that were not understood were not stored either.
    const std::span<char*> words(argv, static_cast<std::size_t>(argc));
    console.json =
        std::any_of(words.begin(), words.end(), [](const char* word) { return std::string_view(word) == "--json"; });
    return fail(console, wrong.what(), exit_wrong_usage);
  } catch (const std::bad_alloc&) {
    return fail(console, "There is not enough memory for this.", exit_failed);
  } catch (const std::exception& failure) {
    return fail(console, failure.what(), exit_failed);
  }
}

}  // namespace orvexa::cli
