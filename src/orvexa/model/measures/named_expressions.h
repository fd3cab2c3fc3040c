#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/measures/expression.h"
#include "orvexa/model/measures/role_bands.h"

namespace orvexa::model {

/// A formula with the name of what it gives: "ratio = N / R".
struct NamedExpression {
  std::string name;
  Expression expression;
};

/// @param text  NAME = EXPRESSION, several of them with semicolons or line breaks between them; a name begins with a
/// letter and holds letters, digits and underscores.
/// @throws std::invalid_argument with a sentence for a text without any, an entry without a name, a name of another
/// form or one that differs from an earlier one by case at most, and for what Expression refuses.
[[nodiscard]] std::vector<NamedExpression> named_expressions(std::string_view operation, std::string_view parameter,
                                                             std::string_view text);

/// The names in a formula that are roles.
[[nodiscard]] RoleUser role_user(std::string name, const Expression& expression);

/// How formulas are written, for the description of an operation.
[[nodiscard]] const std::string& expression_text();

}  // namespace orvexa::model
