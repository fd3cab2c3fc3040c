#include "orvexa/model/entities/base_measurement.h"

namespace orvexa::model {

ImageMap BaseMeasurement::get_masked_images(int mask_index) const {
  ImageMap masked;
  if (mask_index < 0 || static_cast<std::size_t>(mask_index) >= masks.size()) return masked;
  const MaskInfo& info = masks[static_cast<std::size_t>(mask_index)];
  for (const auto& [name, image] : images) {
    if (image.is_array()) masked.insert_or_assign(name, info.apply_to_image(image));
  }
  return masked;
}

std::shared_ptr<BaseMeasurement> BaseMeasurement::deep_copy() const {
  return std::shared_ptr<BaseMeasurement>(new BaseMeasurement(*this));
}

}  // namespace orvexa::model
