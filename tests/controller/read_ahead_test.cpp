#include "orvexa/controller/read_ahead.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "controller/fakes.h"
#include "support/log_capture.h"
#include "support/mask_operations.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

namespace fs = std::filesystem;
using controller::ReadAhead;
using testing::ElementsAre;
using testing::IsEmpty;

/// Waits for one another without a clock.
class Gate {
 public:
  void open() { _promise.set_value(); }
  void pass() const { _opened.wait(); }

 private:
  std::promise<void> _promise;
  std::shared_future<void> _opened = _promise.get_future().share();
};

/// Lets the other threads run for a while.
void linger() {
  for (int i = 0; i < 2000; ++i) std::this_thread::yield();
}

class LoadingAhead : public testing::Test {
 protected:
  /// Notes what it is asked for and gives a capture of that name.
  model::CaptureLoader loader() {
    return [this](const fs::path& file) {
      loads.push_back(file.filename().string());
      thread = std::this_thread::get_id();
      if (file.filename() == "broken.png") throw std::runtime_error("broken.png: this PNG file is cut off.");
      return small_capture(file.stem().string());
    };
  }

  const ThreadCount two_threads{2};
  TemporaryFolder folder;
  std::vector<std::string> loads;  // the thread that writes it has always ended when it is read
  std::thread::id thread;
  ReadAhead ahead;
};

TEST_F(LoadingAhead, GivenNothingWasBegun_ThenNothingIsTaken) {
  EXPECT_FALSE(ahead.take(folder / "a.png"));
  ahead.drop();
}

TEST_F(LoadingAhead, GivenTheFileThatWasBegun_ThenItsCaptureIsTakenOnceAndWasLoadedOnAThreadOfItsOwn) {
  const fs::path file = folder.write("a.png", "pixels");
  ahead.begin(file, loader());
  const auto taken = ahead.take(file);
  ASSERT_TRUE(taken);
  EXPECT_EQ((*taken)->name, "a");
  EXPECT_NE(thread, std::this_thread::get_id());
  EXPECT_FALSE(ahead.take(file));
  EXPECT_THAT(loads, ElementsAre("a.png"));
}

TEST_F(LoadingAhead, GivenTheLoaderIsStillRunningWhenAsked_ThenItIsWaitedFor) {
  Gate may_end;
  const fs::path file = folder.write("a.png", "pixels");
  ahead.begin(file, [&](const fs::path&) {
    may_end.pass();
    return small_capture("late");
  });
  may_end.open();
  EXPECT_EQ(ahead.take(file).value()->name, "late");
}

TEST_F(LoadingAhead, GivenAnotherFileIsAskedFor_ThenWhatWasLoadedIsDroppedBeforeTheCallerLoads) {
  const fs::path file = folder.write("a.png", "pixels");
  std::weak_ptr<model::CaptureSet> loaded;
  ahead.begin(file, [&](const fs::path&) {
    auto capture = small_capture();
    loaded = capture;
    return capture;
  });
  EXPECT_FALSE(ahead.take(folder / "b.png"));
  EXPECT_TRUE(loaded.expired());
  EXPECT_FALSE(ahead.take(file));
}

TEST_F(LoadingAhead, GivenAnotherFileIsBegun_ThenTheFirstIsDroppedAndTheirLoadersDoNotOverlap) {
  std::atomic<int> running = 0;
  std::atomic<int> most = 0;
  const auto counting = [&](const fs::path& file) {
    most = std::max<int>(most, ++running);
    linger();
    auto capture = small_capture(file.stem().string());
    --running;
    return capture;
  };
  const fs::path second = folder.write("b.png", "pixels");
  ahead.begin(folder.write("a.png", "pixels"), counting);
  ahead.begin(second, counting);
  EXPECT_EQ(ahead.take(second).value()->name, "b");
  EXPECT_EQ(most, 1);
}

TEST_F(LoadingAhead, GivenTheLoaderFails_ThenItsFailureReachesWhoAsks) {
  const fs::path file = folder.write("broken.png", "pix");
  ahead.begin(file, loader());
  try {
    static_cast<void>(ahead.take(file));
    FAIL() << "the failure was lost";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "broken.png: this PNG file is cut off.");
  }
  EXPECT_FALSE(ahead.take(file));
}

TEST_F(LoadingAhead, GivenAFileThatIsNotThere_ThenTheLoadersFailureReachesWhoAsks) {
  const fs::path file = folder / "none.png";
  ahead.begin(file,
              [](const fs::path&) -> std::shared_ptr<model::CaptureSet> { throw std::runtime_error("not there"); });
  EXPECT_THROW(static_cast<void>(ahead.take(file)), std::runtime_error);
}

TEST_F(LoadingAhead, GivenAFailureWhoseFileChangedSince_ThenNothingIsTakenSoThatTheCallerLoadsTheNewOne) {
  const fs::path file = folder.write("broken.png", "half");
  Gate is_read;
  ahead.begin(file, [&](const fs::path&) -> std::shared_ptr<model::CaptureSet> {
    is_read.open();
    throw std::runtime_error("cut off");
  });
  is_read.pass();
  folder.write("broken.png", "the whole picture");
  EXPECT_FALSE(ahead.take(file));
}

struct Change {
  const char* what;
  void (*make)(const TemporaryFolder& folder, const std::string& name);
};
const std::vector<Change> changes{
    {"another size", [](const TemporaryFolder& f, const std::string& name) { f.write(name, "more than before"); }},
    {"another time of its content",
     [](const TemporaryFolder& f, const std::string& name) {
       fs::last_write_time(f / name, fs::last_write_time(f / name) + std::chrono::hours(1));
     }},
    {"replaced by a file of the same size and time",
     [](const TemporaryFolder& f, const std::string& name) {
       const auto time = fs::last_write_time(f / name);
       f.write("other", std::string(fs::file_size(f / name), 'x'));
       fs::last_write_time(f / "other", time);
       fs::rename(f / "other", f / name);
     }},
    {"removed", [](const TemporaryFolder& f, const std::string& name) { fs::remove(f / name); }},
};

TEST_F(LoadingAhead, GivenTheFileChangedAfterItWasRead_ThenNothingIsTaken) {
  for (const Change& change : changes) {
    SCOPED_TRACE(change.what);
    const fs::path file = folder.write("a.png", "pixels");
    Gate is_read;
    ahead.begin(file, [&](const fs::path&) {
      is_read.open();
      return small_capture();
    });
    is_read.pass();
    change.make(folder, "a.png");
    EXPECT_FALSE(ahead.take(file));
  }
}

TEST_F(LoadingAhead, GivenTheFileChangedWhileItWasRead_ThenNothingIsTaken) {
  const fs::path file = folder.write("a.png", "pixels");
  ahead.begin(file, [&](const fs::path&) {
    folder.write("a.png", "others are written");
    return small_capture();
  });
  EXPECT_FALSE(ahead.take(file));
}

TEST_F(LoadingAhead, GivenAnImageOfTheHeaderChanged_ThenNothingIsTaken) {
  const fs::path header =
      folder.write("HDR_plot.INF", "[Capture]\n[Measurement MSP]\nImage RED = red.tif\nImage NIR = stack.tif[2]\n");
  for (const char* image : {"red.tif", "stack.tif"}) {
    for (const Change& change : changes) {
      SCOPED_TRACE(testing::Message() << image << ": " << change.what);
      folder.write("red.tif", "pixels");
      folder.write("stack.tif", "pages");
      Gate is_read;
      ahead.begin(header, [&](const fs::path&) {
        is_read.open();
        return small_capture();
      });
      is_read.pass();
      change.make(folder, image);
      EXPECT_FALSE(ahead.take(header));
    }
  }
  folder.write("red.tif", "pixels");
  folder.write("stack.tif", "pages");
  ahead.begin(header, loader());
  EXPECT_TRUE(ahead.take(header));
}

TEST_F(LoadingAhead, GivenAnImageOfTheHeaderArrivedAfterItWasMissed_ThenTheFailureIsNotReported) {
  const fs::path header = folder.write("HDR_plot.INF", "[Capture]\n[Measurement MSP]\nImage RED = red.tif\n");
  Gate is_read;
  ahead.begin(header, [&](const fs::path&) -> std::shared_ptr<model::CaptureSet> {
    is_read.open();
    throw std::runtime_error("there is no such file");
  });
  is_read.pass();
  folder.write("red.tif", "pixels");
  EXPECT_FALSE(ahead.take(header));
}

TEST_F(LoadingAhead, GivenTheRunIsCancelled_ThenNoLoaderIsBegun) {
  common::CancelEvent cancel;
  cancel.set();
  const fs::path file = folder.write("a.png", "pixels");
  ahead.begin(file, loader(), &cancel);
  EXPECT_FALSE(ahead.take(file));
  EXPECT_THAT(loads, IsEmpty());
}

TEST_F(LoadingAhead, GivenOneThread_ThenNothingIsBegun) {
  const ThreadCount one{1};
  const fs::path file = folder.write("a.png", "pixels");
  ahead.begin(file, loader());
  EXPECT_FALSE(ahead.take(file));
  EXPECT_THAT(loads, IsEmpty());
}

TEST_F(LoadingAhead, GivenALoaderIsRunningAtTheEnd_ThenItsEndIsWaitedFor) {
  bool has_ended = false;
  {
    ReadAhead short_lived;
    Gate has_begun;
    short_lived.begin(folder.write("a.png", "pixels"), [&](const fs::path&) {
      has_begun.open();
      linger();
      auto capture = small_capture();
      has_ended = true;
      return capture;
    });
    has_begun.pass();
  }
  EXPECT_TRUE(has_ended);
}

// ---- through the controller

class LoadingAheadOfAController : public LoadingAhead {
 protected:
  LoadingAheadOfAController() {
    controller.image_loader = loader();
    controller.capture_loader = [](const fs::path& file) { return small_capture("capture " + file.stem().string()); };
    controller.set_processing_mode("batch");
  }
  Probe controller;
};

TEST_F(LoadingAheadOfAController, GivenTheNextFileWasLoadedAhead_ThenLoadingItCallsNoLoaderAndLogsTheSameLines) {
  const fs::path file = folder.write("a.png", "pixels");
  const auto lines_of_loading = [&](bool is_ahead) {
    controller.state.current_capture.reset();
    const LogCapture log;
    if (is_ahead) controller._load_ahead(file);
    controller.load_capture_from_file(file);
    EXPECT_EQ(controller.state.current_capture->name, "a");
    return log.lines();
  };
  const auto lines = lines_of_loading(false);
  EXPECT_EQ(lines_of_loading(true), lines);
  EXPECT_THAT(loads, ElementsAre("a.png", "a.png"));
}

TEST_F(LoadingAheadOfAController, GivenAFileThatFailedAhead_ThenTheSentenceIsTheOneOfLoadingItNow) {
  const fs::path file = folder.write("broken.png", "pix");
  controller.load_capture_from_file(file);
  const auto expected = controller.state.error;
  ASSERT_TRUE(expected);
  controller.state.error.reset();
  controller._load_ahead(file);
  controller.load_capture_from_file(file);
  EXPECT_EQ(controller.state.error, expected);
  EXPECT_EQ(loads.size(), 2U);
}

TEST_F(LoadingAheadOfAController, GivenAHeader_ThenTheCaptureLoaderReadsIt) {
  const fs::path file = folder.write("HDR_x.INF", "");
  controller._load_ahead(file);
  controller.load_capture_from_file(file);
  EXPECT_EQ(controller.state.current_capture->name, "capture HDR_x");
  EXPECT_THAT(loads, IsEmpty());
}

TEST_F(LoadingAheadOfAController, GivenLoadingAheadIsStopped_ThenTheFileIsLoadedWhenItIsAskedFor) {
  const fs::path file = folder.write("a.png", "pixels");
  controller._load_ahead(file);
  controller._stop_loading_ahead();
  ASSERT_THAT(loads, ElementsAre("a.png"));
  controller.load_capture_from_file(file);
  EXPECT_THAT(loads, ElementsAre("a.png", "a.png"));
}

}  // namespace
}  // namespace orvexa::test
