#pragma once

#include <QImage>

#include "orvexa/model/image.h"
#include "orvexa/model/mask.h"

namespace orvexa::ui {

/// A small black and white picture of a mask whose longer side is `side_px`: each pixel is as light as the share of the
/// mask under it. Any thread.
[[nodiscard]] QImage mask_thumbnail(const model::Mask& mask, int side_px);

/// A small picture of an image for the eye, 32-bit RGB: colours as they are, counts and floats stretched. The longer
/// side is at most `side_px`. Any thread.
[[nodiscard]] QImage image_thumbnail(const model::Image& image, int side_px);

/// An 8-bit grey or RGB picture as the toolkit wants it, 32-bit RGB.
/// @throws std::invalid_argument for another type.
[[nodiscard]] QImage qt_picture(const model::Image& picture);

}  // namespace orvexa::ui
