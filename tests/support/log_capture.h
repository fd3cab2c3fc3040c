#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "orvexa/common/logger.h"

namespace orvexa::test {

/// Keeps every log line for as long as it lives, as "info: text", "warning: text", ...; a line with a trace attached is
/// "exception: text".
class LogCapture {
 public:
  LogCapture()
      : _observer([this](const common::LogRecord& record) {
          const std::lock_guard lock(_mutex);
          _lines.push_back(level_name(record) + ": " + record.text);
        }) {}

  [[nodiscard]] std::vector<std::string> lines() const {
    const std::lock_guard lock(_mutex);
    return _lines;
  }
  /// Lines of info and above.
  [[nodiscard]] std::vector<std::string> lines_without_debug() const {
    std::vector<std::string> kept;
    for (const std::string& line : lines()) {
      if (!line.starts_with("debug: ")) kept.push_back(line);
    }
    return kept;
  }
  void clear() {
    const std::lock_guard lock(_mutex);
    _lines.clear();
  }

 private:
  static std::string level_name(const common::LogRecord& record) {
    if (!record.trace.empty()) return "exception";
    switch (record.level) {
      case common::LogLevel::debug:
        return "debug";
      case common::LogLevel::info:
        return "info";
      case common::LogLevel::warning:
        return "warning";
      default:
        return "error";
    }
  }

  mutable std::mutex _mutex;
  std::vector<std::string> _lines;
  common::LogObserver _observer;
};

}  // namespace orvexa::test
