#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/entities/capture_header_file.h"

namespace orvexa::model {

/// The [Reference ...] sections of one file.
struct ReferenceFile {
  std::string file_name;         ///< without folders: it begins every sentence about the sections
  std::filesystem::path folder;  ///< that the files in it are relative to, itself relative to the header's folder
  std::vector<ReferenceSection> sections;
};

/// `White` or `Dark` as it holds for one image.
struct PlacedLevel {
  const ReferenceSection::Level* level = nullptr;
  std::string where;             ///< "HDR_plot.INF, line 12"
  std::filesystem::path folder;  ///< as `ReferenceFile::folder`
};

/// What the sections say about one image, taken together key by key.
struct ImageReferenceRequest {
  std::string measurement;
  std::string image;
  std::string where;  ///< the section that is nearest to the image: "HDR_plot.INF, line 11: [Reference MSP.NIR]"
  std::optional<PlacedLevel> white;
  std::optional<PlacedLevel> dark;
  double reflectance = 1.0;
};

/// @return a request for each image that a section speaks of, in the header's order; it points into `files`.
/// @throws std::runtime_error with a sentence that names file and line: a measurement or image that the header does not
/// have, the same section in two files, neither White nor Dark, or a Reflectance without a White.
[[nodiscard]] std::vector<ImageReferenceRequest> reference_requests(const CaptureHeaderFile& header,
                                                                    const std::vector<ReferenceFile>& files);

}  // namespace orvexa::model
