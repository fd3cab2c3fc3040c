#include "orvexa/ui/analysis_mode/result_parameters.h"

#include <QVBoxLayout>

#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui::analysis_mode {

using common::Value;

namespace {

/// As `model::parse_parameter_text` reads it.
QString spelling(const Value& value) {
  if (value.is_string()) return to_qt(value.get<std::string>());
  return to_qt(common::json_line(value));
}

}  // namespace

ResultParameters::ResultParameters(QWidget* parent) : QWidget(parent), _form(new QFormLayout), _problem(new QLabel) {
  _problem->setObjectName("parameters_problem");
  _problem->setWordWrap(true);
  QFont bold = _problem->font();
  bold.setBold(true);
  _problem->setFont(bold);
  _problem->hide();
  _form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
  _form->setRowWrapPolicy(QFormLayout::WrapLongRows);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->addLayout(_form);
  column->addWidget(_problem);
}

void ResultParameters::show_parameters(const model::ResultOperationInfo* operation, const Value& values) {
  if (operation != _operation) {
    _operation = operation;
    make_lines();
    show_problem({});
  }
  if (_operation == nullptr) return;
  const Value before = std::move(_values);
  _values = model::default_parameters(_operation->parameters);
  if (values.is_object()) _values.update(values);
  for (std::size_t i = 0; i < _lines.size(); ++i) {
    const std::string& name = _operation->parameters[i].name;
    const Value& value = _values.at(name);
    // What somebody is typing stays until it is taken over.
    if (before.contains(name) && before.at(name) == value && _lines[i]->isModified()) continue;
    _lines[i]->setText(spelling(value));
  }
}

void ResultParameters::show_problem(const QString& sentence) {
  _problem->setText(sentence);
  _problem->setVisible(!sentence.isEmpty());
}

void ResultParameters::make_lines() {
  for (QLineEdit* line : _lines) line->disconnect(this);  // one that has the focus would speak up while it goes
  while (_form->rowCount() > 0) _form->removeRow(0);
  _lines.clear();
  _values = Value::object();
  if (_operation == nullptr) return;
  for (const model::ParameterInfo& parameter : _operation->parameters) {
    auto* line = new QLineEdit;
    const QString name = to_qt(parameter.name).replace('_', ' ');
    line->setObjectName("parameter_" + to_qt(parameter.name));
    line->setAccessibleName(name);
    line->setToolTip(tr("%1 Allowed: %2.").arg(to_qt(parameter.help), to_qt(model::allowed_text(parameter))));
    connect(line, &QLineEdit::editingFinished, this, [this, line] {
      if (line->isModified()) read_lines();
    });
    _form->addRow(parameter.unit.empty() ? name : tr("%1 (%2)").arg(name, to_qt(parameter.unit)), line);
    _lines.push_back(line);
  }
}

void ResultParameters::read_lines() {
  Value values = _values;
  try {
    for (std::size_t i = 0; i < _lines.size(); ++i) {
      if (!_lines[i]->isModified()) continue;
      const model::ParameterInfo& parameter = _operation->parameters[i];
      values[parameter.name] = model::parse_parameter_text(parameter, from_qt(_lines[i]->text()));
    }
  } catch (...) {
    show_problem(to_qt(model::failure_text()));
    return;
  }
  show_problem({});
  Q_EMIT edited(values);
}

}  // namespace orvexa::ui::analysis_mode
