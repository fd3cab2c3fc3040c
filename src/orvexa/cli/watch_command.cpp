#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <mutex>
#include <optional>
#include <utility>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/interrupt.h"
#include "orvexa/cli/mask_notes.h"
#include "orvexa/cli/workflow_problems.h"
#include "orvexa/common/files.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"
#include "orvexa/controller/folder_lock.h"
#include "orvexa/controller/watch_status.h"

namespace orvexa::cli {

namespace {

using controller::WatcherEvent;
using Kind = WatcherEvent::Kind;

/// Brings events from the watcher's thread to the main one, which alone writes.
class EventQueue {
 public:
  void put(const WatcherEvent& event) {
    {
      const std::lock_guard lock(_mutex);
      _events.push_back(event);
    }
    _wake.notify_one();
  }

  /// The next event; absent when none came within a tenth of a second, so that the caller looks at the signals.
  std::optional<WatcherEvent> take() {
    std::unique_lock lock(_mutex);
    if (!_wake.wait_for(lock, std::chrono::milliseconds(100), [this] { return !_events.empty(); })) return std::nullopt;
    return pop();
  }

  std::optional<WatcherEvent> take_at_once() {
    const std::lock_guard lock(_mutex);
    return _events.empty() ? std::nullopt : pop();
  }

 private:
  std::optional<WatcherEvent> pop() {
    std::optional<WatcherEvent> event = std::move(_events.front());
    _events.pop_front();
    return event;
  }

  std::mutex _mutex;
  std::condition_variable _wake;
  std::deque<WatcherEvent> _events;
};

/// What `--once` needs to know at the end.
struct Tally {
  std::size_t done = 0;
  std::size_t left = 0;  ///< failed, incomplete or waiting
  bool has_failed_operation = false;
  bool has_problem = false;
  bool has_stopped = false;

  [[nodiscard]] int exit_code() const {
    if (left == 0 && !has_problem && !has_failed_operation) return exit_done;
    return done == 0 && left > 0 ? exit_nothing_succeeded : exit_failed;
  }
};

void count(const WatcherEvent& event, Tally& tally) {
  switch (event.kind) {
    case Kind::done:
    case Kind::recovered:
      ++tally.done;
      if (event.details.contains("operation_errors")) tally.has_failed_operation = true;
      break;
    case Kind::problem:
      tally.has_problem = true;
      break;
    case Kind::solved:
      tally.has_problem = false;
      break;
    case Kind::stopped:
      tally.left = event.details.value("failed", std::size_t{0}) + event.details.value("waiting", std::size_t{0});
      tally.has_stopped = true;
      break;
    default:
      break;
  }
}

/// The sentence with the file that it is about in front, unless it names it already.
std::string sentence_about(const std::string& file, const std::string& sentence) {
  const bool names_file = sentence.starts_with(file + ": ") || sentence.starts_with(file + ", line ");
  return names_file ? sentence : file + ": " + sentence;
}

/// What mask steps remarked about missing pixels.
void say_warnings(Console& console, const std::string& file, const common::Value& notes) {
  for (const common::Value& entry : notes) {
    const model::MaskNote note{.step = entry.at("step").get<int>(),
                               .op = entry.at("op").get<std::string>(),
                               .text = entry.at("note").get<std::string>()};
    if (is_warning(note)) console.remark(fmt::format("{}: {}", file, note_sentence(note)));
  }
}

void say(Console& console, const WatcherEvent& event) {
  const std::string file = common::visible_text(event.file);
  switch (event.kind) {
    case Kind::running:
      console.progress("Working on " + file);
      break;
    case Kind::done:
    case Kind::recovered:
      if (event.details.contains("mask_notes")) say_warnings(console, file, event.details.at("mask_notes"));
      if (event.details.contains("operation_errors")) {
        for (const auto& [operation, sentence] : event.details.at("operation_errors").items()) {
          console.error(fmt::format("{}: {}: {}", file, operation, sentence.get<std::string>()));
        }
      }
      if (!console.json) console.answer(fmt::format("{} -> {}\n", file, common::visible_text(event.folder)));
      break;
    case Kind::incomplete:
      console.remark(fmt::format("{}: {}", file, event.text));
      break;
    case Kind::retry:
      console.remark(sentence_about(file, event.text) + " It is tried again.");
      break;
    case Kind::failed:
      console.error(sentence_about(file, event.text) +
                    " It is left until its files or the workflow change or the watcher starts again.");
      break;
    case Kind::problem:
      console.error(event.text);
      break;
    default:
      console.remark(event.text);
  }
}

controller::WatcherSearch search_of(const GivenWords& given) {
  if (given.flag("--images")) return controller::WatcherSearch::images;
  return given.flag("--captures") ? controller::WatcherSearch::captures : controller::WatcherSearch::automatic;
}

UsageError usage_error(const std::string& what) {
  return UsageError(fmt::format("orvexa watch: {}; see orvexa watch --help.", what));
}

void expect_status_alone(const GivenWords& given) {
  const auto is_given = [&](const auto& word) {
    return word.name != "--status" && (given.has(word.name) || given.flag(word.name));
  };
  const CommandInfo& info = watch_command_info();
  if (std::ranges::any_of(info.arguments, is_given) || std::ranges::any_of(info.options, is_given)) {
    throw usage_error("--status DIR stands alone");
  }
}

void expect_watch_words(const GivenWords& given) {
  for (const char* name : {"WORKFLOW", "INPUT_DIR"}) {
    if (!given.has(name)) throw usage_error(std::string(name) + " is missing");
  }
  if (!given.has("--output")) throw usage_error("the option -o DIR is missing");
  if (given.flag("--images") && given.flag("--captures")) {
    throw usage_error("--images and --captures exclude each other");
  }
}

controller::WatcherConfig config_of(const GivenWords& given) {
  constexpr double day = 24 * 60 * 60;
  constexpr int max_retries = 1000;
  return {.input_dir = given.text("INPUT_DIR"),
          .output_dir = given.text("--output"),
          .workflow_yaml_path = given.text("WORKFLOW"),
          .poll_seconds = given.positive_number("--poll", 2.0, day),
          .search = search_of(given),
          .retries = given.whole_number("--retries", 2, 0, max_retries),
          .once = given.flag("--once")};
}

/// Whether the workflow can run; what is wrong with it is said.
bool is_runnable(Console& console, const std::string& workflow) {
  const std::vector<model::WorkflowProblem> problems = workflow_problems(workflow);
  const std::string file = common::path_text(workflow);
  for (const model::WorkflowProblem& problem : problems) console.error(problem_sentence(file, problem));
  if (!problems.empty() && console.json) {
    console.answer_json_line(
        {{"error", file + ": the workflow cannot run."}, {"problems", problems_document(problems)}});
  }
  return problems.empty();
}

std::string status_text(const controller::WatchStatus& status, const std::optional<controller::LockHolder>& holder) {
  TextTable table;
  const auto add = [&](const std::string& name, const std::string& value) {
    table.add({name, common::visible_text(value)});
  };
  std::string state = "no: it ended without saying so";
  if (holder) {
    state = "yes, " + controller::holder_text(*holder);
  } else if (status.stopped) {
    state = "no, stopped at " + *status.stopped;
  }
  add("Running", state);
  add("Input folder", status.input_folder);
  add("Workflow", status.workflow_file);
  add("Takes", status.takes);
  add("Last poll", status.last_poll);
  add("Done", fmt::format("{}, {} of them since {}", status.done, status.done_since_start, status.running_since));
  add("With errors", fmt::format("{}{}", status.with_operation_errors,
                                 status.with_operation_errors > 0 ? " of these: an operation failed; the last:" : ""));
  if (status.last_operation_error) add("", *status.last_operation_error);
  if (status.results_gone > 0) {
    add("Gone", fmt::format("{} results folders; their rows are not in watch_table.tsv", status.results_gone));
  }
  add("Waiting", fmt::format("{}", status.waiting));
  for (const auto& entry : status.incomplete) {
    add("", fmt::format("{} lacks {}", entry.file, common::joined(entry.missing, ", ")));
  }
  add("Failed", fmt::format("{}", status.failed.size()));
  for (const auto& entry : status.failed) add("", sentence_about(entry.file, entry.error));
  for (const std::string& problem : status.problems) add("Problem", problem);
  if (status.notice) add("Notice", *status.notice);
  if (status.last_error) add("Last error", fmt::format("{}: {}", *status.last_error_time, *status.last_error));
  return table.text();
}

int show_status(Console& console, const std::string& output_folder) {
  const controller::WatchStatus status = controller::read_watch_status(output_folder);
  const auto holder = controller::folder_lock_holder(output_folder);
  if (!console.json) {
    console.answer(status_text(status, holder));
    return exit_done;
  }
  common::Value document = controller::status_document(status);
  document["running"] = holder.has_value();
  if (holder) {
    document["host"] = holder->host;
    document["process"] = holder->process;
  }
  console.answer_json(document);
  return exit_done;
}

int watch_command(Console& console, const GivenWords& given) {
  if (given.has("--status")) {
    expect_status_alone(given);
    return show_status(console, given.text("--status"));
  }
  expect_watch_words(given);
  const controller::WatcherConfig config = config_of(given);
  handle_interrupts();
  if (!is_runnable(console, config.workflow_yaml_path)) return exit_failed;

  EventQueue events;  // outlives the controller, whose watcher puts into it
  controller::Controller controller;
  controller.set_processing_mode("watcher");
  controller.watcher_maker = [make = controller.watcher_maker, &events](controller::WatcherArguments watcher) {
    watcher.on_event = [&events](const WatcherEvent& event) { events.put(event); };
    return make(watcher);
  };
  controller.configure_watcher(config);
  controller.start_watcher();

  Tally tally;
  const auto handle = [&](const WatcherEvent& event) {
    count(event, tally);
    if (console.json) console.answer_json_line(controller::event_document(event));
    say(console, event);
  };
  while (!tally.has_stopped && !interrupt_event().is_set()) {
    if (const auto event = events.take()) handle(*event);
  }
  const bool is_interrupted = !tally.has_stopped;
  controller.stop_watcher();
  while (const auto event = events.take_at_once()) handle(*event);
  console.end_progress();
  return is_interrupted ? exit_interrupted : tally.exit_code();
}

}  // namespace

const CommandInfo& watch_command_info() {
  static const CommandInfo info{
      .name = "watch",
      .summary = "Watch a folder and run a workflow on every capture that appears in it, each once",
      .arguments = {{.name = "WORKFLOW", .help = "A workflow file", .kind = WordKind::file, .may_be_left_out = true},
                    {.name = "INPUT_DIR",
                     .help = "The folder to watch; folders inside it are not searched",
                     .kind = WordKind::folder,
                     .may_be_left_out = true}},
      .options = {{.name = "--output",
                   .letter = "-o",
                   .value = "DIR",
                   .help = "The folder to make results folders in",
                   .kind = WordKind::folder},
                  {.name = "--poll",
                   .value = "SECONDS",
                   .help = "Look at the folder every so many seconds (default 2.0)"},
                  {.name = "--retries", .value = "N", .help = "Try a capture that failed N times again (default 2)"},
                  {.name = "--once", .help = "Do what is there and end"},
                  {.name = "--images", .help = "Take only ordinary images that no header names"},
                  {.name = "--captures", .help = "Take only captures with a header HDR_*.INF"},
                  {.name = "--status",
                   .value = "DIR",
                   .help = "Show how the watcher of this output folder stands, and end",
                   .kind = WordKind::folder}},
      .usage = "WORKFLOW INPUT_DIR -o DIR [OPTIONS], or orvexa watch --status DIR",
      .remarks =
          "A capture is taken when all its files are there and rest between two polls. Ordinary images are\n"
          "taken only while the folder has held no HDR_*.INF. What was done is remembered in DIR, so a watcher\n"
          "that starts again goes on; DIR/watch_table.tsv has the rows of all captures. An interrupt ends it\n"
          "cleanly. With --json it answers with one line an event.\n"
          "Exit codes: 130 ended by a signal; with --once 0 all done, 1 some are not, 3 none is.\n",
      .examples = {"orvexa watch leaves.yaml incoming -o results", "orvexa watch --status results"},
      .answers_by_line = true,
      .run = watch_command};
  return info;
}

}  // namespace orvexa::cli
