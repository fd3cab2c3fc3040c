#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/operation_document.h"
#include "orvexa/cli/operations_page.h"
#include "orvexa/cli/session.h"
#include "orvexa/cli/step_words.h"
#include "orvexa/cli/wrapped_text.h"
#include "orvexa/common/ordered_map.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"

namespace orvexa::cli {

namespace {

constexpr std::size_t text_width = 100;

std::string wrapped(std::string_view text, std::size_t indent) {
  return wrapped_text(text, text_width, indent);
}

std::string full_text(const common::Value& document) {
  const auto text_of = [&](const char* name) { return document.at(name).template get<std::string>(); };
  std::string text = fmt::format("{} ({}, {})\n", text_of("key"), text_of("display_name"),
                                 text_of("kind") == "mask" ? "mask operation" : "result operation");
  text += wrapped(text_of("summary"), 2);
  if (!text_of("description").empty()) text += "\n" + wrapped(text_of("description"), 2);
  for (const common::Value& requirement : document.at("requires")) {
    text += "\n" + wrapped("Needs " + requirement.get<std::string>() + ".", 2);
  }
  text += document.at("parameters").empty() ? "\nIt has no parameters.\n" : "\nParameters\n";
  for (const common::Value& parameter : document.at("parameters")) {
    std::string line =
        fmt::format("{}: {}", parameter.at("name").get<std::string>(), parameter.at("allowed").get<std::string>());
    if (!parameter.at("unit").get<std::string>().empty()) line += ", in " + parameter.at("unit").get<std::string>();
    const common::Value& usual = parameter.at("default");
    line += usual.is_null() ? "; not set by default" : fmt::format("; default {}", usual.dump());
    if (parameter.contains("picked_as")) line += "; picked on the image";
    text += wrapped(line, 2) + wrapped(parameter.at("help").get<std::string>(), 6);
  }
  if (!text_of("source").empty()) text += "\nSource\n" + wrapped(text_of("source"), 2);
  return text;
}

/// The list by category, categories in the order in which they first appear. What cannot be used is told instead of
/// what it does.
std::string list_text(const common::Value& operations) {
  common::OrderedMap<TextTable> categories;
  for (const common::Value& operation : operations) {
    auto [place, is_new] = categories.try_emplace(operation.at("category").get<std::string>());
    static_cast<void>(is_new);
    const bool is_usable = operation.value("reason", common::Value()).is_null();
    const auto text = operation.at(is_usable ? "summary" : "reason").get<std::string>();
    const bool may_do = is_usable || text.starts_with(controller::Controller::with_its_defaults);
    place.value().add({operation.at("key"), may_do ? text : "Not here: " + text});
  }
  std::string text;
  for (const auto& [category, table] : categories) text += fmt::format("  {}\n{}", category, table.text(4));
  return text;
}

/// Why an operation cannot be used on the controller's capture after its workflow's mask steps; null when it can.
common::Value reason_of(const controller::Controller& controller, const common::Value& operation) {
  const auto key = operation.at("key").get<std::string>();
  const auto reason =
      operation.at("kind") == "mask" ? controller.explain_mask_availability(key) : controller.explain_availability(key);
  return reason ? common::Value(common::to_valid_utf8(*reason)) : common::Value();
}

/// @param controller  with a capture where the list is for one.
int show_list(Console& console, const std::vector<common::Value>& operations,
              const controller::Controller& controller) {
  common::Value masks = common::Value::array();
  common::Value results = common::Value::array();
  for (const common::Value& operation : operations) {
    common::Value summary = common::Value::object();
    for (const char* name : {"key", "kind", "display_name", "category", "summary"}) summary[name] = operation.at(name);
    if (controller.state.current_capture) {
      summary["reason"] = reason_of(controller, operation);
      summary["available"] = summary["reason"].is_null();
    }
    (operation.at("kind") == "mask" ? masks : results).push_back(std::move(summary));
  }
  if (console.json) {
    console.answer_json({{"mask_operations", masks}, {"result_operations", results}});
    return exit_done;
  }
  console.answer(fmt::format("Mask operations\n{}\nResult operations\n{}", list_text(masks), list_text(results)));
  console.remark("orvexa ops KEY shows an operation with its parameters.");
  return exit_done;
}

int ops_command(Console& console, const GivenWords& given) {
  const std::string& key = given.text("KEY");
  const bool wants_page = given.flag("--markdown");
  if (wants_page && console.json) throw UsageError("--markdown and --json cannot be given together.");
  if (wants_page && !key.empty()) throw UsageError("--markdown is the page of all operations; it takes no KEY.");
  if (given.has("--workflow") && !given.has("--capture")) throw UsageError("--workflow needs --capture CAPTURE.");
  if (given.has("--capture") && (wants_page || !key.empty())) {
    throw UsageError("--capture is for the list of all operations.");
  }
  controller::Controller controller;
  const std::vector<common::Value> operations = operation_documents(controller);
  if (wants_page) {
    console.answer(operations_page(operations));
    return exit_done;
  }
  if (given.has("--capture")) load_capture(controller, given.text("--capture"));
  if (given.has("--workflow")) load_workflow(controller, given.text("--workflow"));
  if (key.empty()) return show_list(console, operations, controller);

  std::vector<common::Value> wanted;
  for (const common::Value& operation : operations) {
    const auto own_key = operation.at("key").get<std::string>();
    const std::string word = operation.at("kind").get<std::string>() + "/" + own_key;
    if (key == own_key || key == word) wanted.push_back(operation);
  }
  // A key of two operations cannot be one JSON document; nor can an unknown one.
  if (wanted.empty() || (console.json && wanted.size() > 1)) static_cast<void>(find_operation(controller, key));
  if (console.json) {
    console.answer_json(wanted.front());
  } else {
    for (const common::Value& operation : wanted) {
      console.answer((&operation == &wanted.front() ? "" : "\n") + full_text(operation));
    }
  }
  return exit_done;
}

}  // namespace

const CommandInfo& ops_command_info() {
  static const CommandInfo info{
      .name = "ops",
      .summary = "List every operation, or show one with its parameters",
      .arguments =
          {{.name = "KEY", .help = "The operation to show", .kind = WordKind::operation, .may_be_left_out = true}},
      .options = {{.name = "--capture",
                   .value = "CAPTURE",
                   .help = "Say which operations this capture allows, and why not the others",
                   .kind = WordKind::file},
                  {.name = "--workflow",
                   .letter = "-w",
                   .value = "FILE",
                   .help = "With --capture: after the mask steps and with the parameters of this workflow file",
                   .kind = WordKind::file},
                  {.name = "--markdown", .help = "Print the page of all operations, docs/operations.md"}},
      .examples = {"orvexa ops", "orvexa ops threshold_auto",
                   "orvexa ops --capture sample/leaf_tray/HDR_leaf_tray.INF -w leaves.yaml"},
      .run = ops_command};
  return info;
}

}  // namespace orvexa::cli
