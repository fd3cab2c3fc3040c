#include "orvexa/cli/batch_report.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "orvexa/cli/console.h"
#include "orvexa/cli/mask_notes.h"
#include "orvexa/cli/session.h"
#include "orvexa/common/files.h"
#include "orvexa/common/ordered_map.h"
#include "orvexa/common/text.h"

namespace orvexa::cli {

namespace {

using controller::BatchFileFailure;
using controller::BatchFileSuccess;

std::string operation_sentence(const std::string& operation, const std::string& error) {
  return error.starts_with(operation) ? error : operation + ": " + error;
}

std::string count_text(std::size_t count, const std::string& thing) {
  return fmt::format("{} {}{}", count, thing, count == 1 ? "" : "s");
}

/// The first names; `--json` names every one.
std::string names_text(const std::vector<std::string>& files) {
  constexpr std::size_t shown = 3;
  const std::vector<std::string> first(files.begin(),
                                       files.begin() + static_cast<std::ptrdiff_t>(std::min(shown, files.size())));
  std::string text = common::visible_text(common::joined(first, ", "));
  if (files.size() > shown) text += fmt::format(" and {} more", files.size() - shown);
  return text;
}

/// A sentence and the files of which it is said.
std::string sentence_text(const std::string& sentence, const std::vector<std::string>& files) {
  return fmt::format("  {}\n    {}: {}\n", sentence, count_text(files.size(), "file"), names_text(files));
}

/// Empty when there is nothing to say.
std::string with_title(const std::string& title, const std::string& text) {
  return text.empty() ? text : title + ":\n" + text + "\n";
}

using FilesBySentence = common::OrderedMap<std::vector<std::string>>;

/// Files of which the same is said share its sentence.
std::string sentences_text(const std::string& title, const FilesBySentence& files_by_sentence) {
  std::string text;
  for (const auto& [sentence, files] : files_by_sentence) text += sentence_text(sentence, files);
  return with_title(title, text);
}

/// What a sentence says of the file that it names at its beginning.
std::string without_file(const std::string& sentence, const std::string& file) {
  const std::string path = common::path_text(file);
  for (const char* separator : {": ", ", "}) {
    if (sentence.starts_with(path + separator)) return sentence.substr(path.size() + 2);
  }
  return sentence;
}

/// Files that failed for the same reason share its sentence; one that failed for a reason of its own is named in it.
std::string failures_text(const BatchOutcome& outcome) {
  FilesBySentence files_by_reason;
  for (const BatchFileFailure& failure : outcome.summary.failed_files) {
    if (failure.is_interrupted) continue;
    files_by_reason[without_file(outcome.reasons.at(failure.file), failure.file)].push_back(failure.file);
  }
  std::string text;
  for (const auto& [reason, files] : files_by_reason) {
    text += files.size() == 1 ? fmt::format("  {}\n", common::visible_text(outcome.reasons.at(files.front())))
                              : sentence_text(common::visible_text(reason), files);
  }
  return with_title("Failed files", text);
}

std::string operation_errors_text(const std::vector<BatchFileSuccess>& successful) {
  FilesBySentence files_by_sentence;
  for (const BatchFileSuccess& success : successful) {
    for (const auto& [operation, error] : success.operation_errors) {
      files_by_sentence[common::visible_text(operation_sentence(operation, error))].push_back(success.file);
    }
  }
  return sentences_text("Failed operations", files_by_sentence);
}

/// Without what is no more than a remark, such as the level that a step found.
std::string mask_warnings_text(const std::vector<BatchFileSuccess>& successful) {
  FilesBySentence files_by_sentence;
  for (const BatchFileSuccess& success : successful) {
    for (const model::MaskNote& note : success.mask_notes) {
      if (!is_warning(note)) continue;
      files_by_sentence[common::visible_text(note_sentence(note))].push_back(success.file);
    }
  }
  return sentences_text("Warnings about masks", files_by_sentence);
}

common::Value mask_notes_document(const std::vector<BatchFileSuccess>& successful) {
  common::Value list = common::Value::array();
  for (const BatchFileSuccess& success : successful) {
    for (const model::MaskNote& note : success.mask_notes) {
      list.push_back(
          {{"file", success.file}, {"step", note.step}, {"op", note.op}, {"note", common::to_valid_utf8(note.text)}});
    }
  }
  return list;
}

std::string numbers_text(const BatchOutcome& outcome) {
  const controller::BatchSummary& summary = outcome.summary;
  TextTable table;
  table.add({"Workflow", common::visible_text(summary.workflow_title.value_or(""))});
  const auto with_errors = std::count_if(summary.successful_files.begin(), summary.successful_files.end(),
                                         [](const auto& success) { return !success.operation_errors.empty(); });
  std::string successful = std::to_string(summary.successful_files.size());
  if (with_errors > 0) successful += fmt::format(" ({} of them with failed operations)", with_errors);
  table.add({"Successful", successful});
  const auto interrupted = std::ranges::find_if(summary.failed_files, &BatchFileFailure::is_interrupted);
  const bool is_interrupted = interrupted != summary.failed_files.end();
  table.add({"Failed", std::to_string(summary.failed_files.size() - (is_interrupted ? 1 : 0))});
  if (is_interrupted) table.add({"Interrupted", common::visible_text(interrupted->file)});
  if (outcome.not_reached() > 0) table.add({"Not reached", std::to_string(outcome.not_reached())});
  table.add({"Total", count_text(static_cast<std::size_t>(summary.total_files), "file")});
  if (outcome.taken_over > 0) table.add({"Done before", count_text(outcome.taken_over, "file")});
  const std::size_t done = summary.successful_files.size() + summary.failed_files.size();
  std::string time = duration_text(outcome.seconds);
  if (done > 0 && outcome.seconds > 0) {
    time += fmt::format(" ({})", rate_text(static_cast<double>(done) / outcome.seconds));
  }
  table.add({"Time", time});
  if (summary.batch_folder) {
    const std::filesystem::path folder = *summary.batch_folder;
    table.add({"Run folder", common::visible_text(*summary.batch_folder)});
    if (const auto rows = folder / "batch_aggregated_results.txt"; std::filesystem::exists(rows)) {
      table.add({"Table", common::visible_text(common::path_text(rows))});
    }
  }
  return table.text();
}

}  // namespace

std::size_t BatchOutcome::not_reached() const {
  return static_cast<std::size_t>(summary.total_files) - summary.successful_files.size() - summary.failed_files.size();
}

bool BatchOutcome::has_operation_errors() const {
  return std::any_of(summary.successful_files.begin(), summary.successful_files.end(),
                     [](const BatchFileSuccess& success) { return !success.operation_errors.empty(); });
}

int BatchOutcome::exit_code() const {
  if (is_interrupted) return exit_interrupted;
  if (summary.successful_files.empty() && summary.total_files > 0) return exit_nothing_succeeded;
  const bool is_complete = not_reached() == 0 && summary.failed_files.empty() && summary.unwritten.empty();
  return is_complete && !has_operation_errors() ? exit_done : exit_failed;
}

std::string failure_sentence(const BatchFileFailure& failure, const std::string& load_error) {
  const std::filesystem::path file = failure.file;
  // Of a load the summary says no more than that it failed; the reason is in the controller's state.
  if (failure.error.starts_with("Failed to load capture from: ")) return load_failure_sentence(file, load_error);
  const std::string prefix = fmt::format("Error processing {}: ", common::path_text(file.filename()));
  return sentence_naming(file, failure.error.starts_with(prefix) ? failure.error.substr(prefix.size()) : failure.error);
}

std::string operation_errors_text(const BatchFileSuccess& success) {
  std::string text;
  for (const auto& [operation, error] : success.operation_errors) {
    text += (text.empty() ? "" : " ") + operation_sentence(operation, error);
  }
  return text;
}

std::string batch_report_text(const BatchOutcome& outcome) {
  const std::vector<BatchFileSuccess>& successful = outcome.summary.successful_files;
  return failures_text(outcome) + operation_errors_text(successful) + mask_warnings_text(successful) +
         numbers_text(outcome);
}

common::Value batch_report_document(const BatchOutcome& outcome) {
  common::Value document = outcome.summary.to_value();
  common::Value& failed = document.at("failed_files");
  for (std::size_t i = 0; i < failed.size(); ++i) {
    const BatchFileFailure& failure = outcome.summary.failed_files[i];
    failed[i]["reason"] = outcome.reasons.at(failure.file);
    failed[i]["interrupted"] = failure.is_interrupted;
  }
  document["mask_notes"] = mask_notes_document(outcome.summary.successful_files);
  document["not_reached"] = outcome.not_reached();
  document["done_before"] = outcome.taken_over;
  document["interrupted"] = outcome.is_interrupted;
  document["seconds"] = outcome.seconds;
  document["unwritten"] = outcome.summary.unwritten;
  return document;
}

}  // namespace orvexa::cli
