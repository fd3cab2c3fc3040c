#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "orvexa/common/value.h"

namespace orvexa::cli {

inline constexpr int exit_done = 0;
inline constexpr int exit_failed = 1;
inline constexpr int exit_wrong_usage = 2;
inline constexpr int exit_nothing_succeeded = 3;
inline constexpr int exit_interrupted = 130;

/// Where a command speaks: answers go to standard output, everything else to standard error.
class Console {
 public:
  bool json = false;   ///< the answer is one JSON document
  bool quiet = false;  ///< no progress and no remarks

  Console();
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  /// Writes to standard output. When nobody reads it any more (`orvexa ops | head`) the rest is dropped.
  /// @throws std::runtime_error with a sentence when it cannot be written, for example on a full disk.
  void answer(std::string_view text);
  /// The one document of `--json`, with its format version first.
  void answer_json(const common::Value& document);
  /// The same on one line, for a command that answers with one document an event.
  void answer_json_line(const common::Value& document);
  /// One line for the user on standard error.
  void error(std::string_view sentence);
  /// The same, but not with `--quiet`.
  void remark(std::string_view sentence);
  /// What the program is doing: `show_status`, and a log line of level info.
  void progress(const std::string& text);
  /// A line on a terminal that the next one replaces, cut to its width; nothing elsewhere, with `--quiet`, and where
  /// log lines would run into it.
  void show_status(const std::string& text);
  /// Whether `show_status` shows anything.
  [[nodiscard]] bool has_status_line() const;
  /// Takes the status line away.
  void end_progress();

 private:
  bool _answer_is_closed = false;
  bool _shows_progress = false;
  bool _progress_is_shown = false;
};

/// The first characters of a text of UTF-8, with "..." in place of the last three when it has more than `width`.
[[nodiscard]] std::string shortened(const std::string& text, std::size_t width);

/// A value for the eye: reals with six significant digits (one decimal place from 100,000 on), the rest as it is.
[[nodiscard]] std::string short_value_text(const common::Value& value);

/// Text in columns; two blanks between them and none at the end of a line. Widths are counted in characters of UTF-8.
class TextTable {
 public:
  /// @param right_aligned  by column; columns beyond the list are left-aligned.
  explicit TextTable(std::vector<bool> right_aligned = {}) : _right_aligned(std::move(right_aligned)) {}
  void add(std::vector<std::string> row) { _rows.push_back(std::move(row)); }
  [[nodiscard]] bool empty() const { return _rows.empty(); }
  /// @param indent  blanks before every line.
  [[nodiscard]] std::string text(std::size_t indent = 0) const;

 private:
  std::vector<bool> _right_aligned;
  std::vector<std::vector<std::string>> _rows;
};

}  // namespace orvexa::cli
