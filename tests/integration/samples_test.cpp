#include "orvexa/model/samples/samples.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "orvexa/common/parallel.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/model/entities/capture_loader.h"
#include "orvexa/model/samples/drawings.h"
#include "orvexa/model/samples/painting.h"
#include "orvexa/model/workflow/executor.h"
#include "support/temporary_folder.h"

// The samples come with answers that were worked out from the shapes and constants of the drawings and not by the
// operations. Here the operations meet them.

namespace orvexa::model {
namespace {

namespace fs = std::filesystem;
using common::Value;

const test::TemporaryFolder& sample_folder() {
  static const test::TemporaryFolder folder;
  return folder;
}

const std::vector<SampleReport>& reports() {
  static const std::vector<SampleReport> written = write_samples(sample_folder().path(), {.count = 12});
  return written;
}

const SampleReport& report_of(const std::string& name) {
  return *std::find_if(reports().begin(), reports().end(), [&](const SampleReport& one) { return one.name == name; });
}

std::shared_ptr<const Workflow> workflow_of(const SampleReport& report) {
  return std::make_shared<const Workflow>(common::load_yaml(report.workflow));
}

Value answers_of(const SampleReport& report) {
  const Value document = common::parse_json(test::read_all(report.expected), "expected.json");
  EXPECT_EQ(document.at("format"), 1);
  EXPECT_EQ(document.at("workflow"), report.workflow.filename().string());
  return document.at("captures");
}

/// Every expected value is there; whole numbers are equal, others agree but for rounding: a sum of 10^5 numbers about 1
/// may be off by 10^5 times 2^-53, which is 1e-11.
void expect_answers(const Value& found, const Value& expected) {
  for (const auto& [name, value] : expected.items()) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(found.contains(name));
    const double wanted = value.get<double>();
    if (value.is_number_integer()) {
      EXPECT_EQ(found.at(name).get<double>(), wanted);
    } else {
      EXPECT_NEAR(found.at(name).get<double>(), wanted, 1e-11 * std::max(1.0, std::abs(wanted)));
    }
  }
}

/// The metrics of all operations; a name stands once.
Value metrics_of(const RunOutput& output) {
  Value all = Value::object();
  for (const auto& [key, result] : output.bundle.results) {
    EXPECT_FALSE(result.error.has_value()) << key << ": " << *result.error;
    for (const auto& [name, value] : result.metrics.items()) {
      EXPECT_FALSE(all.contains(name)) << name << " of " << key << " stands twice";
      all[name] = value;
    }
  }
  return all;
}

/// The column `area` of the table of objects, in rising order.
std::vector<std::int64_t> areas_in_table(const fs::path& results_folder) {
  std::istringstream table(test::read_all(results_folder / "tables" / "region_count_areas.tsv"));
  std::vector<std::int64_t> areas;
  std::string line;
  std::getline(table, line);
  EXPECT_TRUE(line.starts_with("number\tarea\t")) << line;
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::int64_t number = 0;
    std::int64_t area = 0;
    fields >> number >> area;
    areas.push_back(area);
  }
  std::sort(areas.begin(), areas.end());
  return areas;
}

void expect_known_answers(const fs::path& header, const std::shared_ptr<const Workflow>& workflow,
                          const Value& expected) {
  const test::TemporaryFolder results;
  const std::shared_ptr<const CaptureSet> capture = get_default_capture_loader()(header);
  const RunOutput output = Executor().run_and_save({.capture = capture,
                                                    .wf = workflow,
                                                    .output_base_dir = results.path(),
                                                    .capture_name = capture->name,
                                                    .progress_cb = {}});
  expect_answers(metrics_of(output), expected.at("metrics"));
  auto areas = expected.at("areas").get<std::vector<std::int64_t>>();
  std::sort(areas.begin(), areas.end());
  EXPECT_EQ(areas_in_table(output.results_folder), areas);
  if (!expected.contains("regions")) return;
  EXPECT_EQ(output.region_metrics.size(), expected.at("regions").size());
  for (const auto& [region, metrics] : expected.at("regions").items()) {
    SCOPED_TRACE(region);
    ASSERT_TRUE(output.region_metrics.contains(region));
    expect_answers(output.region_metrics.at(region), metrics);
  }
}

class Samples : public testing::TestWithParam<const char*> {};

TEST_P(Samples, GiveTheirKnownAnswersThroughTheirWorkflow) {
  const SampleReport& report = report_of(GetParam());
  const auto workflow = workflow_of(report);
  for (const WorkflowProblem& problem : check_workflow(*workflow)) ADD_FAILURE() << problem.step << " " << problem.text;
  const Value answers = answers_of(report);
  ASSERT_EQ(answers.size(), report.captures.size());
  std::size_t position = 0;
  for (const auto& [name, expected] : answers.items()) {
    SCOPED_TRACE(name);
    expect_known_answers(report.captures.at(position++), workflow, expected);
  }
}

INSTANTIATE_TEST_SUITE_P(All, Samples,
                         testing::Values("leaf_tray", "plot_five_bands", "leaf_fluorescence", "dish_objects",
                                         "reflectance_tiles", "series"),
                         [](const auto& test) { return std::string(test.param); });

// ---- the drawings themselves

struct DrawnSample {
  samples::Drawing drawing;
  Workflow workflow;
};

std::vector<DrawnSample> drawings() {
  return {{samples::draw_leaf_tray(), samples::leaf_tray_workflow()},
          {samples::draw_plot_five_bands(), samples::plot_five_bands_workflow()},
          {samples::draw_leaf_fluorescence(), samples::leaf_fluorescence_workflow()},
          {samples::draw_dish_objects(), samples::dish_objects_workflow()},
          {samples::draw_reflectance_tiles(), samples::reflectance_tiles_workflow()},
          {samples::draw_series_plot("plot_0007", 7), samples::series_workflow()}};
}

TEST(SampleDrawings, ObjectsDoNotTouchAndNoneIsAsSmallAsDust) {
  for (const DrawnSample& sample : drawings()) {
    SCOPED_TRACE(sample.drawing.name);
    EXPECT_TRUE(samples::labels_are_apart(sample.drawing.labels));
    for (const auto& area : sample.drawing.expected.at("areas")) EXPECT_GT(area.get<int>(), 64);
  }
}

TEST(SampleDrawings, TheMaskOfTheWorkflowIsExactlyWhatWasDrawn) {
  for (const DrawnSample& sample : drawings()) {
    SCOPED_TRACE(sample.drawing.name);
    const auto& report = report_of(sample.drawing.name.starts_with("plot_0") ? "series" : sample.drawing.name);
    const auto header = std::find_if(report.captures.begin(), report.captures.end(), [&](const fs::path& path) {
      return path.filename() == "HDR_" + sample.drawing.name + ".INF";
    });
    ASSERT_NE(header, report.captures.end());
    const auto capture = get_default_capture_loader()(*header);
    const Mask mask = Executor().build_mask(*capture, sample.workflow);
    const cv::Mat drawn = sample.drawing.labels != 0;
    EXPECT_EQ(mask, Mask(drawn.clone()));
  }
}

TEST(SampleDrawings, TheDishNeedsEachStepOfItsWorkflow) {
  const auto capture = get_default_capture_loader()(report_of("dish_objects").captures.at(0));
  const Workflow workflow = samples::dish_objects_workflow();
  const auto pixels_after = [&](int step) { return Executor().build_mask(*capture, workflow, step).count(); };
  EXPECT_GT(pixels_after(1), pixels_after(0));  // the beads have holes
  EXPECT_LT(pixels_after(2), pixels_after(1));  // there is dust
}

TEST(SampleDrawings, TheAnswersAreTheOnesTheConstantsGiveByHand) {
  const Value plot = samples::draw_plot_five_bands().expected;
  // Vigorous: NIR 45, RED 6, GRN 10 percent; weak: 30, 10, 12. Row 1 is vigorous, row 2 weak, row 3 both.
  EXPECT_DOUBLE_EQ(plot.at("regions").at("ROI_1").at("ndvi.mean").get<double>(), 39.0 / 51.0);
  EXPECT_DOUBLE_EQ(plot.at("regions").at("ROI_1").at("gndvi.mean").get<double>(), 7.0 / 11.0);
  EXPECT_DOUBLE_EQ(plot.at("regions").at("ROI_2").at("ndvi.mean").get<double>(), 0.5);
  EXPECT_DOUBLE_EQ(plot.at("regions").at("ROI_2").at("gndvi.mean").get<double>(), 3.0 / 7.0);
  EXPECT_EQ(plot.at("metrics").at("region_count"), 18);
  for (const char* row : {"ROI_1", "ROI_2", "ROI_3"}) {
    EXPECT_EQ(plot.at("regions").at(row).at("region_count"), 6);
  }

  const Value leaves = samples::draw_leaf_fluorescence().expected.at("regions");
  EXPECT_DOUBLE_EQ(leaves.at("ROI_1").at("fv_fm.mean").get<double>(), 0.8);
  EXPECT_DOUBLE_EQ(leaves.at("ROI_1").at("phi_psii.mean").get<double>(), 0.5);
  EXPECT_DOUBLE_EQ(leaves.at("ROI_1").at("npq.mean").get<double>(), 2.0 / 3.0);
  EXPECT_DOUBLE_EQ(leaves.at("ROI_1").at("qp.mean").get<double>(), 5.0 / 7.0);  // 15 / 21
  EXPECT_DOUBLE_EQ(leaves.at("ROI_1").at("ql.mean").get<double>(), 3.0 / 7.0);  // 5 / 7 * 9 / 15
  EXPECT_DOUBLE_EQ(leaves.at("ROI_2").at("fv_fm.min").get<double>(), 0.6);
  EXPECT_DOUBLE_EQ(leaves.at("ROI_2").at("phi_psii.min").get<double>(), 0.25);
  EXPECT_DOUBLE_EQ(leaves.at("ROI_2").at("npq.min").get<double>(), 0.25);
  EXPECT_DOUBLE_EQ(leaves.at("ROI_2").at("qp.min").get<double>(), 5.0 / 11.0);  // 10 / 22
  EXPECT_DOUBLE_EQ(leaves.at("ROI_2").at("ql.min").get<double>(), 3.0 / 11.0);  // 5 / 11 * 18 / 30
  EXPECT_DOUBLE_EQ(leaves.at("ROI_2").at("fv_fm.max").get<double>(), 0.8);

  const Value tray = samples::draw_leaf_tray().expected.at("metrics");
  EXPECT_EQ(tray.at("region_count"), 8);
  EXPECT_DOUBLE_EQ(tray.at("area_mm2").get<double>(), tray.at("area").get<double>() / 16);  // 0.25 mm a pixel
  EXPECT_EQ(samples::draw_dish_objects().expected.at("metrics").at("region_count"), 26);
}

// ---- files

std::map<std::string, std::string> all_files(const fs::path& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) files[fs::relative(entry.path(), folder).string()] = test::read_all(entry.path());
  }
  return files;
}

TEST(SampleFiles, AreTheSameBytesEachTimeWhateverTheNumberOfThreads) {
  static_cast<void>(reports());
  for (const int threads : {1, 7}) {
    common::set_thread_count(threads);
    const test::TemporaryFolder folder;
    static_cast<void>(write_samples(folder.path(), {.count = 12}));
    EXPECT_TRUE(all_files(folder.path()) == all_files(sample_folder().path())) << threads << " threads";
  }
  common::set_thread_count(0);
}

TEST(SampleFiles, AReportNamesFilesThatAreThere) {
  for (const SampleReport& report : reports()) {
    SCOPED_TRACE(report.name);
    EXPECT_TRUE(fs::is_regular_file(report.workflow));
    EXPECT_TRUE(fs::is_regular_file(report.expected));
    EXPECT_TRUE(report.shows.ends_with("."));
    for (const fs::path& capture : report.captures) EXPECT_TRUE(fs::is_regular_file(capture)) << capture;
  }
}

TEST(SampleFiles, TheSeriesIsNumberedAndNoTwoPlotsAreAlike) {
  const SampleReport& series = report_of("series");
  ASSERT_EQ(series.captures.size(), 12u);
  EXPECT_EQ(series.captures.front().filename(), "HDR_plot_0001.INF");
  EXPECT_EQ(series.captures.back().filename(), "HDR_plot_0012.INF");
  std::set<std::string> bands;
  for (const fs::path& header : series.captures) {
    const auto capture = get_default_capture_loader()(header);
    bands.insert(capture->sources.at(1).sha256);
    EXPECT_EQ(header.filename(), "HDR_" + capture->name + ".INF");
    EXPECT_FALSE(capture->header->date.empty());
  }
  EXPECT_EQ(bands.size(), 12u);
}

TEST(SampleFiles, WithoutACountThereIsNoSeriesAndOtherFilesStay) {
  const test::TemporaryFolder folder;
  folder.write("mine.txt", "keep");
  EXPECT_EQ(write_samples(folder.path()).size(), 5u);
  EXPECT_THAT(folder.entries(), testing::ElementsAre("dish_objects", "leaf_fluorescence", "leaf_tray", "mine.txt",
                                                     "plot_five_bands", "reflectance_tiles"));
  EXPECT_EQ(test::read_all(folder / "mine.txt"), "keep");
}

TEST(SampleFiles, ACountOutOfRangeIsRefusedBeforeAnythingIsWritten) {
  const test::TemporaryFolder folder;
  EXPECT_THROW(static_cast<void>(write_samples(folder.path(), {.count = -1})), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(write_samples(folder.path(), {.count = 100'001})), std::invalid_argument);
  EXPECT_TRUE(folder.entries().empty());
}

TEST(SampleFiles, AFolderThatCannotBeMadeIsNamed) {
  const test::TemporaryFolder folder;
  folder.write("file", "x");
  try {
    static_cast<void>(write_samples(folder / "file"));
    FAIL() << "no exception";
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("file: this folder cannot be made ("));
  }
}

}  // namespace
}  // namespace orvexa::model
