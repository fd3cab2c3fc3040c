#pragma once

#include <QWidget>

#include "orvexa/model/operation_base.h"
#include "orvexa/ui/editors/editor_context.h"

namespace orvexa::ui {

using common::Value;

/// Edits one parameter. It takes what a person writes, even when it is wrong (the text then is the value), so that the
/// check of the parameters can say what is allowed instead.
///
/// A value that was set and not edited is given back exactly as it was.
class ParameterEditor : public QWidget {
  Q_OBJECT

 public:
  /// @param context  outlives the editor.
  ParameterEditor(const model::ParameterInfo& info, EditorContext& context);

  [[nodiscard]] Value value() const { return _value; }
  /// Does not count as an edit.
  void set_value(const Value& value);
  [[nodiscard]] const model::ParameterInfo& info() const { return _info; }
  /// Whether it is wide or high: it then stands below its label.
  [[nodiscard]] bool is_large() const { return _is_large; }
  /// The context has other bands, or an image to pick on.
  void update_context();

 Q_SIGNALS:
  /// A person changed the value.
  void edited();

 protected:
  /// Makes the controls show a value, of whatever form it is.
  virtual void show_value(const Value& value) = 0;
  virtual void show_context() {}
  /// A person changed the value to this one. Does nothing while a value is shown.
  void take(const Value& value);
  /// Asks for something drawn on the image; `take_picked` is called when it is there.
  void pick(const model::Interaction& interaction, int existing_count);
  virtual void take_picked(const controller::PickGeometry& geometry) { static_cast<void>(geometry); }

  [[nodiscard]] EditorContext& context() const { return _context; }
  [[nodiscard]] QString name() const;
  /// For a control: its object name ("min_area" and the part) and what a screen reader calls it.
  void name_control(QWidget& control, const QString& part = {}, const QString& spoken = {}) const;
  void set_large() { _is_large = true; }

 private:
  model::ParameterInfo _info;
  EditorContext& _context;
  Value _value;
  bool _is_large = false;
  bool _is_showing = false;
};

/// The editor for a parameter of any type, showing its default.
[[nodiscard]] ParameterEditor* make_editor(const model::ParameterInfo& info, EditorContext& context);

/// The name of a parameter in words: "min_area" -> "Min area".
[[nodiscard]] QString parameter_label(const std::string& name);

}  // namespace orvexa::ui
