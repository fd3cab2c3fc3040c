#pragma once

#include <functional>
#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/cli/console.h"

namespace orvexa::cli {

/// The command was called in a way that it does not have; `what()` is the sentence for the user.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What a word on the command line stands for: completion in a shell offers such words.
enum class WordKind { text, file, folder, operation, mask_operation, parameter };

/// A word that a command takes by its place.
struct ArgumentInfo {
  std::string name;  ///< "CAPTURE"
  std::string help;  ///< in the help, man page and completion; no full stop
  WordKind kind = WordKind::text;
  std::vector<std::string> choices = {};  ///< what completion offers where only these are allowed
  bool may_be_left_out = false;
  bool repeats = false;  ///< takes all words that are left
};

/// A word that a command takes by its name.
struct OptionInfo {
  std::string name;         ///< "--output"
  std::string letter = {};  ///< "-o"
  std::string value = {};   ///< "DIR"; empty for a flag
  std::string help;
  WordKind kind = WordKind::text;
  std::vector<std::string> choices = {};  ///< what completion offers where only these are allowed
  bool is_required = false;
  bool repeats = false;       ///< may be given more than once
  bool may_be_empty = false;  ///< an empty text is a value like any other
};

/// The words that the user gave a command, by the names of its arguments and options. A name that the command does not
/// have is a bug (std::out_of_range).
class GivenWords {
 public:
  struct Slot {
    std::string text;
    std::vector<std::string> texts;  ///< of one that repeats
    bool is_set = false;             ///< of a flag or an option
  };

  /// Whether the option was given; of an argument, whether there is a text that is not empty.
  [[nodiscard]] bool has(std::string_view name) const;
  /// Empty when it was left out.
  [[nodiscard]] const std::string& text(std::string_view name) const { return slot(name).text; }
  [[nodiscard]] const std::vector<std::string>& texts(std::string_view name) const { return slot(name).texts; }
  [[nodiscard]] bool flag(std::string_view name) const { return slot(name).is_set; }
  /// @param usual  when the option was left out.
  /// @throws UsageError when it is no whole number from `min` to `max`.
  [[nodiscard]] int whole_number(std::string_view option, int usual, int min, int max) const;

  /// @param usual  when the option was left out.
  /// @throws UsageError when it is no number above 0 and at most `max`.
  [[nodiscard]] double positive_number(std::string_view option, double usual, double max) const;

  /// The place for what is given under a name; made on first use, and stays where it is.
  [[nodiscard]] Slot& place(const std::string& name) { return _slots[name]; }

 private:
  [[nodiscard]] const Slot& slot(std::string_view name) const;

  std::map<std::string, Slot, std::less<>> _slots;
};

/// A command as a row of data: parsing, --help, completion and the man page all read it.
struct CommandInfo {
  std::string name;     ///< its words: "run", "workflow check"
  std::string summary;  ///< one line without a full stop
  std::vector<ArgumentInfo> arguments = {};
  std::vector<OptionInfo> options = {};
  std::string usage = {};                  ///< what follows the name, where it is not what stands above
  std::string remarks = {};                ///< sentences on lines of their own, each ended by a line feed
  std::vector<std::string> examples = {};  ///< whole command lines
  bool answers_by_line = false;            ///< with --json one document a line, also when it cannot begin
  /// Does the work and gives the exit code; what is required is there. What goes wrong is an exception: UsageError for
  /// the call, any other for the work. Empty for a group of commands such as "workflow".
  std::function<int(Console&, const GivenWords&)> run = {};
};

/// The program itself: `orvexa`.
[[nodiscard]] const CommandInfo& program_info();
/// Options that every command has; they may stand before or after its name.
[[nodiscard]] std::span<const OptionInfo> common_options();

/// "orvexa run"; for the program "orvexa".
[[nodiscard]] std::string full_name(const CommandInfo& command);
/// "orvexa run WORKFLOW CAPTURE -o DIR [OPTIONS]"
[[nodiscard]] std::string usage_text(const CommandInfo& command);
/// How an option is named in a sentence: "-o DIR", "--count N".
[[nodiscard]] std::string option_text(const OptionInfo& option);

}  // namespace orvexa::cli
