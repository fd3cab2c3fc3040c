#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "orvexa/controller/file_watcher.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

using controller::Phase;
using controller::WatcherArguments;
using controller::WatcherConfig;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string not_configured = "Watcher not configured: set input_dir, output_dir, workflow_yaml_path";

/// Writes down what happens to the watchers and to the state.
struct Diary {
  std::vector<std::string> lines;
  std::vector<WatcherArguments> made;
  bool fails_to_start = false;
  bool fails_to_stop = false;
};

class FakeWatcher final : public controller::Watcher {
 public:
  explicit FakeWatcher(Diary& diary) : _diary(diary) { _diary.lines.emplace_back("made"); }
  ~FakeWatcher() override { _diary.lines.emplace_back("gone"); }
  void start() override {
    _diary.lines.emplace_back("start");
    if (_diary.fails_to_start) throw std::runtime_error("no start");
  }
  void stop() override {
    _diary.lines.emplace_back("stop");
    if (_diary.fails_to_stop) throw std::runtime_error("no stop");
  }

 private:
  Diary& _diary;
};

class WatcherControl : public testing::Test {
 protected:
  WatcherControl() {
    controller.watcher_maker = [this](const WatcherArguments& arguments) -> std::unique_ptr<controller::Watcher> {
      if (fails_to_make) throw std::runtime_error("no watcher");
      diary.made.push_back(arguments);
      return std::make_unique<FakeWatcher>(diary);
    };
    state().on_derive = [this](ScriptedState& at) {
      diary.lines.push_back("derive: " + at.message.value_or("-") + (at.watcher_running ? ", running" : ""));
    };
  }
  ScriptedState& state() { return dynamic_cast<ScriptedState&>(controller.state); }
  void configure() {
    controller.configure_watcher({.input_dir = "in", .output_dir = "out", .workflow_yaml_path = "w"});
  }

  Diary diary;  // outlives the controller and its watcher
  bool fails_to_make = false;
  Probe controller{std::make_unique<ScriptedState>()};
};

TEST_F(WatcherControl, ConfigureWithoutPollSecondsStoresTwoSecondsAndDerivesThePhase) {
  configure();
  ASSERT_TRUE(controller.state.watcher_config);
  EXPECT_EQ(controller.state.watcher_config->input_dir, "in");
  EXPECT_EQ(controller.state.watcher_config->output_dir, "out");
  EXPECT_EQ(controller.state.watcher_config->workflow_yaml_path, "w");
  EXPECT_EQ(controller.state.watcher_config->poll_seconds, 2.0);
  EXPECT_EQ(controller.state.message, "Watcher configured");
  EXPECT_THAT(diary.lines, ElementsAre("derive: Watcher configured"));
}

TEST_F(WatcherControl, StartBeforeAnyConfigurationFailsAndLeavesTheStateUnchanged) {
  controller.state.message = "older";
  try {
    controller.start_watcher();
    FAIL();
  } catch (const std::runtime_error& failure) {
    EXPECT_EQ(failure.what(), not_configured);
  }
  EXPECT_EQ(controller.state.message, "older");
  EXPECT_EQ(controller.state.error, std::nullopt);
  EXPECT_FALSE(controller.is_watcher_running());
  EXPECT_THAT(diary.lines, IsEmpty());
}

TEST_F(WatcherControl, StartWithAnEmptyFieldFailsAndARunningWatcherGoesOn) {
  configure();
  controller.start_watcher();
  diary.lines.clear();
  for (const auto& config : {WatcherConfig{.input_dir = "", .output_dir = "out", .workflow_yaml_path = "w"},
                             WatcherConfig{.input_dir = "in", .output_dir = "", .workflow_yaml_path = "w"},
                             WatcherConfig{.input_dir = "in", .output_dir = "out", .workflow_yaml_path = ""}}) {
    controller.state.watcher_config = config;
    try {
      controller.start_watcher();
      FAIL();
    } catch (const std::runtime_error& failure) {
      EXPECT_EQ(failure.what(), not_configured);
    }
  }
  EXPECT_THAT(diary.lines, IsEmpty());
  EXPECT_TRUE(controller.is_watcher_running());
  EXPECT_EQ(controller.state.message, "Watcher started");
  EXPECT_EQ(controller.state.error, std::nullopt);
}

TEST_F(WatcherControl, StartStopsFirstThenMakesStartsAndDerivesThePhase) {
  configure();
  diary.lines.clear();
  controller.start_watcher();
  EXPECT_THAT(diary.lines, ElementsAre("derive: Watcher stopped", "made", "start", "derive: Watcher started, running"));
  EXPECT_TRUE(controller.is_watcher_running());
  EXPECT_EQ(controller.state.phase, Phase::WATCHING);
  EXPECT_NE(controller._watcher, nullptr);
}

TEST_F(WatcherControl, TheWatcherGetsTheConfigurationAndTheLoadersOfTheApplication) {
  const auto loaded = small_capture("by header");
  const auto pictured = small_capture("by image");
  controller.capture_loader = [loaded](const auto&) { return loaded; };
  controller.image_loader = [pictured](const auto&) { return pictured; };
  controller.configure_watcher({.input_dir = "in",
                                .output_dir = "out",
                                .workflow_yaml_path = "w.yaml",
                                .poll_seconds = 0.25,
                                .search = controller::WatcherSearch::images,
                                .retries = 7,
                                .once = true});
  controller.start_watcher();
  ASSERT_EQ(diary.made.size(), 1U);
  const WatcherArguments& made = diary.made[0];
  EXPECT_EQ(made.input_dir, "in");
  EXPECT_EQ(made.output_dir, "out");
  EXPECT_EQ(made.workflow_yaml_path, "w.yaml");
  EXPECT_EQ(made.poll_seconds, 0.25);
  EXPECT_EQ(made.search, controller::WatcherSearch::images);
  EXPECT_EQ(made.retries, 7);
  EXPECT_TRUE(made.once);
  EXPECT_EQ(made.capture_loader("x"), loaded);
  EXPECT_EQ(made.image_loader("x"), pictured);
}

TEST_F(WatcherControl, StartWhileRunningRestarts) {
  configure();
  controller.start_watcher();
  diary.lines.clear();
  controller.start_watcher();
  EXPECT_THAT(diary.lines, ElementsAre("stop", "gone", "derive: Watcher stopped", "made", "start",
                                       "derive: Watcher started, running"));
}

TEST_F(WatcherControl, ConfigureDoesNotTouchARunningWatcherAndTakesEffectAtTheNextStart) {
  configure();
  controller.start_watcher();
  diary.lines.clear();
  controller.configure_watcher({.input_dir = "in2", .output_dir = "out2", .workflow_yaml_path = "w2"});
  EXPECT_THAT(diary.lines, ElementsAre("derive: Watcher configured, running"));
  EXPECT_EQ(diary.made.size(), 1U);
  controller.start_watcher();
  EXPECT_EQ(diary.made.back().input_dir, "in2");
}

TEST_F(WatcherControl, AFailureToMakeReachesTheCallerAndNothingRuns) {
  configure();
  fails_to_make = true;
  EXPECT_THROW(controller.start_watcher(), std::runtime_error);
  EXPECT_FALSE(controller.is_watcher_running());
  EXPECT_EQ(controller.state.message, "Watcher stopped");
  EXPECT_EQ(controller.state.error, std::nullopt);
}

TEST_F(WatcherControl, AFailureToStartReachesTheCallerAndNothingRuns) {
  configure();
  diary.fails_to_start = true;
  try {
    controller.start_watcher();
    FAIL();
  } catch (const std::runtime_error& failure) {
    EXPECT_STREQ(failure.what(), "no start");
  }
  EXPECT_FALSE(controller.is_watcher_running());
  EXPECT_EQ(controller.state.message, "Watcher stopped");
  EXPECT_EQ(controller.state.error, std::nullopt);
}

TEST_F(WatcherControl, AStartAfterAFailureToStartStopsAndForgetsTheWatcherThatFailed) {
  configure();
  diary.fails_to_start = true;
  EXPECT_THROW(controller.start_watcher(), std::runtime_error);
  diary.fails_to_start = false;
  diary.lines.clear();
  controller.start_watcher();
  EXPECT_THAT(diary.lines, ElementsAre("stop", "gone", "derive: Watcher stopped", "made", "start",
                                       "derive: Watcher started, running"));
}

TEST_F(WatcherControl, ARestartWhoseOldWatcherFailsToStopStartsTheNewOneAllTheSame) {
  configure();
  controller.start_watcher();
  diary.lines.clear();
  diary.fails_to_stop = true;
  EXPECT_NO_THROW(controller.start_watcher());
  EXPECT_THAT(diary.lines, ElementsAre("stop", "gone", "derive: Watcher stopped", "made", "start",
                                       "derive: Watcher started, running"));
  EXPECT_TRUE(controller.is_watcher_running());
  EXPECT_EQ(controller.state.message, "Watcher started");
  EXPECT_EQ(controller.state.error, std::nullopt);
}

TEST_F(WatcherControl, StopWithNoWatcherSaysStoppedTwiceWhenCalledTwice) {
  controller.state.watcher_running = true;
  controller.stop_watcher();
  EXPECT_FALSE(controller.is_watcher_running());
  EXPECT_EQ(controller.state.message, "Watcher stopped");
  controller.stop_watcher();
  EXPECT_THAT(diary.lines, ElementsAre("derive: Watcher stopped", "derive: Watcher stopped"));
}

TEST_F(WatcherControl, StopEndsTheWatcherAndForgetsIt) {
  configure();
  controller.start_watcher();
  diary.lines.clear();
  controller.stop_watcher();
  EXPECT_THAT(diary.lines, ElementsAre("stop", "gone", "derive: Watcher stopped"));
  EXPECT_EQ(controller._watcher, nullptr);
  EXPECT_FALSE(controller.is_watcher_running());
  EXPECT_EQ(controller.state.phase, Phase::EMPTY);
}

TEST_F(WatcherControl, AFailingStopIsIgnoredAndTheWatcherForgotten) {
  configure();
  controller.start_watcher();
  diary.fails_to_stop = true;
  const LogCapture log;
  EXPECT_NO_THROW(controller.stop_watcher());
  EXPECT_THAT(log.lines(), ElementsAre("debug: Controller.stop_watcher: no stop"));
  EXPECT_EQ(controller._watcher, nullptr);
  EXPECT_FALSE(controller.is_watcher_running());
  EXPECT_EQ(controller.state.message, "Watcher stopped");
  EXPECT_EQ(controller.state.error, std::nullopt);
}

TEST(WatcherControlWithARealWatcher, StartAndStopAndStartAgainOnTheSameFolder) {
  const TemporaryFolder folder;
  std::filesystem::create_directories(folder / "in");
  Probe controller;
  controller.configure_watcher({.input_dir = (folder / "in").string(),
                                .output_dir = (folder / "out").string(),
                                .workflow_yaml_path = folder.write("w.yaml", "title: Nothing\n").string()});
  controller.start_watcher();
  EXPECT_TRUE(controller.is_watcher_running());
  EXPECT_NE(dynamic_cast<controller::FileWatcher*>(controller._watcher.get()), nullptr);
  controller.start_watcher();
  EXPECT_TRUE(controller.is_watcher_running());
  controller.stop_watcher();
  EXPECT_FALSE(controller.is_watcher_running());
  EXPECT_EQ(controller.state.message, "Watcher stopped");
}

}  // namespace
}  // namespace orvexa::test
