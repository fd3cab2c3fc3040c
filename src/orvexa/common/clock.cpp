#include "orvexa/common/clock.h"

#include <array>
#include <ctime>
#include <utility>

namespace orvexa::common {

namespace {
std::function<TimePoint()>& clock_source() {
  static std::function<TimePoint()> source = [] { return std::chrono::system_clock::now(); };
  return source;
}
}  // namespace

TimePoint now() {
  return clock_source()();
}

std::string local_time_text(TimePoint time, const char* pattern) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm broken_down{};
  localtime_r(&seconds, &broken_down);
  std::array<char, 128> buffer{};
  return {buffer.data(), std::strftime(buffer.data(), buffer.size(), pattern, &broken_down)};
}

std::string time_stamp_text(TimePoint time) {
  return local_time_text(time, "%Y-%m-%dT%H:%M:%S%z");
}

ClockOverride::ClockOverride(std::function<TimePoint()> source)
    : _previous(std::exchange(clock_source(), std::move(source))) {}

ClockOverride::~ClockOverride() {
  clock_source() = std::move(_previous);
}

}  // namespace orvexa::common
