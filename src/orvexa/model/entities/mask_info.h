#pragma once

#include <string>

#include "orvexa/common/value.h"
#include "orvexa/model/entities/image_entry.h"
#include "orvexa/model/mask.h"

namespace orvexa::model {

/// A mask with the step that made it. Previews and saved pictures are both made through it, so that they look alike.
struct MaskInfo {
  std::string operation_name;
  common::Value operation_params = common::Value::object();
  Mask mask_array;
  int mask_index = 0;  ///< position of the step in the workflow

  /// The mask as a grey picture.
  [[nodiscard]] Image get_mask_preview_image() const;
  /// A recipe: the image with 0 outside the mask.
  [[nodiscard]] ImageEntry apply_to_image(const ImageEntry& image) const;
  /// A recipe: the image with the mask drawn over it.
  [[nodiscard]] ImageEntry get_mask_overlay_image(const ImageEntry& image) const;
};

}  // namespace orvexa::model
