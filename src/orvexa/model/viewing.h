#pragma once

#include "orvexa/model/image.h"
#include "orvexa/model/mask.h"

namespace orvexa::model {

/// 0 outside the mask, the image's own type and channels.
/// @throws std::invalid_argument when the sizes differ.
[[nodiscard]] Image masked_image(const Image& image, const Mask& mask);

/// An 8-bit RGB picture for the eye: 8-bit images as they are (grey repeated), 16-bit and float stretched linearly from
/// the 0.5 % to the 99.5 % quantile of their finite values over all channels.
[[nodiscard]] Image viewable_image(const Image& image);

/// `viewable_image` with the set pixels tinted (40 % of the tint, 60 % of the picture) and the mask's outline drawn in
/// the tint itself.
[[nodiscard]] Image overlay_image(const Image& image, const Mask& mask);

/// The mask alone as an 8-bit grey picture of 0 and 255.
[[nodiscard]] Image mask_picture(const Mask& mask);

}  // namespace orvexa::model
