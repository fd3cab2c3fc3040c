#include <fmt/format.h>

#include "orvexa/common/logger.h"
#include "orvexa/controller/controller.h"

namespace orvexa::controller {

using common::logger;

std::string Controller::get_panel_mode(const Panel& panel) const {
  const std::string module = panel.module_path();
  if (module.find(".batchprocessing_mode.") != std::string::npos) return "batch";
  if (module.find(".filewatcher_mode.") != std::string::npos) return "watcher";
  if (module.find(".analysis_mode.") != std::string::npos) return "analysis";
  return "all";
}

void Controller::register_panel(Panel& panel) {
  const std::string panel_name = panel.class_name();
  const std::string mode = get_panel_mode(panel);
  logger.info("Controller.register_panel: Registering panel " + panel_name);
  logger.debug(fmt::format("Controller.register_panel: Panel {} detected as mode: {}", panel_name, mode));
  _ui_panels.push_back(&panel);
}

// A refresh may register further panels, so the loops here go by index.

void Controller::refresh_all_panels() {
  const std::string current_mode = state.processing_mode.empty() ? "analysis" : state.processing_mode;
  logger.debug("Refreshing panels for mode: " + current_mode);
  int refreshed = 0;
  int skipped = 0;
  for (std::size_t i = 0; i < _ui_panels.size(); ++i) {
    Panel& panel = *_ui_panels[i];
    const std::string panel_name = panel.class_name();
    const std::string panel_mode = get_panel_mode(panel);
    if (panel_mode != current_mode && panel_mode != "all") {
      logger.debug(fmt::format("Skipping {} (panel mode: {}, current: {})", panel_name, panel_mode, current_mode));
      ++skipped;
    } else if (auto* able = dynamic_cast<Refreshable*>(&panel)) {
      logger.debug(fmt::format("Refreshing {} (mode: {})", panel_name, panel_mode));
      able->refresh();
      ++refreshed;
    } else {
      logger.warning(fmt::format("Panel {} has no refresh method", panel_name));
    }
  }
  logger.info(fmt::format("Refreshed {} panels, skipped {} for mode '{}'", refreshed, skipped, current_mode));
}

void Controller::refresh_only_status() {
  for (std::size_t i = 0; i < _ui_panels.size(); ++i) {
    Panel& panel = *_ui_panels[i];
    const std::string panel_name = panel.class_name();
    if (panel_name != "StatusBarPanel") continue;
    if (auto* able = dynamic_cast<Refreshable*>(&panel)) {
      logger.debug("Refreshing status panel " + panel_name);
      able->refresh();
    } else {
      logger.warning(fmt::format("Status panel {} has no refresh method", panel_name));
    }
  }
}

void Controller::refresh_specific_panel(const std::string& panel_name) {
  for (Panel* panel : _ui_panels) {
    if (panel->class_name() != panel_name) continue;
    if (auto* able = dynamic_cast<Refreshable*>(panel)) {
      logger.debug("Refreshing specific panel " + panel_name);
      able->refresh();
    } else {
      logger.warning(fmt::format("Panel {} has no refresh method", panel_name));
    }
    return;
  }
  logger.warning(fmt::format("Panel {} not found among registered panels", panel_name));
}

void Controller::set_processing_mode(const std::string& mode_str) {
  state.reset_system_state();
  refresh_all_panels();  // still by the mode that is left, so that its panels show the cleared state
  state.processing_mode = mode_str;
  state.message = "Processing mode set: " + mode_str;
  state.derive_phase();
}

}  // namespace orvexa::controller
