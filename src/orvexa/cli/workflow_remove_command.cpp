#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <vector>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/session.h"
#include "orvexa/cli/workflow_document.h"
#include "orvexa/common/files.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"

namespace orvexa::cli {

namespace {

struct Place {
  bool is_mask = true;
  int number = 0;  ///< counted from 1 among the steps of its kind
};

bool is_number(const std::string& word) {
  return !word.empty() && std::ranges::all_of(word, [](char c) { return c >= '0' && c <= '9'; });
}

std::vector<Place> places_of(const model::Workflow& workflow, const std::string& key) {
  std::vector<Place> places;
  const auto look = [&](const auto& steps, bool is_mask) {
    for (std::size_t i = 0; i < steps.size(); ++i) {
      if (steps[i].op == key) places.push_back({.is_mask = is_mask, .number = static_cast<int>(i) + 1});
    }
  };
  look(workflow.mask_operations, true);
  look(workflow.result_operations, false);
  return places;
}

Place place_by_number(const model::Workflow& workflow, const GivenWords& given) {
  const bool is_mask = !given.flag("--operation");
  const std::size_t count = is_mask ? workflow.mask_operations.size() : workflow.result_operations.size();
  const char* const what = is_mask ? "mask steps" : "result operations";
  if (count == 0) throw UsageError(fmt::format("{} has no {}.", common::path_text(given.text("FILE")), what));
  return {.is_mask = is_mask, .number = given.whole_number("STEP", 0, 1, static_cast<int>(count))};
}

Place place_by_key(const model::Workflow& workflow, const std::string& file, const std::string& key) {
  const std::vector<Place> places = places_of(workflow, key);
  if (places.size() == 1) return places.front();
  if (places.empty()) {
    std::vector<std::string> known;
    for (const auto& step : workflow.mask_operations) known.push_back(step.op);
    for (const auto& step : workflow.result_operations) known.push_back(step.op);
    throw UsageError(
        fmt::format("{} has no step \"{}\"{}.", common::path_text(file), key, common::did_you_mean(key, known)));
  }
  std::vector<std::string> numbers;
  numbers.reserve(places.size());
  for (const Place& place : places) {
    numbers.push_back(fmt::format("{} {}", place.is_mask ? "mask step" : "result operation", place.number));
  }
  throw UsageError(fmt::format("{} stands more than once in {}: {}; give the number{}.", key, common::path_text(file),
                               common::joined(numbers, ", "),
                               places.back().is_mask ? "" : " and --operation for a result operation"));
}

int workflow_remove_command(Console& console, const GivenWords& given) {
  const std::string& file = given.text("FILE");
  const std::string& word = given.text("STEP");
  if (given.flag("--operation") && !is_number(word)) {
    throw UsageError(fmt::format("--operation needs a number, and \"{}\" is none.", word));
  }
  controller::Controller controller;
  const auto workflow = std::make_shared<model::Workflow>(*import_workflow(controller, file));
  const Place place = is_number(word) ? place_by_number(*workflow, given) : place_by_key(*workflow, file, word);

  model::OperationConfig removed;
  const auto take = [&](auto& steps) {
    const auto step = steps.begin() + (place.number - 1);
    removed = *step;
    steps.erase(step);
  };
  if (place.is_mask) {
    take(workflow->mask_operations);
  } else {
    take(workflow->result_operations);
  }
  controller.set_workflow(workflow);
  save_workflow(controller, file);
  return answer_edited(console, file, *workflow,
                       fmt::format("Removed {} {}: {}", place.is_mask ? "mask step" : "result operation", place.number,
                                   step_text(removed)));
}

}  // namespace

const CommandInfo& workflow_remove_command_info() {
  static const CommandInfo info{
      .name = "workflow remove",
      .summary = "Take a step out of a workflow file",
      .arguments = {{.name = "FILE", .help = "A workflow file", .kind = WordKind::file},
                    {.name = "STEP",
                     .help = "The number of a mask step, counted from 1, or the key of a step of either kind",
                     .kind = WordKind::operation}},
      .options = {{.name = "--operation", .help = "The number is that of a result operation"}},
      .remarks = "The file is written anew: comments in it are not kept.\n",
      .examples = {"orvexa workflow remove leaves.yaml 2", "orvexa workflow remove leaves.yaml area"},
      .run = workflow_remove_command};
  return info;
}

}  // namespace orvexa::cli
