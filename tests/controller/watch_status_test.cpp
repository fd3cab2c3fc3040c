#include "orvexa/controller/watch_status.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orvexa/controller/watcher.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

using common::Value;
using controller::WatchStatus;
using testing::HasSubstr;

TEST(WatchStatus, SurvivesItsFile) {
  const TemporaryFolder folder;
  const WatchStatus status{.input_folder = "/in ü",
                           .workflow_file = "/w.yaml",
                           .poll_seconds = 0.25,
                           .running_since = "2024-05-21T10:30:00+0200",
                           .stopped = "2024-05-21T11:30:00+0200",
                           .last_poll = "2024-05-21T11:29:59+0200",
                           .takes = "captures",
                           .notice = "A notice.",
                           .done = 812,
                           .done_since_start = 12,
                           .with_operation_errors = 2,
                           .last_operation_error = "HDR_c.INF: psii: It failed.",
                           .results_gone = 1,
                           .waiting = 3,
                           .incomplete = {{"HDR_a.INF", {"a.tif", "b.tif"}}},
                           .failed = {{"HDR_b.INF", "It is broken."}},
                           .problems = {"The workflow is gone."},
                           .last_error = "It is broken.",
                           .last_error_time = "2024-05-21T11:00:00+0200"};
  write_watch_status(folder.path(), status);
  EXPECT_EQ(controller::read_watch_status(folder.path()), status);
  write_watch_status(folder.path(), WatchStatus{});
  EXPECT_EQ(controller::read_watch_status(folder.path()), WatchStatus{});
  EXPECT_THAT(folder.entries(), testing::ElementsAre("watch_status.json"));
}

TEST(WatchStatus, GivenTheFileOfAnOlderProgram_ThenWhatItDoesNotHaveIsNone) {
  const TemporaryFolder folder;
  WatchStatus status;
  status.done = 812;
  Value document = controller::status_document(status);
  for (const char* name : {"with_operation_errors", "last_operation_error", "results_gone"}) document.erase(name);
  folder.write("watch_status.json", document.dump());
  EXPECT_EQ(controller::read_watch_status(folder.path()), status);
}

TEST(WatchStatus, GivenNoFile_ThenTheSentenceSaysThatNoWatcherWorkedThere) {
  const TemporaryFolder folder;
  try {
    static_cast<void>(controller::read_watch_status(folder.path()));
    FAIL();
  } catch (const std::runtime_error& failure) {
    EXPECT_EQ(failure.what(),
              folder.path().string() + ": no watcher has worked in this folder: there is no watch_status.json.");
  }
}

TEST(WatchStatus, GivenAnotherFileOfThatName_ThenASentenceNamesIt) {
  const TemporaryFolder folder;
  for (const char* text : {"{}", "[]", "{\"format\": 2}", "{", "{\"format\": 1, \"done\": \"many\"}"}) {
    folder.write("watch_status.json", text);
    try {
      static_cast<void>(controller::read_watch_status(folder.path()));
      FAIL() << text;
    } catch (const std::runtime_error& failure) {
      EXPECT_THAT(failure.what(), HasSubstr("watch_status.json"));
      EXPECT_TRUE(std::string(failure.what()).ends_with("."));
    }
  }
}

TEST(WatcherEventDocument, HoldsWhatThereIs) {
  using controller::WatcherEvent;
  EXPECT_EQ(controller::event_document({.kind = WatcherEvent::Kind::failed,
                                        .file = "a\xff.png",
                                        .text = "It is broken.",
                                        .details = {{"attempt", 3}},
                                        .time = common::TimePoint()}),
            (Value{{"event", "failed"},
                   {"time", common::time_stamp_text(common::TimePoint())},
                   {"file", "a\xEF\xBF\xBD.png"},
                   {"text", "It is broken."},
                   {"attempt", 3}}));
}

TEST(WatcherEventDocument, EveryKindHasANameOfItsOwn) {
  using Kind = controller::WatcherEvent::Kind;
  std::vector<std::string_view> names;
  for (int kind = 0; kind <= static_cast<int>(Kind::stopped); ++kind) {
    names.push_back(controller::event_name(static_cast<Kind>(kind)));
  }
  EXPECT_THAT(names, testing::ElementsAre("watching", "taken_over", "notice", "incomplete", "running", "done",
                                          "recovered", "retry", "failed", "problem", "solved", "stopped"));
}

}  // namespace
}  // namespace orvexa::test
