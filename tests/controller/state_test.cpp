#include "orvexa/controller/state.h"

#include <gtest/gtest.h>

#include "controller/fakes.h"

namespace orvexa::test {
namespace {

using controller::AppState;
using controller::Phase;

enum class Flow { none, empty, mask_step, result_step };
enum class Results { none, no_entries, some };

struct PhaseCase {
  const char* name;
  bool has_error;
  bool is_watching;
  Results results;
  bool has_capture;
  Flow workflow;
  Phase expected;
};

class PhaseTable : public testing::TestWithParam<PhaseCase> {};

TEST_P(PhaseTable, FollowsFromTheFieldsAlone) {
  const PhaseCase& given = GetParam();
  for (const Phase before : {Phase::EMPTY, Phase::CAPTURE_LOADED, Phase::WORKFLOW_READY, Phase::RESULTS_READY,
                             Phase::WATCHING, Phase::ERROR}) {
    AppState state;
    state.phase = before;
    if (given.has_error) state.error = "";
    state.watcher_running = given.is_watching;
    if (given.results != Results::none) state.last_results.emplace();
    if (given.results == Results::some) state.last_results->insert_or_assign("area", model::OperationResult());
    if (given.has_capture) state.current_capture = small_capture();
    if (given.workflow != Flow::none) {
      state.current_workflow = workflow_of(
          given.workflow == Flow::mask_step ? std::vector<std::string>{"erode"} : std::vector<std::string>{},
          given.workflow == Flow::result_step ? std::vector<std::string>{"area"} : std::vector<std::string>{});
    }
    state.derive_phase();
    EXPECT_EQ(state.phase, given.expected) << "from phase " << static_cast<int>(before);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Fields, PhaseTable,
    testing::Values(
        PhaseCase{"Nothing", false, false, Results::none, false, Flow::none, Phase::EMPTY},
        PhaseCase{"EmptyWorkflowWithoutCapture", false, false, Results::none, false, Flow::empty, Phase::EMPTY},
        PhaseCase{"MaskStepWithoutCapture", false, false, Results::none, false, Flow::mask_step, Phase::EMPTY},
        PhaseCase{"ResultStepWithoutCapture", false, false, Results::none, false, Flow::result_step, Phase::EMPTY},
        PhaseCase{"CaptureAlone", false, false, Results::none, true, Flow::none, Phase::CAPTURE_LOADED},
        PhaseCase{"CaptureAndEmptyWorkflow", false, false, Results::none, true, Flow::empty, Phase::CAPTURE_LOADED},
        PhaseCase{"CaptureAndMaskStep", false, false, Results::none, true, Flow::mask_step, Phase::WORKFLOW_READY},
        PhaseCase{"CaptureAndResultStep", false, false, Results::none, true, Flow::result_step, Phase::WORKFLOW_READY},
        PhaseCase{"ResultsWithoutCapture", false, false, Results::some, false, Flow::none, Phase::RESULTS_READY},
        PhaseCase{"ResultsOfAMaskOnlyRun", false, false, Results::no_entries, true, Flow::mask_step,
                  Phase::RESULTS_READY},
        PhaseCase{"ResultsAndEmptyWorkflow", false, false, Results::some, true, Flow::empty, Phase::RESULTS_READY},
        PhaseCase{"WatchingAlone", false, true, Results::none, false, Flow::none, Phase::WATCHING},
        PhaseCase{"WatchingWithCapture", false, true, Results::none, true, Flow::mask_step, Phase::WATCHING},
        PhaseCase{"WatchingWithResults", false, true, Results::some, true, Flow::mask_step, Phase::WATCHING},
        PhaseCase{"ErrorAlone", true, false, Results::none, false, Flow::none, Phase::ERROR},
        PhaseCase{"ErrorWithCapture", true, false, Results::none, true, Flow::none, Phase::ERROR},
        PhaseCase{"ErrorWithWorkflow", true, false, Results::none, true, Flow::mask_step, Phase::ERROR},
        PhaseCase{"ErrorWithResults", true, false, Results::some, true, Flow::mask_step, Phase::ERROR},
        PhaseCase{"ErrorWhileWatching", true, true, Results::some, true, Flow::mask_step, Phase::ERROR}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(AppState, StartsEmptyInAnalysisMode) {
  const AppState state;
  EXPECT_EQ(state.processing_mode, "analysis");
  EXPECT_EQ(state.phase, Phase::EMPTY);
  EXPECT_FALSE(state.current_folder || state.current_file || state.current_capture || state.current_workflow);
  EXPECT_FALSE(state.message || state.error || state.last_results || state.watcher_config);
  EXPECT_TRUE(state.mask_operation_params.is_object());
  EXPECT_FALSE(state.show_mask_preview || state.watcher_running || state.pick_mode.active);
}

struct FilledState : AppState {
  FilledState() {
    processing_mode = "batch";
    current_folder = "folder";
    current_file = "folder/file";
    current_capture = small_capture();
    current_workflow = workflow_of({"erode"});
    pipeline_step = 2;
    preview_step_index = 1;
    current_mask_operation = "erode";
    mask_operation_params = {{"radius", 3}};
    preview_mask = mask({"#"});
    preview_mask_images.emplace();
    show_mask_preview = true;
    enabled_operations_cache = {"area"};
    last_mask = mask({"#"});
    last_results.emplace();
    last_mask_notes = {{.step = 0, .op = "erode", .text = "a remark"}};
    last_saved_results_folder = "results";
    selected_image_context = "Raw Images > MSP";
    selected_image_name = "RED";
    batch_input_folder = "in";
    batch_file_list = {"in/a", "in/b"};
    batch_output_folder = "out";
    watcher_config = controller::WatcherConfig{.input_dir = "in", .poll_seconds = 5};
    watcher_running = true;
    pick_mode.active = true;
    message = "message";
    error = "error";
    phase = Phase::WATCHING;
  }
};

TEST(AppState, ResetClearsTheWorkOnOneCapture) {
  FilledState state;
  state.reset_system_state();
  EXPECT_EQ(state.current_folder, std::nullopt);
  EXPECT_EQ(state.current_file, std::nullopt);
  EXPECT_EQ(state.current_capture, nullptr);
  EXPECT_EQ(state.pipeline_step, std::nullopt);
  EXPECT_EQ(state.preview_step_index, std::nullopt);
  EXPECT_EQ(state.current_mask_operation, std::nullopt);
  EXPECT_EQ(state.mask_operation_params, Value::object());
  EXPECT_FALSE(state.preview_mask);
  EXPECT_FALSE(state.preview_mask_images);
  EXPECT_FALSE(state.show_mask_preview);
  EXPECT_FALSE(state.last_mask);
  EXPECT_FALSE(state.last_results);
  EXPECT_TRUE(state.last_mask_notes.empty());
  EXPECT_EQ(state.last_saved_results_folder, std::nullopt);
  EXPECT_EQ(state.selected_image_context, std::nullopt);
  EXPECT_EQ(state.selected_image_name, std::nullopt);
}

TEST(AppState, ResetKeepsWorkflowModeBatchWatcherAndPickMode) {
  FilledState state;
  const auto workflow = state.current_workflow;
  state.reset_system_state();
  EXPECT_EQ(state.current_workflow, workflow);
  EXPECT_EQ(keys_of(workflow->mask_operations), std::vector<std::string>{"erode"});
  EXPECT_EQ(state.enabled_operations_cache, std::vector<std::string>{"area"});
  EXPECT_EQ(state.processing_mode, "batch");
  EXPECT_EQ(state.batch_input_folder, "in");
  EXPECT_EQ(state.batch_file_list, (std::vector<std::filesystem::path>{"in/a", "in/b"}));
  EXPECT_EQ(state.batch_output_folder, "out");
  EXPECT_EQ(state.watcher_config, (controller::WatcherConfig{.input_dir = "in", .poll_seconds = 5}));
  EXPECT_TRUE(state.watcher_running);
  EXPECT_TRUE(state.pick_mode.active);
  EXPECT_EQ(state.message, "message");
  EXPECT_EQ(state.error, "error");
  EXPECT_EQ(state.phase, Phase::WATCHING);
}

}  // namespace
}  // namespace orvexa::test
