#include "orvexa/controller/batch_journal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <thread>

#include "controller/table_text.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/run_context.h"
#include "support/file_size_limit.h"
#include "support/log_capture.h"
#include "support/python.h"
#include "support/refused_system_call.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

using common::Path;
using common::Value;
using controller::BatchJournal;
using controller::BatchJournalEntry;
using controller::BatchJournalWriter;
using controller::BatchRow;
using controller::BatchTable;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string table_text(const std::vector<BatchRow>& rows) {
  BatchTable table;
  for (const BatchRow& row : rows) table.add(row);
  return test::table_text(table);
}

/// The sentence of the failure of an action; empty when it did not fail.
template <typename Action>
std::string failure_of(const Action& action) {
  try {
    action();
  } catch (const std::runtime_error& failure) {
    return failure.what();
  }
  return {};
}

class BatchJournalTest : public testing::Test {
 protected:
  BatchJournalTest() { std::filesystem::create_directory(run_folder); }

  BatchJournal journal(const std::vector<Path>& files, const std::string& hash = "w1") const {
    return {.run_folder = run_folder,
            .workflow_title = "Leaves",
            .workflow_sha256 = hash,
            .started = "2024-01-31T15:45:02+0100",
            .files = files};
  }
  BatchJournalEntry done(const Path& input) const {
    return {.file = input,
            .is_done = true,
            .content_sha256 = "c0ffee",
            .sources = {"/in/HDR_a.INF", "/in/a.tif"},
            .output_folder = run_folder / "plot_a",
            .operation_errors = {{"psii", "no image FM"}},
            .rows = {{{"Filename", "HDR_a.INF"}, {"ROI", "ROI_1"}, {"Date", ""}, {"Time", ""}, {"area", 6}}}};
  }
  static BatchJournalEntry failed(const Path& input, const std::string& error = "it is torn") {
    return {.file = input, .error = error};
  }
  std::string lines() const { return read_all(file); }

  TemporaryFolder folder;
  Path run_folder = folder / "batch_results_20240131154502";
  Path file = run_folder / "batch_journal.jsonl";
};

TEST_F(BatchJournalTest, HasALineAboutTheRunAndALineAFile) {
  {
    BatchJournalWriter writer(journal({"/in/HDR_a.INF", "/in/b.png"}));
    writer.add(done("/in/HDR_a.INF"));
    writer.add(failed("/in/b.png"));
  }
  EXPECT_EQ(
      lines(),
      R"({"format": 1, "workflow": "Leaves", "workflow_sha256": "w1", )"
      R"("started": "2024-01-31T15:45:02+0100", "working_folder": )" +
          common::json_line(common::path_text(std::filesystem::current_path())) +
          R"(, "total": 2, "files": ["/in/HDR_a.INF", "/in/b.png"]}
{"file": "/in/HDR_a.INF", "status": "done", "content_sha256": "c0ffee", "sources": ["/in/HDR_a.INF", "/in/a.tif"], )"
          R"("output_folder": "plot_a", "operation_errors": {"psii": "no image FM"}, "error": null, "reason": null, )"
          R"("rows": [{"Filename": "HDR_a.INF", "ROI": "ROI_1", "Date": "", "Time": "", "area": 6}]}
{"file": "/in/b.png", "status": "failed", "content_sha256": "", "sources": [], "output_folder": "", )"
          R"("operation_errors": {}, "error": "it is torn", "reason": null, "rows": []}
)");
}

TEST_F(BatchJournalTest, IsReadAsItWasWritten) {
  {
    BatchJournalWriter writer(journal({"/in/HDR_a.INF", "/in/b.png", "/in/c.png"}));
    writer.add(failed("/in/b.png"));
    writer.add(done("/in/HDR_a.INF"));
  }
  const LogCapture log;
  const BatchJournal read = controller::read_batch_journal(run_folder);
  EXPECT_EQ(read.run_folder, run_folder);
  EXPECT_EQ(read.workflow_title, "Leaves");
  EXPECT_EQ(read.workflow_sha256, "w1");
  EXPECT_EQ(read.started, "2024-01-31T15:45:02+0100");
  EXPECT_THAT(read.files, ElementsAre("/in/HDR_a.INF", "/in/b.png", "/in/c.png"));
  ASSERT_EQ(read.entries.size(), 2U);
  const BatchJournalEntry& b = read.entries[0];
  EXPECT_EQ(b.file, "/in/b.png");
  EXPECT_FALSE(b.is_done);
  EXPECT_EQ(b.error, "it is torn");
  const BatchJournalEntry& a = read.entries[1];
  EXPECT_TRUE(a.is_done);
  EXPECT_EQ(a.content_sha256, "c0ffee");
  EXPECT_THAT(a.sources, ElementsAre("/in/HDR_a.INF", "/in/a.tif"));
  EXPECT_EQ(a.output_folder, run_folder / "plot_a");
  EXPECT_EQ(a.operation_errors.at("psii"), "no image FM");
  EXPECT_EQ(table_text(a.rows), table_text(done("/in/HDR_a.INF").rows));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(BatchJournalTest, TheReasonOfAFileThatCouldNotBeLoadedIsReadAsItWasWrittenAndMayBeAbsent) {
  BatchJournalEntry entry = failed("/in/a.png", "Failed to load capture from: /in/a.png");
  entry.reason = "Failed to load capture from /in/a.png: a.png: there is no such file.";
  BatchJournalWriter(journal({"/in/a.png"})).add(entry);
  const std::string written = R"("reason": "Failed to load capture from /in/a.png: a.png: there is no such file.", )";
  const std::string text = lines();
  ASSERT_THAT(text, HasSubstr(written));
  EXPECT_EQ(controller::read_batch_journal(run_folder).entries.at(0).reason, entry.reason);
  folder.write("batch_results_20240131154502/batch_journal.jsonl",
               std::string(text).erase(text.find(written), written.size()));
  EXPECT_EQ(controller::read_batch_journal(run_folder).entries.at(0).reason, "");
}

TEST_F(BatchJournalTest, EachLineIsThereBeforeTheNextFileIsBegun) {
  BatchJournalWriter writer(journal({"/in/a.png", "/in/b.png"}));
  EXPECT_THAT(controller::read_batch_journal(run_folder).entries, IsEmpty());
  writer.add(failed("/in/a.png"));
  EXPECT_EQ(controller::read_batch_journal(run_folder).entries.size(), 1U);
}

TEST_F(BatchJournalTest, RowsOfEveryKindOfValueGiveTheSameTableAfterReading) {
  BatchJournalEntry entry = done("/in/a.png");
  entry.rows = {{{"Filename", "a\tb\n\"c\".png"},
                 {"integer", -7},
                 {"real", 0.1 + 0.2},
                 {"whole", 3.0},
                 {"nan", std::numeric_limits<double>::quiet_NaN()},
                 {"infinite", -std::numeric_limits<double>::infinity()},
                 {"yes", true},
                 {"absent", nullptr},
                 {"list", Value::array({1, std::numeric_limits<double>::quiet_NaN()})}},
                {{"Filename", "ü"}, {"integer", 1}}};
  BatchJournalWriter(journal({"/in/a.png"})).add(entry);
  const BatchJournal read = controller::read_batch_journal(run_folder);
  EXPECT_EQ(table_text(read.entries.at(0).rows), table_text(entry.rows));
}

TEST_F(BatchJournalTest, GivenResultsOfAnEarlierRunFolder_ThenTheirWholePathIsKept) {
  BatchJournalEntry entry = done("/in/a.png");
  entry.output_folder = folder / "batch_results_earlier/plot_a";
  BatchJournalWriter(journal({"/in/a.png"})).add(entry);
  EXPECT_EQ(controller::read_batch_journal(run_folder).entries.at(0).output_folder,
            folder / "batch_results_earlier/plot_a");
}

TEST_F(BatchJournalTest, GivenAMovedRunFolder_ThenItsResultsAreFoundThere) {
  BatchJournalWriter(journal({"/in/a.png"})).add(done("/in/a.png"));
  const Path moved = folder / "moved";
  std::filesystem::rename(run_folder, moved);
  EXPECT_EQ(controller::read_batch_journal(moved).entries.at(0).output_folder, moved / "plot_a");
}

TEST_F(BatchJournalTest, GivenRelativeNames_ThenTheyMeanTheFilesOfTheFolderInWhichTheRunWasStarted) {
  BatchJournalWriter(journal({"in/a.png"})).add(failed("in/a.png"));
  const Path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  const BatchJournal read = controller::read_batch_journal(run_folder);
  std::filesystem::current_path(before);
  EXPECT_THAT(read.files, ElementsAre(before / "in/a.png"));
  EXPECT_EQ(read.entries.at(0).file, before / "in/a.png");
}

TEST_F(BatchJournalTest, GivenNamesThatAreNotUtf8_ThenTheSameFilesAreMeantAfterReading) {
  const Path latin1 = "/in/gr\xFCn.png";
  BatchJournalEntry entry = done(latin1);
  entry.sources = {latin1};
  entry.output_folder = run_folder / "gr\xFCn";
  BatchJournalWriter(journal({latin1})).add(entry);
  const BatchJournal read = controller::read_batch_journal(run_folder);
  EXPECT_THAT(read.files, ElementsAre(latin1));
  EXPECT_EQ(read.entries.at(0).file, latin1);
  EXPECT_THAT(read.entries.at(0).sources, ElementsAre(latin1));
  EXPECT_EQ(read.entries.at(0).output_folder, run_folder / "gr\xFCn");
}

TEST_F(BatchJournalTest, GivenAFileThatWasSelectedTwice_ThenItStandsOnce) {
  const BatchJournalWriter writer(journal({"/in/a.png", "/in/b.png", "/in/a.png"}));
  EXPECT_THAT(controller::read_batch_journal(run_folder).files, ElementsAre("/in/a.png", "/in/b.png"));
}

// ---- Torn and damaged lines
// ----------------------------------------------------------------------------------------

TEST_F(BatchJournalTest, GivenAJournalThatIsCutAnywhere_ThenItsWholeLinesAreRead) {
  {
    BatchJournalWriter writer(journal({"/in/a.png", "/in/b.png"}));
    writer.add(done("/in/a.png"));
    writer.add(failed("/in/b.png"));
  }
  const std::string whole = lines();
  const std::size_t header_end = whole.find('\n') + 1;
  const std::size_t first_end = whole.find('\n', header_end) + 1;
  for (std::size_t length = header_end; length <= whole.size(); ++length) {
    folder.write("batch_results_20240131154502/batch_journal.jsonl", whole.substr(0, length));
    const LogCapture log;
    const BatchJournal read = controller::read_batch_journal(run_folder);
    const std::size_t expected = length < first_end ? 0 : length < whole.size() ? 1 : 2;
    ASSERT_EQ(read.entries.size(), expected) << length;
    const bool ends_with_a_line = length == header_end || length == first_end || length == whole.size();
    if (ends_with_a_line) {
      ASSERT_THAT(log.lines(), IsEmpty()) << length;
    } else {
      ASSERT_THAT(log.lines(), ElementsAre("info: " + file.string() +
                                           ": the last line is cut off; its file counts as not finished."));
    }
  }
}

TEST_F(BatchJournalTest, GivenADamagedLine_ThenAWarningNamesItAndTheOthersAreRead) {
  BatchJournalWriter(journal({"/in/a.png", "/in/b.png"})).add(failed("/in/b.png"));
  const std::string good = lines();
  for (const std::string damaged :
       {"{\"file\": \"/in/a.pn", "[]", "7", "{}", R"({"file": "/in/a.png", "status": "perhaps"})",
        R"({"file": 3, "status": "done"})", R"({"format": "new"})", "\xFF\xFE"}) {
    folder.write("batch_results_20240131154502/batch_journal.jsonl",
                 good.substr(0, good.find('\n') + 1) + damaged + "\n" + good.substr(good.find('\n') + 1));
    const LogCapture log;
    const BatchJournal read = controller::read_batch_journal(run_folder);
    EXPECT_EQ(read.entries.size(), 1U) << damaged;
    EXPECT_THAT(log.lines(),
                ElementsAre("warning: " + file.string() + ": line 2 is damaged; its file counts as not finished."))
        << damaged;
  }
}

TEST_F(BatchJournalTest, GivenATornLastLine_ThenALaterRunBeginsALineOfItsOwn) {
  BatchJournalWriter(journal({"/in/a.png"})).add(failed("/in/a.png"));
  const std::string whole = lines();
  folder.write("batch_results_20240131154502/batch_journal.jsonl", whole.substr(0, whole.size() - 5));
  BatchJournalWriter(journal({"/in/b.png"})).add(failed("/in/b.png"));
  const LogCapture log;
  const BatchJournal read = controller::read_batch_journal(run_folder);
  EXPECT_THAT(read.files, ElementsAre("/in/a.png", "/in/b.png"));
  ASSERT_EQ(read.entries.size(), 1U);
  EXPECT_EQ(read.entries[0].file, "/in/b.png");
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(BatchJournalTest, GivenAWriteThatEndedInsideALine_ThenTheNextLineIsWholeAgain) {
  BatchJournalWriter writer(journal({"/in/a.png", "/in/b.png"}));
  {
    const FileSizeLimit limit(std::filesystem::file_size(file) + 10);
    EXPECT_EQ(failure_of([&] { writer.add(failed("/in/a.png")); }),
              file.string() + ": cannot be written: File too large.");
  }
  writer.add(failed("/in/b.png"));
  const BatchJournal read = controller::read_batch_journal(run_folder);
  ASSERT_EQ(read.entries.size(), 1U);
  EXPECT_EQ(read.entries[0].file, "/in/b.png");
}

TEST_F(BatchJournalTest, GivenThatTheRunFolderIsTakenAway_ThenTheJournalBeginsAnewWithTheNextLine) {
  BatchJournalWriter writer(journal({"/in/a.png", "/in/b.png", "/in/c.png"}));
  writer.add(failed("/in/a.png"));
  std::filesystem::remove_all(run_folder);
  EXPECT_EQ(failure_of([&] { writer.add(failed("/in/b.png")); }),
            file.string() + ": cannot be written: No such file or directory.");
  std::filesystem::create_directory(run_folder);
  writer.add(failed("/in/c.png"));
  const BatchJournal read = controller::read_batch_journal(run_folder);
  EXPECT_EQ(read.workflow_title, "Leaves");
  ASSERT_EQ(read.entries.size(), 1U);
  EXPECT_EQ(read.entries[0].file, "/in/c.png");
}

TEST_F(BatchJournalTest, GivenAHeaderThatCouldNotBeWritten_ThenItIsWrittenBeforeTheNextLine) {
  BatchJournalWriter writer(journal({"/in/a.png", "/in/b.png"}));
  std::filesystem::remove(file);
  {
    const FileSizeLimit limit(10);
    EXPECT_THAT(failure_of([&] { writer.add(failed("/in/a.png")); }), HasSubstr("File too large"));
  }
  writer.add(failed("/in/b.png"));
  const BatchJournal read = controller::read_batch_journal(run_folder);
  EXPECT_EQ(read.workflow_title, "Leaves");
  ASSERT_EQ(read.entries.size(), 1U);
  EXPECT_EQ(read.entries[0].file, "/in/b.png");
}

// ---- What is refused
// -----------------------------------------------------------------------------------------------

TEST_F(BatchJournalTest, GivenAFolderWithoutAJournal_ThenASentenceSaysSo) {
  EXPECT_EQ(failure_of([&] { static_cast<void>(controller::read_batch_journal(run_folder)); }),
            file.string() + ": there is no such file, so \"" + run_folder.string() +
                "\" is not the folder of a batch run that can be gone on with.");
}

TEST_F(BatchJournalTest, GivenAFileThatIsNoJournal_ThenASentenceSaysSo) {
  for (const char* content : {"", "\n\n", "Filename\tROI\n", "{\"format\": 1, \"workfl",
                              "{\"file\": \"/in/a.png\", \"status\": \"failed\"}\n"}) {
    folder.write("batch_results_20240131154502/batch_journal.jsonl", content);
    EXPECT_EQ(failure_of([&] { static_cast<void>(controller::read_batch_journal(run_folder)); }),
              file.string() + ": this is not the journal of a batch.")
        << content;
  }
}

TEST_F(BatchJournalTest, GivenAJournalOfANewerProgram_ThenASentenceSaysSo) {
  folder.write("batch_results_20240131154502/batch_journal.jsonl", "{\"format\": 2}\n");
  EXPECT_EQ(failure_of([&] { static_cast<void>(controller::read_batch_journal(run_folder)); }),
            file.string() + ": a newer version of this program wrote this journal.");
}

TEST_F(BatchJournalTest, GivenAJournalThatCannotBeWritten_ThenASentenceNamesItAndTheReason) {
  std::filesystem::create_directory(file);
  EXPECT_EQ(failure_of([&] { BatchJournalWriter writer(journal({})); }),
            file.string() + ": cannot be written: Is a directory.");
}

TEST_F(BatchJournalTest, GivenAFullDisk_ThenASentenceNamesTheJournalAndTheReason) {
  std::filesystem::create_symlink("/dev/full", file);
  EXPECT_EQ(failure_of([&] { BatchJournalWriter writer(journal({})); }),
            file.string() + ": cannot be written: No space left on device.");
}

TEST_F(BatchJournalTest, GivenADiskThatDoesNotTakeALine_ThenTheSentenceSaysSoBeforeTheNextFileBegins) {
  BatchJournalWriter writer(journal({"/in/a.png", "/in/b.png"}));
  std::string failure;
  bool is_refused = false;
  std::thread([&] {
    is_refused = refuse_system_call(SYS_fdatasync, EIO);
    failure = failure_of([&] { writer.add(failed("/in/a.png")); });
  }).join();
  ASSERT_TRUE(is_refused);
  EXPECT_EQ(failure, file.string() + ": cannot be written: Input/output error.");
  writer.add(failed("/in/b.png"));
  EXPECT_EQ(controller::read_batch_journal(run_folder).entries.size(), 2U);
}

TEST_F(BatchJournalTest, GivenAFileSystemWithNothingToFlush_ThenTheLineIsThere) {
  BatchJournalWriter writer(journal({"/in/a.png"}));
  std::string failure;
  bool is_refused = false;
  std::thread([&] {
    is_refused = refuse_system_call(SYS_fdatasync, EINVAL);
    failure = failure_of([&] { writer.add(failed("/in/a.png")); });
  }).join();
  ASSERT_TRUE(is_refused);
  EXPECT_EQ(failure, "");
  EXPECT_EQ(controller::read_batch_journal(run_folder).entries.size(), 1U);
}

// ---- Two runs in one folder
// ----------------------------------------------------------------------------------------

TEST_F(BatchJournalTest, GivenTwoRunsOfOneWorkflowInOneFolder_ThenTheyAreReadAsOne) {
  {
    BatchJournalWriter first(journal({"/in/a.png", "/in/b.png"}));
    first.add(done("/in/a.png"));
    BatchJournalWriter second(journal({"/in/b.png", "/in/c.png"}));
    second.add(failed("/in/c.png"));
    first.add(failed("/in/b.png"));
    second.add(done("/in/b.png"));
  }
  const BatchJournal read = controller::read_batch_journal(run_folder);
  EXPECT_THAT(read.files, ElementsAre("/in/a.png", "/in/b.png", "/in/c.png"));
  ASSERT_EQ(read.entries.size(), 3U);
  EXPECT_TRUE(read.entries[0].is_done);
  EXPECT_EQ(read.entries[1].file, "/in/c.png");
  EXPECT_EQ(read.entries[2].file, "/in/b.png");
  EXPECT_TRUE(read.entries[2].is_done) << "the last word";
}

TEST_F(BatchJournalTest, GivenAFileThatFailedAfterItWasDone_ThenItIsDone) {
  {
    BatchJournalWriter writer(journal({"/in/a.png"}));
    writer.add(done("/in/a.png"));
    writer.add(failed("/in/a.png"));
  }
  EXPECT_TRUE(controller::read_batch_journal(run_folder).entries.at(0).is_done);
}

TEST_F(BatchJournalTest, GivenTwoRunsOfDifferentWorkflowsInOneFolder_ThenReadingIsRefused) {
  BatchJournalWriter(journal({"/in/a.png"}, "w1")).add(done("/in/a.png"));
  BatchJournalWriter(journal({"/in/a.png"}, "w2")).add(done("/in/a.png"));
  EXPECT_EQ(failure_of([&] { static_cast<void>(controller::read_batch_journal(run_folder)); }),
            file.string() +
                ": two runs with different workflows (\"Leaves\" and \"Leaves\") began in this folder in the "
                "same second; neither can be gone on with.");
}

// ---- Hashes
// --------------------------------------------------------------------------------------------------------

model::Workflow workflow() {
  model::Workflow made;
  made.title = "Leaves";
  made.mask_operations.push_back({{.op = "threshold_auto", .params = {{"method", "otsu"}}}});
  return made;
}

TEST_F(BatchJournalTest, TheHashOfAWorkflowIsThatOfItsFile) {
  if (!std::filesystem::exists("/usr/bin/python3")) GTEST_SKIP() << "no /usr/bin/python3 on this machine";
  common::save_yaml(folder / "leaves.yaml", workflow().to_dict());
  EXPECT_EQ(controller::workflow_sha256(workflow()) + "\n",
            python("import hashlib, sys\nprint(hashlib.sha256(open(sys.argv[1], 'rb').read()).hexdigest())",
                   {(folder / "leaves.yaml").string()}));
}

TEST_F(BatchJournalTest, TheHashOfACaptureIsThatOfTheDigestsOfItsFiles) {
  if (!std::filesystem::exists("/usr/bin/python3")) GTEST_SKIP() << "no /usr/bin/python3 on this machine";
  EXPECT_EQ(controller::content_sha256({{.path = "a", .sha256 = "11"}, {.path = "b", .sha256 = "22"}}) + "\n",
            python("import hashlib\nprint(hashlib.sha256(b'11\\n22\\n').hexdigest())"));
  EXPECT_EQ(controller::content_sha256({}), "");
}

TEST_F(BatchJournalTest, GivenTheSameWorkflow_ThenItMayGoOn) {
  BatchJournal earlier = journal({});
  earlier.workflow_sha256 = controller::workflow_sha256(workflow());
  EXPECT_NO_THROW(controller::expect_same_workflow(earlier, workflow()));
}

TEST_F(BatchJournalTest, GivenAnotherWorkflow_ThenASentenceRefusesIt) {
  BatchJournal earlier = journal({});
  earlier.workflow_sha256 = controller::workflow_sha256(workflow());
  model::Workflow changed = workflow();
  changed.title = "Seeds";
  changed.mask_operations[0].params["method"] = "triangle";
  EXPECT_EQ(failure_of([&] { controller::expect_same_workflow(earlier, changed); }),
            "The batch in \"" + run_folder.string() +
                "\" ran the workflow \"Leaves\" as it was at its start; the workflow \"Seeds\" is another one or was "
                "changed since, and results of two workflows do not belong in one table.");
}

// ---- Going on
// ------------------------------------------------------------------------------------------------------

class BatchResumptionTest : public BatchJournalTest {
 protected:
  /// A file whose results are there.
  BatchJournalEntry done_file(const std::string& name) const {
    const std::string content = "content of " + name;
    const Path written = folder.write("in/" + name, content);
    const Path results = run_folder / ("results of " + name);
    std::filesystem::create_directory(results);
    return {.file = written,
            .is_done = true,
            .content_sha256 = controller::content_sha256(
                {{.path = written, .sha256 = common::sha256_hex(common::as_byte_span(content))}}),
            .sources = {written},
            .output_folder = results};
  }
};

TEST_F(BatchResumptionTest, WhatIsNotDoneFailedOrChangedIsLeftToDoInTheOrderOfTheSelection) {
  const auto unchanged = done_file("unchanged.png");
  const auto changed = done_file("changed.png");
  const auto removed = done_file("removed.png");
  const auto without_results = done_file("without_results.png");
  auto without_sources = done_file("without_sources.png");
  without_sources.sources.clear();
  without_sources.content_sha256.clear();
  const auto also_unchanged = done_file("also_unchanged.png");
  folder.write("in/changed.png", "other content");
  std::filesystem::remove(removed.file);
  std::filesystem::remove(without_results.output_folder);
  const Path torn = folder / "in/torn.png";
  const Path not_reached = folder / "in/not_reached.png";

  BatchJournal earlier = journal({not_reached, without_results.file, unchanged.file, torn, without_sources.file,
                                  changed.file, also_unchanged.file, removed.file});
  earlier.entries = {changed, also_unchanged, unchanged, failed(torn), removed, without_results, without_sources};
  const controller::BatchResumption plan = controller::plan_batch_resumption(earlier);
  EXPECT_THAT(plan.to_do,
              ElementsAre(not_reached, without_results.file, torn, without_sources.file, changed.file, removed.file));
  EXPECT_THAT(plan.changed, ElementsAre(without_results.file, without_sources.file, changed.file, removed.file));
  EXPECT_EQ(plan.earlier.selection, earlier.files);
  ASSERT_EQ(plan.earlier.entries.size(), 2U);
  EXPECT_EQ(plan.earlier.entries[0].file, unchanged.file);
  EXPECT_EQ(plan.earlier.entries[1].file, also_unchanged.file);
}

TEST_F(BatchResumptionTest, GivenAnImageOfACaptureThatChanged_ThenTheCaptureIsDoneAgain) {
  const Path header = folder.write("in/HDR_a.INF", "header");
  const Path image = folder.write("in/a.tif", "pixels");
  BatchJournalEntry entry = done(header);
  std::filesystem::create_directory(entry.output_folder);
  entry.sources = {header, image};
  entry.content_sha256 =
      controller::content_sha256({{.path = header, .sha256 = common::sha256_hex(common::as_byte_span("header"))},
                                  {.path = image, .sha256 = common::sha256_hex(common::as_byte_span("pixels"))}});
  BatchJournal earlier = journal({header});
  earlier.entries = {entry};
  EXPECT_THAT(controller::plan_batch_resumption(earlier).to_do, IsEmpty());
  folder.write("in/a.tif", "Pixels");
  EXPECT_THAT(controller::plan_batch_resumption(earlier).to_do, ElementsAre(header));
}

TEST_F(BatchResumptionTest, ACancellationEndsTheLookAtTheFiles) {
  BatchJournal earlier = journal({});
  earlier.entries = {done_file("a.png")};
  common::CancelEvent cancel;
  cancel.set();
  EXPECT_THROW(static_cast<void>(controller::plan_batch_resumption(earlier, &cancel)), model::CancelledError);
}

TEST_F(BatchResumptionTest, GivenAnInterruptedFile_ThenItIsLeftToDoButDidNotFail) {
  BatchJournalEntry interrupted = failed("/in/a.png", "Error processing a.png: Processing cancelled by user");
  interrupted.is_interrupted = true;
  {
    BatchJournalWriter writer(journal({"/in/a.png", "/in/b.png"}));
    writer.add(interrupted);
    writer.add(failed("/in/b.png"));
  }
  EXPECT_THAT(lines(), HasSubstr(R"({"file": "/in/a.png", "status": "interrupted", )"));
  const BatchJournal read = controller::read_batch_journal(run_folder);
  EXPECT_EQ(read.entries.at(0).error, interrupted.error);
  EXPECT_THAT(controller::failed_files(read), ElementsAre("/in/b.png"));
  EXPECT_THAT(controller::plan_batch_resumption(read).to_do, ElementsAre("/in/a.png", "/in/b.png"));
}

TEST_F(BatchResumptionTest, TheFilesThatFailedStandInTheOrderOfTheSelection) {
  BatchJournal earlier = journal({"/in/a.png", "/in/b.png", "/in/c.png", "/in/d.png"});
  earlier.entries = {failed("/in/d.png"), done("/in/a.png"), failed("/in/b.png")};
  EXPECT_THAT(controller::failed_files(earlier), ElementsAre("/in/b.png", "/in/d.png"));
}

}  // namespace
}  // namespace orvexa::test
