#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "orvexa/common/cancel.h"
#include "orvexa/common/clock.h"
#include "orvexa/controller/folder_lock.h"
#include "orvexa/controller/watch_journal.h"
#include "orvexa/controller/watch_scan.h"
#include "orvexa/controller/watch_status.h"
#include "orvexa/controller/watch_table.h"
#include "orvexa/controller/watcher.h"
#include "orvexa/model/workflow/executor.h"

namespace orvexa::controller {

/// What a folder watcher does, without a thread: whoever owns it calls `poll_once()` again and again, at least
/// `poll_seconds` apart.
///
/// A capture is its header `HDR_*.INF` with every image that the header names, or an ordinary image. It is taken when
/// all its files are there and their sizes and times were the same at two polls in a row.
class FolderWatch {
 public:
  /// Takes the output folder (made when it is not there) and reads its journal.
  /// @param cancel_event  ends what runs; must outlive the watch.
  /// @throws std::runtime_error with a sentence: there is no input folder, another watcher has the output folder, or
  /// its journal cannot be read.
  FolderWatch(WatcherArguments arguments, const common::CancelEvent& cancel_event);

  /// Looks at the input folder and works on what is complete, in the order in which it appeared, for about
  /// `poll_seconds`. Nothing that goes wrong reaches the caller: it is told as an event and stands in the status.
  /// @return whether nothing is left to do until the folder changes (or what captures wait for is solved).
  bool poll_once();

  /// Writes the last status, gives the output folder free and says so. Nothing may follow.
  void end();

 private:
  enum class State { open, done, failed };
  struct Candidate {
    bool is_header = false;
    std::int64_t order = 0;
    CaptureFiles capture;
    bool is_settled = false;  ///< the same at two polls
    State state = State::open;
    int tries = 0;
    bool is_last = false;  ///< runs on it did not end: it must not hold up the others
    std::string error;     ///< of the last try
    bool is_reported = false;
  };
  /// What a run said beside its numbers.
  struct Remarks {
    common::Value operation_errors = common::Value::object();  ///< {operation: sentence}
    common::Value mask_notes = common::Value::array();         ///< as metrics.json has them
  };
  using Queue = std::vector<std::pair<const std::string, Candidate>*>;
  /// What captures may have to wait for.
  enum class Topic { workflow, input, output, lock, program, table, status };

  // Preparation at the first poll.
  void announce();
  void remove_torn_files() const;
  void finish_complete_runs();
  [[nodiscard]] std::optional<std::string> find_complete_folder(const JournalEntry& entry) const;

  // Looking.
  /// Whether the output folder is still the one that this watch has locked; otherwise nothing may be written there.
  [[nodiscard]] bool has_output();
  [[nodiscard]] bool refresh_workflow();
  [[nodiscard]] std::shared_ptr<const model::Workflow> read_workflow(const std::string& text) const;
  [[nodiscard]] bool refresh_candidates();
  void choose_search(FolderStamps& stamps, const std::vector<FoundFile>& found);
  /// A sentence about what is left alone.
  [[nodiscard]] std::optional<std::string> notice_about(FolderStamps& stamps, const std::vector<FoundFile>& found,
                                                        std::size_t headers);
  void take_notice(std::optional<std::string> notice);
  [[nodiscard]] std::vector<FoundFile> wanted(FolderStamps& stamps, std::vector<FoundFile> found);
  /// Names of images that stand in a header of the input folder.
  [[nodiscard]] std::unordered_set<std::string> images_of_headers(FolderStamps& stamps,
                                                                  const std::vector<FoundFile>& found);
  [[nodiscard]] const std::vector<std::string>& files_named(FolderStamps& stamps, const FoundFile& header);
  [[nodiscard]] CaptureFiles files_of(FolderStamps& stamps, const FoundFile& main_file);
  void update(FolderStamps& stamps, const FoundFile& found);
  void judge(const std::string& name, Candidate& candidate);
  void report_incomplete();

  // Working.
  [[nodiscard]] Queue queue();
  void work(common::TimePoint began);
  void process(const std::string& name, Candidate& candidate);
  /// Whether its files are as they were when the poll looked.
  [[nodiscard]] bool is_unchanged(const std::string& name, const Candidate& candidate);
  [[nodiscard]] bool is_done_already(const std::string& name, const CaptureIdentity& identity);
  [[nodiscard]] CaptureIdentity identify(const Candidate& candidate) const;
  [[nodiscard]] std::shared_ptr<model::CaptureSet> load(const std::string& name, const Candidate& candidate) const;
  void run(const CaptureIdentity& identity, const std::shared_ptr<model::CaptureSet>& capture);
  /// What the run that wrote this results folder said; nothing where it wrote no numbers.
  [[nodiscard]] Remarks remarks_of(const std::string& folder) const;
  void finish(const CaptureIdentity& identity, const std::string& folder, const Remarks& remarks,
              WatcherEvent::Kind kind);
  void note_failure(const std::string& name, Candidate& candidate, const std::string& key, const std::string& error);

  // Telling.
  void tell(WatcherEvent event);
  /// Tells that rows left the table.
  void look_for_gone_results();
  void report_problem(Topic topic, const std::string& text);
  void solve(Topic topic, const std::string& text);
  [[nodiscard]] bool is_idle();
  void write_status();

  const WatcherArguments _arguments;
  const common::CancelEvent& _cancel_event;
  const common::Path _input;
  const common::Path _output;
  const common::Path _workflow_file;
  std::optional<FolderLock> _lock;
  std::optional<WatchJournal> _journal;
  std::optional<WatchTable> _table;
  std::string _begun_key;  ///< of the run that this watch began last
  model::Executor _executor;

  bool _is_announced = false;
  bool _has_begun = false;
  std::int64_t _next_order = 0;
  std::map<std::string, Candidate> _candidates;  ///< by the name of the main file
  std::set<std::string> _names_at_first;         ///< what `once` is about
  bool _has_looked = false;
  std::optional<std::string> _told_notice;  ///< while it stands
  struct NamedByHeader {
    FileStamp header;
    std::optional<FileStamp> references;  ///< of the file with further references, where it names one that is there
    std::vector<std::string> files;
  };
  std::unordered_map<std::string, NamedByHeader> _named_by_headers;

  std::string _new_workflow_text;  ///< with its stamps, as it was at the last poll
  bool _is_workflow_settling = false;
  std::string _workflow_text;    ///< of the workflow that runs
  std::string _workflow_stamps;  ///< of the files that its parameters name
  std::shared_ptr<const model::Workflow> _workflow;
  std::string _workflow_hash;

  std::map<Topic, std::string> _problems;
  WatchStatus _status;
  std::optional<WatchStatus> _written_status;
  common::TimePoint _status_time;
};

}  // namespace orvexa::controller
