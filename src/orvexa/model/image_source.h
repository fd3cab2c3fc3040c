#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/image.h"
#include "orvexa/model/reference.h"

namespace orvexa::model {

/// Centre wavelength and width of a spectral band in nanometres, as far as the header declares them.
struct BandInfo {
  std::optional<double> centre_nm;
  std::optional<double> width_nm;
};

/// The count that is white in an image, and whether somebody declared it (otherwise it is the type's maximum, 1.0 for
/// float, and scale-dependent indices have no meaning).
struct WhiteLevel {
  double counts = 1.0;
  bool is_declared = false;
};

/// What an operation reads: a whole capture and its bare image stack both offer it. It always gives base pixels, in
/// counts; which of them count comes only from the mask that the operation is given. Operations get their planes from
/// `find_band` and its relatives, which apply the reference.
class ImageSource {
 public:
  virtual ~ImageSource() = default;

  /// All images of a capture have one size.
  /// @throws std::runtime_error when there is no image.
  [[nodiscard]] virtual Shape get_shape() const = 0;
  /// Names of the measurements, in their order: "CLR", "MSP", ...
  [[nodiscard]] virtual std::vector<std::string> get_measurement_types() const = 0;
  /// Names of a measurement's images, in their order; empty for an unknown measurement.
  [[nodiscard]] virtual std::vector<std::string> image_names(std::string_view measurement) const = 0;
  /// The base pixels of one image; absent when there is none of that name.
  [[nodiscard]] virtual std::optional<Image> find_image(std::string_view measurement, std::string_view image) const = 0;
  [[nodiscard]] virtual WhiteLevel white_level(std::string_view measurement, std::string_view image) const = 0;
  /// What turns the image's counts into reflectance; null where the capture declares nothing.
  [[nodiscard]] virtual std::shared_ptr<const Reference> reference(std::string_view measurement,
                                                                   std::string_view image) const {
    static_cast<void>(measurement);
    static_cast<void>(image);
    return nullptr;
  }
  /// What the header says about the band that an image of this name shows; absent when it says nothing.
  [[nodiscard]] virtual std::optional<BandInfo> find_band(std::string_view image) const = 0;
  /// Absent when the header declares no scale.
  [[nodiscard]] virtual std::optional<double> millimetres_per_pixel() const = 0;
};

}  // namespace orvexa::model
