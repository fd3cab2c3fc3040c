#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <thread>

#include "cli/process.h"
#include "orvexa/model/codecs/image_file.h"
#include "support/captures.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

struct WatchSetup {
  WatchSetup() { std::filesystem::create_directories(input); }

  /// A capture of one grey picture of 4 x 3 pixels.
  void write_capture(const std::string& name) const {
    const common::Bytes bytes = model::encode_png(flat_image<std::uint8_t>(3, 4, 200));
    common::write_file_atomically(input / (name + "_A.png"), bytes);
    common::write_file_atomically(input / ("HDR_" + name + ".INF"),
                                  "[Capture]\n[Measurement MSP]\nImage A = " + name + "_A.png\n");
  }
  [[nodiscard]] std::vector<std::string> words(const std::vector<std::string>& more) const {
    std::vector<std::string> all{test::program(), "watch", workflow.string(), input.string(), "-o", output.string(),
                                 "--poll",        "0.05"};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
  [[nodiscard]] Outcome operator()(const std::vector<std::string>& more = {"--once"}) const {
    return Process(words(more)).wait();
  }
  /// Names in the output folder but those of the watcher itself, sorted.
  [[nodiscard]] std::vector<std::string> results() const {
    std::vector<std::string> names;
    if (!std::filesystem::is_directory(output)) return names;
    for (const auto& entry : std::filesystem::directory_iterator(output)) {
      const std::string name = entry.path().filename().string();
      if (!name.starts_with("watch_") && name != ".watch_lock") names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  /// Waits, as long as the test may take, until there are so many results; one that is being written counts.
  void wait_for_results(std::size_t count) const {
    while (results().size() < count) std::this_thread::yield();
  }
  void wait_for_folder(const std::string& name) const {
    while (!std::filesystem::exists(output / name)) std::this_thread::yield();
  }

  TemporaryFolder folder;
  std::filesystem::path input = folder / "in";
  std::filesystem::path output = folder / "out put ü";
  std::filesystem::path workflow = folder.write("area.yaml", "title: Area\nresult_operations:\n  - op: area\n");
};

std::vector<common::Value> documents(const std::string& lines) {
  std::vector<common::Value> list;
  std::istringstream stream(lines);
  for (std::string line; std::getline(stream, line);) list.push_back(common::Value::parse(line));
  return list;
}

TEST(Watch, GivenOnce_ThenItDoesWhatIsThereAndEnds) {
  const WatchSetup watch;
  watch.write_capture("a");
  watch.write_capture("b");
  const Outcome outcome = watch();
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_THAT(watch.results(), ElementsAre("a", "b"));
  EXPECT_THAT(outcome.out, HasSubstr("HDR_a.INF -> " + (watch.output / "a").string() + "\n"));
  EXPECT_THAT(outcome.out, HasSubstr("HDR_b.INF -> " + (watch.output / "b").string() + "\n"));
  const Outcome again = watch({"--once", "--quiet"});
  EXPECT_EQ(again.exit_code, 0);
  EXPECT_EQ(again.out + again.err, "");
  EXPECT_THAT(watch.results(), ElementsAre("a", "b"));
}

TEST(Watch, GivenAnEmptyFolderAndOnce_ThenThereIsNothingToDo) {
  const WatchSetup watch;
  EXPECT_EQ(watch().exit_code, 0);
}

TEST(Watch, GivenJson_ThenThereIsOneLineAnEvent) {
  const WatchSetup watch;
  watch.write_capture("a");
  const Outcome outcome = watch({"--once", "--json", "--quiet"});
  const std::vector<common::Value> events = documents(outcome.out);
  std::vector<std::string> names;
  for (const common::Value& event : events) {
    names.push_back(event.at("event").get<std::string>());
    EXPECT_EQ(event.at("format"), 1);
    EXPECT_TRUE(event.contains("time"));
  }
  ASSERT_THAT(names, ElementsAre("watching", "running", "done", "stopped"));
  EXPECT_EQ(events[2].at("file"), "HDR_a.INF");
  EXPECT_EQ(events[2].at("folder"), (watch.output / "a").string());
  EXPECT_EQ(events[3].at("done"), 1);
  EXPECT_EQ(events[3].at("waiting"), 0);
  EXPECT_EQ(outcome.err, "");
}

TEST(Watch, GivenJsonAndAWatchThatCannotBegin_ThenTheAnswerIsStillOneLine) {
  const WatchSetup watch;
  const std::string workflow = watch.workflow.string();
  const std::string nowhere = (watch.folder / "nowhere").string();
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {workflow, nowhere, "-o", watch.output.string()},
           {nowhere, watch.input.string(), "-o", watch.output.string()},
           {watch.folder.write("wrong.yaml", "result_operations:\n  - op: aera\n").string(), watch.input.string(), "-o",
            watch.output.string()},
           {workflow},
           {workflow, watch.input.string(), "-o", watch.output.string(), "--bogus"}}) {
    std::vector<std::string> all{"watch", "--json"};
    all.insert(all.end(), words.begin(), words.end());
    const Outcome outcome = orvexa_command(all);
    const std::vector<common::Value> lines = documents(outcome.out);
    ASSERT_THAT(lines, SizeIs(1)) << outcome.out;
    EXPECT_EQ(lines[0].at("format"), 1);
    EXPECT_TRUE(lines[0].at("error").is_string());
  }
}

TEST(Watch, GivenOnceAndACaptureThatFails_ThenTheExitCodeIs1) {
  const WatchSetup watch;
  watch.write_capture("a");
  watch.folder.write("in/HDR_b.INF", "nothing\n");
  const Outcome outcome = watch({"--once", "--quiet", "--retries", "1"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(watch.results(), ElementsAre("a"));
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr("HDR_b.INF, line 1"));
}

TEST(Watch, GivenACaptureThatFailsAgainAndAgain_ThenTheLastLineSaysThatItIsLeft) {
  const WatchSetup watch;
  watch.folder.write("in/z.png", "");
  const Outcome outcome = watch({"--once", "--retries", "1"});
  EXPECT_THAT(outcome.err,
              HasSubstr("z.png: the file is empty. It is tried again.\n"
                        "z.png: the file is empty. It is left until its files or the workflow change or the watcher "
                        "starts again.\n"));
}

TEST(Watch, GivenOnceAndAnIncompleteCapture_ThenTheExitCodeIs1) {
  const WatchSetup watch;
  watch.write_capture("a");
  watch.folder.write("in/HDR_b.INF", "[Capture]\n[Measurement MSP]\nImage A = b_A.png\n");
  const Outcome outcome = watch();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.err, HasSubstr("HDR_b.INF: It is not complete: it waits for b_A.png.\n"));
}

TEST(Watch, GivenOnceAndNothingThatSucceeds_ThenTheExitCodeIs3) {
  const WatchSetup watch;
  watch.folder.write("in/HDR_b.INF", "nothing\n");
  EXPECT_EQ(watch({"--once", "--retries", "0"}).exit_code, 3);
}

TEST(Watch, GivenOnceAndAnOperationThatFails_ThenTheExitCodeIs1AndTheSentenceIsPrinted) {
  WatchSetup watch;
  watch.workflow = watch.folder.write("psii.yaml", "result_operations:\n  - op: psii\n  - op: area\n");
  watch.write_capture("a");
  const Outcome outcome = watch({"--once", "--quiet"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(outcome.err.starts_with("HDR_a.INF: psii: ")) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("FLU"));
  EXPECT_THAT(watch.results(), ElementsAre("a"));
  EXPECT_THAT(orvexa_command({"watch", "--status", watch.output.string()}).out,
              HasSubstr("With errors   1 of these: an operation failed; the last:\n              HDR_a.INF: psii: "));
}

TEST(Watch, GivenOnceAndResultsWithAFailedOperationThatAKilledWatcherLeft_ThenTheExitCodeIs1) {
  WatchSetup watch;
  watch.workflow = watch.folder.write("psii.yaml", "result_operations:\n  - op: psii\n");
  watch.write_capture("a");
  ASSERT_EQ(watch().exit_code, 1);
  // As after a kill between the name of the results folder and its record.
  const std::string journal = read_all(watch.output / "watch_journal.jsonl");
  const std::size_t done = journal.find("{\"event\": \"done\"");
  ASSERT_NE(done, std::string::npos) << journal;
  common::write_file_atomically(watch.output / "watch_journal.jsonl", journal.substr(0, done));
  const Outcome outcome = watch({"--once", "--quiet"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(outcome.err.starts_with("HDR_a.INF: psii: ")) << outcome.err;
  EXPECT_THAT(watch.results(), ElementsAre("a"));
}

TEST(Watch, GivenAMaskThatBecameEmptyByItself_ThenTheWarningIsPrintedAndStandsInTheEvent) {
  WatchSetup watch;
  watch.workflow = watch.folder.write("auto.yaml",
                                      "mask_operations:\n  - op: threshold_auto\n"
                                      "result_operations:\n  - op: region_count\n");
  watch.write_capture("a");
  const std::string note = "no_contrast: all pixels have the same value in MSP.A, so the mask is empty";
  const Outcome outcome = watch({"--once", "--json"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.err, HasSubstr("HDR_a.INF: mask step 1 (threshold_auto): " + note + ".\n"));
  const common::Value done = documents(outcome.out).at(2);
  ASSERT_EQ(done.at("event"), "done");
  EXPECT_EQ(done.at("mask_notes"), common::Value::array({{{"step", 0}, {"op", "threshold_auto"}, {"note", note}}}));
}

TEST(Watch, GivenImagesOrCaptures_ThenOnlyTheseAreTaken) {
  for (const bool takes_images : {true, false}) {
    const WatchSetup watch;
    watch.write_capture("a");
    common::write_file_atomically(watch.input / "photo.png", model::encode_png(flat_image<std::uint8_t>(3, 4, 200)));
    EXPECT_EQ(watch({"--once", takes_images ? "--images" : "--captures"}).exit_code, 0);
    EXPECT_THAT(watch.results(), ElementsAre(takes_images ? "photo" : "a"));
  }
}

TEST(Watch, GivenAWorkflowThatCannotRun_ThenEveryProblemIsNamedAndNothingIsMade) {
  WatchSetup watch;
  watch.workflow =
      watch.folder.write("wrong.yaml", "mask_operations:\n  - op: errode\nresult_operations:\n  - op: aera\n");
  const Outcome outcome = watch();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.err, HasSubstr("mask step 1 (errode)"));
  EXPECT_THAT(outcome.err, HasSubstr("result operation 1 (aera)"));
  EXPECT_FALSE(std::filesystem::exists(watch.output));
}

TEST(Watch, GivenNoInputFolder_ThenOneSentenceSaysSo) {
  const WatchSetup watch;
  std::filesystem::remove(watch.input);
  const Outcome outcome = watch();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err, "The input folder \"" + watch.input.string() + "\" is not there.\n");
  EXPECT_FALSE(std::filesystem::exists(watch.output));
}

class EndedWatch : public testing::TestWithParam<int> {};

TEST_P(EndedWatch, GivenASignal_ThenItEndsCleanlyWithExitCode130) {
  const WatchSetup watch;
  watch.write_capture("a");
  Process process(watch.words({}));
  watch.wait_for_folder("a");
  process.send(GetParam());
  const Outcome outcome = process.wait();
  EXPECT_EQ(outcome.exit_code, 130);
  EXPECT_THAT(outcome.err, HasSubstr("Stopped watching "));
  const Outcome status = orvexa_command({"watch", "--status", watch.output.string(), "--json"});
  EXPECT_EQ(status.exit_code, 0);
  EXPECT_EQ(status.json().at("running"), false);
  EXPECT_TRUE(status.json().at("stopped").is_string());
  EXPECT_EQ(status.json().at("done"), 1);
}

INSTANTIATE_TEST_SUITE_P(Signals, EndedWatch, testing::Values(SIGINT, SIGTERM), [](const auto& test) {
  return std::string(test.param == SIGINT ? "Interrupt" : "Terminate");
});

TEST(Watch, GivenASignalDuringALongRun_ThenTheRunIsCancelledAndDoneByTheNextWatch) {
  WatchSetup watch;
  common::write_file_atomically(watch.input / "big.png", model::encode_png(flat_image<std::uint8_t>(6000, 6000, 200)));
  watch.workflow = watch.folder.write("long.yaml",
                                      "mask_operations:\n"
                                      "  - {op: threshold_range, params: {low: 0.5}}\n"
                                      "  - {op: open, params: {radius: 150, iterations: 10}}\n"
                                      "  - {op: close, params: {radius: 150, iterations: 10}}\n"
                                      "  - {op: open, params: {radius: 190, iterations: 10}}\n");
  Process process(watch.words({"--log-level", "debug"}));
  ASSERT_TRUE(process.wait_for_error_text("running big.png"));
  process.send(SIGTERM);
  EXPECT_EQ(process.wait().exit_code, 130);
  EXPECT_THAT(watch.results(), IsEmpty());

  watch.folder.write("long.yaml", "result_operations:\n  - {op: area}\n");
  EXPECT_EQ(watch().exit_code, 0);
  EXPECT_THAT(watch.results(), ElementsAre("big"));
}

TEST(Watch, GivenAWatcherThatRuns_ThenASecondOneIsRefusedAndTheStatusNamesTheFirst) {
  const WatchSetup watch;
  watch.write_capture("a");
  Process process(watch.words({}));
  watch.wait_for_folder("a");
  const Outcome second = watch();
  EXPECT_EQ(second.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(second.err));
  EXPECT_THAT(second.err, HasSubstr("already has a watcher: process "));
  const common::Value status = orvexa_command({"watch", "--status", watch.output.string(), "--json"}).json();
  EXPECT_EQ(status.at("running"), true);
  EXPECT_THAT(second.err, HasSubstr("process " + std::to_string(status.at("process").get<long>()) + " on host " +
                                    status.at("host").get<std::string>()));
  EXPECT_THAT(orvexa_command({"watch", "--status", watch.output.string()}).out,
              HasSubstr("Running       yes, process "));
  process.send(SIGTERM);
  EXPECT_EQ(process.wait().exit_code, 130);
}

TEST(Watch, GivenNoWatcherEver_ThenTheStatusIsOneSentence) {
  const TemporaryFolder folder;
  const Outcome outcome = orvexa_command({"watch", "--status", folder.path().string()});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(outcome.err));
}

TEST(Watch, GivenTheStatusAndAnyOtherWordOfTheCommand_ThenItIsRefused) {
  const WatchSetup watch;
  ASSERT_EQ(watch().exit_code, 0);
  for (const std::vector<std::string>& more : std::vector<std::vector<std::string>>{
           {"--once"}, {"--images"}, {"--captures"}, {"--poll", "1"}, {"--retries", "0"}, {"-o", "x"}, {"w.yaml"}}) {
    std::vector<std::string> words{"watch", "--status", watch.output.string()};
    words.insert(words.end(), more.begin(), more.end());
    const Outcome outcome = orvexa_command(words);
    EXPECT_EQ(outcome.exit_code, 2) << more.front();
    EXPECT_EQ(outcome.err, "orvexa watch: --status DIR stands alone; see orvexa watch --help.\n");
  }
}

TEST(Watch, GivenFailedAndIncompleteCaptures_ThenTheStatusListsThemWithTheirSentences) {
  const WatchSetup watch;
  watch.folder.write("in/HDR_b.INF", "nothing\n");
  watch.folder.write("in/HDR_c.INF", "[Capture]\n[Measurement MSP]\nImage A = c_A.png\n");
  static_cast<void>(watch());
  const std::string text = orvexa_command({"watch", "--status", watch.output.string()}).out;
  EXPECT_THAT(text, HasSubstr("Running       no, stopped at "));
  EXPECT_THAT(text, HasSubstr("Failed        1\n              HDR_b.INF, line 1: "));
  EXPECT_THAT(text, HasSubstr("Waiting       1\n              HDR_c.INF lacks c_A.png\n"));
  EXPECT_THAT(text, testing::ContainsRegex("Last error    [0-9]{4}-[0-9T:+-]+: HDR_b.INF, line 1: "));
}

/// What the journal and the folders say about every capture: how often it is done.
std::map<std::string, int> done_by_capture(const WatchSetup& watch) {
  std::map<std::string, int> counts;
  for (const std::string& name : watch.results()) {
    const auto provenance = common::Value::parse(read_all(watch.output / name / "provenance.json"));
    ++counts[std::filesystem::path(provenance.at("inputs").at(0).at("path").get<std::string>()).filename().string()];
  }
  return counts;
}

TEST(Watch, GivenKillsInTheMiddle_ThenEveryCaptureIsDoneExactlyOnce) {
  const WatchSetup watch;
  constexpr std::size_t count = 24;
  for (std::size_t i = 0; i < count; ++i) watch.write_capture("plot_" + std::to_string(i));
  for (const std::size_t at : {std::size_t{3}, std::size_t{9}, std::size_t{15}}) {
    Process process(watch.words({}));
    watch.wait_for_results(at);
    process.send(SIGKILL);
    EXPECT_EQ(process.wait().exit_code, 128 + SIGKILL);
    EXPECT_THAT(orvexa_command({"watch", "--status", watch.output.string()}).out,
                HasSubstr("Running       no: it ended without saying so\n"));
  }
  const Outcome last = watch({"--once", "--json"});
  EXPECT_EQ(last.exit_code, 0) << last.err;
  EXPECT_EQ(documents(last.out).at(1).at("event"), "taken_over");
  const std::map<std::string, int> done = done_by_capture(watch);
  EXPECT_THAT(done, SizeIs(count));
  for (const auto& [name, times] : done) EXPECT_EQ(times, 1) << name;
  EXPECT_THAT(watch.results(), SizeIs(count)) << "and nothing half-written beside them";

  std::set<std::string> keys;
  std::istringstream table(read_all(watch.output / "watch_table.tsv"));
  std::string line;
  std::getline(table, line);
  while (std::getline(table, line)) EXPECT_TRUE(keys.insert(line.substr(0, line.find('\t'))).second) << line;
  EXPECT_THAT(keys, SizeIs(count));
}

}  // namespace
}  // namespace orvexa::test
