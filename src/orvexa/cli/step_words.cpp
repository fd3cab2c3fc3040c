#include "orvexa/cli/step_words.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "orvexa/cli/command_info.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"

namespace orvexa::cli {

namespace {

using common::Value;

UsageError unknown_operation(std::string_view kind, std::string_view key, std::span<const NamedOperation> known) {
  std::vector<std::string> keys;
  for (const NamedOperation& operation : known) keys.push_back(operation.word);
  return UsageError(
      fmt::format("There is no {} \"{}\"{}; orvexa ops lists them all.", kind, key, common::did_you_mean(key, keys)));
}

/// Texts that stay texts when they stand in a list of such between commas.
bool is_plain_text(const Value& value) {
  return value.is_string() && !value.get_ref<const std::string&>().empty() &&
         value.get_ref<const std::string&>().find_first_of(",;[]{}\" ") == std::string::npos;
}

bool is_list_of_numbers(const Value& value) {
  return value.is_array() && !value.empty() &&
         std::ranges::all_of(value, [](const Value& element) { return element.is_number(); });
}

std::string joined_texts(const Value& list, char separator, const auto& text_of) {
  std::string text;
  for (const Value& element : list) text += (text.empty() ? "" : std::string(1, separator)) + text_of(element);
  return text;
}

std::string shell_quoted(const std::string& word) {
  const bool is_plain = !word.empty() && std::ranges::all_of(word, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("_-.,:/+%@").find(c) != std::string_view::npos;
  });
  if (is_plain) return word;
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

}  // namespace

std::vector<NamedOperation> known_operations(const controller::Controller& controller) {
  const auto results = controller.get_available_result_operations();
  const auto masks = controller.get_available_mask_operations();
  std::vector<NamedOperation> known;
  for (const auto& [key, info] : masks) {
    const std::string word = results.contains(key) ? "mask/" + key : key;
    known.push_back({.key = key, .is_mask = true, .word = word, .parameters = info->all_parameters()});
  }
  for (const auto& [key, info] : results) {
    const std::string word = masks.contains(key) ? "result/" + key : key;
    known.push_back({.key = key, .is_mask = false, .word = word, .parameters = info->parameters});
  }
  return known;
}

NamedOperation find_operation(const controller::Controller& controller, std::string_view word) {
  const std::vector<NamedOperation> known = known_operations(controller);
  if (const auto named = std::ranges::find(known, word, &NamedOperation::word); named != known.end()) return *named;
  for (const NamedOperation& operation : known) {
    if (word == (operation.is_mask ? "mask/" : "result/") + operation.key) return operation;
  }
  if (std::ranges::find(known, word, &NamedOperation::key) != known.end()) {
    throw UsageError(
        fmt::format("{} is a mask operation and a result operation; say mask/{} or result/{}.", word, word, word));
  }
  throw unknown_operation("operation", word, known);
}

NamedOperation find_mask_operation(const controller::Controller& controller, std::string_view word) {
  std::vector<NamedOperation> known = known_operations(controller);
  std::erase_if(known, [](const NamedOperation& operation) { return !operation.is_mask; });
  for (const NamedOperation& operation : known) {
    if (word == operation.key || word == operation.word) return operation;
  }
  if (controller.get_available_result_operations().contains(std::string(word))) {
    throw UsageError(fmt::format("{} is a result operation; a mask operation is expected.", word));
  }
  throw unknown_operation("mask operation", word, known);
}

Value parameters_from_words(const NamedOperation& operation, std::span<const std::string> words) {
  Value params = Value::object();
  std::vector<std::string> known;
  for (const model::ParameterInfo& parameter : operation.parameters) known.push_back(parameter.name);
  for (const std::string& word : words) {
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos) {
      throw UsageError(fmt::format("-p is \"{}\"; a parameter is given as NAME=VALUE.", word));
    }
    const std::string name(common::trimmed(std::string_view(word).substr(0, equals)));
    const auto parameter = std::ranges::find(operation.parameters, name, &model::ParameterInfo::name);
    if (parameter == operation.parameters.end()) {
      throw UsageError(fmt::format(
          "{} has no parameter \"{}\"{}; {}.", operation.key, name, common::did_you_mean(name, known),
          known.empty() ? std::string("it has none") : "its parameters are " + common::joined(known, ", ")));
    }
    if (params.contains(name)) throw UsageError(fmt::format("The parameter \"{}\" is given twice.", name));
    try {
      params[name] = model::parse_parameter_text(*parameter, std::string_view(word).substr(equals + 1));
    } catch (const std::invalid_argument& failure) {
      throw UsageError(failure.what());
    }
  }
  return params;
}

Value with_paths(const NamedOperation& operation, const Value& params,
                 const std::function<std::string(const std::string&)>& rewrite) {
  Value result = params;
  for (const model::ParameterInfo& parameter : operation.parameters) {
    const auto value = result.find(parameter.name);
    if (parameter.type != model::ParameterType::file || value == result.end() || !value->is_string()) continue;
    if (const auto path = value->get<std::string>(); !path.empty()) *value = rewrite(path);
  }
  return result;
}

std::string value_word(const Value& value) {
  const auto number_or_text = [](const Value& element) {
    return element.is_string() ? element.get<std::string>() : common::json_line(element);
  };
  if (value.is_string()) return value == "null" ? "\"null\"" : value.get<std::string>();
  const bool is_list = value.is_array() && !value.empty();
  if (is_list_of_numbers(value) || (is_list && std::ranges::all_of(value, is_plain_text))) {
    return joined_texts(value, ',', number_or_text);
  }
  if (is_list && std::ranges::all_of(value, is_list_of_numbers)) {
    return joined_texts(value, ';', [&](const Value& list) { return joined_texts(list, ',', number_or_text); });
  }
  return common::json_line(value);
}

std::string parameter_words(const Value& params) {
  if (!params.is_object()) return params.is_null() ? "" : common::json_line(params);
  std::string text;
  for (const auto& [name, value] : params.items()) {
    text += (text.empty() ? "" : " ") + name + "=" + shell_quoted(value_word(value));
  }
  return text;
}

}  // namespace orvexa::cli
