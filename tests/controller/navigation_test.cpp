#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "support/log_capture.h"

namespace orvexa::test {
namespace {

using controller::EventConnection;
using controller::Phase;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string reset_line = "info: Controller.reset_system_state: Resetting system state...";
const std::string done_line = "info: Controller.reset_system_state: System state reset completed";

/// A state in which every field holds something.
void fill(controller::AppState& state) {
  state.processing_mode = "batch";
  state.current_folder = "/data";
  state.current_file = "/data/HDR_plot.INF";
  state.current_capture = small_capture();
  state.current_workflow = workflow_of({"erode"});
  state.pipeline_step = 2;
  state.preview_step_index = 1;
  state.current_mask_operation = "erode";
  state.mask_operation_params = {{"radius", 2}};
  state.preview_mask = mask({"#..", "#.."});
  state.preview_mask_images.emplace();
  state.show_mask_preview = true;
  state.last_mask = mask({"#..", "#.."});
  state.enabled_operations_cache = {"area"};
  state.last_results.emplace();
  state.last_mask_notes = {{.step = 0, .op = "erode", .text = "empty"}};
  state.last_saved_results_folder = "/out/plot";
  state.selected_image_context = "Raw Images > CLR";
  state.selected_image_name = "RGB";
  state.batch_input_folder = "/in";
  state.batch_file_list.emplace();
  state.batch_output_folder = "/out";
  state.watcher_config.emplace();
  state.watcher_running = true;
  state.pick_mode.active = true;
  state.message = "before";
  state.error = "an old error";
  state.phase = Phase::RESULTS_READY;
}

/// Fails at every log line with that text while it lives.
common::LogObserver failing_log(const std::string& text) {
  return common::LogObserver([text](const common::LogRecord& record) {
    if (record.text == text) throw std::runtime_error("the log is full");
  });
}

// ---- Reset
// -----------------------------------------------------------------------------------------------------------

TEST(SystemReset, ClearsWorkflowCaptureMasksPreviewsAndResultsAndSaysSo) {
  Probe controller;
  fill(controller.state);
  controller._mask_result_cache[0] = small_capture();
  const LogCapture log;
  controller.reset_system_state();
  const controller::AppState& state = controller.state;
  EXPECT_EQ(state.current_workflow, nullptr);
  EXPECT_EQ(state.current_capture, nullptr);
  EXPECT_THAT(cached_indices(controller), IsEmpty());
  EXPECT_FALSE(state.pipeline_step || state.preview_step_index || state.current_mask_operation);
  EXPECT_EQ(state.mask_operation_params, Value::object()) << "empty, not absent";
  EXPECT_FALSE(state.preview_mask || state.preview_mask_images || state.show_mask_preview || state.last_mask);
  EXPECT_FALSE(state.last_results || state.last_saved_results_folder);
  EXPECT_TRUE(state.last_mask_notes.empty());
  EXPECT_FALSE(state.selected_image_context || state.selected_image_name);
  EXPECT_EQ(state.error, std::nullopt);
  EXPECT_EQ(state.message, "System state reset - ready for new file/folder");
  EXPECT_THAT(log.lines(), ElementsAre(reset_line, done_line));
}

TEST(SystemReset, LeavesFolderFileModeBatchWatcherPickModeAvailableOperationsAndPhaseAlone) {
  Probe controller;
  fill(controller.state);
  controller.reset_system_state();
  const controller::AppState& state = controller.state;
  EXPECT_EQ(state.processing_mode, "batch");
  EXPECT_EQ(state.current_folder, "/data");
  EXPECT_EQ(state.current_file, "/data/HDR_plot.INF");
  EXPECT_TRUE(state.batch_input_folder && state.batch_file_list && state.batch_output_folder);
  EXPECT_TRUE(state.watcher_config && state.watcher_running);
  EXPECT_TRUE(state.pick_mode.active);
  EXPECT_THAT(state.enabled_operations_cache, ElementsAre("area"));
  EXPECT_EQ(state.phase, Phase::RESULTS_READY);
}

TEST(SystemReset, RefreshesNoPanelEmitsNoEventAndAsksTheStateForNothing) {
  auto own_state = std::make_unique<ScriptedState>();
  int calls = 0;
  own_state->on_reset = own_state->on_derive = [&](ScriptedState&) { ++calls; };
  Probe controller(std::move(own_state));
  RefreshedPanel status("StatusBarPanel", shared_module);
  controller.register_panel(status);
  int events = 0;
  const EventConnection removed(controller.events.mask_operation_removed.connect([&](int) { ++events; }));
  const EventConnection changed(controller.events.workflow_result_operations_changed.connect([&] { ++events; }));
  const EventConnection picked(controller.events.pick_mode_changed.connect([&](bool) { ++events; }));
  controller.reset_system_state();
  EXPECT_EQ(status.refreshes, 0);
  EXPECT_EQ(events, 0);
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(controller._ui_panels, ElementsAre(&status));
}

TEST(SystemReset, ACaptureWithTwoAndThreeMasksIsWarnedOfWithFiveBeforeItIsCleared) {
  Probe controller;
  controller.state.current_capture = capture_with_masks("plot", {{"CLR", 2}, {"GRY", 0}, {"MSP", 3}});
  const LogCapture log;
  controller.reset_system_state();
  EXPECT_EQ(controller.state.current_capture, nullptr);
  EXPECT_THAT(log.lines(), ElementsAre(reset_line,
                                       "warning: MASK LOSS WARNING: reset_system_state() clearing capture with 5 "
                                       "applied masks!",
                                       done_line));
}

TEST(SystemReset, WithoutACaptureNobodyIsWarned) {
  Probe controller;
  const LogCapture log;
  controller.reset_system_state();
  EXPECT_THAT(log.lines(), ElementsAre(reset_line, done_line));
}

TEST(SystemReset, AFailureWithinIsLoggedAndBecomesTheErrorWhileWhatWasClearedStaysCleared) {
  Probe controller;
  fill(controller.state);
  const common::LogObserver failing = failing_log("Controller.reset_system_state: System state reset completed");
  const LogCapture log;
  controller.reset_system_state();
  EXPECT_THAT(log.lines(), Contains("error: Controller.reset_system_state: Error resetting state - the log is full"));
  EXPECT_EQ(controller.state.error, "Failed to reset system state: the log is full");
  EXPECT_EQ(controller.state.current_workflow, nullptr);
  EXPECT_EQ(controller.state.selected_image_name, std::nullopt);
}

TEST(SystemReset, AFailureBeforeTheFirstFieldIsClearedReachesTheCaller) {
  Probe controller;
  controller.state.current_capture = capture_with_masks("plot", {{"CLR", 1}});
  const common::LogObserver failing =
      failing_log("MASK LOSS WARNING: reset_system_state() clearing capture with 1 applied masks!");
  EXPECT_THROW(controller.reset_system_state(), std::runtime_error);
  EXPECT_NE(controller.state.current_capture, nullptr);
  EXPECT_EQ(controller.state.error, std::nullopt);
}

// ---- Folder and file
// -------------------------------------------------------------------------------------------------

/// A controller whose state counts its resets and derivations and keeps what the fields held at each of them.
class Navigation : public testing::Test {
 protected:
  Navigation() {
    scripted.on_reset = [this](ScriptedState& state) { steps.push_back("reset with " + position(state)); };
    scripted.on_derive = [this](ScriptedState& state) { steps.push_back("derive with " + position(state)); };
  }

  static std::string position(const ScriptedState& state) {
    return state.current_folder.value_or("no folder").string() + ", " +
           state.current_file.value_or("no file").string() + ", " + state.message.value_or("no message") + ", " +
           state.error.value_or("no error");
  }

  Probe controller{std::make_unique<ScriptedState>()};
  ScriptedState& scripted = dynamic_cast<ScriptedState&>(controller.state);
  std::vector<std::string> steps;
};

TEST_F(Navigation, SettingAFolderResetsTheStateThenMovesThenDerivesThePhase) {
  fill(controller.state);
  controller.state.watcher_running = false;
  controller.set_current_folder("/data/tray 7");
  EXPECT_THAT(steps, ElementsAre("reset with /data, /data/HDR_plot.INF, before, an old error",
                                 "derive with /data/tray 7, no file, Folder set: /data/tray 7 \"No file selected\", "
                                 "no error"));
  EXPECT_EQ(controller.state.current_capture, nullptr);
  EXPECT_EQ(controller.state.phase, Phase::EMPTY);
}

TEST_F(Navigation, SettingTheFolderThatIsCurrentStillClearsTheFile) {
  fill(controller.state);
  const std::string folder = "/data/a name too long to be stored inside the state";
  controller.state.current_folder = folder;
  controller.set_current_folder(*controller.state.current_folder);
  EXPECT_EQ(controller.state.current_folder, folder);
  EXPECT_EQ(controller.state.current_file, std::nullopt);
  EXPECT_EQ(controller.state.message, "Folder set: " + folder + " \"No file selected\"");
}

TEST_F(Navigation, SettingAFileWhereNoneWasCurrentKeepsTheStateAndLoadsNothing) {
  fill(controller.state);
  controller.state.current_file.reset();
  const auto capture = controller.state.current_capture;
  controller.set_current_file("/data/b.png");
  EXPECT_THAT(steps, ElementsAre("derive with /data, /data/b.png, File set: b.png, no error"));
  EXPECT_EQ(controller.state.current_capture, capture);
  EXPECT_TRUE(controller.state.preview_mask);
}

TEST_F(Navigation, SettingTheSameFileTwiceResetsNothingTheSecondTime) {
  controller.set_current_file("/data/a.png");
  controller.state.current_capture = small_capture();
  controller.state.error = "an old error";
  steps.clear();
  controller.set_current_file("/data/a.png");
  EXPECT_THAT(steps, ElementsAre("derive with no folder, /data/a.png, File set: a.png, no error"));
  EXPECT_NE(controller.state.current_capture, nullptr);
}

TEST_F(Navigation, SettingAnotherFileResetsTheStateFirst) {
  fill(controller.state);
  controller.set_current_file("/data/b.png");
  EXPECT_THAT(steps, ElementsAre("reset with /data, /data/HDR_plot.INF, before, an old error",
                                 "derive with no folder, /data/b.png, File set: b.png, no error"));
  EXPECT_EQ(controller.state.current_capture, nullptr);
}

TEST_F(Navigation, SettingNoFileAfterOneWasCurrentResetsAndSaysThatNoneIsSelected) {
  fill(controller.state);
  controller.set_current_file(std::nullopt);
  EXPECT_THAT(steps, ElementsAre("reset with /data, /data/HDR_plot.INF, before, an old error",
                                 "derive with no folder, no file, No file selected, no error"));
}

TEST_F(Navigation, SettingNoFileWhereNoneWasCurrentResetsNothing) {
  controller.set_current_file(std::nullopt);
  EXPECT_THAT(steps, ElementsAre("derive with no folder, no file, No file selected, no error"));
}

TEST_F(Navigation, AFileOfTheSameNameInAnotherFolderIsAnotherFile) {
  controller.set_current_file("/data/a.png");
  controller.state.current_capture = small_capture();
  controller.set_current_file("/elsewhere/a.png");
  EXPECT_EQ(controller.state.current_capture, nullptr);
}

TEST_F(Navigation, NeitherFolderNorFileLogsAnythingOrRefreshesAPanel) {
  RefreshedPanel status("StatusBarPanel", shared_module);
  controller.register_panel(status);
  const LogCapture log;
  controller.set_current_folder("/data");
  controller.set_current_file("/data/a.png");
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(status.refreshes, 0);
}

TEST_F(Navigation, AStateThatCannotResetItselfFailsToTheCallerBeforeAnythingMoved) {
  fill(controller.state);
  scripted.on_reset = [](ScriptedState&) { throw std::runtime_error("no reset"); };
  EXPECT_THROW(controller.set_current_folder("/other"), std::runtime_error);
  EXPECT_THROW(controller.set_current_file("/other/a.png"), std::runtime_error);
  EXPECT_EQ(controller.state.current_folder, "/data");
  EXPECT_EQ(controller.state.current_file, "/data/HDR_plot.INF");
  EXPECT_EQ(controller.state.message, "before");
}

TEST_F(Navigation, AStateThatCannotDeriveItsPhaseFailsToTheCallerAfterEverythingMoved) {
  scripted.on_derive = [](ScriptedState&) { throw std::runtime_error("no phase"); };
  EXPECT_THROW(controller.set_current_folder("/data"), std::runtime_error);
  EXPECT_EQ(controller.state.current_folder, "/data");
  EXPECT_THROW(controller.set_current_file("/data/a.png"), std::runtime_error);
  EXPECT_EQ(controller.state.current_file, "/data/a.png");
}

// ---- Pipeline step
// ---------------------------------------------------------------------------------------------------

TEST(PipelineStep, IsLoggedAndStoredAndOnlyTheStatusPanelIsRefreshedAfterwards) {
  Probe controller;
  std::optional<int> seen;
  RefreshedPanel status("StatusBarPanel", shared_module, [&] { seen = controller.state.pipeline_step; });
  RefreshedPanel masks("MaskPanel", analysis_module);
  controller.register_panel(status);
  controller.register_panel(masks);
  const LogCapture log;
  controller.set_pipeline_step(3);
  EXPECT_EQ(seen, 3);
  EXPECT_EQ(status.refreshes, 1);
  EXPECT_EQ(masks.refreshes, 0);
  EXPECT_THAT(log.lines(), ElementsAre("info: Controller.set_pipeline_step: Setting pipeline step to 3",
                                       "debug: Refreshing status panel StatusBarPanel"));
}

TEST(PipelineStep, NoStepIsLoggedAsNone) {
  Probe controller;
  controller.state.pipeline_step = 3;
  const LogCapture log;
  controller.set_pipeline_step(std::nullopt);
  EXPECT_EQ(controller.state.pipeline_step, std::nullopt);
  EXPECT_THAT(log.lines(), ElementsAre("info: Controller.set_pipeline_step: Setting pipeline step to None"));
}

TEST(PipelineStep, AFailingStatusPanelFailsToTheCallerWithTheStepStored) {
  Probe controller;
  RefreshedPanel status("StatusBarPanel", shared_module, [] { throw std::runtime_error("no screen"); });
  controller.register_panel(status);
  EXPECT_THROW(controller.set_pipeline_step(1), std::runtime_error);
  EXPECT_EQ(controller.state.pipeline_step, 1);
}

}  // namespace
}  // namespace orvexa::test
