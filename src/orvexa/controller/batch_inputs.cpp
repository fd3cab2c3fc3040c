#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "orvexa/common/files.h"
#include "orvexa/common/logger.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/failure_text.h"

namespace orvexa::controller {

using common::logger;
using common::path_text;
using model::failure_text;

namespace {

constexpr std::array<std::string_view, 1> capture_patterns{"HDR_*.INF"};
/// Each in both cases; "a.Png" is not among them.
constexpr std::array<std::string_view, 14> image_patterns{"*.png",  "*.PNG", "*.jpg", "*.JPG",  "*.jpeg",
                                                          "*.JPEG", "*.tif", "*.TIF", "*.tiff", "*.TIFF",
                                                          "*.bmp",  "*.BMP", "*.gif", "*.GIF"};

/// An empty path is what a dialog gives back when it was closed without a choice.
bool is_given(const std::optional<Path>& path) {
  return path && !path->empty();
}

std::string folder_text(const std::optional<Path>& folder) {
  return folder ? path_text(*folder) : "None";
}

/// What lies directly inside a folder and has a name of one of the patterns, but for further folders; in ascending
/// order.
template <std::size_t count>
std::vector<Path> matching_files(const Path& folder, const std::array<std::string_view, count>& patterns) {
  std::vector<Path> files;
  std::error_code error;
  std::filesystem::directory_iterator entry(folder, error);
  for (const std::filesystem::directory_iterator end; !error && entry != end; entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    const bool matches = std::any_of(patterns.begin(), patterns.end(),
                                     [&](std::string_view pattern) { return common::fnmatch(name, pattern); });
    std::error_code unknown;
    if (matches && !entry->is_directory(unknown)) files.push_back(entry->path());
  }
  if (error) throw std::runtime_error("The folder cannot be read: " + error.message() + ".");
  std::sort(files.begin(), files.end());
  return files;
}

/// What differs between the two kinds of batch input.
struct InputKind {
  std::string_view operation;
  std::string_view folder_kind;  ///< in the first log line
  std::string_view files_found;
  std::string_view files_missed;
};

constexpr InputKind captures{"set_batch_input_folder", "batch input folder", "HDR_*.INF files", "HDR files"};
constexpr InputKind images{"set_batch_input_image_folder", "batch input image folder", "image files", "image files"};

/// @param folder  a copy: the caller's may be a field of the state that the reset clears.
template <typename Search>
void set_input_folder(Controller& controller, const InputKind& kind, std::optional<Path> folder, const Search& search) {
  AppState& state = controller.state;
  const std::string text = folder_text(folder);
  logger.info(fmt::format("Controller.{}: Setting {} to {}", kind.operation, kind.folder_kind, text));
  if (state.batch_input_folder != folder) state.reset_system_state();
  // What was selected by hand goes also when the folder is the one it was.
  if (is_given(state.current_file) || is_given(state.current_folder)) state.reset_system_state();
  state.batch_input_folder = std::move(folder);
  const bool is_chosen = is_given(state.batch_input_folder);
  state.message = is_chosen ? "Batch input folder set: " + text : "No batch input folder selected";
  state.error.reset();
  state.batch_file_list.emplace();
  if (is_chosen) {
    try {
      state.batch_file_list = search(*state.batch_input_folder);
      logger.info(
          fmt::format("Found {} {} in batch folder: {}", state.batch_file_list->size(), kind.files_found, text));
    } catch (...) {
      logger.error(fmt::format("Error finding {} in batch folder {}: {}", kind.files_missed, text, failure_text()));
      state.batch_file_list.emplace();
    }
  }
  controller.refresh_all_panels();
}

}  // namespace

void Controller::set_batch_input_folder(const std::optional<Path>& folder) {
  set_input_folder(*this, captures, folder, [this](const Path& given) { return _find_batch_hdr_files(given); });
}

void Controller::set_batch_input_image_folder(const std::optional<Path>& folder) {
  set_input_folder(*this, images, folder, [this](const Path& given) { return _find_batch_image_files(given); });
}

std::vector<Path> Controller::_find_batch_hdr_files(const Path& folder) const {
  try {
    return matching_files(folder, capture_patterns);
  } catch (...) {
    logger.error(fmt::format("Error scanning folder {} for HDR files: {}", path_text(folder), failure_text()));
    return {};
  }
}

std::vector<Path> Controller::_find_batch_image_files(const Path& folder) const {
  try {
    return matching_files(folder, image_patterns);
  } catch (...) {
    logger.error(fmt::format("Error scanning folder {} for image files: {}", path_text(folder), failure_text()));
    return {};
  }
}

void Controller::set_batch_output_folder(const std::optional<Path>& folder) {
  state.batch_output_folder = folder;
  state.message =
      is_given(folder) ? "Batch output folder set: " + path_text(*folder) : "No batch output folder selected";
  state.error.reset();
  refresh_all_panels();
}

void Controller::set_batch_file_list(const std::optional<std::vector<Path>>& file_list) {
  state.batch_file_list = file_list;
  const std::size_t count = file_list ? file_list->size() : 0;
  state.message = count > 0 ? fmt::format("Batch file list set: {} files", count) : "Batch file list cleared";
  state.error.reset();
  refresh_all_panels();
}

}  // namespace orvexa::controller
