#include <fmt/format.h>

#include "orvexa/cli/commands.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"

namespace orvexa::cli {

namespace {

constexpr std::size_t text_width = 100;

/// Words in lines of at most `text_width` characters, each line indented.
std::string wrapped(std::string_view text, std::size_t indent) {
  std::string result;
  std::string line;
  const auto end_line = [&] {
    if (!line.empty()) result += std::string(indent, ' ') + line + "\n";
    line.clear();
  };
  while (!text.empty()) {
    const std::size_t end = text.find_first_of(" \n");
    const std::string_view word = text.substr(0, end);
    const bool ends_paragraph = end != std::string_view::npos && text[end] == '\n';
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (!line.empty() && indent + line.size() + 1 + word.size() > text_width) end_line();
    if (!word.empty()) line += (line.empty() ? "" : " ") + std::string(word);
    if (ends_paragraph) end_line();
  }
  end_line();
  return result;
}

common::Value parameters_document(const model::ParameterList& parameters) {
  common::Value list = common::Value::array();
  for (const model::ParameterInfo& parameter : parameters) {
    common::Value entry = {{"name", parameter.name},
                           {"type", std::string(model::parameter_type_name(parameter.type))},
                           {"default", parameter.default_value},
                           {"allowed", model::allowed_text(parameter)}};
    if (parameter.min) entry["min"] = *parameter.min;
    if (parameter.max) entry["max"] = *parameter.max;
    if (!parameter.choices.empty()) entry["choices"] = parameter.choices;
    if (parameter.interaction) entry["picked_as"] = parameter.interaction->mode;
    entry["unit"] = parameter.unit;
    entry["help"] = parameter.help;
    list.push_back(std::move(entry));
  }
  return list;
}

std::string requirement_text(const std::vector<model::MeasurementRequirement>& required) {
  // Alternatives in the first place are the whole requirement.
  if (const auto* alternatives = std::get_if<std::vector<std::string>>(&required.front())) {
    return "one of the measurements " + common::joined(*alternatives, ", ");
  }
  std::vector<std::string> names;
  for (const model::MeasurementRequirement& requirement : required) {
    if (const auto* name = std::get_if<std::string>(&requirement)) names.push_back(*name);
  }
  return (names.size() == 1 ? "the measurement " : "the measurements ") + common::joined(names, ", ");
}

std::vector<std::string> requirements_of(const model::MaskOperationInfo& info) {
  std::vector<std::string> texts;
  if (info.needs_mask) texts.emplace_back("a mask made by an earlier step");
  return texts;
}

std::vector<std::string> requirements_of(const model::ResultOperationInfo& info) {
  std::vector<std::string> texts;
  if (info.required_measurements && !info.required_measurements->empty()) {
    texts.push_back(requirement_text(*info.required_measurements));
  }
  const auto& patterns = info.operation_class._requires_mask_operation;
  if (patterns && !patterns->empty()) texts.push_back("a mask step " + common::joined(*patterns, " or "));
  return texts;
}

model::ParameterList parameters_of(const model::MaskOperationInfo& info) {
  return info.all_parameters();
}
const model::ParameterList& parameters_of(const model::ResultOperationInfo& info) {
  return info.parameters;
}

common::Value summary_document(const auto& info, const char* kind) {
  return {{"key", info.key},
          {"kind", kind},
          {"display_name", info.display_name},
          {"category", info.category},
          {"summary", info.summary}};
}

common::Value full_document(const auto& info, const char* kind) {
  common::Value document = summary_document(info, kind);
  document["description"] = info.description;
  document["source"] = info.source;
  document["requires"] = requirements_of(info);
  document["parameters"] = parameters_document(parameters_of(info));
  return document;
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

int ops_command(Console& console, const GivenWords& given) {
  const std::string& key = given.text("KEY");
  controller::Controller controller;
  const auto masks = controller.get_mask_operation_infos();
  const auto results = controller.get_available_result_operations();

  if (key.empty()) {
    common::Value mask_list = common::Value::array();
    for (const model::MaskOperationInfo* info : masks) mask_list.push_back(summary_document(*info, "mask"));
    common::Value result_list = common::Value::array();
    for (const auto& [category, infos] : controller.get_result_operations_by_category()) {
      for (const model::ResultOperationInfo* info : infos) result_list.push_back(summary_document(*info, "result"));
    }
    if (console.json) {
      console.answer_json({{"mask_operations", mask_list}, {"result_operations", result_list}});
    } else {
      console.answer(
          fmt::format("Mask operations\n{}\nResult operations\n{}", list_text(mask_list), list_text(result_list)));
      console.remark("orvexa ops KEY shows an operation with its parameters.");
    }
    return exit_done;
  }

  std::vector<std::string> known;
  common::Value document;
  for (const model::MaskOperationInfo* info : masks) {
    known.push_back(info->key);
    if (info->key == key) document = full_document(*info, "mask");
  }
  for (const auto& [name, info] : results) {
    known.push_back(name);
    if (name == key) document = full_document(*info, "result");
  }
  if (document.is_null()) {
    throw UsageError(fmt::format("There is no operation \"{}\"{}; orvexa ops lists them all.", key,
                                 common::did_you_mean(key, known)));
  }
  if (console.json) {
    console.answer_json(document);
  } else {
    console.answer(full_text(document));
  }
  return exit_done;
}

}  // namespace

const CommandInfo& ops_command_info() {
  static const CommandInfo info{.name = "ops",
                                .summary = "List every operation, or show one with its parameters",
                                .arguments = {{.name = "KEY",
                                               .help = "The operation to show",
                                               .kind = WordKind::operation,
                                               .may_be_left_out = true}},
                                .examples = {"orvexa ops", "orvexa ops threshold_auto"},
                                .run = ops_command};
  return info;
}

}  // namespace orvexa::cli
