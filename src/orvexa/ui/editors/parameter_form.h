#pragma once

#include <QLabel>
#include <QPushButton>
#include <QWidget>
#include <optional>
#include <string>
#include <vector>

#include "orvexa/ui/editors/parameter_editor.h"

namespace orvexa::ui {

/// The editors of all parameters of an operation, one below the other. Whoever owns it checks the values and has the
/// sentence shown that says what is wrong with them.
class ParameterForm final : public QWidget {
  Q_OBJECT

 public:
  /// @param context  outlives the form.
  ParameterForm(const model::ParameterList& parameters, EditorContext& context, QWidget* parent = nullptr);

  /// {name: value} of all parameters in the description's order, as the editors have them.
  [[nodiscard]] Value values() const;
  /// Parameters that are not among the values get their defaults, and entries that are no parameters are left out. Does
  /// not count as an edit.
  void set_values(const Value& values);
  /// Changes one parameter on behalf of a person who did so in another way, as by dragging: `edited` is told.
  void edit(const std::string& name, const Value& value);
  /// What the "Last used" button brings back; absent = nothing, and the button is disabled.
  void set_last_used(std::optional<Value> values);
  /// A sentence about the values below them; empty when they are right.
  void show_problem(const QString& sentence);
  /// Null when there is no such parameter.
  [[nodiscard]] ParameterEditor* editor(const std::string& name) const;
  /// The context has other bands, or an image to pick on.
  void update_context();
  /// Takes what is being typed into a table, as leaving its cell does.
  void finish_typing();
  /// Puts the focus into the first editor.
  void focus_first();

 Q_SIGNALS:
  /// A person changed a parameter, or with an empty name all of them.
  void edited(const std::string& name);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void show_help(const QWidget& focused);

  std::vector<ParameterEditor*> _editors;
  QLabel* _help;
  QLabel* _problem;
  QPushButton* _defaults;
  QPushButton* _last_used;
  std::optional<Value> _last_values;
};

}  // namespace orvexa::ui
