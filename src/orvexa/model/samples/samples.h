#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "orvexa/common/value.h"

namespace orvexa::model {

/// One set of captures drawn by the program, with a workflow for them and the answers that the workflow must give.
struct SampleReport {
  std::string name;   ///< "leaf_tray"
  std::string shows;  ///< a sentence about the picture
  std::vector<std::filesystem::path> captures;
  std::filesystem::path workflow;
  /// {"format": 1, "workflow": file name, "captures": {NAME: {"metrics": {...}, "regions": {REGION: {...}}}}}: by
  /// metric name, worked out from the shapes and constants of the drawing and by no operation.
  std::filesystem::path expected;
};

struct SampleOptions {
  /// How many small numbered plots to write into the folder `series` besides, for trying a batch; 0..100,000.
  int count = 0;
};

/// Draws the built-in captures and writes each into a folder of its own inside `folder`, with workflow and answers:
/// `leaf_tray` (leaves in a colour picture), `plot_five_bands` (rows of plants in five 16-bit bands),
/// `leaf_fluorescence` (two leaves in chlorophyll fluorescence), `dish_objects` (seeds in a dish) and
/// `reflectance_tiles` (tiles of known reflectance, with pictures of white and dark). The same call writes the same
/// bytes on every machine of one kind; files of the same names are replaced, others stay.
/// @throws std::invalid_argument for a count out of range; std::runtime_error when something cannot be written.
[[nodiscard]] std::vector<SampleReport> write_samples(const std::filesystem::path& folder,
                                                      const SampleOptions& options = {});

}  // namespace orvexa::model
