#include "orvexa/model/entities/image_entry.h"

#include <stdexcept>
#include <utility>

#include "orvexa/model/pictures/viewing.h"

namespace orvexa::model {

namespace {
void expect_same_size(const Image& base, const Mask& mask) {
  if (base.shape() != mask.shape()) throw std::invalid_argument("A mask must be as large as the image it is put on.");
}
}  // namespace

ImageEntry ImageEntry::masked(Image base, Mask mask) {
  expect_same_size(base, mask);
  ImageEntry entry(std::move(base));
  entry._mask = std::move(mask);
  entry._kind = Kind::masked;
  return entry;
}

ImageEntry ImageEntry::overlaid(Image base, Mask mask) {
  ImageEntry entry = masked(std::move(base), std::move(mask));
  entry._kind = Kind::overlaid;
  return entry;
}

const Image& ImageEntry::base() const {
  if (!_base) throw std::logic_error("An entry without pixels was read.");
  return *_base;
}

Image ImageEntry::pixels() const {
  switch (_kind) {
    case Kind::masked:
      return masked_image(*_base, *_mask);
    case Kind::overlaid:
      return overlay_image(*_base, *_mask);
    case Kind::plain:
      break;
  }
  return base();
}

}  // namespace orvexa::model
