#pragma once

#include <string>
#include <vector>

#include "orvexa/controller/controller.h"

namespace orvexa::cli {

/// What is taken from a folder.
enum class FolderSearch {
  captures_else_images,  ///< ordinary images only where there is no capture
  captures,
  images,
};

struct BatchSelection {
  std::vector<common::Path> files;   ///< as they were given, each once
  std::vector<std::string> remarks;  ///< sentences about what was given but gave no file of its own
};

/// The files of a batch: folders are searched, files are taken as they are; what was given again is left out.
/// @throws UsageError with a sentence that names what is not there, a folder that cannot be searched, or why there is
/// nothing to do.
[[nodiscard]] BatchSelection select_batch_files(const controller::Controller& controller,
                                                const std::vector<std::string>& inputs, FolderSearch search);

}  // namespace orvexa::cli
