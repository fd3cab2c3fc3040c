#include "orvexa/cli/completion.h"

#include <fmt/format.h>

#include <array>
#include <string_view>
#include <vector>

#include "orvexa/common/text.h"

namespace orvexa::cli {

namespace {

/// The words that were typed are walked once; the tables below say what each of them means. "=" splits words in bash
/// (COMP_WORDBREAKS), so they are put together first, and what is offered begins after it.
constexpr std::string_view walk = R"bash(
_orvexa() {
  local -a words=()
  local i word current command='' option='' operation='' position=0
  for ((i = 1; i <= COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    if ((${#words[@]} > 0)) && [[ $word == '=' || ${COMP_WORDS[i-1]} == '=' ]]; then
      words[-1]+=$word
    else
      words+=("$word")
    fi
  done
  current=${words[-1]}
  COMPREPLY=()
  for word in "${words[@]::${#words[@]}-1}"; do
    if [[ -n $option ]]; then
      [[ $(_orvexa_value "$command $option") == *_operation ]] && operation=$word
      option=''
    elif [[ $word == --*=* ]]; then
      [[ $(_orvexa_value "$command ${word%%=*}") == *_operation ]] && operation=${word#*=}
    elif [[ $word == -* ]]; then
      [[ -n $(_orvexa_value "$command $word") ]] && option=$word
    elif ((position == 0)) && [[ " $(_orvexa_commands "$command") " == *" $word "* ]]; then
      command+=${command:+ }$word
    else
      ((++position))
      [[ $(_orvexa_value "$command $position") == *_operation ]] && operation=$word
    fi
  done
  if [[ -z $option && $current == --*=* ]]; then
    option=${current%%=*}
    current=${current#*=}
  fi
  if [[ -n $option ]]; then
    _orvexa_offer "$(_orvexa_value "$command $option")"
  elif [[ $current == -* ]]; then
    _orvexa_offer "words $(_orvexa_options "$command")"
  elif ((position == 0)) && [[ -n $(_orvexa_commands "$command") ]]; then
    _orvexa_offer "words $(_orvexa_commands "$command")"
  else
    local kind
    kind=$(_orvexa_value "$command $((position + 1))")
    [[ -n $kind ]] || kind=$(_orvexa_value "$command ...")
    _orvexa_offer "$kind"
  fi
}

_orvexa_offer() {
  case $1 in
    'words '*) mapfile -t COMPREPLY < <(compgen -W "${1#words }" -- "$current") ;;
    any_operation) mapfile -t COMPREPLY < <(compgen -W "$_orvexa_mask_operations $_orvexa_result_operations" -- "$current") ;;
    mask_operation) mapfile -t COMPREPLY < <(compgen -W "$_orvexa_mask_operations" -- "$current") ;;
    file) compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    folder) compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
    parameter)
      if [[ $current == *=* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_orvexa_choices "$operation ${current%%=*}")" -- "${current#*=}")
      else
        compopt -o nospace 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -S '=' -W "$(_orvexa_parameters "$operation")" -- "$current")
      fi ;;
  esac
}

complete -F _orvexa orvexa
)bash";

/// A function of the script that gives the text for its argument; nothing for another one.
class Table {
 public:
  explicit Table(std::string_view name) : _text(fmt::format("\n{}() {{\n  case $1 in\n", name)) {}
  void add(const std::string& argument, const std::string& answer) {
    if (!answer.empty()) _text += fmt::format("    '{}') echo '{}' ;;\n", argument, answer);
  }
  [[nodiscard]] std::string text() const { return _text + "  esac\n}\n"; }

 private:
  std::string _text;
};

std::string words(const std::vector<std::string>& choices) {
  return "words " + common::joined(choices, " ");
}

std::string answer_for(WordKind kind, const std::vector<std::string>& choices) {
  if (!choices.empty()) return words(choices);
  switch (kind) {
    case WordKind::file:
      return "file";
    case WordKind::folder:
      return "folder";
    case WordKind::operation:
      return "any_operation";
    case WordKind::mask_operation:
      return "mask_operation";
    case WordKind::parameter:
      return "parameter";
    case WordKind::text:
      break;
  }
  return "text";
}

void add_options(std::span<const OptionInfo> options, const std::string& command, std::vector<std::string>& names,
                 Table& values) {
  for (const OptionInfo& option : options) {
    for (const std::string& name : {option.letter, option.name}) {
      if (name.empty()) continue;
      names.push_back(name);
      if (!option.value.empty())
        values.add(fmt::format("{} {}", command, name), answer_for(option.kind, option.choices));
    }
  }
}

/// "check" of "workflow check" is offered after "workflow".
std::string names_inside(const std::string& group, std::span<const CommandInfo* const> commands) {
  std::vector<std::string> names;
  const std::string prefix = group.empty() ? "" : group + " ";
  for (const CommandInfo* command : commands) {
    const std::string_view name = command->name;
    if (name.starts_with(prefix) && name.find(' ', prefix.size()) == std::string_view::npos && name != group) {
      names.emplace_back(name.substr(prefix.size()));
    }
  }
  return common::joined(names, " ");
}

std::vector<std::string> choices_of(const model::ParameterInfo& parameter) {
  if (parameter.type == model::ParameterType::boolean) return {"true", "false"};
  return parameter.choices;
}

}  // namespace

std::string bash_completion(std::span<const CommandInfo* const> commands, std::span<const NamedOperation> operations) {
  Table inner("_orvexa_commands");
  Table options("_orvexa_options");
  Table values("_orvexa_value");
  std::vector<const CommandInfo*> all{&program_info()};
  all.insert(all.end(), commands.begin(), commands.end());
  for (const CommandInfo* command : all) {
    inner.add(command->name, names_inside(command->name, commands));
    std::vector<std::string> names;
    add_options(command->options, command->name, names, values);
    add_options(common_options(), command->name, names, values);
    options.add(command->name, common::joined(names, " "));
    int position = 0;
    for (const ArgumentInfo& argument : command->arguments) {
      const std::string answer = answer_for(argument.kind, argument.choices);
      values.add(fmt::format("{} {}", command->name, ++position), answer);
      if (argument.repeats) values.add(command->name + " ...", answer);
    }
  }

  Table parameters("_orvexa_parameters");
  Table choices("_orvexa_choices");
  std::vector<std::string> masks;
  std::vector<std::string> results;
  for (const NamedOperation& operation : operations) {
    (operation.is_mask ? masks : results).push_back(operation.word);
    std::vector<std::string> names;
    for (const model::ParameterInfo& parameter : operation.parameters) {
      names.push_back(parameter.name);
      choices.add(fmt::format("{} {}", operation.word, parameter.name), common::joined(choices_of(parameter), " "));
    }
    parameters.add(operation.word, common::joined(names, " "));
  }

  std::string script = "# Bash completion for orvexa, made by: orvexa completion bash\n";
  script += fmt::format("\n_orvexa_mask_operations='{}'\n", common::joined(masks, " "));
  script += fmt::format("_orvexa_result_operations='{}'\n", common::joined(results, " "));
  for (const Table& table : std::array{inner, options, values, parameters, choices}) script += table.text();
  return script + std::string(walk);
}

}  // namespace orvexa::cli
