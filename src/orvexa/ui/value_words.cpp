#include "orvexa/ui/value_words.h"

#include <QCoreApplication>
#include <QStringList>
#include <algorithm>
#include <cmath>

#include "orvexa/common/text.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui {

using common::Value;

namespace {

QString tr(const char* text) {
  return QCoreApplication::translate("value_words", text);
}

/// Above it not every whole number is a double, and the digits would be made up.
constexpr double largest_exact = 9007199254740992.0;

constexpr qsizetype longest_words = 40;  // of one value among others on a line

bool is_list_of_shapes(model::ParameterType type) {
  using enum model::ParameterType;
  return type == points || type == rects || type == polygons || type == palette;
}

QString words(const Value& value) {
  if (value.is_null()) return tr("none");
  if (value.is_array()) {
    QStringList parts;
    for (const Value& part : value) parts << words(part);
    return parts.join(", ");
  }
  return value_words(value);
}

QString named(const model::ParameterInfo& parameter, const Value& value) {
  const QString name = to_qt(parameter.name).replace('_', ' ');
  if (value.is_boolean()) return value.get<bool>() ? name : tr("not %1").arg(name);
  if (is_list_of_shapes(parameter.type) && value.is_array()) return tr("%1: %2").arg(name).arg(value.size());
  QString text = words(value);
  if (text.size() > longest_words) text = text.left(longest_words - 1) + QChar(0x2026);
  // "px or mm" says that another parameter has the unit.
  const bool has_unit = !parameter.unit.empty() && parameter.unit.find(" or ") == std::string::npos;
  if (value.is_number() && has_unit) text += ' ' + to_qt(parameter.unit);
  return name + ' ' + text;
}

}  // namespace

QString value_words(const Value& value) {
  if (value.is_null()) return {};
  if (value.is_boolean()) return value.get<bool>() ? tr("yes") : tr("no");
  if (value.is_number_unsigned() && value.get<std::uint64_t>() > std::uint64_t{INT64_MAX}) {
    return QString::number(value.get<std::uint64_t>());
  }
  if (value.is_number_integer()) return grouped(value.get<std::int64_t>());
  if (value.is_number_float()) {
    const double number = value.get<double>();
    if (std::isfinite(number) && std::trunc(number) == number && std::abs(number) <= largest_exact) {
      return grouped(static_cast<std::int64_t>(number));
    }
    return QString::number(number, 'g', 6);
  }
  return to_qt(common::scalar_text(value));
}

QString parameter_words(const model::ParameterList& parameters, const Value& values) {
  QStringList words_of_all;
  if (!values.is_object()) return {};
  for (const model::ParameterInfo& parameter : parameters) {
    const auto value = values.find(parameter.name);
    if (value != values.end() && *value != parameter.default_value) words_of_all << named(parameter, *value);
  }
  for (const auto& [name, value] : values.items()) {
    const bool is_known = std::ranges::any_of(
        parameters, [&, &wanted = name](const model::ParameterInfo& parameter) { return parameter.name == wanted; });
    if (!is_known) words_of_all << to_qt(name) + ' ' + words(value).left(longest_words);
  }
  return words_of_all.join(QStringLiteral("  \u00b7  "));
}

}  // namespace orvexa::ui
