#include "orvexa/ui/editors/parameter_editor.h"

#include <QPointer>

#include "orvexa/ui/editors/editor_makers.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui {

ParameterEditor::ParameterEditor(const model::ParameterInfo& info, EditorContext& context)
    : _info(info), _context(context), _value(info.default_value) {
  setObjectName("editor_" + name());
}

QString ParameterEditor::name() const {
  return to_qt(_info.name);
}

void ParameterEditor::name_control(QWidget& control, const QString& part, const QString& spoken) const {
  control.setObjectName(part.isEmpty() ? name() : name() + '_' + part);
  const QString label = parameter_label(_info.name);
  control.setAccessibleName(spoken.isEmpty() ? label : label + ": " + spoken);
  control.setAccessibleDescription(to_qt(_info.help));
}

void ParameterEditor::set_value(const Value& value) {
  _value = value;
  _is_showing = true;
  show_value(_value);
  _is_showing = false;
}

void ParameterEditor::update_context() {
  _is_showing = true;
  show_context();
  _is_showing = false;
}

void ParameterEditor::take(const Value& value) {
  if (_is_showing || value == _value) return;
  _value = value;
  Q_EMIT edited();
}

void ParameterEditor::pick(const model::Interaction& interaction, int existing_count) {
  // Another capture or operation may end the editor before anything is drawn.
  const QPointer<ParameterEditor> self(this);
  _context.pick(interaction, existing_count, [self](const controller::PickGeometry& geometry) {
    if (self) self->take_picked(geometry);
  });
}

ParameterEditor* make_editor(const model::ParameterInfo& info, EditorContext& context) {
  using enum model::ParameterType;
  ParameterEditor* editor = nullptr;
  switch (info.type) {
    case integer:
    case real:
      editor = editors::make_number_editor(info, context);
      break;
    case boolean:
      editor = editors::make_boolean_editor(info, context);
      break;
    case text:
      editor = editors::make_text_editor(info, context);
      break;
    case choice:
      editor = editors::make_choice_editor(info, context);
      break;
    case choices:
      editor = editors::make_choices_editor(info, context);
      break;
    case band:
      editor = editors::make_band_editor(info, context);
      break;
    case bands:
      editor = editors::make_bands_editor(info, context);
      break;
    case point:
    case rect:
      editor = editors::make_place_editor(info, context);
      break;
    case points:
    case rects:
      editor = editors::make_places_editor(info, context);
      break;
    case polygons:
      editor = editors::make_polygons_editor(info, context);
      break;
    case expression:
      editor = editors::make_expression_editor(info, context);
      break;
    case file:
      editor = editors::make_file_editor(info, context);
      break;
    case palette:
      editor = editors::make_palette_editor(info, context);
      break;
  }
  editor->update_context();
  editor->set_value(info.default_value);
  return editor;
}

QString parameter_label(const std::string& name) {
  QString label = to_qt(name).replace('_', ' ');
  if (!label.isEmpty()) label[0] = label[0].toUpper();
  return label;
}

}  // namespace orvexa::ui
