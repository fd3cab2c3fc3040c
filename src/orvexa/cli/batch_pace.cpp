#include "orvexa/cli/batch_pace.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>

namespace orvexa::cli {

void BatchPace::file_done(bool is_successful) {
  ++_done;
  if (!is_successful) ++_failed;
}

double BatchPace::seconds() const {
  return std::max(0.0, std::chrono::duration<double>(common::now() - _start).count());
}

std::optional<double> BatchPace::rate() const {
  const double passed = seconds();
  if (_done == 0 || passed <= 0) return std::nullopt;
  return _done / passed;
}

std::string BatchPace::bar_text() const {
  constexpr int width = 20;
  const int filled = _total > 0 ? static_cast<int>(std::int64_t{width} * _done / _total) : 0;
  std::string text = fmt::format("[{:#>{}}{:->{}}]  {} of {}", "", filled, "", width - filled, _done, _total);
  if (const auto files_per_second = rate()) {
    text += fmt::format("  {}  {} left", rate_text(*files_per_second),
                        duration_text(std::ceil((_total - _done) / *files_per_second)));
  }
  if (_failed > 0) text += fmt::format("  {} failed", _failed);
  return text;
}

std::string rate_text(double files_per_second) {
  if (files_per_second >= 1) return fmt::format("{:.1f} files/s", files_per_second);
  if (files_per_second >= 1.0 / 60) return fmt::format("{:.1f} files/min", files_per_second * 60);
  return fmt::format("{:.1f} files/h", files_per_second * 3600);
}

std::string duration_text(double seconds) {
  if (seconds != std::floor(seconds)) {
    if (seconds < 0.005) return "under 0.01 s";
    if (seconds < 1) return fmt::format("{:.2f} s", seconds);
    if (seconds < 10) return fmt::format("{:.1f} s", seconds);
  }
  const auto whole = static_cast<std::int64_t>(std::llround(seconds));
  if (whole < 60) return fmt::format("{} s", whole);
  if (whole < 3600) return fmt::format("{} min {:02} s", whole / 60, whole % 60);
  return fmt::format("{} h {:02} min", whole / 3600, whole % 3600 / 60);
}

}  // namespace orvexa::cli
