#include "orvexa/controller/file_watcher.h"

#include <condition_variable>
#include <limits>
#include <mutex>
#include <thread>

#include "controller/watch_fixture.h"
#include "orvexa/model/mask_operations/registry.h"
#include "orvexa/model/run_context.h"
#include "support/operations.h"

namespace orvexa::test {
namespace {

using controller::FileWatcher;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Hears a watcher's events on its thread and lets the test wait for one.
class Listener {
 public:
  void put(const WatcherEvent& event) {
    const std::lock_guard lock(_mutex);
    _heard.push_back(std::string(event_name(event.kind)) + " " + event.file);
    _threads.push_back(std::this_thread::get_id());
    _news.notify_all();
  }
  void wait_for(const std::string& event) {
    std::unique_lock lock(_mutex);
    _news.wait(lock, [&] { return std::find(_heard.begin(), _heard.end(), event) != _heard.end(); });
  }
  std::vector<std::string> heard() {
    const std::lock_guard lock(_mutex);
    return _heard;
  }
  std::vector<std::thread::id> threads() {
    const std::lock_guard lock(_mutex);
    return _threads;
  }

 private:
  std::mutex _mutex;
  std::condition_variable _news;
  std::vector<std::string> _heard;
  std::vector<std::thread::id> _threads;
};

class FileWatcherTest : public testing::Test {
 protected:
  FileWatcherTest() {
    std::filesystem::create_directories(folder / "in");
    arguments = {
        .input_dir = (folder / "in").string(),
        .output_dir = (folder / "out").string(),
        .workflow_yaml_path = folder.write("workflow.yaml", "title: Area\nresult_operations:\n  - op: area\n").string(),
        .capture_loader = model::get_default_capture_loader(),
        .poll_seconds = 0.01,
        .on_event = [this](const WatcherEvent& event) { listener.put(event); }};
  }
  void write_picture(const std::string& name) const {
    common::write_file_atomically(folder / ("in/" + name), model::encode_png(flat_image<std::uint8_t>(3, 4, 200)));
  }
  [[nodiscard]] std::vector<std::string> results() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder / "out")) {
      const std::string name = entry.path().filename().string();
      if (!name.starts_with("watch_") && name != ".watch_lock") names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  TemporaryFolder folder;
  Listener listener;
  WatcherArguments arguments;
};

TEST_F(FileWatcherTest, GivenATimeBetweenPollsThatIsNotAboveZero_ThenItIsRefused) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const double seconds : {0.0, -0.0, -2.0, nan, std::numeric_limits<double>::infinity(), 86400.5}) {
    arguments.poll_seconds = seconds;
    try {
      const FileWatcher watcher(arguments);
      FAIL() << seconds;
    } catch (const std::invalid_argument& failure) {
      EXPECT_THAT(failure.what(), HasSubstr("a number above 0 and at most 86400 (a day) is expected."));
    }
  }
  arguments.poll_seconds = -2.0;
  try {
    const FileWatcher watcher(arguments);
  } catch (const std::invalid_argument& failure) {
    EXPECT_STREQ(failure.what(),
                 "The time between polls is -2.0 seconds; a number above 0 and at most 86400 (a day) is expected.");
  }
  arguments.poll_seconds = 86400;
  EXPECT_NO_THROW(FileWatcher{arguments});
}

TEST_F(FileWatcherTest, GivenNegativeRetriesOrNoLoader_ThenItIsRefused) {
  WatcherArguments wrong = arguments;
  wrong.retries = -1;
  EXPECT_THROW(FileWatcher{wrong}, std::invalid_argument);
  wrong = arguments;
  wrong.capture_loader = {};
  EXPECT_THROW(FileWatcher{wrong}, std::invalid_argument);
  wrong = arguments;
  wrong.image_loader = {};
  EXPECT_THROW(FileWatcher{wrong}, std::invalid_argument);
}

TEST_F(FileWatcherTest, WorksInTheBackgroundUntilItIsStopped) {
  FileWatcher watcher(arguments);
  watcher.start();
  write_picture("a.png");
  listener.wait_for("done a.png");
  write_picture("b.png");
  listener.wait_for("done b.png");
  watcher.stop();
  EXPECT_THAT(listener.heard(),
              ElementsAre("watching ", "running a.png", "done a.png", "running b.png", "done b.png", "stopped "));
  EXPECT_THAT(listener.threads(), testing::Each(testing::Ne(std::this_thread::get_id())));
  write_picture("c.png");
  EXPECT_THAT(results(), ElementsAre("a", "b"));
  EXPECT_TRUE(controller::read_watch_status(folder / "out").stopped);
  EXPECT_EQ(controller::folder_lock_holder(folder / "out"), std::nullopt);
}

TEST_F(FileWatcherTest, GivenAStop_ThenItCanBeStartedAgain) {
  FileWatcher watcher(arguments);
  watcher.start();
  watcher.stop();
  watcher.stop();
  write_picture("a.png");
  watcher.start();
  listener.wait_for("done a.png");
  watcher.stop();
  EXPECT_THAT(results(), ElementsAre("a"));
}

TEST_F(FileWatcherTest, GivenAStartWhileItRuns_ThenThatIsABugOfTheCaller) {
  FileWatcher watcher(arguments);
  watcher.start();
  EXPECT_THROW(watcher.start(), std::logic_error);
}

TEST_F(FileWatcherTest, GivenAStopWithoutAStart_ThenNothingHappens) {
  FileWatcher watcher(arguments);
  watcher.stop();
  EXPECT_THAT(listener.heard(), IsEmpty());
}

TEST_F(FileWatcherTest, GivenNoInputFolder_ThenTheStartFailsAndAnotherOneMaySucceed) {
  arguments.input_dir = (folder / "later").string();
  FileWatcher watcher(arguments);
  EXPECT_THROW(watcher.start(), std::runtime_error);
  std::filesystem::create_directories(folder / "later");
  watcher.start();
  watcher.stop();
  EXPECT_THAT(listener.heard(), Contains("stopped "));
}

TEST_F(FileWatcherTest, GivenAnotherWatcherOnTheOutputFolder_ThenTheStartFails) {
  FileWatcher first(arguments);
  first.start();
  FileWatcher second(arguments);
  EXPECT_THROW(second.start(), std::runtime_error);
  first.stop();
  second.start();
  second.stop();
}

TEST_F(FileWatcherTest, GivenALongWaitBetweenPolls_ThenAStopDoesNotWaitForIt) {
  arguments.poll_seconds = 86400;
  FileWatcher watcher(arguments);
  watcher.start();
  listener.wait_for("watching ");
  watcher.stop();  // the time limit of the test would end a wait of a day
  EXPECT_THAT(listener.heard(), Contains("stopped "));
}

TEST_F(FileWatcherTest, GivenOnce_ThenItEndsByItselfAndGivesTheFolderFree) {
  arguments.once = true;
  write_picture("a.png");
  FileWatcher watcher(arguments);
  watcher.start();
  listener.wait_for("stopped ");
  EXPECT_THAT(results(), ElementsAre("a"));
  EXPECT_EQ(controller::folder_lock_holder(folder / "out"), std::nullopt);
}

/// A mask operation that works until it is cancelled.
class UntilCancelled {
 public:
  UntilCancelled() : _registry({&_info}) {}

 private:
  model::MaskOperationInfo _info = fake_mask("forever",
                                             [](FakeMask& operation, const model::ImageSource&, const model::Mask*,
                                                const model::Value&) -> std::optional<model::Mask> {
                                               for (;;) {
                                                 operation.context().check();
                                                 std::this_thread::yield();
                                               }
                                             });
  model::MaskRegistryOverride _registry;
};

TEST_F(FileWatcherTest, GivenARunThatNeverEnds_ThenAStopCancelsItAndLeavesNothingHalfWritten) {
  folder.write("workflow.yaml", "mask_operations:\n  - op: forever\n");
  write_picture("a.png");
  {
    const UntilCancelled operations;
    FileWatcher watcher(arguments);
    watcher.start();
    listener.wait_for("running a.png");
    watcher.stop();
  }
  EXPECT_THAT(results(), IsEmpty());
  EXPECT_THAT(listener.heard(), ElementsAre("watching ", "running a.png", "stopped "));
  const controller::WatchStatus status = controller::read_watch_status(folder / "out");
  EXPECT_THAT(status.failed, IsEmpty());
  EXPECT_EQ(status.waiting, 1U);

  folder.write("workflow.yaml", "result_operations:\n  - op: area\n");
  FileWatcher watcher(arguments);
  watcher.start();
  listener.wait_for("done a.png");
  watcher.stop();  // it goes on writing its status
  EXPECT_THAT(results(), ElementsAre("a"));
}

TEST_F(FileWatcherTest, GivenItsEndOfLife_ThenItStops) {
  folder.write("workflow.yaml", "mask_operations:\n  - op: forever\n");
  write_picture("a.png");
  const UntilCancelled operations;
  {
    FileWatcher watcher(arguments);
    watcher.start();
    listener.wait_for("running a.png");
  }
  EXPECT_THAT(listener.heard(), Contains("stopped "));
  EXPECT_EQ(controller::folder_lock_holder(folder / "out"), std::nullopt);
}

}  // namespace
}  // namespace orvexa::test
