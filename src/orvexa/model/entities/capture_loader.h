#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "orvexa/model/entities/capture_set.h"

namespace orvexa::model {

using CaptureLoader = std::function<std::shared_ptr<CaptureSet>(const std::filesystem::path&)>;

/// The loader for everything that is not an ordinary image file, in particular `HDR_*.INF` captures. It throws
/// std::runtime_error with one sentence that names the header file, the line or key, and what was found.
[[nodiscard]] CaptureLoader get_default_capture_loader();

/// A capture from one ordinary image file (`stack.tif[2]` names a page of a multi-page TIFF, counted from 0), named
/// after its stem: a colour image becomes measurement CLR with image RGB, a single-band one GRY with image GRY.
/// @throws std::runtime_error with one sentence that names the file.
[[nodiscard]] std::shared_ptr<CaptureSet> load_capture_from_image(const std::filesystem::path& path);

/// The file that the name of an image means: the file of this very name where there is one, else for a name with a page
/// (`stack.tif[2]`) the file before the bracket.
[[nodiscard]] std::filesystem::path file_of_image_name(const std::filesystem::path& path);

/// Whether the suffix, in any case, is one of an ordinary image file: .png .jpg .jpeg .tif .tiff .bmp .gif
[[nodiscard]] bool is_image_file_name(const std::filesystem::path& path);

}  // namespace orvexa::model
