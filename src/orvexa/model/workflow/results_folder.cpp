#include "orvexa/model/workflow/results_folder.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "orvexa/common/descriptor.h"
#include "orvexa/common/logger.h"

namespace orvexa::model {

namespace fs = std::filesystem;
using common::Descriptor;
using common::path_text;

namespace {

constexpr std::string_view partial_mark = ".partial-";
constexpr std::size_t random_digits = 8;

std::string reason_text(int error) {
  return std::generic_category().message(error);
}

/// 0 when what was written is on the disk, or on a file system that has nothing to flush; else the system's reason.
int flush_error(const fs::path& path) {
  const Descriptor opened(path, O_RDONLY);
  if (!opened.is_open()) return errno;
  return fsync(opened.get()) == 0 || errno == EINVAL || errno == ENOTSUP ? 0 : errno;
}

ResultsFolderError folder_error(const fs::path& folder, std::string_view what, int error) {
  return ResultsFolderError(fmt::format("The folder \"{}\" {}: {}.", path_text(folder), what, reason_text(error)));
}

bool is_partial_name(std::string_view name) {
  if (name.size() <= 1 + partial_mark.size() + random_digits || name.front() != '.') return false;
  const std::string_view digits = name.substr(name.size() - random_digits);
  const std::string_view before = name.substr(0, name.size() - random_digits);
  return before.ends_with(partial_mark) && digits.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

/// What `rename_over_own_empty_folder` is for a folder: a file cannot be renamed over one, but be given a second name,
/// which is refused where it is taken.
bool rename_by_second_name(const fs::path& from, const fs::path& to) {
  if (link(from.c_str(), to.c_str()) != 0) {
    if (errno == EEXIST) return false;
    throw std::system_error(errno, std::generic_category());
  }
  if (unlink(from.c_str()) != 0) {
    const int error = errno;
    unlink(to.c_str());
    throw std::system_error(error, std::generic_category());
  }
  return true;
}

}  // namespace

fs::path results_folder_path(const fs::path& output_base_dir, std::string_view capture_name, int number) {
  const std::string name = common::safe_file_name(capture_name);
  return output_base_dir / (number == 1 ? name : fmt::format("{}_{}", name, number));
}

std::string FileNames::unique(std::string_view wanted) {
  const std::string name = common::safe_file_name(wanted);
  std::string free = name;
  for (int number = 2; !_taken.insert(free).second; ++number) free = fmt::format("{}_{}", name, number);
  return free;
}

std::string size_text(std::uintmax_t bytes) {
  static constexpr const char* units[] = {"bytes", "kB", "MB", "GB", "TB"};
  auto size = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (size >= 1000 && unit + 1 < std::size(units)) {
    size /= 1000;
    ++unit;
  }
  return unit == 0 ? fmt::format("{} bytes", bytes) : fmt::format("{:.1f} {}", size, units[unit]);
}

ResultsFolder::ResultsFolder(fs::path output_base_dir, std::string_view capture_name)
    : _base(output_base_dir.empty() ? fs::path(".") : std::move(output_base_dir)),
      _name(common::safe_file_name(capture_name)) {
  remove_left_over_results(_base);
  try {
    make_hidden_folder();
  } catch (...) {
    remove_what_was_made();
    throw;
  }
}

ResultsFolder::~ResultsFolder() {
  remove_what_was_made();
}

void ResultsFolder::make_base_folder() {
  std::vector<fs::path> missing;
  std::error_code ignored;
  for (fs::path folder = _base.has_filename() ? _base : _base.parent_path();
       !folder.empty() && !fs::exists(folder, ignored); folder = folder.parent_path()) {
    missing.push_back(folder);
    if (folder == folder.parent_path()) break;
  }
  for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
    if (mkdir(folder->c_str(), 0777) == 0) {
      if (std::find(_made_above.begin(), _made_above.end(), *folder) == _made_above.end()) {
        _made_above.push_back(*folder);
      }
    } else if (errno != EEXIST) {
      throw folder_error(_base, "cannot be made", errno);
    }
  }
}

void ResultsFolder::make_hidden_folder() {
  // Each round can be spoilt by another run at the same place: one that failed may remove the empty base folder that
  // both wanted to make, and one that starts may take the new folder for a left-over until its lock is held.
  constexpr int rounds = 100;
  for (int round = 0; round < rounds; ++round) {
    make_base_folder();
    const fs::path folder = _base / fmt::format(".{}{}{}", _name, partial_mark, common::random_suffix());
    if (mkdir(folder.c_str(), 0777) != 0) {
      if (errno == EEXIST || errno == ENOENT) continue;
      throw folder_error(_base, "cannot be written to", errno);
    }
    Descriptor opened(folder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    if (!opened.is_open()) {
      if (errno == ENOENT) continue;
      const int error = errno;
      rmdir(folder.c_str());
      throw folder_error(_base, "cannot be written to", error);
    }
    // A network file system without locks on folders refuses this for everybody, so nobody removes the folder there.
    while (flock(opened.get(), LOCK_EX) != 0 && errno == EINTR) {
    }
    if (!opened.is_at(folder)) continue;
    _partial = folder;
    _lock = opened.release();
    return;
  }
  throw ResultsFolderError(fmt::format(
      "The folder \"{}\" cannot be written to: other runs keep removing what is made in it.", path_text(_base)));
}

void ResultsFolder::remove_what_was_made() noexcept {
  try {
    std::error_code error;
    if (!_partial.empty()) {
      fs::remove_all(_partial, error);
      if (error) {
        common::logger.warning(
            fmt::format("ResultsFolder: \"{}\" could not be removed: {}.", path_text(_partial), error.message()));
      }
      _partial.clear();
    }
    for (auto folder = _made_above.rbegin(); folder != _made_above.rend(); ++folder) rmdir(folder->c_str());
    _made_above.clear();
  } catch (...) {
    // Only memory can fail here; the lock is released below and the next run removes what is left.
  }
  if (_lock >= 0) close(std::exchange(_lock, -1));
}

void ResultsFolder::expect_free_space(std::uintmax_t bytes) const {
  struct statvfs space {};
  if (statvfs(_partial.c_str(), &space) != 0) return;  // unknown: writing will tell
  const std::uintmax_t available = std::uintmax_t{space.f_bavail} * space.f_frsize;
  if (available < bytes) {
    throw ResultsFolderError(fmt::format("The folder \"{}\" has {} left, and the results may need {}.",
                                         path_text(_base), size_text(available), size_text(bytes)));
  }
}

void ResultsFolder::write(const fs::path& relative, std::span<const std::byte> bytes, const RunContext& context) {
  if (relative.has_parent_path()) {
    const std::lock_guard lock(_mutex);
    if (_subfolders.insert(relative.parent_path()).second) {
      std::error_code error;
      fs::create_directories(_partial / relative.parent_path(), error);
      if (error) throw write_error(relative, error.value());
    }
  }
  context.check();
  Descriptor file(_partial / relative, O_WRONLY | O_CREAT | O_EXCL, 0666);
  if (!file.is_open()) throw write_error(relative, errno);
  constexpr std::size_t piece = std::size_t{1} << 20;
  while (!bytes.empty()) {
    const ssize_t written = ::write(file.get(), bytes.data(), std::min(piece, bytes.size()));
    if (written < 0) {
      if (errno == EINTR) continue;
      throw write_error(relative, errno);
    }
    bytes = bytes.subspan(static_cast<std::size_t>(written));
    context.check();
  }
  if (!file.close()) throw write_error(relative, errno);
  const std::lock_guard lock(_mutex);
  _written.push_back(relative);
}

void ResultsFolder::flush_side_by_side(const std::vector<fs::path>& relative) const {
  // Flushing is waiting, not work: a journal commits the files that are flushed at one time together, which was four
  // times as fast for a usual folder as one after another. So these are threads of their own, more than there are
  // cores.
  constexpr std::size_t most_threads = 16;
  std::vector<int> errors(relative.size(), 0);
  std::atomic<std::size_t> next{0};
  const auto work = [&] {
    for (std::size_t index = next++; index < relative.size(); index = next++) {
      errors[index] = flush_error(_partial / relative[index]);
    }
  };
  {
    std::vector<std::jthread> helpers;
    try {
      while (helpers.size() + 1 < std::min(most_threads, relative.size())) helpers.emplace_back(work);
    } catch (const std::system_error&) {
      // The system gives no more threads: those there are do all the work.
    }
    work();
  }
  for (std::size_t index = 0; index < relative.size(); ++index) {
    if (errors[index] != 0) throw write_error(relative[index], errors[index]);
  }
}

ResultsFolderError ResultsFolder::write_error(const fs::path& relative, int error) const {
  return ResultsFolderError(fmt::format("{} cannot be written into \"{}\": {}.",
                                        relative.empty() ? _name : path_text(relative), path_text(_base),
                                        reason_text(error)));
}

fs::path ResultsFolder::publish() {
  std::vector<fs::path> to_flush = _written;
  to_flush.insert(to_flush.end(), _subfolders.begin(), _subfolders.end());
  to_flush.emplace_back();  // the folder itself
  flush_side_by_side(to_flush);
  for (int number = 1;; ++number) {
    fs::path target = results_folder_path(_base, _name, number);
    try {
      if (!rename_to_free_name(_partial, target)) continue;
    } catch (const std::system_error& failure) {
      throw folder_error(target, "cannot be given its name", failure.code().value());
    }
    _partial.clear();
    _made_above.clear();
    if (_lock >= 0) close(std::exchange(_lock, -1));
    try {
      common::flush_folder(_base);
    } catch (const std::exception& failure) {
      // The results are complete and have their name; only a power cut in the next seconds could still hide them.
      common::logger.warning(std::string("ResultsFolder: ") + failure.what());
    }
    return target;
  }
}

void remove_left_over_results(const fs::path& output_base_dir) {
  std::error_code error;
  std::vector<fs::path> candidates;
  for (fs::directory_iterator entry(output_base_dir, error), end; !error && entry != end; entry.increment(error)) {
    if (is_partial_name(entry->path().filename().native())) candidates.push_back(entry->path());
  }
  for (const fs::path& folder : candidates) {
    const Descriptor opened(folder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    if (!opened.is_open() || flock(opened.get(), LOCK_EX | LOCK_NB) != 0) continue;
    if (!opened.is_at(folder)) continue;
    std::error_code failure;
    fs::remove_all(folder, failure);
    if (failure) {
      common::logger.warning(fmt::format("ResultsFolder: the left-over \"{}\" could not be removed: {}.",
                                         path_text(folder), failure.message()));
    } else {
      common::logger.info(
          fmt::format("ResultsFolder: removed \"{}\", the left-over of a run that did not end.", path_text(folder)));
    }
  }
}

bool rename_to_free_name(const fs::path& from, const fs::path& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno == EEXIST) return false;
  if (errno == EINVAL || errno == ENOSYS || errno == ENOTSUP) {
    std::error_code unknown;
    const bool is_folder = fs::is_directory(fs::symlink_status(from, unknown));
    return is_folder ? rename_over_own_empty_folder(from, to) : rename_by_second_name(from, to);
  }
  throw std::system_error(errno, std::generic_category());
}

bool rename_over_own_empty_folder(const fs::path& from, const fs::path& to) {
  // Only one can make a folder of that name, and a rename may replace an empty folder.
  if (mkdir(to.c_str(), 0777) != 0) {
    if (errno == EEXIST) return false;
    throw std::system_error(errno, std::generic_category());
  }
  if (rename(from.c_str(), to.c_str()) != 0) {
    const int error = errno;
    rmdir(to.c_str());
    throw std::system_error(error, std::generic_category());
  }
  return true;
}

}  // namespace orvexa::model
