#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "orvexa/common/cancel.h"
#include "orvexa/common/descriptor.h"
#include "orvexa/common/files.h"
#include "orvexa/common/ordered_map.h"
#include "orvexa/controller/batch_reports.h"
#include "orvexa/model/entities/capture_set.h"
#include "orvexa/model/workflow/model.h"
#include "orvexa/model/workflow/parameter_files.h"

namespace orvexa::controller {

/// A finished file of a batch.
struct BatchJournalEntry {
  common::Path file = {};
  bool is_done = false;                    ///< else it failed
  bool is_interrupted = false;             ///< a cancellation met it at work, which is why it is not done
  std::string content_sha256 = {};         ///< of its input files; empty when they could not be read
  std::vector<common::Path> sources = {};  ///< the input files: the header and its images, or the one image
  common::Path output_folder = {};         ///< its results, when it is done
  common::OrderedMap<std::string> operation_errors = {};
  std::string error = {};           ///< the sentence, when it failed
  std::string reason = {};          ///< why it could not be loaded, when that is what failed
  std::vector<BatchRow> rows = {};  ///< its part of the combined table
};

/// The record of a run folder, "batch_journal.jsonl": a line about the run, then a line a finished file, each there as
/// soon as the file is finished, so that a batch that was killed can be resumed.
struct BatchJournal {
  common::Path run_folder = {};
  std::string workflow_title = {};
  std::string workflow_sha256 = {};
  std::string started = {};                     ///< local time, "2024-01-31T15:45:02+0100"
  std::vector<common::Path> files = {};         ///< all that were selected, in their order, each once
  std::vector<BatchJournalEntry> entries = {};  ///< the last word on each finished file
};

inline constexpr const char* batch_journal_name = "batch_journal.jsonl";

/// What a run takes over from an earlier one: the whole selection, in its order, and the entries of those of its files
/// that are not done again.
struct BatchTakeover {
  std::vector<common::Path> selection;
  std::vector<BatchJournalEntry> entries;
};

/// How a batch goes on.
struct BatchResumption {
  std::vector<common::Path> to_do;    ///< in the order of the selection: what is not done, failed, or changed
  std::vector<common::Path> changed;  ///< those of them that were done: other content now, or the results are gone
  BatchTakeover earlier;              ///< for `Controller::BatchRun`
};

using model::workflow_sha256;
/// SHA-256 over the digests of a capture's input files; empty for a capture that was read from none.
[[nodiscard]] std::string content_sha256(const std::vector<model::SourceFile>& sources);

/// Reads the journal of a run folder; relative file names in it are resolved as they were meant when it was written. A
/// line that was torn by a crash, or is damaged, is left out (its file counts as not finished) and logged. Where two
/// runs began in one folder in the same second they are read as one.
/// @throws std::runtime_error with a sentence: there is none, it is no journal, of a newer program, or of two runs with
/// different workflows.
[[nodiscard]] BatchJournal read_batch_journal(const common::Path& run_folder);

/// @throws std::runtime_error with a sentence when the journal's batch ran another workflow.
void expect_same_workflow(const BatchJournal& journal, const model::Workflow& workflow);

/// What is left to do; reads the input files of what is done to see whether they changed.
/// @param cancel_event  may be null. @throws model::CancelledError
[[nodiscard]] BatchResumption plan_batch_resumption(BatchJournal journal,
                                                    const common::CancelEvent* cancel_event = nullptr);

/// The files that failed, in the order of the selection; one that was interrupted did not.
[[nodiscard]] std::vector<common::Path> failed_files(const BatchJournal& journal);

/// Appends to the journal of a run folder, a whole line at a time, in one write that is on the disk when it returns, so
/// that a power failure costs at most the file at work. Nothing that is there is ever cut off: another run that began
/// in the same second may be writing to the same file. A journal that is there already goes on with the new lines; one
/// that is taken away meanwhile, perhaps with the whole folder, begins anew with the next line.
/// @throws std::runtime_error with a sentence, from each of its functions.
class BatchJournalWriter {
 public:
  /// Writes the line about the run: everything of `journal` but its entries.
  explicit BatchJournalWriter(const BatchJournal& journal);

  void add(const BatchJournalEntry& entry);

 private:
  void begin();
  void append(std::string line);
  [[noreturn]] void fail(int error) const;

  common::Path _run_folder;
  common::Path _file;
  std::string _header;  ///< the line about the run
  common::Descriptor _descriptor;
  bool _has_begun = false;           ///< the header is written
  bool _ends_inside_a_line = false;  ///< a write that failed left a part of a line
};

}  // namespace orvexa::controller
