#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace orvexa::common {

using TimePoint = std::chrono::system_clock::time_point;

/// The time now, from the one clock of the program.
[[nodiscard]] TimePoint now();

/// Local time written with a strftime pattern, for example "%Y-%m-%d %H:%M:%S".
[[nodiscard]] std::string local_time_text(TimePoint time, const char* pattern);

/// The time as files keep it: local time with its offset from UTC, "2024-05-21T10:32:11+0200".
[[nodiscard]] std::string time_stamp_text(TimePoint time);

/// While it lives, `now()` asks the given function: a test owns the time. Not for use while other threads read the
/// clock.
class ClockOverride {
 public:
  explicit ClockOverride(std::function<TimePoint()> source);
  ~ClockOverride();
  ClockOverride(const ClockOverride&) = delete;
  ClockOverride& operator=(const ClockOverride&) = delete;

 private:
  std::function<TimePoint()> _previous;
};

}  // namespace orvexa::common
