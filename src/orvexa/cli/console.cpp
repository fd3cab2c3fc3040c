#include "orvexa/cli/console.h"

#include <fmt/format.h>
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

std::size_t width_of(std::string_view text) {
  // A byte 10xxxxxx continues the character before it.
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
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
  if (!_shows_progress || quiet) return;
  // Back to the first column, and the line empty: ECMA-48, "erase in line".
  static_cast<void>(write_all(STDERR_FILENO, "\r\033[K" + common::visible_text(text)));
  _progress_is_shown = true;
}

void Console::end_progress() {
  if (!_progress_is_shown) return;
  static_cast<void>(write_all(STDERR_FILENO, "\r\033[K"));
  _progress_is_shown = false;
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
