#pragma once

#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "orvexa/model/image.h"
#include "orvexa/model/source_file.h"

namespace orvexa::model {

/// How white or dark looks to the camera, in the counts of the image that it belongs to: a picture of the same size, or
/// constants.
struct ReferenceLevel {
  /// One for all channels, or one for each of R, G, B. Not looked at where there is a picture.
  std::vector<double> constants = {0.0};
  /// Of the image's size, with one channel for all of the image's or as many as it has.
  std::optional<Image> picture = std::nullopt;
  std::optional<SourceFile> file = std::nullopt;  ///< of the picture
};

/// What turns the counts of an image into reflectance: R = reflectance * (I - dark) / (white - dark), pixel by pixel.
struct Reference {
  ReferenceLevel white;
  ReferenceLevel dark;
  double reflectance = 1.0;  ///< of the white panel, as a fraction
};

/// Fills one row with reflectance, channels interleaved; NaN where white <= dark, where one of the two is no number,
/// and where the count is none. Nothing is cut to 0..1: noise below dark is negative, a highlight is above 1.
/// @param counts  the image that the reference belongs to.
/// @param row  width * channels values.
void fill_reflectance_row(const Image& counts, const Reference& reference, int y, std::span<float> row);

/// The whole image as reflectance, worked out when its pixels are first read.
[[nodiscard]] Image reflectance_image(const Image& counts, std::shared_ptr<const Reference> reference);

}  // namespace orvexa::model
