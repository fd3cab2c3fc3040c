#pragma once

#include <optional>
#include <string>
#include <vector>

#include "orvexa/common/files.h"
#include "orvexa/common/value.h"
#include "orvexa/model/run_context.h"

namespace orvexa::controller {

/// Something that is other in a results folder than in another one of the same run.
struct Difference {
  std::string file;   ///< relative to the folder
  std::string place;  ///< "results.area.metrics.area", "row 2, column area", "x 3, y 4"; empty = the whole file
  std::string text;   ///< what is there and what was expected, after file and place: "is 301, but 300 was expected"
  std::optional<double> largest = std::nullopt;  ///< between two numbers, or two pictures' pixels
};

struct FolderComparison {
  std::vector<Difference> differences;
  std::vector<std::string> compared;      ///< files of both folders
  std::vector<std::string> not_compared;  ///< files that are no part of a run's results
};

/// Compares the results in a folder with those expected of it: every value of its JSON documents, every field of its
/// tables, every pixel of its masks and pictures. Bytes that say the same (another compression) are no difference.
/// workflow.yaml and provenance.json are left out.
/// @throws CancelledError; std::runtime_error when a folder cannot be listed or an expected file not be read.
[[nodiscard]] FolderComparison compare_results(const common::Path& folder, const common::Path& expected,
                                               const model::RunContext& context = {});

/// The differences between two documents, each place as the names and positions that lead there.
[[nodiscard]] std::vector<Difference> compare_values(const std::string& file, const common::Value& found,
                                                     const common::Value& expected);

}  // namespace orvexa::controller
