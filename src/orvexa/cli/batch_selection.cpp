#include "orvexa/cli/batch_selection.h"

#include <fmt/format.h>

#include <filesystem>
#include <set>
#include <string_view>
#include <system_error>

#include "orvexa/cli/command_info.h"
#include "orvexa/common/files.h"
#include "orvexa/common/text.h"

namespace orvexa::cli {

namespace {

namespace fs = std::filesystem;
using common::Path;

/// `stack.tif[2]` is there when `stack.tif` is.
bool is_there(const Path& input) {
  std::error_code ignored;
  if (fs::exists(input, ignored)) return true;
  const std::string name = input.filename().string();
  return name.ends_with(']') && fs::is_regular_file(input.parent_path() / name.substr(0, name.rfind('[')), ignored);
}

void expect_there(const std::vector<std::string>& inputs) {
  std::vector<std::string> missing;
  for (const std::string& input : inputs) {
    if (input.empty()) throw UsageError("orvexa batch: an INPUT is empty; see orvexa batch --help.");
    if (!is_there(input)) missing.push_back(common::path_text(input));
  }
  if (missing.empty()) return;
  throw UsageError(fmt::format("There is no file or folder {}.", common::joined(missing, ", ")));
}

std::string_view wanted_text(FolderSearch search) {
  switch (search) {
    case FolderSearch::captures:
      return "no capture (HDR_*.INF)";
    case FolderSearch::images:
      return "no image file";
    default:
      return "no capture (HDR_*.INF) and no image file";
  }
}

std::vector<Path> files_in(const controller::Controller& controller, const Path& folder, FolderSearch search) {
  if (search == FolderSearch::images) return controller._find_batch_image_files(folder);
  std::vector<Path> files = controller._find_batch_hdr_files(folder);
  if (files.empty() && search == FolderSearch::captures_else_images) return controller._find_batch_image_files(folder);
  return files;
}

/// Says where the files lie when they are one level deeper, as they often do.
std::string empty_folder_sentence(const controller::Controller& controller, const Path& folder, FolderSearch search) {
  std::string sentence =
      fmt::format("{}: there is {} directly in this folder", common::path_text(folder), wanted_text(search));
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    std::error_code ignored;
    if (!entry.is_directory(ignored) || files_in(controller, entry.path(), search).empty()) continue;
    return sentence + fmt::format("; folders inside it are searched when they are given, as with {}.",
                                  common::path_text(folder / "*"));
  }
  return sentence + ".";
}

/// One file has one identity however it was given; a link is a file of its own name.
Path identity(const Path& file) {
  std::error_code ignored;
  return fs::weakly_canonical(fs::absolute(file, ignored).parent_path(), ignored) / file.filename();
}

}  // namespace

BatchSelection select_batch_files(const controller::Controller& controller, const std::vector<std::string>& inputs,
                                  FolderSearch search) {
  expect_there(inputs);
  BatchSelection selection;
  std::set<Path> known;
  const auto take = [&](const Path& file) {
    if (known.insert(identity(file)).second) selection.files.push_back(file);
  };
  for (const std::string& text : inputs) {
    const Path input = text;
    if (!fs::is_directory(input)) {
      take(input);
      continue;
    }
    std::error_code failure;
    const fs::directory_iterator can_be_read(input, failure);
    if (failure) {
      throw UsageError(
          fmt::format("{}: this folder cannot be searched: {}.", common::path_text(input), failure.message()));
    }
    const std::vector<Path> found = files_in(controller, input, search);
    if (found.empty()) selection.remarks.push_back(empty_folder_sentence(controller, input, search));
    for (const Path& file : found) take(file);
  }
  if (selection.files.empty()) {
    throw UsageError(inputs.size() == 1 ? selection.remarks.front()
                                        : fmt::format("There is {} in the {} folders that were given.",
                                                      wanted_text(search), inputs.size()));
  }
  return selection;
}

}  // namespace orvexa::cli
