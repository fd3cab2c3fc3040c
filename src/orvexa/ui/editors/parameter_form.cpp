#include "orvexa/ui/editors/parameter_form.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QEvent>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "orvexa/ui/text.h"

namespace orvexa::ui {

ParameterForm::ParameterForm(const model::ParameterList& parameters, EditorContext& context, QWidget* parent)
    : QWidget(parent),
      _help(new QLabel),
      _problem(new QLabel),
      _defaults(new QPushButton(tr("&Defaults"))),
      _last_used(new QPushButton(tr("&Last used"))) {
  setObjectName("parameter_form");
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  auto* grid = new QGridLayout;
  grid->setColumnStretch(1, 1);
  column->addLayout(grid);

  for (const model::ParameterInfo& info : parameters) {
    ParameterEditor* editor = make_editor(info, context);
    _editors.push_back(editor);
    auto* label = new QLabel(parameter_label(info.name));
    label->setWordWrap(true);
    label->setMinimumWidth(std::min(label->fontMetrics().horizontalAdvance(label->text()) + 2, 100));
    label->setBuddy(editor);
    label->setToolTip(to_qt(info.help));
    editor->setToolTip(to_qt(info.help));
    const int row = grid->rowCount();
    if (editor->is_large()) {
      grid->addWidget(label, row, 0, 1, 2);
      grid->addWidget(editor, row + 1, 0, 1, 2);
    } else {
      grid->addWidget(label, row, 0);
      grid->addWidget(editor, row, 1);
    }
    for (QWidget* control : editor->findChildren<QWidget*>()) control->installEventFilter(this);
    connect(editor, &ParameterEditor::edited, this, [this, name = info.name] { Q_EMIT edited(name); });
  }
  if (parameters.empty()) column->addWidget(new QLabel(tr("It has no parameters.")));

  _problem->setObjectName("parameter_problem");
  _problem->setWordWrap(true);
  _problem->setTextInteractionFlags(Qt::TextSelectableByMouse);
  _problem->setAccessibleName(tr("What is wrong with the parameters"));
  QFont bold = font();
  bold.setBold(true);
  _problem->setFont(bold);
  _problem->hide();
  column->addWidget(_problem);

  // Always as high as two lines, so that nothing moves when the focus does.
  _help->setObjectName("parameter_help");
  _help->setWordWrap(true);
  _help->setAlignment(Qt::AlignTop | Qt::AlignLeft);
  _help->setMinimumHeight(2 * fontMetrics().lineSpacing() + 2);
  _help->setAccessibleName(tr("What the parameter does"));
  column->addWidget(_help);

  _defaults->setObjectName("parameter_defaults");
  _defaults->setToolTip(tr("Set all parameters to their defaults (Alt+D)"));
  _last_used->setObjectName("parameter_last_used");
  _last_used->setToolTip(tr("Set all parameters to those that were last used (Alt+L)"));
  _last_used->setEnabled(false);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(_defaults);
  buttons->addWidget(_last_used);
  buttons->addStretch(1);
  column->addLayout(buttons);
  _defaults->setVisible(!parameters.empty());
  _last_used->setVisible(!parameters.empty());
  connect(_defaults, &QPushButton::clicked, this, [this] {
    set_values(Value::object());
    Q_EMIT edited({});
  });
  connect(_last_used, &QPushButton::clicked, this, [this] {
    if (!_last_values) return;
    set_values(*_last_values);
    Q_EMIT edited({});
  });
}

Value ParameterForm::values() const {
  Value values = Value::object();
  for (const ParameterEditor* editor : _editors) values[editor->info().name] = editor->value();
  return values;
}

void ParameterForm::set_values(const Value& values) {
  for (ParameterEditor* editor : _editors) {
    const auto& info = editor->info();
    const bool is_given = values.is_object() && values.contains(info.name);
    editor->set_value(is_given ? values.at(info.name) : info.default_value);
  }
}

void ParameterForm::edit(const std::string& name, const Value& value) {
  ParameterEditor* changed = editor(name);
  if (changed == nullptr || changed->value() == value) return;
  changed->set_value(value);
  Q_EMIT edited(name);
}

void ParameterForm::set_last_used(std::optional<Value> values) {
  _last_values = std::move(values);
  _last_used->setEnabled(_last_values.has_value());
}

void ParameterForm::show_problem(const QString& sentence) {
  _problem->setText(sentence);
  _problem->setVisible(!sentence.isEmpty());
}

ParameterEditor* ParameterForm::editor(const std::string& name) const {
  for (ParameterEditor* editor : _editors) {
    if (editor->info().name == name) return editor;
  }
  return nullptr;
}

void ParameterForm::update_context() {
  for (ParameterEditor* editor : _editors) editor->update_context();
}

void ParameterForm::finish_typing() {
  QWidget* focused = QApplication::focusWidget();
  if (focused == nullptr || !isAncestorOf(focused) || focused->parentWidget() == nullptr) return;
  // The editor of a cell lies in the viewport of its table.
  auto* table = qobject_cast<QAbstractItemView*>(focused->parentWidget()->parentWidget());
  if (table != nullptr) table->setFocus();
}

void ParameterForm::focus_first() {
  if (!_editors.empty()) _editors.front()->setFocus();
}

bool ParameterForm::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::FocusIn) {
    if (const auto* focused = qobject_cast<QWidget*>(watched)) show_help(*focused);
  }
  return QWidget::eventFilter(watched, event);
}

void ParameterForm::show_help(const QWidget& focused) {
  for (const ParameterEditor* editor : _editors) {
    if (!editor->isAncestorOf(&focused)) continue;
    const auto& info = editor->info();
    _help->setText(tr("%1: %2").arg(parameter_label(info.name), to_qt(info.help)));
    return;
  }
}

}  // namespace orvexa::ui
