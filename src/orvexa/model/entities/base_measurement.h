#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "orvexa/model/entities/image_entry.h"
#include "orvexa/model/entities/mask_info.h"
#include "orvexa/model/reference.h"

namespace orvexa::model {

/// By the name of the image; never null.
using ReferenceMap = common::OrderedMap<std::shared_ptr<const Reference>>;

/// One measurement of a capture: images of the same object by one method ("CLR", "GRY", "MSP", "FLU" or any other name
/// that a header gives). A deep copy has maps of its own and shares the frozen pixels.
class BaseMeasurement {
 public:
  BaseMeasurement() = default;
  explicit BaseMeasurement(ImageMap measurement_images) : images(std::move(measurement_images)) {}
  virtual ~BaseMeasurement() = default;

  ImageMap images;
  /// The accumulated masks applied so far, oldest first; empty on an unmasked capture.
  std::vector<MaskInfo> masks;
  /// The count that is white in these images where the header declares one.
  std::optional<double> declared_white_level;
  /// What turns counts into reflectance, by image, where the header has it.
  ReferenceMap references;

  /// Each image's base with 0 outside `masks[mask_index]`; empty when there is no such mask.
  [[nodiscard]] virtual ImageMap get_masked_images(int mask_index) const;
  [[nodiscard]] virtual std::shared_ptr<BaseMeasurement> deep_copy() const;

 protected:
  BaseMeasurement(const BaseMeasurement&) = default;
  BaseMeasurement& operator=(const BaseMeasurement&) = default;
};

using MeasurementMap = common::OrderedMap<std::shared_ptr<BaseMeasurement>>;

}  // namespace orvexa::model
