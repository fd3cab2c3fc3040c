#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/image_source.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// One plane of numbers that an operation reads: an image, which channel of it, and what is white in it. Where the
/// capture has a reference for the image, the plane is reflectance: `image` is 32-bit float with white 1, declared, and
/// NaN where the reference has no meaning. Rows and `plane` are then worked out as they are asked for.
struct Band {
  /// The counts behind a plane of reflectance.
  struct Counts {
    Image image;
    WhiteLevel white;
    std::shared_ptr<const Reference> reference;  ///< never null
  };

  Image image;
  /// 0..2 = R, G, B of a colour image (0 for a single-band one); grey_channel = 0.299 R + 0.587 G + 0.114 B, rounded
  /// half up for integers, in counts of the image's own type.
  int channel = 0;
  WhiteLevel white;
  std::string name;         ///< "MSP.NIR", "CLR.RGB.G", "CLR.RGB.grey": also the prefix of its metrics
  std::string measurement;  ///< "MSP"
  std::shared_ptr<const Counts> counts = nullptr;  ///< null for a plane of counts

  static constexpr int grey_channel = 3;

  [[nodiscard]] Shape shape() const { return image.shape(); }
  /// The plane as the file holds it, without the reference.
  [[nodiscard]] Band raw() const;
  /// Values of columns [0, width) of one row: counts, or reflectance.
  void read_row(int y, std::span<double> values) const;
  /// Values divided by the white level: 1 = white.
  void read_normalised_row(int y, std::span<double> fractions) const;
  /// The plane alone as a single-channel image of the image's own type (shared when it is one already).
  [[nodiscard]] Image plane(const RunContext& context = {}) const;
};

/// A plane of counts as reflectance, by a reference for its image.
[[nodiscard]] Band with_reference(const Band& band, std::shared_ptr<const Reference> reference);

/// Resolves a name to one plane: `MEASUREMENT.IMAGE[.channel]` (channel R, G, B or grey), or the bare name of an image
/// that exactly one measurement has, or a role as `find_role`. An empty name is the capture's default plane: the grey
/// of the first colour image, else the first image. A colour image named without a channel means its grey.
/// @throws std::runtime_error with a sentence that says what the capture has instead.
[[nodiscard]] Band find_band(const ImageSource& source, std::string_view name);

/// Every plane of the capture in order: single-band images, and R, G, B of colour images.
[[nodiscard]] std::vector<Band> all_bands(const ImageSource& source);

/// The roles that there are: "B", "G", "R", "RE", "RE2", "N", "R531", "R570".
[[nodiscard]] std::vector<std::string> role_names();

/// Bands that somebody named for roles: role to `MEASUREMENT.IMAGE[.channel]`.
using RoleBands = std::map<std::string, std::string, std::less<>>;

/// Planes for several roles at once, never mixing measurements. A role with a band in `named` has that one, and the
/// other roles then look in its measurement; entries for roles that are not wanted do not matter.
/// A role resolves within one measurement to the band whose centre lies in the role's range, nearest first; else to the
/// image named BLU, GRN, RED, EDG, NIR whose centre is not declared; only in a capture without MSP to channels of CLR.
/// @throws std::runtime_error with a sentence that names the role, what was looked for and an image of its name that
/// lies elsewhere, the named bands of different measurements, or a colour image that is named without a channel.
[[nodiscard]] std::vector<Band> find_roles(const ImageSource& source, const std::vector<std::string>& roles,
                                           const RoleBands& named = {});

}  // namespace orvexa::model
