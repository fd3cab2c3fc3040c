#include <vector>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/completion.h"
#include "orvexa/cli/step_words.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"

namespace orvexa::cli {

namespace {

const std::vector<std::string>& shells() {
  static const std::vector<std::string> known{"bash"};
  return known;
}

int completion_command(Console& console, const GivenWords& given) {
  const std::string& shell = given.text("SHELL");
  if (shell != "bash") {
    throw UsageError("There is no completion for \"" + shell + "\"" + common::did_you_mean(shell, shells()) +
                     "; there is one for bash.");
  }
  const controller::Controller controller;
  const std::string script = bash_completion(all_commands(), known_operations(controller));
  if (console.json) {
    console.answer_json({{"shell", shell}, {"script", script}});
  } else {
    console.answer(script);
  }
  return exit_done;
}

}  // namespace

const CommandInfo& completion_command_info() {
  static const CommandInfo info{
      .name = "completion",
      .summary = "Print a script with which a shell completes the words of orvexa",
      .arguments = {{.name = "SHELL", .help = "The shell: bash", .choices = shells()}},
      .remarks =
          "It completes commands, options, files, operations and their parameters. An installation brings it\n"
          "along; without one, put the second example into ~/.bashrc.\n",
      .examples = {"orvexa completion bash", "source <(orvexa completion bash)"},
      .run = completion_command};
  return info;
}

}  // namespace orvexa::cli
