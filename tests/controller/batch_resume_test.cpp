#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/batch_fakes.h"
#include "orvexa/model/codecs/image_file.h"

namespace orvexa::test {
namespace {

using controller::BatchFileEntry;
using controller::BatchJournal;
using controller::BatchResumption;
using controller::BatchSummary;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// Runs on files that are there: a capture has the file it was loaded from as its source, and its area is the length of
/// that file.
class BatchResumeTest : public BatchRunTest {
 protected:
  BatchResumeTest() {
    controller.capture_loader = [](const Path& file) {
      const std::string content = read_all(file);
      if (content == "torn") throw std::runtime_error("it is torn");
      auto capture = small_capture(file.stem().string());
      capture->sources.push_back(
          {.path = file, .sha256 = common::sha256_hex(common::as_byte_span(content)), .bytes = content.size()});
      return capture;
    };
    executor.on_run = [](const model::Executor::Run& run) {
      model::RunOutput output = output_of(run);
      output.region_metrics["ROI_1"] = {{"area", run.capture->sources.at(0).bytes}};
      return output;
    };
  }

  std::vector<Path> write_files(const std::vector<std::pair<std::string, std::string>>& contents) const {
    std::vector<Path> files;
    for (const auto& [name, content] : contents) files.push_back(folder.write("in/" + name, content));
    return files;
  }

  /// Goes on with a run, an hour later.
  BatchSummary resume(const BatchResumption& plan) {
    const common::ClockOverride later([] { return local_time() + std::chrono::hours(1); });
    return run({.earlier = plan.earlier}, plan.to_do);
  }
  Path resumed_folder = out / "batch_results_20240131164502";
};

std::string table(const std::vector<std::string>& rows) {
  std::string text =
      "\xEF\xBB\xBF"
      "Filename\tROI\tDate\tTime\tarea\n";
  for (const std::string& row : rows) text += row + '\n';
  return text;
}

// ---- The journal of a run
// ------------------------------------------------------------------------------------------

TEST_F(BatchResumeTest, TheJournalHoldsTheRunAndEachFileWithItsContentAndRows) {
  const auto files = write_files({{"HDR_a.INF", "1234567"}, {"HDR_b.INF", "torn"}});
  executor.on_run = [next = executor.on_run](const model::Executor::Run& run) {
    model::RunOutput output = next(run);
    output.bundle.results["psii"].error = "no image FM";
    return output;
  };
  run({}, files);
  const BatchJournal journal = controller::read_batch_journal(run_folder);
  EXPECT_EQ(journal.workflow_title, "Leaves");
  EXPECT_EQ(journal.workflow_sha256, controller::workflow_sha256(*workflow));
  EXPECT_EQ(journal.started, common::local_time_text(local_time(), "%Y-%m-%dT15:45:02%z"));
  EXPECT_EQ(journal.files, files);
  ASSERT_THAT(journal.entries, SizeIs(2));
  const auto& a = journal.entries[0];
  EXPECT_EQ(a.file, files[0]);
  EXPECT_TRUE(a.is_done);
  EXPECT_EQ(a.content_sha256, controller::content_sha256(
                                  {{.path = files[0], .sha256 = common::sha256_hex(common::as_byte_span("1234567"))}}));
  EXPECT_THAT(a.sources, ElementsAre(files[0]));
  EXPECT_EQ(a.output_folder, run_folder / "HDR_a");
  EXPECT_EQ(a.operation_errors.at("psii"), "no image FM");
  ASSERT_THAT(a.rows, SizeIs(1));
  EXPECT_EQ(a.rows[0].at("area"), 7);
  const auto& b = journal.entries[1];
  EXPECT_FALSE(b.is_done);
  EXPECT_EQ(b.error, "Failed to load capture from: " + files[1].string());
  EXPECT_EQ(b.reason, "Failed to load capture from " + files[1].string() + ": it is torn");
}

TEST_F(BatchResumeTest, GivenAJournalThatCannotBeWritten_ThenOneErrorLineSaysSoAndTheRunGoesOn) {
  std::filesystem::create_directories(run_folder / "batch_journal.jsonl");
  const BatchSummary summary = run({}, write_files({{"HDR_a.INF", "1"}, {"HDR_b.INF", "2"}}));
  EXPECT_THAT(summary.successful_files, SizeIs(2));
  const std::string line = "error: Failed to write batch journal: " + (run_folder / "batch_journal.jsonl").string() +
                           ": cannot be written: Is a directory.";
  EXPECT_EQ(std::count(log.lines().begin(), log.lines().end(), line), 1);
}

TEST_F(BatchResumeTest, GivenAWorkflowThatCannotBeAFile_ThenTheRunGoesOnWithoutAJournal) {
  Value deep = 1;
  for (int level = 0; level < 100; ++level) deep = Value::array({deep});
  workflow->mask_operations[0].params["deep"] = deep;
  const BatchSummary summary = run({}, write_files({{"HDR_a.INF", "1"}}));
  EXPECT_THAT(summary.successful_files, SizeIs(1));
  EXPECT_FALSE(std::filesystem::exists(run_folder / "batch_journal.jsonl"));
  EXPECT_THAT(log.lines(), Contains(testing::StartsWith("error: Failed to write batch journal: ")));
}

// ---- Two runs in the same second
// -----------------------------------------------------------------------------------

TEST_F(BatchResumeTest, GivenTwoRunsInOneSecond_ThenNothingOfTheFirstIsLost) {
  const auto files = write_files({{"HDR_a.INF", "1"}, {"HDR_b.INF", "22"}});
  run({}, {files[0]});
  const std::string first_summary = read_all(run_folder / "batch_summary.txt");
  run({}, {files[1]});
  EXPECT_EQ(read_all(run_folder / "batch_aggregated_results.txt"), table({"HDR_b.INF\tROI_1\t\t\t2"}));
  EXPECT_EQ(read_all(run_folder / "batch_aggregated_results_1.txt"), table({"HDR_a.INF\tROI_1\t\t\t1"}));
  EXPECT_EQ(read_all(run_folder / "batch_summary_1.txt"), first_summary);
  EXPECT_THAT(log.lines(), Contains("warning: Another run wrote \"" + (run_folder / "batch_summary.txt").string() +
                                    "\"; it is kept as \"batch_summary_1.txt\""));
  const BatchJournal journal = controller::read_batch_journal(run_folder);
  EXPECT_EQ(journal.files, files);
  EXPECT_THAT(journal.entries, SizeIs(2));
}

// ---- Going on
// ------------------------------------------------------------------------------------------------------

TEST_F(BatchResumeTest, GivenARunThatEndedInTheMiddle_ThenGoingOnGivesTheTableOfAnUninterruptedRun) {
  const auto files = write_files(
      {{"HDR_a.INF", "1"}, {"HDR_b.INF", "torn"}, {"HDR_c.INF", "333"}, {"HDR_d.INF", "4444"}, {"HDR_e.INF", "55555"}});
  EXPECT_THROW(run({.progress_callback =
                        [](int current, int, const std::string&) {
                          if (current == 5) throw std::runtime_error("the machine went off");
                        }},
                   files),
               std::runtime_error);
  folder.write("in/HDR_b.INF", "22");
  folder.write("in/HDR_d.INF", "changed");
  const BatchResumption plan = controller::plan_batch_resumption(controller::read_batch_journal(run_folder));
  EXPECT_THAT(plan.to_do, ElementsAre(files[1], files[3], files[4]));
  EXPECT_THAT(plan.changed, ElementsAre(files[3]));
  executor.runs.clear();
  const BatchSummary summary = resume(plan);
  EXPECT_THAT(executor.runs, SizeIs(3));
  EXPECT_EQ(summary.total_files, 3);
  EXPECT_THAT(summary.successful_files, SizeIs(3));
  EXPECT_EQ(read_all(resumed_folder / "batch_aggregated_results.txt"),
            table({"HDR_a.INF\tROI_1\t\t\t1", "HDR_b.INF\tROI_1\t\t\t2", "HDR_c.INF\tROI_1\t\t\t3",
                   "HDR_d.INF\tROI_1\t\t\t7", "HDR_e.INF\tROI_1\t\t\t5"}));

  const BatchJournal journal = controller::read_batch_journal(resumed_folder);
  EXPECT_EQ(journal.files, files);
  std::vector<Path> results;
  for (const auto& entry : journal.entries) results.push_back(entry.output_folder);
  EXPECT_THAT(results, ElementsAre(run_folder / "HDR_a", run_folder / "HDR_c", resumed_folder / "HDR_b",
                                   resumed_folder / "HDR_d", resumed_folder / "HDR_e"));
  EXPECT_THAT(controller::plan_batch_resumption(journal).to_do, IsEmpty()) << "all of it is done";
}

TEST_F(BatchResumeTest, GivenACancelledResumption_ThenWhatWasTakenOverIsInItsTableAndItCanBeResumedAgain) {
  const auto files = write_files({{"HDR_a.INF", "1"}, {"HDR_b.INF", "22"}, {"HDR_c.INF", "333"}});
  common::CancelEvent cancel;
  run({.cancel_event = &cancel,
       .batch_file_done =
           [&](const BatchFileEntry&) {
             if (executor.runs.size() == 2) cancel.set();
           }},
      files);
  BatchResumption plan = controller::plan_batch_resumption(controller::read_batch_journal(run_folder));
  {
    const common::ClockOverride later([] { return local_time() + std::chrono::hours(1); });
    run({.cancel_event = &cancel, .earlier = plan.earlier}, plan.to_do);
  }
  EXPECT_EQ(read_all(resumed_folder / "batch_aggregated_results.txt"),
            table({"HDR_a.INF\tROI_1\t\t\t1", "HDR_b.INF\tROI_1\t\t\t2"}));
  plan = controller::plan_batch_resumption(controller::read_batch_journal(resumed_folder));
  EXPECT_THAT(plan.to_do, ElementsAre(files[2]));
  EXPECT_THAT(plan.earlier.entries, SizeIs(2));
}

TEST_F(BatchResumeTest, GivenFilesThatFailAgain_ThenTheTableHasTheOthersInTheirOrder) {
  const auto files = write_files({{"HDR_a.INF", "torn"}, {"HDR_b.INF", "22"}, {"HDR_c.INF", "torn"}});
  run({}, files);
  const BatchJournal journal = controller::read_batch_journal(run_folder);
  EXPECT_THAT(controller::failed_files(journal), ElementsAre(files[0], files[2]));
  resume(controller::plan_batch_resumption(journal));
  EXPECT_EQ(read_all(resumed_folder / "batch_aggregated_results.txt"), table({"HDR_b.INF\tROI_1\t\t\t2"}));
  EXPECT_EQ(controller.state.message, "Batch failed: 2/2 files failed");
}

// ---- With the real loader and executor
// -------------------------------------------------------------------------------

TEST(RealBatch, GivenPicturesOfWhichOneIsTorn_ThenTheOthersAreMeasuredAndTheTornOneIsMadeUpForLater) {
  const TemporaryFolder folder;
  // 3 and 5 pixels of 255 among zeros.
  const auto picture = [](int bright) {
    cv::Mat pixels(4, 4, CV_8UC1, cv::Scalar(0));
    for (int i = 0; i < bright; ++i) pixels.at<std::uint8_t>(i / 4, i % 4) = 255;
    const common::Bytes bytes = model::encode_png(model::Image(pixels), {});
    return std::string(common::as_text(bytes));
  };
  const std::vector<Path> files{folder.write("in/a.png", picture(3)), folder.write("in/b.png", "torn"),
                                folder.write("in/c.png", picture(5))};
  controller::Controller controller;
  controller.set_processing_mode("batch");
  auto workflow = controller.new_empty_workflow("Bright");
  workflow->mask_operations.push_back(model::mask_op("threshold_range", {{"low", 0.5}}));
  workflow->result_operations.push_back(model::result_op("area"));
  const BatchSummary first =
      controller.run_batch_processing({.selected_files = files, .output_folder = folder / "out"});
  ASSERT_THAT(first.successful_files, SizeIs(2)) << first.to_value().dump(1);
  ASSERT_THAT(first.failed_files, SizeIs(1));
  EXPECT_TRUE(std::filesystem::exists(Path(first.successful_files[0].output_folder) / "metrics.json"));

  const BatchJournal journal = controller::read_batch_journal(*first.batch_folder);
  controller::expect_same_workflow(journal, *workflow);
  folder.write("in/b.png", picture(7));
  const BatchResumption plan = controller::plan_batch_resumption(journal);
  EXPECT_THAT(plan.to_do, ElementsAre(files[1]));
  const BatchSummary second = controller.run_batch_processing(
      {.selected_files = plan.to_do, .output_folder = folder / "later", .earlier = plan.earlier});
  std::istringstream rows(read_all(Path(*second.batch_folder) / "batch_aggregated_results.txt"));
  std::vector<std::string> beginnings;
  for (std::string row; std::getline(rows, row);) {
    std::size_t end = 0;
    for (int field = 0; field < 5; ++field) end = row.find('\t', end) + 1;
    beginnings.push_back(row.substr(0, end == 0 ? row.size() : end - 1));
  }
  EXPECT_THAT(beginnings, ElementsAre("\xEF\xBB\xBF"
                                      "Filename\tROI\tDate\tTime\tarea",
                                      "a.png\tROI_1\t\t\t3", "b.png\tROI_1\t\t\t7", "c.png\tROI_1\t\t\t5"));
}

}  // namespace
}  // namespace orvexa::test
