#include "orvexa/controller/batch_journal.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "orvexa/common/logger.h"
#include "orvexa/common/parallel.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"
#include "orvexa/model/run_context.h"

namespace orvexa::controller {

namespace fs = std::filesystem;
using common::logger;
using common::Path;
using common::path_text;
using common::Value;

namespace {

constexpr int journal_format = 1;

// ---- from and to lines

/// A path as text. A name of other bytes than UTF-8, which JSON cannot hold, is a list of its bytes: without them the
/// file could not be found again.
Value path_value(const Path& path) {
  if (common::is_valid_utf8(path.native())) return path.native();
  Value bytes = Value::array();
  for (const char byte : path.native()) bytes.push_back(static_cast<unsigned char>(byte));
  return bytes;
}

Path path_of(const Value& value) {
  if (value.is_string()) return value.get<std::string>();
  std::string name;
  for (const Value& byte : value) name += static_cast<char>(byte.get<unsigned char>());
  return name;
}

Value paths_value(const std::vector<Path>& paths) {
  Value list = Value::array();
  for (const Path& path : paths) list.push_back(path_value(path));
  return list;
}

std::vector<Path> paths_of(const Value& list) {
  std::vector<Path> paths;
  for (const Value& path : list) paths.push_back(path_of(path));
  return paths;
}

/// Reals that JSON has no word for, and lists, as the text that the combined table shows of them.
Value cell_value(const Value& value) {
  const bool is_plain = value.is_null() || value.is_boolean() || value.is_string() || value.is_number_integer();
  const bool is_finite = value.is_number_float() && std::isfinite(value.get<double>());
  return is_plain || is_finite ? value : Value(common::scalar_text(value));
}

Value header_value(const BatchJournal& journal) {
  std::error_code no_current_folder;
  return {{"format", journal_format},
          {"workflow", common::to_valid_utf8(journal.workflow_title)},
          {"workflow_sha256", journal.workflow_sha256},
          {"started", journal.started},
          {"working_folder", path_value(fs::current_path(no_current_folder))},
          {"total", journal.files.size()},
          {"files", paths_value(journal.files)}};
}

/// The name of a results folder inside the run folder, the whole path of one elsewhere.
Path recorded_folder(const Path& output_folder, const Path& run_folder) {
  if (output_folder.empty()) return {};
  if (output_folder.parent_path() == run_folder) return output_folder.filename();
  return fs::absolute(output_folder).lexically_normal();
}

const char* status_of(const BatchJournalEntry& entry) {
  if (entry.is_done) return "done";
  return entry.is_interrupted ? "interrupted" : "failed";
}

Value entry_value(const BatchJournalEntry& entry, const Path& run_folder) {
  Value operation_errors = Value::object();
  for (const auto& [operation, error] : entry.operation_errors) operation_errors[operation] = error;
  Value rows = Value::array();
  for (const BatchRow& row : entry.rows) {
    Value::object_t cells;  // appended to as the list it is: the names of a row are different already
    for (const auto& [name, value] : row) cells.push_back({name, cell_value(value)});
    rows.push_back(std::move(cells));
  }
  return {{"file", path_value(entry.file)},
          {"status", status_of(entry)},
          {"content_sha256", entry.content_sha256},
          {"sources", paths_value(entry.sources)},
          {"output_folder", path_value(recorded_folder(entry.output_folder, run_folder))},
          {"operation_errors", std::move(operation_errors)},
          {"error", entry.is_done ? Value() : Value(entry.error)},
          {"reason", entry.reason.empty() ? Value() : Value(common::to_valid_utf8(entry.reason))},
          {"rows", std::move(rows)}};
}

BatchJournalEntry entry_of(const Value& line, const Path& run_folder) {
  BatchJournalEntry entry;
  entry.file = path_of(line.at("file"));
  const auto status = line.at("status").get<std::string>();
  entry.is_done = status == "done";
  entry.is_interrupted = status == "interrupted";
  if (status != status_of(entry)) throw std::runtime_error("the status is none of a file");
  entry.content_sha256 = line.at("content_sha256").get<std::string>();
  entry.sources = paths_of(line.at("sources"));
  if (const Path folder = path_of(line.at("output_folder")); !folder.empty()) {
    entry.output_folder = run_folder / folder;
  }
  for (const auto& [operation, error] : line.at("operation_errors").items()) {
    entry.operation_errors[operation] = error.get<std::string>();
  }
  if (!entry.is_done) entry.error = line.at("error").get<std::string>();
  if (const auto reason = line.find("reason"); reason != line.end() && !reason->is_null()) {
    entry.reason = reason->get<std::string>();
  }
  for (const Value& cells : line.at("rows")) {
    BatchRow row;
    for (const auto& [name, value] : cells.items()) row[name] = value;
    entry.rows.push_back(std::move(row));
  }
  return entry;
}

// ---- reading

class Reader {
 public:
  explicit Reader(const Path& run_folder) : _file(run_folder / batch_journal_name) { _journal.run_folder = run_folder; }

  BatchJournal read() {
    std::error_code error;
    if (!fs::is_regular_file(_file, error)) {
      throw std::runtime_error(
          fmt::format("{}: there is no such file, so \"{}\" is not the folder of a batch run that "
                      "can be gone on with.",
                      path_text(_file), path_text(_journal.run_folder)));
    }
    std::ifstream stream(_file, std::ios::binary);
    if (!stream) throw std::runtime_error(path_text(_file) + ": cannot be read.");
    std::string line;
    for (int number = 1; std::getline(stream, line); ++number) {
      if (line.empty()) continue;
      if (stream.eof()) {
        logger.info(fmt::format("{}: the last line is cut off; its file counts as not finished.", path_text(_file)));
      } else {
        read_line(line, number);
      }
    }
    if (stream.bad()) throw std::runtime_error(path_text(_file) + ": cannot be read.");
    if (!_has_header) throw std::runtime_error(path_text(_file) + ": this is not the journal of a batch.");
    return std::move(_journal);
  }

 private:
  void read_line(const std::string& text, int number) {
    Value line;
    try {
      // The rows of thousands of regions are one line.
      line = common::parse_json(text, batch_journal_name,
                                {.max_bytes = std::size_t{1} << 30, .max_depth = 16, .max_nodes = 100'000'000});
      if (line.contains("format")) {
        take_header(line);
      } else if (_has_header) {
        take_entry(entry_of(line, _journal.run_folder));
      }
    } catch (const Refusal&) {
      throw;
    } catch (const std::exception&) {
      logger.warning(fmt::format("{}: line {} is damaged; its file counts as not finished.", path_text(_file), number));
    }
  }

  struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
  };

  void take_header(const Value& line) {
    if (line.at("format").get<int>() > journal_format) {
      throw Refusal(path_text(_file) + ": a newer version of this program wrote this journal.");
    }
    const auto workflow = line.at("workflow_sha256").get<std::string>();
    const auto title = line.at("workflow").get<std::string>();
    const auto started = line.at("started").get<std::string>();
    const Path working_folder = path_of(line.at("working_folder"));
    const std::vector<Path> files = paths_of(line.at("files"));
    if (_has_header && workflow != _journal.workflow_sha256) {
      throw Refusal(
          fmt::format("{}: two runs with different workflows (\"{}\" and \"{}\") began in this folder in the "
                      "same second; neither can be gone on with.",
                      path_text(_file), _journal.workflow_title, title));
    }
    if (!_has_header) {
      _journal.workflow_sha256 = workflow;
      _journal.workflow_title = title;
      _journal.started = started;
    }
    _has_header = true;
    _working_folder = working_folder;
    for (const Path& file : files) {
      const Path resolved = (_working_folder / file).lexically_normal();
      if (_selected.insert(resolved.native()).second) _journal.files.push_back(resolved);
    }
  }

  void take_entry(BatchJournalEntry entry) {
    entry.file = (_working_folder / entry.file).lexically_normal();
    const auto [known, is_new] = _positions.try_emplace(entry.file.native(), _journal.entries.size());
    if (is_new) {
      _journal.entries.push_back(std::move(entry));
    } else if (entry.is_done || !_journal.entries[known->second].is_done) {
      _journal.entries[known->second] = std::move(entry);
    }
  }

  Path _file;
  BatchJournal _journal;
  bool _has_header = false;
  Path _working_folder;
  std::unordered_set<std::string> _selected;
  std::unordered_map<std::string, std::size_t> _positions;  ///< of each file among the entries
};

// ---- going on

/// Whether results of the content that the files have now are there.
bool is_up_to_date(const BatchJournalEntry& entry) {
  std::error_code error;
  if (entry.sources.empty() || !fs::is_directory(entry.output_folder, error)) return false;
  std::vector<model::SourceFile> sources;
  try {
    for (const Path& file : entry.sources) {
      sources.push_back({.path = file, .sha256 = common::sha256_hex(common::read_file(file))});
    }
  } catch (const std::runtime_error&) {
    return false;  // gone or unreadable: doing it again says so
  }
  return content_sha256(sources) == entry.content_sha256;
}

}  // namespace

std::string content_sha256(const std::vector<model::SourceFile>& sources) {
  if (sources.empty()) return {};
  std::string digests;
  for (const model::SourceFile& source : sources) digests += source.sha256 + '\n';
  return common::sha256_hex(common::as_byte_span(digests));
}

BatchJournal read_batch_journal(const Path& run_folder) {
  return Reader(run_folder).read();
}

void expect_same_workflow(const BatchJournal& journal, const model::Workflow& workflow) {
  if (workflow_sha256(workflow) == journal.workflow_sha256) return;
  throw std::runtime_error(
      fmt::format("The batch in \"{}\" ran the workflow \"{}\" as it was at its start; the workflow \"{}\" is another "
                  "one or was changed since, and results of two workflows do not belong in one table.",
                  path_text(journal.run_folder), journal.workflow_title, workflow.title));
}

BatchResumption plan_batch_resumption(BatchJournal journal, const common::CancelEvent* cancel_event) {
  const model::RunContext context{.cancel_event = cancel_event, .progress = {}};
  std::vector<char> up_to_date(journal.entries.size(), 0);
  common::parallel_for(journal.entries.size(), [&](std::size_t index) {
    context.check();
    if (journal.entries[index].is_done) up_to_date[index] = is_up_to_date(journal.entries[index]) ? 1 : 0;
  });
  std::unordered_map<std::string, std::size_t> positions;
  for (std::size_t index = 0; index < journal.entries.size(); ++index) {
    positions.emplace(journal.entries[index].file.native(), index);
  }
  BatchResumption plan;
  for (const Path& file : journal.files) {
    const auto known = positions.find(file.native());
    if (known == positions.end()) {
      plan.to_do.push_back(file);
    } else if (up_to_date[known->second] != 0) {
      plan.earlier.entries.push_back(std::move(journal.entries[known->second]));
    } else {
      plan.to_do.push_back(file);
      if (journal.entries[known->second].is_done) plan.changed.push_back(file);
    }
  }
  plan.earlier.selection = std::move(journal.files);
  return plan;
}

std::vector<Path> failed_files(const BatchJournal& journal) {
  std::unordered_set<std::string> failed;
  for (const BatchJournalEntry& entry : journal.entries) {
    if (!entry.is_done && !entry.is_interrupted) failed.insert(entry.file.native());
  }
  std::vector<Path> files;
  std::copy_if(journal.files.begin(), journal.files.end(), std::back_inserter(files),
               [&](const Path& file) { return failed.contains(file.native()); });
  return files;
}

// ---- writing

BatchJournalWriter::BatchJournalWriter(const BatchJournal& journal)
    : _run_folder(journal.run_folder),
      _file(journal.run_folder / batch_journal_name),
      _header(common::json_line(header_value(journal))) {
  begin();
}

void BatchJournalWriter::begin() {
  _has_begun = false;
  _descriptor = common::Descriptor(_file, O_RDWR | O_CREAT | O_APPEND, 0666);
  if (!_descriptor.is_open()) fail(errno);
  char last = '\n';
  const off_t size = ::lseek(_descriptor.get(), 0, SEEK_END);
  _ends_inside_a_line = size > 0 && ::pread(_descriptor.get(), &last, 1, size - 1) == 1 && last != '\n';
  // The journal, and the run folder itself, may be new.
  common::flush_folder(_run_folder);
  common::flush_folder(_run_folder.has_parent_path() ? _run_folder.parent_path() : Path("."));
  append(_header);
  _has_begun = true;
}

void BatchJournalWriter::add(const BatchJournalEntry& entry) {
  if (!_has_begun || !_descriptor.is_at(_file)) begin();
  append(common::json_line(entry_value(entry, _run_folder)));
}

void BatchJournalWriter::append(std::string line) {
  line += '\n';
  if (_ends_inside_a_line) line.insert(line.begin(), '\n');
  std::string_view rest = line;
  while (!rest.empty()) {
    const ssize_t count = ::write(_descriptor.get(), rest.data(), rest.size());
    if (count < 0) {
      if (errno == EINTR) continue;
      _ends_inside_a_line = _ends_inside_a_line || rest.size() < line.size();
      fail(errno);
    }
    rest.remove_prefix(static_cast<std::size_t>(count));
  }
  _ends_inside_a_line = false;
  if (!_descriptor.flush_data()) fail(errno);
}

void BatchJournalWriter::fail(int error) const {
  throw std::runtime_error(
      fmt::format("{}: cannot be written: {}.", path_text(_file), std::generic_category().message(error)));
}

}  // namespace orvexa::controller
