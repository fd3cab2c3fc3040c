#include "orvexa/controller/folder_watch.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <tuple>

#include "orvexa/common/logger.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/batch_journal.h"
#include "orvexa/model/entities/capture_files.h"
#include "orvexa/model/entities/capture_loader.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/model/run_context.h"
#include "orvexa/model/workflow/metrics_files.h"
#include "orvexa/model/workflow/parameter_files.h"
#include "orvexa/model/workflow/results_folder.h"

namespace orvexa::controller {

namespace fs = std::filesystem;
using common::logger;
using common::Path;
using common::path_text;
using common::Value;
using model::failure_text;
using Kind = WatcherEvent::Kind;

namespace {

constexpr std::uintmax_t max_workflow_bytes = std::uintmax_t{16} << 20;
constexpr std::uintmax_t max_provenance_bytes = std::uintmax_t{64} << 20;
constexpr std::uintmax_t max_metrics_bytes = std::uintmax_t{1} << 30;

std::string listed(const std::vector<std::string>& names) {
  constexpr std::size_t most = 3;
  const std::size_t shown = names.size() > most + 1 ? most : names.size();
  std::string text;
  for (std::size_t i = 0; i < shown; ++i) {
    text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + common::to_valid_utf8(names[i]);
  }
  return shown < names.size() ? text + fmt::format(" and {} more files", names.size() - shown) : text;
}

/// Also for equal ones. What is left of a disk is another number at every look.
bool differ_in_numbers_only(std::string a, std::string b) {
  const auto is_of_number = [](char c) { return (c >= '0' && c <= '9') || c == '.'; };
  std::erase_if(a, is_of_number);
  std::erase_if(b, is_of_number);
  return a == b;
}

/// What identified the workflow of a run: recorded where its parameters name files, whose content may be another now.
std::string hash_of_workflow(const Value& provenance, const std::string& workflow_text) {
  const auto recorded = provenance.find("workflow_sha256");
  return recorded != provenance.end() ? recorded->get<std::string>()
                                      : common::sha256_hex(common::as_byte_span(workflow_text));
}

/// The state of the files that a workflow's parameters name; empty where there are none.
std::string stamps_text(const model::Workflow& workflow) {
  std::string text;
  for (const model::ParameterFile& parameter : model::parameter_files(workflow)) {
    std::vector<Path> files{model::file_of_image_name(parameter.path)};
    for (const std::string& name : model::files_named_by(parameter.path)) {
      files.push_back(model::file_of_image_name(parameter.path.parent_path() / name));
    }
    for (const Path& file : files) {
      const auto stamp = stamp_of(file).value_or(FileStamp{});
      text += fmt::format("{}\n{} {} {}\n", file.string(), stamp.bytes, stamp.modified_ns, stamp.inode);
    }
  }
  return text;
}

bool is_reference_file(const std::string& name) {
  return common::to_lower_ascii(Path(name).extension().string()) == ".inf";
}

/// Whether the files that say which files belong to a capture are as they were when the journal recorded it.
bool is_as_recorded(FolderStamps& stamps, const FoundFile& header, const std::vector<CaptureIdentity::File>& files) {
  if (files.front().stamp != header.stamp) return false;
  return std::all_of(files.begin() + 1, files.end(), [&](const CaptureIdentity::File& file) {
    return !is_reference_file(file.name) || stamps.of(file.name) == file.stamp;
  });
}

/// Whether the capture that was read has the content by which it is identified.
bool has_content(const model::CaptureSet& capture, const CaptureIdentity& identity, const Path& folder) {
  return std::all_of(capture.sources.begin(), capture.sources.end(), [&](const model::SourceFile& source) {
    const auto known = std::find_if(identity.files.begin(), identity.files.end(), [&](const auto& file) {
      return (folder / file.name).lexically_normal() == source.path;
    });
    return known == identity.files.end() || known->sha256 == source.sha256;
  });
}

}  // namespace

FolderWatch::FolderWatch(WatcherArguments arguments, const common::CancelEvent& cancel_event)
    : _arguments(std::move(arguments)),
      _cancel_event(cancel_event),
      _input(fs::absolute(_arguments.input_dir).lexically_normal()),
      _output(fs::absolute(_arguments.output_dir).lexically_normal()),
      _workflow_file(fs::absolute(_arguments.workflow_yaml_path).lexically_normal()) {
  std::error_code failure;
  if (!fs::is_directory(_input, failure)) {
    throw std::runtime_error(fmt::format("The input folder \"{}\" is {}.", path_text(_arguments.input_dir),
                                         fs::exists(_input, failure) ? "a file and no folder" : "not there"));
  }
  fs::create_directories(_output, failure);
  if (failure) {
    throw std::runtime_error(
        fmt::format("The output folder \"{}\" cannot be made: {}.", path_text(_output), failure.message()));
  }
  _lock.emplace(_output);
  _journal.emplace(_output);
  _status.input_folder = path_text(_input);
  _status.workflow_file = path_text(_workflow_file);
  _status.poll_seconds = _arguments.poll_seconds;
  _status.running_since = common::time_stamp_text(common::now());
}

// ---- Beginning and end

bool FolderWatch::poll_once() {
  const common::TimePoint began = common::now();
  _status.last_poll = common::time_stamp_text(began);
  if (!has_output()) return true;
  try {
    if (!_has_begun) {
      announce();
      remove_torn_files();
      finish_complete_runs();
      _has_begun = true;
    }
    if (!_table) {
      _table.emplace(_output, *_journal);
      look_for_gone_results();
    }
    const bool has_workflow = refresh_workflow();
    const bool has_folder = refresh_candidates();
    write_status();
    if (has_workflow && has_folder) work(began);
    solve(Topic::program, "The watcher works again.");
  } catch (...) {
    report_problem(Topic::program, "The watcher cannot go on with its work: " + failure_text());
  }
  write_status();
  return is_idle();
}

void FolderWatch::end() {
  _status.stopped = common::time_stamp_text(common::now());
  write_status();
  WatcherEvent event{.kind = Kind::stopped,
                     .text = fmt::format("Stopped watching {}.", path_text(_input)),
                     .details = {{"done", _status.done_since_start},
                                 {"failed", _status.failed.size()},
                                 {"waiting", _status.waiting},
                                 {"incomplete", _status.incomplete.size()}}};
  _lock.reset();
  tell(std::move(event));
}

void FolderWatch::announce() {
  if (_is_announced) return;
  _is_announced = true;
  tell({.kind = Kind::watching,
        .text = fmt::format("Watching {}, results go to {}.", path_text(_input), path_text(_output))});
  if (_lock->dead_holder()) {
    tell({.kind = Kind::taken_over,
          .text = fmt::format("The watcher before this one, {}, ended without giving the folder free; this one goes on "
                              "with its work.",
                              holder_text(*_lock->dead_holder()))});
  }
}

void FolderWatch::remove_torn_files() const {
  model::remove_left_over_results(_output);
  std::error_code failure;
  for (fs::directory_iterator entry(_output, failure), end; !failure && entry != end; entry.increment(failure)) {
    const std::string name = entry->path().filename().string();
    // Drafts of the status and the table that a killed watcher left: nobody else writes these while the lock is held.
    if (common::fnmatch(name, ".watch_*.????????.partial")) {
      std::error_code ignored;
      fs::remove(entry->path(), ignored);
    }
  }
}

void FolderWatch::finish_complete_runs() {
  std::vector<std::string> keys;
  for (const auto& [key, entry] : _journal->entries()) {
    if (!entry.is_done && !entry.capture.empty()) keys.push_back(key);
  }
  for (const std::string& key : keys) {
    const JournalEntry& entry = *_journal->find(key);
    if (const auto folder = find_complete_folder(entry)) {
      finish(entry.identity, *folder, remarks_of(*folder), Kind::recovered);
    }
  }
}

std::optional<std::string> FolderWatch::find_complete_folder(const JournalEntry& entry) const {
  const CaptureIdentity& identity = entry.identity;
  std::vector<std::string> wanted_hashes;
  for (const auto& file : identity.files) wanted_hashes.push_back(file.sha256);
  std::sort(wanted_hashes.begin(), wanted_hashes.end());
  const auto is_its = [&](const Path& folder) {
    try {
      const Value provenance =
          common::parse_json(common::read_text_file(folder / "provenance.json", max_provenance_bytes), "provenance");
      const Value& inputs = provenance.at("inputs");
      std::vector<std::string> hashes;
      for (const Value& input : inputs) hashes.push_back(input.at("sha256").get<std::string>());
      std::sort(hashes.begin(), hashes.end());
      const std::string workflow = common::read_text_file(folder / "workflow.yaml", max_workflow_bytes);
      return hashes == wanted_hashes &&
             Path(inputs.at(0).at("path").get<std::string>()).filename() == common::to_valid_utf8(identity.name) &&
             hash_of_workflow(provenance, workflow) == identity.workflow_hash;
    } catch (const std::exception&) {
      return false;
    }
  };
  // Another program may have taken the name between the promise and the end of the run; the run then got a later one.
  std::error_code ignored;
  for (int number = entry.number;; ++number) {
    const Path folder = model::results_folder_path(_output, entry.capture, number);
    if (!fs::exists(folder, ignored)) return std::nullopt;
    const std::string name = folder.filename().string();
    if (!_journal->is_claimed(name) && is_its(folder)) return name;
  }
}

// ---- Looking

bool FolderWatch::has_output() {
  if (_lock->is_in_place()) {
    solve(Topic::lock, "The output folder is there again.");
    return true;
  }
  report_problem(Topic::lock,
                 fmt::format("The output folder \"{}\" is not the one any more that this watcher began with: it was "
                             "removed, emptied or replaced, so captures wait. A watcher that is started anew begins "
                             "afresh there.",
                             path_text(_output)));
  return false;
}

bool FolderWatch::refresh_workflow() {
  try {
    std::string text = common::read_text_file(_workflow_file, max_workflow_bytes);
    // A file that a parameter names is a part of the workflow. One that did not change is not read again for that.
    std::shared_ptr<const model::Workflow> workflow = _workflow;
    if (!workflow || text != _workflow_text) workflow = read_workflow(text);
    std::string stamps = stamps_text(*workflow);
    // One that is being written is taken only when it rests, as captures are.
    const bool is_settled = text + stamps == _new_workflow_text;
    _new_workflow_text = text + stamps;
    _is_workflow_settling = false;
    if (workflow != _workflow || stamps != _workflow_stamps) {
      if (const auto problems = model::check_workflow(*workflow); !problems.empty()) {
        throw std::runtime_error(fmt::format("{}: {}: {}", path_text(_workflow_file.filename()), problems.front().step,
                                             problems.front().text));
      }
      // Nothing runs at the first poll, so that the second one tells whether this one rested.
      if (!is_settled && _has_looked) {
        _is_workflow_settling = true;
        return false;
      }
      _workflow_text = std::move(text);
      _workflow_stamps = std::move(stamps);
      _workflow_hash = workflow_sha256(*workflow);
      _workflow = std::move(workflow);
      for (auto& [file, candidate] : _candidates) judge(file, candidate);
    }
    solve(Topic::workflow, "The workflow can be read again.");
    return true;
  } catch (...) {
    report_problem(Topic::workflow, "The workflow cannot run, so captures wait: " + failure_text());
    return false;
  }
}

std::shared_ptr<const model::Workflow> FolderWatch::read_workflow(const std::string& text) const {
  const Value entries = common::parse_yaml(text, path_text(_workflow_file.filename()));
  auto workflow = std::make_shared<model::Workflow>(model::Workflow::from_dict(entries));
  workflow->folder = _workflow_file.parent_path();
  return workflow;
}

bool FolderWatch::refresh_candidates() {
  std::vector<FoundFile> found;
  try {
    found = find_files_to_watch(_input);
  } catch (...) {
    report_problem(Topic::input, failure_text());
    return false;
  }
  solve(Topic::input, "The input folder can be read again.");
  FolderStamps stamps(_input, found);
  choose_search(stamps, found);
  found = wanted(stamps, std::move(found));
  std::unordered_set<std::string> names;
  for (const FoundFile& file : found) {
    names.insert(file.name);
    update(stamps, file);
  }
  const auto is_gone = [&](const auto& entry) { return !names.contains(entry.first); };
  std::erase_if(_candidates, is_gone);
  if (_status.takes == "captures") std::erase_if(_named_by_headers, is_gone);
  report_incomplete();
  return true;
}

void FolderWatch::choose_search(FolderStamps& stamps, const std::vector<FoundFile>& found) {
  std::size_t headers = 0;
  for (const FoundFile& file : found) headers += file.is_header ? 1 : 0;
  if (_arguments.search == WatcherSearch::automatic && headers > 0 && !_journal->takes_captures_only()) {
    _journal->record_captures_only();
    if (!_candidates.empty()) {
      tell({.kind = Kind::notice,
            .text = "The input folder holds headers HDR_*.INF now: from here on only captures are taken."});
    }
  }
  const bool takes_captures = _arguments.search == WatcherSearch::captures ||
                              (_arguments.search == WatcherSearch::automatic && _journal->takes_captures_only());
  _status.takes = takes_captures ? "captures" : "images";
  take_notice(notice_about(stamps, found, headers));
}

std::optional<std::string> FolderWatch::notice_about(FolderStamps& stamps, const std::vector<FoundFile>& found,
                                                     std::size_t headers) {
  if (_status.takes == "images") {
    if (headers == 0) return std::nullopt;
    return "Captures with a header HDR_*.INF and their images are left alone, because only images are taken.";
  }
  if (_arguments.search == WatcherSearch::captures || headers == found.size()) return std::nullopt;
  const auto parts = images_of_headers(stamps, found);
  const auto left_alone = std::count_if(
      found.begin(), found.end(), [&](const FoundFile& file) { return !file.is_header && !parts.contains(file.name); });
  if (left_alone == 0) return std::nullopt;
  return fmt::format(
      "The input folder holds or has held headers HDR_*.INF, so ordinary images that no header names ({} now) are "
      "left alone; --images takes these instead.",
      left_alone);
}

void FolderWatch::take_notice(std::optional<std::string> notice) {
  const auto is_about_the_same = [&](const std::optional<std::string>& other) {
    return notice && other && differ_in_numbers_only(*notice, *other);
  };
  // Told only when it stands at two polls: an image that arrives shortly before its header is not left alone.
  const bool is_resting = is_about_the_same(_status.notice);
  const bool is_told = is_about_the_same(_told_notice);
  _status.notice = std::move(notice);
  if (is_told) return;
  _told_notice.reset();
  if (!is_resting) return;
  _told_notice = _status.notice;
  tell({.kind = Kind::notice, .text = *_status.notice});
}

std::unordered_set<std::string> FolderWatch::images_of_headers(FolderStamps& stamps,
                                                               const std::vector<FoundFile>& found) {
  std::unordered_set<std::string> names;
  for (const FoundFile& file : found) {
    if (!file.is_header) continue;
    for (const WatchedFile& part : files_of(stamps, file).files) names.insert(part.name);
  }
  return names;
}

const std::vector<std::string>& FolderWatch::files_named(FolderStamps& stamps, const FoundFile& header) {
  const auto stamp_of_references = [&stamps](const std::vector<std::string>& files) {
    const auto found = std::find_if(files.begin(), files.end(), is_reference_file);
    return found == files.end() ? std::nullopt : stamps.of(*found);
  };
  const auto known = _named_by_headers.find(header.name);
  if (known != _named_by_headers.end() && known->second.header == header.stamp &&
      known->second.references == stamp_of_references(known->second.files)) {
    return known->second.files;
  }
  std::vector<std::string> files;
  // A header that the journal knows in this state need not be read.
  const JournalEntry* entry = _journal->find_last(header.name, _workflow_hash);
  if (entry != nullptr && is_as_recorded(stamps, header, entry->identity.files)) {
    for (std::size_t i = 1; i < entry->identity.files.size(); ++i) files.push_back(entry->identity.files[i].name);
  } else {
    files = model::files_named_by(_input / header.name);
  }
  NamedByHeader named{.header = header.stamp, .references = stamp_of_references(files), .files = {}};
  named.files = std::move(files);
  return _named_by_headers.insert_or_assign(header.name, std::move(named)).first->second.files;
}

CaptureFiles FolderWatch::files_of(FolderStamps& stamps, const FoundFile& main_file) {
  return capture_files(stamps, main_file,
                       main_file.is_header ? files_named(stamps, main_file) : std::vector<std::string>());
}

std::vector<FoundFile> FolderWatch::wanted(FolderStamps& stamps, std::vector<FoundFile> found) {
  const bool takes_captures = _status.takes == "captures";
  const auto parts = takes_captures ? std::unordered_set<std::string>() : images_of_headers(stamps, found);
  std::erase_if(found, [&](const FoundFile& file) {
    return file.is_header != takes_captures || parts.contains(file.name) ||
           (_arguments.once && _has_looked && !_names_at_first.contains(file.name));
  });
  if (!_has_looked) {
    for (const FoundFile& file : found) _names_at_first.insert(file.name);
    _has_looked = true;
  }
  return found;
}

void FolderWatch::update(FolderStamps& stamps, const FoundFile& found) {
  CaptureFiles capture = files_of(stamps, found);
  const auto [position, is_new] = _candidates.try_emplace(found.name);
  Candidate& candidate = position->second;
  if (!is_new && candidate.capture == capture) {
    candidate.is_settled = true;
    return;
  }
  if (is_new || candidate.state != State::open) candidate.order = _next_order++;
  candidate.is_header = found.is_header;
  candidate.capture = std::move(capture);
  candidate.is_settled = false;
  candidate.is_reported = false;
  judge(found.name, candidate);
}

void FolderWatch::judge(const std::string& name, Candidate& candidate) {
  candidate.tries = 0;
  candidate.error.clear();
  candidate.state = _workflow && _journal->is_known(candidate.capture, _workflow_hash) ? State::done : State::open;
  const JournalEntry* entry = _journal->find_last(name, _workflow_hash);
  candidate.is_last = entry != nullptr && !entry->is_done && entry->unfinished_starts > 1;
}

void FolderWatch::report_incomplete() {
  if (!_workflow) return;  // what is done is not known yet
  for (auto& [name, candidate] : _candidates) {
    if (candidate.state != State::open || !candidate.is_settled || candidate.is_reported ||
        candidate.capture.missing.empty()) {
      continue;
    }
    candidate.is_reported = true;
    tell({.kind = Kind::incomplete,
          .file = name,
          .text = fmt::format("It is not complete: it waits for {}.", listed(candidate.capture.missing)),
          .details = {{"missing", candidate.capture.missing}}});
  }
}

// ---- Working

FolderWatch::Queue FolderWatch::queue() {
  Queue ready;
  for (auto& entry : _candidates) {
    const Candidate& candidate = entry.second;
    if (candidate.state == State::open && candidate.is_settled && candidate.capture.missing.empty()) {
      ready.push_back(&entry);
    }
  }
  std::sort(ready.begin(), ready.end(), [](const auto* a, const auto* b) {
    return std::tie(a->second.is_last, a->second.order) < std::tie(b->second.is_last, b->second.order);
  });
  return ready;
}

void FolderWatch::work(common::TimePoint began) {
  for (auto* entry : queue()) {
    if (_cancel_event.is_set() || !has_output()) return;
    // A picture that arrives before its header is no photograph.
    if (_arguments.search == WatcherSearch::automatic && !entry->second.is_header && holds_header(_input)) return;
    try {
      process(entry->first, entry->second);
    } catch (const model::CancelledError&) {
      return;
    } catch (const model::ResultsFolderError& failure) {
      report_problem(Topic::output, std::string("Results cannot be written, so captures wait: ") + failure.what());
      return;
    }
    write_status();
    // Time to look again at what arrived meanwhile.
    if (common::now() - began >= std::chrono::duration<double>(_arguments.poll_seconds)) return;
  }
}

void FolderWatch::process(const std::string& name, Candidate& candidate) {
  std::string key;
  try {
    if (!is_unchanged(name, candidate)) {
      candidate.is_settled = false;
      return;
    }
    const CaptureIdentity identity = identify(candidate);
    key = identity.key;
    if (is_done_already(name, identity)) {
      candidate.state = State::done;
      return;
    }
    tell({.kind = Kind::running, .file = name});
    const auto capture = load(name, candidate);
    if (!has_content(*capture, identity, _input) || !is_unchanged(name, candidate)) {
      candidate.is_settled = false;
      return;
    }
    run(identity, capture);
    candidate.state = State::done;
  } catch (const model::CancelledError&) {
    _journal->record_cancelled(key);
    throw;
  } catch (const model::ResultsFolderError&) {
    throw;
  } catch (...) {
    const std::string error = failure_text();
    if (is_unchanged(name, candidate)) {
      note_failure(name, candidate, key, error);
    } else {
      candidate.is_settled = false;  // it changed while it was read: that says nothing about what it becomes
    }
  }
}

bool FolderWatch::is_unchanged(const std::string& name, const Candidate& candidate) {
  const auto stamp = stamp_of(_input / name);
  if (!stamp) return false;
  FolderStamps now(_input);
  return files_of(now, {.name = name, .stamp = *stamp, .is_header = candidate.is_header}) == candidate.capture;
}

bool FolderWatch::is_done_already(const std::string& name, const CaptureIdentity& identity) {
  const JournalEntry* entry = _journal->find(identity.key);
  if (entry == nullptr) return false;
  if (entry->is_done) {
    _journal->record_known(identity);
    logger.info(fmt::format("FileWatcher: {} was done before", common::to_valid_utf8(name)));
    return true;
  }
  const auto folder = find_complete_folder(*entry);
  if (folder) finish(identity, *folder, remarks_of(*folder), Kind::recovered);
  return folder.has_value();
}

CaptureIdentity FolderWatch::identify(const Candidate& candidate) const {
  std::vector<CaptureIdentity::File> files;
  for (const WatchedFile& file : candidate.capture.files) {
    files.push_back({file, common::sha256_hex(common::read_file(_input / file.name))});
  }
  return identity_of(std::move(files), _workflow_hash);
}

std::shared_ptr<model::CaptureSet> FolderWatch::load(const std::string& name, const Candidate& candidate) const {
  auto capture = (candidate.is_header ? _arguments.capture_loader : _arguments.image_loader)(_input / name);
  if (!capture) throw std::runtime_error(common::to_valid_utf8(name) + ": the loader gave no capture.");
  return capture;
}

void FolderWatch::run(const CaptureIdentity& identity, const std::shared_ptr<model::CaptureSet>& capture) {
  std::error_code ignored;
  int number = 1;
  while (fs::exists(fs::symlink_status(model::results_folder_path(_output, capture->name, number), ignored))) ++number;
  // Begun already when its results could not be written: a full disk must not fill up with the same line at every poll.
  const JournalEntry* entry = _journal->find(identity.key);
  if (_begun_key != identity.key || entry == nullptr || !entry->is_running || entry->number != number) {
    _journal->record_started(identity, capture->name, number);
    _begun_key = identity.key;
  }
  const model::RunOutput output = _executor.run_and_save({.capture = capture,
                                                          .wf = _workflow,
                                                          .output_base_dir = _output,
                                                          .capture_name = capture->name,
                                                          .progress_cb = {},
                                                          .cancel_event = &_cancel_event});
  Remarks remarks{.mask_notes = model::mask_notes_document(output.mask_notes)};
  for (const auto& [operation, result] : output.bundle.results) {
    if (result.error) remarks.operation_errors[operation] = common::to_valid_utf8(*result.error);
  }
  finish(identity, output.results_folder.filename().string(), remarks, Kind::done);
}

FolderWatch::Remarks FolderWatch::remarks_of(const std::string& folder) const {
  const Path file = _output / folder / "metrics.json";
  std::error_code ignored;
  if (!fs::exists(file, ignored)) return {};
  try {
    const Value metrics = common::parse_json(common::read_text_file(file, max_metrics_bytes), path_text(file),
                                             {.max_bytes = max_metrics_bytes});
    std::vector<model::MaskNote> notes;
    notes.reserve(metrics.at("mask_notes").size());
    for (const Value& note : metrics.at("mask_notes")) {
      notes.push_back({.step = note.at("step"), .op = note.at("op"), .text = note.at("note")});
    }
    Remarks remarks{.mask_notes = model::mask_notes_document(notes)};
    for (const auto& [operation, result] : metrics.at("results").items()) {
      if (const Value& error = result.at("error"); error.is_string()) remarks.operation_errors[operation] = error;
    }
    return remarks;
  } catch (...) {
    logger.warning(fmt::format("FileWatcher: what the operations said is not known any more: {}: {}", path_text(file),
                               failure_text()));
    return {};
  }
}

void FolderWatch::finish(const CaptureIdentity& identity, const std::string& folder, const Remarks& remarks,
                         WatcherEvent::Kind kind) {
  const CaptureIdentity own = identity;  // the journal may own the argument
  const MetricsRows metrics = read_metrics_rows(_output / folder);
  _journal->record_done(own.key, folder, metrics.rows.size(), remarks.operation_errors);
  ++_status.done_since_start;
  if (!remarks.operation_errors.empty()) {
    ++_status.with_operation_errors;
    const auto last = std::prev(remarks.operation_errors.end());
    _status.last_operation_error =
        fmt::format("{}: {}: {}", common::to_valid_utf8(own.name), last.key(), last.value().get<std::string>());
  }
  solve(Topic::output, "Results can be written again.");
  try {
    // Before the first look at the table there is none: it is then made from the journal.
    if (_table) {
      _table->add(*_journal->find(own.key), metrics);
      look_for_gone_results();
    }
    solve(Topic::table, "The running table can be written again.");
  } catch (...) {
    report_problem(Topic::table, "The running table cannot be written: " + failure_text());
  }
  Value details = Value::object();
  if (!remarks.operation_errors.empty()) details["operation_errors"] = remarks.operation_errors;
  if (!remarks.mask_notes.empty()) details["mask_notes"] = remarks.mask_notes;
  tell({.kind = kind,
        .file = own.name,
        .folder = path_text(_output / folder),
        .text = kind == Kind::recovered ? "Its results were complete already." : "",
        .details = std::move(details)});
}

void FolderWatch::note_failure(const std::string& name, Candidate& candidate, const std::string& key,
                               const std::string& error) {
  ++candidate.tries;
  candidate.error = error;
  const bool is_last = candidate.tries > _arguments.retries;
  if (is_last) candidate.state = State::failed;
  _status.last_error = common::to_valid_utf8(error);
  _status.last_error_time = common::time_stamp_text(common::now());
  tell({.kind = is_last ? Kind::failed : Kind::retry,
        .file = name,
        .text = error,
        .details = {{"attempt", candidate.tries}, {"retries", _arguments.retries}}});
  _journal->record_failed(name, key, error, candidate.tries, is_last);
}

// ---- Telling

void FolderWatch::tell(WatcherEvent event) {
  event.time = common::now();
  std::string line = "FileWatcher: ";
  if (!event.file.empty()) line += fmt::format("{} {}", event_name(event.kind), common::to_valid_utf8(event.file));
  if (!event.file.empty() && !event.text.empty()) line += ": ";
  line += event.text;
  switch (event.kind) {
    case Kind::taken_over:
    case Kind::notice:
    case Kind::incomplete:
    case Kind::retry:
      logger.warning(line);
      break;
    case Kind::failed:
    case Kind::problem:
      logger.error(line);
      break;
    default:
      logger.info(line);
  }
  if (!_arguments.on_event) return;
  try {
    _arguments.on_event(event);
  } catch (...) {
    logger.exception("FileWatcher: nobody could be told: " + failure_text());
  }
}

void FolderWatch::look_for_gone_results() {
  const std::size_t gone = _table->gone();
  if (gone > _status.results_gone) {
    tell({.kind = Kind::notice,
          .text = fmt::format("{} of {} captures in the journal have no results folder with a metrics.tsv any more, so "
                              "their rows are not in watch_table.tsv.",
                              gone, _journal->done_count())});
  }
  _status.results_gone = gone;
}

void FolderWatch::report_problem(Topic topic, const std::string& text) {
  std::string& known = _problems[topic];
  const bool is_news = !differ_in_numbers_only(known, text);
  known = text;
  if (!is_news) return;
  _status.last_error = common::to_valid_utf8(text);
  _status.last_error_time = common::time_stamp_text(common::now());
  tell({.kind = Kind::problem, .text = text});
}

void FolderWatch::solve(Topic topic, const std::string& text) {
  if (_problems.erase(topic) > 0) tell({.kind = Kind::solved, .text = text});
}

bool FolderWatch::is_idle() {
  for (const Topic topic : {Topic::workflow, Topic::input, Topic::output, Topic::lock, Topic::program}) {
    if (_problems.contains(topic)) return true;
  }
  if (_is_workflow_settling || _told_notice.has_value() != _status.notice.has_value()) return false;
  return std::all_of(_candidates.begin(), _candidates.end(), [](const auto& entry) {
    const Candidate& candidate = entry.second;
    return candidate.state != State::open || (candidate.is_settled && !candidate.capture.missing.empty());
  });
}

void FolderWatch::write_status() {
  if (_problems.contains(Topic::lock)) return;  // it may be the folder of another one now
  _status.done = _journal->done_count();
  _status.waiting = 0;
  _status.incomplete.clear();
  _status.failed.clear();
  _status.problems.clear();
  for (const auto& [name, candidate] : _candidates) {
    const std::string file = common::to_valid_utf8(name);
    if (candidate.state == State::failed) _status.failed.push_back({file, common::to_valid_utf8(candidate.error)});
    if (candidate.state != State::open) continue;
    ++_status.waiting;
    if (candidate.is_reported) _status.incomplete.push_back({file, candidate.capture.missing});
  }
  for (const auto& [topic, text] : _problems) _status.problems.push_back(common::to_valid_utf8(text));
  // The time of the last poll alone is not worth a write every two seconds.
  constexpr auto heartbeat = std::chrono::minutes(1);
  WatchStatus compared = _status;
  if (_written_status) compared.last_poll = _written_status->last_poll;
  if (_written_status == compared && common::now() - _status_time < heartbeat) return;
  try {
    write_watch_status(_output, _status);
    _written_status = _status;
    _status_time = common::now();
    solve(Topic::status, "The status of the watcher can be written again.");
  } catch (...) {
    report_problem(Topic::status, "The status of the watcher cannot be written: " + failure_text());
  }
}

}  // namespace orvexa::controller
