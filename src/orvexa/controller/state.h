#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvexa/common/ordered_map.h"
#include "orvexa/common/value.h"
#include "orvexa/controller/pick_mode_state.h"
#include "orvexa/controller/watcher.h"
#include "orvexa/model/entities/capture_set.h"
#include "orvexa/model/entities/image_entry.h"
#include "orvexa/model/entities/result_bundle.h"
#include "orvexa/model/mask.h"
#include "orvexa/model/workflow/model.h"

namespace orvexa::controller {

/// Where the user stands.
enum class Phase { EMPTY, CAPTURE_LOADED, WORKFLOW_READY, RESULTS_READY, WATCHING, ERROR };

/// What a mask preview shows of one measurement: recipes, worked out when a viewer asks for the pixels.
struct PreviewImages {
  model::ImageMap masked_images;
  model::ImageMap overlay_images;
  std::optional<model::Image> mask_preview;
};

/// The one shared state of the application: plain fields that the Controller reads and writes and that panels read when
/// they are refreshed.
class AppState {
 public:
  AppState() = default;
  virtual ~AppState() = default;
  AppState(const AppState&) = delete;
  AppState& operator=(const AppState&) = delete;

  /// "analysis", "batch" or "watcher"; empty counts as "analysis".
  std::string processing_mode = "analysis";

  std::optional<std::filesystem::path> current_folder;
  std::optional<std::filesystem::path> current_file;
  std::shared_ptr<model::CaptureSet> current_capture;
  std::shared_ptr<model::Workflow> current_workflow;

  std::optional<int> pipeline_step;

  std::optional<int> preview_step_index;
  std::optional<std::string> current_mask_operation;  ///< registry key of the operation being tuned
  common::Value mask_operation_params = common::Value::object();
  std::optional<model::Mask> preview_mask;
  std::optional<common::OrderedMap<PreviewImages>> preview_mask_images;  ///< by measurement
  bool show_mask_preview = false;
  std::optional<model::Mask> last_mask;

  /// Keys of the result operations that were available when last asked for; the order means nothing.
  std::vector<std::string> enabled_operations_cache;

  std::optional<model::ResultMap> last_results;
  std::vector<model::MaskNote> last_mask_notes;  ///< what the mask steps of the last run remarked
  std::optional<std::string> last_saved_results_folder;

  std::optional<std::string> selected_image_context;
  std::optional<std::string> selected_image_name;

  std::optional<std::filesystem::path> batch_input_folder;
  std::optional<std::vector<std::filesystem::path>> batch_file_list;
  std::optional<std::filesystem::path> batch_output_folder;

  std::optional<WatcherConfig> watcher_config;
  bool watcher_running = false;

  PickModeState pick_mode;

  std::optional<std::string> message;  ///< the status line
  std::optional<std::string> error;
  Phase phase = Phase::EMPTY;

  /// Recomputes `phase` from the other fields; the first of these that holds decides: an error is set, the watcher
  /// runs, there are results, there is a capture and a workflow with at least one step (of either kind), there is a
  /// capture, else EMPTY.
  virtual void derive_phase();

  /// Clears what belongs to the work on one capture: folder, file and capture, pipeline step, previews, last mask, last
  /// results with their notes and where they were saved, the selected image. The workflow, the available operations,
  /// the processing mode, batch, watcher, pick mode, message, error and phase stay.
  virtual void reset_system_state();
};

}  // namespace orvexa::controller
