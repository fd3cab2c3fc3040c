#include "orvexa/model/workflow/metrics_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "orvexa/common/serialisation.h"
#include "support/python.h"
#include "support/temporary_folder.h"

namespace orvexa::model {
namespace {

using common::Value;

OperationResult result_of(const Value& whole, const std::vector<std::pair<std::string, Value>>& regions) {
  OperationResult result;
  result.metrics = whole;
  for (const auto& [name, metrics] : regions) result.regions[name].metrics = metrics;
  return result;
}

TEST(GatherRegions, PutsTheMetricsOfAllOperationsTogetherInTheirOrder) {
  ResultBundle bundle;
  bundle.results["area"] = result_of({}, {{"ROI_1", {{"area", 5}}}, {"ROI_2", {{"area", 7}}}});
  bundle.results["mean"] = result_of({}, {{"ROI_1", {{"GRY.mean", 0.5}}}});
  bundle.results["mean"].regions["ROI_2"].reasons = {{"GRY.mean", "empty"}};
  const auto regions = gather_regions({"ROI_1", "ROI_2", "ROI_3"}, bundle);
  EXPECT_EQ(regions.at("ROI_1").metrics.dump(), R"({"area":5,"GRY.mean":0.5})");
  EXPECT_EQ(regions.at("ROI_2").metrics.dump(), R"({"area":7})");
  EXPECT_EQ(regions.at("ROI_2").reasons.dump(), R"({"GRY.mean":"empty"})");
  EXPECT_EQ(regions.at("ROI_3").metrics.dump(), "{}");
}

TEST(GatherRegions, LosesNeitherOfTwoMetricsWithOneName) {
  ResultBundle bundle;
  bundle.results["first"] = result_of({}, {{"ROI_1", {{"n", 1}}}});
  bundle.results["second"] = result_of({}, {{"ROI_1", {{"n", 2}}}});
  EXPECT_EQ(gather_regions({"ROI_1"}, bundle).at("ROI_1").metrics.dump(), R"({"n":1,"second.n":2})");
}

TEST(DropValuesThatAreNoNumbers, GivesThemAReasonAndKeepsTheOthersInOrder) {
  OperationResult result = result_of({{"a", 1.5}, {"b", std::numeric_limits<double>::quiet_NaN()}, {"c", 3}},
                                     {{"ROI_1", {{"b", {1.0, std::numeric_limits<double>::infinity()}}}}});
  result.reasons = {{"d", "no scale"}};
  drop_values_that_are_no_numbers(result);
  EXPECT_EQ(result.metrics.dump(), R"({"a":1.5,"c":3})");
  EXPECT_EQ(result.reasons.dump(), R"({"d":"no scale","b":"The value is not a finite number."})");
  EXPECT_EQ(result.regions.at("ROI_1").metrics.dump(), "{}");
  EXPECT_EQ(result.regions.at("ROI_1").reasons.dump(), R"({"b":"The value is not a finite number."})");
}

TEST(DropValuesThatAreNoNumbers, KeepsTheReasonThatTheOperationGave) {
  OperationResult result = result_of({{"a", std::numeric_limits<double>::quiet_NaN()}}, {});
  result.reasons = {{"a", "no pixel"}};
  drop_values_that_are_no_numbers(result);
  EXPECT_EQ(result.reasons.dump(), R"({"a":"no pixel"})");
}

MetricsReport awkward_report() {
  MetricsReport report{
      .capture_name = "Beet\t7 \"ä\"", .date = "2019-05-21", .time = "10:32:11", .workflow_title = "Trays"};
  RegionResult& first = report.regions["ROI_1"];
  first.metrics = {{"area", 12345678},  {"share", 0.1},
                   {"tiny", 1e-05},     {"large", 1e15},
                   {"whole", 2.0},      {"name", "two\nlines\tand a tab"},
                   {"is_small", true},  {"histogram.bins", {1, 2, 3}},
                   {"nothing", nullptr}};
  first.reasons = {{"area_mm2", "The header declares no scale."}};
  report.regions["left, \"upper\""].metrics = {{"later", -3}, {"area", 0}};
  report.regions["ROI_3"];
  return report;
}

TEST(MetricsTable, HasOneRowARegionAndAnEmptyFieldForWhatIsUndefined) {
  EXPECT_EQ(metrics_table(awkward_report()),
            "Capture\tRegion\tDate\tTime\tarea\tshare\ttiny\tlarge\twhole\tname\tis_small\tnothing\tarea_mm2\tlater\n"
            "Beet 7 \"ä\"\tROI_1\t2019-05-21\t10:32:11\t12345678\t0.1\t1e-05\t1000000000000000.0\t2.0\t"
            "two lines and a tab\tTrue\t\t\t\n"
            "Beet 7 \"ä\"\tleft, \"upper\"\t2019-05-21\t10:32:11\t0\t\t\t\t\t\t\t\t\t-3\n"
            "Beet 7 \"ä\"\tROI_3\t2019-05-21\t10:32:11\t\t\t\t\t\t\t\t\t\t\n");
}

TEST(MetricsTable, GivenARegionWithoutPixels_ThenTheListThatItLacksHasNoColumn) {
  MetricsReport report{.capture_name = "dish"};
  report.regions["ROI_1"].metrics = {{"CLR.RGB.R.histogram.n", 3}, {"CLR.RGB.R.histogram.bins", {1, 2}}};
  report.regions["ROI_2"].reasons = {{"CLR.RGB.R.histogram.n", "The region has no pixel."},
                                     {"CLR.RGB.R.histogram.bins", "The region has no pixel."}};
  EXPECT_EQ(metrics_table(report),
            "Capture\tRegion\tDate\tTime\tCLR.RGB.R.histogram.n\n"
            "dish\tROI_1\t\t\t3\n"
            "dish\tROI_2\t\t\t\n");
}

/// Two operations with two metrics each; what has no value has a reason.
MetricsReport report_of(const Value& first, const Value& second) {
  const Value units_of_shape{{"area", "px"}, {"area_mm2", "mm²"}};
  const Value units_of_values{{"GRY.n", "px"}, {"GRY.mean", "counts"}, {"GRY.histogram.bins", "px"}};
  MetricsReport report{.capture_name = "dish"};
  report.bundle.results["shape"] = result_of({}, {{"ROI_1", first}});
  report.bundle.results["shape"].units = units_of_shape;
  report.bundle.results["values"] = result_of({}, {{"ROI_1", second}});
  report.bundle.results["values"].units = units_of_values;
  for (auto result = report.bundle.results.begin(); result != report.bundle.results.end(); ++result) {
    RegionResult& region = result.value().regions["ROI_1"];
    for (const auto& [name, unit] : result.value().units.items()) {
      if (!region.metrics.contains(name)) region.reasons[name] = "undefined";
    }
  }
  report.regions = gather_regions({"ROI_1"}, report.bundle);
  return report;
}

TEST(MetricsTable, GivenCapturesInWhichOtherMetricsAreUndefined_ThenTheirColumnsAreTheSame) {
  const std::string header = "Capture\tRegion\tDate\tTime\tarea\tarea_mm2\tGRY.n\tGRY.mean\n";
  EXPECT_EQ(metrics_table(report_of({{"area", 1}, {"area_mm2", 2}}, {{"GRY.n", 3}, {"GRY.mean", 4}})),
            header + "dish\tROI_1\t\t\t1\t2\t3\t4\n");
  EXPECT_EQ(metrics_table(report_of({{"area_mm2", 2}}, {{"GRY.mean", 4}, {"GRY.n", 3}})),
            header + "dish\tROI_1\t\t\t\t2\t3\t4\n");
  EXPECT_EQ(metrics_table(report_of(Value::object(), {{"GRY.mean", 4}})), header + "dish\tROI_1\t\t\t\t\t\t4\n");
}

TEST(MetricsTable, GivenTwoOperationsWithOneNameForAMetric_ThenEachColumnStandsWithItsOperation) {
  MetricsReport report{.capture_name = "dish"};
  for (const char* operation : {"first", "second"}) {
    report.bundle.results[operation] = result_of({}, {{"ROI_1", {{"late", 1}, {"n", 2}}}});
    report.bundle.results[operation].units = {{"n", "px"}, {"late", ""}};
  }
  report.regions = gather_regions({"ROI_1"}, report.bundle);
  EXPECT_EQ(metrics_table(report),
            "Capture\tRegion\tDate\tTime\tn\tlate\tsecond.n\tsecond.late\ndish\tROI_1\t\t\t2\t1\t2\t1\n");
}

TEST(MetricsTable, IsReadBackByPythonFieldByField) {
  const test::TemporaryFolder folder;
  const auto file = folder.write("metrics.tsv", metrics_table(awkward_report()));
  // QUOTE_NONE: tabs alone separate, as the file promises.
  EXPECT_EQ(test::python(R"(
import csv, sys
rows = list(csv.DictReader(open(sys.argv[1], encoding="utf-8", newline=""), delimiter="\t", quoting=csv.QUOTE_NONE))
print(len(rows), rows[0]["Region"], rows[1]["Region"], rows[2]["Region"])
print(int(rows[0]["area"]) == 12345678, float(rows[0]["share"]) == 0.1, float(rows[0]["tiny"]) == 1e-05,
      float(rows[0]["large"]) == 1e15, rows[0]["area_mm2"] == "", rows[1]["later"] == "-3", rows[1]["share"] == "",
      rows[0]["Capture"] == 'Beet 7 "\u00e4"', None in rows[0] or None in rows[0].values())
)",
                         {file.string()}),
            "3 ROI_1 left, \"upper\" ROI_3\nTrue True True True True True True True False\n");
}

TEST(MetricsTable, HasOnlyItsFixedColumnsWhenNothingWasMeasured) {
  MetricsReport report{.capture_name = "plot"};
  report.regions["ROI_1"];
  EXPECT_EQ(metrics_table(report), "Capture\tRegion\tDate\tTime\nplot\tROI_1\t\t\n");
}

TEST(MetricsDocument, HasItsFixedLayout) {
  MetricsReport report{.capture_name = "plot", .date = "2019-05-21", .workflow_title = "Trays"};
  report.bundle.results["area"] = result_of({{"area", 5}}, {{"ROI_1", {{"area", 5}}}});
  report.bundle.results["area"].units = {{"area", "px"}};
  report.bundle.results["psii"].error = "This capture has no measurement FLU.";
  report.bundle.results["silent"].metrics = nullptr;
  report.regions = gather_regions({"ROI_1"}, report.bundle);
  report.mask_notes = {{.step = 1, .op = "threshold_auto", .text = "no_contrast: empty mask"}};
  EXPECT_EQ(metrics_document(report).dump(),
            R"({"format":1,"capture":"plot","date":"2019-05-21","time":"","workflow":"Trays",)"
            R"("results":{"area":{"metrics":{"area":5},"units":{"area":"px"},"reasons":{},"error":null},)"
            R"("psii":{"metrics":{},"units":{},"reasons":{},"error":"This capture has no measurement FLU."},)"
            R"("silent":{"metrics":{},"units":{},"reasons":{},"error":null}},)"
            R"("regions":{"ROI_1":{"metrics":{"area":5},"reasons":{}}},)"
            R"("mask_notes":[{"step":1,"op":"threshold_auto","note":"no_contrast: empty mask"}]})");
}

TEST(TableText, WritesAHeaderLineAndARowALine) {
  EXPECT_EQ(table_text({.columns = {"x", "label"}, .rows = {{1, "a\tb"}, {0.5, nullptr}, {std::nan(""), "end"}}}),
            "x\tlabel\n1\ta b\n0.5\t\n\tend\n");
  EXPECT_EQ(table_text({.columns = {"x"}, .rows = {}}), "x\n");
}

}  // namespace
}  // namespace orvexa::model
