#pragma once

#include <optional>
#include <string>

#include "orvexa/common/clock.h"

namespace orvexa::cli {

/// How fast a batch gets on and how long the rest of it will take, from the time since it began.
class BatchPace {
 public:
  /// The batch begins now.
  explicit BatchPace(int total) : _total(total), _start(common::now()) {}

  void file_done(bool is_successful);

  [[nodiscard]] int done() const { return _done; }
  [[nodiscard]] int failed() const { return _failed; }
  [[nodiscard]] int total() const { return _total; }
  /// 0 when the clock was set back meanwhile.
  [[nodiscard]] double seconds() const;
  /// Files a second; absent until a file is done and time has passed.
  [[nodiscard]] std::optional<double> rate() const;

  /// "[#####---------------]  25 of 100  4.0 files/s  19 s left  1 failed"
  [[nodiscard]] std::string bar_text() const;

 private:
  int _total;
  int _done = 0;
  int _failed = 0;
  common::TimePoint _start;
};

/// "4.0 files/s", "12.5 files/min", "3.0 files/h": the unit in which there is at least one file.
[[nodiscard]] std::string rate_text(double files_per_second);

/// "under 0.01 s", "0.03 s", "2.5 s", "19 s", "4 min 05 s", "2 h 07 min".
[[nodiscard]] std::string duration_text(double seconds);

}  // namespace orvexa::cli
