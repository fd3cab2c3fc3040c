#pragma once

#include <array>
#include <cstdint>
#include <functional>

#include "orvexa/model/image.h"
#include "orvexa/model/mask.h"

namespace orvexa::model {

/// The colour of overlays, R G B: magenta, which objects hardly ever have.
inline constexpr std::array<std::uint8_t, 3> overlay_tint{255, 0, 255};

/// 0 outside the mask, the image's own type and channels.
/// @throws std::invalid_argument when the sizes differ.
[[nodiscard]] Image masked_image(const Image& image, const Mask& mask);

/// An 8-bit RGB picture for the eye: 8-bit images as they are (grey repeated), 16-bit and float stretched linearly from
/// the 0.5 % to the 99.5 % quantile (type 7, Hyndman & Fan 1996) of their finite values over all channels: the lower
/// one and less is 0, the upper one and more is 255, rounded half up between. Where the two quantiles are equal, what
/// lies above them is 255 and the rest 0. NaN is 0.
[[nodiscard]] Image viewable_image(const Image& image);

/// `viewable_image` with the set pixels tinted (40 % of the tint, 60 % of the picture, rounded) and the mask's outline
/// drawn in the tint itself: set pixels with a neighbour above, below, left or right that is not set or not there.
/// @throws std::invalid_argument when the sizes differ.
[[nodiscard]] Image overlay_image(const Image& image, const Mask& mask);
/// The same a row at a time, width * 3 bytes each, for who needs no picture in memory. The rows may be asked for in any
/// order and on several threads.
[[nodiscard]] std::function<void(int y, std::uint8_t* rgb)> overlay_rows(const Image& image, const Mask& mask);

/// The mask alone as an 8-bit grey picture of 0 and 255.
[[nodiscard]] Image mask_picture(const Mask& mask);

}  // namespace orvexa::model
