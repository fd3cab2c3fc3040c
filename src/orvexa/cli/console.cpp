#include "orvexa/cli/console.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

#include "orvexa/common/logger.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"

namespace orvexa::cli {

namespace {

/// 0, or the system's error number.
int write_all(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

/// A byte 10xxxxxx continues the character before it.
bool begins_a_character(char c) {
  return (static_cast<unsigned char>(c) & 0xc0) != 0x80;
}

std::size_t width_of(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), begins_a_character));
}

/// Of the terminal behind standard error, in characters; 0 when it does not tell.
std::size_t terminal_width() {
  winsize size{};
  return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

}  // namespace

Console::Console() : _shows_progress(::isatty(STDERR_FILENO) == 1) {}

Console::~Console() {
  end_progress();
}

void Console::answer(std::string_view text) {
  end_progress();
  if (_answer_is_closed) return;
  const int failure = write_all(STDOUT_FILENO, text);
  if (failure == 0) return;
  _answer_is_closed = true;
  if (failure != EPIPE) {
    throw std::runtime_error(fmt::format("The output cannot be written: {}.", std::strerror(failure)));
  }
}

void Console::answer_json(const common::Value& document) {
  common::Value whole = {{"format", 1}};
  whole.update(document);
  answer(common::json_text(whole));
}

void Console::answer_json_line(const common::Value& document) {
  common::Value whole = {{"format", 1}};
  whole.update(document);
  answer(common::json_line(whole) + "\n");
}

void Console::error(std::string_view sentence) {
  end_progress();
  // Nobody can be told when standard error itself cannot be written.
  static_cast<void>(write_all(STDERR_FILENO, common::visible_text(sentence) + "\n"));
}

void Console::remark(std::string_view sentence) {
  if (!quiet) error(sentence);
}

void Console::progress(const std::string& text) {
  common::logger.info(text);
  show_status(text);
}

bool Console::has_status_line() const {
  return _shows_progress && !quiet && common::logger.level() == common::LogLevel::off;
}

void Console::show_status(const std::string& text) {
  if (!has_status_line()) return;
  std::string line = common::visible_text(text);
  // A line that wraps could not be taken away again.
  if (const std::size_t width = terminal_width(); width > 1) line = shortened(line, width - 1);
  // Back to the first column, and the line empty: ECMA-48, "erase in line".
  static_cast<void>(write_all(STDERR_FILENO, "\r\033[K" + line));
  _progress_is_shown = true;
}

void Console::end_progress() {
  if (!_progress_is_shown) return;
  static_cast<void>(write_all(STDERR_FILENO, "\r\033[K"));
  _progress_is_shown = false;
}

std::string shortened(const std::string& text, std::size_t width) {
  if (width_of(text) <= width) return text;
  const std::string dots(std::min<std::size_t>(3, width), '.');
  std::size_t characters = 0;
  const auto end = std::find_if(text.begin(), text.end(), [&](char c) {
    if (begins_a_character(c)) ++characters;
    return characters > width - dots.size();
  });
  return std::string(text.begin(), end) + dots;
}

std::string short_value_text(const common::Value& value) {
  if (!value.is_number_float()) return common::scalar_text(value);
  const double number = value.get<double>();
  if (std::isfinite(number) && std::abs(number) >= 1e5 && std::abs(number) < 1e12) return fmt::format("{:.1f}", number);
  return fmt::format("{:.6g}", number);
}

std::string TextTable::text(std::size_t indent) const {
  std::vector<std::size_t> widths;
  for (const auto& row : _rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], width_of(row[i]));
  }
  std::string result;
  for (const auto& row : _rows) {
    std::string line(indent, ' ');
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string padding(widths[i] - width_of(row[i]), ' ');
      const bool is_right_aligned = i < _right_aligned.size() && _right_aligned[i];
      line += (i == 0 ? "" : "  ") + (is_right_aligned ? padding + row[i] : row[i] + padding);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    result += line + "\n";
  }
  return result;
}

}  // namespace orvexa::cli
