#include "orvexa/cli/mask_text.h"

#include <fmt/format.h>

#include "orvexa/cli/console.h"
#include "orvexa/common/text.h"

namespace orvexa::cli {

namespace {

double fraction_of(const model::Mask& mask) {
  return static_cast<double>(mask.count()) / static_cast<double>(mask.shape().pixels());
}

}  // namespace

std::string mask_text(const model::Mask& mask) {
  return fmt::format("{} of {} pixels ({} %)", common::grouped_integer_text(mask.count()),
                     common::grouped_integer_text(mask.shape().pixels()), short_value_text(100 * fraction_of(mask)));
}

common::Value mask_document(const model::Mask& mask) {
  return {{"pixels", mask.count()}, {"fraction", fraction_of(mask)}};
}

}  // namespace orvexa::cli
