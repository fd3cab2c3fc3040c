#include "orvexa/controller/watch_table.h"

#include "controller/watch_fixture.h"
#include "support/log_capture.h"
#include "support/python.h"

namespace orvexa::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::SizeIs;
using testing::StartsWith;

class WatchTable : public WatchTest {
 protected:
  [[nodiscard]] std::string key(std::size_t i) const { return journal("done").at(i).at("key").get<std::string>(); }
  void write_table(const std::string& text) const { folder.write("out/watch_table.tsv", text); }
  [[nodiscard]] std::string table_text() const { return read_all(out / "watch_table.tsv"); }
};

TEST_F(WatchTable, HasOneRowARegionWithTheKeyFirst) {
  folder.write("workflow.yaml",
               "mask_operations:\n"
               "  - op: roi_rects\n"
               "    params: {rects: [[0.25, 0.5, 0.5, 1], [0.75, 0.5, 0.5, 1]]}\n"
               "result_operations:\n"
               "  - op: area\n");
  write_capture("a");
  write_capture("b");
  poll(2);
  ASSERT_THAT(table(), SizeIs(5));
  EXPECT_THAT(table()[0], StartsWith("Key\tCapture\tRegion\tDate\tTime\tarea\t"));
  EXPECT_THAT(table()[1], StartsWith(key(0) + "\ta\tROI_1\t\t\t6\t"));
  EXPECT_THAT(table()[2], StartsWith(key(0) + "\ta\tROI_2\t\t\t6\t"));
  EXPECT_THAT(table()[3], StartsWith(key(1) + "\tb\tROI_1\t\t\t6\t"));
}

TEST_F(WatchTable, GivenAnOutsideReader_ThenEveryRowHasTheColumnsOfTheHeader) {
  for (const char* name : {"a", "b", "c"}) write_capture(name);
  poll(2);
  const std::string script =
      "import csv, sys\n"
      "rows = list(csv.DictReader(open(sys.argv[1], newline='', encoding='utf-8'), delimiter='\\t', "
      "quoting=csv.QUOTE_NONE))\n"
      "print([(r['Capture'], r['Region'], r['area'], None in r, None in r.values()) for r in rows])\n";
  EXPECT_EQ(python(script, {(out / "watch_table.tsv").string()}),
            "[('a', 'ROI_1', '5', False, False), ('b', 'ROI_1', '5', False, False), ('c', 'ROI_1', '5', False, "
            "False)]\n");
}

TEST_F(WatchTable, GivenANewColumn_ThenTheTableIsMadeAnewWithAnEmptyFieldInOlderRows) {
  write_capture("a");
  poll(2);
  const auto columns = [](const std::string& line) { return std::count(line.begin(), line.end(), '\t'); };
  const auto before = columns(table()[0]);
  write_workflow("region_count");
  poll(3);
  ASSERT_THAT(table(), SizeIs(3));
  EXPECT_GT(columns(table()[0]), before);
  EXPECT_TRUE(table()[0].ends_with("\tregion_count")) << table()[0];
  EXPECT_TRUE(table()[1].ends_with("\t")) << "a had no count when only its area was measured";
  EXPECT_TRUE(table()[2].ends_with("\t1")) << table()[2];
  for (const std::string& line : table()) EXPECT_EQ(columns(line), columns(table()[0]));
}

TEST_F(WatchTable, GivenATornTable_ThenItIsMadeAnewAtTheNextStart) {
  for (const char* name : {"a", "b"}) write_capture(name);
  poll(2);
  const std::string whole = table_text();
  const std::size_t last_row = whole.rfind('\n', whole.size() - 2) + 1;
  for (const std::string& torn :
       {std::string(), whole.substr(0, 3), whole.substr(0, whole.size() - 1), whole.substr(0, last_row),
        whole.substr(0, last_row + 4), whole.substr(0, last_row + 4) + "\n", whole + whole.substr(last_row),
        whole + "another\t" + whole.substr(last_row), "Capture" + whole}) {
    end();
    write_table(torn);
    poll();
    EXPECT_EQ(table_text(), whole) << torn;
  }
  end();
  std::filesystem::remove(out / "watch_table.tsv");
  poll();
  EXPECT_EQ(table_text(), whole);
}

TEST_F(WatchTable, GivenAWholeTable_ThenARestartLeavesTheFileAsItIs) {
  write_capture("a");
  poll(2);
  end();
  const auto before = controller::stamp_of(out / "watch_table.tsv");
  poll();
  EXPECT_EQ(controller::stamp_of(out / "watch_table.tsv"), before);
}

TEST_F(WatchTable, GivenAResultsFolderThatWasRemoved_WhenTheTableIsMadeAnewAtAStart_ThenItsRowsGoAndThatIsTold) {
  for (const char* name : {"a", "b"}) write_capture(name);
  poll(2);
  const std::string notice =
      "1 of 2 captures in the journal have no results folder with a metrics.tsv any more, so their rows are not in "
      "watch_table.tsv.";
  std::filesystem::remove_all(out / "a");
  restart();
  poll();
  ASSERT_THAT(table(), SizeIs(3)) << "a whole table is left as it is";
  EXPECT_EQ(status().results_gone, 0U);
  end();
  write_table("");
  const LogCapture log;
  restart();
  poll();
  ASSERT_THAT(table(), SizeIs(2));
  EXPECT_THAT(table()[1], StartsWith(key(1)));
  EXPECT_THAT(texts_of(Kind::notice), ElementsAre(notice));
  EXPECT_THAT(log.lines(), Contains("warning: FileWatcher: " + notice));
  EXPECT_EQ(status().results_gone, 1U);
}

TEST_F(WatchTable, GivenAResultsFolderThatWasRemovedAndANewRunThatTookItsName_ThenTheRowsAreThoseOfTheNewRun) {
  write_capture("a");
  poll(2);
  std::filesystem::remove_all(out / "a");
  write_workflow("region_count");
  poll(4);
  ASSERT_TRUE(std::filesystem::exists(out / "a"));
  end();
  write_table("");
  restart();
  poll();
  ASSERT_THAT(table(), SizeIs(2));
  EXPECT_THAT(table()[1], StartsWith(key(1)));
  EXPECT_EQ(status().results_gone, 1U);
}

TEST_F(WatchTable, GivenAResultsFolderThatWasRemoved_WhenANewColumnAppears_ThenItsRowsGoAndThatIsToldOnce) {
  for (const char* name : {"a", "b"}) write_capture(name);
  poll(2);
  std::filesystem::remove_all(out / "a");
  for (const char* name : {"HDR_a.INF", "a_A.png"}) std::filesystem::remove(in / name);
  write_workflow("region_count");
  poll(4);
  ASSERT_THAT(table(), SizeIs(3)) << "b, and b once more with the other workflow";
  EXPECT_THAT(texts_of(Kind::notice),
              ElementsAre("1 of 3 captures in the journal have no results folder with a metrics.tsv any more, so their "
                          "rows are not in watch_table.tsv."));
  EXPECT_EQ(status().results_gone, 1U);
}

TEST_F(WatchTable, GivenAWorkflowThatWritesNoNumbers_ThenTheTableIsItsHeader) {
  write_workflow("area", "outputs: [masks]\n");
  write_capture("a");
  poll(2);
  EXPECT_THAT(results(), ElementsAre("a"));
  EXPECT_EQ(journal("done").at(0).at("rows"), 0);
  EXPECT_THAT(table(), ElementsAre("Key\tCapture\tRegion\tDate\tTime"));
}

TEST_F(WatchTable, GivenATableThatCannotBeWritten_ThenCapturesWaitAndASentenceSaysWhy) {
  std::filesystem::create_directories(out / "watch_table.tsv" / "inner");
  write_capture("a");
  poll(3);
  EXPECT_THAT(results(), testing::IsEmpty());
  ASSERT_THAT(texts_of(Kind::problem), SizeIs(1));
  EXPECT_THAT(texts_of(Kind::problem)[0], testing::HasSubstr("watch_table.tsv: cannot be written: there is a folder"));
  std::filesystem::remove_all(out / "watch_table.tsv");
  poll(2);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_a.INF"));
  EXPECT_THAT(table(), SizeIs(2));
}

}  // namespace
}  // namespace orvexa::test
