#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/interrupt.h"
#include "orvexa/common/files.h"
#include "orvexa/common/ordered_map.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"

namespace orvexa::cli {

namespace {

using controller::Difference;
using controller::Verification;

/// Of one file on the screen; --json has them all.
constexpr std::size_t shown_differences = 10;

std::vector<std::string> input_problems(const Verification& verification) {
  std::vector<std::string> problems;
  for (const controller::CheckedInput& input : verification.inputs) {
    if (!input.problem.empty()) problems.push_back(input.problem);
  }
  return problems;
}

std::string verdict(const Verification& verification) {
  if (!verification.failure.empty()) return "The results could not be computed anew.";
  if (verification.is_equal()) return "Everything was found again.";
  return verification.comparison.differences.empty() ? "The results are the same, but not the inputs."
                                                     : "The results differ.";
}

common::Value verification_document(const Verification& verification) {
  common::Value inputs = common::Value::array();
  for (const controller::CheckedInput& input : verification.inputs) {
    common::Value entry = {{"path", common::path_text(input.path)}, {"unchanged", input.problem.empty()}};
    if (!input.problem.empty()) entry["problem"] = common::to_valid_utf8(input.problem);
    inputs.push_back(std::move(entry));
  }
  common::Value versions = common::Value::array();
  for (const controller::OtherVersion& version : verification.other_versions) {
    versions.push_back({{"name", version.name}, {"recorded", version.recorded}, {"now", version.now}});
  }
  common::Value differences = common::Value::array();
  for (const Difference& difference : verification.comparison.differences) {
    common::Value entry = {{"file", common::to_valid_utf8(difference.file)},
                           {"place", common::to_valid_utf8(difference.place)},
                           {"text", common::to_valid_utf8(difference.text)}};
    if (difference.largest) entry["largest_difference"] = *difference.largest;
    differences.push_back(std::move(entry));
  }
  common::Value not_compared = common::Value::array();
  for (const std::string& file : verification.comparison.not_compared)
    not_compared.push_back(common::to_valid_utf8(file));
  common::Value document = {{"ok", verification.is_equal()},
                            {"capture", verification.capture},
                            {"inputs", std::move(inputs)},
                            {"other_versions", std::move(versions)},
                            {"compared", verification.comparison.compared},
                            {"not_compared", std::move(not_compared)},
                            {"differences", std::move(differences)}};
  if (!verification.failure.empty()) document["error"] = common::to_valid_utf8(verification.failure);
  return document;
}

std::string file_text(const std::string& file, const std::vector<const Difference*>& differences) {
  std::string text;
  for (std::size_t i = 0; i < std::min(shown_differences, differences.size()); ++i) {
    const Difference& difference = *differences[i];
    const std::string where = difference.place.empty() ? file : file + ", " + difference.place;
    text += common::visible_text(fmt::format("{}: {}.", where, difference.text)) + "\n";
  }
  if (differences.size() > shown_differences) {
    double largest = 0;
    for (const Difference* difference : differences) largest = std::max(largest, difference->largest.value_or(0));
    text += fmt::format("{}: {} differences in all (--json lists them), the largest between two numbers is {}.\n",
                        common::visible_text(file), differences.size(), short_value_text(largest));
  }
  return text;
}

std::string verification_text(const Verification& verification, bool is_quiet) {
  std::string text;
  for (const controller::OtherVersion& version : verification.other_versions) {
    if (is_quiet) break;
    text += common::visible_text(
                fmt::format("Made with {} {}, verified with {}.", version.name, version.recorded, version.now)) +
            "\n";
  }
  common::OrderedMap<std::vector<const Difference*>> by_file;
  for (const Difference& difference : verification.comparison.differences)
    by_file[difference.file].push_back(&difference);
  for (const auto& [file, differences] : by_file) text += file_text(file, differences);
  for (const std::string& file : verification.comparison.not_compared) {
    if (is_quiet) break;
    text += common::visible_text(file) + ": no part of the results; it was not compared.\n";
  }
  if (is_quiet) return text;
  const std::size_t inputs = verification.inputs.size();
  return text + fmt::format("{}: {} {}, {} files of results compared. {}\n", common::visible_text(verification.capture),
                            inputs, inputs == 1 ? "input" : "inputs", verification.comparison.compared.size(),
                            verdict(verification));
}

int verify_command(Console& console, const GivenWords& given) {
  handle_interrupts();
  controller::Controller controller;
  controller::VerificationRequest request{.results_folder = given.text("RESULTS_FOLDER"),
                                          .progress_cb = [&](const std::string& text) { console.progress(text); },
                                          .cancel_event = &interrupt_event()};
  if (given.has("--inputs")) request.inputs_folder = given.text("--inputs");
  Verification verification;
  try {
    verification = controller.verify_results(request);
  } catch (const model::CancelledError&) {
    return answer_interrupted(console, "Interrupted; the results were not verified.");
  }
  console.end_progress();
  for (const std::string& problem : input_problems(verification)) console.error(problem);
  if (!verification.failure.empty()) console.error(verification.failure);
  if (!request.inputs_folder &&
      std::ranges::any_of(verification.inputs, [](const auto& input) { return !input.is_there; })) {
    console.remark("If they moved, --inputs DIR says where they lie now.");
  }
  if (console.json) {
    console.answer_json(verification_document(verification));
  } else {
    console.answer(verification_text(verification, console.quiet));
  }
  return verification.is_equal() ? exit_done : exit_failed;
}

}  // namespace

const CommandInfo& verify_command_info() {
  static const CommandInfo info{
      .name = "verify",
      .summary = "Compute a results folder anew from its inputs and compare",
      .arguments = {{.name = "RESULTS_FOLDER", .help = "A folder that a run made", .kind = WordKind::folder}},
      .options = {{.name = "--inputs",
                   .value = "DIR",
                   .help = "Where the capture's files lie now; by default where the run read them",
                   .kind = WordKind::folder}},
      .remarks =
          "Every number, table, mask and picture of the folder is compared, and the inputs by their SHA-256.\n"
          "Nothing in the folder is changed.\n"
          "Exit codes: 0 everything was found again; 1 something differs, or it could not be computed anew.\n",
      .examples = {"orvexa verify results/plot_0007", "orvexa verify archive/plot_0007 --inputs archive/captures"},
      .run = verify_command};
  return info;
}

}  // namespace orvexa::cli
