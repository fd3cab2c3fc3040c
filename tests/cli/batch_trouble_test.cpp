#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "cli/batch_setup.h"
#include "cli/small_file_system.h"

namespace orvexa::test {
namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// The second of four captures takes a while, so that whatever happens in the middle happens to it: 4 megapixels
/// through wide openings.
struct LongBatch : BatchSetup {
  LongBatch() : BatchSetup(4) {
    write_plot(captures, "plot_0002", 2000, 2000, 500);
    workflow = folder.write("long.yaml",
                            "title: Long\n"
                            "mask_operations:\n"
                            "  - {op: threshold_range, params: {band: MSP.NIR, low: 0.5, high: 1.0}}\n"
                            "  - {op: roi_rect, params: {}}\n"
                            "  - {op: open, params: {radius: 150, iterations: 10}}\n"
                            "  - {op: close, params: {radius: 150, iterations: 10}}\n"
                            "result_operations:\n"
                            "  - {op: area}\n");
  }
  /// Runs until the second capture is at work, and stops the process there.
  void stop_in_the_second(Process& process) const {
    ASSERT_TRUE(process.wait_for_error_text("Processing file 2/4"));
    ASSERT_TRUE(process.wait_for_error_text("1/4 "));
    process.send(SIGSTOP);
  }
  [[nodiscard]] std::vector<std::string> with_log() const { return words({"--log-level", "info", "--json"}); }
};

class InterruptedBatch : public testing::TestWithParam<int> {};

TEST_P(InterruptedBatch, WritesItsReportsAndExits130AndCanBeResumed) {
  const LongBatch batch;
  Process process(batch.with_log());
  batch.stop_in_the_second(process);
  process.send(GetParam());
  process.send(SIGCONT);
  const Outcome outcome = process.wait();
  EXPECT_EQ(outcome.exit_code, 130);
  const common::Value summary = outcome.json();
  EXPECT_EQ(summary.at("interrupted"), true);
  EXPECT_THAT(names_in(summary.at("successful_files")), ElementsAre("HDR_plot_0001.INF"));
  EXPECT_THAT(names_in(summary.at("failed_files")), ElementsAre("HDR_plot_0002.INF"));
  EXPECT_EQ(summary.at("failed_files").at(0).at("interrupted"), true);
  EXPECT_THAT(outcome.err, HasSubstr("\n2/4 interrupted: " + (batch.captures / "HDR_plot_0002.INF").string() + "\n"));
  EXPECT_EQ(summary.at("not_reached"), 2);
  EXPECT_EQ(summary.at("errors"), common::Value{"Batch processing cancelled by user"});
  const auto run_folder = batch.run_folder();
  EXPECT_THAT(visible_in(run_folder),
              ElementsAre("batch_aggregated_results.txt", "batch_journal.jsonl", "batch_summary.txt", "plot_0001"));
  EXPECT_TRUE(outcome.err.ends_with("\nInterrupted; the same workflow with --resume \"" + run_folder.string() +
                                    "\" does the rest.\n"))
      << outcome.err;

  const Outcome resumed = orvexa_command({"batch", batch.workflow.string(), "--resume", run_folder.string(), "-o",
                                          (batch.folder / "rest").string(), "--json"});
  EXPECT_EQ(resumed.exit_code, 0) << resumed.err;
  EXPECT_EQ(resumed.json().at("total_files"), 3);
}

TEST(Batch, GivenASignal_ThenTheFileAtWorkStandsUnderInterruptedAndNothingFailed) {
  const LongBatch batch;
  Process process(batch.words({"--log-level", "info"}));
  batch.stop_in_the_second(process);
  process.send(SIGINT);
  process.send(SIGCONT);
  const Outcome outcome = process.wait();
  EXPECT_EQ(outcome.exit_code, 130);
  EXPECT_THAT(outcome.out, testing::StartsWith("Workflow "));
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("Successful   1\nFailed       0\nInterrupted  " +
                                           (batch.captures / "HDR_plot_0002.INF").string() + "\nNot reached  2\n"),
                                 Not(HasSubstr("cancelled"))));
  const Outcome again = orvexa_command({"batch", batch.workflow.string(), "--failed-of", batch.run_folder().string()});
  EXPECT_THAT(again.err, HasSubstr("no file of this batch failed."));
}

INSTANTIATE_TEST_SUITE_P(Signals, InterruptedBatch, testing::Values(SIGINT, SIGTERM), [](const auto& test) {
  return std::string(test.param == SIGINT ? "Interrupt" : "Terminate");
});

TEST(Batch, GivenASecondSignal_ThenItEndsAtOnce) {
  const LongBatch batch;
  Process process(batch.with_log());
  batch.stop_in_the_second(process);
  process.send(SIGINT);
  process.send(SIGTERM);
  process.send(SIGCONT);
  const Outcome outcome = process.wait();
  EXPECT_EQ(outcome.exit_code, 130);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, Not(HasSubstr("Interrupted")));
  EXPECT_THAT(visible_in(batch.run_folder()), ElementsAre("batch_journal.jsonl", "plot_0001"));
}

TEST(Batch, GivenAnInputFolderThatGoesInTheMiddle_ThenTheFilesThatAreLeftFailWithAReason) {
  const LongBatch batch;
  Process process(batch.with_log());
  batch.stop_in_the_second(process);
  std::filesystem::rename(batch.captures, batch.folder / "gone");
  process.send(SIGCONT);
  const Outcome outcome = process.wait();
  EXPECT_EQ(outcome.exit_code, 1);
  const common::Value summary = outcome.json();
  EXPECT_EQ(summary.at("successful_files").size() + summary.at("failed_files").size(), 4u);
  const std::vector<std::string> failed = names_in(summary.at("failed_files"));
  EXPECT_THAT(failed, testing::IsSupersetOf({"HDR_plot_0003.INF", "HDR_plot_0004.INF"}));
  for (const common::Value& failure : summary.at("failed_files")) {
    EXPECT_THAT(failure.at("reason").get<std::string>(), testing::EndsWith(": there is no such file."));
  }
}

TEST(Batch, GivenADiskThatFillsUpInTheMiddle_ThenEveryFileIsAccountedForAndTheSentenceSaysSo) {
  if (!has_namespaces()) GTEST_SKIP() << "this machine does not let a test mount a file system of its own";
  constexpr int count = 40;
  const BatchSetup batch(count);
  const Outcome outcome = on_a_file_system(batch.output, "size=640k", batch.words({"--json"}), "ls -A");
  EXPECT_EQ(outcome.exit_code, 1) << outcome.err;
  const common::Value summary = outcome.json();
  EXPECT_EQ(summary.at("successful_files").size() + summary.at("failed_files").size(), std::size_t{count});
  EXPECT_GE(summary.at("successful_files").size(), 1u);
  ASSERT_GE(summary.at("failed_files").size(), 1u);
  for (const common::Value& failure : summary.at("failed_files")) {
    EXPECT_THAT(failure.at("reason").get<std::string>(),
                testing::AnyOf(HasSubstr("kB left"), HasSubstr("No space left on device")));
  }
}

TEST(Batch, GivenADiskWithoutRoomForReports_ThenThatIsSaidAndTheExitCodeIsNot0) {
  if (!has_namespaces()) GTEST_SKIP() << "this machine does not let a test mount a file system of its own";
  const BatchSetup batch(2);
  // One page of memory holds the run folder's name and nothing in it.
  const Outcome outcome = on_a_file_system(batch.output, "size=4k", batch.words({"--json"}), "ls -A");
  EXPECT_EQ(outcome.exit_code, 3) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("Failed to save batch summary: "));
  EXPECT_EQ(outcome.json().at("failed_files").size(), 2u);
  EXPECT_GE(outcome.json().at("unwritten").size(), 1u);
}

TEST(Batch, GivenAReadOnlyOutputFolder_ThenOneSentenceSaysSo) {
  if (!has_namespaces()) GTEST_SKIP() << "this machine does not let a test mount a file system of its own";
  const BatchSetup batch(1);
  const Outcome outcome = on_a_file_system(batch.output, "ro,size=64k", batch.words(), "ls -A");
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(outcome.err));  // and the listing of the folder after it is empty
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("out put ü"), HasSubstr("Read-only file system")));
}

TEST(Batch, GivenWorkflowAndCaptureInTheWrongOrder_ThenTheSentenceSaysWhichComesFirst) {
  const BatchSetup batch(1);
  const std::string capture = batch.captures / "HDR_plot_0001.INF";
  for (const std::string& first : {capture, (batch.captures / "plot_0001_RED.tif").string()}) {
    const Outcome outcome = orvexa_command({"batch", first, batch.workflow.string(), "-o", batch.output.string()});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_TRUE(is_one_sentence(outcome.err));
    EXPECT_THAT(outcome.err, AllOf(testing::StartsWith(first), HasSubstr("The workflow is given first")));
  }
  const Outcome no_workflow = orvexa_command({"batch", batch.folder.write("notes.yaml", "text"), capture, "-o", "out"});
  EXPECT_THAT(no_workflow.err, Not(HasSubstr("is given first")));
}

TEST(Batch, GivenAnOutputFolderThatIsAFile_ThenTheSentenceNamesItAndTheFileStays) {
  BatchSetup batch(1);
  batch.output = batch.folder.write("a file", "precious");
  const Outcome outcome = batch();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_EQ(outcome.err, "No folder for the run can be made in \"" + batch.output.string() + "\": Not a directory.\n");
  EXPECT_EQ(read_all(batch.output), "precious");
}

}  // namespace
}  // namespace orvexa::test
