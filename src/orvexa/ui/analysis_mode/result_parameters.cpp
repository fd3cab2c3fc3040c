#include "orvexa/ui/analysis_mode/result_parameters.h"

#include <QVBoxLayout>
#include <utility>

namespace orvexa::ui::analysis_mode {

using common::Value;

ResultParameters::ResultParameters(Workbench& workbench, QWidget* parent) : QWidget(parent), _context(workbench) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
}

void ResultParameters::show_parameters(const model::ResultOperationInfo* operation, const Value& values,
                                       const std::optional<Value>& last_used) {
  _context.update();
  if (operation != _operation) {
    if (_form != nullptr) {
      _form->disconnect(this);
      _form->setParent(nullptr);
      _form->deleteLater();  // it may be what is telling
      _form = nullptr;
    }
    _operation = operation;
    _shown = Value();
    if (operation != nullptr && !operation->parameters.empty()) {
      _context.set_operation(operation->key);
      _form = new ParameterForm(operation->parameters, _context);
      layout()->addWidget(_form);
      _form->show();
      connect(_form, &ParameterForm::edited, this, [this] {
        _shown = _form->values();  // what comes back in a refresh is what stands there
        Q_EMIT edited(_shown);
      });
    }
  }
  if (_form == nullptr) return;
  _form->update_context();
  _form->set_last_used(last_used);
  Value completed = model::default_parameters(operation->parameters);
  if (values.is_object()) completed.update(values);
  if (completed == _shown) return;  // somebody may be typing
  _shown = std::move(completed);
  _form->set_values(_shown);
  _form->show_problem({});
}

void ResultParameters::show_problem(const QString& sentence) {
  if (_form != nullptr) _form->show_problem(sentence);
}

}  // namespace orvexa::ui::analysis_mode
