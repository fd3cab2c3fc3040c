#include "orvexa/common/clock.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <optional>

namespace orvexa::common {
namespace {

using namespace std::chrono_literals;

/// Another time zone for as long as it lives.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    if (const char* before = std::getenv("TZ")) _before = before;
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  ~TimeZone() {
    if (_before) {
      ::setenv("TZ", _before->c_str(), 1);
    } else {
      ::unsetenv("TZ");
    }
    ::tzset();
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

 private:
  std::optional<std::string> _before;
};

TEST(Clock, IsTheSystemsClock) {
  const auto before = std::chrono::system_clock::now();
  const auto between = now();
  const auto after = std::chrono::system_clock::now();
  EXPECT_LE(before, between);
  EXPECT_LE(between, after);
}

TEST(Clock, GivenAnOverride_WhenItLives_ThenItTellsTheTime) {
  TimePoint time{1000s};
  {
    const ClockOverride override_([&] { return time; });
    EXPECT_EQ(now(), TimePoint{1000s});
    time += 5s;
    EXPECT_EQ(now(), TimePoint{1005s});
  }
  EXPECT_GT(now(), TimePoint{1005s});
}

TEST(Clock, GivenTwoOverrides_WhenTheInnerOneEnds_ThenTheOuterOneTellsTheTimeAgain) {
  const ClockOverride outer([] { return TimePoint{1s}; });
  {
    const ClockOverride inner([] { return TimePoint{2s}; });
    EXPECT_EQ(now(), TimePoint{2s});
  }
  EXPECT_EQ(now(), TimePoint{1s});
}

TEST(LocalTimeText, IsInTheLocalTimeZone) {
  // 1,558,434,731 s after the epoch is 2019-05-21 10:32:11 UTC.
  const TimePoint time{1'558'434'731s};
  {
    const TimeZone zone("UTC");
    EXPECT_EQ(local_time_text(time, "%Y-%m-%d %H:%M:%S"), "2019-05-21 10:32:11");
  }
  const TimeZone zone("XYZ-2");  // two hours east
  EXPECT_EQ(local_time_text(time, "%Y%m%d_%H%M%S"), "20190521_123211");
}

}  // namespace
}  // namespace orvexa::common
