#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/operation_document.h"
#include "orvexa/cli/operations_page.h"
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

/// The list by category, categories in the order in which they first appear.
std::string list_text(const common::Value& operations) {
  common::OrderedMap<TextTable> categories;
  for (const common::Value& operation : operations) {
    auto [place, is_new] = categories.try_emplace(operation.at("category").get<std::string>());
    static_cast<void>(is_new);
    place.value().add({operation.at("key"), operation.at("summary")});
  }
  std::string text;
  for (const auto& [category, table] : categories) text += fmt::format("  {}\n{}", category, table.text(4));
  return text;
}

int show_list(Console& console, const std::vector<common::Value>& operations) {
  common::Value masks = common::Value::array();
  common::Value results = common::Value::array();
  for (const common::Value& operation : operations) {
    common::Value summary = common::Value::object();
    for (const char* name : {"key", "kind", "display_name", "category", "summary"}) summary[name] = operation.at(name);
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
  const std::vector<common::Value> operations = operation_documents(controller::Controller());
  if (wants_page) {
    console.answer(operations_page(operations));
    return exit_done;
  }
  if (key.empty()) return show_list(console, operations);

  const auto found = std::ranges::find_if(operations, [&](const auto& operation) { return operation["key"] == key; });
  if (found == operations.end()) {
    std::vector<std::string> known;
    known.reserve(operations.size());
    for (const common::Value& operation : operations) known.push_back(operation.at("key"));
    throw UsageError(fmt::format("There is no operation \"{}\"{}; orvexa ops lists them all.", key,
                                 common::did_you_mean(key, known)));
  }
  if (console.json) {
    console.answer_json(*found);
  } else {
    console.answer(full_text(*found));
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
      .options = {{.name = "--markdown", .help = "Print the page of all operations, docs/operations.md"}},
      .examples = {"orvexa ops", "orvexa ops threshold_auto"},
      .run = ops_command};
  return info;
}

}  // namespace orvexa::cli
