#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/plot.h"
#include "cli/process.h"

namespace orvexa::test {
namespace {

using testing::HasSubstr;

struct VerifySetup {
  TemporaryFolder folder;
  std::filesystem::path capture = write_plot(folder);
  std::filesystem::path workflow = write_leaf_workflow(folder);
  std::filesystem::path results = folder / "out" / "plot";

  VerifySetup() { run(); }
  void run() const {
    const Outcome outcome =
        orvexa_command({"run", workflow.string(), capture.string(), "-o", results.parent_path().string()});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  }
  Outcome operator()(std::vector<std::string> more = {}) const {
    std::vector<std::string> words{"verify", results.string()};
    words.insert(words.end(), more.begin(), more.end());
    return orvexa_command(words);
  }
  void replace_in(const std::string& name, const std::string& from, const std::string& to) const {
    std::string text = read_all(results / name);
    const std::size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << text;
    common::write_file_atomically(results / name, text.replace(at, from.size(), to));
  }
};

TEST(Verify, GivenResultsAsTheRunLeftThem_ThenItSaysSoWithExitCode0) {
  const VerifySetup verify;
  const Outcome outcome = verify();
  EXPECT_EQ(outcome.exit_code, 0) << outcome.out;
  EXPECT_EQ(outcome.err, "");
  // metrics.json and .tsv, two masks, two overlays, the map of the index as picture and numbers, the table of its
  // bands.
  EXPECT_EQ(outcome.out, "plot: 3 inputs, 9 files of results compared. Everything was found again.\n");
  EXPECT_EQ(verify({"--quiet"}).out, "");
}

TEST(Verify, GivenAChangedNumber_ThenItIsNamedWithExitCode1) {
  const VerifySetup verify;
  verify.replace_in("metrics.json", "\"area\": 300", "\"area\": 301");
  const Outcome outcome = verify();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.out, HasSubstr("metrics.json, results.area.metrics.area: is 301, but 300 was expected.\n"));
  EXPECT_THAT(outcome.out, HasSubstr("The results differ.\n"));
  EXPECT_EQ(verify({"--quiet"}).out, "metrics.json, results.area.metrics.area: is 301, but 300 was expected.\n");
}

TEST(Verify, GivenJson_ThenEveryDifferenceIsInTheDocument) {
  const VerifySetup verify;
  verify.replace_in("metrics.json", "\"area\": 300", "\"area\": 301");
  verify.replace_in("provenance.json", "\"OpenCV\": \"", "\"OpenCV\": \"0.");
  const Outcome outcome = verify({"--json"});
  EXPECT_EQ(outcome.exit_code, 1);
  const common::Value document = outcome.json();
  EXPECT_EQ(document.at("ok"), false);
  EXPECT_EQ(document.at("capture"), "plot");
  EXPECT_EQ(document.at("inputs").size(), 3u);
  EXPECT_EQ(document.at("inputs").at(0), (common::Value{{"path", verify.capture.string()}, {"unchanged", true}}));
  EXPECT_EQ(document.at("other_versions").at(0).at("name"), "OpenCV");
  ASSERT_EQ(document.at("differences").size(), 1u);
  EXPECT_EQ(document.at("differences").at(0), (common::Value{{"file", "metrics.json"},
                                                             {"place", "results.area.metrics.area"},
                                                             {"text", "is 301, but 300 was expected"},
                                                             {"largest_difference", 1.0}}));
}

TEST(Verify, GivenManyDifferencesInOneFile_ThenTheScreenShowsTenAndSaysHowManyThereAre) {
  VerifySetup verify;
  verify.workflow = verify.folder.write("many.yaml",
                                        "result_operations:\n"
                                        "  - {op: band_statistics}\n");
  verify.results = verify.folder / "out" / "plot_2";
  verify.run();
  std::string text = read_all(verify.results / "metrics.tsv");
  for (char& c : text) {
    if (c >= '1' && c <= '8') ++c;
  }
  common::write_file_atomically(verify.results / "metrics.tsv", text);
  const Outcome outcome = verify();
  EXPECT_EQ(outcome.exit_code, 1);
  const std::size_t count = verify({"--json"}).json().at("differences").size();
  ASSERT_GT(count, 10u);
  EXPECT_THAT(outcome.out, HasSubstr("metrics.tsv: " + std::to_string(count) +
                                     " differences in all (--json lists them), the largest between two numbers is "));
  EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 12);  // ten, their number, the verdict
}

TEST(Verify, GivenOtherVersions_ThenTheyAreToldAndTheExitCodeIs0) {
  const VerifySetup verify;
  verify.replace_in("provenance.json", "\"OpenCV\": \"", "\"OpenCV\": \"0.");
  const Outcome outcome = verify();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.out, testing::StartsWith("Made with OpenCV 0."));
}

TEST(Verify, GivenInputsThatMoved_ThenOneOptionSaysWhereTheyLie) {
  const VerifySetup verify;
  const auto moved = verify.folder / "möved";
  std::filesystem::create_directories(moved);
  for (const char* name : {"HDR_plot.INF", "plot_NIR.tif", "plot_RED.tif"}) {
    std::filesystem::rename(verify.folder / name, moved / name);
  }
  const Outcome missing = verify();
  EXPECT_EQ(missing.exit_code, 1);
  EXPECT_THAT(missing.err, HasSubstr("HDR_plot.INF: this input is missing.\n"));
  EXPECT_THAT(missing.err, HasSubstr("The results cannot be computed anew: 3 of 3 inputs are missing.\n"));
  EXPECT_THAT(missing.err, HasSubstr("--inputs DIR says where they lie now."));
  const Outcome found = verify({"--inputs", moved.string()});
  EXPECT_EQ(found.exit_code, 0) << found.out << found.err;
}

TEST(Verify, GivenNoResultsFolder_ThenTheSentenceNamesIt) {
  const TemporaryFolder folder;
  const Outcome outcome = orvexa_command({"verify", folder.path().string()});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr("this is no results folder"));
}

TEST(Verify, GivenASignal_ThenItEndsWithExitCode130AndLeavesNothing) {
  VerifySetup verify;
  verify.capture = write_plot(verify.folder, 6000, 6000);
  verify.workflow = verify.folder.write("long.yaml",
                                        "mask_operations:\n"
                                        "  - {op: threshold_range, params: {band: MSP.NIR, low: 0.5, high: 1.0}}\n"
                                        "outputs: [masks]\n");
  verify.results = verify.folder / "out" / "plot_2";
  verify.run();
  // The step that takes long is not what ran; the signal comes before anybody can compare.
  verify.replace_in("workflow.yaml",
                    "result_operations:", "  - {op: open, params: {radius: 150, iterations: 10}}\nresult_operations:");
  const auto temporary = verify.folder / "tmp";
  std::filesystem::create_directories(temporary);
  Process process({"env", "TMPDIR=" + temporary.string(), test::program(), "verify", verify.results.string(),
                   "--log-level", "info"});
  ASSERT_TRUE(process.wait_for_error_text("Mask 2 of 2"));
  process.send(SIGINT);
  const Outcome outcome = process.wait();
  EXPECT_EQ(outcome.exit_code, 130);
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(outcome.err.ends_with("\nInterrupted; the results were not verified.\n")) << outcome.err;
  EXPECT_TRUE(std::filesystem::is_empty(temporary));
}

}  // namespace
}  // namespace orvexa::test
