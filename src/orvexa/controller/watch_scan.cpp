#include "orvexa/controller/watch_scan.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <stdexcept>
#include <system_error>
#include <tuple>
#include <utility>

#include "orvexa/common/text.h"
#include "orvexa/model/entities/capture_loader.h"

namespace orvexa::controller {

namespace fs = std::filesystem;
using common::Path;

namespace {

bool is_header_name(const std::string& name) {
  return common::fnmatch(name, "HDR_*.INF");
}

bool is_image_name(const std::string& name) {
  return !name.starts_with('.') && model::is_image_file_name(name);
}

}  // namespace

std::optional<FileStamp> stamp_of(const Path& file) {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  constexpr std::int64_t second = 1'000'000'000;
  return FileStamp{.bytes = static_cast<std::uintmax_t>(status.st_size),
                   .modified_ns = std::int64_t{status.st_mtim.tv_sec} * second + status.st_mtim.tv_nsec,
                   .inode = status.st_ino};
}

std::vector<FoundFile> find_files_to_watch(const Path& folder) {
  std::vector<FoundFile> found;
  std::error_code failure;
  for (fs::directory_iterator entry(folder, failure), end; !failure && entry != end; entry.increment(failure)) {
    const std::string name = entry->path().filename().string();
    const bool is_header = is_header_name(name);
    if (!is_header && !is_image_name(name)) continue;
    if (const auto stamp = stamp_of(entry->path())) found.push_back({name, *stamp, is_header});
  }
  if (failure) {
    throw std::runtime_error(
        fmt::format("The input folder \"{}\" cannot be read: {}.", common::path_text(folder), failure.message()));
  }
  std::sort(found.begin(), found.end(), [](const FoundFile& a, const FoundFile& b) {
    return std::tie(a.stamp.modified_ns, a.name) < std::tie(b.stamp.modified_ns, b.name);
  });
  return found;
}

bool holds_header(const Path& folder) {
  std::error_code failure;
  for (fs::directory_iterator entry(folder, failure), end; !failure && entry != end; entry.increment(failure)) {
    if (is_header_name(entry->path().filename().string()) && stamp_of(entry->path())) return true;
  }
  return false;
}

FolderStamps::FolderStamps(Path folder, const std::vector<FoundFile>& found) : _folder(std::move(folder)) {
  _stamps.reserve(found.size());
  for (const FoundFile& file : found) _stamps.emplace(file.name, file.stamp);
}

std::optional<FileStamp> FolderStamps::of(const std::string& name) {
  const auto [position, is_new] = _stamps.try_emplace(name);
  if (is_new) position->second = stamp_of(_folder / name);
  return position->second;
}

CaptureFiles capture_files(FolderStamps& stamps, const FoundFile& main_file, const std::vector<std::string>& named) {
  CaptureFiles capture;
  capture.files.push_back({main_file.name, main_file.stamp});
  for (const std::string& image : named) {
    std::string name = image;
    auto stamp = stamps.of(name);
    if (!stamp) {
      name = model::file_of_image_name(stamps.folder() / image).lexically_relative(stamps.folder()).string();
      if (name != image) stamp = stamps.of(name);
    }
    const auto is_this = [&](const WatchedFile& file) { return file.name == name; };
    if (!stamp) {
      if (std::find(capture.missing.begin(), capture.missing.end(), name) == capture.missing.end()) {
        capture.missing.push_back(name);
      }
    } else if (std::none_of(capture.files.begin(), capture.files.end(), is_this)) {
      capture.files.push_back({name, *stamp});
    }
  }
  return capture;
}

}  // namespace orvexa::controller
