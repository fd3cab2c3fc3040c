#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "orvexa/common/value.h"
#include "orvexa/model/image.h"
#include "orvexa/model/pick_geometry.h"

namespace orvexa::model::samples {

// What is known about a drawing, worked out in the plainest way from the shapes that were drawn: slow, obvious loops
// that share no code with the operations whose results they are compared to.

/// Pixels of a drawing that count: those for which it returns true.
using Counts = std::function<bool(int y, int x)>;

/// Adds area, area_mm2, area_fraction and area_fraction_of_roi.
/// @param roi_pixels  pixels of the region of interest.
void add_area_facts(common::Value& metrics, std::int64_t area, Shape image, std::int64_t roi_pixels,
                    std::optional<double> mm_per_pixel);

/// Adds `<name>.n`, `.mean`, `.min` and `.max` of one channel of an integer image; channel 3 is its grey.
void add_band_facts(common::Value& metrics, const std::string& name, const Image& image, int channel,
                    const Counts& counts);

/// A value that is the same on all pixels of a class, and how many pixels the class has.
struct ClassValue {
  double value = 0;
  std::int64_t pixels = 0;
};
/// Adds `<name>.n`, `.n_invalid`, `.mean`, `.min` and `.max` of a quantity that is constant on each class.
void add_class_facts(common::Value& metrics, const std::string& name, const std::vector<ClassValue>& classes);

/// How many pixels of the picture count.
[[nodiscard]] std::int64_t count_pixels(Shape shape, const Counts& counts);

/// A rectangle of whole pixels as the parameter of a region of interest: [cx, cy, w, h] in fractions of the image.
[[nodiscard]] common::Value picked_rect(const PixelRect& rect, Shape image);

}  // namespace orvexa::model::samples
