#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/entities/capture_header.h"
#include "orvexa/model/entities/capture_set.h"

namespace orvexa::model {

/// A `[Reference MEASUREMENT]` or `[Reference MEASUREMENT.IMAGE]` section: how white and dark look to the camera.
struct ReferenceSection {
  /// The value of `White` or `Dark`: constants, or a file.
  struct Level {
    std::vector<double> constants;  ///< one, or one for each of R, G, B; empty for a file
    std::string file;               ///< as written, relative to the folder of the file that it stands in
    int line = 0;
  };

  std::string measurement;
  std::string image;  ///< empty for all images of the measurement
  int line = 0;
  std::optional<Level> white;
  std::optional<Level> dark;
  std::optional<double> reflectance;  ///< of the white panel, above 0
  int reflectance_line = 0;

  [[nodiscard]] std::string name() const { return image.empty() ? measurement : measurement + "." + image; }
};

/// What a header file `HDR_*.INF` says, before any image is opened.
struct CaptureHeaderFile {
  struct ImageLine {
    std::string name;  ///< of the image, as written: "NIR"
    std::string file;  ///< the value as written: "plot_0007_NIR.tif" or "stack.tif[2]"
    int line = 0;      ///< counted from 1
  };
  struct MeasurementSection {
    std::string name;
    int line = 0;
    std::optional<double> white_level;  ///< only what this section declares itself
    int white_level_line = 0;
    std::vector<ImageLine> images;
  };

  CaptureHeader capture;
  std::vector<MeasurementSection> measurements;
  BandMap bands;
  std::vector<ReferenceSection> references;
  /// A file with further [Reference ...] sections, as written, relative to the header's folder; empty for none.
  std::string reference_file;
  int reference_file_line = 0;
};

/// A larger header file is refused.
inline constexpr std::size_t max_header_bytes = std::size_t{1} << 20;
/// More images in one header are refused.
inline constexpr std::size_t max_header_images = 1000;

/// Reads the text of a header file: UTF-8 (a byte order mark is passed over), lines that end in LF or CR LF, comment
/// lines that begin with `;` or `#`, and four kinds of sections:
///
///     [Capture]            Name, Date, Time, Camera, MillimetresPerPixel (> 0), WhiteLevel (> 0), ReferenceFile
///     [Measurement CLR]    Image RGB = file, ..., WhiteLevel (> 0)
///     [Band NIR]           CentreNm (> 0), WidthNm (> 0)
///     [Reference MSP]      White = file or number(s), Dark = the same, Reflectance (> 0), for all images of MSP
///     [Reference MSP.NIR]  the same for one of its images, key by key before those of [Reference MSP]
///
/// Keywords are case-insensitive. Names of measurements, images and bands are kept as written; two that differ only by
/// case are an error, so are repeated sections and keys, and sections and keys that this version does not know. Every
/// key but the images is optional; an empty value is the same as none for the four texts of [Capture].
/// @param file_name  the file's own name without folders: it begins every sentence, and without a `Name` the capture
/// is called after its stem without `HDR_`.
/// @throws std::runtime_error with one sentence that names the file, the line where there is one, and what was found.
[[nodiscard]] CaptureHeaderFile parse_capture_header(std::string_view text, const std::string& file_name);

/// Reads the text of a file that holds [Reference ...] sections and nothing else, by the same rules.
[[nodiscard]] std::vector<ReferenceSection> parse_reference_file(std::string_view text, const std::string& file_name);

/// A capture's name made from a file's stem: valid UTF-8, control characters replaced by `_`.
[[nodiscard]] std::string capture_name_of_stem(std::string_view stem);

}  // namespace orvexa::model
