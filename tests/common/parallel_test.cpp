#include "orvexa/common/parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace orvexa::common {
namespace {

/// The usual number of threads again at the end.
class ThreadCount {
 public:
  explicit ThreadCount(int count) { set_thread_count(count); }
  ~ThreadCount() { set_thread_count(0); }
  ThreadCount(const ThreadCount&) = delete;
  ThreadCount& operator=(const ThreadCount&) = delete;
};

class ParallelFor : public testing::TestWithParam<int> {
 private:
  ThreadCount _threads{GetParam()};
};

TEST_P(ParallelFor, CallsEachIndexOnce) {
  for (const std::size_t count : {0u, 1u, 2u, 6u, 7u, 8u, 1000u}) {
    std::vector<std::atomic<int>> calls(count);
    parallel_for(count, [&](std::size_t i) { ++calls.at(i); });
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(calls[i], 1) << i << " of " << count;
  }
}

TEST_P(ParallelFor, RethrowsAFailureAfterTheRunningCallsHaveEnded) {
  std::atomic<int> running{0};
  try {
    parallel_for(500, [&](std::size_t i) {
      ++running;
      if (i == 250) {
        --running;
        throw std::runtime_error("call 250 failed");
      }
      std::this_thread::yield();
      --running;
    });
    FAIL() << "nothing was thrown";
  } catch (const std::runtime_error& failure) {
    EXPECT_STREQ(failure.what(), "call 250 failed");
  }
  EXPECT_EQ(running, 0);
}

TEST_P(ParallelFor, WorksAgainAfterAFailure) {
  EXPECT_THROW(parallel_for(9, [](std::size_t) { throw std::logic_error("x"); }), std::logic_error);
  std::atomic<int> calls{0};
  parallel_for(9, [&](std::size_t) { ++calls; });
  EXPECT_EQ(calls, 9);
}

TEST_P(ParallelFor, MayBeNested) {
  std::atomic<int> calls{0};
  parallel_for(
      11, [&](std::size_t) { parallel_for(13, [&](std::size_t) { parallel_for(3, [&](std::size_t) { ++calls; }); }); });
  EXPECT_EQ(calls, 11 * 13 * 3);
}

TEST_P(ParallelFor, GivenAFailureInAnInnerLoop_ThenTheOuterLoopThrowsIt) {
  EXPECT_THROW(parallel_for(4,
                            [](std::size_t i) {
                              parallel_for(4, [i](std::size_t j) {
                                if (i == 2 && j == 3) throw std::out_of_range("inner");
                              });
                            }),
               std::out_of_range);
}

TEST_P(ParallelFor, RunsOnAtMostTheGivenNumberOfThreads) {
  std::mutex mutex;
  std::set<std::thread::id> ids;
  std::atomic<int> running{0};
  std::atomic<int> most{0};
  parallel_for(2000, [&](std::size_t) {
    const int now = ++running;
    for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
    }
    {
      const std::lock_guard lock(mutex);
      ids.insert(std::this_thread::get_id());
    }
    --running;
  });
  EXPECT_LE(most, GetParam());
  if (GetParam() == 1) {
    EXPECT_EQ(ids, std::set{std::this_thread::get_id()});
  }
}

TEST_P(ParallelFor, ReallyUsesThatManyThreadsWhateverTheNumberOfCores) {
  // Every call waits until all have begun: with fewer threads than calls none would come back before the time limit.
  const int wanted = GetParam();
  std::mutex mutex;
  std::condition_variable all_here;
  int arrived = 0;
  std::atomic<bool> has_waited_in_vain{false};
  parallel_for(static_cast<std::size_t>(wanted), [&](std::size_t) {
    std::unique_lock lock(mutex);
    ++arrived;
    all_here.notify_all();
    if (!all_here.wait_for(lock, std::chrono::seconds(30), [&] { return arrived == wanted; })) {
      has_waited_in_vain = true;
    }
  });
  EXPECT_FALSE(has_waited_in_vain);
}

TEST_P(ParallelFor, GivenACallerThatHoldsALock_WhenItNestsALoop_ThenNoOtherTurnOfTheOuterLoopRunsInBetween) {
  // A thread that waits for its inner loop must not begin another turn of the outer one: it would lock itself out.
  std::mutex mutex;
  std::atomic<int> calls{0};
  parallel_for(50, [&](std::size_t) {
    const std::lock_guard lock(mutex);
    parallel_for(20, [&](std::size_t) { ++calls; });
  });
  EXPECT_EQ(calls, 1000);
}

INSTANTIATE_TEST_SUITE_P(Threads, ParallelFor, testing::Values(1, 2, 3, 7),
                         [](const auto& test) { return std::to_string(test.param); });

TEST(ThreadCountSetting, GivenZero_ThenItIsTheNumberOfCores) {
  const ThreadCount threads(0);
  EXPECT_GE(thread_count(), 1);
  EXPECT_LE(thread_count(), static_cast<int>(std::thread::hardware_concurrency()));
}

TEST(ThreadCountSetting, IsKept) {
  const ThreadCount threads(7);
  EXPECT_EQ(thread_count(), 7);
}

TEST(ThreadCountSetting, GivenANegativeNumber_ThenItIsRefused) {
  EXPECT_THROW(set_thread_count(-1), std::invalid_argument);
}

TEST(ParallelForFromSeveralThreads, CallsEachIndexOnce) {
  const ThreadCount threads(3);
  std::atomic<int> calls{0};
  std::vector<std::thread> callers;
  for (int c = 0; c < 4; ++c) callers.emplace_back([&] { parallel_for(100, [&](std::size_t) { ++calls; }); });
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(calls, 400);
}

}  // namespace
}  // namespace orvexa::common
