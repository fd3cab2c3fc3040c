#include <gtest/gtest.h>

#include "orvexa/model/codecs/image_file.h"
#include "support/captures.h"

namespace orvexa::model {
namespace {

TEST(Encoding, EndsWithACancellationAndWithoutAPictureWhenTheFlagIsSet) {
  common::CancelEvent cancel;
  const RunContext context{.cancel_event = &cancel, .progress = {}};
  const Image grey = test::flat_image<std::uint8_t>(40, 30, 7);
  const Image numbers = test::flat_image<float>(40, 30, 0.5F);
  EXPECT_EQ(encode_png(grey, context), encode_png(grey));
  EXPECT_EQ(encode_mask_png(Mask::full({40, 30}), context), encode_mask_png(Mask::full({40, 30})));
  EXPECT_EQ(encode_tiff(numbers, context), encode_tiff(numbers));
  cancel.set();
  EXPECT_THROW(static_cast<void>(encode_png(grey, context)), CancelledError);
  EXPECT_THROW(static_cast<void>(encode_mask_png(Mask::full({40, 30}), context)), CancelledError);
  EXPECT_THROW(static_cast<void>(encode_tiff(numbers, context)), CancelledError);
}

}  // namespace
}  // namespace orvexa::model
