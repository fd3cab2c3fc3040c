#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/batch_setup.h"
#include "orvexa/common/serialisation.h"

namespace orvexa::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::MatchesRegex;
using testing::Not;

TEST(Batch, GivenAFolderOfCaptures_ThenEachIsMeasuredAndTheTableHasTheKnownAreas) {
  const BatchSetup batch(3);
  const Outcome outcome = batch();
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  const auto run_folder = batch.run_folder();
  EXPECT_THAT(run_folder.filename().string(), MatchesRegex("batch_results_[0-9]+"));
  EXPECT_THAT(visible_in(run_folder), ElementsAre("batch_aggregated_results.txt", "batch_journal.jsonl",
                                                  "batch_summary.txt", "plot_0001", "plot_0002", "plot_0003"));
  EXPECT_THAT(column_of(run_folder, "Filename"),
              ElementsAre("HDR_plot_0001.INF", "HDR_plot_0002.INF", "HDR_plot_0003.INF"));
  EXPECT_THAT(column_of(run_folder, "area"), ElementsAre("30", "60", "90"));
  EXPECT_THAT(column_of(run_folder, "Date"), ElementsAre("2019-05-21", "2019-05-21", "2019-05-21"));
}

TEST(Batch, GivenSuccess_ThenTheAnswerIsATableOfNumbersAndPlaces) {
  const BatchSetup batch(2);
  const Outcome outcome = batch();
  EXPECT_EQ(outcome.exit_code, 0);
  for (const std::string& line :
       {std::string("Workflow    Leaf\n"), std::string("Successful  2\n"), std::string("Failed      0\n"),
        std::string("Total       2 files\n"), "Run folder  " + batch.run_folder().string() + "\n",
        "Table       " + (batch.run_folder() / "batch_aggregated_results.txt").string() + "\n"}) {
    EXPECT_THAT(outcome.out, HasSubstr(line));
  }
  EXPECT_THAT(outcome.out, testing::ContainsRegex("Time +(under )?[0-9.]+ s \\([0-9.]+ files/s\\)\n"));
  EXPECT_THAT(outcome.out, Not(HasSubstr("Not reached")));
  EXPECT_THAT(outcome.out, Not(HasSubstr("Done before")));
}

TEST(Batch, GivenNoTerminal_ThenStandardErrorHasALineAFile) {
  const BatchSetup batch(10);
  const Outcome outcome = batch();
  const std::vector<std::string> lines = split(outcome.err, '\n');
  ASSERT_EQ(lines.size(), 10u) << outcome.err;
  const std::string first = " 1/10 " + (batch.captures / "HDR_plot_0001.INF").string() + ": done in ";
  EXPECT_TRUE(lines.front().starts_with(first)) << lines.front();
  EXPECT_TRUE(lines.back().starts_with("10/10 ")) << lines.back();
}

/// What a terminal of 100 columns receives when the batch is typed there.
std::string on_a_terminal(const BatchSetup& batch, const std::string& option = {}) {
  std::string line = "stty cols 100; ";
  for (const std::string& word : batch.words()) line += "'" + word + "' ";
  return Process({"script", "--quiet", "--return", "--command", line + option, "/dev/null"}).wait().out;
}

TEST(Batch, GivenATerminal_ThenThereIsABarThatIsTakenAwayBeforeTheAnswer) {
  const BatchSetup batch(2);
  const std::string text = on_a_terminal(batch);
  EXPECT_THAT(text, HasSubstr("\r\033[K[--------------------]  0 of 2  HDR_plot_0001.INF"));
  EXPECT_THAT(text,
              HasSubstr("\r\033[K[--------------------]  0 of 2  HDR_plot_0001.INF: Mask 1 of 1: threshold_range"));
  EXPECT_THAT(text, testing::ContainsRegex("\\[##########----------\\]  1 of 2  [0-9.]+ files/s  [0-9]+ s left"));
  EXPECT_THAT(text, HasSubstr("\r\033[KWorkflow    Leaf"));
  EXPECT_THAT(text, Not(HasSubstr("done in")));
}

TEST(Batch, GivenATerminal_ThenNoLineOfTheBarIsWiderThanIt) {
  BatchSetup batch(1);
  std::filesystem::rename(batch.captures / "HDR_plot_0001.INF",
                          batch.captures / ("HDR_" + std::string(150, 'x') + ".INF"));
  const std::string text = on_a_terminal(batch);
  const std::string bar = "[--------------------]  0 of 1  HDR_xxx";
  const std::size_t start = text.find(bar);
  ASSERT_NE(start, std::string::npos) << text;
  EXPECT_EQ(text.find('\r', start) - start, 99u);  // one column stays free: writing it would wrap
}

TEST(Batch, GivenATerminalAndQuiet_ThenOnlyTheRunFolderIsPrinted) {
  const BatchSetup batch(2);
  const std::string text = on_a_terminal(batch, "--quiet");
  EXPECT_EQ(text, batch.run_folder().string() + "\r\n");
}

TEST(Batch, GivenATerminalAndLogLines_ThenThereAreLinesAFileInsteadOfABarThatTheyWouldRunInto) {
  const BatchSetup batch(1);
  const std::string text = on_a_terminal(batch, "--log-level warning");
  EXPECT_THAT(text, HasSubstr("1/1 "));
  EXPECT_THAT(text, Not(HasSubstr("\033[K")));
}

TEST(Batch, GivenQuiet_ThenOnlyTheRunFolderAndWhatFailedIsPrinted) {
  const BatchSetup batch(2);
  std::filesystem::remove(batch.captures / "plot_0001_RED.tif");
  const Outcome outcome = batch({"--quiet"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.out, batch.run_folder().string() + "\n");
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr("plot_0001_RED.tif: there is no such file."));
}

TEST(Batch, GivenJson_ThenStandardOutputIsTheSummaryMap) {
  const BatchSetup batch(2);
  batch.folder.write("captures/HDR_plot_0003.INF", "nonsense");
  const Outcome outcome = batch({"--json"});
  EXPECT_EQ(outcome.exit_code, 1);
  const common::Value summary = outcome.json();
  EXPECT_EQ(summary.at("total_files"), 3);
  EXPECT_EQ(summary.at("batch_folder"), batch.run_folder().string());
  EXPECT_EQ(summary.at("workflow_title"), "Leaf");
  EXPECT_EQ(summary.at("errors"), common::Value::array());
  const std::string first = (batch.captures / "HDR_plot_0001.INF").string();
  EXPECT_EQ(summary.at("successful_files").at(0),
            (common::Value{{"file", first},
                           {"output_folder", (batch.run_folder() / "plot_0001").string()},
                           {"operation_errors", common::Value::object()}}));
  ASSERT_EQ(summary.at("failed_files").size(), 1u);
  const common::Value& failure = summary.at("failed_files").at(0);
  const std::string third = (batch.captures / "HDR_plot_0003.INF").string();
  EXPECT_EQ(failure.at("file"), third);
  EXPECT_EQ(failure.at("error"), "Failed to load capture from: " + third);
  EXPECT_THAT(failure.at("reason").get<std::string>(), testing::StartsWith(third + ", line 1: "));
}

TEST(Batch, GivenTheSameCaptures_ThenTheTableIsTheSameWithAnyNumberOfThreads) {
  BatchSetup batch(4);
  ASSERT_EQ(batch({"--threads", "1"}).exit_code, 0);
  const auto one = batch.set_aside_run_folder();
  batch.output = batch.folder / "three";
  ASSERT_EQ(batch({"--threads", "3"}).exit_code, 0);
  EXPECT_EQ(read_all(one / "batch_aggregated_results.txt"),
            read_all(batch.run_folder() / "batch_aggregated_results.txt"));
}

TEST(Batch, GivenAFileThatCannotBeLoaded_ThenItIsListedWithItsReasonAndTheOthersGoOn) {
  const BatchSetup batch(3);
  std::filesystem::remove(batch.captures / "plot_0002_NIR.tif");
  const Outcome outcome = batch();
  EXPECT_EQ(outcome.exit_code, 1);
  const std::string sentence = (batch.captures / "HDR_plot_0002.INF").string() +
                               ", line 8: Image NIR = plot_0002_NIR.tif: there is no such file.";
  EXPECT_THAT(outcome.out, testing::StartsWith("Failed files:\n  " + sentence + "\n\nWorkflow "));
  EXPECT_THAT(outcome.err, HasSubstr("\n2/3 failed: " + sentence + "\n"));
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("Successful  2\n"), HasSubstr("Failed      1\n")));
  EXPECT_THAT(column_of(batch.run_folder(), "area"), ElementsAre("30", "90"));
}

TEST(Batch, GivenFilesThatFailForTheSameReason_ThenItStandsOnceWithTheFiles) {
  const BatchSetup batch(1);
  for (const char* name : {"HDR_v.INF", "HDR_w.INF", "HDR_x.INF", "HDR_y.INF", "HDR_z.INF"}) {
    batch.folder.write(std::string("captures/") + name, "nonsense");
  }
  std::filesystem::remove(batch.captures / "plot_0001_RED.tif");
  const Outcome outcome = batch();
  EXPECT_EQ(outcome.exit_code, 3);
  const std::string in = batch.captures.string() + "/";
  EXPECT_THAT(outcome.out,
              testing::MatchesRegex("Failed files:\n  " + in + "HDR_plot_0001.INF, line 9: [^\n]+\n  line 1: [^\n]+\n" +
                                    "    5 files: " + in + "HDR_v.INF, " + in + "HDR_w.INF, " + in +
                                    "HDR_x.INF and 2 more\n\nWorkflow (.|\n)*"));
}

TEST(Batch, GivenNoFileThatSucceeds_ThenTheExitCodeIs3AndThereIsNoTable) {
  const BatchSetup batch(2);
  for (const char* band : {"plot_0001_RED.tif", "plot_0002_RED.tif"}) std::filesystem::remove(batch.captures / band);
  const Outcome outcome = batch();
  EXPECT_EQ(outcome.exit_code, 3);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("Successful  0\n"), HasSubstr("Failed      2\n"), Not(HasSubstr("Table "))));
  EXPECT_THAT(visible_in(batch.run_folder()), ElementsAre("batch_journal.jsonl", "batch_summary.txt"));
}

TEST(Batch, GivenAnOperationThatFails_ThenItsSentenceStandsOnceWithTheFilesAndTheExitCodeIs1) {
  BatchSetup batch(5);
  batch.workflow = batch.folder.write("psii.yaml",
                                      "title: Lacks fluorescence\n"
                                      "mask_operations:\n"
                                      "  - op: threshold_range\n"
                                      "    params: {band: MSP.NIR, low: 0.5, high: 1.0}\n"
                                      "result_operations:\n"
                                      "  - op: psii\n"
                                      "  - op: area\n");
  const Outcome outcome = batch();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.out, HasSubstr("Failed operations:\n  psii needs the measurement FLU; this capture has MSP.\n"
                                     "    5 files: "));
  EXPECT_THAT(outcome.out, HasSubstr("HDR_plot_0003.INF and 2 more\n"));
  EXPECT_THAT(outcome.out, HasSubstr("Successful  5 (5 of them with failed operations)\n"));
  EXPECT_THAT(outcome.err, HasSubstr(", but: psii needs the measurement FLU"));
  EXPECT_THAT(column_of(batch.run_folder(), "area"), ElementsAre("30", "60", "90", "120", "150"));
}

TEST(Batch, GivenPicturesWithoutContrast_ThenTheEmptyMasksAreExplainedOnceAndInTheJsonDocument) {
  BatchSetup batch(4);
  batch.workflow = batch.folder.write("flat.yaml",
                                      "title: Flat\n"
                                      "mask_operations:\n"
                                      "  - op: threshold_auto\n"
                                      "    params: {band: MSP.RED}\n"
                                      "result_operations:\n"
                                      "  - op: area\n");
  const std::string note = "no_contrast: all pixels have the same value in MSP.RED, so the mask is empty";
  const Outcome outcome = batch();
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  const std::string first = (batch.captures / "HDR_plot_0001.INF").string();
  EXPECT_THAT(outcome.out, testing::StartsWith("Warnings about masks:\n  mask step 1 (threshold_auto): " + note +
                                               ".\n    4 files: " + first + ", "));
  EXPECT_THAT(outcome.out, HasSubstr("HDR_plot_0003.INF and 1 more\n\nWorkflow "));
  batch.output = batch.folder / "json";
  const common::Value notes = batch({"--json"}).json().at("mask_notes");
  ASSERT_EQ(notes.size(), 4u);
  EXPECT_EQ(notes.at(0), (common::Value{{"file", first}, {"step", 0}, {"op", "threshold_auto"}, {"note", note}}));
}

TEST(Batch, GivenAStepThatRemarksTheLevelItFound_ThenThatIsNoWarningButInTheJsonDocument) {
  BatchSetup batch(1);
  batch.workflow = batch.folder.write("otsu.yaml",
                                      "title: Flat\n"
                                      "mask_operations:\n"
                                      "  - op: threshold_auto\n"
                                      "    params: {band: MSP.NIR}\n"
                                      "result_operations:\n"
                                      "  - op: area\n");
  EXPECT_THAT(batch().out, testing::StartsWith("Workflow "));
  batch.output = batch.folder / "json";
  EXPECT_THAT(batch({"--json"}).json().at("mask_notes").at(0).at("note").get<std::string>(),
              HasSubstr("level 1000 counts"));
}

TEST(Batch, GivenAWorkflowOfMasksAlone_ThenTheyAreWrittenAndARemarkSaysThatNothingIsMeasured) {
  BatchSetup batch(1);
  batch.workflow = batch.folder.write("masks.yaml", "title: Masks\nmask_operations:\n  - op: threshold_auto\n");
  const Outcome outcome = batch();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.err, HasSubstr("The workflow has no result operations: only its masks are applied.\n"));
  EXPECT_TRUE(std::filesystem::is_regular_file(batch.run_folder() / "plot_0001" / "masks" / "final.png"));
}

TEST(Batch, GivenAWorkflowWithProblems_ThenEachIsNamedBeforeAnythingIsMade) {
  BatchSetup batch(1);
  batch.workflow = batch.folder.write("wrong.yaml",
                                      "mask_operations:\n  - op: errode\n"
                                      "result_operations:\n  - op: aera\n");
  for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"--dry-run"}}) {
    const Outcome outcome = batch(more);
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("mask step 1 (errode)"), HasSubstr("(did you mean \"erode\"?)"),
                                   HasSubstr("result operation 1 (aera)"), HasSubstr("(did you mean \"area\"?)")));
    EXPECT_EQ(split(outcome.err, '\n').size(), 2u);
    EXPECT_FALSE(std::filesystem::exists(batch.output));
  }
}

TEST(Batch, GivenTheWorkflowOfTheFile_ThenTheStepsThatRanAreThoseOfTheFile) {
  const BatchSetup batch(1);
  ASSERT_EQ(batch().exit_code, 0);
  const common::Value ran = common::load_yaml(batch.run_folder() / "plot_0001" / "workflow.yaml");
  ASSERT_EQ(ran.at("result_operations").size(), 2u);
  EXPECT_EQ(ran.at("result_operations").at(0).at("op"), "area");
  EXPECT_EQ(ran.at("result_operations").at(1).at("op"), "index_statistics");
}

TEST(Batch, GivenAFileNameThatIsNoText_ThenItIsMeasuredAndTheDocumentHoldsIt) {
  const BatchSetup batch(1);
  std::filesystem::rename(batch.captures / "HDR_plot_0001.INF", batch.captures / "HDR_\xFF\n.INF");
  const Outcome outcome = batch({"--json"});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_THAT(outcome.json().at("successful_files").at(0).at("file").get<std::string>(),
              testing::EndsWith("HDR_\uFFFD\n.INF"));
  EXPECT_EQ(split(outcome.err, '\n').size(), 1u) << outcome.err;
}

}  // namespace
}  // namespace orvexa::test
