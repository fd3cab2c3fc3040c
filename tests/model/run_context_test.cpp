#include "orvexa/model/run_context.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <opencv2/core/utility.hpp>
#include <set>

#include "orvexa/common/parallel.h"
#include "support/counting_event.h"

namespace orvexa::model {
namespace {

struct ThreadCount {
  explicit ThreadCount(int count) { common::set_thread_count(count); }
  ~ThreadCount() { common::set_thread_count(0); }
};

std::set<std::pair<int, int>> stripes(int height, int width) {
  std::set<std::pair<int, int>> seen;
  std::mutex mutex;
  for_each_stripe(height, width, {}, [&](int y0, int y1) {
    const std::lock_guard lock(mutex);
    EXPECT_TRUE(seen.insert({y0, y1}).second);
  });
  return seen;
}

TEST(Stripes, CoverEveryRowOnceAndDoNotDependOnTheNumberOfThreads) {
  for (const auto& [height, width] :
       {std::pair{1, 1}, std::pair{1000, 1000}, std::pair{3, 1'000'000}, std::pair{777, 4000}}) {
    std::set<std::pair<int, int>> alone;
    {
      const ThreadCount one(1);
      alone = stripes(height, width);
    }
    int next = 0;
    for (const auto& [y0, y1] : alone) {
      EXPECT_EQ(y0, next);
      EXPECT_LT(y0, y1);
      next = y1;
    }
    EXPECT_EQ(next, height);
    EXPECT_EQ(static_cast<int>(alone.size()), stripe_count(height, width));
    const ThreadCount several(7);
    EXPECT_EQ(stripes(height, width), alone);
  }
}

TEST(Stripes, LeaveNoThreadsOfOpencvsOwn) {
  static_cast<void>(stripes(10, 10));
  EXPECT_EQ(cv::getNumThreads(), 1);
}

TEST(Stripes, GivenACancelledRun_ThenNoFurtherStripeBegins) {
  const ThreadCount one(1);
  common::CancelEvent event;
  const RunContext context{.cancel_event = &event, .progress = {}};
  int begun = 0;
  // 1,000,000 columns make stripes of one row.
  EXPECT_THROW(for_each_stripe(100, 1'000'000, context,
                               [&](int, int) {
                                 if (++begun == 3) event.set();
                               }),
               CancelledError);
  EXPECT_EQ(begun, 3);
}

TEST(Pieces, CoverAListOnceInOrderWithALookBeforeEach) {
  const test::CountingEvent event;
  std::size_t next = 0;
  for_each_piece(1'000'000, {.cancel_event = &event, .progress = {}}, [&](std::size_t begin, std::size_t end) {
    EXPECT_EQ(begin, next);
    EXPECT_LT(begin, end);
    EXPECT_LE(end - begin, 262'144u);
    next = end;
  });
  EXPECT_EQ(next, 1'000'000u);
  EXPECT_EQ(event.looks(), 4);  // 1,000,000 / 262,144 rounded up
  for_each_piece(0, {}, [](std::size_t, std::size_t) { FAIL() << "there is nothing to do"; });
}

TEST(Pieces, GivenACancelledRun_ThenNoFurtherPieceBegins) {
  const test::CountingEvent event(2);
  int begun = 0;
  EXPECT_THROW(
      for_each_piece(1'000'000, {.cancel_event = &event, .progress = {}}, [&](std::size_t, std::size_t) { ++begun; }),
      CancelledError);
  EXPECT_EQ(begun, 2);
}

}  // namespace
}  // namespace orvexa::model
