#include "orvexa/ui/editors/number_box.h"

#include <QLineEdit>
#include <QLocale>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

#include "orvexa/ui/text.h"

namespace orvexa::ui {

using common::Value;

namespace {

/// A multiple of the step: 0.30 rather than 0.30000000000000004.
double stepped(double number, int steps, int exponent) {
  const double units = std::pow(10.0, std::abs(exponent));
  return exponent < 0 ? (std::round(number * units) + steps) / units : number + steps * units;
}

}  // namespace

int step_exponent(const model::ParameterInfo& info) {
  if (info.type == model::ParameterType::integer) return 0;
  if (info.type == model::ParameterType::palette) return 0;
  if (info.type != model::ParameterType::real) return -2;  // fractions of the image
  if (info.unit == "%" || info.unit == "degrees") return 0;
  if (info.min && info.max && *info.max - *info.min <= 1000) {
    return static_cast<int>(std::floor(std::log10((*info.max - *info.min) / 50)));
  }
  const bool is_small = !info.default_value.is_number() || std::abs(info.default_value.get<double>()) < 2;
  return info.unit.starts_with("fraction") || (is_small && !info.unit.starts_with("px")) ? -2 : 0;
}

Value number_from_text(const QString& text, bool is_whole) {
  QString spelling = text.trimmed();
  spelling.replace(',', '.');
  bool is_number = false;
  if (is_whole) {
    const qlonglong whole = spelling.toLongLong(&is_number);
    if (is_number) return static_cast<std::int64_t>(whole);
  }
  const double number = spelling.toDouble(&is_number);
  if (is_number && std::isfinite(number)) return number;
  return from_qt(text.trimmed());
}

QString number_text_of(const Value& value) {
  if (value.is_number_integer()) return QString::number(value.get<std::int64_t>());
  if (value.is_number()) return QString::number(value.get<double>(), 'g', QLocale::FloatingPointShortest);
  return value.is_string() ? to_qt(value.get_ref<const std::string&>()) : QString();
}

NumberBox::NumberBox(const model::ParameterInfo& info, QWidget* parent)
    : QAbstractSpinBox(parent),
      _is_whole(info.type == model::ParameterType::integer),
      _may_be_null(info.default_value.is_null()),
      _min(info.min),
      _max(info.max),
      _step_exponent(step_exponent(info)) {
  setFocusPolicy(Qt::StrongFocus);  // the wheel scrolls what is around it unless it was chosen
  setAccelerated(true);
  if (_may_be_null) lineEdit()->setPlaceholderText(tr("no value"));
  connect(lineEdit(), &QLineEdit::textEdited, this, &NumberBox::edited);
}

Value NumberBox::value() const {
  const QString text = lineEdit()->text();
  if (_may_be_null && text.trimmed().isEmpty()) return nullptr;
  return number_from_text(text, _is_whole);
}

void NumberBox::set_value(const Value& value) {
  const QString text = number_text_of(value);
  if (lineEdit()->text() == text) return;
  lineEdit()->setText(text);
  lineEdit()->setCursorPosition(0);  // of a long number the beginning is what counts
}

void NumberBox::stepBy(int steps) {
  const Value current = value();
  double number = current.is_number() ? current.get<double>() : _min.value_or(0);
  if (current.is_number()) number = stepped(number, steps, _step_exponent);
  number = std::clamp(number, _min.value_or(-HUGE_VAL), std::max(_max.value_or(HUGE_VAL), _min.value_or(-HUGE_VAL)));
  const Value next = _is_whole ? Value(static_cast<std::int64_t>(std::llround(number))) : Value(number);
  lineEdit()->setText(number_text_of(next));
  lineEdit()->selectAll();
  Q_EMIT edited();
}

QAbstractSpinBox::StepEnabled NumberBox::stepEnabled() const {
  const Value current = value();
  if (!current.is_number()) return StepUpEnabled | StepDownEnabled;
  StepEnabled enabled = StepNone;
  if (current.get<double>() < _max.value_or(HUGE_VAL)) enabled |= StepUpEnabled;
  if (current.get<double>() > _min.value_or(-HUGE_VAL)) enabled |= StepDownEnabled;
  return enabled;
}

QValidator::State NumberBox::validate(QString&, int&) const {
  return QValidator::Acceptable;
}

QSize NumberBox::sizeHint() const {
  const int text_width = fontMetrics().horizontalAdvance("-0.000000");
  return {text_width + 30, QAbstractSpinBox::sizeHint().height()};
}

QSize NumberBox::minimumSizeHint() const {
  return {fontMetrics().horizontalAdvance("-0.00") + 28, QAbstractSpinBox::minimumSizeHint().height()};
}

void NumberBox::wheelEvent(QWheelEvent* event) {
  if (hasFocus()) {
    QAbstractSpinBox::wheelEvent(event);
  } else {
    event->ignore();
  }
}

}  // namespace orvexa::ui
