#pragma once

#include "orvexa/ui/editors/parameter_editor.h"

namespace orvexa::ui::editors {

// One maker for each kind of editor; `make_editor` chooses. The parameter must be of the type that the name says.

/// integer and real.
[[nodiscard]] ParameterEditor* make_number_editor(const model::ParameterInfo& info, EditorContext& context);
[[nodiscard]] ParameterEditor* make_boolean_editor(const model::ParameterInfo& info, EditorContext& context);
[[nodiscard]] ParameterEditor* make_text_editor(const model::ParameterInfo& info, EditorContext& context);
[[nodiscard]] ParameterEditor* make_choice_editor(const model::ParameterInfo& info, EditorContext& context);
[[nodiscard]] ParameterEditor* make_choices_editor(const model::ParameterInfo& info, EditorContext& context);
[[nodiscard]] ParameterEditor* make_band_editor(const model::ParameterInfo& info, EditorContext& context);
/// Also bands for roles, "N=MSP.NIR".
[[nodiscard]] ParameterEditor* make_bands_editor(const model::ParameterInfo& info, EditorContext& context);
/// point and rect.
[[nodiscard]] ParameterEditor* make_place_editor(const model::ParameterInfo& info, EditorContext& context);
/// points and rects.
[[nodiscard]] ParameterEditor* make_places_editor(const model::ParameterInfo& info, EditorContext& context);
[[nodiscard]] ParameterEditor* make_polygons_editor(const model::ParameterInfo& info, EditorContext& context);
[[nodiscard]] ParameterEditor* make_expression_editor(const model::ParameterInfo& info, EditorContext& context);
[[nodiscard]] ParameterEditor* make_file_editor(const model::ParameterInfo& info, EditorContext& context);
[[nodiscard]] ParameterEditor* make_palette_editor(const model::ParameterInfo& info, EditorContext& context);

}  // namespace orvexa::ui::editors
