#include <stdexcept>

#include "orvexa/common/logger.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/failure_text.h"

namespace orvexa::controller {

void Controller::configure_watcher(const WatcherConfig& config) {
  state.watcher_config = config;
  state.message = "Watcher configured";
  state.derive_phase();
}

bool Controller::is_watcher_running() const {
  return state.watcher_running;
}

void Controller::start_watcher() {
  if (!state.watcher_config || state.watcher_config->input_dir.empty() || state.watcher_config->output_dir.empty() ||
      state.watcher_config->workflow_yaml_path.empty()) {
    throw std::runtime_error("Watcher not configured: set input_dir, output_dir, workflow_yaml_path");
  }
  const WatcherConfig config = *state.watcher_config;
  stop_watcher();
  _watcher = watcher_maker({.input_dir = config.input_dir,
                            .output_dir = config.output_dir,
                            .workflow_yaml_path = config.workflow_yaml_path,
                            .capture_loader = capture_loader,
                            .poll_seconds = config.poll_seconds,
                            .image_loader = image_loader,
                            .search = config.search,
                            .retries = config.retries,
                            .once = config.once,
                            .on_event = {}});
  _watcher->start();
  state.watcher_running = true;
  state.message = "Watcher started";
  state.derive_phase();
}

void Controller::stop_watcher() {
  if (_watcher) {
    try {
      _watcher->stop();
    } catch (...) {
      // It is forgotten all the same; only a developer can do something about a watcher that does not stop.
      common::logger.debug("Controller.stop_watcher: " + model::failure_text());
    }
  }
  _watcher.reset();
  state.watcher_running = false;
  state.message = "Watcher stopped";
  state.derive_phase();
}

}  // namespace orvexa::controller
