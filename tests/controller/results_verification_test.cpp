// Real runs of real files: what is verified is what a user has.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "orvexa/common/files.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/model/codecs/image_file.h"
#include "orvexa/model/workflow/provenance.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

namespace fs = std::filesystem;

using controller::Difference;
using controller::Verification;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// A plot of 6 x 4 pixels in two bands, measured into `out/plot`.
class ResultsVerification : public testing::Test {
 protected:
  ResultsVerification() {
    fs::create_directories(folder / "in" / "bands");
    cv::Mat nir(4, 6, CV_16UC1, cv::Scalar(1000));
    nir.colRange(0, 2).setTo(3000);
    write_image("in/bands/NIR.tif", model::Image(std::move(nir)));
    write_image("in/RED.tif", model::Image(cv::Mat(4, 6, CV_16UC1, cv::Scalar(1000))));
    folder.write("in/HDR_plot.INF",
                 "[Capture]\nName = plot\nWhiteLevel = 4000\n"
                 "[Measurement MSP]\nImage NIR = bands/NIR.tif\nImage RED = RED.tif\n"
                 "[Band NIR]\nCentreNm = 842\nWidthNm = 57\n");
    workflow.title = "Leaf";
    workflow.mask_operations = {model::mask_op("threshold_range", {{"band", "MSP.NIR"}, {"low", 0.5}})};
    workflow.result_operations = {model::result_op("area"), model::result_op("region_count"),
                                  model::result_op("index_statistics", {{"indices", {"ndvi"}}})};
  }

  void write_image(const std::string& name, const model::Image& image) const {
    common::write_file_atomically(folder / name, model::encode_tiff(image));
  }

  /// Runs the workflow and gives the results folder.
  fs::path run(const fs::path& input) {
    Controller desk;
    desk.set_processing_mode("batch");
    desk.set_workflow(std::make_shared<model::Workflow>(workflow));
    desk.load_capture_from_file(input);
    EXPECT_TRUE(desk.generate_results_v2((folder / "out").string())) << desk.state.error.value_or("");
    return desk.state.last_saved_results_folder.value();
  }
  fs::path run() { return run(folder / "in" / "HDR_plot.INF"); }

  Verification verify(const fs::path& results, std::optional<fs::path> inputs = std::nullopt) {
    return controller.verify_results({.results_folder = results, .inputs_folder = std::move(inputs)});
  }

  /// Changes a JSON document of the results.
  template <typename Change>
  static void edit(const fs::path& file, const Change& change) {
    Value document = common::load_yaml(file);
    change(document);
    common::write_file_atomically(file, common::json_text(document));
  }

  static void replace_in(const fs::path& file, const std::string& from, const std::string& to) {
    std::string text = read_all(file);
    const std::size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << text;
    common::write_file_atomically(file, text.replace(at, from.size(), to));
  }

  using Controller = controller::Controller;
  TemporaryFolder folder;
  model::Workflow workflow;
  Controller controller;
};

std::vector<std::string> lines_of(const Verification& verification) {
  std::vector<std::string> lines;
  for (const Difference& difference : verification.comparison.differences) {
    lines.push_back(difference.file + "|" + difference.place + "|" + difference.text);
  }
  return lines;
}

std::vector<std::string> input_problems(const Verification& verification) {
  std::vector<std::string> problems;
  for (const auto& input : verification.inputs) {
    if (!input.problem.empty()) problems.push_back(input.problem);
  }
  return problems;
}

TEST_F(ResultsVerification, GivenResultsAsTheRunLeftThem_ThenEverythingIsFoundAgain) {
  const Verification found = verify(run());
  EXPECT_TRUE(found.is_equal()) << found.failure;
  EXPECT_EQ(found.capture, "plot");
  EXPECT_EQ(found.inputs.size(), 3U);
  EXPECT_THAT(found.other_versions, IsEmpty());
  EXPECT_THAT(found.comparison.not_compared, IsEmpty());
  EXPECT_THAT(found.comparison.compared,
              ElementsAre("images/index_statistics_ndvi.png", "images/index_statistics_ndvi.tif",
                          "masks/00_threshold_range.png", "masks/final.png", "metrics.json", "metrics.tsv",
                          "overlays/MSP_NIR.png", "overlays/MSP_RED.png", "tables/index_statistics_bands.tsv",
                          "tables/region_count_areas.tsv"));
}

TEST_F(ResultsVerification, LeavesNothingBehindAndTheStateAndTheFolderAsTheyWere) {
  const fs::path results = run();
  const fs::path temporary = folder / "tmp";
  fs::create_directories(temporary);
  ASSERT_EQ(::setenv("TMPDIR", temporary.c_str(), 1), 0);
  controller.state.error = "older";
  controller.state.message = "before";
  const std::string before = read_all(results / "provenance.json");
  EXPECT_TRUE(verify(results).is_equal());
  ::unsetenv("TMPDIR");
  EXPECT_TRUE(fs::is_empty(temporary));
  EXPECT_EQ(controller.state.error, "older");
  EXPECT_EQ(controller.state.message, "before");
  EXPECT_EQ(controller.state.current_capture, nullptr);
  EXPECT_EQ(controller.state.current_workflow, nullptr);
  EXPECT_EQ(read_all(results / "provenance.json"), before);
}

TEST_F(ResultsVerification, GivenANumberThatWasChanged_ThenItIsNamedWithBothValuesAndTheirDifference) {
  const fs::path results = run();
  edit(results / "metrics.json", [](Value& document) { document["results"]["area"]["metrics"]["area"] = 11; });
  const Verification found = verify(results);
  EXPECT_FALSE(found.is_equal());
  ASSERT_EQ(lines_of(found).size(), 1U);
  // 2 of 6 columns and 4 rows are leaf.
  EXPECT_EQ(lines_of(found)[0], "metrics.json|results.area.metrics.area|is 11, but 8 was expected");
  EXPECT_EQ(found.comparison.differences[0].largest, 3.0);
}

TEST_F(ResultsVerification, GivenANumberChangedInItsLastDigit_ThenThatIsADifference) {
  const fs::path results = run();
  edit(results / "metrics.json", [](Value& document) {
    Value& mean = document["results"]["index_statistics"]["metrics"]["ndvi.mean"];
    mean = std::nextafter(mean.get<double>(), 1.0);
  });
  const Verification found = verify(results);
  ASSERT_EQ(lines_of(found).size(), 1U);
  // 0.5 and the next double above it, 2^-53 away.
  EXPECT_EQ(lines_of(found)[0],
            "metrics.json|results.index_statistics.metrics.ndvi.mean|is 0.5000000000000001, but 0.5 was expected");
  EXPECT_EQ(found.comparison.differences[0].largest, std::ldexp(1.0, -53));
}

TEST_F(ResultsVerification, GivenAMetricTakenOutAndOneMadeUp_ThenBothAreNamed) {
  const fs::path results = run();
  edit(results / "metrics.json", [](Value& document) {
    document["regions"]["ROI_1"]["metrics"].erase("area");
    document["regions"]["ROI_1"]["metrics"]["beauty"] = "great";
  });
  EXPECT_THAT(lines_of(verify(results)),
              ElementsAre("metrics.json|regions.ROI_1.metrics.area|is missing; 8 was expected",
                          "metrics.json|regions.ROI_1.metrics.beauty|is \"great\", but nothing was expected"));
}

TEST_F(ResultsVerification, GivenOnePixelOfAMaskTurned_ThenItsPlaceAndTheNumberOfPixelsAreSaid) {
  const fs::path results = run();
  cv::Mat pixels(4, 6, CV_8UC1, cv::Scalar(0));
  pixels.colRange(0, 2).setTo(255);
  pixels.at<std::uint8_t>(3, 5) = 255;
  common::write_file_atomically(results / "masks" / "final.png",
                                model::encode_mask_png(model::Mask(std::move(pixels))));
  const Verification found = verify(results);
  EXPECT_FALSE(found.is_equal());
  EXPECT_THAT(lines_of(found), ElementsAre("masks/final.png|x 5, y 3|is 255, but 0 was expected; 1 of 24 pixels "
                                           "differ, the largest difference is 255"));
}

TEST_F(ResultsVerification, GivenAMaskThatWasCompressedAnew_ThenThatIsNoDifference) {
  const fs::path results = run();
  cv::Mat pixels(4, 6, CV_8UC1, cv::Scalar(0));
  pixels.colRange(0, 2).setTo(255);
  const std::string before = read_all(results / "masks" / "final.png");
  common::write_file_atomically(results / "masks" / "final.png",  // 8 bits a pixel instead of one
                                model::encode_png(model::Image(std::move(pixels))));
  ASSERT_NE(read_all(results / "masks" / "final.png"), before);
  EXPECT_TRUE(verify(results).is_equal());
}

TEST_F(ResultsVerification, GivenAMapOfNumbersThatWasChanged_ThenTheLargestDifferenceIsSaid) {
  const fs::path results = run();
  const fs::path map = results / "images" / "index_statistics_ndvi.tif";
  cv::Mat pixels = model::read_image_file(map).image.read_only().clone();
  pixels.at<float>(1, 0) += 0.25F;
  pixels.at<float>(2, 1) -= 0.5F;
  common::write_file_atomically(map, model::encode_tiff(model::Image(std::move(pixels))));
  const Verification found = verify(results);
  ASSERT_EQ(found.comparison.differences.size(), 1U);
  const Difference& difference = found.comparison.differences[0];
  EXPECT_EQ(difference.place, "x 0, y 1");
  EXPECT_THAT(difference.text, HasSubstr("is 0.75, but 0.5 was expected; 2 of 24 pixels differ"));
  EXPECT_EQ(difference.largest, 0.5);
}

TEST_F(ResultsVerification, GivenAMapWithANumberWhereThereIsNone_ThenBothAreSaidAndNoDifferenceIsMadeUp) {
  const fs::path results = run();
  const fs::path map = results / "images" / "index_statistics_ndvi.tif";
  cv::Mat pixels = model::read_image_file(map).image.read_only().clone();
  ASSERT_TRUE(std::isnan(pixels.at<float>(0, 5))) << "outside the mask";
  pixels.at<float>(0, 5) = 1.0F;
  common::write_file_atomically(map, model::encode_tiff(model::Image(std::move(pixels))));
  const Verification found = verify(results);
  EXPECT_THAT(lines_of(found),
              ElementsAre("images/index_statistics_ndvi.tif|x 5, y 0|is 1.0, but nan was expected; 1 of "
                          "24 pixels differ"));
  EXPECT_EQ(found.comparison.differences.at(0).largest, std::nullopt);
}

TEST_F(ResultsVerification, GivenAPictureOfAnotherSize_ThenBothSizesAreSaid) {
  const fs::path results = run();
  common::write_file_atomically(results / "masks" / "final.png", model::encode_mask_png(model::Mask::full({4, 5})));
  EXPECT_THAT(lines_of(verify(results)), ElementsAre("masks/final.png||is 5 x 4 pixels, 8-bit, but 6 x 4 pixels, 8-bit "
                                                     "was expected"));
}

TEST_F(ResultsVerification, GivenAPictureThatCannotBeRead_ThenTheOthersAreComparedAllTheSame) {
  const fs::path results = run();
  common::write_file_atomically(results / "masks" / "final.png", std::string_view("no picture"));
  replace_in(results / "tables" / "region_count_areas.tsv", "8", "9");
  const auto lines = lines_of(verify(results));
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_THAT(lines[0], HasSubstr("masks/final.png||cannot be compared: "));
  EXPECT_THAT(lines[1], HasSubstr("tables/region_count_areas.tsv|row 1, column "));
}

TEST_F(ResultsVerification, GivenAFieldOfATableThatWasChanged_ThenRowAndColumnAreNamed) {
  const fs::path results = run();
  const std::string table = read_all(results / "metrics.tsv");
  ASSERT_EQ(table.find("Capture\tRegion\tDate\tTime\tarea\t"), 0U);
  ASSERT_NE(table.find("\nplot\tROI_1\t\t\t8\t"), std::string::npos);
  replace_in(results / "metrics.tsv", "\t8\t", "\t7.5\t");
  const Verification found = verify(results);
  EXPECT_THAT(lines_of(found), ElementsAre("metrics.tsv|row 1, column area|is \"7.5\", but \"8\" was expected"));
  EXPECT_EQ(found.comparison.differences[0].largest, 0.5);
}

TEST_F(ResultsVerification, GivenARowOfATableTakenOut_ThenTheNumbersOfRowsAreSaid) {
  const fs::path results = run();
  const std::string table = read_all(results / "metrics.tsv");
  common::write_file_atomically(results / "metrics.tsv", table.substr(0, table.find('\n') + 1));
  EXPECT_THAT(lines_of(verify(results)), ElementsAre("metrics.tsv||has 0 rows, but 1 were expected"));
}

TEST_F(ResultsVerification, GivenAResultThatIsMissingAndOneThatNoRunWrote_ThenBothAreNamed) {
  const fs::path results = run();
  fs::remove(results / "masks" / "final.png");
  fs::copy_file(results / "overlays" / "MSP_NIR.png", results / "overlays" / "MSP_SWIR.png");
  EXPECT_THAT(lines_of(verify(results)), ElementsAre("masks/final.png||is missing",
                                                     "overlays/MSP_SWIR.png||is there, but the run does not write it"));
}

TEST_F(ResultsVerification, GivenNotesBesideTheResults_ThenTheyAreNamedAndAreNoDifference) {
  const fs::path results = run();
  common::write_file_atomically(results / "my notes.txt", std::string_view("looks fine"));
  const Verification found = verify(results);
  EXPECT_TRUE(found.is_equal());
  EXPECT_THAT(found.comparison.not_compared, ElementsAre("my notes.txt"));
}

TEST_F(ResultsVerification, GivenAWorkflowThatWroteSomeOutputsOnly_ThenThoseAreCompared) {
  workflow.outputs = Value{"numbers"};
  const Verification found = verify(run());
  EXPECT_TRUE(found.is_equal()) << found.failure;
  EXPECT_THAT(found.comparison.compared, ElementsAre("metrics.json", "metrics.tsv", "tables/index_statistics_bands.tsv",
                                                     "tables/region_count_areas.tsv"));
}

TEST_F(ResultsVerification, GivenAnOperationThatFailed_ThenItsSentenceIsFoundAgain) {
  workflow.result_operations.push_back(model::result_op("psii"));
  workflow.result_operations.push_back(model::result_op("area"));  // stands twice: not run again
  const fs::path results = run();
  ASSERT_THAT(read_all(results / "metrics.json"), HasSubstr("FLU"));
  const Verification found = verify(results);
  EXPECT_TRUE(found.is_equal()) << testing::PrintToString(lines_of(found)) << found.failure;
}

// ---- Inputs

TEST_F(ResultsVerification, GivenAnInputThatChanged_ThenItIsNamedAndTheResultsAreComparedWithWhatItGivesNow) {
  const fs::path results = run();
  cv::Mat nir(4, 6, CV_16UC1, cv::Scalar(1000));
  nir.colRange(0, 3).setTo(3000);
  write_image("in/bands/NIR.tif", model::Image(std::move(nir)));
  const Verification found = verify(results);
  EXPECT_FALSE(found.is_equal());
  EXPECT_THAT(input_problems(found),
              ElementsAre((folder / "in" / "bands" / "NIR.tif").string() + ": this input has changed since the run."));
  EXPECT_THAT(lines_of(found), Contains("metrics.json|results.area.metrics.area|is 8, but 12 was expected"));
}

TEST_F(ResultsVerification, GivenAnInputThatChangedWithoutEffect_ThenTheResultsAreTheSameButNotEverything) {
  const fs::path results = run();
  folder.write("in/HDR_plot.INF", "; a remark\n" + read_all(folder / "in" / "HDR_plot.INF"));
  const Verification found = verify(results);
  EXPECT_FALSE(found.is_equal());
  EXPECT_EQ(input_problems(found).size(), 1U);
  EXPECT_THAT(found.comparison.differences, IsEmpty());
}

TEST_F(ResultsVerification, GivenInputsThatAreMissing_ThenEachIsNamedAndNothingIsCompared) {
  const fs::path results = run();
  fs::remove(folder / "in" / "RED.tif");
  const LogCapture log;
  const Verification found = verify(results);
  EXPECT_FALSE(found.is_equal());
  EXPECT_THAT(input_problems(found), ElementsAre((folder / "in" / "RED.tif").string() + ": this input is missing."));
  EXPECT_EQ(found.failure, "The results cannot be computed anew: 1 of 3 inputs is missing.");
  EXPECT_THAT(found.comparison.compared, IsEmpty());
  EXPECT_THAT(log.lines(), ElementsAre("info: Controller.verify_results: Verifying " + results.string(),
                                       "error: Controller.verify_results: The results cannot be computed anew: 1 of 3 "
                                       "inputs is missing."));
}

TEST_F(ResultsVerification, GivenInputsThatMoved_ThenTheyAreFoundInTheFolderThatIsNamed) {
  const fs::path results = run();
  fs::rename(folder / "in", folder / "elsewhere");
  EXPECT_FALSE(verify(results).is_equal());
  const Verification found = verify(results, folder / "elsewhere");
  EXPECT_TRUE(found.is_equal()) << found.failure << testing::PrintToString(input_problems(found));
  EXPECT_EQ(found.inputs.at(1).path, folder / "elsewhere" / "bands" / "NIR.tif");
}

TEST_F(ResultsVerification, GivenAnInputThatCannotBeReadAnyMore_ThenTheSentenceSaysSo) {
  const fs::path results = run();
  folder.write("in/RED.tif", "no picture");
  const Verification found = verify(results);
  EXPECT_FALSE(found.is_equal());
  EXPECT_EQ(input_problems(found).size(), 1U);
  EXPECT_THAT(found.failure, HasSubstr("RED.tif"));
}

TEST_F(ResultsVerification, GivenAPageOfATiff_ThenThatPageIsReadAgain) {
  if (!real_data()) GTEST_SKIP() << "no folder shared/data beside the project";
  fs::copy_file(*real_data() / "odd" / "tiff_3_pages_palette.tiff", folder / "stack.tiff");
  workflow.mask_operations = {model::mask_op("threshold_auto")};
  workflow.result_operations = {model::result_op("band_statistics")};
  const fs::path results = run(folder / "stack.tiff[2]");
  EXPECT_EQ(common::load_yaml(results / "provenance.json").at("inputs").at(0).at("page"), 2);
  const Verification found = verify(results);
  EXPECT_TRUE(found.is_equal()) << found.failure << testing::PrintToString(lines_of(found));
}

// ---- Record and workflow

TEST_F(ResultsVerification, GivenAParameterOfTheWorkflowThatWasChanged_ThenItIsNamedBesideTheRecordedOne) {
  const fs::path results = run();
  replace_in(results / "workflow.yaml", "low: 0.5", "low: 0.1");
  const Verification found = verify(results);
  EXPECT_THAT(lines_of(found),
              Contains("workflow.yaml|mask_operations[0].params.low|is 0.1, but provenance.json has 0.5"));
}

TEST_F(ResultsVerification, GivenAStepOfTheWorkflowThatWasChanged_ThenItIsNamedBesideTheRecordedOne) {
  const fs::path results = run();
  replace_in(results / "workflow.yaml", "op: region_count", "op: perimeter");
  EXPECT_THAT(lines_of(verify(results)),
              Contains("workflow.yaml|result_operations[1]|is perimeter, but provenance.json has region_count"));
}

TEST_F(ResultsVerification, GivenAStepTakenOutOfTheWorkflow_ThenTheNumbersOfStepsAreSaid) {
  const fs::path results = run();
  Value document = common::load_yaml(results / "workflow.yaml");
  document["mask_operations"] = Value::array();
  common::save_yaml(results / "workflow.yaml", document);
  EXPECT_THAT(lines_of(verify(results)),
              Contains("workflow.yaml|mask_operations|has 0 steps, but provenance.json has 1"));
}

TEST_F(ResultsVerification, GivenADefaultThatHasChangedSinceTheRun_ThenTheRecordedParameterIsUsed) {
  // As an older program would have left it: another default of "high" than today's, stated by the record alone.
  workflow.mask_operations[0].params["high"] = 0.7;
  const fs::path results = run();
  replace_in(results / "workflow.yaml", "      high: 0.7\n", "");
  const Verification found = verify(results);
  EXPECT_TRUE(found.is_equal()) << testing::PrintToString(lines_of(found));
}

TEST_F(ResultsVerification, GivenABandThatTheRecordNamesOtherwise_ThenBothAreSaid) {
  const fs::path results = run();
  edit(results / "provenance.json", [](Value& document) {
    Value& bands = document["result_operations"][2]["bands"];
    ASSERT_TRUE(bands.is_object() && !bands.empty()) << bands;
    bands.begin().value() = "MSP.SWIR";
  });
  const auto lines = lines_of(verify(results));
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0], HasSubstr("provenance.json|result_operations[2].bands."));
}

TEST_F(ResultsVerification, GivenResultsOfOtherVersions_ThenTheVersionsAreNamedAndAreNoDifference) {
  const fs::path results = run();
  edit(results / "provenance.json", [](Value& document) {
    document["program"]["version"] = "0.0.9";
    document["libraries"]["OpenCV"] = "3.4.1";
    document["libraries"]["libold"] = "1";
  });
  const Verification found = verify(results);
  EXPECT_TRUE(found.is_equal());
  ASSERT_EQ(found.other_versions.size(), 3U);
  EXPECT_EQ(found.other_versions[0].name, "orvexa");
  EXPECT_EQ(found.other_versions[0].recorded, "0.0.9");
  EXPECT_EQ(found.other_versions[1].name, "OpenCV");
  EXPECT_EQ(found.other_versions[1].now, model::library_versions().at("OpenCV"));
  EXPECT_EQ(found.other_versions[2].now, "none");
}

TEST_F(ResultsVerification, GivenNoWorkflowFile_ThenTheSentenceNamesIt) {
  const fs::path results = run();
  fs::remove(results / "workflow.yaml");
  EXPECT_THAT(verify(results).failure, HasSubstr("workflow.yaml"));
}

std::string refusal_of(controller::Controller& controller, const fs::path& results) {
  try {
    static_cast<void>(controller.verify_results({.results_folder = results}));
  } catch (const std::runtime_error& failure) {
    return failure.what();
  }
  return "nothing was thrown";
}

TEST_F(ResultsVerification, GivenAFolderThatIsNoResultsFolder_ThenASentenceSaysSo) {
  EXPECT_EQ(refusal_of(controller, folder / "nowhere"), (folder / "nowhere").string() + ": there is no such folder.");
  EXPECT_EQ(refusal_of(controller, folder / "in"),
            (folder / "in").string() + ": this is no results folder; it has no provenance.json.");
}

TEST_F(ResultsVerification, GivenTheFolderOfABatch_ThenTheSentenceSaysWhatToNameInstead) {
  folder.write("batch/batch_journal.jsonl", "");
  EXPECT_EQ(refusal_of(controller, folder / "batch"),
            (folder / "batch").string() + ": this is the folder of a batch; name a results folder inside it.");
}

struct BadRecord {
  const char* name;
  const char* document;
  const char* sentence;
};

class VerificationRefuses : public testing::TestWithParam<BadRecord> {};

TEST_P(VerificationRefuses, ARecordThatCannotBeUnderstood) {
  const TemporaryFolder folder;
  folder.write("provenance.json", GetParam().document);
  controller::Controller controller;
  EXPECT_THAT(refusal_of(controller, folder.path()),
              testing::AllOf(testing::StartsWith(folder.path().string()), HasSubstr(GetParam().sentence)));
}

INSTANTIATE_TEST_SUITE_P(
    Table, VerificationRefuses,
    testing::Values(
        BadRecord{"NotJson", "{", "provenance.json"},
        BadRecord{"NotAMap", "[]", "provenance.json: it must be a map; it is a list."},
        BadRecord{"NoCapture", "{}", "provenance.json: the entry \"capture\" is missing."},
        BadRecord{"InputsThatAreNoList", R"({"capture": "a", "inputs": 3})",
                  "the entry \"inputs\" must be a list; it is a number."},
        BadRecord{"NoInputs", R"({"capture": "a", "inputs": []})", "it names no inputs."},
        BadRecord{"AnInputThatIsNoMap", R"({"capture": "a", "inputs": ["x"]})", "\"inputs\" must hold maps"},
        BadRecord{"AnInputWithoutAPath", R"({"capture": "a", "inputs": [{"path": "", "sha256": ""}]})",
                  "is no path of a file"},
        BadRecord{"ANegativePage", R"({"capture": "a", "inputs": [{"path": "/a.tif", "sha256": "", "page": -1}]})",
                  "the \"page\" of an input is no page's number."},
        BadRecord{"NoProgram", R"({"capture": "a", "inputs": [{"path": "/a", "sha256": ""}]})",
                  "the entry \"program\" is missing."}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(ResultsVerification, GivenACancellation_ThenItReachesTheCallerAndNothingIsLeft) {
  const fs::path results = run();
  const fs::path temporary = folder / "tmp";
  fs::create_directories(temporary);
  ASSERT_EQ(::setenv("TMPDIR", temporary.c_str(), 1), 0);
  common::CancelEvent cancel;
  // Set while the workflow runs: the temporary folder is there by then.
  const auto verify_until = [&](const std::string& text) {
    return [&cancel, text](const std::string& progress) {
      if (progress.find(text) != std::string::npos) cancel.set();
    };
  };
  EXPECT_THROW(static_cast<void>(controller.verify_results(
                   {.results_folder = results, .progress_cb = verify_until("Mask 1 of 1"), .cancel_event = &cancel})),
               model::CancelledError);
  ::unsetenv("TMPDIR");
  EXPECT_TRUE(fs::is_empty(temporary));
}

}  // namespace
}  // namespace orvexa::test
