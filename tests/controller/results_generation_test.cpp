#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>

#include "controller/fakes.h"
#include "orvexa/common/clock.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

using controller::Phase;
using testing::ElementsAre;
using testing::IsEmpty;

class FakeExecutor final : public model::Executor {
 public:
  model::RunOutput run_and_save(const Run& run) override {
    runs.push_back(run);
    if (on_run) on_run();
    return output;
  }
  std::vector<Run> runs;
  std::function<void()> on_run;
  model::RunOutput output;
};

model::OperationResult with_metrics(const Value& metrics) {
  model::OperationResult result;
  result.metrics = metrics;
  return result;
}

class ResultsGeneration : public testing::Test {
 protected:
  ResultsGeneration() {
    controller.state.current_capture = capture;
    controller.state.current_workflow = workflow;
    executor.output.bundle.results.insert_or_assign("area", with_metrics({{"area", 3}}));
    executor.output.mask_notes = {{.step = 1, .op = "dilate", .text = "a remark"}};
    executor.output.results_folder = "out/plot_0007";
  }

  Probe controller;
  FakeExecutor& executor = *[this] {
    auto made = std::make_unique<FakeExecutor>();
    FakeExecutor* made_pointer = made.get();
    controller.executor = std::move(made);
    return made_pointer;
  }();
  std::shared_ptr<model::CaptureSet> capture = small_capture("plot_0007");
  std::shared_ptr<model::Workflow> workflow = workflow_of({"erode", "dilate"}, {"area"});
};

TEST_F(ResultsGeneration, HandsTheCurrentCaptureAndWorkflowToTheExecutorUntouched) {
  std::vector<std::string> messages;
  const common::CancelEvent cancel;
  EXPECT_TRUE(controller.generate_results_v2(
      "out", [&](const std::string& text) { messages.push_back(text); }, &cancel));
  ASSERT_EQ(executor.runs.size(), 1U);
  const auto& run = executor.runs[0];
  EXPECT_EQ(run.capture, capture);
  EXPECT_EQ(run.wf, workflow);
  EXPECT_EQ(run.output_base_dir, "out");
  EXPECT_EQ(run.capture_name, "plot_0007");
  EXPECT_EQ(run.cancel_event, &cancel);
  EXPECT_THAT(messages, IsEmpty()) << "progress is the executor's to report";
  run.progress_cb("Mask 1 of 2: erode");
  EXPECT_THAT(messages, ElementsAre("Mask 1 of 2: erode"));
}

TEST_F(ResultsGeneration, WithoutCallbackAndFlagTheExecutorGetsNone) {
  EXPECT_TRUE(controller.generate_results_v2("out"));
  EXPECT_FALSE(executor.runs[0].progress_cb);
  EXPECT_EQ(executor.runs[0].cancel_event, nullptr);
}

TEST_F(ResultsGeneration, ASuccessStoresResultsAndFolderClearsTheErrorAndLogsItsSteps) {
  controller.state.error = "older";
  const LogCapture log;
  EXPECT_TRUE(controller.generate_results_v2("out"));
  ASSERT_TRUE(controller.state.last_results);
  EXPECT_EQ(controller.state.last_results->at("area").metrics, (Value{{"area", 3}}));
  ASSERT_EQ(controller.state.last_mask_notes.size(), 1U);
  EXPECT_EQ(controller.state.last_mask_notes[0].text, "a remark");
  EXPECT_EQ(controller.state.last_saved_results_folder, "out/plot_0007");
  EXPECT_EQ(controller.state.error, std::nullopt);
  EXPECT_EQ(controller.state.phase, Phase::EMPTY) << "the caller derives the phase on the UI thread";
  EXPECT_THAT(log.lines(),
              ElementsAre("info: === STARTING RESULTS GENERATION V2 ===", "info: Save folder: out",
                          "info: Executing workflow with 2 mask operations and 1 result operations",
                          "info: === RESULTS GENERATION V2 COMPLETED ===", "info: Results saved to: out/plot_0007"));
}

TEST_F(ResultsGeneration, AWorkflowWithNoResultOperationsStillRuns) {
  workflow->result_operations.clear();
  const LogCapture log;
  EXPECT_TRUE(controller.generate_results_v2("out"));
  EXPECT_EQ(executor.runs.size(), 1U);
  EXPECT_EQ(log.lines()[2], "info: Executing workflow with 2 mask operations and 0 result operations");
}

TEST_F(ResultsGeneration, WithoutACaptureNothingRunsAndTheStateIsUnchanged) {
  controller.state.current_capture.reset();
  controller.state.current_workflow.reset();
  controller.state.error = "older";
  const LogCapture log;
  EXPECT_FALSE(controller.generate_results_v2("out"));
  EXPECT_THAT(executor.runs, IsEmpty());
  EXPECT_EQ(controller.state.error, "older");
  EXPECT_FALSE(controller.state.last_results);
  EXPECT_THAT(log.lines(), ElementsAre("info: === STARTING RESULTS GENERATION V2 ===", "info: Save folder: out",
                                       "error: No capture data loaded"));
}

TEST_F(ResultsGeneration, WithoutAWorkflowNothingRuns) {
  controller.state.current_workflow.reset();
  const LogCapture log;
  EXPECT_FALSE(controller.generate_results_v2("out"));
  EXPECT_THAT(executor.runs, IsEmpty());
  EXPECT_EQ(controller.state.error, std::nullopt);
  EXPECT_EQ(log.lines().back(), "error: No workflow loaded");
}

TEST_F(ResultsGeneration, AFailureIsLoggedWithItsTraceAndABlankAtTheEndAndKeepsTheLastResults) {
  ASSERT_TRUE(controller.generate_results_v2("out"));
  controller.state.message = "before";
  executor.on_run = [] { throw std::runtime_error("erode (step 1): no mask."); };
  const LogCapture log;
  EXPECT_FALSE(controller.generate_results_v2("elsewhere"));
  EXPECT_EQ(log.lines().back(),
            "exception: Controller.generate_results_v2: Error generating results - erode (step 1): no mask. ");
  EXPECT_EQ(controller.state.error, "Results generation failed: erode (step 1): no mask.");
  EXPECT_EQ(controller.state.phase, Phase::EMPTY);
  EXPECT_EQ(controller.state.message, "before");
  EXPECT_EQ(controller.state.last_results->at("area").metrics, (Value{{"area", 3}}));
  EXPECT_EQ(controller.state.last_saved_results_folder, "out/plot_0007");
}

TEST_F(ResultsGeneration, AFailureThatIsNoExceptionObjectIsReportedToo) {
  executor.on_run = [] { throw 42; };
  EXPECT_FALSE(controller.generate_results_v2("out"));
  EXPECT_EQ(controller.state.error, "Results generation failed: It failed without saying why.");
}

TEST_F(ResultsGeneration, ACancellationIsNoErrorWhateverTheCaseOfItsText) {
  for (const char* text :
       {"Processing cancelled by user", "Processing Cancelled By User", "CANCELLED BY USER (step 2)"}) {
    controller.state.error = "older";
    executor.on_run = [text] { throw std::runtime_error(text); };
    const LogCapture log;
    EXPECT_FALSE(controller.generate_results_v2("out"));
    EXPECT_EQ(controller.state.error, "older");
    EXPECT_FALSE(controller.state.last_results);
    EXPECT_EQ(log.lines().back(), "info: Controller.generate_results_v2: Operation cancelled by user");
  }
}

TEST_F(ResultsGeneration, AnotherCancellationIsAnError) {
  executor.on_run = [] { throw std::runtime_error("cancelled by the system"); };
  EXPECT_FALSE(controller.generate_results_v2("out"));
  EXPECT_EQ(controller.state.error, "Results generation failed: cancelled by the system");
}

// ---- A workflow of chosen result operations
// --------------------------------------------------------------------------

TEST_F(ResultsGeneration, APreparedWorkflowHasTheChosenOperationsWithTheirDefaultsAndSharesNothing) {
  workflow->mask_operations[0].params = {{"radius", 2}};
  workflow->result_operations[0].params = {{"scale", 2}};
  const LogCapture log;
  const auto prepared = controller._prepare_workflow_for_execution(*workflow, {"perimeter", "area"});
  EXPECT_EQ(prepared->title, "given");
  EXPECT_EQ(prepared->mask_operations, workflow->mask_operations);
  EXPECT_THAT(keys_of(prepared->result_operations), ElementsAre("perimeter", "area"));
  EXPECT_EQ(prepared->result_operations[1].params, Value::object());
  EXPECT_THAT(log.lines(), ElementsAre("info: Controller: Created 2 result operations from 2 selected keys",
                                       "debug: Controller: Selected operation keys: [\"perimeter\", \"area\"]",
                                       "debug: Controller: Created result operations: [\"perimeter\", \"area\"]"));
  prepared->mask_operations[0].params["radius"] = 9;
  prepared->mask_operations.pop_back();
  EXPECT_EQ(workflow->mask_operations.size(), 2U);
  EXPECT_EQ(workflow->mask_operations[0].params.at("radius"), 2);
  EXPECT_EQ(workflow->result_operations[0].params.at("scale"), 2);
}

TEST_F(ResultsGeneration, APreparedWorkflowWithNothingChosenOnlyAppliesMasks) {
  const LogCapture log;
  const auto prepared = controller._prepare_workflow_for_execution(*workflow, {});
  EXPECT_THAT(prepared->result_operations, IsEmpty());
  EXPECT_EQ(prepared->mask_operations.size(), 2U);
  EXPECT_THAT(keys_of(workflow->result_operations), ElementsAre("area"));
  EXPECT_THAT(log.lines(), ElementsAre("info: No operations selected - workflow will only apply masks"));
}

// ---- Numerical results
// -----------------------------------------------------------------------------------------------

/// 14 March 2025, 09:26:53 local time.
common::TimePoint pi_day() {
  std::tm local{};
  local.tm_year = 125;
  local.tm_mon = 2;
  local.tm_mday = 14;
  local.tm_hour = 9;
  local.tm_min = 26;
  local.tm_sec = 53;
  local.tm_isdst = -1;
  return std::chrono::system_clock::from_time_t(std::mktime(&local));
}

class NumericalResults : public ResultsGeneration {
 protected:
  std::string written(const model::ResultMap& results, const std::string& capture_name = "plot_12") {
    controller._save_numerical_results_to_txt(results, folder / "numbers.txt", capture_name);
    return read_all(folder / "numbers.txt");
  }
  static constexpr const char* head =
      "# Orvexa Numerical Results\n# Generated: 2025-03-14 09:26:53\n# Capture: plot_12\n#\n";
  const common::ClockOverride clock{pi_day};
  const TemporaryFolder folder;
};

TEST_F(NumericalResults, AreWrittenByteForByteAsDescribed) {
  model::ResultMap results;
  results.insert_or_assign("region", with_metrics({{"region_area", 1532.75}, {"pixel_count", 912}}));
  const LogCapture log;
  EXPECT_EQ(written(results),
            "# Orvexa Numerical Results\n"
            "# Generated: 2025-03-14 09:26:53\n"
            "# Capture: plot_12\n"
            "#\n"
            "pixel_count=912\n"
            "region_area=1532.75\n");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(NumericalResults, WithoutNumericMetricsAreTheFourHeaderLinesOnly) {
  model::ResultMap results;
  results.insert_or_assign("a", with_metrics({{"kind", "leaf"}, {"bins", {1, 2}}, {"map", {{"x", 1}}}, {"none", {}}}));
  results.insert_or_assign("b", with_metrics(nullptr));
  results.insert_or_assign("c", with_metrics("not a map"));
  EXPECT_EQ(written(results), head);
  EXPECT_EQ(written({}), head);
}

TEST_F(NumericalResults, OfTwoOperationsWithAMetricOfTheSameNameTheSecondsValueStands) {
  model::ResultMap results;
  results.insert_or_assign("first", with_metrics({{"area", 1}}));
  results.insert_or_assign("second", with_metrics({{"area", 2}}));
  EXPECT_EQ(written(results), std::string(head) + "area=2\n");
}

TEST_F(NumericalResults, AMetricThatIsNoNumberInTheSecondOperationLeavesTheFirstsValue) {
  model::ResultMap results;
  results.insert_or_assign("first", with_metrics({{"area", 1}}));
  results.insert_or_assign("second", with_metrics({{"area", "large"}}));
  EXPECT_EQ(written(results), std::string(head) + "area=1\n");
}

TEST_F(NumericalResults, NamesAreSortedByCodePointSoUpperCaseComesFirst) {
  model::ResultMap results;
  results.insert_or_assign("x", with_metrics({{"a", 1}, {"ä", 4}, {"B", 2}, {"a.b", 3}, {"_", 5}}));
  EXPECT_EQ(written(results), std::string(head) + "B=2\n_=5\na=1\na.b=3\nä=4\n");
}

TEST_F(NumericalResults, ValuesAreWrittenInTheirShortestFormThatReadsBack) {
  model::ResultMap results;
  results.insert_or_assign("x", with_metrics({{"a", 0.125},
                                              {"b", 1e-05},
                                              {"c", std::nan("")},
                                              {"d", HUGE_VAL},
                                              {"e", -HUGE_VAL},
                                              {"f", true},
                                              {"g", false},
                                              {"h", -7},
                                              {"i", 18446744073709551615ULL},
                                              {"j", 3.0},
                                              {"k", 0.1 + 0.2},
                                              {"l", 1234567.5}}));
  EXPECT_EQ(written(results), std::string(head) +
                                  "a=0.125\nb=1e-05\nc=nan\nd=inf\ne=-inf\nf=True\ng=False\nh=-7\n"
                                  "i=18446744073709551615\nj=3.0\nk=0.30000000000000004\nl=1234567.5\n");
}

TEST_F(NumericalResults, ReplaceAnOlderFile) {
  folder.write("numbers.txt", std::string(10'000, 'x'));
  EXPECT_EQ(written({}), head);
}

TEST_F(NumericalResults, AFailureToWriteReachesTheCaller) {
  EXPECT_THROW(controller._save_numerical_results_to_txt({}, folder / "no such folder/numbers.txt", "plot_12"),
               std::runtime_error);
  EXPECT_EQ(controller.state.error, std::nullopt);
}

}  // namespace
}  // namespace orvexa::test
