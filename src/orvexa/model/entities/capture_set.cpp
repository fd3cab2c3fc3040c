#include "orvexa/model/entities/capture_set.h"

#include <stdexcept>
#include <utility>

namespace orvexa::model {

ImageStack::ImageStack(common::OrderedMap<Entry> measurements, BandMap bands, std::optional<double> mm_per_pixel)
    : _measurements(std::move(measurements)), _bands(std::move(bands)), _millimetres_per_pixel(mm_per_pixel) {}

Shape ImageStack::get_shape() const {
  for (const auto& [name, entry] : _measurements) {
    for (const auto& [image_name, image] : entry.images) return image.shape();
  }
  throw std::runtime_error("The capture holds no image.");
}

std::vector<std::string> ImageStack::get_measurement_types() const {
  std::vector<std::string> names;
  for (const auto& [name, entry] : _measurements) names.push_back(name);
  return names;
}

std::vector<std::string> ImageStack::image_names(std::string_view measurement) const {
  std::vector<std::string> names;
  const auto found = _measurements.find(measurement);
  if (found == _measurements.end()) return names;
  for (const auto& [name, image] : found->second.images) names.push_back(name);
  return names;
}

std::optional<Image> ImageStack::find_image(std::string_view measurement, std::string_view image) const {
  const auto found = _measurements.find(measurement);
  if (found == _measurements.end()) return std::nullopt;
  const auto pixels = found->second.images.find(image);
  if (pixels == found->second.images.end()) return std::nullopt;
  return pixels->second;
}

WhiteLevel ImageStack::white_level(std::string_view measurement, std::string_view image) const {
  const auto found = _measurements.find(measurement);
  if (found != _measurements.end() && found->second.declared_white_level) {
    return {*found->second.declared_white_level, true};
  }
  const auto pixels = find_image(measurement, image);
  return {pixels ? pixels->type_white_level() : 1.0, false};
}

std::shared_ptr<const Reference> ImageStack::reference(std::string_view measurement, std::string_view image) const {
  const auto found = _measurements.find(measurement);
  if (found == _measurements.end()) return nullptr;
  const auto reference = found->second.references.find(image);
  return reference == found->second.references.end() ? nullptr : reference->second;
}

std::optional<BandInfo> ImageStack::find_band(std::string_view image) const {
  const auto found = _bands.find(image);
  if (found == _bands.end()) return std::nullopt;
  return found->second;
}

CaptureSet::CaptureSet(Arguments arguments)
    : name(std::move(arguments.name)),
      header(std::move(arguments.header)),
      _bands(std::move(arguments.bands)),
      measurements(std::move(arguments.measurements)) {}

ImageStack CaptureSet::image_stack() const {
  common::OrderedMap<ImageStack::Entry> bare;
  for (const auto& [measurement_name, measurement] : measurements) {
    ImageStack::Entry entry;
    entry.declared_white_level = measurement->declared_white_level;
    entry.references = measurement->references;
    for (const auto& [image_name, image] : measurement->images) {
      if (image.is_array()) entry.images.insert_or_assign(image_name, image.base());
    }
    bare.insert_or_assign(measurement_name, std::move(entry));
  }
  return {std::move(bare), _bands, millimetres_per_pixel()};
}

std::shared_ptr<CaptureSet> CaptureSet::apply_mask(const Mask& new_mask, const Step& step) const {
  if (new_mask.shape() != get_shape()) {
    throw std::invalid_argument("The mask of " + (step.operation_name.empty() ? "a step" : step.operation_name) +
                                " has another size than the images of the capture.");
  }
  auto result =
      std::make_shared<CaptureSet>(Arguments{.name = name, .header = header, .measurements = {}, .bands = _bands});
  result->mask = new_mask;
  result->viz_overlay = viz_overlay;
  result->sources = sources;
  for (const auto& [measurement_name, measurement] : measurements) {
    auto masked = measurement->deep_copy();
    MaskInfo info{step.operation_name, step.operation_params, new_mask, static_cast<int>(measurement->masks.size())};
    for (const auto& [image_name, image] : measurement->images) {
      if (image.is_array()) masked->images[image_name] = info.apply_to_image(image);
    }
    masked->masks.push_back(std::move(info));
    result->measurements.insert_or_assign(measurement_name, std::move(masked));
  }
  return result;
}

// A capture answers like its bare stack. The stack is a handful of shared pointers, so it is made when asked for and
// can never be out of step with `measurements`.
Shape CaptureSet::get_shape() const {
  return image_stack().get_shape();
}
std::vector<std::string> CaptureSet::get_measurement_types() const {
  return image_stack().get_measurement_types();
}
std::vector<std::string> CaptureSet::image_names(std::string_view measurement) const {
  return image_stack().image_names(measurement);
}
std::optional<Image> CaptureSet::find_image(std::string_view measurement, std::string_view image) const {
  return image_stack().find_image(measurement, image);
}
WhiteLevel CaptureSet::white_level(std::string_view measurement, std::string_view image) const {
  return image_stack().white_level(measurement, image);
}
std::shared_ptr<const Reference> CaptureSet::reference(std::string_view measurement, std::string_view image) const {
  return image_stack().reference(measurement, image);
}
std::optional<BandInfo> CaptureSet::find_band(std::string_view image) const {
  return image_stack().find_band(image);
}
std::optional<double> CaptureSet::millimetres_per_pixel() const {
  return header ? header->millimetres_per_pixel : std::nullopt;
}

}  // namespace orvexa::model
