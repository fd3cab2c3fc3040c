#include "orvexa/cli/operations_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "orvexa/cli/wrapped_text.h"

namespace orvexa::cli {

namespace {

constexpr std::size_t page_width = 120;

std::string text_of(const common::Value& document, const char* name) {
  return document.at(name).get<std::string>();
}

std::string paragraph(std::string_view text) {
  return wrapped_text(text, page_width) + "\n";
}

/// A cell of a table: a bar would end it.
std::string cell(std::string_view text) {
  std::string safe;
  for (const char character : text) {
    if (character == '|') safe += '\\';
    safe += character;
  }
  return safe;
}

std::string parameter_row(const common::Value& parameter) {
  const common::Value& usual = parameter.at("default");
  std::string allowed = text_of(parameter, "allowed");
  if (const std::string unit = text_of(parameter, "unit"); !unit.empty()) allowed += ", in " + unit;
  if (parameter.contains("picked_as")) allowed += "; picked on the image";
  return fmt::format("| `{}` | {} | {} | {} |\n", text_of(parameter, "name"), cell(allowed),
                     usual.is_null() ? "not set" : "`" + cell(usual.dump()) + "`", cell(text_of(parameter, "help")));
}

std::string parameters_table(const common::Value& parameters) {
  if (parameters.empty()) return "It has no parameters.\n\n";
  std::string table = "| parameter | what is allowed | default | what it does |\n|---|---|---|---|\n";
  for (const common::Value& parameter : parameters) table += parameter_row(parameter);
  return table + "\n";
}

/// @param heading  no two sections have the same.
std::string section(const common::Value& operation, const std::string& heading) {
  std::string text = fmt::format("#### {}\n\n", heading);
  text += paragraph(fmt::format("{}. {}", text_of(operation, "display_name"), text_of(operation, "summary")));
  if (const std::string description = text_of(operation, "description"); !description.empty()) {
    text += paragraph(description);
  }
  for (const common::Value& requirement : operation.at("requires")) {
    text += paragraph(fmt::format("Needs {}.", requirement.get<std::string>()));
  }
  text += parameters_table(operation.at("parameters"));
  if (const std::string source = text_of(operation, "source"); !source.empty()) {
    text += paragraph(fmt::format("Source: {}.", source));
  }
  return text;
}

}  // namespace

std::string operations_page(std::span<const common::Value> operations) {
  std::string page = "# Operations\n\n";
  page += paragraph(
      "What `orvexa ops --markdown` says of every operation. Parameters are written as in a workflow file; `orvexa ops "
      "KEY` shows one operation.");
  std::string kind;
  std::string category;
  for (const common::Value& operation : operations) {
    if (text_of(operation, "kind") != kind) {
      kind = text_of(operation, "kind");
      category.clear();
      page += kind == "mask" ? "## Mask operations\n\n" : "## Result operations\n\n";
    }
    if (text_of(operation, "category") != category) {
      category = text_of(operation, "category");
      page += fmt::format("### {}\n\n", category);
    }
    const auto has_same_key = [&](const common::Value& other) { return other.at("key") == operation.at("key"); };
    const bool is_shared = std::ranges::count_if(operations, has_same_key) > 1;
    page += section(operation, (is_shared ? kind + "/" : "") + text_of(operation, "key"));
  }
  page.pop_back();  // one line feed ends the page
  return page;
}

}  // namespace orvexa::cli
