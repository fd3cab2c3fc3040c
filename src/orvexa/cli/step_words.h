#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/common/value.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/operation_base.h"

namespace orvexa::cli {

/// An operation that a word of the command line names.
struct NamedOperation {
  std::string key;
  bool is_mask = false;
  /// The key; "mask/KEY" or "result/KEY" where operations of both kinds have it.
  std::string word;
  model::ParameterList parameters;
};

/// All of them, mask operations first, in the order of menus and help.
[[nodiscard]] std::vector<NamedOperation> known_operations(const controller::Controller& controller);
/// @param word  a key, or "mask/KEY" or "result/KEY", which is needed only where operations of both kinds have the key.
/// @throws UsageError with the nearest key when there is no such operation, and for a key of two operations.
[[nodiscard]] NamedOperation find_operation(const controller::Controller& controller, std::string_view word);
/// The same, where only a mask operation will do.
[[nodiscard]] NamedOperation find_mask_operation(const controller::Controller& controller, std::string_view word);

/// Parameters from words "name=value"; not completed, and not yet checked against their ranges.
/// @throws UsageError for a word without "=", an unknown name (with the nearest one), a name that is given twice and a
/// value of another type.
[[nodiscard]] common::Value parameters_from_words(const NamedOperation& operation, std::span<const std::string> words);

/// Parameters with every path that one of type file has rewritten.
[[nodiscard]] common::Value with_paths(const NamedOperation& operation, const common::Value& params,
                                       const std::function<std::string(const std::string&)>& rewrite);

/// The value's spelling after the "=", in its short form where there is one.
[[nodiscard]] std::string value_word(const common::Value& value);

/// Parameters as such words, separated by blanks and quoted where a shell needs it: "low=0.5 bands='RED GREEN'".
[[nodiscard]] std::string parameter_words(const common::Value& params);

}  // namespace orvexa::cli
