#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/batch_fakes.h"
#include "orvexa/model/run_context.h"

namespace orvexa::test {
namespace {

using controller::BatchFileEntry;
using controller::BatchFileFailure;
using controller::BatchFileSuccess;
using controller::BatchSummary;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// ---- The whole sequence
// --------------------------------------------------------------------------------------------

TEST_F(BatchRunTest, StepsFollowEachOtherInTheirOrder) {
  loads_nothing("HDR_b.INF");
  executor.on_run = [this](const model::Executor::Run& run) {
    log.note("run " + run.capture_name + ", message: " + *controller.state.message);
    run.progress_cb("Mask 1 of 1: erode");
    model::RunOutput output = output_of(run);
    output.bundle.results["psii"].error = "no image FM";
    output.bundle.results["area"];
    output.bundle.results["perimeter"].error = "";
    return output;
  };
  controller.state.error = "older";
  run({.progress_callback =
           [this](int current, int total, const std::string& name) {
             log.note("progress " + std::to_string(current) + "/" + std::to_string(total) + " " + name);
           },
       .overlay_progress_cb = [this](const std::string& text) { log.note("overlay " + text); },
       .batch_file_done =
           [this](const BatchFileEntry& entry) {
             const bool is_done = std::holds_alternative<BatchFileSuccess>(entry);
             log.note(is_done ? "done" : "failed");
           }},
      {"in/HDR_a.INF", "in/HDR_b.INF"});
  EXPECT_THAT(
      log.lines(),
      ElementsAre("info: === STARTING BATCH PROCESSING ===", "info: Files to process: 2",
                  "info: Output folder: " + out.string(), "info: Created batch results folder: " + run_folder.string(),
                  "info: Using workflow: Leaves", "info: Mask operations: 1", "info: Result operations: 2",  //
                  "progress 1/2 HDR_a.INF", "info: Processing file 1/2: HDR_a.INF",
                  "info: Controller.load_capture_from_file: Loading capture from in/HDR_a.INF",
                  "info: Loading using standard capture loader: in/HDR_a.INF",
                  "run HDR_a, message: Loaded capture: HDR_a with 1 measurements", "overlay Mask 1 of 1: erode",
                  "info: Successfully processed: HDR_a.INF",
                  "warning: Some operations failed for HDR_a.INF: psii: no image FM, perimeter: ", "done",  //
                  "progress 2/2 HDR_b.INF", "info: Processing file 2/2: HDR_b.INF",
                  "info: Controller.load_capture_from_file: Loading capture from in/HDR_b.INF",
                  "info: Loading using standard capture loader: in/HDR_b.INF",
                  "error: Capture loading failed: Failed to load capture from in/HDR_b.INF: HDR_b.INF: it is torn.",
                  "error: Failed to load capture from: in/HDR_b.INF", "failed",  //
                  "info: Batch aggregated results saved to: " + (run_folder / "batch_aggregated_results.txt").string(),
                  "info: Batch summary saved to: " + (run_folder / "batch_summary.txt").string(),
                  "info: === BATCH PROCESSING COMPLETED ===", "info: Successful: 1/2", "info: Failed: 1/2",
                  "info: Batch results saved to: " + run_folder.string()));
  EXPECT_EQ(controller.state.message, "Batch completed: 1/2 successful");
  EXPECT_EQ(controller.state.error, std::nullopt);
  EXPECT_EQ(controller.state.last_saved_results_folder, run_folder.string());
}

TEST_F(BatchRunTest, TheMessageNamesTheFileWhileItIsLoadedAndTheProgressComesBefore) {
  controller.state.message = "before";
  std::vector<std::optional<std::string>> messages;
  const auto load = controller.capture_loader;
  controller.capture_loader = [&](const Path& file) {
    messages.push_back(controller.state.message);
    return load(file);
  };
  run({.progress_callback = [&](int, int, const std::string&) { messages.push_back(controller.state.message); }},
      {"in/HDR_a.INF"});
  EXPECT_THAT(messages, ElementsAre("before", "Batch processing: HDR_a.INF (1/1)"));
}

TEST_F(BatchRunTest, TheExecutorGetsCaptureWorkflowFolderNameCallbackAndFlag) {
  const common::CancelEvent cancel;
  std::vector<std::string> texts;
  run({.overlay_progress_cb = [&](const std::string& text) { texts.push_back(text); }, .cancel_event = &cancel},
      {"in/HDR_a.INF"});
  ASSERT_EQ(executor.runs.size(), 1U);
  const auto& given = executor.runs[0];
  EXPECT_EQ(given.capture->name, "HDR_a");
  EXPECT_EQ(given.wf, workflow);
  EXPECT_EQ(given.output_base_dir, run_folder);
  EXPECT_EQ(given.capture_name, "HDR_a");
  EXPECT_EQ(given.cancel_event, &cancel);
  given.progress_cb("step");
  EXPECT_THAT(texts, ElementsAre("step"));
}

TEST_F(BatchRunTest, GivenAWorkflowThatIsReplacedMeanwhile_ThenTheFirstOneIsUsedThroughout) {
  executor.on_run = [this](const model::Executor::Run& run) {
    controller.state.current_workflow = workflow_of({}, {});
    return output_of(run);
  };
  const BatchSummary summary = run({}, {"in/HDR_a.INF", "in/HDR_b.INF"});
  EXPECT_EQ(executor.runs.at(1).wf, workflow);
  EXPECT_EQ(summary.workflow_title, "Leaves");
}

TEST_F(BatchRunTest, AnOrdinaryImageGoesThroughTheImageLoader) {
  controller.image_loader = [](const Path&) { return small_capture("picture"); };
  run({}, {"in/a.png"});
  EXPECT_EQ(executor.runs.at(0).capture_name, "picture");
}

TEST_F(BatchRunTest, InBatchModeTheWorkflowIsLeftAsItIs) {
  const model::Workflow before = *workflow;
  run({}, {"in/HDR_a.INF"});
  EXPECT_EQ(*workflow, before);
  EXPECT_EQ(controller.state.current_workflow, workflow);
}

TEST_F(BatchRunTest, TheProcessingModeIsTheOneTheRunWasStartedIn) {
  for (const std::string mode : {"batch", "analysis"}) {
    out = folder / mode;
    controller.state.processing_mode = mode;
    run({}, {"in/HDR_a.INF"});
    EXPECT_EQ(controller.state.processing_mode, mode);
  }
}

// ---- The run folder
// ------------------------------------------------------------------------------------------------

TEST_F(BatchRunTest, TheRunFolderIsNamedAfterTheLocalTimeAtTheStartAndMadeWithItsParents) {
  out = folder / "not/yet/there";
  run_folder = out / "batch_results_20240131154502";
  const BatchSummary summary = run({}, {"in/HDR_a.INF"});
  EXPECT_EQ(summary.batch_folder, run_folder.string());
  EXPECT_TRUE(std::filesystem::exists(run_folder / "batch_summary.txt"));
}

TEST_F(BatchRunTest, GivenARunThatTakesAWhile_ThenItsFolderNamesTheStartAndItsSummaryTheEnd) {
  common::TimePoint time = local_time();
  const common::ClockOverride passing([&] { return time; });
  executor.on_run = [&](const model::Executor::Run& run) {
    time += std::chrono::seconds(90);
    return output_of(run);
  };
  const BatchSummary summary = run({}, {"in/HDR_a.INF"});
  EXPECT_EQ(summary.batch_folder, run_folder.string());
  EXPECT_THAT(read_all(run_folder / "batch_summary.txt"), HasSubstr("\nGenerated: 2024-01-31 15:46:32\n"));
}

TEST_F(BatchRunTest, GivenARunFolderThatCannotBeMade_ThenASentenceReachesTheCallerAndTheStateIsUntouched) {
  out = folder.write("a file", "");
  controller.state.current_file = "selected";
  controller.state.message = "before";
  try {
    run({}, {"in/HDR_a.INF"});
    FAIL() << "nothing was thrown";
  } catch (const std::runtime_error& failure) {
    EXPECT_EQ(failure.what(), "No folder for the run can be made in \"" + out.string() + "\": Not a directory.");
  }
  EXPECT_EQ(controller.state.current_file, "selected");
  EXPECT_EQ(controller.state.message, "before");
  EXPECT_THAT(executor.runs, IsEmpty());
}

TEST_F(BatchRunTest, GivenNoWorkflow_ThenTheRunIsRefusedButItsEmptyFolderIsThere) {
  controller.state.current_workflow.reset();
  controller.state.message = "before";
  int calls = 0;
  const BatchSummary summary = run({.progress_callback = [&](int, int, const std::string&) { ++calls; },
                                    .batch_file_done = [&](const BatchFileEntry&) { ++calls; }},
                                   {"in/HDR_a.INF", "in/HDR_b.INF"});
  EXPECT_EQ(common::json_line(summary.to_value()),
            R"({"total_files": 2, "successful_files": [], "failed_files": [], )"
            R"("errors": ["No workflow loaded - please load a workflow first"]})");
  EXPECT_TRUE(std::filesystem::is_empty(run_folder));
  EXPECT_EQ(controller.state.error, "No workflow loaded - please load a workflow first");
  EXPECT_EQ(controller.state.message, "before");
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(log.lines(), ElementsAre("info: === STARTING BATCH PROCESSING ===", "info: Files to process: 2",
                                       "info: Output folder: " + out.string(),
                                       "info: Created batch results folder: " + run_folder.string(),
                                       "error: No workflow loaded - please load a workflow first"));
}

TEST_F(BatchRunTest, GivenNoResultOperations_ThenAWarningSaysSoAndMasksAreApplied) {
  workflow->result_operations.clear();
  run({}, {"in/HDR_a.INF"});
  EXPECT_EQ(executor.runs.size(), 1U);
  EXPECT_EQ(log.lines()[6], "info: Result operations: 0");
  EXPECT_EQ(log.lines()[7], "warning: No result operations found in workflow - will only apply masks");
}

TEST_F(BatchRunTest, GivenNoFiles_ThenOnlyASummaryIsWrittenAndTheRunCountsAsFailed) {
  const BatchSummary summary = run({}, {});
  EXPECT_EQ(summary.total_files, 0);
  EXPECT_THAT(summary.errors, IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(run_folder / "batch_aggregated_results.txt"));
  EXPECT_EQ(read_all(run_folder / "batch_summary.txt"),
            "Orvexa Batch Processing Summary\n===================================\n"
            "Generated: 2024-01-31 15:45:02\nWorkflow: Leaves\nTotal files: 0\nSuccessful: 0\nFailed: 0\n"
            "Batch folder: " +
                run_folder.string() + "\n\n");
  EXPECT_EQ(controller.state.message, "Batch failed: 0/0 files failed");
  EXPECT_EQ(controller.state.error, "All batch processing files failed - check logs for details");
  EXPECT_EQ(controller.state.last_saved_results_folder, std::nullopt);
}

// ---- Cancellation
// --------------------------------------------------------------------------------------------------

TEST_F(BatchRunTest, GivenACancellationBeforeTheFirstFile_ThenTheRunCountsAsFailed) {
  common::CancelEvent cancel;
  cancel.set();
  int calls = 0;
  const BatchSummary summary =
      run({.progress_callback = [&](int, int, const std::string&) { ++calls; }, .cancel_event = &cancel},
          {"in/HDR_a.INF", "in/HDR_b.INF"});
  EXPECT_THAT(summary.errors, ElementsAre("Batch processing cancelled by user"));
  EXPECT_THAT(summary.successful_files, IsEmpty());
  EXPECT_THAT(summary.failed_files, IsEmpty());
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(log.lines(), Contains("info: Batch processing cancelled by user at file 1/2"));
  EXPECT_EQ(controller.state.message, "Batch failed: 0/2 files failed");
  EXPECT_EQ(controller.state.error, "All batch processing files failed - check logs for details");
  EXPECT_TRUE(std::filesystem::exists(run_folder / "batch_summary.txt"));
}

TEST_F(BatchRunTest, GivenACancellationBetweenFiles_ThenTheRestIsNeitherDoneNorFailed) {
  common::CancelEvent cancel;
  controller.state.current_capture = small_capture("selected");
  controller.state.current_file = "selected";
  const BatchSummary summary =
      run({.cancel_event = &cancel, .batch_file_done = [&](const BatchFileEntry&) { cancel.set(); }},
          {"in/HDR_a.INF", "in/HDR_b.INF", "in/HDR_c.INF"});
  EXPECT_EQ(summary.successful_files.size(), 1U);
  EXPECT_THAT(summary.failed_files, IsEmpty());
  EXPECT_THAT(summary.errors, ElementsAre("Batch processing cancelled by user"));
  EXPECT_THAT(log.lines(), Contains("info: Batch processing cancelled by user at file 2/3"));
  EXPECT_EQ(controller.state.message, "Batch completed: 1/3 successful");
  EXPECT_EQ(controller.state.current_capture->name, "selected");
  EXPECT_EQ(controller.state.current_file, "selected");
}

TEST_F(BatchRunTest, GivenACancellationInsideAFile_ThenThatFileFailedAndTheRunEndsBeforeTheNext) {
  common::CancelEvent cancel;
  executor.on_run = [&](const model::Executor::Run&) -> model::RunOutput {
    cancel.set();
    throw model::CancelledError();
  };
  const BatchSummary summary = run({.cancel_event = &cancel}, {"in/HDR_a.INF", "in/HDR_b.INF"});
  ASSERT_EQ(summary.failed_files.size(), 1U);
  EXPECT_EQ(summary.failed_files[0].error, "Error processing HDR_a.INF: Processing cancelled by user");
  EXPECT_TRUE(summary.failed_files[0].is_interrupted);
  EXPECT_TRUE(controller::read_batch_journal(run_folder).entries.at(0).is_interrupted);
  EXPECT_THAT(summary.errors, ElementsAre("Batch processing cancelled by user"));
  EXPECT_EQ(controller.state.message, "Batch failed: 1/2 files failed");
}

// ---- Failures
// ------------------------------------------------------------------------------------------------------

TEST_F(BatchRunTest, GivenThreeFilesOfWhichTheSecondCannotBeLoaded_ThenTheOthersAreDone) {
  loads_nothing("HDR_b.INF");
  const BatchSummary summary = run({}, {"in/HDR_a.INF", "in/HDR_b.INF", "in/HDR_c.INF"});
  EXPECT_EQ(common::json_line(summary.to_value()),
            R"({"total_files": 3, "successful_files": [{"file": "in/HDR_a.INF", "output_folder": )" +
                quoted(run_folder / "HDR_a") +
                R"(, "operation_errors": {}}, {"file": "in/HDR_c.INF", "output_folder": )" +
                quoted(run_folder / "HDR_c") +
                R"(, "operation_errors": {}}], "failed_files": [{"file": "in/HDR_b.INF", "error": )"
                R"("Failed to load capture from: in/HDR_b.INF"}], "errors": [], "batch_folder": )" +
                quoted(run_folder) + R"(, "workflow_title": "Leaves"})");
  EXPECT_EQ(controller.state.message, "Batch completed: 2/3 successful");
  EXPECT_EQ(controller.state.error, std::nullopt) << "the error of the file that failed is gone at the end";
}

TEST_F(BatchRunTest, GivenAFailingExecutor_ThenTheFileFailedWithATraceAndTheRunGoesOn) {
  executor.on_run = [this](const model::Executor::Run& run) {
    if (run.capture_name == "HDR_a") throw std::runtime_error("Mask step 1 (erode) failed: It gave no mask.");
    return output_of(run);
  };
  const BatchSummary summary = run({}, {"in/HDR_a.INF", "in/HDR_b.INF"});
  ASSERT_EQ(summary.failed_files.size(), 1U);
  EXPECT_EQ(summary.failed_files[0].file, "in/HDR_a.INF");
  EXPECT_EQ(summary.failed_files[0].error, "Error processing HDR_a.INF: Mask step 1 (erode) failed: It gave no mask.");
  EXPECT_FALSE(summary.failed_files[0].is_interrupted);
  EXPECT_EQ(summary.successful_files.size(), 1U);
  const std::vector<std::string> lines = log.lines();
  const auto at = std::find(lines.begin(), lines.end(),
                            "error: Error processing HDR_a.INF: Mask step 1 (erode) failed: It gave no mask.");
  ASSERT_NE(at, lines.end());
  EXPECT_EQ(at[1], "exception: Mask step 1 (erode) failed: It gave no mask.");
}

TEST_F(BatchRunTest, GivenAFailureThatIsNoExceptionObject_ThenItIsThatFileAlone) {
  executor.on_run = [](const model::Executor::Run&) -> model::RunOutput { throw 42; };
  const BatchSummary summary = run({}, {"in/HDR_a.INF"});
  EXPECT_EQ(summary.failed_files.at(0).error, "Error processing HDR_a.INF: It failed without saying why.");
  EXPECT_EQ(controller.state.message, "Batch failed: 1/1 files failed");
}

TEST_F(BatchRunTest, GivenALoadThatThrows_ThenItIsThatFileAlone) {
  state.on_derive = [](ScriptedState& at) {
    if (!at.current_capture) throw std::runtime_error("no phase");
  };
  // The handler of a failed load is guarded itself; the loading of a batch is not, where the path is empty.
  const BatchSummary summary = run({}, {"", "in/HDR_a.INF"});
  ASSERT_EQ(summary.failed_files.size(), 1U);
  EXPECT_EQ(summary.failed_files[0].error, "Error processing : no phase");
  EXPECT_EQ(summary.successful_files.size(), 1U);
}

TEST_F(BatchRunTest, GivenACallbackOfStepsThatThrows_ThenItIsThatFileAlone) {
  executor.on_run = [this](const model::Executor::Run& run) {
    run.progress_cb("step");
    return output_of(run);
  };
  const BatchSummary summary =
      run({.overlay_progress_cb = [](const std::string&) { throw std::runtime_error("no screen"); }}, {"in/HDR_a.INF"});
  EXPECT_EQ(summary.failed_files.at(0).error, "Error processing HDR_a.INF: no screen");
}

TEST_F(BatchRunTest, GivenAProgressCallbackThatThrows_ThenItReachesTheCallerAndTheSelectionIsRestored) {
  const auto selected = small_capture("selected");
  controller.state.current_capture = selected;
  controller.state.current_file = "selected";
  EXPECT_THROW(run({.progress_callback =
                        [](int current, int, const std::string&) {
                          if (current == 2) throw std::runtime_error("no screen");
                        }},
                   {"in/HDR_a.INF", "in/HDR_b.INF"}),
               std::runtime_error);
  EXPECT_EQ(controller.state.current_capture, selected);
  EXPECT_EQ(controller.state.current_file, "selected");
  EXPECT_FALSE(std::filesystem::exists(run_folder / "batch_summary.txt"));
  EXPECT_EQ(controller::read_batch_journal(run_folder).entries.size(), 1U) << "what was done can be gone on with";
}

TEST_F(BatchRunTest, GivenReportsThatCannotBeWritten_ThenTheSummaryIsTheSame) {
  executor.on_run = [this](const model::Executor::Run& run) {
    model::RunOutput output = output_of(run);
    std::filesystem::remove_all(run_folder);
    return output;
  };
  const BatchSummary summary = run({}, {"in/HDR_a.INF"});
  EXPECT_EQ(summary.successful_files.size(), 1U);
  EXPECT_EQ(controller.state.message, "Batch completed: 1/1 successful");
  EXPECT_THAT(summary.unwritten, ElementsAre(StartsWith("Failed to write batch journal: "),
                                             StartsWith("Failed to write batch aggregated results CSV: "),
                                             StartsWith("Failed to save batch summary: ")));
  EXPECT_THAT(log.lines(), Contains("error: Failed to write batch aggregated results CSV: " +
                                    (run_folder / "batch_aggregated_results.txt").string() +
                                    ": cannot be written: there is no folder " + run_folder.string() + "."));
  EXPECT_THAT(log.lines(),
              Contains("error: Failed to save batch summary: " + (run_folder / "batch_summary.txt").string() +
                       ": cannot be written: there is no folder " + run_folder.string() + "."));
}

// ---- What operations could not do
// ----------------------------------------------------------------------------------

TEST_F(BatchRunTest, OperationErrorsAreThoseThatArePresentEvenWhenEmptyAndTheFileIsDone) {
  executor.on_run = [this](const model::Executor::Run& run) {
    model::RunOutput output = output_of(run);
    output.bundle.results["area"].metrics = {{"error", "a metric of that name"}};
    output.bundle.results["psii"].error = "no image FM";
    output.bundle.results["perimeter"].error = "";
    return output;
  };
  const BatchSummary summary = run({}, {"in/HDR_a.INF"});
  ASSERT_EQ(summary.successful_files.size(), 1U);
  std::vector<std::string> errors;
  for (const auto& [key, error] : summary.successful_files[0].operation_errors) errors.push_back(key + "=" + error);
  EXPECT_THAT(errors, ElementsAre("psii=no image FM", "perimeter="));
  EXPECT_THAT(log.lines(), Contains("warning: Some operations failed for HDR_a.INF: psii: no image FM, perimeter: "));
  EXPECT_EQ(controller.state.error, std::nullopt);
}

// ---- Rows of the combined table
// -------------------------------------------------------------------------------------

TEST_F(BatchRunTest, WhatMaskStepsRemarkIsHandedOnWithItsFileButIsNoPartOfTheMap) {
  executor.on_run = [](const model::Executor::Run& run) {
    model::RunOutput output = output_of(run);
    if (run.capture_name == "HDR_b") output.mask_notes = {{.step = 0, .op = "erode", .text = "no_region: all is gone"}};
    return output;
  };
  std::vector<std::size_t> told;
  const BatchSummary summary = run(
      {.batch_file_done =
           [&](const BatchFileEntry& entry) { told.push_back(std::get<BatchFileSuccess>(entry).mask_notes.size()); }},
      {"in/HDR_a.INF", "in/HDR_b.INF"});
  EXPECT_THAT(told, ElementsAre(0, 1));
  EXPECT_THAT(summary.successful_files.at(0).mask_notes, IsEmpty());
  ASSERT_EQ(summary.successful_files.at(1).mask_notes.size(), 1U);
  EXPECT_EQ(summary.successful_files[1].mask_notes[0].text, "no_region: all is gone");
  EXPECT_FALSE(summary.to_value().at("successful_files").at(1).contains("mask_notes"));
}

TEST_F(BatchRunTest, ARowARegionHoldsNameRegionDateTimeAndMetricsButBins) {
  model::CaptureHeader header;
  header.date = "2019-05-21";
  header.time = "10:32:11";
  captures["HDR_a.INF"] = capture("plot", {{"MSP", {{"RED", image<std::uint8_t>({{1}})}}}},
                                  std::make_shared<const model::CaptureHeader>(header));
  executor.on_run = [this](const model::Executor::Run& run) {
    model::RunOutput output = output_of(run);
    output.region_metrics.clear();
    output.region_metrics["ROI_2"] = {{"area.mean", 1.5}, {"area.histogram.bins", {1, 2}}, {"n", 3}};
    output.region_metrics["ROI_1"] = {{"area.histogram.bins.n", 7}, {"area.mean", 2.5}};
    output.region_metrics["empty"] = Value::object();
    return output;
  };
  run({}, {"in/HDR_a.INF", "in/HDR_b.INF"});
  EXPECT_EQ(read_all(run_folder / "batch_aggregated_results.txt"),
            "\xEF\xBB\xBF"
            "Filename\tROI\tDate\tTime\tarea.mean\tn\tarea.histogram.bins.n\n"
            "HDR_a.INF\tROI_2\t2019-05-21\t10:32:11\t1.5\t3\t\n"
            "HDR_a.INF\tROI_1\t2019-05-21\t10:32:11\t2.5\t\t7\n"
            "HDR_a.INF\tempty\t2019-05-21\t10:32:11\t\t\t\n"
            "HDR_b.INF\tROI_2\t\t\t1.5\t3\t\n"
            "HDR_b.INF\tROI_1\t\t\t2.5\t\t7\n"
            "HDR_b.INF\tempty\t\t\t\t\t\n");
}

TEST_F(BatchRunTest, GivenARegionWithoutMetrics_ThenItsRowsBeforeStayTheRestIsSkippedAndTheFileIsDone) {
  executor.on_run = [this](const model::Executor::Run& run) {
    model::RunOutput output = output_of(run);
    output.region_metrics["ROI_2"] = Value();
    output.region_metrics["ROI_3"] = {{"area", 8}};
    if (run.capture_name == "HDR_b") output.region_metrics["ROI_2"] = {{"area", 7}};
    return output;
  };
  const BatchSummary summary = run({}, {"in/HDR_a.INF", "in/HDR_b.INF"});
  EXPECT_EQ(summary.successful_files.size(), 2U);
  EXPECT_EQ(read_all(run_folder / "batch_aggregated_results.txt"),
            "\xEF\xBB\xBF"
            "Filename\tROI\tDate\tTime\tarea\n"
            "HDR_a.INF\tROI_1\t\t\t6\n"
            "HDR_b.INF\tROI_1\t\t\t6\nHDR_b.INF\tROI_2\t\t\t7\nHDR_b.INF\tROI_3\t\t\t8\n");
  EXPECT_THAT(log.lines(), Contains("warning: Could not collect metrics row for HDR_a.INF: "
                                    "The region ROI_2 has no metrics."));
  EXPECT_THAT(summary.unwritten,
              ElementsAre("Could not collect metrics row for HDR_a.INF: The region ROI_2 has no metrics."));
}

TEST_F(BatchRunTest, GivenThatEveryFileFailed_ThenNoTableIsWrittenAndEachIsInTheSummaryOnce) {
  loads_nothing("HDR_a.INF");
  loads_nothing("HDR_b.INF");
  controller.state.last_saved_results_folder = "older";
  run({}, {"in/HDR_a.INF", "in/HDR_b.INF"});
  EXPECT_FALSE(std::filesystem::exists(run_folder / "batch_aggregated_results.txt"));
  EXPECT_TRUE(read_all(run_folder / "batch_summary.txt")
                  .ends_with("\n\n\nFailed files:\n"
                             "HDR_a.INF - Failed to load capture from: in/HDR_a.INF\n"
                             "HDR_b.INF - Failed to load capture from: in/HDR_b.INF\n"));
  EXPECT_EQ(controller.state.message, "Batch failed: 2/2 files failed");
  EXPECT_EQ(controller.state.error, "All batch processing files failed - check logs for details");
  EXPECT_EQ(controller.state.last_saved_results_folder, "older");
}

// ---- Selection and memory
// ------------------------------------------------------------------------------------------

TEST_F(BatchRunTest, TheSelectionIsRestoredBeforeTheReportsAreWritten) {
  const auto selected = small_capture("selected");
  controller.state.current_capture = selected;
  controller.state.current_file = "selected";
  bool was_restored = false;
  const common::LogObserver observer([&](const common::LogRecord& record) {
    if (record.text.starts_with("Batch aggregated results saved to")) {
      was_restored = controller.state.current_capture == selected && controller.state.current_file == "selected";
    }
  });
  controller.capture_loader = [this](const Path& file) {
    controller.state.current_file = file;
    return small_capture("loaded");
  };
  run({}, {"in/HDR_a.INF"});
  EXPECT_TRUE(was_restored);
  EXPECT_EQ(controller.state.current_capture, selected);
}

TEST_F(BatchRunTest, WithoutASelectionThereIsNoneAfterwards) {
  run({}, {"in/HDR_a.INF"});
  EXPECT_EQ(controller.state.current_capture, nullptr);
  EXPECT_EQ(controller.state.current_file, std::nullopt);
}

TEST_F(BatchRunTest, MasksWorkedOutForTheSelectionAreForgottenAlthoughItIsCurrentAgain) {
  const auto selected = small_capture("selected");
  controller.state.current_capture = selected;
  controller._mask_result_cache[0] = small_capture("masked");
  run({}, {"in/HDR_a.INF"});
  EXPECT_EQ(controller.state.current_capture, selected);
  EXPECT_THAT(cached_indices(controller), IsEmpty());
}

TEST_F(BatchRunTest, NoMoreThanTwoCapturesAreAliveAtATime) {
  executor.keeps_runs = false;
  std::vector<std::weak_ptr<model::CaptureSet>> made;
  controller.capture_loader = [&](const Path& file) {
    auto loaded = small_capture(file.stem().string());
    made.push_back(loaded);
    EXPECT_LE(std::count_if(made.begin(), made.end(), [](const auto& capture) { return !capture.expired(); }), 2);
    return loaded;
  };
  run({}, {"in/HDR_a.INF", "in/HDR_b.INF", "in/HDR_c.INF", "in/HDR_d.INF"});
  EXPECT_EQ(made.size(), 4U);
  EXPECT_TRUE(made.back().expired());
}

// ---- Telling that a file is finished
// -------------------------------------------------------------------------------

TEST_F(BatchRunTest, EachEntryIsToldOnceItIsInTheJournal) {
  loads_nothing("HDR_b.INF");
  std::vector<std::string> told;
  run({.batch_file_done =
           [&](const BatchFileEntry& entry) {
             const std::size_t lines = controller::read_batch_journal(run_folder).entries.size();
             if (const auto* done = std::get_if<BatchFileSuccess>(&entry)) {
               told.push_back(done->file + " -> " + done->output_folder + " " + std::to_string(lines));
             } else {
               const auto& failed = std::get<BatchFileFailure>(entry);
               told.push_back(failed.file + " - " + failed.error + " " + std::to_string(lines));
             }
           }},
      {"in/HDR_a.INF", "in/HDR_b.INF"});
  EXPECT_THAT(told, ElementsAre("in/HDR_a.INF -> " + (run_folder / "HDR_a").string() + " 1",
                                "in/HDR_b.INF - Failed to load capture from: in/HDR_b.INF 2"));
}

TEST_F(BatchRunTest, GivenAListenerThatThrows_ThenItIsLoggedAndTheRunGoesOn) {
  const BatchSummary summary =
      run({.batch_file_done = [](const BatchFileEntry&) { throw std::runtime_error("no table"); }},
          {"in/HDR_a.INF", "in/HDR_b.INF"});
  EXPECT_EQ(summary.successful_files.size(), 2U);
  EXPECT_THAT(summary.failed_files, IsEmpty());
  EXPECT_THAT(log.lines(), Contains("error: Error telling that HDR_a.INF is finished: no table"));
  EXPECT_THAT(log.lines(), Contains("error: Error telling that HDR_b.INF is finished: no table"));
}

}  // namespace
}  // namespace orvexa::test
