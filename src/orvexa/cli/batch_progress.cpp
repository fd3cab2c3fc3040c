#include "orvexa/cli/batch_progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace orvexa::cli {

void BatchProgress::file_begins(const std::string& name) {
  _name = name;
  _file_start = common::now();
  _console.show_status(_pace.bar_text() + "  " + _name);
}

void BatchProgress::step(const std::string& text) {
  _console.show_status(fmt::format("{}  {}: {}", _pace.bar_text(), _name, text));
}

void BatchProgress::file_succeeded(const std::string& file, const std::string& operation_errors) {
  const double seconds = std::max(0.0, std::chrono::duration<double>(common::now() - _file_start).count());
  const std::string errors = operation_errors.empty() ? "" : ", but: " + operation_errors;
  file_done(false, fmt::format("{}: done in {}{}", file, duration_text(seconds), errors));
}

void BatchProgress::file_failed(const std::string& sentence) {
  file_done(true, "failed: " + sentence);
}

void BatchProgress::file_interrupted(const std::string& file) {
  file_done(false, "interrupted: " + file);
}

void BatchProgress::file_done(bool is_failure, const std::string& line) {
  _pace.file_done(!is_failure);
  if (_console.has_status_line()) {
    _console.show_status(_pace.bar_text());
    return;
  }
  const std::string total = std::to_string(_pace.total());
  _console.remark(fmt::format("{:>{}}/{} {}", _pace.done(), total.size(), total, line));
}

}  // namespace orvexa::cli
