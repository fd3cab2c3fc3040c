#include "orvexa/model/mask_operations/file_parameter.h"

#include <fmt/format.h>

#include <stdexcept>
#include <system_error>

#include "orvexa/common/files.h"
#include "orvexa/model/entities/capture_loader.h"

namespace orvexa::model {

std::filesystem::path named_file(const Value& params, const std::string& parameter) {
  std::filesystem::path path = params.at(parameter).get<std::string>();
  if (path.empty()) throw std::runtime_error(fmt::format("The parameter \"{}\" names no file.", parameter));
  std::error_code unknown;
  if (!std::filesystem::exists(file_of_image_name(path), unknown)) {
    throw std::runtime_error(
        fmt::format("The parameter \"{}\" is \"{}\", but there is no such file.", parameter, common::path_text(path)));
  }
  return path;
}

void expect_size_of_capture(const std::filesystem::path& file, Shape shape, Shape capture) {
  if (shape == capture) return;
  throw std::runtime_error(fmt::format(
      "The file {} is {} x {} pixels, but the images of the capture are {} x {}; both must have the same size.",
      common::path_text(file.filename()), shape.width, shape.height, capture.width, capture.height));
}

}  // namespace orvexa::model
