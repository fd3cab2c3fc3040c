#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/common/ordered_map.h"
#include "orvexa/common/value.h"
#include "orvexa/model/entities/base_measurement.h"
#include "orvexa/model/entities/capture_header.h"
#include "orvexa/model/image_source.h"
#include "orvexa/model/source_file.h"

namespace orvexa::model {

using BandMap = common::OrderedMap<BandInfo>;

/// The bare images of a capture without its masks: a view that shares the pixels.
class ImageStack final : public ImageSource {
 public:
  struct Entry {
    common::OrderedMap<Image> images;
    std::optional<double> declared_white_level;
    ReferenceMap references = {};
  };

  ImageStack(common::OrderedMap<Entry> measurements, BandMap bands, std::optional<double> mm_per_pixel);

  [[nodiscard]] Shape get_shape() const override;
  [[nodiscard]] std::vector<std::string> get_measurement_types() const override;
  [[nodiscard]] std::vector<std::string> image_names(std::string_view measurement) const override;
  [[nodiscard]] std::optional<Image> find_image(std::string_view measurement, std::string_view image) const override;
  [[nodiscard]] WhiteLevel white_level(std::string_view measurement, std::string_view image) const override;
  [[nodiscard]] std::shared_ptr<const Reference> reference(std::string_view measurement,
                                                           std::string_view image) const override;
  [[nodiscard]] std::optional<BandInfo> find_band(std::string_view image) const override;
  [[nodiscard]] std::optional<double> millimetres_per_pixel() const override { return _millimetres_per_pixel; }

 private:
  common::OrderedMap<Entry> _measurements;
  BandMap _bands;
  std::optional<double> _millimetres_per_pixel;
};

/// Several pictures of one object, and the masks applied to them so far. Applying a mask costs a mask: the new capture
/// shares every base image, and masked images are made when somebody reads them.
class CaptureSet : public ImageSource {
 public:
  struct Arguments {
    std::string name;
    std::shared_ptr<const CaptureHeader> header;  ///< absent for an ordinary image
    MeasurementMap measurements;
    BandMap bands;
  };
  explicit CaptureSet(Arguments arguments);

  std::string name;
  std::shared_ptr<const CaptureHeader> header;
  BandMap _bands;
  MeasurementMap measurements;
  /// The accumulated mask; absent on an unmasked capture.
  std::optional<Mask> mask;
  /// Accumulated picture of what the mask steps did: 8-bit RGB, black where nothing was drawn.
  std::optional<Image> viz_overlay;
  std::vector<SourceFile> sources;

  /// The images without masks, as they are in `measurements` now.
  [[nodiscard]] ImageStack image_stack() const;

  struct Step {
    std::string operation_name;
    common::Value operation_params = common::Value::object();
  };
  /// A new capture with the mask applied and the overlay carried forward; the receiver is left as it is. The mask is
  /// the whole accumulated mask: it is stored, not combined.
  /// @throws std::invalid_argument when the mask has another size than the images.
  [[nodiscard]] std::shared_ptr<CaptureSet> apply_mask(const Mask& new_mask, const Step& step) const;
  [[nodiscard]] std::shared_ptr<CaptureSet> apply_mask(const Mask& new_mask) const { return apply_mask(new_mask, {}); }

  [[nodiscard]] Shape get_shape() const override;
  [[nodiscard]] std::vector<std::string> get_measurement_types() const override;
  [[nodiscard]] std::vector<std::string> image_names(std::string_view measurement) const override;
  [[nodiscard]] std::optional<Image> find_image(std::string_view measurement, std::string_view image) const override;
  [[nodiscard]] WhiteLevel white_level(std::string_view measurement, std::string_view image) const override;
  [[nodiscard]] std::shared_ptr<const Reference> reference(std::string_view measurement,
                                                           std::string_view image) const override;
  [[nodiscard]] std::optional<BandInfo> find_band(std::string_view image) const override;
  [[nodiscard]] std::optional<double> millimetres_per_pixel() const override;
};

}  // namespace orvexa::model
