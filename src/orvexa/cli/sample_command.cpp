#include <fmt/format.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/interrupt.h"
#include "orvexa/common/files.h"
#include "orvexa/common/text.h"
#include "orvexa/model/samples/samples.h"

namespace orvexa::cli {

namespace {

using common::Path;
namespace fs = std::filesystem;

/// A hidden folder inside another one that is gone at the end, and the outer one with it when it was made for this and
/// stayed empty.
class DraftFolder {
 public:
  explicit DraftFolder(const Path& folder) : _outer(folder), _path(folder / (".samples-" + common::random_suffix())) {
    std::error_code failure;
    const bool is_new = fs::create_directories(_outer, failure);
    if (!failure) fs::create_directory(_path, failure);
    if (failure) {
      throw std::runtime_error(
          fmt::format("{}: no samples can be written there: {}.", common::path_text(folder), failure.message()));
    }
    _outer_is_new = is_new;
  }
  ~DraftFolder() {
    std::error_code ignored;
    fs::remove_all(_path, ignored);
    if (_outer_is_new) fs::remove(_outer, ignored);  // refused by the system when there is something in it
  }
  DraftFolder(const DraftFolder&) = delete;
  DraftFolder& operator=(const DraftFolder&) = delete;

  [[nodiscard]] const Path& path() const { return _path; }

 private:
  Path _outer;
  Path _path;
  bool _outer_is_new = false;
};

bool have_same_content(const Path& a, const Path& b) {
  return fs::is_regular_file(b) && fs::file_size(a) == fs::file_size(b) && common::read_file(a) == common::read_file(b);
}

/// Files of the draft, relative to it, that are not in the folder yet or have another content there.
std::vector<Path> new_files(const Path& draft, const Path& folder, bool may_overwrite) {
  std::vector<Path> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(draft)) {
    if (!entry.is_regular_file()) continue;
    const Path name = entry.path().lexically_relative(draft);
    const Path target = folder / name;
    if (!fs::exists(fs::symlink_status(target))) {
      files.push_back(name);
    } else if (!have_same_content(entry.path(), target)) {
      if (!may_overwrite || fs::is_directory(target)) {
        throw std::runtime_error(fmt::format(
            "{}: it is there already with another content; nothing was written, --force overwrites such files.",
            common::path_text(target)));
      }
      files.push_back(name);
    }
  }
  return files;
}

int sample_command(Console& console, const GivenWords& given) {
  constexpr int max_samples = 100'000;
  const int count = given.whole_number("--count", 0, 0, max_samples);
  handle_interrupts();
  const Path folder = given.text("DIR");
  const DraftFolder draft(folder);
  console.progress("Drawing the samples");
  const std::vector<model::SampleReport> reports = model::write_samples(draft.path(), {.count = count});
  const std::vector<Path> files = new_files(draft.path(), folder, given.flag("--force"));
  if (interrupt_event().is_set()) {
    console.error("Interrupted; no samples were written.");
    return exit_interrupted;
  }
  for (const Path& name : files) {
    fs::create_directories((folder / name).parent_path());
    fs::rename(draft.path() / name, folder / name);
  }

  const auto place = [&](const Path& file) {
    return common::path_text(folder / file.lexically_relative(draft.path()));
  };
  if (console.json) {
    common::Value samples = common::Value::array();
    for (const model::SampleReport& report : reports) {
      common::Value captures = common::Value::array();
      for (const Path& capture : report.captures) captures.push_back(place(capture));
      samples.push_back({{"name", report.name},
                         {"shows", report.shows},
                         {"captures", std::move(captures)},
                         {"workflow", place(report.workflow)},
                         {"expected", place(report.expected)}});
    }
    console.answer_json(
        {{"folder", common::path_text(folder)}, {"files_written", files.size()}, {"samples", std::move(samples)}});
    return exit_done;
  }
  if (console.quiet) return exit_done;
  std::string text;
  for (const model::SampleReport& report : reports) {
    text += fmt::format("{}: {}\n", report.name, report.shows);
    text += fmt::format("  workflow  {}\n", common::visible_text(place(report.workflow)));
    text += fmt::format("  answers   {}\n", common::visible_text(place(report.expected)));
    if (report.captures.size() == 1) {
      text += fmt::format("  capture   {}\n", common::visible_text(place(report.captures.front())));
    } else if (!report.captures.empty()) {
      text += fmt::format("  captures  {} in {}\n", report.captures.size(),
                          common::visible_text(place(report.captures.front().parent_path())));
    }
  }
  text += files.empty() ? "Everything was there already.\n" : fmt::format("{} files written.\n", files.size());
  console.answer(text);
  return exit_done;
}

}  // namespace

const CommandInfo& sample_command_info() {
  static const CommandInfo info{
      .name = "sample",
      .summary = "Write captures drawn by the program, with known answers, and workflows for them",
      .arguments = {{.name = "DIR",
                     .help = "The folder to write into; made when it is not there",
                     .kind = WordKind::folder}},
      .options = {{.name = "--count",
                   .value = "N",
                   .help = "Besides, write N small numbered plots into DIR/series, for trying a batch (default 0)"},
                  {.name = "--force", .help = "Overwrite files of another content"}},
      .remarks = "Files of another content are never overwritten without --force.\n",
      .examples = {"orvexa sample samples"},
      .run = sample_command};
  return info;
}

}  // namespace orvexa::cli
