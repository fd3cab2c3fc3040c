#pragma once

#include <optional>

#include "orvexa/common/ordered_map.h"
#include "orvexa/model/image.h"
#include "orvexa/model/mask.h"

namespace orvexa::model {

/// One value of a measurement's image map: pixels, or a recipe that makes them when somebody reads them. A recipe holds
/// its ingredients and never its result, so any thread may read it and nothing is kept. An entry made without
/// arguments is not an array and is passed over wherever arrays are handled.
class ImageEntry {
 public:
  ImageEntry() = default;
  ImageEntry(Image pixels) : _base(std::move(pixels)) {}

  /// The base image with 0 outside the mask.
  static ImageEntry masked(Image base, Mask mask);
  /// The base image, shown in 8-bit colour, with the mask tinted over it.
  static ImageEntry overlaid(Image base, Mask mask);

  [[nodiscard]] bool is_array() const { return _base.has_value(); }
  [[nodiscard]] bool is_recipe() const { return _kind != Kind::plain; }
  /// What to look at; a recipe is worked out at every call.
  /// @throws std::logic_error when the entry is not an array.
  [[nodiscard]] Image pixels() const;
  /// The unmasked image that the entry is made from.
  [[nodiscard]] const Image& base() const;
  [[nodiscard]] Shape shape() const { return base().shape(); }

 private:
  enum class Kind { plain, masked, overlaid };
  std::optional<Image> _base;
  std::optional<Mask> _mask;
  Kind _kind = Kind::plain;
};

using ImageMap = common::OrderedMap<ImageEntry>;

}  // namespace orvexa::model
