// Where the time of a batch goes: runs a workflow on every file of a folder, one after another, and says for each step
// how long a person waited and how much processor time it took. Flushing to disk is waiting, not work.
//
//   headline_stages WORKFLOW FOLDER OUTPUT_FOLDER
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "orvexa/common/memory.h"
#include "orvexa/common/ordered_map.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/model/entities/capture_loader.h"
#include "orvexa/model/workflow/executor.h"

namespace {

namespace fs = std::filesystem;
using namespace orvexa;

struct Spent {
  double wall_ms = 0;
  double processor_ms = 0;
};

Spent now() {
  const auto ms = [](clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
  };
  return {ms(CLOCK_MONOTONIC), ms(CLOCK_PROCESS_CPUTIME_ID)};
}

/// Gives the time since the last stage began to that stage.
class Stages {
 public:
  void begin(std::string name) {
    const Spent here = now();
    if (!_current.empty()) {
      Spent& spent = _spent[_current];
      spent.wall_ms += here.wall_ms - _since.wall_ms;
      spent.processor_ms += here.processor_ms - _since.processor_ms;
    }
    _current = std::move(name);
    _since = here;
  }
  [[nodiscard]] const common::OrderedMap<Spent>& spent() const { return _spent; }

 private:
  common::OrderedMap<Spent> _spent;
  std::string _current;
  Spent _since;
};

/// "Mask 1 of 4: threshold_auto" -> "threshold_auto".
std::string step_of(const std::string& progress) {
  const auto colon = progress.find(": ");
  return colon == std::string::npos ? progress : progress.substr(colon + 2);
}

void measure(const fs::path& workflow_file, const fs::path& folder, const fs::path& output) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  const auto workflow =
      std::make_shared<const model::Workflow>(model::Workflow::from_dict(common::load_yaml(workflow_file)));
  Stages stages;
  for (const fs::path& file : files) {
    stages.begin("decode " + file.extension().string().substr(1));
    const auto capture = model::load_capture_from_image(file);
    stages.begin("prepare");
    const auto made =
        model::Executor().run_and_save({.capture = capture,
                                        .wf = workflow,
                                        .output_base_dir = output,
                                        .capture_name = capture->name,
                                        .progress_cb = [&](const std::string& text) { stages.begin(step_of(text)); }});
    stages.begin("");
    for (const auto& [key, result] : made.bundle.results) {
      if (result.error) throw std::runtime_error(key + ": " + *result.error);
    }
  }
  const auto n = static_cast<double>(files.size());
  fmt::print("{:<20} {:>10} {:>14}\n", "ms a picture", "wall", "processor");
  Spent total;
  for (const auto& [name, spent] : stages.spent()) {
    fmt::print("{:<20} {:>10.1f} {:>14.1f}\n", name, spent.wall_ms / n, spent.processor_ms / n);
    total.wall_ms += spent.wall_ms;
    total.processor_ms += spent.processor_ms;
  }
  fmt::print("{:<20} {:>10.1f} {:>14.1f}\n", "all", total.wall_ms / n, total.processor_ms / n);
}

}  // namespace

int main(int count, char** arguments) {
  orvexa::common::set_up_memory();
  if (count != 4) {
    fmt::print(stderr, "usage: headline_stages WORKFLOW FOLDER OUTPUT_FOLDER\n");
    return 2;
  }
  try {
    measure(arguments[1], arguments[2], arguments[3]);
    return 0;
  } catch (const std::exception& error) {
    fmt::print(stderr, "{}\n", error.what());
    return 1;
  }
}
