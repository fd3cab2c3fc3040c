#pragma once

#include <QColor>
#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "orvexa/model/entities/image_entry.h"
#include "orvexa/model/image.h"
#include "orvexa/model/mask.h"

namespace orvexa::ui::viewer {

/// Which counts are shown dark and which light.
enum class RangeMode {
  automatic,  ///< from the 0.5 % to the 99.5 % quantile of the image
  full,       ///< from 0 to the white level
  manual      ///< from `low` to `high`
};

/// What the light of an image with one band is shown as.
enum class ColorMap { grey, inverted_grey, heat };

/// How an image is shown. Nothing here changes its data.
struct DisplaySettings {
  RangeMode range = RangeMode::automatic;
  double low = 0;   ///< of the manual range, counts
  double high = 1;  ///< of the manual range, counts
  ColorMap color_map = ColorMap::grey;
  friend bool operator==(const DisplaySettings&, const DisplaySettings&) = default;
};

/// What one wants to see first: 8-bit pictures as they are, anything else from its darkest to its lightest part.
[[nodiscard]] DisplaySettings first_settings(const model::Image& image);

/// From `low` and less to `high` and more, counts.
struct DisplayedRange {
  double low = 0;
  double high = 1;
  friend bool operator==(const DisplayedRange&, const DisplayedRange&) = default;
};

/// An image with the way it is shown. Never changed once it is made, so any thread may hold it.
struct Picture {
  std::shared_ptr<const model::ImageEntry> entry;  ///< not null, an array; the same for all its pictures
  double white_level = 255;
  DisplaySettings settings = {};
};

/// What is laid over a picture of the same size. Never changed once it is made.
struct MaskOverlay {
  std::optional<model::Mask> mask = std::nullopt;
  std::optional<model::Image> drawing = std::nullopt;  ///< 8-bit RGB, black where nothing was drawn
  QColor color = Qt::magenta;
  double opacity = 0.4;  ///< of the mask's colour, 0 to 1; drawings are opaque
};

/// 256 colours from dark to light, 0xffRRGGBB.
using Palette = std::array<std::uint32_t, 256>;
[[nodiscard]] const Palette& palette(ColorMap color_map);

/// The range that a mode means for this image.
/// @param image  all its finite values count, those of all three channels together. One pass over 8 and 16 bits; floats
/// are copied and partly sorted. Quantiles are of type 7 (Hyndman & Fan 1996). An image without a finite value: 0 to 1.
[[nodiscard]] DisplayedRange automatic_range(const model::Image& image);

}  // namespace orvexa::ui::viewer
