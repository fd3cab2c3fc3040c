#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "orvexa/model/entities/capture_set.h"

namespace orvexa::model {

/// What a header names, relative to its folder: images, pictures of its references, and the file with further
/// references and what that names, as soon as it is there. Nothing is decoded. Empty when the header is not one or
/// names files outside its folder: whoever loads it says what is wrong.
[[nodiscard]] std::vector<std::string> files_named_by(const std::filesystem::path& header);

/// Every file that belongs to a capture, with the SHA-256 of its content: the header or ordinary image first. Nothing
/// is decoded, so also of a capture that cannot be loaded.
/// @throws std::runtime_error with a sentence when one of them cannot be read.
[[nodiscard]] std::vector<SourceFile> hashed_capture_files(const std::filesystem::path& capture);

/// The capture in a header file or an ordinary image file.
/// @throws std::runtime_error with one sentence that names the file.
[[nodiscard]] std::shared_ptr<CaptureSet> load_capture_file(const std::filesystem::path& path);

}  // namespace orvexa::model
