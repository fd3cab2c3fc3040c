#pragma once

#include <string>

#include "orvexa/cli/batch_pace.h"
#include "orvexa/cli/console.h"

namespace orvexa::cli {

/// What standard error shows of a batch while it runs: on a terminal a bar that moves, elsewhere a line a file.
class BatchProgress {
 public:
  BatchProgress(Console& console, int total) : _console(console), _pace(total) {}

  void file_begins(const std::string& name);
  /// What is being done to the file.
  void step(const std::string& text);
  void file_succeeded(const std::string& file, const std::string& operation_errors);
  /// @param sentence  names the file.
  void file_failed(const std::string& sentence);
  void file_interrupted(const std::string& file);

  [[nodiscard]] const BatchPace& pace() const { return _pace; }

 private:
  void file_done(bool is_failure, const std::string& line);

  Console& _console;
  BatchPace _pace;
  std::string _name;
  common::TimePoint _file_start = common::now();
};

}  // namespace orvexa::cli
