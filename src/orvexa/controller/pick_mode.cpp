#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "orvexa/common/logger.h"
#include "orvexa/controller/controller.h"

namespace orvexa::controller {

using common::logger;

namespace {

std::string tool_for(const std::string& mode) {
  if (mode == "rect") return "rectangle";
  constexpr std::array<std::string_view, 5> tools_of_the_same_name{"point", "points", "rects", "circle", "polygon"};
  const bool is_tool = std::ranges::find(tools_of_the_same_name, mode) != tools_of_the_same_name.end();
  return is_tool ? mode : "pan_zoom";
}

struct ImageSize {
  double height;
  double width;
};

model::PickRect pick_rect(const ViewerRect& rect, const ImageSize& image) {
  return {.cx_norm = (rect.x() + rect.width() / 2) / image.width,
          .cy_norm = (rect.y() + rect.height() / 2) / image.height,
          .w_norm = rect.width() / image.width,
          .h_norm = rect.height() / image.height};
}

/// @throws std::logic_error when the viewer handed over another kind of geometry: its own mistake.
template <typename Geometry>
const Geometry& drawn(const ViewerGeometry& geometry, const std::string& mode) {
  const auto* found = std::get_if<Geometry>(&geometry);
  if (found == nullptr) {
    throw std::logic_error(fmt::format("The image viewer drew something else than the mode \"{}\" asks for.", mode));
  }
  return *found;
}

}  // namespace

ImageViewer* Controller::_get_image_viewer() const {
  for (Panel* panel : _ui_panels) {
    if (auto* able = dynamic_cast<HasImageViewer*>(panel)) return able->image_viewer();
  }
  return nullptr;
}

// A panel that is locked or unlocked may register further panels, so the loops of the next two go by index.

void Controller::enter_pick_mode(const model::Interaction& interaction, const std::string& operation_key,
                                 PickCallback callback, int existing_count) {
  logger.info(fmt::format("Controller.enter_pick_mode: mode={} op={}", interaction.mode, operation_key));
  const std::string tool = tool_for(interaction.mode);
  state.pick_mode = PickModeState{
      .active = true, .interaction = interaction, .operation_key = operation_key, .callback = std::move(callback)};
  if (ImageViewer* viewer = _get_image_viewer()) {
    viewer->_pick_existing_count = existing_count;
    viewer->set_active_tool(tool);
    viewer->set_pick_cursor();
    viewer->setFocus();
  }
  for (std::size_t i = 0; i < _ui_panels.size(); ++i) {
    Panel& panel = *_ui_panels[i];
    if (dynamic_cast<HasImageViewer*>(&panel) == nullptr) panel.setEnabled(false);
  }
  events.pick_mode_changed.emit(true);
}

void Controller::exit_pick_mode(const std::optional<ViewerGeometry>& geometry) {
  const PickModeState left = std::exchange(state.pick_mode, PickModeState());
  if (ImageViewer* viewer = _get_image_viewer()) {
    viewer->clear_all_rois();
    viewer->set_active_tool("pan_zoom");
    viewer->restore_cursor();
  }
  for (std::size_t i = 0; i < _ui_panels.size(); ++i) _ui_panels[i]->setEnabled(true);
  events.pick_mode_changed.emit(false);

  // Last, because the callback may enter pick mode again.
  if (!geometry || !left.callback) return;
  const model::Interaction& interaction = left.interaction.value();
  const model::Shape shape = state.current_capture ? state.current_capture->get_shape() : model::Shape{1, 1};
  const auto pick = _qt_geometry_to_pick(interaction.mode, *geometry, {shape.height, shape.width});
  if (pick) left.callback(left.operation_key, interaction, *pick);
}

std::optional<PickGeometry> Controller::_qt_geometry_to_pick(const std::string& mode, const ViewerGeometry& qt_geometry,
                                                             const std::vector<int>& image_shape) const {
  if (image_shape.size() != 2) {
    throw std::invalid_argument(
        fmt::format("The shape of an image is its height and width, not {} numbers.", image_shape.size()));
  }
  if (image_shape[1] == 0 || image_shape[0] == 0) return std::nullopt;
  const ImageSize image{.height = double(image_shape[0]), .width = double(image_shape[1])};
  if (mode == "rect") return pick_rect(drawn<ViewerRect>(qt_geometry, mode), image);
  if (mode == "point") {
    const auto& point = drawn<ViewerPoint>(qt_geometry, mode);
    return model::PickPoint{.x_norm = point.x() / image.width, .y_norm = point.y() / image.height};
  }
  if (mode == "points") {
    model::PickPoints picked;
    for (const ViewerPoint& point : drawn<std::vector<ViewerPoint>>(qt_geometry, mode)) {
      picked.points.emplace_back(point.x() / image.width, point.y() / image.height);
    }
    return picked;
  }
  if (mode == "rects") {
    model::PickRects picked;
    for (const ViewerRect& rect : drawn<std::vector<ViewerRect>>(qt_geometry, mode)) {
      picked.rects.push_back(pick_rect(rect, image));
    }
    return picked;
  }
  return std::nullopt;
}

}  // namespace orvexa::controller
