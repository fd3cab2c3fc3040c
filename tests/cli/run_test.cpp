#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "cli/plot.h"
#include "cli/process.h"
#include "cli/small_file_system.h"
#include "orvexa/common/serialisation.h"

namespace orvexa::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// The steps of a workflow file with their parameters as they are written there, without what a file may leave out.
common::Value steps_of(const std::filesystem::path& file) {
  common::Value steps = common::Value::array();
  const common::Value document = common::load_yaml(file);
  for (const char* list : {"mask_operations", "result_operations"}) {
    for (const common::Value& step : document.at(list)) {
      steps.push_back({list, step.at("op"), step.value("params", common::Value::object())});
    }
  }
  return steps;
}

struct RunSetup {
  TemporaryFolder folder;
  std::filesystem::path capture = write_plot(folder);
  std::filesystem::path workflow = write_leaf_workflow(folder);
  std::filesystem::path output = folder / "out put ü";

  Outcome operator()(std::vector<std::string> more = {}) const {
    std::vector<std::string> arguments{"run", workflow.string(), capture.string(), "-o", output.string()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return orvexa_command(arguments);
  }
  /// Names in the output folder, hidden ones included; empty when there is no such folder.
  [[nodiscard]] std::vector<std::string> left_behind() const {
    std::vector<std::string> names;
    if (!std::filesystem::is_directory(output)) return names;
    for (const auto& entry : std::filesystem::directory_iterator(output)) names.push_back(entry.path().filename());
    return names;
  }
};

TEST(Run, GivenAWorkflowAndACapture_ThenItPrintsTheMetricsAndWhereTheResultsLie) {
  const RunSetup run;
  const Outcome outcome = run();
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, testing::ContainsRegex("area +area +300 +px"));
  EXPECT_THAT(outcome.out, testing::ContainsRegex("ndvi\\.mean +0\\.5\n"));
  EXPECT_THAT(outcome.out, HasSubstr("Results: " + (run.output / "plot").string() + "\n"));
  EXPECT_THAT(run.left_behind(), ElementsAre("plot"));
  for (const char* file : {"workflow.yaml", "metrics.json", "metrics.tsv", "provenance.json", "masks/final.png"}) {
    EXPECT_TRUE(std::filesystem::is_regular_file(run.output / "plot" / file)) << file;
  }
}

TEST(Run, GivenJson_ThenStandardOutputIsOneDocumentWithTheKnownAnswers) {
  const RunSetup run;
  const Outcome outcome = run({"--json"});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  const common::Value document = outcome.json();
  EXPECT_EQ(document.at("capture"), "plot");
  EXPECT_EQ(document.at("workflow"), "Leaf");
  EXPECT_EQ(document.at("results_folder"), (run.output / "plot").string());
  // 10 of 40 columns and 30 rows are leaf; 0.5 mm a pixel; NDVI (3000 - 1000) / (3000 + 1000).
  EXPECT_EQ(document.at("results").at("area").at("metrics").at("area"), 300);
  EXPECT_DOUBLE_EQ(document.at("results").at("area").at("metrics").at("area_mm2").get<double>(), 75.0);
  EXPECT_DOUBLE_EQ(document.at("results").at("index_statistics").at("metrics").at("ndvi.mean").get<double>(), 0.5);
  EXPECT_EQ(document.at("results").at("area").at("regions").at("ROI_1").at("metrics").at("area"), 300);
}

TEST(Run, GivenQuiet_ThenOnlyTheResultsFolderIsPrinted) {
  const RunSetup run;
  const Outcome outcome = run({"--quiet"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.out, (run.output / "plot").string() + "\n");
  EXPECT_EQ(outcome.err, "");
}

TEST(Run, GivenAnotherNumberOfThreads_ThenTheMetricsAreTheSameToTheByte) {
  const RunSetup run;
  ASSERT_EQ(run({"--threads", "1"}).exit_code, 0);
  ASSERT_EQ(run({"--threads", "3"}).exit_code, 0);
  const std::string one = read_all(run.output / "plot" / "metrics.json");
  EXPECT_FALSE(one.empty());
  EXPECT_EQ(one, read_all(run.output / "plot_2" / "metrics.json"));
}

TEST(Run, GivenInfoLines_ThenTheStepsAppearOnStandardError) {
  const RunSetup run;
  const Outcome outcome = run({"--log-level", "info"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.err, HasSubstr("Mask 1 of 1: threshold_range"));
}

bool has_terminals() {
  return Process({"sh", "-c",
                  "command -v script >/dev/null && script --quiet --return --command true /dev/null >/dev/null 2>&1"})
             .wait()
             .exit_code == 0;
}

/// What a terminal receives when `orvexa run` is typed there; `script` of the base system is the terminal.
std::string on_a_terminal(const RunSetup& run, const std::string& option) {
  const auto quoted = [](const std::filesystem::path& path) { return "'" + path.string() + "' "; };
  const std::string line = quoted(test::program()) + "run " + quoted(run.workflow) + quoted(run.capture) + "-o " +
                           quoted(run.output) + option;
  return Process({"script", "--quiet", "--return", "--command", line, "/dev/null"}).wait().out;
}

TEST(Run, GivenATerminal_ThenProgressIsOneLineThatIsTakenAwayBeforeTheAnswer) {
  if (!has_terminals()) GTEST_SKIP() << "this machine has no terminal for a test (/dev/pts, the program script)";
  const RunSetup run;
  const std::string text = on_a_terminal(run, "");
  EXPECT_THAT(text, HasSubstr("\r\033[KMask 1 of 1: threshold_range\r\033[K"));
  EXPECT_THAT(text, HasSubstr("\r\033[Kplot, over the whole mask:"));
}

TEST(Run, GivenATerminalAndQuiet_ThenThereIsNoProgress) {
  if (!has_terminals()) GTEST_SKIP() << "this machine has no terminal for a test (/dev/pts, the program script)";
  const RunSetup run;
  EXPECT_EQ(on_a_terminal(run, "--quiet"), (run.output / "plot").string() + "\r\n");
}

TEST(Run, GivenACaptureThatOffersMoreThanTheWorkflowUses_ThenTheStepsThatRanAreThoseOfTheFile) {
  // Two bands with a white level would allow band statistics, histograms and more; the file asks for two operations.
  const RunSetup run;
  ASSERT_EQ(run().exit_code, 0);
  EXPECT_EQ(steps_of(run.output / "plot" / "workflow.yaml"), steps_of(run.workflow));
}

TEST(Run, GivenACaptureThatLacksWhatAnOperationNeeds_ThenItReportsAnErrorAndTheOthersGoOn) {
  RunSetup run;
  run.workflow = run.folder.write("lacks.yaml",
                                  "title: Lacks fluorescence\n"
                                  "mask_operations:\n"
                                  "  - op: threshold_range\n"
                                  "    params: {band: MSP.NIR, low: 0.5, high: 1.0}\n"
                                  "result_operations:\n"
                                  "  - op: psii\n"
                                  "  - op: area\n");
  const Outcome outcome = run({"--json"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_TRUE(outcome.err.starts_with("psii")) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("FLU"));
  const common::Value results = outcome.json().at("results");
  EXPECT_THAT(results.at("psii").at("error").get<std::string>(), HasSubstr("FLU"));
  EXPECT_EQ(results.at("area").at("metrics").at("area"), 300);
  EXPECT_FALSE(results.at("area").contains("error"));
  EXPECT_EQ(steps_of(run.output / "plot" / "workflow.yaml"), steps_of(run.workflow));
  EXPECT_THAT(run.left_behind(), ElementsAre("plot"));
}

TEST(Run, GivenAPictureWithoutContrast_ThenTheEmptyMaskIsExplainedOnTheScreenAndInTheJsonDocument) {
  RunSetup run;
  run.workflow = run.folder.write("flat.yaml",
                                  "mask_operations:\n"
                                  "  - op: threshold_auto\n"
                                  "    params: {band: MSP.RED}\n"
                                  "result_operations:\n"
                                  "  - op: area\n");
  const std::string sentence =
      "no_contrast: all pixels have the same value in MSP.RED, so the mask is empty";  // RED is 1000 everywhere
  const Outcome outcome = run();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "mask step 1 (threshold_auto): " + sentence + ".\n");
  EXPECT_EQ(run({"--quiet"}).err, "");
  const common::Value notes = run({"--json"}).json().at("mask_notes");
  ASSERT_EQ(notes.size(), 1u);
  EXPECT_EQ(notes.at(0), (common::Value{{"step", 0}, {"op", "threshold_auto"}, {"note", sentence}}));
}

TEST(Run, GivenAStepThatRemarksTheLevelItFound_ThenThatIsNoWarning) {
  RunSetup run;
  run.workflow = run.folder.write("otsu.yaml",
                                  "mask_operations:\n"
                                  "  - op: threshold_auto\n"
                                  "    params: {band: MSP.NIR}\n");
  const Outcome outcome = run({"--json"});
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.json().at("mask_notes").at(0).at("note").get<std::string>(), HasSubstr("level 1000 counts"));
}

TEST(Run, GivenAnIndexThatTheCaptureCannotGive_ThenTheOthersAreMeasuredAndTheScreenSaysWhy) {
  RunSetup run;
  run.workflow = run.folder.write("indices.yaml",
                                  "result_operations:\n"
                                  "  - op: index_statistics\n"
                                  "    params: {indices: [gndvi, ndvi]}\n");
  const Outcome outcome = run();
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, testing::ContainsRegex("ndvi\\.mean +0\\.125\n"));  // a quarter of the pixels has 0.5
  // n, n_invalid, mean, sd, cv, min, max, median, mad, p5, p25, p75, p95, skew, kurtosis, sum and share_over_limit
  EXPECT_THAT(outcome.out, testing::ContainsRegex(
                               "gndvi\\.n and 16 more +- +No measurement of this capture has a band for the role G "));
}

struct FailureCase {
  const char* name;
  const char* workflow;
  std::vector<std::string> words;  ///< all of them are in the sentence
};

class FailingRun : public testing::TestWithParam<FailureCase> {};

TEST_P(FailingRun, IsOneSentenceExitCode1AndNoFolder) {
  RunSetup run;
  run.workflow = run.folder.write("wörk flow.yaml", GetParam().workflow);
  const Outcome outcome = run();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(is_one_sentence(outcome.err));
  for (const std::string& word : GetParam().words) EXPECT_THAT(outcome.err, HasSubstr(word));
  EXPECT_THAT(run.left_behind(), ElementsAre());
}

INSTANTIATE_TEST_SUITE_P(
    Table, FailingRun,
    testing::Values(FailureCase{"MisspeltMaskOperation",
                                "mask_operations:\n  - op: threshold_range\n  - op: errode\n",
                                {"wörk flow.yaml", "mask step 2 (errode)", "(did you mean \"erode\"?)"}},
                    FailureCase{"MisspeltResultOperation",
                                "result_operations:\n  - op: aera\n",
                                {"result operation 1 (aera)", "(did you mean \"area\"?)"}},
                    FailureCase{"MisspeltParameter",
                                "mask_operations:\n  - op: threshold_range\n    params: {lwo: 0.5}\n",
                                {"mask step 1 (threshold_range)", "lwo", "(did you mean \"low\"?)"}},
                    FailureCase{"MissingBand",
                                "mask_operations:\n  - op: threshold_range\n    params: {band: MSP.SWIR}\n",
                                {"threshold_range", "SWIR", "NIR"}},
                    FailureCase{"NewerFormat",
                                "format: 99\ntitle: From the future\n",
                                {"wörk flow.yaml: format: The workflow has format 99; this program reads format 1"}},
                    FailureCase{"NotAMap", "just a text\n", {"wörk flow.yaml"}},
                    FailureCase{"EmptyFile", "", {"wörk flow.yaml"}},
                    FailureCase{"BrokenYaml", "mask_operations: [\n", {"wörk flow.yaml"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Run, GivenNoCaptureFile_ThenTheSentenceNamesIt) {
  RunSetup run;
  run.capture = run.folder / "HDR_nowhere.INF";
  const Outcome outcome = run();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr("HDR_nowhere.INF"));
  EXPECT_THAT(run.left_behind(), ElementsAre());
}

TEST(Run, GivenAnOutputFolderThatIsAFile_ThenTheSentenceNamesItAndTheFileStays) {
  RunSetup run;
  run.output = run.folder.write("a file", "precious");
  const Outcome outcome = run();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr("a file"));
  EXPECT_EQ(read_all(run.output), "precious");
}

/// Runs `orvexa run` with the output folder on a small file system of its own; its listing follows on standard error.
Outcome run_on_a_file_system(const RunSetup& run, const std::string& options) {
  return on_a_file_system(
      run.output, options,
      {test::program(), "run", run.workflow.string(), run.capture.string(), "-o", run.output.string()}, "ls -A");
}

TEST(Run, GivenAReadOnlyOutputFolder_ThenOneSentenceSaysSo) {
  if (!has_namespaces()) GTEST_SKIP() << "this machine does not let a test mount a file system of its own";
  const RunSetup run;
  const Outcome outcome = run_on_a_file_system(run, "ro,size=64k");
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(outcome.err));  // and the listing of the folder after it is empty
  EXPECT_THAT(outcome.err, HasSubstr("out put ü"));
}

TEST(Run, GivenAFullDisk_ThenOneSentenceSaysSoAndNothingIsLeft) {
  if (!has_namespaces()) GTEST_SKIP() << "this machine does not let a test mount a file system of its own";
  const RunSetup run;
  const Outcome outcome = run_on_a_file_system(run, "size=16k");
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(outcome.err));  // and the listing of the folder after it is empty
  EXPECT_THAT(outcome.err, HasSubstr("has 16.4 kB left"));
}

struct LongRun : RunSetup {
  LongRun() {
    capture = write_plot(folder, 6000, 6000);
    workflow = write_long_workflow(folder);
  }
  [[nodiscard]] std::vector<std::string> words() const {
    return {test::program(), "run", workflow.string(), capture.string(), "-o", output.string(), "--log-level", "info"};
  }
};

class InterruptedRun : public testing::TestWithParam<int> {};

TEST_P(InterruptedRun, EndsCleanlyWithExitCode130AndLeavesNoFolder) {
  const LongRun run;
  Process process(run.words());
  ASSERT_TRUE(process.wait_for_error_text("Mask 2 of 4"));
  process.send(GetParam());
  const Outcome outcome = process.wait();
  EXPECT_EQ(outcome.exit_code, 130);
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(outcome.err.ends_with("\nInterrupted; no results were written.\n")) << outcome.err;
  EXPECT_THAT(run.left_behind(), ElementsAre());
}

INSTANTIATE_TEST_SUITE_P(Signals, InterruptedRun, testing::Values(SIGINT, SIGTERM), [](const auto& test) {
  return std::string(test.param == SIGINT ? "Interrupt" : "Terminate");
});

TEST(Run, GivenASecondSignal_ThenItEndsAtOnceAndTheNextRunClearsUp) {
  LongRun run;
  Process process(run.words());
  ASSERT_TRUE(process.wait_for_error_text("Mask 2 of 4"));
  // Both signals are there when the stopped program goes on, so the first cannot end it before the second comes.
  process.send(SIGSTOP);
  process.send(SIGINT);
  process.send(SIGTERM);
  process.send(SIGCONT);
  const Outcome outcome = process.wait();
  EXPECT_EQ(outcome.exit_code, 130);
  EXPECT_THAT(outcome.err, testing::Not(HasSubstr("Interrupted")));
  EXPECT_THAT(run.left_behind(), testing::Not(testing::Contains("plot")));

  run.capture = write_plot(run.folder);
  run.workflow = write_leaf_workflow(run.folder);
  EXPECT_EQ(run().exit_code, 0);
  EXPECT_THAT(run.left_behind(), ElementsAre("plot"));
}

}  // namespace
}  // namespace orvexa::test
