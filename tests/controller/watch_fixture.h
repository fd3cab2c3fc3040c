#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvexa/common/cancel.h"
#include "orvexa/common/clock.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/controller/folder_watch.h"
#include "orvexa/model/codecs/image_file.h"
#include "support/captures.h"
#include "support/temporary_folder.h"

namespace orvexa::test {

using common::Value;
using controller::FolderWatch;
using controller::WatcherArguments;
using controller::WatcherEvent;
using Kind = controller::WatcherEvent::Kind;

/// The lines of a text file; what follows the last line feed is no line.
inline std::vector<std::string> lines_of(const std::filesystem::path& file) {
  std::vector<std::string> lines;
  std::string text = read_all(file);
  for (std::size_t end = 0; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
    lines.push_back(text.substr(0, end));
  }
  return lines;
}

/// An input folder, a workflow that measures the area of what is brighter than half, and watches over them that the
/// test polls itself, under a clock that the test owns.
class WatchTest : public testing::Test {
 protected:
  WatchTest() {
    std::filesystem::create_directories(in);
    write_workflow("area");
    arguments = {.input_dir = in.string(),
                 .output_dir = out.string(),
                 .workflow_yaml_path = workflow.string(),
                 .capture_loader =
                     [this](const auto& file) {
                       ++loads;
                       if (on_load) on_load(file);
                       return model::get_default_capture_loader()(file);
                     },
                 .poll_seconds = 2.0,
                 .image_loader =
                     [this](const auto& file) {
                       ++loads;
                       if (on_load) on_load(file);
                       return model::load_capture_from_image(file);
                     },
                 .on_event = [this](const WatcherEvent& event) { events.push_back(event); }};
  }

  void write_workflow(const std::string& operation, const std::string& more = "") const {
    folder.write("workflow.yaml", "title: Bright\n" + more +
                                      "mask_operations:\n"
                                      "  - {op: threshold_range, params: {low: 0.5, high: 1.0}}\n"
                                      "result_operations:\n"
                                      "  - op: " +
                                      operation + "\n");
  }

  /// A grey picture of 4 x 3 pixels whose first `bright` pixels are white.
  static std::string picture(int bright) {
    cv::Mat pixels(3, 4, CV_8UC1, cv::Scalar(0));
    for (int i = 0; i < bright; ++i) pixels.at<std::uint8_t>(i / 4, i % 4) = 255;
    const common::Bytes bytes = model::encode_png(model::Image(std::move(pixels)));
    return std::string(common::as_text(bytes));
  }
  std::filesystem::path write_picture(const std::string& name, int bright = 5) const {
    return folder.write("in/" + name, picture(bright));
  }
  static std::string header(const std::string& name, const std::vector<std::string>& images) {
    std::string text = "[Capture]\nName = " + name + "\n[Measurement MSP]\n";
    for (std::size_t i = 0; i < images.size(); ++i) {
      text += std::string("Image ") + static_cast<char>('A' + i) + " = " + images[i] + "\n";
    }
    return text;
  }
  std::filesystem::path write_header(const std::string& name, const std::vector<std::string>& images) const {
    return folder.write("in/HDR_" + name + ".INF", header(name, images));
  }
  /// HDR_NAME.INF with the picture NAME_A.png.
  void write_capture(const std::string& name, int bright = 5) const {
    write_picture(name + "_A.png", bright);
    write_header(name, {name + "_A.png"});
  }
  /// Another time of modification, so many seconds after a fixed one.
  void set_time(const std::string& name, int seconds) const {
    std::filesystem::last_write_time(in / name, std::filesystem::file_time_type(std::chrono::seconds(seconds)));
  }

  /// Polls `times` times, two seconds apart; makes the watch when there is none. Whether nothing was left to do.
  bool poll(int times = 1) {
    if (!watch) watch = std::make_unique<FolderWatch>(arguments, cancel);
    bool is_idle = false;
    for (; times > 0; --times) {
      is_idle = watch->poll_once();
      time += std::chrono::seconds(2);
    }
    return is_idle;
  }
  /// As a program does that ends cleanly.
  void end() {
    watch->end();
    watch.reset();
  }
  /// A new watch on the same folders.
  void restart() {
    if (watch) end();
    events.clear();
    loads = 0;
    watch = std::make_unique<FolderWatch>(arguments, cancel);
  }

  [[nodiscard]] std::vector<WatcherEvent> events_of(Kind kind) const {
    std::vector<WatcherEvent> found;
    std::copy_if(events.begin(), events.end(), std::back_inserter(found),
                 [kind](const WatcherEvent& event) { return event.kind == kind; });
    return found;
  }
  [[nodiscard]] std::vector<std::string> files_of(Kind kind) const {
    std::vector<std::string> files;
    for (const WatcherEvent& event : events) {
      if (event.kind == kind) files.push_back(event.file);
    }
    return files;
  }
  [[nodiscard]] std::vector<std::string> texts_of(Kind kind) const {
    std::vector<std::string> texts;
    for (const WatcherEvent& event : events) {
      if (event.kind == kind) texts.push_back(event.text);
    }
    return texts;
  }
  /// Names of the results folders, and of everything hidden but the lock.
  [[nodiscard]] std::vector<std::string> results() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(out)) {
      const std::string name = entry.path().filename().string();
      if (name != ".watch_lock" && !name.starts_with("watch_")) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  [[nodiscard]] std::vector<Value> journal(const std::string& event = "") const {
    std::vector<Value> found;
    for (const std::string& line : lines_of(out / "watch_journal.jsonl")) {
      Value document = Value::parse(line);
      if (event.empty() || document.value("event", "") == event) found.push_back(std::move(document));
    }
    return found;
  }
  void write_journal(const std::vector<Value>& lines) const {
    std::string text;
    for (const Value& line : lines) text += line.dump() + "\n";
    folder.write("out/watch_journal.jsonl", text);
  }
  [[nodiscard]] controller::WatchStatus status() const { return controller::read_watch_status(out); }
  [[nodiscard]] std::vector<std::string> table() const { return lines_of(out / "watch_table.tsv"); }

  TemporaryFolder folder;
  std::filesystem::path in = folder / "in";
  std::filesystem::path out = folder / "out";
  std::filesystem::path workflow = folder / "workflow.yaml";
  common::TimePoint time = common::TimePoint(std::chrono::seconds(1'700'000'000));
  common::ClockOverride clock{[this] { return time; }};
  common::CancelEvent cancel;
  std::vector<WatcherEvent> events;
  int loads = 0;
  std::function<void(const std::filesystem::path&)> on_load;
  WatcherArguments arguments;
  std::unique_ptr<FolderWatch> watch;
};

}  // namespace orvexa::test
