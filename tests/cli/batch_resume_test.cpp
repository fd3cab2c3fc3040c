#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/batch_setup.h"
#include "orvexa/controller/batch_journal.h"

namespace orvexa::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Words = std::vector<std::string>;

/// `orvexa batch` without inputs, as one who goes on with a run would type it.
Outcome go_on(const BatchSetup& batch, const Words& more) {
  Words words{"batch", batch.workflow.string()};
  words.insert(words.end(), more.begin(), more.end());
  return orvexa_command(words);
}

/// A run of three plots of which the second fails for want of a band.
struct FailedRun : BatchSetup {
  std::filesystem::path band = captures / "plot_0002_RED.tif";
  std::filesystem::path kept = folder / "kept.tif";
  std::filesystem::path run_folder_before;

  FailedRun() {
    std::filesystem::rename(band, kept);
    EXPECT_EQ((*this)().exit_code, 1);
    run_folder_before = set_aside_run_folder();
  }
  void mend() const { std::filesystem::rename(kept, band); }
};

TEST(BatchResume, GivenAFileThatFailed_ThenItIsDoneAgainAndTheTableOfBothIsThatOfAnUndisturbedRun) {
  const FailedRun batch;
  batch.mend();
  const Outcome outcome = go_on(batch, {"--resume", batch.run_folder_before.string(), "--json"});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  // Beside the run that is gone on with.
  EXPECT_EQ(outcome.json().at("batch_folder"), batch.run_folder().string());
  EXPECT_EQ(outcome.json().at("total_files"), 1);
  EXPECT_EQ(outcome.json().at("done_before"), 2);
  EXPECT_THAT(outcome.err, HasSubstr("2 of 3 files are done already.\n"));
  EXPECT_THAT(visible_in(batch.run_folder()),
              ElementsAre("batch_aggregated_results.txt", "batch_journal.jsonl", "batch_summary.txt", "plot_0002"));
  EXPECT_THAT(column_of(batch.run_folder(), "area"), ElementsAre("30", "60", "90"));
  const BatchSetup undisturbed;
  ASSERT_EQ(undisturbed().exit_code, 0);
  EXPECT_EQ(read_all(batch.run_folder() / "batch_aggregated_results.txt"),
            read_all(undisturbed.run_folder() / "batch_aggregated_results.txt"));
}

TEST(BatchResume, GivenTheSummaryForTheEye_ThenItSaysHowManyWereDoneBefore) {
  const FailedRun batch;
  batch.mend();
  const Outcome outcome = go_on(batch, {"--resume", batch.run_folder_before.string() + "/"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("Successful   1\n"), HasSubstr("Total        1 file\n"),
                                 HasSubstr("Done before  2 files\n")));
}

TEST(BatchResume, GivenAnOutputFolder_ThenTheRunFolderIsMadeThere) {
  const FailedRun batch;
  batch.mend();
  const auto elsewhere = batch.folder / "elsewhere";
  EXPECT_EQ(go_on(batch, {"--resume", batch.run_folder_before.string(), "-o", elsewhere.string()}).exit_code, 0);
  EXPECT_EQ(visible_in(elsewhere).size(), 1u);
  EXPECT_EQ(visible_in(batch.output).size(), 1u);
}

TEST(BatchResume, GivenAResumedRunThatFailedAgain_ThenThatOneCanBeResumedToo) {
  const FailedRun batch;
  EXPECT_EQ(go_on(batch, {"--resume", batch.run_folder_before.string()}).exit_code, 3);
  batch.mend();
  const auto second = batch.set_aside_run_folder("batch_results_20240131154503");
  const Outcome outcome = go_on(batch, {"--resume", second.string()});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_THAT(column_of(batch.run_folder(), "area"), ElementsAre("30", "60", "90"));
}

TEST(BatchResume, GivenInputsThatAreNew_ThenTheyAreDoneToo) {
  const FailedRun batch;
  batch.mend();
  batch.write_numbered_plot(4);
  const Outcome outcome =
      go_on(batch, {batch.captures.string(), "--resume", batch.run_folder_before.string(), "--json"});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_THAT(names_in(outcome.json().at("successful_files")), ElementsAre("HDR_plot_0002.INF", "HDR_plot_0004.INF"));
  EXPECT_THAT(column_of(batch.run_folder(), "area"), ElementsAre("30", "60", "90", "120"));
}

TEST(BatchResume, GivenACaptureThatChangedSince_ThenItIsDoneAgainAndARemarkSaysSo) {
  const BatchSetup batch(3);
  ASSERT_EQ(batch().exit_code, 0);
  const auto before = batch.set_aside_run_folder();
  write_plot(batch.captures, "plot_0003", 30, 40, 10);
  const Outcome outcome = go_on(batch, {"--resume", before.string()});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.err, HasSubstr("HDR_plot_0003.INF: its files changed or its results are gone, so it is done "
                                     "again.\n"));
  EXPECT_THAT(column_of(batch.run_folder(), "area"), ElementsAre("30", "60", "300"));
}

TEST(BatchResume, GivenARunThatIsComplete_ThenThereIsNothingToDoAndNoFolderIsMade) {
  const BatchSetup batch(2);
  ASSERT_EQ(batch().exit_code, 0);
  const auto before = batch.set_aside_run_folder();
  const Outcome outcome = go_on(batch, {"--resume", before.string()});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "2 of 2 files are done already.\nThere is nothing left to do.\n");
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("Total        0 files\n"), HasSubstr("Done before  2 files\n"),
                                 HasSubstr("Run folder   " + before.string() + "\n")));
  EXPECT_EQ(visible_in(batch.output).size(), 1u);
  EXPECT_EQ(go_on(batch, {"--resume", before.string(), "--quiet"}).out, before.string() + "\n");
}

TEST(BatchResume, GivenARunThatDiedBeforeItsReports_ThenTheyAreWrittenThoughNoFileIsLeft) {
  const BatchSetup batch(2);
  ASSERT_EQ(batch().exit_code, 0);
  const auto before = batch.set_aside_run_folder();
  for (const char* report : {"batch_aggregated_results.txt", "batch_summary.txt"}) {
    std::filesystem::remove(before / report);
  }
  EXPECT_EQ(go_on(batch, {"--resume", before.string()}).exit_code, 0);
  EXPECT_THAT(column_of(batch.run_folder(), "area"), ElementsAre("30", "60"));
}

TEST(BatchResume, GivenAnotherWorkflow_ThenItIsRefusedAndNothingIsMade) {
  FailedRun batch;
  batch.workflow = batch.folder.write("other.yaml", "title: Other\nresult_operations:\n  - op: area\n");
  const Outcome outcome = go_on(batch, {"--resume", batch.run_folder_before.string()});
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("\"Leaf\""), HasSubstr("\"Other\"")));
  EXPECT_EQ(visible_in(batch.output).size(), 1u);
}

TEST(BatchResume, GivenAFolderThatIsNoRunFolder_ThenTheSentenceNamesIt) {
  const BatchSetup batch(1);
  for (const char* option : {"--resume", "--failed-of"}) {
    const Outcome outcome = go_on(batch, {option, batch.captures.string()});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_TRUE(is_one_sentence(outcome.err));
    EXPECT_THAT(outcome.err, HasSubstr(batch.captures.string()));
  }
}

TEST(BatchResume, GivenADryRun_ThenWhatIsLeftIsListedAndNothingIsMade) {
  const FailedRun batch;
  const Outcome outcome = go_on(batch, {"--resume", batch.run_folder_before.string(), "--dry-run"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.out, (batch.captures / "HDR_plot_0002.INF").string() + "\n");
  EXPECT_EQ(visible_in(batch.output).size(), 1u);
}

TEST(BatchFailedOf, GivenAFileThatFailed_ThenItAloneIsRun) {
  const FailedRun batch;
  batch.mend();
  const Outcome outcome = go_on(batch, {"--failed-of", batch.run_folder_before.string()});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_THAT(column_of(batch.run_folder(), "area"), ElementsAre("60"));
}

TEST(BatchFailedOf, GivenAnotherWorkflow_ThenTheFailedFilesAreTriedWithIt) {
  FailedRun batch;
  batch.mend();
  batch.workflow = batch.folder.write("other.yaml", "title: Other\nresult_operations:\n  - op: area\n");
  EXPECT_EQ(go_on(batch, {"--failed-of", batch.run_folder_before.string()}).exit_code, 0);
  EXPECT_THAT(column_of(batch.run_folder(), "area"), ElementsAre("1200"));  // all of its 40 x 30 pixels
}

TEST(BatchFailedOf, GivenNoFileThatFailed_ThenThereIsNothingToDo) {
  const BatchSetup batch(1);
  ASSERT_EQ(batch().exit_code, 0);
  const auto before = batch.set_aside_run_folder();
  const Outcome outcome = go_on(batch, {"--failed-of", before.string()});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.err, HasSubstr("no file of this batch failed.\nThere is nothing left to do.\n"));
  EXPECT_EQ(visible_in(batch.output).size(), 1u);
}

/// Lines of a journal that say "done", by file name.
std::map<std::string, int> done_lines(const std::filesystem::path& run_folder) {
  std::map<std::string, int> counts;
  for (const std::string& line : split(read_all(run_folder / "batch_journal.jsonl"), '\n')) {
    const common::Value entry = common::Value::parse(line, nullptr, false);
    if (!entry.is_object() || entry.value("status", "") != "done") continue;
    ++counts[std::filesystem::path(entry.at("file").get<std::string>()).filename()];
  }
  return counts;
}

class KilledBatch : public testing::TestWithParam<int> {};

TEST_P(KilledBatch, IsResumedSoThatEveryCaptureIsDoneOnceAndTheTableIsThatOfAnUndisturbedRun) {
  constexpr int count = 12;
  const TemporaryFolder folder;
  ASSERT_EQ(orvexa_command({"sample", folder.path().string(), "--count", std::to_string(count)}).exit_code, 0);
  const std::string workflow = folder / "series" / "series.yaml";
  const std::string captures = folder / "series";
  const auto output = folder / "out";

  Process process({test::program(), "batch", workflow, captures, "-o", output.string()});
  // The line of a file is shown when it is in the journal.
  ASSERT_TRUE(process.wait_for_error_text(fmt::format("{:>2}/{} ", GetParam(), count)));
  process.send(SIGKILL);
  ASSERT_EQ(process.wait().exit_code, 128 + SIGKILL);

  ASSERT_EQ(visible_in(output).size(), 1u);
  const auto killed = output / "batch_results_20240131154502";
  std::filesystem::rename(output / *visible_in(output).begin(), killed);
  EXPECT_FALSE(std::filesystem::exists(killed / "batch_summary.txt"));
  const std::map<std::string, int> before = done_lines(killed);
  ASSERT_GE(before.size(), static_cast<std::size_t>(GetParam()));
  ASSERT_LT(before.size(), static_cast<std::size_t>(count));

  const Outcome outcome = orvexa_command({"batch", workflow, "--resume", killed.string(), "--json"});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.json().at("done_before"), before.size());
  const std::vector<std::string> resumed = names_in(outcome.json().at("successful_files"));
  EXPECT_EQ(resumed.size(), count - before.size());
  for (const std::string& name : resumed) EXPECT_FALSE(before.contains(name)) << name << " was done twice";

  const auto run_folder = std::filesystem::path(outcome.json().at("batch_folder").get<std::string>());
  const std::map<std::string, int> after = done_lines(run_folder);
  EXPECT_EQ(after.size(), static_cast<std::size_t>(count));
  for (const auto& [name, lines] : after) EXPECT_EQ(lines, 1) << name;
  // What the killed process had begun is gone.
  for (const auto& entry : std::filesystem::directory_iterator(killed)) {
    EXPECT_FALSE(entry.path().filename().string().starts_with(".")) << entry.path();
  }

  const Outcome undisturbed =
      orvexa_command({"batch", workflow, captures, "-o", (folder / "undisturbed").string(), "--json"});
  ASSERT_EQ(undisturbed.exit_code, 0);
  const auto whole = std::filesystem::path(undisturbed.json().at("batch_folder").get<std::string>());
  EXPECT_EQ(table_of(whole).size(), static_cast<std::size_t>(count));
  EXPECT_EQ(read_all(run_folder / "batch_aggregated_results.txt"), read_all(whole / "batch_aggregated_results.txt"));
}

INSTANTIATE_TEST_SUITE_P(After, KilledBatch, testing::Values(1, 4, 8),
                         [](const auto& test) { return std::to_string(test.param) + "Files"; });

}  // namespace
}  // namespace orvexa::test
