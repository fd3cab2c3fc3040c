#include "orvexa/model/workflow/executor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <future>
#include <limits>
#include <map>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "orvexa/common/clock.h"
#include "orvexa/common/parallel.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/common/version.h"
#include "orvexa/model/codecs/image_file.h"
#include "orvexa/model/mask_operations/registry.h"
#include "orvexa/model/result_operations/registry.h"
#include "orvexa/model/run_context.h"
#include "support/captures.h"
#include "support/operations.h"
#include "support/python.h"
#include "support/temporary_folder.h"

namespace orvexa::model {
namespace {

namespace fs = std::filesystem;
using common::Value;
using test::fake_mask;
using test::fake_result;
using test::FakeMask;
using test::FakeResult;
using test::mask;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// 3 x 5: a colour image, and two bands of which one is 16-bit and one float.
std::shared_ptr<CaptureSet> small_capture(const std::string& name = "plot_0007") {
  auto header = std::make_shared<CaptureHeader>();
  header->name = name;
  header->date = "2019-05-21";
  header->time = "10:32:11";
  cv::Mat color(3, 5, CV_8UC3);
  cv::Mat near_infrared(3, 5, CV_16UC1);
  cv::Mat temperature(3, 5, CV_32FC1);
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 5; ++x) {
      color.at<cv::Vec3b>(y, x) = cv::Vec3b(static_cast<std::uint8_t>(40 * y), static_cast<std::uint8_t>(50 * x), 7);
      near_infrared.at<std::uint16_t>(y, x) = static_cast<std::uint16_t>(1000 * y + 10 * x);
      temperature.at<float>(y, x) = 20.0F + static_cast<float>(x);
    }
  }
  auto capture = test::capture(
      name, {{"CLR", {{"RGB", Image(color)}}}, {"MSP", {{"NIR", Image(near_infrared)}, {"T °C", Image(temperature)}}}},
      header);
  capture->sources = {{.path = "data/HDR_plot.INF", .sha256 = std::string(64, 'a'), .bytes = 321},
                      {.path = "/data/plot RGB.png", .sha256 = std::string(64, 'b'), .bytes = 4567}};
  return capture;
}

Mask both(const Mask& own, const Mask* current) {
  return current != nullptr ? own & *current : own;
}

/// Keeps the left three columns, and makes two regions of them.
const MaskOperationInfo& left_info() {
  static const MaskOperationInfo info = [] {
    MaskOperationInfo made =
        fake_mask("left", [](FakeMask& self, const ImageSource&, const Mask*, const Value& params) {
          self.note = "a remark";
          self.chosen_bands = {{"band", "CLR.RGB.grey"}};
          EXPECT_EQ(params.at("amount"), 2);
          cv::Mat labels = cv::Mat::zeros(3, 5, CV_32SC1);
          labels.colRange(0, 2).setTo(1);
          labels.colRange(2, 5).setTo(2);
          auto regions = std::make_shared<const RegionLabels>(RegionLabels{labels, {"ROI_1", "ROI_2"}});
          return mask({"###..", "###..", "###.."}).with_labels(regions);
        });
    made.parameters = {{.name = "amount", .type = ParameterType::integer, .default_value = 2, .help = "An amount."}};
    return made;
  }();
  return info;
}

/// Keeps the upper two rows.
const MaskOperationInfo& upper_info() {
  static const MaskOperationInfo info =
      fake_mask("upper", [](FakeMask&, const ImageSource&, const Mask* current, const Value&) {
        return both(mask({"#####", "#####", "....."}), current);
      });
  return info;
}

OperationResult count_pixels(FakeResult& /*self*/, const CaptureSet& /*capture*/, const RegionSet& regions,
                             const Value& /*params*/) {
  OperationResult result;
  result.metrics = {{"count", regions.whole().area}, {"count.half", 0.5 * static_cast<double>(regions.whole().area)}};
  result.units = {{"count", "px"}, {"count.half", "px"}};
  result.reasons = {{"count_mm2", "The header declares no scale."}};
  ResultTable table{.columns = {"region", "count"}, .rows = {}};
  for (const Region& region : regions.regions()) {
    RegionResult& row = result.regions[region.name];
    row.metrics = {{"count", region.area}, {"count.histogram.bins", {1, 2}}};
    row.reasons = {{"count_mm2", "The header declares no scale."}};
    table.rows.push_back({region.name, region.area});
  }
  result.tables.insert({"each", table});
  cv::Mat values(3, 5, CV_32FC1, cv::Scalar(0.25));
  values.at<float>(1, 1) = std::numeric_limits<float>::quiet_NaN();
  result.images.insert(
      {"map", ResultImage{.picture = test::flat_image<std::uint8_t>(3, 5, 200), .numbers = Image(values)}});
  result.chosen_bands = {{"ndvi", {"MSP.NIR", "CLR.RGB.R"}}};
  return result;
}

const ResultOperationInfo& count_info() {
  static const ResultOperationInfo info = fake_result("count", &count_pixels);
  return info;
}

const ResultOperationInfo& failing_info() {
  static const ResultOperationInfo info =
      fake_result("failing", [](FakeResult&, const CaptureSet&, const RegionSet&, const Value&) -> OperationResult {
        throw std::runtime_error("This capture has no band N.");
      });
  return info;
}

Workflow small_workflow() {
  Workflow workflow;
  workflow.title = "Trays";
  workflow.mask_operations = {mask_op("left"), mask_op("upper")};
  workflow.result_operations = {result_op("count")};
  return workflow;
}

/// An output folder, the fake operations in the registries, and runs.
class ExecutorTest : public testing::Test {
 protected:
  RunOutput run(const Workflow& workflow, const std::shared_ptr<CaptureSet>& capture = small_capture()) {
    return Executor().run_and_save({.capture = capture,
                                    .wf = std::make_shared<const Workflow>(workflow),
                                    .output_base_dir = output,
                                    .capture_name = capture->name,
                                    .progress_cb = progress,
                                    .cancel_event = &cancel});
  }

  std::string failure(const Workflow& workflow) {
    try {
      run(workflow);
    } catch (const CancelledError& cancelled) {
      return std::string("cancelled: ") + cancelled.what();
    } catch (const std::runtime_error& failed) {
      return failed.what();
    }
    return "(no failure)";
  }

  Value json(const std::string& name) const { return common::parse_json(test::read_all(output / name), name); }

  test::TemporaryFolder place;
  fs::path output = place / "out";
  common::CancelEvent cancel;
  ProgressCallback progress;
};

/// The fakes are in the registries for one test.
class ExecutorWithFakes : public ExecutorTest {
 protected:
  MaskRegistryOverride masks{{&left_info(), &upper_info()}};
  ResultRegistryOverride results{{&count_info(), &failing_info()}};
};

/// Every file below a folder by its path relative to it.
std::map<std::string, std::string> content_of(const fs::path& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) {
      files[fs::relative(entry.path(), folder).string()] = test::read_all(entry.path());
    }
  }
  return files;
}

std::vector<std::string> names_of(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& [name, content] : content_of(folder)) names.push_back(name);
  return names;
}

Mask mask_in(const fs::path& file) {
  return Mask(read_image_file(file).image.read_only());
}

// build_mask

TEST_F(ExecutorWithFakes, BuildMaskGivesEachStepTheMaskOfTheOneBeforeIt) {
  const auto capture = small_capture();
  const Workflow workflow = small_workflow();
  Executor executor;
  EXPECT_EQ(executor.build_mask(*capture, workflow, 0), mask({"###..", "###..", "###.."}));
  EXPECT_EQ(executor.build_mask(*capture, workflow, 1), mask({"###..", "###..", "....."}));
  EXPECT_EQ(executor.build_mask(*capture, workflow), mask({"###..", "###..", "....."}));
}

TEST_F(ExecutorWithFakes, BuildMaskCarriesRegionsThroughLaterSteps) {
  const Mask built = Executor().build_mask(*small_capture(), small_workflow());
  ASSERT_TRUE(built.labels());
  EXPECT_THAT(built.labels()->names, ElementsAre("ROI_1", "ROI_2"));
}

TEST_F(ExecutorWithFakes, BuildMaskStartsAfreshWhereAStepResetsTheChain) {
  Workflow workflow = small_workflow();
  workflow.mask_operations[1].params = {{"reset_mask_chain", true}};
  EXPECT_EQ(Executor().build_mask(*small_capture(), workflow), mask({"#####", "#####", "....."}));
}

TEST_F(ExecutorWithFakes, BuildMaskIsAllTrueWithNoSteps) {
  EXPECT_EQ(Executor().build_mask(*small_capture(), Workflow()), Mask::full({3, 5}));
}

TEST_F(ExecutorWithFakes, BuildMaskDoesNotRunOrCheckTheStepsAfterTheOneAskedFor) {
  Workflow workflow = small_workflow();
  workflow.mask_operations.push_back(mask_op("unknown"));
  EXPECT_EQ(Executor().build_mask(*small_capture(), workflow, 1).count(), 6);
}

TEST_F(ExecutorWithFakes, BuildMaskIgnoresTheMaskThatTheCaptureHasAlready) {
  const auto masked = small_capture()->apply_mask(mask({".....", ".....", "####."}));
  EXPECT_EQ(Executor().build_mask(*masked, small_workflow(), 0).count(), 9);
}

TEST_F(ExecutorWithFakes, BuildMaskRefusesAnIndexWithoutAStep) {
  for (const int index : {-1, 2, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    try {
      static_cast<void>(Executor().build_mask(*small_capture(), small_workflow(), index));
      ADD_FAILURE() << index;
    } catch (const std::out_of_range& refused) {
      EXPECT_EQ(refused.what(), "The workflow has no mask step with index " + std::to_string(index) + ": it has 2.");
    }
  }
}

TEST_F(ExecutorTest, BuildMaskNamesTheStepThatFailedAndWhy) {
  struct Case {
    const char* name;
    std::function<void()> fail;
    std::string cause;
  };
  const std::vector<Case> cases{
      {"Sentence", [] { throw std::runtime_error("This capture has no band N."); }, "This capture has no band N."},
      {"Memory", [] { throw std::bad_alloc(); }, "There is not enough memory."},
      {"Library", [] { CV_Error(cv::Error::StsNoMem, "Failed to allocate"); }, "There is not enough memory."},
      {"Unnamed", [] { throw 42; }, "It failed without saying why."},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    const auto broken =
        fake_mask("broken", [&](FakeMask&, const ImageSource&, const Mask*, const Value&) -> std::optional<Mask> {
          each.fail();
          return std::nullopt;
        });
    const MaskRegistryOverride masks({&upper_info(), &broken});
    Workflow workflow;
    workflow.mask_operations = {mask_op("upper"), mask_op("broken")};
    EXPECT_EQ(Executor().build_mask(*small_capture(), workflow, 0).count(), 10);
    try {
      static_cast<void>(Executor().build_mask(*small_capture(), workflow));
      ADD_FAILURE();
    } catch (const std::runtime_error& failed) {
      EXPECT_EQ(failed.what(), "Mask step 2 (broken) failed: " + each.cause);
    }
  }
}

TEST_F(ExecutorTest, BuildMaskTakesAStepWithoutAMaskForAFailure) {
  const auto silent = fake_mask(
      "silent", [](FakeMask&, const ImageSource&, const Mask*, const Value&) { return std::optional<Mask>(); });
  const MaskRegistryOverride masks({&silent});
  Workflow workflow;
  workflow.mask_operations = {mask_op("silent")};
  EXPECT_EQ(failure(workflow), "Mask step 1 (silent) failed: It gave no mask.");
}

TEST_F(ExecutorTest, BuildMaskNamesAnUnknownOperationAndABadParameter) {
  const MaskRegistryOverride masks({&left_info(), &upper_info()});
  Workflow workflow;
  workflow.mask_operations = {mask_op("uper")};
  const auto text = [&] {
    try {
      static_cast<void>(Executor().build_mask(*small_capture(), workflow));
    } catch (const std::runtime_error& failed) {
      return std::string(failed.what());
    }
    return std::string();
  };
  EXPECT_THAT(text(), StartsWith("Mask step 1 (uper) failed: There is no mask operation"));
  EXPECT_THAT(text(), HasSubstr("upper"));
  workflow.mask_operations = {mask_op("left", {{"amount", "many"}})};
  EXPECT_THAT(text(), StartsWith("Mask step 1 (left) failed: "));
  EXPECT_THAT(text(), HasSubstr("amount"));
  EXPECT_THAT(text(), HasSubstr("many"));
}

TEST_F(ExecutorTest, BuildMaskLetsACancellationPassUntouched) {
  const auto cancelling = fake_mask(
      "cancelling",
      [](FakeMask&, const ImageSource&, const Mask*, const Value&) -> std::optional<Mask> { throw CancelledError(); });
  const MaskRegistryOverride masks({&cancelling});
  Workflow workflow;
  workflow.mask_operations = {mask_op("cancelling")};
  try {
    static_cast<void>(Executor().build_mask(*small_capture(), workflow));
    ADD_FAILURE();
  } catch (const CancelledError& cancelled) {
    EXPECT_STREQ(cancelled.what(), "Processing cancelled by user");
  }
}

TEST_F(ExecutorTest, BuildMaskHandsTheFlagToEachStepAndLooksAtItBetweenThem) {
  common::CancelEvent event;
  int later_steps = 0;
  const auto setting = fake_mask("setting", [&](FakeMask& operation, const ImageSource&, const Mask*, const Value&) {
    operation.context().check();
    event.set();
    return std::optional(Mask::full({3, 5}));
  });
  const auto later = fake_mask("later", [&](FakeMask&, const ImageSource&, const Mask*, const Value&) {
    ++later_steps;
    return std::optional(Mask::full({3, 5}));
  });
  const MaskRegistryOverride masks({&setting, &later});
  Workflow workflow;
  workflow.mask_operations = {mask_op("setting"), mask_op("later")};
  EXPECT_THROW(static_cast<void>(Executor().build_mask(*small_capture(), workflow, std::nullopt, &event)),
               CancelledError);
  EXPECT_EQ(later_steps, 0);
}

TEST_F(ExecutorTest, AsksForNoPicturesOfStepsBecauseNobodySeesThem) {
  int steps = 0;
  const auto drawing = fake_mask("drawing", [&](FakeMask& operation, const ImageSource&, const Mask*, const Value&) {
    EXPECT_FALSE(operation.wants_overlay);
    ++steps;
    return std::optional(Mask::full({3, 5}));
  });
  const MaskRegistryOverride masks({&drawing});
  Workflow workflow;
  workflow.mask_operations = {mask_op("drawing"), mask_op("drawing")};
  static_cast<void>(Executor().build_mask(*small_capture(), workflow));
  EXPECT_EQ(steps, 2);
}

// run_and_save: what is written

TEST_F(ExecutorWithFakes, WritesOneFolderWithEveryKindOfOutput) {
  const RunOutput made = run(small_workflow());
  EXPECT_EQ(made.results_folder, output / "plot_0007");
  EXPECT_THAT(
      names_of(output),
      ElementsAre("plot_0007/images/count_map.png", "plot_0007/images/count_map.tif", "plot_0007/masks/00_left.png",
                  "plot_0007/masks/01_upper.png", "plot_0007/masks/final.png", "plot_0007/masks/regions.tif",
                  "plot_0007/metrics.json", "plot_0007/metrics.tsv", "plot_0007/overlays/CLR_RGB.png",
                  "plot_0007/overlays/MSP_NIR.png", "plot_0007/overlays/MSP_T °C.png", "plot_0007/provenance.json",
                  "plot_0007/tables/count_each.tsv", "plot_0007/workflow.yaml"));
}

TEST_F(ExecutorWithFakes, MasksAreOneBitPicturesThatReadBackEqual) {
  run(small_workflow());
  EXPECT_EQ(mask_in(output / "plot_0007/masks/00_left.png"), mask({"###..", "###..", "###.."}));
  EXPECT_EQ(mask_in(output / "plot_0007/masks/01_upper.png"), mask({"###..", "###..", "....."}));
  EXPECT_EQ(mask_in(output / "plot_0007/masks/final.png"), mask({"###..", "###..", "....."}));
  // PNG: 8 bytes of signature, length and name of IHDR, width, height, then bits a sample and the colour type.
  const std::string png = test::read_all(output / "plot_0007/masks/final.png");
  EXPECT_EQ(png.substr(12, 4), "IHDR");
  EXPECT_EQ(png[24], 1);
  EXPECT_EQ(png[25], 0);
}

TEST_F(ExecutorWithFakes, RegionsAreFoundAgainByTheirNumber) {
  run(small_workflow());
  const Image regions = read_image_file(output / "plot_0007/masks/regions.tif").image;
  EXPECT_EQ(regions, test::image<std::uint16_t>({{1, 1, 2, 0, 0}, {1, 1, 2, 0, 0}, {0, 0, 0, 0, 0}}));
}

TEST_F(ExecutorWithFakes, OverlaysAreTheFinalMaskDrawnAsThePreviewDrawsIt) {
  const auto capture = small_capture();
  run(small_workflow(), capture);
  const MaskInfo info{.operation_name = "upper", .mask_array = mask({"###..", "###..", "....."})};
  for (const auto& [file, measurement, image] :
       {std::tuple{"CLR_RGB", "CLR", "RGB"}, {"MSP_NIR", "MSP", "NIR"}, {"MSP_T °C", "MSP", "T °C"}}) {
    EXPECT_EQ(read_image_file(output / "plot_0007/overlays" / (std::string(file) + ".png")).image,
              info.get_mask_overlay_image(capture->measurements.at(measurement)->images.at(image)).pixels());
  }
}

TEST_F(ExecutorWithFakes, ImagesAreAPictureToLookAtAndTheNumbersBehindIt) {
  run(small_workflow());
  EXPECT_EQ(read_image_file(output / "plot_0007/images/count_map.png").image,
            test::flat_image<std::uint8_t>(3, 5, 200));
  const Image numbers = read_image_file(output / "plot_0007/images/count_map.tif").image;
  ASSERT_EQ(numbers.type(), PixelType::f32);
  EXPECT_EQ(numbers.row<float>(2)[4], 0.25F);
  EXPECT_TRUE(std::isnan(numbers.row<float>(1)[1]));
}

TEST_F(ExecutorWithFakes, TheFilesOfNumbersHoldWhatTheOperationsGave) {
  const RunOutput made = run(small_workflow());
  ASSERT_EQ(made.mask_notes.size(), 1U);
  EXPECT_EQ(made.mask_notes[0].text, "a remark");
  // left: 3 columns, upper: 2 rows, so 6 pixels; regions of 2 and 1 columns, so 4 and 2.
  EXPECT_EQ(json("plot_0007/metrics.json").dump(),
            R"({"format":1,"capture":"plot_0007","date":"2019-05-21","time":"10:32:11","workflow":"Trays",)"
            R"("results":{"count":{"metrics":{"count":6,"count.half":3.0},"units":{"count":"px","count.half":"px"},)"
            R"("reasons":{"count_mm2":"The header declares no scale."},"error":null}},)"
            R"("regions":{"ROI_1":{"metrics":{"count":4,"count.histogram.bins":[1,2]},)"
            R"("reasons":{"count_mm2":"The header declares no scale."}},)"
            R"("ROI_2":{"metrics":{"count":2,"count.histogram.bins":[1,2]},)"
            R"("reasons":{"count_mm2":"The header declares no scale."}}},)"
            R"("mask_notes":[{"step":0,"op":"left","note":"a remark"}]})");
  EXPECT_EQ(test::read_all(output / "plot_0007/metrics.tsv"),
            "Capture\tRegion\tDate\tTime\tcount\tcount_mm2\n"
            "plot_0007\tROI_1\t2019-05-21\t10:32:11\t4\t\n"
            "plot_0007\tROI_2\t2019-05-21\t10:32:11\t2\t\n");
  EXPECT_EQ(test::read_all(output / "plot_0007/tables/count_each.tsv"), "region\tcount\nROI_1\t4\nROI_2\t2\n");

  ASSERT_EQ(made.region_metrics.size(), 2u);
  EXPECT_EQ(made.region_metrics.at("ROI_1").dump(), R"({"count":4,"count.histogram.bins":[1,2]})");
  EXPECT_EQ(made.bundle.results.at("count").metrics.dump(), R"({"count":6,"count.half":3.0})");
  EXPECT_FALSE(made.bundle.results.at("count").error);
}

TEST_F(ExecutorWithFakes, PythonReadsTheSameNumbersAndRecords) {
  run(small_workflow());
  EXPECT_EQ(
      test::python(R"(
import csv, json, pathlib, sys
folder = pathlib.Path(sys.argv[1])
metrics = json.load(open(folder / "metrics.json", encoding="utf-8"))
print(list(metrics), metrics["results"]["count"]["metrics"], metrics["results"]["count"]["error"])
print(list(metrics["regions"]), metrics["regions"]["ROI_2"]["metrics"]["count"])
rows = list(csv.DictReader(open(folder / "metrics.tsv", encoding="utf-8", newline=""), delimiter="\t"))
print([(row["Region"], int(row["count"]), row["count_mm2"], row["Date"]) for row in rows])
record = json.load(open(folder / "provenance.json", encoding="utf-8"))
print(record["program"]["name"], record["inputs"][1], record["mask_operations"])
print(sorted(str(file.relative_to(folder)) for file in folder.rglob("*.json")))
)",
                   {(output / "plot_0007").string()}),
      "['format', 'capture', 'date', 'time', 'workflow', 'results', 'regions', 'mask_notes'] "
      "{'count': 6, 'count.half': 3.0} None\n"
      "['ROI_1', 'ROI_2'] 2\n"
      "[('ROI_1', 4, '', '2019-05-21'), ('ROI_2', 2, '', '2019-05-21')]\n"
      "orvexa {'path': '/data/plot RGB.png', 'sha256': '" +
          std::string(64, 'b') +
          "', 'bytes': 4567} "
          "[{'op': 'left', 'params': {'amount': 2, 'reset_mask_chain': False}, 'bands': {'band': 'CLR.RGB.grey'}}, "
          "{'op': 'upper', 'params': {'reset_mask_chain': False}, 'bands': {}}]\n"
          "['metrics.json', 'provenance.json']\n");
}

TEST_F(ExecutorWithFakes, TheProvenanceSaysWhereTheNumbersCameFrom) {
  common::TimePoint time = std::chrono::system_clock::from_time_t(1'700'000'000);
  const common::ClockOverride clock([&time] { return std::exchange(time, time + std::chrono::milliseconds(1250)); });
  common::set_thread_count(2);
  run(small_workflow());
  common::set_thread_count(0);
  const Value record = json("plot_0007/provenance.json");
  EXPECT_EQ(record.at("format"), 1);
  EXPECT_EQ(record.at("program").at("version"), common::program_version());
  EXPECT_THAT(record.at("program").at("build").get<std::string>(), HasSubstr(", "));
  EXPECT_EQ(record.at("capture"), "plot_0007");
  EXPECT_EQ(record.at("inputs").at(0).at("sha256"), std::string(64, 'a'));
  EXPECT_EQ(record.at("inputs").at(0).at("path"), (fs::current_path() / "data/HDR_plot.INF").string());
  EXPECT_EQ(record.at("inputs").at(0).at("bytes"), 321);
  EXPECT_EQ(record.at("duration_seconds"), 1.25);
  EXPECT_EQ(record.at("threads"), 2);
  EXPECT_EQ(record.at("result_operations").at(0).at("bands").dump(), R"({"ndvi":["MSP.NIR","CLR.RGB.R"]})");
  const std::string started = record.at("started");
  EXPECT_EQ(started.substr(0, 19),
            common::local_time_text(std::chrono::system_clock::from_time_t(1'700'000'000), "%Y-%m-%dT%H:%M:%S"));
  std::vector<std::string> libraries;
  for (const auto& [name, version] : record.at("libraries").items()) {
    libraries.push_back(name);
    EXPECT_THAT(version.get<std::string>(), testing::MatchesRegex("[0-9]+\\.[0-9.]+")) << name;
  }
  EXPECT_THAT(libraries, ElementsAre("OpenCV", "libpng", "libjpeg-turbo", "libtiff", "giflib", "oneTBB", "yaml-cpp",
                                     "nlohmann-json"));
}

TEST_F(ExecutorWithFakes, TheWorkflowFileHoldsTheStepsAsTheyWereGivenAndLoadsAgain) {
  Workflow workflow = small_workflow();
  workflow.mask_operations[0].params = {{"amount", 2}};
  workflow.result_operations.push_back(result_op("psii", {{"min_fm", 0.02}, {"later", "kept"}}));
  run(workflow);
  const Value file = common::load_yaml(output / "plot_0007/workflow.yaml");
  EXPECT_EQ(file.dump(), workflow.to_dict().dump());
  EXPECT_EQ(Workflow::from_dict(file), workflow);
}

TEST_F(ExecutorWithFakes, AWorkflowWithoutStepsGivesAFullMaskAndNoMetrics) {
  const RunOutput made = run(Workflow());
  EXPECT_THAT(names_of(output / "plot_0007"),
              ElementsAre("masks/final.png", "metrics.json", "metrics.tsv", "overlays/CLR_RGB.png",
                          "overlays/MSP_NIR.png", "overlays/MSP_T °C.png", "provenance.json", "workflow.yaml"));
  EXPECT_EQ(mask_in(output / "plot_0007/masks/final.png"), Mask::full({3, 5}));
  EXPECT_THAT(made.bundle.results, IsEmpty());
  ASSERT_EQ(made.region_metrics.size(), 1u);
  EXPECT_EQ(made.region_metrics.at("ROI_1").dump(), "{}");
}

TEST_F(ExecutorWithFakes, OutputsChooseWhatIsWritten) {
  const std::vector<std::pair<Value, std::set<std::string>>> cases{
      {Value::array(), {}},
      {{"masks"}, {"masks"}},
      {{"overlays"}, {"overlays"}},
      {{"images"}, {"images"}},
      {{"numbers"}, {"metrics.json", "metrics.tsv", "tables"}},
      {{"numbers", "masks"}, {"metrics.json", "metrics.tsv", "tables", "masks"}},
  };
  for (auto [outputs, expected] : cases) {
    SCOPED_TRACE(outputs.dump());
    Workflow workflow = small_workflow();
    workflow.outputs = outputs;
    const fs::path folder = run(workflow).results_folder;
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename());
    expected.insert({"workflow.yaml", "provenance.json"});
    EXPECT_EQ(names, expected);
  }
}

TEST_F(ExecutorWithFakes, ASecondRunGetsAFolderOfItsOwn) {
  run(small_workflow());
  EXPECT_EQ(run(small_workflow()).results_folder, output / "plot_0007_2");
  EXPECT_EQ(run(small_workflow()).results_folder, output / "plot_0007_3");
  EXPECT_THAT(place.entries(), ElementsAre("out"));
}

TEST_F(ExecutorWithFakes, ANameWithSeparatorsStaysInsideTheOutputFolder) {
  const RunOutput made = run(small_workflow(), small_capture("../tray 1/plänt\n7"));
  EXPECT_EQ(made.results_folder.parent_path(), output);
  EXPECT_THAT(place.entries(), ElementsAre("out"));
  EXPECT_EQ(json(fs::relative(made.results_folder, output).string() + "/metrics.json").at("capture"),
            "../tray 1/plänt\n7");
}

TEST_F(ExecutorWithFakes, TwoImagesWhoseNamesMakeOneFileNameBothGetAnOverlay) {
  const auto capture = test::capture("plot", {{"A", {{"B_C", test::flat_image<std::uint8_t>(3, 5, 1)}}},
                                              {"A_B", {{"C", test::flat_image<std::uint8_t>(3, 5, 2)}}}});
  run(small_workflow(), capture);
  EXPECT_TRUE(fs::exists(output / "plot/overlays/A_B_C.png"));
  EXPECT_TRUE(fs::exists(output / "plot/overlays/A_B_C_2.png"));
}

TEST_F(ExecutorWithFakes, ProgressIsWordsAPersonUnderstands) {
  std::vector<std::string> messages;
  progress = [&](const std::string& message) { messages.push_back(message); };
  run(small_workflow());
  EXPECT_THAT(messages,
              ElementsAre("Mask 1 of 2: left", "Mask 2 of 2: upper", "Result 1 of 1: count", "Saving results"));
}

TEST_F(ExecutorTest, TheFolderIsTheSameByteForByteWhateverTheNumberOfThreadsAndFromRunToRun) {
  // Real operations on pictures of several stripes.
  cv::Mat color(900, 1300, CV_8UC3);
  cv::Mat near_infrared(900, 1300, CV_16UC1);
  cv::RNG random(7);
  random.fill(color, cv::RNG::UNIFORM, 0, 256);
  random.fill(near_infrared, cv::RNG::UNIFORM, 0, 60000);
  const Image color_image{std::move(color)};
  const Image band_image{std::move(near_infrared)};
  const auto capture =
      test::capture("plot", {{"CLR", {{"RGB", color_image}}}, {"MSP", {{"NIR", band_image}, {"RED", band_image}}}});
  Workflow workflow;
  workflow.mask_operations = {
      mask_op("roi_rects", {{"rects", {{0.3, 0.3, 0.4, 0.5}, {0.7, 0.6, 0.5, 0.5}, {0.1, 0.9, 0.1, 0.1}}}}),
      mask_op("threshold_auto"), mask_op("open"), mask_op("fill_holes")};
  for (const auto& [key, info] : get_available_result_operations())
    workflow.result_operations.push_back(result_op(key));
  ASSERT_FALSE(workflow.result_operations.empty());

  std::map<std::string, std::string> first;
  for (const int threads : {1, 2, 3, 7, 1}) {
    SCOPED_TRACE(threads);
    common::set_thread_count(threads);
    const RunOutput made = run(workflow, capture);
    auto content = content_of(made.results_folder);
    ASSERT_EQ(content.erase("provenance.json"), 1u);
    if (first.empty()) {
      first = content;
      for (const auto& [key, result] : made.bundle.results) {
        EXPECT_EQ(result.error.has_value(), key == "psii") << key << ": " << result.error.value_or("");  // no FLU
      }
      ASSERT_EQ(made.region_metrics.size(), 3u);
      EXPECT_GT(made.region_metrics.at("ROI_1").at("area").get<int>(), 0);
      continue;
    }
    for (const auto& [name, bytes] : first) EXPECT_TRUE(content[name] == bytes) << name;
    EXPECT_EQ(content.size(), first.size());
  }
  common::set_thread_count(0);
}

TEST_F(ExecutorTest, TheProvenanceNamesTheBandsThatMaskStepsChoseThemselves) {
  const Image band = test::image<std::uint16_t>({{100, 200, 300}, {40000, 50000, 60000}});
  const auto capture = test::capture("plot", {{"MSP", {{"BLU", band}, {"GRN", band}, {"RED", band}, {"NIR", band}}}});
  Workflow workflow;
  workflow.mask_operations = {mask_op("threshold_range"), mask_op("threshold_auto"), mask_op("threshold_hsv"),
                              mask_op("threshold_index", {{"index", "ndvi"}, {"low", -1.0}}),
                              mask_op("keep_regions", {{"by", "band_mean"}, {"band", "MSP.RED"}})};
  run(workflow, capture);
  const Value steps = json("plot/provenance.json").at("mask_operations");
  EXPECT_EQ(steps.at(0).at("bands").dump(), R"({"band":"MSP.BLU"})");
  EXPECT_EQ(steps.at(1).at("bands").dump(), R"({"band":"MSP.BLU"})");
  EXPECT_EQ(steps.at(2).at("bands").dump(), R"({"bands":["MSP.RED","MSP.GRN","MSP.BLU"]})");
  EXPECT_EQ(steps.at(3).at("bands").dump(), R"({"ndvi":["MSP.NIR","MSP.RED"]})");
  EXPECT_EQ(steps.at(4).at("bands").dump(), R"({"band":"MSP.RED"})");
}

TEST_F(ExecutorTest, AllStepsSeeTheBasePixelsAndLeaveThemAlone) {
  const auto look = fake_mask("look", [](FakeMask&, const ImageSource& source, const Mask*, const Value&) {
    EXPECT_EQ(source.find_image("MSP", "NIR")->row<std::uint16_t>(2)[4], 2040);
    return mask({"#....", ".....", "....."});
  });
  const auto measure =
      fake_result("measure", [](FakeResult&, const CaptureSet& capture, const RegionSet& regions, const Value&) {
        EXPECT_EQ(capture.find_image("MSP", "NIR")->row<std::uint16_t>(2)[4], 2040);
        EXPECT_EQ(*capture.mask, mask({"#....", ".....", "....."}));
        EXPECT_EQ(regions.mask(), *capture.mask);
        return OperationResult{};
      });
  const MaskRegistryOverride masks({&look});
  const ResultRegistryOverride results({&measure});
  Workflow workflow;
  workflow.mask_operations = {mask_op("look"), mask_op("look")};
  workflow.result_operations = {result_op("measure")};
  const auto capture = small_capture();
  const Image before(capture->find_image("MSP", "NIR")->read_only().clone());
  run(workflow, capture);
  EXPECT_EQ(*capture->find_image("MSP", "NIR"), before);
  EXPECT_FALSE(capture->mask);
}

// run_and_save: failures

TEST_F(ExecutorWithFakes, AFailedResultOperationSaysSoAndTheOthersGoOn) {
  Workflow workflow = small_workflow();
  workflow.result_operations = {result_op("failing"), result_op("count")};
  const RunOutput made = run(workflow);
  EXPECT_EQ(made.bundle.results.at("failing").error, "This capture has no band N.");
  EXPECT_EQ(made.bundle.results.at("count").metrics.at("count"), 6);
  const Value written = json("plot_0007/metrics.json").at("results");
  EXPECT_EQ(written.at("failing").dump(),
            R"({"metrics":{},"units":{},"reasons":{},"error":"This capture has no band N."})");
  EXPECT_EQ(written.at("count").at("metrics").at("count"), 6);
}

TEST_F(ExecutorTest, AResultOperationThatFailsWithoutASentenceGetsOne) {
  const auto memory =
      fake_result("memory", [](FakeResult&, const CaptureSet&, const RegionSet&, const Value&) -> OperationResult {
        throw std::bad_alloc();
      });
  const auto unnamed = fake_result(
      "unnamed", [](FakeResult&, const CaptureSet&, const RegionSet&, const Value&) -> OperationResult { throw 42; });
  const ResultRegistryOverride results({&memory, &unnamed});
  Workflow workflow;
  workflow.result_operations = {result_op("memory"), result_op("unnamed")};
  const RunOutput made = run(workflow);
  EXPECT_EQ(made.bundle.results.at("memory").error, "There is not enough memory.");
  EXPECT_EQ(made.bundle.results.at("unnamed").error, "It failed without saying why.");
}

TEST_F(ExecutorWithFakes, AnUnknownResultOperationAndABadParameterAreThatOperationsError) {
  Workflow workflow = small_workflow();
  workflow.result_operations = {result_op("cuont"), result_op("count", {{"bogus", 1}}), result_op("failing")};
  const RunOutput made = run(workflow);
  EXPECT_THAT(*made.bundle.results.at("cuont").error, StartsWith("There is no result operation"));
  EXPECT_THAT(*made.bundle.results.at("cuont").error, HasSubstr("count"));
  EXPECT_THAT(*made.bundle.results.at("count").error, HasSubstr("bogus"));
}

TEST_F(ExecutorWithFakes, AResultOperationThatStandsTwiceIsNamedAndKeepsItsFirstMetrics) {
  Workflow workflow = small_workflow();
  workflow.result_operations = {result_op("count"), result_op("failing"), result_op("count"), result_op("failing")};
  const RunOutput made = run(workflow);
  EXPECT_EQ(made.bundle.results.at("count").metrics.at("count"), 6);
  EXPECT_EQ(made.bundle.results.at("count").error,
            "count stands in the workflow more than once; only the first one was measured.");
  EXPECT_EQ(made.bundle.results.at("failing").error,
            "This capture has no band N. failing stands in the workflow more than once; only the first one was "
            "measured.");
}

TEST_F(ExecutorTest, AResultOperationReportsTheMeasurementOrMaskThatItLacks) {
  auto needs_all = fake_result("needs_all", &count_pixels);
  needs_all.required_measurements = {std::string("CLR"), std::string("FLU")};
  auto needs_one = fake_result("needs_one", &count_pixels);
  needs_one.required_measurements = {std::vector<std::string>{"FLU", "GRY"}};
  auto has_one = fake_result("has_one", &count_pixels);
  has_one.required_measurements = {std::vector<std::string>{"FLU", "CLR"}};
  auto needs_mask = fake_result("needs_mask", &count_pixels);
  needs_mask.operation_class._requires_mask_operation = {"roi_*", "low*"};
  auto has_mask = fake_result("has_mask", &count_pixels);
  has_mask.operation_class._requires_mask_operation = {"roi_*", "up*"};
  const MaskRegistryOverride masks({&upper_info()});
  const ResultRegistryOverride results({&needs_all, &needs_one, &has_one, &needs_mask, &has_mask});
  Workflow workflow;
  workflow.mask_operations = {mask_op("upper")};
  for (const char* key : {"needs_all", "needs_one", "has_one", "needs_mask", "has_mask"}) {
    workflow.result_operations.push_back(result_op(key));
  }
  const ResultMap found = run(workflow).bundle.results;
  EXPECT_EQ(found.at("needs_all").error, "needs_all needs the measurement FLU; this capture has CLR and MSP.");
  EXPECT_EQ(found.at("needs_one").error, "needs_one needs the measurement FLU or GRY; this capture has CLR and MSP.");
  EXPECT_EQ(found.at("has_one").error, std::nullopt);
  EXPECT_EQ(found.at("needs_mask").error,
            "needs_mask needs a mask made by roi_* or low*; the workflow has no such step.");
  EXPECT_EQ(found.at("has_mask").error, std::nullopt);
}

TEST_F(ExecutorTest, AValueThatIsNoNumberBecomesAReasonInEveryFile) {
  const auto broken = fake_result("broken", [](FakeResult&, const CaptureSet&, const RegionSet&, const Value&) {
    OperationResult result;
    result.metrics = {{"ratio", std::numeric_limits<double>::infinity()}};
    result.regions["ROI_1"].metrics = {{"ratio", std::numeric_limits<double>::quiet_NaN()}, {"n", 3}};
    return result;
  });
  const ResultRegistryOverride results({&broken});
  Workflow workflow;
  workflow.result_operations = {result_op("broken")};
  run(workflow);
  const Value metrics = json("plot_0007/metrics.json");
  EXPECT_EQ(metrics.at("results").at("broken").at("metrics").dump(), "{}");
  EXPECT_EQ(metrics.at("results").at("broken").at("reasons").dump(),
            R"({"ratio":"The value is not a finite number."})");
  EXPECT_EQ(test::read_all(output / "plot_0007/metrics.tsv"),
            "Capture\tRegion\tDate\tTime\tratio\tn\nplot_0007\tROI_1\t2019-05-21\t10:32:11\t\t3\n");
}

TEST_F(ExecutorWithFakes, WhatIsWrongWithAMaskStepEndsTheRunBeforeAnythingIsMade) {
  Workflow workflow = small_workflow();
  workflow.mask_operations.push_back(mask_op("uper"));
  bool has_begun = false;
  progress = [&](const std::string&) { has_begun = true; };
  const std::string text = failure(workflow);
  EXPECT_THAT(text, HasSubstr("mask step 3 (uper)"));
  EXPECT_THAT(text, HasSubstr("upper"));
  EXPECT_FALSE(has_begun);
  EXPECT_THAT(place.entries(), IsEmpty());
}

TEST_F(ExecutorWithFakes, AnUnknownOutputEndsTheRunBeforeAnythingIsMade) {
  Workflow workflow = small_workflow();
  workflow.outputs = {"masks", "pictures"};
  EXPECT_THAT(failure(workflow), HasSubstr("pictures"));
  EXPECT_THAT(place.entries(), IsEmpty());
}

TEST_F(ExecutorWithFakes, ANewerFormatEndsTheRunBeforeAnythingIsMade) {
  Workflow workflow = small_workflow();
  workflow.format = 2;
  EXPECT_EQ(failure(workflow), "format: The workflow has format 2; this program reads format 1 and older.");
  EXPECT_THAT(place.entries(), IsEmpty());
}

TEST_F(ExecutorTest, AMaskStepThatFailsLeavesNothing) {
  const auto broken =
      fake_mask("broken", [](FakeMask&, const ImageSource&, const Mask*, const Value&) -> std::optional<Mask> {
        throw std::runtime_error("This capture has no band N.");
      });
  const MaskRegistryOverride masks({&upper_info(), &broken});
  Workflow workflow;
  workflow.mask_operations = {mask_op("upper"), mask_op("broken")};
  EXPECT_EQ(failure(workflow), "Mask step 2 (broken) failed: This capture has no band N.");
  EXPECT_THAT(place.entries(), IsEmpty());
}

TEST_F(ExecutorWithFakes, AnOutputFolderThatCannotBeMadeIsKnownBeforeTheWorkBegins) {
  place.write("a file", "content");
  output = place / "a file/out";
  bool has_begun = false;
  progress = [&](const std::string&) { has_begun = true; };
  EXPECT_EQ(failure(small_workflow()), "The folder \"" + output.string() + "\" cannot be made: Not a directory.");
  EXPECT_FALSE(has_begun);
}

TEST_F(ExecutorTest, ARunWithoutCaptureOrWorkflowIsRefused) {
  EXPECT_THROW(Executor().run_and_save({.wf = std::make_shared<const Workflow>(), .output_base_dir = output}),
               std::invalid_argument);
  EXPECT_THROW(Executor().run_and_save({.capture = small_capture(), .output_base_dir = output}), std::invalid_argument);
}

// run_and_save: cancellation

TEST_F(ExecutorWithFakes, CancelledBeforeItBeginsItLeavesNothing) {
  cancel.set();
  EXPECT_EQ(failure(small_workflow()), "cancelled: Processing cancelled by user");
  EXPECT_THAT(place.entries(), IsEmpty());
}

TEST_F(ExecutorWithFakes, CancelledAtAnyMessageItLeavesNothing) {
  for (const std::string at : {"Mask 1 of 2: left", "Mask 2 of 2: upper", "Result 1 of 1: count", "Saving results"}) {
    SCOPED_TRACE(at);
    common::CancelEvent event;
    progress = [&](const std::string& message) {
      if (message == at) event.set();
    };
    EXPECT_THROW(Executor().run_and_save({.capture = small_capture(),
                                          .wf = std::make_shared<const Workflow>(small_workflow()),
                                          .output_base_dir = output,
                                          .capture_name = "plot",
                                          .progress_cb = progress,
                                          .cancel_event = &event}),
                 CancelledError);
    EXPECT_THAT(place.entries(), IsEmpty());
  }
}

TEST_F(ExecutorTest, CancelledInsideAStepOrAResultOperationItLeavesNothing) {
  // Neither looks at the flag itself: the executor does after each.
  const auto mask_step = fake_mask("mask_step", [&](FakeMask&, const ImageSource&, const Mask*, const Value& params) {
    if (params.at("sets").get<bool>()) cancel.set();
    return mask({"#####", "#####", "#####"});
  });
  MaskOperationInfo with_parameter = mask_step;
  with_parameter.parameters = {
      {.name = "sets", .type = ParameterType::boolean, .default_value = true, .help = "Whether it cancels."}};
  const auto result_step =
      fake_result("result_step", [&](FakeResult&, const CaptureSet&, const RegionSet&, const Value&) {
        cancel.set();
        return OperationResult{};
      });
  const MaskRegistryOverride masks({&with_parameter});
  const ResultRegistryOverride results({&result_step});
  Workflow workflow;
  workflow.mask_operations = {mask_op("mask_step")};
  EXPECT_EQ(failure(workflow), "cancelled: Processing cancelled by user");
  EXPECT_THAT(place.entries(), IsEmpty());
}

TEST_F(ExecutorTest, CancelledInsideAResultOperationIsNoErrorOfThatOperation) {
  const auto result_step =
      fake_result("result_step", [&](FakeResult& self, const CaptureSet&, const RegionSet&, const Value&) {
        cancel.set();
        self.context().check();
        return OperationResult{};
      });
  const ResultRegistryOverride results({&result_step});
  Workflow workflow;
  workflow.result_operations = {result_op("result_step")};
  EXPECT_EQ(failure(workflow), "cancelled: Processing cancelled by user");
  EXPECT_THAT(place.entries(), IsEmpty());
}

TEST_F(ExecutorTest, ACancelledLongOperationEndsWithinATenthOfASecond) {
  std::promise<void> has_begun;
  const auto endless =
      fake_mask("endless", [&](FakeMask& self, const ImageSource&, const Mask*, const Value&) -> std::optional<Mask> {
        has_begun.set_value();
        while (true) for_each_stripe(1000, 1000, self.context(), [](int, int) {});
      });
  const MaskRegistryOverride masks({&endless});
  Workflow workflow;
  workflow.mask_operations = {mask_op("endless")};
  auto text = std::async(std::launch::async, [&] { return failure(workflow); });
  has_begun.get_future().wait();
  const auto start = std::chrono::steady_clock::now();
  cancel.set();
  EXPECT_EQ(text.get(), "cancelled: Processing cancelled by user");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
  EXPECT_THAT(place.entries(), IsEmpty());
}

}  // namespace
}  // namespace orvexa::model
