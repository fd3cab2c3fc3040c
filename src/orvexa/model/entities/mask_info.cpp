#include "orvexa/model/entities/mask_info.h"

#include "orvexa/model/pictures/viewing.h"

namespace orvexa::model {

Image MaskInfo::get_mask_preview_image() const {
  return mask_picture(mask_array);
}

ImageEntry MaskInfo::apply_to_image(const ImageEntry& image) const {
  return ImageEntry::masked(image.base(), mask_array);
}

ImageEntry MaskInfo::get_mask_overlay_image(const ImageEntry& image) const {
  return ImageEntry::overlaid(image.base(), mask_array);
}

}  // namespace orvexa::model
