#include "orvexa/controller/batch_reports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <limits>
#include <thread>

#include "controller/table_text.h"
#include "orvexa/common/clock.h"
#include "support/file_size_limit.h"
#include "support/log_capture.h"
#include "support/python.h"
#include "support/refused_system_call.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

using common::Value;
using controller::BatchRow;
using controller::BatchSummary;
using controller::BatchTable;
using testing::ElementsAre;
using testing::IsEmpty;

/// 2024-01-31 15:45:02 where the test runs.
common::TimePoint local_time() {
  std::tm parts{};
  parts.tm_year = 124;
  parts.tm_mon = 0;
  parts.tm_mday = 31;
  parts.tm_hour = 15;
  parts.tm_min = 45;
  parts.tm_sec = 2;
  parts.tm_isdst = -1;
  return std::chrono::system_clock::from_time_t(std::mktime(&parts));
}

BatchRow row(const std::string& filename, const std::string& region,
             const std::vector<std::pair<std::string, Value>>& metrics) {
  BatchRow made{{"Filename", filename}, {"ROI", region}, {"Date", "2024-01-31"}, {"Time", "10:00"}};
  for (const auto& [name, value] : metrics) made[name] = value;
  return made;
}

// ---- The combined table
// --------------------------------------------------------------------------------------------

TEST(BatchTable, GivenRowsWithDifferentMetrics_ThenTheColumnsStandInOrderOfFirstAppearance) {
  BatchTable table;
  table.add(row("a.png", "ROI_1", {{"area", 6}}));
  table.add(row("a.png", "ROI_2", {{"sd", 0.5}, {"area", 7}, {"mean", 1.25}}));
  table.add(row("b.png", "ROI_1", {{"mean", 2}, {"area", 8}}));
  EXPECT_EQ(table_text(table),
            "Filename\tROI\tDate\tTime\tarea\tsd\tmean\n"
            "a.png\tROI_1\t2024-01-31\t10:00\t6\t\t\n"
            "a.png\tROI_2\t2024-01-31\t10:00\t7\t0.5\t1.25\n"
            "b.png\tROI_1\t2024-01-31\t10:00\t8\t\t2\n");
}

TEST(BatchTable, GivenARowThatLacksColumns_ThenEveryLineHasTheSameNumberOfTabs) {
  BatchTable table;
  for (int i = 0; i < 20; ++i) {
    BatchRow made = row("f" + std::to_string(i), "ROI_1", {});
    for (int metric = i % 7; metric < i; metric += 3) made["m" + std::to_string(metric)] = metric;
    if (i % 5 == 0) made.erase("Date");
    table.add(made);
  }
  std::istringstream lines(table_text(table));
  int count = 0;
  std::ptrdiff_t tabs = -1;
  for (std::string line; std::getline(lines, line); ++count) {
    const auto found = std::count(line.begin(), line.end(), '\t');
    if (tabs < 0) tabs = found;
    EXPECT_EQ(found, tabs) << line;
  }
  EXPECT_EQ(count, 21);
}

TEST(BatchTable, ValuesAreWrittenAsTheyStand) {
  BatchTable table;
  table.add({{"Filename", "a.png"},
             {"ROI", "ROI_1"},
             {"integer", -7},
             {"large", 18446744073709551615ULL},
             {"real", 0.1 + 0.2},
             {"whole", 3.0},
             {"small", 1e-5},
             {"nan", std::numeric_limits<double>::quiet_NaN()},
             {"infinite", -std::numeric_limits<double>::infinity()},
             {"yes", true},
             {"no", false},
             {"absent", nullptr},
             {"list", Value::array({1, 2.5, "x"})},
             {"text", "a \"b\"\tc\nd"}});
  EXPECT_EQ(
      table_text(table),
      "Filename\tROI\tDate\tTime\tinteger\tlarge\treal\twhole\tsmall\tnan\tinfinite\tyes\tno\tabsent\tlist\ttext\n"
      "a.png\tROI_1\t\t\t-7\t18446744073709551615\t0.30000000000000004\t3.0\t1e-05\tnan\t-inf\tTrue\tFalse\tNone\t"
      "[1, 2.5, \"x\"]\ta \"b\"\tc\nd\n");
}

/// Columns that come later, an empty text, and a line break and a zero inside a value: what a line on the disk must
/// carry.
void add_awkward_rows(BatchTable& table) {
  table.add(row("a.png", "ROI_1", {{"area", 6}}));
  table.add(row("b.png", "ROI_1", {{"note", "two\nlines"}, {"zero", std::string(1, '\0')}}));
  table.add({});
  for (int i = 0; i < 3000; ++i) table.add(row(std::to_string(i) + ".png", "ROI_1", {{"area", i}, {"text", "ü"}}));
}

TEST(BatchTable, GivenAFolder_ThenTheTextIsTheSameAndNothingShowsInTheFolder) {
  const TemporaryFolder folder;
  BatchTable in_memory;
  BatchTable on_disk(folder.path());
  add_awkward_rows(in_memory);
  add_awkward_rows(on_disk);
  EXPECT_EQ(table_text(on_disk), table_text(in_memory));
  EXPECT_THAT(folder.entries(), IsEmpty());
  EXPECT_FALSE(on_disk.is_empty());
  EXPECT_TRUE(BatchTable(folder.path()).is_empty());
}

TEST(BatchTable, ALongTextComesInPiecesThatEndWithALine) {
  BatchTable table;
  add_awkward_rows(table);
  int pieces = 0;
  table.write([&](std::string_view piece) {
    ++pieces;
    EXPECT_TRUE(piece.ends_with('\n'));
    EXPECT_LT(piece.size(), 70'000U);
  });
  EXPECT_GT(pieces, 1);
}

TEST(BatchTable, GivenADiskThatGetsFull_ThenTheOtherRowsWaitInMemoryAndNoneIsLost) {
  const TemporaryFolder folder;
  BatchTable in_memory;
  BatchTable on_disk(folder.path());
  add_awkward_rows(in_memory);
  const LogCapture log;
  {
    const FileSizeLimit limit(10'000);
    add_awkward_rows(on_disk);
  }
  on_disk.add(row("last.png", "ROI_1", {}));
  in_memory.add(row("last.png", "ROI_1", {}));
  EXPECT_EQ(table_text(on_disk), table_text(in_memory));
  EXPECT_THAT(log.lines(), ElementsAre("warning: The rows of the batch wait in memory from now on: A scratch file in "
                                       "the folder \"" +
                                       folder.path().string() + "\" cannot be written: File too large."));
}

TEST(BatchTable, GivenAFolderThatIsNotThere_ThenItsRowsWaitInMemory) {
  const LogCapture log;
  BatchTable table("/nowhere");
  table.add(row("a.png", "ROI_1", {{"area", 6}}));
  EXPECT_EQ(table_text(table), "Filename\tROI\tDate\tTime\tarea\na.png\tROI_1\t2024-01-31\t10:00\t6\n");
  EXPECT_THAT(log.lines(), ElementsAre(testing::StartsWith("warning: The rows of the batch wait in memory: ")));
}

class BatchReports : public testing::Test {
 protected:
  BatchReports() {
    summary.total_files = 3;
    summary.batch_folder = folder.path().string();
    summary.workflow_title = "Leaves";
  }
  TemporaryFolder folder;
  std::filesystem::path aggregated = folder / "batch_aggregated_results.txt";
  std::filesystem::path summary_file = folder / "batch_summary.txt";
  BatchSummary summary;
  common::ClockOverride clock{local_time};
};

TEST_F(BatchReports, TheTableBeginsWithAByteOrderMarkAndIsReported) {
  BatchTable table;
  table.add(row("ä.png", "ROI_1", {{"area", 6}}));
  const LogCapture log;
  controller::write_batch_aggregated_results(table, folder.path());
  EXPECT_EQ(read_all(aggregated),
            "\xEF\xBB\xBF"
            "Filename\tROI\tDate\tTime\tarea\nä.png\tROI_1\t2024-01-31\t10:00\t6\n");
  EXPECT_THAT(log.lines(), ElementsAre("info: Batch aggregated results saved to: " + aggregated.string()));
}

TEST_F(BatchReports, GivenNoRows_ThenNoTableIsWrittenAndNothingLogged) {
  const LogCapture log;
  controller::write_batch_aggregated_results(BatchTable(), folder.path());
  EXPECT_THAT(folder.entries(), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(BatchReports, ATableReplacesAnOlderOne) {
  folder.write("batch_aggregated_results.txt", std::string(10'000, 'x'));
  BatchTable table;
  table.add(row("a.png", "ROI_1", {}));
  controller::write_batch_aggregated_results(table, folder.path());
  EXPECT_EQ(read_all(aggregated),
            "\xEF\xBB\xBF"
            "Filename\tROI\tDate\tTime\na.png\tROI_1\t2024-01-31\t10:00\n");
}

TEST_F(BatchReports, GivenATableThatCannotBeWritten_ThenOneErrorLineSaysSo) {
  std::filesystem::create_directory(aggregated);
  BatchTable table;
  table.add(row("a.png", "ROI_1", {}));
  const LogCapture log;
  EXPECT_NO_THROW(controller::write_batch_aggregated_results(table, folder.path()));
  EXPECT_THAT(log.lines(), ElementsAre("error: Failed to write batch aggregated results CSV: " + aggregated.string() +
                                       ": cannot be written: there is a folder of that name."));
}

TEST_F(BatchReports, ASpreadsheetReaderGetsTheTableBack) {
  if (!std::filesystem::exists("/usr/bin/python3")) GTEST_SKIP() << "no /usr/bin/python3 on this machine";
  BatchTable table;
  table.add(row("plot ü 1.png", "ROI_1", {{"area", 6}, {"mean", 1.0 / 3}}));
  table.add(row("plot ü 2.png", "leaf 7", {{"mean", 1e22}, {"small", false}}));
  controller::write_batch_aggregated_results(table, folder.path());
  EXPECT_EQ(
      python(R"(
import csv, sys
with open(sys.argv[1], encoding="utf-8-sig", newline="") as file:
    for row in csv.DictReader(file, delimiter="\t"):
        print(list(row.items()))
)",
             {aggregated.string()}),
      "[('Filename', 'plot ü 1.png'), ('ROI', 'ROI_1'), ('Date', '2024-01-31'), ('Time', '10:00'), ('area', '6'), "
      "('mean', '0.3333333333333333'), ('small', '')]\n"
      "[('Filename', 'plot ü 2.png'), ('ROI', 'leaf 7'), ('Date', '2024-01-31'), ('Time', '10:00'), ('area', ''), "
      "('mean', '1e+22'), ('small', 'False')]\n");
}

// ---- The summary
// ---------------------------------------------------------------------------------------------------

TEST_F(BatchReports, GivenBothKindsOfFiles_ThenTheSummaryListsBothByTheirNames) {
  summary.successful_files = {{.file = "in/deep/a.png", .output_folder = "out/run/a", .operation_errors = {}},
                              {.file = "in/HDR_b.INF", .output_folder = "out/run/plot_b/", .operation_errors = {}}};
  summary.failed_files = {{.file = "in/c.png", .error = "Failed to load capture from: in/c.png"}};
  const LogCapture log;
  controller::write_batch_summary(summary, folder.path());
  EXPECT_EQ(read_all(summary_file),
            "Orvexa Batch Processing Summary\n"
            "===================================\n"
            "Generated: 2024-01-31 15:45:02\n"
            "Workflow: Leaves\n"
            "Total files: 3\n"
            "Successful: 2\n"
            "Failed: 1\n"
            "Batch folder: " +
                folder.path().string() +
                "\n\n"
                "Successful files:\n"
                "a.png -> a\n"
                "HDR_b.INF -> plot_b\n"
                "\n"
                "Failed files:\n"
                "c.png - Failed to load capture from: in/c.png\n");
  EXPECT_THAT(log.lines(), ElementsAre("info: Batch summary saved to: " + summary_file.string()));
}

TEST_F(BatchReports, TheSummaryHasNoByteOrderMarkAndALineOf35EqualsSignsWhateverTheTitle) {
  for (const std::string& title : {std::string(), std::string(200, 'x')}) {
    summary.workflow_title = title;
    controller::write_batch_summary(summary, folder.path());
    EXPECT_TRUE(read_all(summary_file)
                    .starts_with("Orvexa Batch Processing Summary\n" + std::string(35, '=') + "\nGenerated: "));
  }
}

TEST_F(BatchReports, GivenOnlySuccessfulFiles_ThenTheSummaryEndsAfterThem) {
  summary.successful_files = {{.file = "in/a.png", .output_folder = "out/run/a", .operation_errors = {}}};
  controller::write_batch_summary(summary, folder.path());
  EXPECT_TRUE(read_all(summary_file).ends_with("\n\nSuccessful files:\na.png -> a\n"));
}

TEST_F(BatchReports, GivenOnlyFailedFiles_ThenTheSummaryHasNoSuccessfulSectionAndListsEachOnce) {
  summary.failed_files = {{.file = "in/a.png", .error = "torn"}, {.file = "in/b.png", .error = "empty"}};
  controller::write_batch_summary(summary, folder.path());
  const std::string text = read_all(summary_file);
  EXPECT_TRUE(text.ends_with(folder.path().string() + "\n\n\nFailed files:\na.png - torn\nb.png - empty\n")) << text;
  EXPECT_EQ(text.find("Successful files:"), std::string::npos);
}

TEST_F(BatchReports, GivenNoFiles_ThenTheSummaryEndsAfterItsEmptyLine) {
  summary.total_files = 0;
  controller::write_batch_summary(summary, folder.path());
  EXPECT_TRUE(
      read_all(summary_file)
          .ends_with("Total files: 0\nSuccessful: 0\nFailed: 0\nBatch folder: " + folder.path().string() + "\n\n"));
}

TEST_F(BatchReports, GivenASummaryThatCannotBeWritten_ThenOneErrorLineSaysSo) {
  const auto missing = folder / "no such folder";
  const LogCapture log;
  EXPECT_NO_THROW(controller::write_batch_summary(summary, missing));
  EXPECT_THAT(log.lines(),
              ElementsAre("error: Failed to save batch summary: " + (missing / "batch_summary.txt").string() +
                          ": cannot be written: there is no folder " + missing.string() + "."));
}

// ---- Two runs in one folder
// ----------------------------------------------------------------------------------------

TEST_F(BatchReports, GivenReportsOfAnotherRun_ThenTheyGetFreeNamesAndAWarning) {
  folder.write("batch_summary.txt", "first");
  folder.write("batch_summary_1.txt", "even older");
  folder.write("batch_aggregated_results.txt", "table");
  const LogCapture log;
  controller::keep_reports_of_another_run(folder.path());
  EXPECT_THAT(folder.entries(),
              ElementsAre("batch_aggregated_results_1.txt", "batch_summary_1.txt", "batch_summary_2.txt"));
  EXPECT_EQ(read_all(folder / "batch_summary_1.txt"), "even older");
  EXPECT_EQ(read_all(folder / "batch_summary_2.txt"), "first");
  EXPECT_THAT(log.lines(), ElementsAre("warning: Another run wrote \"" + aggregated.string() +
                                           "\"; it is kept as \"batch_aggregated_results_1.txt\"",
                                       "warning: Another run wrote \"" + summary_file.string() +
                                           "\"; it is kept as \"batch_summary_2.txt\""));
}

TEST_F(BatchReports, GivenAFileSystemWithoutARenameThatNeverReplaces_ThenReportsOfAnotherRunAreKeptAllTheSame) {
  folder.write("batch_summary.txt", "first");
  folder.write("batch_summary_1.txt", "even older");
  const LogCapture log;
  bool is_taken_away = false;
  std::thread([&] {
    // What file systems without a rename that never replaces say.
    is_taken_away = refuse_system_call(SYS_renameat2, EINVAL);
    controller::keep_reports_of_another_run(folder.path());
  }).join();
  ASSERT_TRUE(is_taken_away);
  EXPECT_THAT(folder.entries(), ElementsAre("batch_summary_1.txt", "batch_summary_2.txt"));
  EXPECT_EQ(read_all(folder / "batch_summary_1.txt"), "even older");
  EXPECT_EQ(read_all(folder / "batch_summary_2.txt"), "first");
  EXPECT_THAT(log.lines(), ElementsAre("warning: Another run wrote \"" + summary_file.string() +
                                       "\"; it is kept as \"batch_summary_2.txt\""));
}

TEST_F(BatchReports, GivenAFolderWithoutReports_ThenNothingIsKeptOrLogged) {
  folder.write("batch_journal.jsonl", "");
  const LogCapture log;
  controller::keep_reports_of_another_run(folder.path());
  EXPECT_THAT(folder.entries(), ElementsAre("batch_journal.jsonl"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
}  // namespace orvexa::test
