#pragma once

#include <optional>
#include <string>
#include <vector>

#include "orvexa/cli/console.h"

namespace orvexa::cli {

// Each command takes its arguments as the user gave them, checked for presence only, and gives the exit code. What
// goes wrong is an exception: UsageError for the call, any other for the work.

struct RunArguments {
  std::string workflow;
  std::string capture;
  std::string output_folder;
};
/// `orvexa run`: one capture into one results folder.
[[nodiscard]] int run_command(Console& console, const RunArguments& arguments);

/// `orvexa info`: what a capture holds.
[[nodiscard]] int info_command(Console& console, const std::string& capture);

/// `orvexa ops`: every operation, or all about one.
[[nodiscard]] int ops_command(Console& console, const std::optional<std::string>& key);

/// `orvexa workflow check`: what is wrong with workflow files.
[[nodiscard]] int workflow_check_command(Console& console, const std::vector<std::string>& files);

struct SampleArguments {
  std::string folder;
  int count = 0;  ///< small numbered plots besides
  bool force = false;
};
/// `orvexa sample`: captures drawn by the program, and workflows for them.
[[nodiscard]] int sample_command(Console& console, const SampleArguments& arguments);

}  // namespace orvexa::cli
