#include "orvexa/controller/watch_journal.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

#include "orvexa/common/clock.h"
#include "orvexa/common/logger.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"
#include "orvexa/model/workflow/results_folder.h"

namespace orvexa::controller {

using common::Path;
using common::Value;

namespace {

constexpr const char* journal_name = "watch_journal.jsonl";
constexpr int journal_format = 1;
constexpr std::uintmax_t max_journal_bytes = std::uintmax_t{4} << 30;

std::string last_key_of(const std::string& name, const std::string& workflow_hash) {
  return name + '\n' + workflow_hash;
}

Value files_document(const std::vector<CaptureIdentity::File>& files) {
  Value list = Value::array();
  for (const CaptureIdentity::File& file : files) {
    list.push_back({{"name", common::to_valid_utf8(file.name)},
                    {"sha256", file.sha256},
                    {"bytes", file.stamp.bytes},
                    {"modified_ns", file.stamp.modified_ns},
                    {"inode", file.stamp.inode}});
  }
  return list;
}

std::vector<CaptureIdentity::File> files_from(const Value& list) {
  std::vector<CaptureIdentity::File> files;
  for (const Value& entry : list) {
    CaptureIdentity::File file;
    file.name = entry.at("name").get<std::string>();
    file.sha256 = entry.at("sha256").get<std::string>();
    file.stamp = {.bytes = entry.at("bytes").get<std::uintmax_t>(),
                  .modified_ns = entry.at("modified_ns").get<std::int64_t>(),
                  .inode = entry.at("inode").get<std::uint64_t>()};
    files.push_back(std::move(file));
  }
  return files;
}

Value identity_document(const char* event, const CaptureIdentity& identity) {
  return {{"event", event},
          {"key", identity.key},
          {"name", common::to_valid_utf8(identity.name)},
          {"workflow_sha256", identity.workflow_hash},
          {"files", files_document(identity.files)}};
}

}  // namespace

CaptureIdentity identity_of(std::vector<CaptureIdentity::File> files, std::string workflow_hash) {
  std::string text;
  for (const CaptureIdentity::File& file : files) text += file.name + '\n' + file.sha256 + '\n';
  text += workflow_hash;
  constexpr std::size_t digits = 16;
  const std::string digest = common::sha256_hex(common::as_byte_span(text)).substr(0, digits);
  std::string name = files.front().name;
  std::string key = common::visible_text(name) + '#' + digest;
  return {.key = std::move(key),
          .name = std::move(name),
          .workflow_hash = std::move(workflow_hash),
          .files = std::move(files)};
}

WatchJournal::WatchJournal(const Path& output_dir) : _file(output_dir / journal_name) {
  read(output_dir / journal_name);
  if (_file.size() == 0) record({{"journal", "orvexa watch"}, {"format", journal_format}});
}

void WatchJournal::read(const Path& file) {
  const std::string text = common::read_text_file(file, max_journal_bytes);
  const std::size_t end = text.rfind('\n') + 1;  // 0 when there is no whole line
  if (end != text.size()) {
    common::logger.warning(fmt::format("FileWatcher: the last line of {} is torn and was removed.", journal_name));
    _file.cut(end);
  }
  int number = 0;
  for (std::size_t begin = 0; begin < end;) {
    const std::size_t length = text.find('\n', begin) - begin;
    const std::string_view line = std::string_view(text).substr(begin, length);
    begin += length + 1;
    ++number;
    Value document;
    try {
      document = common::parse_json(line, journal_name);
      if (number > 1) take(document);
    } catch (const std::exception&) {
      if (number > 1) {
        common::logger.warning(
            fmt::format("FileWatcher: line {} of {} cannot be read and was passed over.", number, journal_name));
      }
      document = Value();
    }
    if (number > 1) continue;
    if (!document.is_object() || document.value("journal", Value()) != "orvexa watch") {
      throw std::runtime_error(fmt::format("{}: this is not the journal of a watcher.", common::path_text(file)));
    }
    if (document.value("format", Value()) != journal_format) {
      throw std::runtime_error(
          fmt::format("{}: this journal was written by a newer version of the program.", common::path_text(file)));
    }
  }
  for (auto entry = _entries.begin(); entry != _entries.end(); ++entry) {
    if (entry.value().is_running) ++entry.value().unfinished_starts;
  }
}

JournalEntry& WatchJournal::remember(const Value& line) {
  const auto key = line.at("key").get<std::string>();
  CaptureIdentity identity{.key = key,
                           .name = line.at("name").get<std::string>(),
                           .workflow_hash = line.at("workflow_sha256").get<std::string>(),
                           .files = files_from(line.at("files"))};
  _last_keys.insert_or_assign(last_key_of(identity.name, identity.workflow_hash), key);
  JournalEntry& entry = _entries[key];
  entry.identity = std::move(identity);
  return entry;
}

void WatchJournal::take(const Value& line) {
  const auto event = line.at("event").get<std::string>();
  if (event == "started") {
    auto capture = line.at("capture").get<std::string>();
    const int number = line.at("number").get<int>();
    JournalEntry& entry = remember(line);
    if (entry.is_running) ++entry.unfinished_starts;
    entry.is_running = true;
    entry.capture = std::move(capture);
    entry.number = number;
  } else if (event == "known") {
    remember(line);
  } else if (event == "done") {
    auto found = _entries.find(line.at("key").get<std::string>());
    if (found == _entries.end()) throw std::runtime_error("done without a start");
    JournalEntry& entry = found.value();
    auto folder = line.at("folder").get<std::string>();
    entry.rows = line.at("rows").get<std::size_t>();
    entry.folder = std::move(folder);
    entry.is_running = false;
    entry.is_done = true;
    _done_folders.insert(entry.folder);
  } else if (event == "failed" || event == "cancelled") {
    auto found = _entries.find(line.at("key").get<std::string>());
    if (found != _entries.end()) found.value().is_running = false;
  } else if (event == "captures_only") {
    _takes_captures_only = true;
  }
}

void WatchJournal::record(Value line) {
  line["time"] = common::time_stamp_text(common::now());
  try {
    _file.append(common::json_line(line) + '\n');
  } catch (const std::exception& failure) {
    throw model::ResultsFolderError(failure.what());
  }
  if (line.contains("event")) take(line);
}

const JournalEntry* WatchJournal::find(std::string_view key) const {
  const auto found = _entries.find(std::string(key));
  return found == _entries.end() ? nullptr : &found.value();
}

const JournalEntry* WatchJournal::find_last(const std::string& name, const std::string& workflow_hash) const {
  const auto key = _last_keys.find(last_key_of(common::to_valid_utf8(name), workflow_hash));
  return key == _last_keys.end() ? nullptr : find(key->second);
}

bool WatchJournal::is_known(const CaptureFiles& capture, const std::string& workflow_hash) const {
  const JournalEntry* entry = find_last(capture.files.front().name, workflow_hash);
  if (entry == nullptr || !entry->is_done) return false;
  const auto& known = entry->identity.files;
  return std::all_of(capture.files.begin(), capture.files.end(), [&](const WatchedFile& file) {
    return std::any_of(known.begin(), known.end(), [&](const CaptureIdentity::File& before) {
      return before.stamp == file.stamp && before.name == common::to_valid_utf8(file.name);
    });
  });
}

void WatchJournal::record_started(const CaptureIdentity& identity, const std::string& capture, int number) {
  Value line = identity_document("started", identity);
  line["capture"] = common::to_valid_utf8(capture);
  line["number"] = number;
  line["folder"] = common::path_text(model::results_folder_path({}, capture, number));
  record(std::move(line));
}

void WatchJournal::record_known(const CaptureIdentity& identity) {
  record(identity_document("known", identity));
}

void WatchJournal::record_done(const std::string& key, const std::string& folder, std::size_t rows,
                               const Value& operation_errors) {
  Value line{{"event", "done"}, {"key", key}, {"folder", folder}, {"rows", rows}};
  if (!operation_errors.empty()) line["operation_errors"] = operation_errors;
  record(std::move(line));
}

void WatchJournal::record_failed(const std::string& name, const std::string& key, const std::string& error, int attempt,
                                 bool is_last) {
  record({{"event", "failed"},
          {"key", key},
          {"name", common::to_valid_utf8(name)},
          {"error", common::to_valid_utf8(error)},
          {"attempt", attempt},
          {"is_last", is_last}});
}

void WatchJournal::record_cancelled(const std::string& key) {
  record({{"event", "cancelled"}, {"key", key}});
}

void WatchJournal::record_captures_only() {
  record({{"event", "captures_only"}});
}

}  // namespace orvexa::controller
