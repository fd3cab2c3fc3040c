// What a watcher remembers: every capture is done exactly once, over restarts and kills.
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "controller/watch_fixture.h"
#include "orvexa/controller/folder_watch.h"
#include "orvexa/model/mask_operations/registry.h"
#include "support/log_capture.h"
#include "support/operations.h"

namespace orvexa::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

class FolderWatchMemory : public WatchTest {
 protected:
  /// Leaves the folders as a kill would: without the lines of the journal from the first one of that event on.
  void forget_from(const std::string& event) {
    std::vector<Value> kept;
    for (const Value& line : journal()) {
      if (line.value("event", "") == event) break;
      kept.push_back(line);
    }
    write_journal(kept);
  }
};

TEST_F(FolderWatchMemory, GivenADoneCapture_ThenItIsNotDoneAgainAtLaterPollsNorAfterARestart) {
  write_capture("plot");
  poll(5);
  EXPECT_EQ(loads, 1);
  const std::string journal_before = read_all(out / "watch_journal.jsonl");
  restart();
  EXPECT_TRUE(poll()) << "known files need no second poll";
  poll(3);
  EXPECT_EQ(loads, 0);
  EXPECT_THAT(results(), ElementsAre("plot"));
  EXPECT_EQ(read_all(out / "watch_journal.jsonl"), journal_before);
}

TEST_F(FolderWatchMemory, TheJournalNamesNameContentsWorkflowAndStamps) {
  write_capture("plot");
  poll(2);
  const Value started = journal("started").at(0);
  EXPECT_EQ(started.at("name"), "HDR_plot.INF");
  EXPECT_EQ(started.at("folder"), "plot");
  EXPECT_EQ(started.at("workflow_sha256"),
            common::sha256_hex(common::as_byte_span(read_all(out / "plot" / "workflow.yaml"))));
  ASSERT_THAT(started.at("files"), SizeIs(2));
  const std::vector<std::string> names{"HDR_plot.INF", "plot_A.png"};
  for (std::size_t i = 0; i < names.size(); ++i) {
    const Value& file = started.at("files").at(i);
    const auto path = in / names[i];
    EXPECT_EQ(file.at("name"), names[i]);
    EXPECT_EQ(file.at("sha256"), common::sha256_hex(common::as_byte_span(read_all(path))));
    EXPECT_EQ(file.at("bytes"), std::filesystem::file_size(path));
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(file.at("inode"), status.st_ino);
    EXPECT_EQ(file.at("modified_ns"), status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec);
  }
  const Value done = journal("done").at(0);
  EXPECT_EQ(done.at("key"), started.at("key"));
  EXPECT_EQ(done.at("folder"), "plot");
  EXPECT_EQ(done.at("rows"), 1);
}

TEST_F(FolderWatchMemory, StartedIsInTheJournalBeforeTheRunAndDoneAfterTheFolderHasItsName) {
  std::vector<std::string> events_at_run;
  model::MaskOperationInfo info = fake_mask("look", [&](auto&, const auto& source, auto*, const auto&) {
    for (const Value& line : journal()) events_at_run.push_back(line.value("event", "begin"));
    EXPECT_EQ(journal("started").at(0).at("folder"), "plot");
    EXPECT_FALSE(std::filesystem::exists(out / "plot"));
    return std::optional(model::Mask::full(source.get_shape()));
  });
  const model::MaskRegistryOverride registry({&info});
  folder.write("workflow.yaml", "mask_operations:\n  - op: look\n");
  bool was_done_with_folder = false;
  arguments.on_event = [&](const WatcherEvent& event) {
    if (event.kind != Kind::done) return;
    was_done_with_folder = std::filesystem::exists(out / "plot") && journal("done").size() == 1;
  };
  write_capture("plot");
  poll(2);
  EXPECT_THAT(events_at_run, ElementsAre("begin", "captures_only", "started"));
  EXPECT_TRUE(was_done_with_folder);
}

TEST_F(FolderWatchMemory, GivenAKillBeforeTheResultsWereThere_ThenTheCaptureIsDoneOnce) {
  write_capture("plot");
  poll(2);
  watch.reset();
  forget_from("done");
  std::filesystem::remove_all(out / "plot");
  restart();
  poll(2);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_plot.INF"));
  EXPECT_THAT(results(), ElementsAre("plot"));
}

TEST_F(FolderWatchMemory, GivenAKillBetweenTheResultsAndTheirRecord_ThenTheyAreTakenAsDoneAtTheStart) {
  write_capture("plot");
  poll(2);
  watch.reset();
  forget_from("done");
  std::filesystem::remove_all(in);  // the input need not be there any more
  std::filesystem::create_directories(in);
  restart();
  poll(2);
  EXPECT_THAT(files_of(Kind::recovered), ElementsAre("HDR_plot.INF"));
  EXPECT_EQ(loads, 0);
  EXPECT_THAT(results(), ElementsAre("plot"));
  EXPECT_THAT(journal("done"), SizeIs(1));
  EXPECT_THAT(table(), SizeIs(2));
  EXPECT_EQ(status().done, 1U);
}

TEST_F(FolderWatchMemory, GivenAKillBetweenTheResultsAndTheirRecord_ThenOperationsThatFailedAreStillTold) {
  write_workflow("psii");
  write_capture("plot");
  poll(2);
  const Value errors = events.back().details.at("operation_errors");
  for (const bool is_input_gone : {false, true}) {
    watch.reset();
    forget_from("done");
    if (is_input_gone) std::filesystem::remove(in / "HDR_plot.INF");
    restart();
    poll(2);
    ASSERT_THAT(files_of(Kind::recovered), ElementsAre("HDR_plot.INF"));
    EXPECT_EQ(events_of(Kind::recovered)[0].details.at("operation_errors"), errors);
    EXPECT_EQ(journal("done").at(0).at("operation_errors"), errors);
    EXPECT_EQ(status().with_operation_errors, 1U);
  }
}

TEST_F(FolderWatchMemory, GivenAKillBetweenTheResultsAndTheirRecord_ThenAMaskThatBecameEmptyIsStillTold) {
  folder.write("workflow.yaml", "mask_operations:\n  - op: threshold_auto\nresult_operations:\n  - op: area\n");
  write_capture("plot", 0);
  poll(2);
  watch.reset();
  forget_from("done");
  restart();
  poll(2);
  ASSERT_THAT(files_of(Kind::recovered), ElementsAre("HDR_plot.INF"));
  EXPECT_THAT(events_of(Kind::recovered)[0].details.at("mask_notes").at(0).at("note").get<std::string>(),
              StartsWith("no_contrast: "));
}

TEST_F(FolderWatchMemory, GivenAStartedFolderWhoseNumbersCannotBeRead_ThenItIsTakenAsDoneWithoutThem) {
  write_capture("plot");
  poll(2);
  for (const char* text : {"{", "{}", "[]", R"({"results": {}, "mask_notes": [1]})"}) {
    watch.reset();
    forget_from("done");
    folder.write("out/plot/metrics.json", text);
    restart();
    poll(2);
    EXPECT_THAT(files_of(Kind::recovered), ElementsAre("HDR_plot.INF")) << text;
    EXPECT_THAT(results(), ElementsAre("plot"));
  }
}

TEST_F(FolderWatchMemory, GivenAStartedFolderThatWasMadeFromOtherInputs_ThenTheCaptureIsDone) {
  write_capture("plot", 5);
  poll(2);
  watch.reset();
  forget_from("done");
  const auto provenance = out / "plot" / "provenance.json";
  Value document = Value::parse(read_all(provenance));
  document["inputs"][1]["sha256"] = std::string(64, '0');
  folder.write("out/plot/provenance.json", document.dump());
  restart();
  poll(2);
  EXPECT_THAT(files_of(Kind::recovered), IsEmpty());
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_plot.INF"));
  EXPECT_THAT(results(), ElementsAre("plot", "plot_2"));
}

TEST_F(FolderWatchMemory, GivenAStartedFolderOfAnotherWorkflow_ThenTheCaptureIsDone) {
  write_capture("plot");
  poll(2);
  watch.reset();
  forget_from("done");
  folder.write("out/plot/workflow.yaml", "title: Another\n");
  restart();
  poll(2);
  EXPECT_THAT(results(), ElementsAre("plot", "plot_2"));
}

TEST_F(FolderWatchMemory, GivenAStartedFolderWithoutItsProvenance_ThenTheCaptureIsDone) {
  write_capture("plot");
  poll(2);
  watch.reset();
  forget_from("done");
  folder.write("out/plot/provenance.json", "{\"inputs\": [");
  restart();
  poll(2);
  EXPECT_THAT(results(), ElementsAre("plot", "plot_2"));
}

TEST_F(FolderWatchMemory, GivenAFolderNameThatAnotherProgramTookDuringTheRun_ThenTheResultsAreFoundUnderTheNextOne) {
  write_capture("plot");
  poll(2);
  watch.reset();
  forget_from("done");
  std::filesystem::rename(out / "plot", out / "plot_2");
  folder.write("out/plot/provenance.json", "{}");
  restart();
  poll(2);
  EXPECT_THAT(files_of(Kind::recovered), ElementsAre("HDR_plot.INF"));
  EXPECT_EQ(journal("done")[0].at("folder"), "plot_2");
  EXPECT_EQ(loads, 0);
}

TEST_F(FolderWatchMemory, GivenTwoCapturesOfEqualContentOfWhichOneWasKilled_ThenTheFolderOfTheOtherIsNotTaken) {
  // The same header under two names: the results of both are called "plot" and are made from equal files.
  write_picture("p.png");
  folder.write("in/HDR_a.INF", header("plot", {"p.png"}));
  poll(2);
  folder.write("in/HDR_b.INF", header("plot", {"p.png"}));
  poll(2);
  EXPECT_THAT(results(), ElementsAre("plot", "plot_2"));
  watch.reset();
  std::vector<Value> lines = journal();
  ASSERT_EQ(lines.back().at("event"), "done");
  lines.pop_back();
  write_journal(lines);
  std::filesystem::remove_all(out / "plot_2");
  restart();
  poll(2);
  EXPECT_THAT(files_of(Kind::recovered), IsEmpty());
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_b.INF"));
  EXPECT_THAT(results(), ElementsAre("plot", "plot_2"));
}

TEST_F(FolderWatchMemory, GivenATornLastLine_ThenItIsRemovedAndNothingIsDoneTwice) {
  write_capture("plot");
  poll(2);
  end();
  const std::string whole = read_all(out / "watch_journal.jsonl");
  folder.write("out/watch_journal.jsonl", whole + "{\"event\": \"started\", \"key\": \"HDR_x");
  const LogCapture log;
  restart();
  poll(2);
  EXPECT_THAT(log.lines(), Contains("warning: FileWatcher: the last line of watch_journal.jsonl is torn and was "
                                    "removed."));
  EXPECT_EQ(loads, 0);
  EXPECT_EQ(read_all(out / "watch_journal.jsonl"), whole);
}

TEST_F(FolderWatchMemory, GivenADoneLineThatIsTorn_ThenTheResultsAreTakenAsDone) {
  write_capture("plot");
  poll(2);
  end();
  const std::string whole = read_all(out / "watch_journal.jsonl");
  folder.write("out/watch_journal.jsonl", whole.substr(0, whole.size() - 3));
  restart();
  poll(2);
  EXPECT_THAT(files_of(Kind::recovered), ElementsAre("HDR_plot.INF"));
  EXPECT_THAT(results(), ElementsAre("plot"));
}

TEST_F(FolderWatchMemory, GivenTwoFilesWithEqualPixels_ThenTheyAreTwoCaptures) {
  write_picture("a.png");
  write_picture("b.png");
  poll(2);
  EXPECT_THAT(results(), ElementsAre("a", "b"));
  EXPECT_EQ(journal("started")[0].at("files")[0].at("sha256"), journal("started")[1].at("files")[0].at("sha256"));
}

TEST_F(FolderWatchMemory, GivenAFileThatIsReplacedByAnotherContent_ThenItIsANewCapture) {
  write_capture("plot", 5);
  poll(2);
  write_picture("plot_A.png", 7);
  poll(2);
  EXPECT_THAT(results(), ElementsAre("plot", "plot_2"));
  EXPECT_THAT(read_all(out / "plot_2" / "metrics.tsv"), HasSubstr("\t7\t"));
  EXPECT_THAT(table(), SizeIs(3));
  // Back to the content that was done already.
  write_picture("plot_A.png", 5);
  poll(3);
  EXPECT_THAT(results(), ElementsAre("plot", "plot_2"));
}

TEST_F(FolderWatchMemory, GivenANewTimeOfModificationAlone_ThenTheContentDecidesAndTheStampIsRemembered) {
  write_capture("plot");
  poll(2);
  set_time("plot_A.png", 5000);
  poll(2);
  EXPECT_EQ(loads, 1);
  EXPECT_THAT(journal("known"), SizeIs(1));
  restart();
  EXPECT_TRUE(poll());
  EXPECT_EQ(loads, 0);
  EXPECT_THAT(journal("known"), SizeIs(1));
}

TEST_F(FolderWatchMemory, GivenImagesThatAreRemovedAfterwards_ThenTheCaptureStaysDone) {
  write_capture("plot");
  poll(2);
  std::filesystem::remove(in / "plot_A.png");
  poll(3);
  EXPECT_THAT(files_of(Kind::incomplete), IsEmpty());
  EXPECT_EQ(status().waiting, 0U);
  restart();
  poll(3);
  EXPECT_THAT(files_of(Kind::incomplete), IsEmpty());
}

TEST_F(FolderWatchMemory, GivenAnotherWorkflow_ThenEveryCaptureIsDoneWithItToo) {
  write_capture("plot");
  poll(2);
  write_workflow("region_count");
  poll(3);
  EXPECT_THAT(results(), ElementsAre("plot", "plot_2"));
  EXPECT_NE(journal("started")[0].at("workflow_sha256"), journal("started")[1].at("workflow_sha256"));
  write_workflow("area");
  poll(3);
  EXPECT_THAT(results(), ElementsAre("plot", "plot_2")) << "with this one it is done";
}

TEST_F(FolderWatchMemory, GivenAnotherCommentInTheWorkflow_ThenNothingIsDoneAgain) {
  write_capture("plot");
  poll(2);
  write_workflow("area", "# measured in a hurry\n");
  poll(3);
  restart();
  poll(3);
  EXPECT_THAT(results(), ElementsAre("plot"));
}

TEST_F(FolderWatchMemory, GivenFoldersThatWereMoved_ThenNothingIsDoneAgain) {
  write_capture("plot");
  poll(2);
  end();
  std::filesystem::create_directories(folder / "elsewhere");
  // A copy: other inodes and other times.
  std::filesystem::copy(in, folder / "elsewhere" / "in");
  std::filesystem::copy(out, folder / "elsewhere" / "out", std::filesystem::copy_options::recursive);
  arguments.input_dir = (folder / "elsewhere" / "in").string();
  arguments.output_dir = (folder / "elsewhere" / "out").string();
  out = folder / "elsewhere" / "out";
  loads = 0;
  poll(3);
  EXPECT_EQ(loads, 0);
  EXPECT_THAT(results(), ElementsAre("plot"));
}

TEST_F(FolderWatchMemory, GivenTenThousandKnownCaptures_ThenARestartReadsNoneOfThem) {
  write_capture("first");
  poll(2);
  end();
  const std::string workflow_hash = journal("started").at(0).at("workflow_sha256");
  const std::vector<std::string> head = lines_of(out / "watch_journal.jsonl");
  std::filesystem::remove_all(in);
  std::filesystem::remove_all(out);
  std::filesystem::create_directories(in);
  std::string text = head[0] + "\n" + head[1] + "\n";
  constexpr int count = 10'000;
  // Contents that the journal's hashes are not those of: whoever read a file would find another capture.
  for (int i = 0; i < count; ++i) {
    const std::string name = "HDR_" + std::to_string(i) + ".INF";
    const auto stamp = controller::stamp_of(folder.write("in/" + name, "never read"));
    ASSERT_TRUE(stamp);
    const std::string key = name + "#0123456789abcdef";
    const Value file{{"name", name},
                     {"sha256", std::string(64, 'a')},
                     {"bytes", stamp->bytes},
                     {"modified_ns", stamp->modified_ns},
                     {"inode", stamp->inode}};
    // A second file of the capture that was archived since.
    const Value image{
        {"name", "gone.tif"}, {"sha256", std::string(64, 'b')}, {"bytes", 1}, {"modified_ns", 1}, {"inode", 1}};
    text += Value{{"event", "started"},     {"key", key},     {"name", name},    {"workflow_sha256", workflow_hash},
                  {"files", {file, image}}, {"capture", "x"}, {"number", i + 1}, {"folder", "x"}}
                .dump() +
            "\n";
    text += Value{{"event", "done"}, {"key", key}, {"folder", "x_" + std::to_string(i)}, {"rows", 0}}.dump() + "\n";
  }
  folder.write("out/watch_journal.jsonl", text);
  loads = 0;
  events.clear();
  EXPECT_TRUE(poll()) << "all is known at the first poll";
  EXPECT_TRUE(poll(2));
  EXPECT_EQ(loads, 0);
  EXPECT_EQ(read_all(out / "watch_journal.jsonl"), text) << "nothing was found to be another capture";
  EXPECT_EQ(status().done, static_cast<std::size_t>(count));
  EXPECT_EQ(status().waiting, 0U);
  EXPECT_THAT(files_of(Kind::incomplete), IsEmpty());
}

TEST_F(FolderWatchMemory, GivenACaptureThatKilledTheProgramTwice_ThenItComesAfterTheOthers) {
  write_capture("a_killer");
  poll(2);
  watch.reset();
  Value started = journal("started").at(0);
  const std::vector<Value> lines = journal();
  write_journal({lines[0], lines[1], started, started});
  std::filesystem::remove_all(out / "a_killer");
  write_capture("b");
  write_capture("c");
  restart();
  poll(2);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_b.INF", "HDR_c.INF", "HDR_a_killer.INF"));
}

TEST_F(FolderWatchMemory, GivenACaptureWhoseRunFailedTwice_ThenItKeepsItsPlace) {
  write_capture("a");
  poll(2);
  watch.reset();
  const std::vector<Value> lines = journal();
  const Value started = journal("started").at(0);
  const Value failed{{"event", "failed"}, {"key", started.at("key")}};
  write_journal({lines[0], lines[1], started, failed, started, failed});
  std::filesystem::remove_all(out / "a");
  write_capture("b");
  restart();
  poll(2);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_a.INF", "HDR_b.INF"));
}

// ---- One watcher a folder

TEST_F(FolderWatchMemory, GivenAWatcherOnTheOutputFolder_ThenASecondOneIsRefusedWithHostAndProcess) {
  poll();
  std::array<char, 256> host{};
  ASSERT_EQ(::gethostname(host.data(), host.size() - 1), 0);
  try {
    const FolderWatch second(arguments, cancel);
    FAIL();
  } catch (const std::runtime_error& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("The folder \"" + out.string() + "\" already has a watcher: process " +
                                          std::to_string(::getpid()) + " on host " + host.data() + " since "));
  }
  end();
  restart();  // and now it is free
  poll();
  EXPECT_THAT(texts_of(Kind::taken_over), IsEmpty());
}

TEST_F(FolderWatchMemory, GivenAHolderThatDied_ThenItIsTakenOverWithAMessage) {
  folder.write("out/.watch_lock", R"({"host": "tray-pc", "process": 4711, "since": "2024-05-21T10:32:11+0200"})");
  poll();
  EXPECT_THAT(texts_of(Kind::taken_over),
              ElementsAre("The watcher before this one, process 4711 on host tray-pc since 2024-05-21T10:32:11+0200, "
                          "ended without giving the folder free; this one goes on with its work."));
}

}  // namespace
}  // namespace orvexa::test
