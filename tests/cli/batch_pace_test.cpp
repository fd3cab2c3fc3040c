#include "orvexa/cli/batch_pace.h"

#include <gtest/gtest.h>

#include <chrono>

#include "orvexa/cli/console.h"

namespace orvexa::cli {
namespace {

/// A clock that the test owns.
struct Clock {
  common::TimePoint time{std::chrono::hours(1000)};
  common::ClockOverride override{[this] { return time; }};
  void advance(double seconds) {
    time += std::chrono::duration_cast<common::TimePoint::duration>(std::chrono::duration<double>(seconds));
  }
};

void finish(BatchPace& pace, int count, bool is_successful = true) {
  for (int i = 0; i < count; ++i) pace.file_done(is_successful);
}

TEST(BatchPace, GivenNoFileYet_ThenTheBarIsEmptyAndNothingIsForetold) {
  Clock clock;
  const BatchPace pace(100);
  clock.advance(5);
  EXPECT_EQ(pace.bar_text(), "[--------------------]  0 of 100");
  EXPECT_FALSE(pace.rate());
}

TEST(BatchPace, GivenAQuarterOfTheFiles_ThenRateAndRemainingTimeFollowFromTheTimeTheyTook) {
  Clock clock;
  BatchPace pace(100);
  clock.advance(6.25);
  finish(pace, 25);
  // 25 / 6.25 s = 4 files a second; the other 75 take 75 / 4 = 18.75 s.
  EXPECT_EQ(pace.bar_text(), "[#####---------------]  25 of 100  4.0 files/s  19 s left");
}

TEST(BatchPace, GivenSlowFiles_ThenTheRateIsByTheMinuteOrTheHour) {
  Clock clock;
  BatchPace pace(4);
  clock.advance(30);
  finish(pace, 1);
  EXPECT_EQ(pace.bar_text(), "[#####---------------]  1 of 4  2.0 files/min  1 min 30 s left");
  clock.advance(7170);
  finish(pace, 1);
  // 2 files in 7,200 s are one an hour; the other two take two hours.
  EXPECT_EQ(pace.bar_text(), "[##########----------]  2 of 4  1.0 files/h  2 h 00 min left");
}

TEST(BatchPace, GivenFilesThatFailed_ThenTheyCountAsDoneAndAreNamed) {
  Clock clock;
  BatchPace pace(3);
  clock.advance(1);
  finish(pace, 1);
  finish(pace, 2, false);
  EXPECT_EQ(pace.bar_text(), "[####################]  3 of 3  3.0 files/s  0 s left  2 failed");
  EXPECT_EQ(pace.done(), 3);
  EXPECT_EQ(pace.failed(), 2);
}

TEST(BatchPace, GivenAClockThatIsSetBack_ThenNothingIsForetold) {
  Clock clock;
  BatchPace pace(2);
  clock.advance(-3600);
  finish(pace, 1);
  EXPECT_EQ(pace.seconds(), 0);
  EXPECT_EQ(pace.bar_text(), "[##########----------]  1 of 2");
}

TEST(BatchPace, GivenNoFilesAtAll_ThenTheBarIsEmpty) {
  EXPECT_EQ(BatchPace(0).bar_text(), "[--------------------]  0 of 0");
}

TEST(DurationText, IsShortAtEveryLength) {
  EXPECT_EQ(duration_text(0), "0 s");
  EXPECT_EQ(duration_text(0.0049), "under 0.01 s");
  EXPECT_EQ(duration_text(0.0051), "0.01 s");
  EXPECT_EQ(duration_text(0.034), "0.03 s");
  EXPECT_EQ(duration_text(2.46), "2.5 s");
  EXPECT_EQ(duration_text(3), "3 s");
  EXPECT_EQ(duration_text(59.4), "59 s");
  EXPECT_EQ(duration_text(59.6), "1 min 00 s");
  EXPECT_EQ(duration_text(245), "4 min 05 s");
  EXPECT_EQ(duration_text(3599.9), "1 h 00 min");
  EXPECT_EQ(duration_text(7620), "2 h 07 min");
}

TEST(Shortened, CutsByCharactersAndSaysSo) {
  EXPECT_EQ(shortened("plot_0007", 9), "plot_0007");
  EXPECT_EQ(shortened("plot_0007", 8), "plot_...");
  EXPECT_EQ(shortened("grün üü", 7), "grün üü");  // seven characters in ten bytes
  EXPECT_EQ(shortened("grün üü", 6), "grü...");
  EXPECT_EQ(shortened("plot", 2), "..");
  EXPECT_EQ(shortened("", 0), "");
}

}  // namespace
}  // namespace orvexa::cli
