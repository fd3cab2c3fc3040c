#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace orvexa::common {

enum class LogLevel { debug, info, warning, error, off };

struct LogRecord {
  LogLevel level;
  std::string text;   ///< as the caller gave it
  std::string trace;  ///< what is known of the failure being handled; only for `exception`
};

/// The module logger. Every line goes to standard error at or above the level (default: warning). Line breaks and
/// control characters inside a text are made visible there, so that a file name cannot forge a line.
/// Thread-safe.
class Logger {
 public:
  void debug(std::string_view text) const;
  void info(std::string_view text) const;
  void warning(std::string_view text) const;
  void error(std::string_view text) const;
  /// An error line with the failure that is being handled attached (its type and text, and those it was nested in).
  void exception(std::string_view text) const;

  void set_level(LogLevel level) const;
  [[nodiscard]] LogLevel level() const;

 private:
  void write(const LogRecord& record) const;
};

inline constexpr Logger logger{};

/// Sees every record, whatever the level, for as long as it lives. The callback runs on the thread that logs.
class LogObserver {
 public:
  explicit LogObserver(std::function<void(const LogRecord&)> callback);
  ~LogObserver();
  LogObserver(const LogObserver&) = delete;
  LogObserver& operator=(const LogObserver&) = delete;

 private:
  int _id;
};

}  // namespace orvexa::common
