#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include "cli/plot.h"
#include "cli/process.h"
#include "orvexa/common/serialisation.h"

namespace orvexa::test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;

struct PartSetup {
  TemporaryFolder folder;
  fs::path capture = write_plot(folder);  // the left 10 of 40 columns are leaf; 30 rows
  fs::path output = folder / "steps";
  fs::path workflow = folder.write("three.yaml",
                                   "mask_operations:\n"
                                   "  - op: roi_rect\n"
                                   "    params: {rect: [0.5, 0.25, 1.0, 0.5]}\n"
                                   "  - op: threshold_range\n"
                                   "    params: {band: MSP.NIR, low: 0.5}\n"
                                   "result_operations:\n"
                                   "  - op: region_count\n"
                                   "  - op: psii\n"
                                   "  - op: index_statistics\n"
                                   "    params: {indices: [ndvi]}\n");

  Outcome operator()(std::vector<std::string> more) const {
    more.insert(more.begin(), {"run", workflow.string(), capture.string(), "-o", output.string()});
    return orvexa_command(more);
  }
  [[nodiscard]] std::vector<std::string> folders() const {
    std::vector<std::string> names;
    if (!fs::exists(output)) return names;
    for (const auto& entry : fs::directory_iterator(output)) names.push_back(entry.path().filename());
    return names;
  }
  [[nodiscard]] cv::Mat pixels(const fs::path& file) const {
    return model::read_image_file(file).image.read_only().clone();
  }
};

TEST(RunStep, WritesTheMaskAfterThatStepAndEachImageUnderIt) {
  const PartSetup run;
  const Outcome outcome = run({"--step", "1"});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  const fs::path folder = run.output / "plot_step_1_roi_rect";
  // The upper half of 30 rows, all 40 columns.
  EXPECT_EQ(outcome.out,
            "plot, after mask step 1 (roi_rect): 600 of 1,200 pixels (50 %)\nResults: " + folder.string() + "\n");
  EXPECT_THAT(run.folders(), ElementsAre("plot_step_1_roi_rect"));
  EXPECT_EQ(cv::countNonZero(run.pixels(folder / "mask.png").rowRange(0, 15)), 600);
  const cv::Mat nir = run.pixels(folder / "images" / "MSP_NIR.png");
  EXPECT_EQ(nir.type(), CV_16UC1);
  EXPECT_EQ(nir.at<std::uint16_t>(0, 0), 3000);
  EXPECT_EQ(nir.at<std::uint16_t>(0, 39), 1000);
  EXPECT_EQ(nir.at<std::uint16_t>(29, 0), 0) << "outside the mask";
  EXPECT_EQ(cv::countNonZero(run.pixels(folder / "images" / "MSP_RED.png")), 600);
}

TEST(RunStep, GivenALaterStep_ThenTheStepsBeforeItCount) {
  const PartSetup run;
  const Outcome outcome = run({"--step", "2", "--json"});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  const common::Value document = outcome.json();
  EXPECT_EQ(document.at("step"), 2);
  EXPECT_EQ(document.at("op"), "threshold_range");
  EXPECT_EQ(document.at("params"), (common::Value{{"band", "MSP.NIR"}, {"low", 0.5}}));
  EXPECT_EQ(document.at("pixels"), 150);  // 10 columns of 15 rows
  EXPECT_EQ(document.at("results_folder"), (run.output / "plot_step_2_threshold_range").string());
}

TEST(RunStep, GivenAFloatImage_ThenItsNumbersAreKept) {
  PartSetup run;
  common::write_file_atomically(run.folder / "heat.tif",
                                model::encode_tiff(model::Image(cv::Mat(4, 6, CV_32FC1, cv::Scalar(0.123F)))));
  run.capture = run.folder / "heat.tif";
  run.workflow =
      run.folder.write("roi.yaml", "mask_operations:\n  - {op: roi_rect, params: {rect: [0.25, 0.5, 0.5, 1]}}\n");
  ASSERT_EQ(run({"--step", "1", "--quiet"}).out, (run.output / "heat_step_1_roi_rect").string() + "\n");
  const cv::Mat heat = run.pixels(run.output / "heat_step_1_roi_rect" / "images" / "GRY_GRY.tif");
  EXPECT_EQ(heat.at<float>(0, 0), 0.123F);
  EXPECT_EQ(heat.at<float>(0, 5), 0.0F);
}

TEST(RunStep, GivenTheSameStepAgain_ThenTheFirstFolderStays) {
  const PartSetup run;
  EXPECT_EQ(run({"--step", "1"}).exit_code, 0);
  EXPECT_EQ(run({"--step", "1", "--quiet"}).out, (run.output / "plot_step_1_roi_rect_2").string() + "\n");
}

TEST(RunOperation, WritesWhatThatOperationFindsUnderAllMaskSteps) {
  const PartSetup run;
  const Outcome outcome = run({"--operation", "1"});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, testing::ContainsRegex("region_count +region_count +1\n"));
  EXPECT_THAT(outcome.out, testing::Not(HasSubstr("ndvi")));
  const fs::path folder = run.output / "plot_operation_1_region_count";
  const common::Value metrics = common::load_yaml(folder / "metrics.json");
  EXPECT_EQ(metrics.at("capture"), "plot");
  EXPECT_EQ(metrics.at("date"), "2019-05-21");
  EXPECT_EQ(metrics.at("results").at("region_count").at("metrics").at("region_count"), 1);
  EXPECT_THAT(read_all(folder / "tables" / "region_count_areas.tsv"), HasSubstr("150"));
  EXPECT_THAT(read_all(folder / "metrics.tsv"), HasSubstr("\nplot\tROI_1\t2019-05-21\t10:32:11\t1"));
}

TEST(RunOperation, GivenJson_ThenTheMetricsAreInTheDocumentAndTheMapsInTheFolder) {
  const PartSetup run;
  const Outcome outcome = run({"--operation", "3", "--json"});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  const common::Value document = outcome.json();
  EXPECT_EQ(document.at("operation"), 3);
  // (3000 - 1000) / (3000 + 1000) wherever the mask is.
  EXPECT_DOUBLE_EQ(document.at("results").at("index_statistics").at("metrics").at("ndvi.mean").get<double>(), 0.5);
  const fs::path folder = run.output / "plot_operation_3_index_statistics";
  EXPECT_TRUE(fs::exists(folder / "images" / "index_statistics_ndvi.png"));
  EXPECT_EQ(run.pixels(folder / "images" / "index_statistics_ndvi.tif").at<float>(0, 0), 0.5F);
}

TEST(RunPart, RecordsWhatItReadWithTheFilesThatParametersName) {
  PartSetup run;
  const fs::path picture = run.folder / "marks.png";
  common::write_file_atomically(picture, model::encode_png(model::Image(cv::Mat(30, 40, CV_8UC1, cv::Scalar(1)))));
  run.workflow = run.folder.write("marked.yaml",
                                  "mask_operations:\n"
                                  "  - {op: mask_from_file, params: {file: marks.png}}\n"
                                  "  - {op: threshold_range, params: {band: MSP.NIR, low: 0.5}}\n"
                                  "result_operations:\n"
                                  "  - {op: index_statistics}\n");
  ASSERT_EQ(run({}).exit_code, 0);
  const common::Value whole = common::Value::parse(read_all(run.output / "plot" / "provenance.json"));
  for (const auto& [option, number, name, part] :
       {std::tuple("--step", "2", "plot_step_2_threshold_range", "mask step 2 (threshold_range)"),
        std::tuple("--operation", "1", "plot_operation_1_index_statistics", "result operation 1 (index_statistics)")}) {
    SCOPED_TRACE(option);
    ASSERT_EQ(run({option, number}).exit_code, 0);
    const fs::path folder = run.output / name;
    const common::Value record = common::Value::parse(read_all(folder / "provenance.json"));
    EXPECT_EQ(record.at("part"), part);
    ASSERT_EQ(record.at("files").size(), 1u);
    EXPECT_EQ(record.at("files").at(0).at("path"), picture.string());
    EXPECT_EQ(record.at("files").at(0).at("sha256"), common::sha256_hex(common::read_file(picture)));
    for (const char* same : {"capture", "inputs", "files", "workflow_sha256", "program", "libraries"}) {
      EXPECT_EQ(record.at(same), whole.at(same)) << same;
    }
    ASSERT_EQ(record.at("mask_operations").size(), 2u);
    for (std::size_t step = 0; step < 2; ++step) {
      EXPECT_EQ(record.at("mask_operations").at(step).at("params"), whole.at("mask_operations").at(step).at("params"));
    }
    const Outcome verified = orvexa_command({"verify", folder.string()});
    EXPECT_EQ(verified.exit_code, 1);
    EXPECT_EQ(verified.err,
              folder.string() + ": provenance.json: only " + part + " ran; name the results folder of a whole run.\n");
  }
  const common::Value operation =
      common::Value::parse(read_all(run.output / "plot_operation_1_index_statistics" / "provenance.json"));
  EXPECT_EQ(operation.at("result_operations"), whole.at("result_operations"));
}

struct RefusedPart {
  const char* name;
  std::vector<std::string> words;
  int exit_code;
  std::vector<std::string> texts;
};

class RunPartRefuses : public testing::TestWithParam<RefusedPart> {};

TEST_P(RunPartRefuses, WithOneSentenceAndNoFolder) {
  const PartSetup run;
  const Outcome outcome = run(GetParam().words);
  EXPECT_EQ(outcome.exit_code, GetParam().exit_code);
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(is_one_sentence(outcome.err));
  for (const std::string& text : GetParam().texts) EXPECT_THAT(outcome.err, HasSubstr(text));
  EXPECT_THAT(run.folders(), ElementsAre());
}

INSTANTIATE_TEST_SUITE_P(
    Table, RunPartRefuses,
    testing::Values(RefusedPart{"StepZero", {"--step", "0"}, 2, {"--step is \"0\"; a whole number from 1 to 2"}},
                    RefusedPart{
                        "AStepAfterTheEnd", {"--step", "3"}, 2, {"--step is \"3\"; a whole number from 1 to 2"}},
                    RefusedPart{"AnOperationAfterTheEnd", {"--operation", "4"}, 2, {"a whole number from 1 to 3"}},
                    RefusedPart{"Both", {"--step", "1", "--operation", "1"}, 2, {"cannot be given together"}},
                    RefusedPart{"AnOperationThatFails", {"--operation", "2"}, 1, {"FLU"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(RunStep, GivenAStepThatFails_ThenTheSentenceNamesItByItsNumber) {
  PartSetup run;
  run.workflow = run.folder.write("fails.yaml",
                                  "mask_operations:\n"
                                  "  - op: roi_rect\n"
                                  "  - {op: threshold_range, params: {band: MSP.SWIR}}\n"
                                  "result_operations:\n  - op: area\n");
  for (const char* option : {"--step", "--operation"}) {
    const Outcome outcome = run({option, option == std::string("--step") ? "2" : "1"});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_TRUE(is_one_sentence(outcome.err));
    EXPECT_THAT(outcome.err, testing::StartsWith("Mask step 2 (threshold_range) failed: "));
  }
  EXPECT_EQ(run({"--step", "1"}).exit_code, 0) << "the steps before it can be looked at";
}

class InterruptedPart : public testing::TestWithParam<const char*> {};

TEST_P(InterruptedPart, EndsInsideAStepWithExitCode130AndLeavesNoFolder) {
  PartSetup run;
  run.capture = write_plot(run.folder, 6000, 6000);
  run.workflow = write_long_workflow(run.folder);
  const std::string option = GetParam();
  Process process({test::program(), "run", run.workflow.string(), run.capture.string(), "-o", run.output.string(),
                   option, option == "--step" ? "4" : "1", "--log-level", "info"});
  ASSERT_TRUE(process.wait_for_error_text(option == "--step" ? "Mask steps 1 to 4" : "Result operation 1: area"));
  process.send(SIGINT);
  const Outcome outcome = process.wait();
  EXPECT_EQ(outcome.exit_code, 130);
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(outcome.err.ends_with("\nInterrupted; no results were written.\n")) << outcome.err;
  EXPECT_THAT(run.folders(), ElementsAre());
}

INSTANTIATE_TEST_SUITE_P(Options, InterruptedPart, testing::Values("--step", "--operation"),
                         [](const auto& test) { return std::string(test.param).substr(2); });

TEST(RunPart, GivenANumberThatNoStepHas_ThenTheSentenceSaysHowManyThereAre) {
  PartSetup run;
  const Outcome outcome = run({"--step", "3"});
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.err, "--step is \"3\"; a whole number from 1 to 2 is expected, because " + run.workflow.string() +
                             " has 2 mask steps.\n");
  run.workflow = run.folder.write("one.yaml", "result_operations:\n  - op: area\n");
  EXPECT_EQ(run({"--operation", "two"}).err,
            "--operation is \"two\"; 1 is expected, because " + run.workflow.string() + " has 1 result operation.\n");
}

TEST(RunPart, GivenAWorkflowWithoutStepsOfThatKind_ThenThatIsSaid) {
  PartSetup run;
  run.workflow = run.folder.write("empty.yaml", "title: Empty\n");
  EXPECT_THAT(run({"--step", "1"}).err, HasSubstr("empty.yaml has no mask steps."));
  EXPECT_THAT(run({"--operation", "1"}).err, HasSubstr("empty.yaml has no result operations."));
}

}  // namespace
}  // namespace orvexa::test
