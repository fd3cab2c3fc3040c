#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "controller/batch_fakes.h"
#include "support/mask_operations.h"

namespace orvexa::test {
namespace {

using testing::ElementsAre;

class BatchReadAhead : public BatchRunTest {
 protected:
  BatchReadAhead() {
    executor.keeps_runs = false;
    const auto load = controller.capture_loader;
    controller.capture_loader = [this, load](const Path& file) {
      const std::string name = file.filename().string();
      {
        const std::lock_guard lock(mutex);
        loads.push_back(name);
      }
      if (on_load) on_load(name);
      return load(file);
    };
  }

  const ThreadCount two_threads{2};
  std::mutex mutex;
  std::vector<std::string> loads;
  std::function<void(const std::string&)> on_load;
};

TEST_F(BatchReadAhead, EveryFileIsLoadedOnceInTheOrderOfTheSelection) {
  run({}, {"in/HDR_c.INF", "in/HDR_a.INF", "in/HDR_b.INF"});
  EXPECT_THAT(loads, ElementsAre("HDR_c.INF", "HDR_a.INF", "HDR_b.INF"));
}

TEST_F(BatchReadAhead, TheNextFileIsLoadedWhileTheOneBeforeIsWorkedOn) {
  std::promise<void> promise;
  const auto second_is_loading = promise.get_future();
  on_load = [&](const std::string& name) {
    if (name == "HDR_b.INF") promise.set_value();
  };
  executor.on_run = [&](const model::Executor::Run& run) {
    if (run.capture_name == "HDR_a") {
      EXPECT_EQ(second_is_loading.wait_for(std::chrono::minutes(1)), std::future_status::ready);
    }
    return output_of(run);
  };
  run({}, {"in/HDR_a.INF", "in/HDR_b.INF"});
  EXPECT_THAT(loads, ElementsAre("HDR_a.INF", "HDR_b.INF"));
}

TEST_F(BatchReadAhead, NoMoreThanTwoCapturesAreAliveAtAnyTime) {
  std::atomic<int> alive = 0;
  std::atomic<int> most = 0;
  controller.capture_loader = [&](const Path& file) {
    most = std::max<int>(most, ++alive);
    auto capture = std::make_unique<model::CaptureSet>(*small_capture(file.stem().string()));
    return std::shared_ptr<model::CaptureSet>(capture.release(), [&](model::CaptureSet* gone) {
      --alive;
      delete gone;
    });
  };
  run({}, {"in/HDR_a.INF", "in/HDR_b.INF", "in/HDR_c.INF", "in/HDR_d.INF"});
  EXPECT_EQ(most, 2);
  EXPECT_EQ(alive, 0);
}

TEST_F(BatchReadAhead, LogLinesAndSummaryAreThoseOfOneThread) {
  const auto told_by = [&](int threads) {
    const ThreadCount limit(threads);
    std::filesystem::remove_all(out);
    const Protocol own;
    const auto summary = run({}, {"in/HDR_a.INF", "in/HDR_torn.INF", "in/HDR_b.INF", "in/HDR_torn.INF"});
    std::vector<std::string> lines = own.lines();
    lines.push_back(common::json_text(summary.to_value()));
    return lines;
  };
  loads_nothing("HDR_torn.INF");
  const auto expected = told_by(1);
  EXPECT_EQ(told_by(2), expected);
  EXPECT_THAT(loads, ElementsAre("HDR_a.INF", "HDR_torn.INF", "HDR_b.INF", "HDR_torn.INF",  //
                                 "HDR_a.INF", "HDR_torn.INF", "HDR_b.INF", "HDR_torn.INF"));
}

TEST_F(BatchReadAhead, GivenTheRunIsCancelledInItsFirstFile_ThenNoLoaderRunsAfterItsEnd) {
  common::CancelEvent cancel;
  std::atomic<int> running = 0;
  on_load = [&](const std::string&) {
    ++running;
    for (int i = 0; i < 1000; ++i) std::this_thread::yield();
    --running;
  };
  executor.on_run = [&](const model::Executor::Run& run) {
    cancel.set();
    return output_of(run);
  };
  const auto summary = run({.cancel_event = &cancel}, {"in/HDR_a.INF", "in/HDR_b.INF", "in/HDR_c.INF"});
  EXPECT_EQ(running, 0);
  EXPECT_EQ(summary.successful_files.size(), 1U);
  EXPECT_LE(loads.size(), 2U);
}

}  // namespace
}  // namespace orvexa::test
