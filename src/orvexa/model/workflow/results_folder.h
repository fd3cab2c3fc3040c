#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/common/files.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// The folder of results cannot be made, written to or given its name: nothing is wrong with the capture.
class ResultsFolderError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The folder that a run fills. While it is being filled it is a hidden sibling `.NAME.partial-<random>` that holds a
/// lock of its own (flock on the folder, which ends with the process); `publish()` gives it its name in one step. So a
/// folder that can be seen is complete, and a run that ends otherwise leaves nothing: the destructor removes the hidden
/// folder and every folder above it that the run had to make. What a killed process left is removed by the next run in
/// the same place.
class ResultsFolder {
 public:
  /// Makes the hidden folder, and `output_base_dir` with its parents where it is missing.
  /// @param capture_name  any text; the folder's name is made from it by `safe_file_name`.
  /// @throws ResultsFolderError with a sentence that names the folder and the system's reason.
  ResultsFolder(std::filesystem::path output_base_dir, std::string_view capture_name);
  ~ResultsFolder();
  ResultsFolder(const ResultsFolder&) = delete;
  ResultsFolder& operator=(const ResultsFolder&) = delete;

  /// @throws ResultsFolderError with a sentence that says how much is needed and how much is there, when the file
  /// system has less than `bytes` left for this user.
  void expect_free_space(std::uintmax_t bytes) const;

  /// Writes one file. Thread-safe. Looks at the cancellation flag after every megabyte.
  /// @param relative  "metrics.json", "masks/final.png"; must not exist yet.
  /// @throws ResultsFolderError with a sentence that names the file and the system's reason; CancelledError.
  void write(const std::filesystem::path& relative, std::span<const std::byte> bytes, const RunContext& context);

  /// Flushes all files and folders to disk and renames the hidden one to NAME, or NAME_2, NAME_3, ... where that is
  /// taken, without ever replacing anything.
  /// @return `output_base_dir` / the name it got.
  /// @throws ResultsFolderError with a sentence that names the file or folder and the system's reason.
  [[nodiscard]] std::filesystem::path publish();

  /// Where files are while the run lasts.
  [[nodiscard]] const std::filesystem::path& partial() const { return _partial; }

 private:
  void make_hidden_folder();
  void make_base_folder();
  void remove_what_was_made() noexcept;
  void flush_side_by_side(const std::vector<std::filesystem::path>& relative) const;
  [[nodiscard]] ResultsFolderError write_error(const std::filesystem::path& relative, int error) const;

  std::filesystem::path _base;
  std::string _name;
  std::filesystem::path _partial;
  std::vector<std::filesystem::path> _made_above;  ///< folders that did not exist before the run, outermost first
  std::mutex _mutex;                               ///< guards the two below
  std::set<std::filesystem::path> _subfolders;
  std::vector<std::filesystem::path> _written;
  int _lock = -1;
};

/// What a run on a capture of that name publishes when the first `number` - 1 names are taken: NAME, NAME_2, NAME_3...
[[nodiscard]] std::filesystem::path results_folder_path(const std::filesystem::path& output_base_dir,
                                                        std::string_view capture_name, int number);

/// Removes hidden folders of runs that died in `output_base_dir`: those that nobody holds locked. What cannot be
/// removed stays and is logged as a warning.
void remove_left_over_results(const std::filesystem::path& output_base_dir);

/// Renames a folder or a file unless the new name is taken.
/// @return false when it is taken. @throws std::system_error for anything else.
[[nodiscard]] bool rename_to_free_name(const std::filesystem::path& from, const std::filesystem::path& to);
/// The same for file systems whose rename cannot be told not to replace: takes the name with an empty folder first.
[[nodiscard]] bool rename_over_own_empty_folder(const std::filesystem::path& from, const std::filesystem::path& to);

/// Names of files without suffix inside one folder, each used once.
class FileNames {
 public:
  /// The wanted name made safe by `safe_file_name`, with _2, _3, ... where that is taken.
  [[nodiscard]] std::string unique(std::string_view wanted);

 private:
  std::set<std::string> _taken;
};

/// "1.5 MB": a number of bytes for people, in powers of 1000.
[[nodiscard]] std::string size_text(std::uintmax_t bytes);

}  // namespace orvexa::model
