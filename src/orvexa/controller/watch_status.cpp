#include "orvexa/controller/watch_status.h"

#include <fmt/format.h>

#include <exception>
#include <stdexcept>
#include <system_error>

#include "orvexa/common/serialisation.h"

namespace orvexa::controller {

using common::Path;
using common::Value;

namespace {

constexpr const char* status_name = "watch_status.json";
constexpr int status_format = 1;
constexpr std::uintmax_t max_status_bytes = std::uintmax_t{64} << 20;

Value optional_value(const std::optional<std::string>& text) {
  return text ? Value(*text) : Value();
}

std::optional<std::string> optional_text(const Value& value) {
  return value.is_null() ? std::nullopt : std::optional(value.get<std::string>());
}

WatchStatus status_from(const Value& document) {
  WatchStatus status{.input_folder = document.at("input_folder"),
                     .workflow_file = document.at("workflow_file"),
                     .poll_seconds = document.at("poll_seconds"),
                     .running_since = document.at("running_since"),
                     .stopped = optional_text(document.at("stopped")),
                     .last_poll = document.at("last_poll"),
                     .takes = document.at("takes"),
                     .notice = optional_text(document.at("notice")),
                     .done = document.at("done"),
                     .done_since_start = document.at("done_since_start"),
                     .with_operation_errors = document.value("with_operation_errors", std::size_t{0}),
                     .last_operation_error = optional_text(document.value("last_operation_error", Value())),
                     .results_gone = document.value("results_gone", std::size_t{0}),
                     .waiting = document.at("waiting"),
                     .incomplete = {},
                     .failed = {},
                     .problems = document.at("problems").get<std::vector<std::string>>(),
                     .last_error = optional_text(document.at("last_error")),
                     .last_error_time = optional_text(document.at("last_error_time"))};
  for (const Value& entry : document.at("incomplete")) {
    status.incomplete.push_back(
        {.file = entry.at("file"), .missing = entry.at("missing").get<std::vector<std::string>>()});
  }
  for (const Value& entry : document.at("failed")) {
    status.failed.push_back({.file = entry.at("file"), .error = entry.at("error")});
  }
  return status;
}

}  // namespace

Value status_document(const WatchStatus& status) {
  Value incomplete = Value::array();
  for (const auto& entry : status.incomplete) incomplete.push_back({{"file", entry.file}, {"missing", entry.missing}});
  Value failed = Value::array();
  for (const auto& entry : status.failed) failed.push_back({{"file", entry.file}, {"error", entry.error}});
  return {{"format", status_format},
          {"input_folder", status.input_folder},
          {"workflow_file", status.workflow_file},
          {"poll_seconds", status.poll_seconds},
          {"running_since", status.running_since},
          {"stopped", optional_value(status.stopped)},
          {"last_poll", status.last_poll},
          {"takes", status.takes},
          {"notice", optional_value(status.notice)},
          {"done", status.done},
          {"done_since_start", status.done_since_start},
          {"with_operation_errors", status.with_operation_errors},
          {"last_operation_error", optional_value(status.last_operation_error)},
          {"results_gone", status.results_gone},
          {"waiting", status.waiting},
          {"incomplete", std::move(incomplete)},
          {"failed", std::move(failed)},
          {"problems", status.problems},
          {"last_error", optional_value(status.last_error)},
          {"last_error_time", optional_value(status.last_error_time)}};
}

void write_watch_status(const Path& output_dir, const WatchStatus& status) {
  common::write_file_atomically(output_dir / status_name, common::json_text(status_document(status)));
}

WatchStatus read_watch_status(const Path& output_dir) {
  const Path file = output_dir / status_name;
  std::error_code ignored;
  if (!std::filesystem::exists(file, ignored)) {
    throw std::runtime_error(fmt::format("{}: no watcher has worked in this folder: there is no {}.",
                                         common::path_text(output_dir), status_name));
  }
  const Value document = common::parse_json(common::read_text_file(file, max_status_bytes), common::path_text(file),
                                            {.max_bytes = max_status_bytes});
  try {
    if (document.at("format") != status_format) throw std::runtime_error("another format");
    return status_from(document);
  } catch (const std::exception&) {
    throw std::runtime_error(
        fmt::format("{}: this is not the status of a watcher that this version of the program "
                    "understands.",
                    common::path_text(file)));
  }
}

}  // namespace orvexa::controller
