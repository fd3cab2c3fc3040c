#pragma once

#include <filesystem>
#include <string>

#include "orvexa/model/image.h"
#include "orvexa/model/operation_base.h"

namespace orvexa::model {

/// The path in a parameter that has to name a file.
/// @throws std::runtime_error with a sentence when it names none, or one that is not there.
[[nodiscard]] std::filesystem::path named_file(const Value& params, const std::string& parameter);

/// @throws std::runtime_error with a sentence when what a file holds is not as large as the capture.
void expect_size_of_capture(const std::filesystem::path& file, Shape shape, Shape capture);

}  // namespace orvexa::model
