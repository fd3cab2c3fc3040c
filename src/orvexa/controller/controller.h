#pragma once

#include <array>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "orvexa/common/cancel.h"
#include "orvexa/common/files.h"
#include "orvexa/common/ordered_map.h"
#include "orvexa/common/value.h"
#include "orvexa/controller/batch_journal.h"
#include "orvexa/controller/batch_summary.h"
#include "orvexa/controller/panel.h"
#include "orvexa/controller/read_ahead.h"
#include "orvexa/controller/results_verification.h"
#include "orvexa/controller/state.h"
#include "orvexa/controller/ui_event_bus.h"
#include "orvexa/controller/viewer_geometry.h"
#include "orvexa/controller/watcher.h"
#include "orvexa/model/entities/capture_loader.h"
#include "orvexa/model/entities/capture_set.h"
#include "orvexa/model/entities/result_bundle.h"
#include "orvexa/model/mask.h"
#include "orvexa/model/mask_operations/mask_operation.h"
#include "orvexa/model/operation_base.h"
#include "orvexa/model/result_operations/result_operation.h"
#include "orvexa/model/workflow/executor.h"
#include "orvexa/model/workflow/model.h"
#include "orvexa/model/workflow/provenance.h"

namespace orvexa::controller {

using common::Path;
using common::Value;

/// The mediator between the hands (desktop, command line) and the model: it keeps the shared state, calls the model and
/// tells the UI what changed. Operations whose name begins with an underscore are internal: the ones above are built
/// from them, and a UI may use them to split an operation over threads.
///
/// Unless an operation says otherwise it catches every failure, logs it, puts a text into `state.error` and returns a
/// neutral value. Everything runs on the UI thread but `generate_results_v2` and `run_batch_processing`, which are made
/// for a worker thread.
class Controller {
 public:
  Controller() : Controller(std::make_unique<AppState>()) {}
  /// With a state of the caller's making.
  explicit Controller(std::unique_ptr<AppState> own_state);
  Controller(const Controller&) = delete;
  Controller& operator=(const Controller&) = delete;

 private:
  std::unique_ptr<AppState> _state;

 public:
  AppState& state;
  std::unique_ptr<model::Executor> executor;
  UIEventBus events;

 protected:
  std::unique_ptr<Watcher> _watcher;

 public:
  /// Loads everything that is not an ordinary image file.
  model::CaptureLoader capture_loader;
  /// Loads ordinary image files.
  model::CaptureLoader image_loader;
  /// Makes the watcher that `start_watcher` starts.
  WatcherMaker watcher_maker;

 protected:
  std::vector<Panel*> _ui_panels;  ///< in the order of registration
  /// Index of a mask step -> the capture after that step. Keyed by position alone: whatever changes the chain empties
  /// or cuts it.
  std::map<int, std::shared_ptr<model::CaptureSet>> _mask_result_cache;
  mutable ReadAhead _read_ahead;  ///< what `_do_load_capture` may find loaded already
  /// What `_compute_mask_step` may find computed already.
  struct PreparedStep {
    std::shared_ptr<const model::CaptureSet> input_capture;
    model::MaskOperationConfig mask_op_config;
    std::shared_ptr<model::CaptureSet> new_capture;  ///< null when it failed
    std::exception_ptr failure;
  };
  std::optional<PreparedStep> _prepared_step;

 public:
  // ---- State and model access (controller.cpp) ----------------------------------------------------------------------

  /// The current workflow. @throws std::runtime_error "No workflow loaded".
  [[nodiscard]] std::shared_ptr<model::Workflow> _wf();
  /// The current capture. @throws std::runtime_error "No capture loaded".
  [[nodiscard]] std::shared_ptr<model::CaptureSet> _cap();
  /// Phase ERROR, the text as `state.error`, no message.
  void _set_error(const std::string& msg);

  // What the registries answer; their failures reach the caller.
  [[nodiscard]] common::OrderedMap<const model::MaskOperationInfo*> get_mask_operations_list() const;
  [[nodiscard]] common::OrderedMap<const model::MaskOperationInfo*> get_available_mask_operations() const;
  [[nodiscard]] const model::MaskOperationInfo& get_mask_operation_class(std::string_view _operation_key) const;
  [[nodiscard]] std::vector<const model::MaskOperationInfo*> get_mask_operation_infos() const;
  [[nodiscard]] common::OrderedMap<std::vector<const model::ResultOperationInfo*>> get_result_operations_by_category()
      const;
  /// Null for an unknown key.
  [[nodiscard]] const model::ResultOperationInfo* get_result_operation_info(std::string_view _operation_key) const;
  [[nodiscard]] common::OrderedMap<const model::ResultOperationInfo*> get_available_result_operations() const;
  [[nodiscard]] std::type_identity<model::ParameterType> get_parameter_type_enum() const;
  [[nodiscard]] std::type_identity<model::ResultOperationInfo> get_result_operation_info_class() const;

  // ---- Panels and processing modes (panels.cpp) ---------------------------------------------------------------------

  /// "batch", "watcher" or "analysis" by the panel's module path; "all" for a panel of every mode.
  [[nodiscard]] std::string get_panel_mode(const Panel& panel) const;
  /// The panel must outlive the Controller. One that is registered twice is refreshed twice.
  void register_panel(Panel& panel);
  /// Refreshes the panels of the current processing mode and those of every mode. A failing panel ends it: the failure
  /// reaches the caller, as from the two below.
  void refresh_all_panels();
  /// Refreshes the panels of class "StatusBarPanel".
  void refresh_only_status();
  /// Refreshes the first panel of that class.
  void refresh_specific_panel(const std::string& panel_name);
  /// Clears the work on the current capture, refreshes the panels of the mode that is left, and stores the new mode. A
  /// panel's failure reaches the caller.
  void set_processing_mode(const std::string& mode_str);

  // ---- Reset and navigation (navigation.cpp) -----------------------------------------------------------------------

  /// Clears workflow, capture, masks, previews and results. Folder, file, processing mode, panels and watcher stay.
  void reset_system_state();
  /// Makes a folder current and no file. Failures of this and the next two reach the caller.
  void set_current_folder(const Path& folder);
  /// Makes a file current without loading it; another file than before clears the work on the one before.
  void set_current_file(const std::optional<Path>& file);
  void set_pipeline_step(std::optional<int> index);

  // ---- Capture loading (capture_loading.cpp) ------------------------------------------------------------------------

  struct CaptureLoadResult {
    std::shared_ptr<model::CaptureSet> capture_set;
    Path file_path;
  };
  /// Loads a capture or image file and makes it the current capture; an absent or empty path leaves no capture. After a
  /// failure there is no capture either.
  void load_capture_from_file(const std::optional<Path>& file_path);
  /// The loading alone, without any change of state; may run on any thread. Takes what was loaded ahead for this file.
  /// @throws std::runtime_error "Failed to load capture from FILE: REASON".
  [[nodiscard]] CaptureLoadResult _do_load_capture(const Path& file_path) const;
  /// Begins to load the file that comes next on a thread of its own. Call it when the current capture has taken the
  /// place of the one before: then there are two captures in memory at most. Logs nothing.
  /// @param cancel_event  may be null; must live until the file is loaded or `_stop_loading_ahead` returns.
  void _load_ahead(const Path& next_file, const common::CancelEvent* cancel_event = nullptr);
  /// Waits for a loader that runs ahead and drops what it gave.
  void _stop_loading_ahead();
  void _on_capture_load_success(const CaptureLoadResult& result);
  void _on_capture_load_error(const std::string& error_message);
  /// Asks the first panel that can to show its default image.
  void _trigger_auto_selection();

  // ---- Mask chain (mask_chain.cpp) ----------------------------------------------------------------------------------

  /// The capture after mask steps 0..mask_index, from the cache or computed into it; empty when there is no such step,
  /// no capture, or a step fails (which is logged).
  /// @param cancel_event  may be null; must outlive the call. @throws CancelledError once it is set.
  [[nodiscard]] std::shared_ptr<model::CaptureSet> get_mask_result(int mask_index,
                                                                   const common::CancelEvent* cancel_event = nullptr);
  /// Parameters of a mask step of the current workflow, or one that is to become such, with their files as absolute
  /// paths.
  [[nodiscard]] Value _resolved_mask_params(const std::string& op, const Value& params) const;
  /// One step on the capture that enters it. Nothing is cached; what `_prepare_mask_step` found for the same step on
  /// the same capture is taken.
  /// @param cancel_event  may be null; must outlive the call.
  /// @throws whatever the step throws; std::invalid_argument when it gives no mask.
  [[nodiscard]] std::shared_ptr<model::CaptureSet> _compute_mask_step(
      int mask_index, const model::CaptureSet& input_capture, const model::MaskOperationConfig& mask_op_config,
      const common::CancelEvent* cancel_event = nullptr);
  /// The last mask of the chain run on the bare images, up to but not including the first step with the given key (all
  /// steps when absent or empty). A failing step is logged and passed over. Absent when no step gave a mask.
  /// @param cancel_event  may be null; must outlive the call. @throws CancelledError once it is set.
  [[nodiscard]] std::optional<model::Mask> build_accumulated_mask(
      const std::optional<std::string>& up_to_but_not_including = std::nullopt,
      const common::CancelEvent* cancel_event = nullptr) const;
  /// A capture whose measurements show their images under their mask of that index; a measurement without it is the
  /// same object. Failures reach the caller.
  [[nodiscard]] std::shared_ptr<model::CaptureSet> _create_masked_capture_for_index(const model::CaptureSet& capture,
                                                                                    int mask_index) const;
  void clear_intermediate_results_cache();

  // ---- Mask steps (mask_steps.cpp) ----------------------------------------------------------------------------------

  /// Appends a step without looking at it. Failures of this and the next reach the caller.
  void add_mask_op(const std::string& op_name, const Value& params = Value::object());
  /// Changes a parameter of a step without looking at it; emptying the cache is the caller's duty.
  /// @throws std::out_of_range for a step that is not there; std::invalid_argument when its parameters are not a map.
  void update_mask_param(int index, const std::string& key, const Value& value);
  /// Checks and computes a step on top of the chain and only then appends it.
  /// @return the capture after the step, for `events.mask_operation_added`; empty without a capture or on failure.
  std::shared_ptr<model::CaptureSet> apply_mask_to_workflow(const std::string& operation_name, const Value& params);
  /// Works out ahead what `apply_mask_to_workflow` with the same arguments needs, so that it returns at once; a failing
  /// step fails there. For a worker thread that has the Controller to itself: it changes nothing that can be seen.
  /// @param cancel_event  may be null; must outlive the call. @throws CancelledError once it is set.
  void _prepare_mask_step(const std::string& operation_name, const Value& params,
                          const common::CancelEvent* cancel_event = nullptr);
  /// Whether the step was there and is gone.
  bool remove_mask_from_workflow(int mask_index);

  // ---- Mask preview (mask_preview.cpp) ------------------------------------------------------------------------------

  /// Chooses the operation that is tuned, with its defaults overlaid by `params`, and previews it.
  /// @throws std::invalid_argument for an unknown operation (nothing is changed then) or wrong parameters.
  void set_mask_operation(const std::string& operation_name, const std::optional<Value>& params = std::nullopt);
  /// Changes parameters of the operation that is tuned and previews it; does nothing when none is.
  /// @throws std::invalid_argument for wrong parameters.
  void update_mask_operation_params(const Value& params);
  /// Previews the operation that is tuned on the bare capture, without the workflow's steps.
  void update_mask_preview();
  void toggle_mask_preview(bool show);
  /// What `update_mask_preview` left, by measurement.
  [[nodiscard]] const std::optional<common::OrderedMap<PreviewImages>>& get_mask_preview_images() const;

  struct MaskPreview {
    std::optional<model::Mask> mask;
    std::unique_ptr<model::MaskOperation> operation;  ///< with what it made on the way: overlay, note
  };
  /// An operation on top of the workflow's steps before the first one with its key (a region of interest: on the bare
  /// capture). What earlier steps removed is not shown, even where the operation starts the chain afresh. Changes no
  /// state; of the steps before it a failing one is logged and passed over.
  /// @param cancel_event  may be null; must outlive the call.
  /// @throws std::runtime_error, std::invalid_argument, CancelledError: every failure reaches the caller.
  [[nodiscard]] MaskPreview run_mask_preview(const std::string& operation_name, const Value& params,
                                             const common::CancelEvent* cancel_event = nullptr) const;
  /// The same as the step that comes after all of the workflow's steps, whatever their keys. Their masks are cached, so
  /// that asking again with other parameters costs this step alone.
  /// @throws std::runtime_error also when one of them fails.
  [[nodiscard]] MaskPreview run_next_step_preview(const std::string& operation_name, const Value& params,
                                                  const common::CancelEvent* cancel_event = nullptr);
  /// Recipes of what the mask leaves of each image of the current capture; pixels are made when somebody reads them.
  [[nodiscard]] common::OrderedMap<PreviewImages> _generate_mask_preview_images(const model::Mask& mask_array,
                                                                                const std::string& operation_name,
                                                                                const Value& operation_params) const;

 private:
  /// A preview on the mask that `accumulated` gives; asked for only when the operation takes the chain.
  [[nodiscard]] MaskPreview preview_on(const std::function<std::optional<model::Mask>()>& accumulated,
                                       const std::string& operation_name, const Value& params,
                                       const common::CancelEvent* cancel_event) const;

 public:
  // ---- Intermediate results (intermediate_results.cpp) --------------------------------------------------------------

  struct MaskIntermediate {
    model::Mask mask;
    common::OrderedMap<model::ImageMap> masked_images;  ///< by measurement; copies of the maps
    model::MaskOperationConfig mask_operation;
    model::ProvenanceRecord provenance = {};  ///< where it came from
  };
  /// What the workflow's mask steps up to and including this one leave; absent past the last step, silently, or when it
  /// failed, which is logged; an index below 0 and a cancellation are failures. Changes no state, as the next.
  /// @param cancel_event  may be null; must outlive the call.
  [[nodiscard]] std::optional<MaskIntermediate> generate_mask_intermediate_results(
      int mask_index, const common::CancelEvent* cancel_event = nullptr);

  struct OperationIntermediate {
    model::OperationResult operation_result;
    model::ResultOperationConfig operation_config;
    std::shared_ptr<model::CaptureSet> masked_capture_used;
    model::ProvenanceRecord provenance = {};
  };
  /// What one result operation finds under all mask steps; absent as above.
  [[nodiscard]] std::optional<OperationIntermediate> generate_operation_intermediate_results(
      int operation_index, const common::CancelEvent* cancel_event = nullptr);

  // ---- Availability of result operations (result_availability.cpp) --------------------------------------------------

  /// Keys of the result operations that the current capture and the workflow's masks allow, in the registry's order;
  /// absent when that could not be found out (which is logged).
  [[nodiscard]] std::optional<std::vector<std::string>> _get_available_op_keys(const model::Workflow& workflow);
  [[nodiscard]] bool _check_measurement_requirements(const model::ResultOperationInfo& op_info,
                                                     const std::vector<std::string>& current_measurements) const;
  [[nodiscard]] bool _check_mask_requirements(const model::ResultOperationInfo& op_info,
                                              const std::vector<std::string>& workflow_mask_keys) const;
  /// Why a result operation cannot be used on the current capture with the workflow's mask steps, for menus: one
  /// sentence, which also tells missing bands, their widths, a missing scale and missing regions; absent when nothing
  /// speaks against it. Parameters are those of the workflow's entries, of which one that can be used is enough; where
  /// it has none they are the defaults, and a sentence that other parameters may do away with begins with
  /// `with_its_defaults`.
  /// @throws std::invalid_argument for an unknown key.
  [[nodiscard]] std::optional<std::string> explain_availability(std::string_view key) const;
  /// The same of a mask operation as the next step of the workflow.
  /// @param params  to ask about instead of those of the workflow's steps.
  [[nodiscard]] std::optional<std::string> explain_mask_availability(
      std::string_view key, const std::optional<Value>& params = std::nullopt) const;
  static constexpr std::string_view with_its_defaults = "With its defaults: ";
  /// Brings the workflow's result operations in line with what is available now: what became available is added once,
  /// what no longer is goes, what the user left out stays out.
  void handle_mask_dependencies();
  /// Makes the workflow's result operations the given ones, keeping the parameters of those it had.
  void sync_result_operations_to_workflow(const std::vector<std::string>& operation_keys);

  // ---- Results (results_generation.cpp) -----------------------------------------------------------------------------

  /// Runs the current workflow on the current capture and writes the outputs into a new folder inside `save_folder`.
  /// May run on a worker thread: it writes `state.last_results`, `state.last_mask_notes`,
  /// `state.last_saved_results_folder` and `state.error` there and calls `progress_cb` there.
  /// @param cancel_event  may be null; must outlive the call.
  /// @return whether the results are complete; false when it failed or was cancelled.
  bool generate_results_v2(const std::string& save_folder, const model::ProgressCallback& progress_cb = {},
                           const common::CancelEvent* cancel_event = nullptr);
  /// A copy of the workflow that shares nothing with it and has the given result operations with their defaults.
  [[nodiscard]] std::shared_ptr<model::Workflow> _prepare_workflow_for_execution(
      const model::Workflow& base_workflow, const std::vector<std::string>& operation_keys) const;
  /// Computes the results of a folder anew from the inputs and the workflow that it records, and compares. Changes no
  /// state; what is computed anew goes into a temporary folder that is removed.
  /// @throws std::runtime_error when it is no results folder or its record cannot be read; model::CancelledError.
  [[nodiscard]] Verification verify_results(const VerificationRequest& request) const;
  /// All numeric metrics as a text file. Failures to write reach the caller.
  void _save_numerical_results_to_txt(const model::ResultMap& results, const Path& file_path,
                                      const std::string& capture_name) const;

  // ---- Workflows and their files (workflow_files.cpp) ---------------------------------------------------------------

  std::shared_ptr<model::Workflow> new_empty_workflow(const std::string& title = "untitled");
  /// Makes a workflow current.
  /// @throws std::invalid_argument when it is empty; the workflow that was current stays.
  void set_workflow(const std::shared_ptr<model::Workflow>& workflow);
  void clear_workflow();
  bool save_workflow_to_file(const Path& file_path);
  /// After a failure the previous workflow is still current but has lost its mask steps.
  bool load_workflow_from_file(const Path& file_path);
  /// Failures of these two reach the caller.
  void export_workflow_yaml(const Path& file_path);
  std::shared_ptr<model::Workflow> import_workflow_yaml(const Path& file_path);

  // ---- Batch inputs (batch_inputs.cpp) ------------------------------------------------------------------------------

  /// Makes a folder of captures the batch input and lists its `HDR_*.INF` files; the work on a single file is cleared.
  void set_batch_input_folder(const std::optional<Path>& folder);
  /// The same for a folder of ordinary images.
  void set_batch_input_image_folder(const std::optional<Path>& folder);
  /// The files directly inside a folder, in ascending order; a folder that cannot be searched has none, which is
  /// logged.
  [[nodiscard]] std::vector<Path> _find_batch_hdr_files(const Path& folder) const;
  [[nodiscard]] std::vector<Path> _find_batch_image_files(const Path& folder) const;
  void set_batch_output_folder(const std::optional<Path>& folder);
  void set_batch_file_list(const std::optional<std::vector<Path>>& file_list = std::nullopt);

  // ---- Batch run (batch_run.cpp) ------------------------------------------------------------------------------------

  /// Metrics whose name ends so are lists and no columns of the combined table.
  static constexpr std::array<std::string_view, 1> BATCH_AGGREGATION_EXCLUDED_METRIC_SUFFIXES{".histogram.bins"};

  struct BatchRun {
    std::vector<Path> selected_files = {};
    Path output_folder = {};                           ///< the run folder is made inside it
    BatchProgressCallback progress_callback = {};      ///< before each file; may be empty, as the other two
    model::ProgressCallback overlay_progress_cb = {};  ///< steps inside a file
    const common::CancelEvent* cancel_event = nullptr;
    /// After each file, when its line is in the journal; one that fails is logged and the run goes on.
    BatchFileCallback batch_file_done = {};
    /// Of an earlier run that this one goes on with: taken into the journal and the combined table, not into the
    /// summary.
    BatchTakeover earlier = {};
  };
  /// Runs the current workflow on the files, one after another, into a new run folder with reports. A failing file is
  /// recorded and the run goes on. Runs on the caller's thread, usually a worker, and calls the callbacks there; the
  /// current capture and file are the same before and after.
  /// @throws std::runtime_error when the run folder cannot be made.
  BatchSummary run_batch_processing(const BatchRun& run);

  // ---- Folder watcher (watcher_control.cpp) -------------------------------------------------------------------------

  /// Takes effect at the next start.
  void configure_watcher(const WatcherConfig& config);
  [[nodiscard]] bool is_watcher_running() const;
  /// @throws std::runtime_error when the configuration is not complete, and what the watcher throws.
  void start_watcher();
  void stop_watcher();

  // ---- Picking on the image (pick_mode.cpp) -------------------------------------------------------------------------

  /// The viewer of the first panel that has one, or null.
  [[nodiscard]] ImageViewer* _get_image_viewer() const;
  /// Hands the viewer a drawing tool and disables every panel without a viewer. Failures of this and the next reach the
  /// caller.
  void enter_pick_mode(const model::Interaction& interaction, const std::string& operation_key, PickCallback callback,
                       int existing_count = 0);
  /// Restores viewer and panels, then tells who asked what was drawn; without a geometry nobody is told.
  void exit_pick_mode(const std::optional<ViewerGeometry>& geometry = std::nullopt);
  /// Viewer pixels as fractions of the image; absent for a mode without a geometry and for an image without pixels.
  /// @param image_shape  height and width. @throws std::invalid_argument when it has another length.
  [[nodiscard]] std::optional<PickGeometry> _qt_geometry_to_pick(const std::string& mode,
                                                                 const ViewerGeometry& qt_geometry,
                                                                 const std::vector<int>& image_shape) const;

  // ---- Image display (image_display.cpp) ----------------------------------------------------------------------------

  /// Asks the viewer, over the event bus, to show an image.
  /// @param context_info  the tab it belongs to, "Raw Images > CLR".
  void show_image_in_viewer(const model::ImageEntry& image_data, const std::string& context_info,
                            const std::string& measurement_type = "Unknown", const std::string& image_key = "Unknown");
  void show_image_in_viewer_without_refresh(const model::ImageEntry& image_data, const std::string& context_info,
                                            const std::string& measurement_type = "Unknown",
                                            const std::string& image_key = "Unknown");
};

}  // namespace orvexa::controller
