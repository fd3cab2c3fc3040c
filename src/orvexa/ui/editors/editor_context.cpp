#include "orvexa/ui/editors/editor_context.h"

#include <utility>

#include "orvexa/ui/workbench/workbench.h"

namespace orvexa::ui {

void WorkbenchEditorContext::update() {
  const controller::AppState& state = _workbench.controller().state;
  _folder = state.current_workflow ? state.current_workflow->folder : std::filesystem::path();
  _can_pick = state.current_capture && _workbench.controller()._get_image_viewer() != nullptr;
  _band_names.clear();
  _colour_image_names.clear();
  if (!state.current_capture) return;
  const model::CaptureSet& capture = *state.current_capture;
  for (const std::string& measurement : capture.get_measurement_types()) {
    for (const std::string& name : capture.image_names(measurement)) {
      const std::optional<model::Image> image = capture.find_image(measurement, name);
      if (!image) continue;
      const std::string whole_name = measurement + '.' + name;
      if (!image->is_color()) {
        _band_names.push_back(whole_name);
        continue;
      }
      _colour_image_names.push_back(whole_name);
      for (const char* channel : {".grey", ".R", ".G", ".B"}) _band_names.push_back(whole_name + channel);
    }
  }
}

void WorkbenchEditorContext::pick(const model::Interaction& interaction, int existing_count, Picked picked) {
  if (_workbench.is_busy()) return;
  _workbench.controller().enter_pick_mode(
      interaction, _operation,
      [picked = std::move(picked)](const std::string&, const model::Interaction&,
                                   const controller::PickGeometry& geometry) { picked(geometry); },
      existing_count);
}

void WorkbenchEditorContext::tell(const QString& sentence) {
  _workbench.tell(sentence);
}

}  // namespace orvexa::ui
