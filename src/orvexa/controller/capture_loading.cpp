#include <fmt/format.h>

#include <stdexcept>
#include <utility>

#include "orvexa/common/files.h"
#include "orvexa/common/logger.h"
#include "orvexa/controller/applied_masks.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/failure_text.h"

namespace orvexa::controller {

using common::logger;
using common::path_text;
using model::failure_text;

void Controller::load_capture_from_file(const std::optional<Path>& file_path) {
  const std::string file_text = file_path ? path_text(*file_path) : "None";
  logger.info("Controller.load_capture_from_file: Loading capture from " + file_text);
  if (!file_path || file_path->empty()) {
    state.current_capture.reset();
    state.message = "No file selected";
    state.derive_phase();
    return;
  }
  if (state.current_capture) {
    if (const std::size_t count = applied_mask_count(*state.current_capture); count > 0) {
      logger.warning(
          fmt::format("MASK LOSS WARNING: load_capture_from_file() called while {} masks are applied! Current: {}, "
                      "Loading: {}",
                      count, state.current_capture->name, file_text));
    }
  }
  try {
    _on_capture_load_success(_do_load_capture(*file_path));
  } catch (...) {
    _on_capture_load_error(failure_text());
  }
}

Controller::CaptureLoadResult Controller::_do_load_capture(const Path& file_path) const {
  const std::string file_text = path_text(file_path);
  try {
    const bool is_image = model::is_image_file_name(file_path);
    logger.info((is_image ? "Loading as image file: " : "Loading using standard capture loader: ") + file_text);
    auto loaded = _read_ahead.take(file_path);
    if (!loaded) loaded = is_image ? image_loader(file_path) : capture_loader(file_path);
    return {.capture_set = std::move(*loaded), .file_path = file_path};
  } catch (...) {
    throw std::runtime_error(fmt::format("Failed to load capture from {}: {}", file_text, failure_text()));
  }
}

void Controller::_load_ahead(const Path& next_file, const common::CancelEvent* cancel_event) {
  _read_ahead.begin(next_file, model::is_image_file_name(next_file) ? image_loader : capture_loader, cancel_event);
}

void Controller::_stop_loading_ahead() {
  _read_ahead.drop();
}

void Controller::_on_capture_load_success(const CaptureLoadResult& result) {
  try {
    const std::shared_ptr<model::CaptureSet> capture_set = result.capture_set;
    if (!capture_set) throw std::runtime_error("The loader gave no capture.");
    if (state.current_capture) {
      if (const std::size_t count = applied_mask_count(*state.current_capture); count > 0) {
        logger.warning(
            fmt::format("MASK LOSS WARNING: _on_capture_load_success() replacing capture with {} masks! Old: {}, "
                        "New: {}",
                        count, state.current_capture->name, capture_set->name));
      }
    }
    state.current_capture = capture_set;
    _mask_result_cache.clear();
    state.message = fmt::format("Loaded capture: {} with {} measurements", capture_set->name,
                                capture_set->get_measurement_types().size());
    state.error.reset();
    // A batch or a watcher brings the workflow of its file, which must run as it is.
    if (state.processing_mode != "batch" && state.processing_mode != "watcher") {
      if (!state.current_workflow) state.current_workflow = model::new_workflow(capture_set->name);
      handle_mask_dependencies();
    }
    state.derive_phase();
  } catch (...) {
    const std::string reason = failure_text();
    logger.error("Error in capture load success handler: " + reason);
    _on_capture_load_error("Error processing loaded capture: " + reason);
  }
}

void Controller::_on_capture_load_error(const std::string& error_message) {
  try {
    logger.error("Capture loading failed: " + error_message);
    state.current_capture.reset();
    _mask_result_cache.clear();
    state.error = error_message;
    state.message = "Failed to load capture: " + error_message;
    state.derive_phase();
  } catch (...) {
    logger.error("Error in capture load error handler: " + failure_text());
  }
}

void Controller::_trigger_auto_selection() {
  try {
    logger.info("Controller._trigger_auto_selection: Looking for measurements panel");
    for (Panel* panel : _ui_panels) {
      if (auto* able = dynamic_cast<SelectsDefaultImage*>(panel)) {
        logger.info("Controller._trigger_auto_selection: Found measurements panel, triggering auto-selection");
        able->auto_select_default_image();
        return;
      }
    }
    logger.warning("Controller._trigger_auto_selection: No measurements panel found");
  } catch (...) {
    logger.error("Controller._trigger_auto_selection: Error - " + failure_text());
  }
}

}  // namespace orvexa::controller
