#include "orvexa/model/entities/mask_info.h"

#include <gtest/gtest.h>

#include "orvexa/model/pictures/viewing.h"
#include "support/captures.h"

namespace orvexa::model {
namespace {

const MaskInfo info{.operation_name = "threshold_range",
                    .operation_params = {{"low", 0.2}},
                    .mask_array = test::mask({"#.", "##"}),
                    .mask_index = 3};

TEST(MaskInfo, ShowsItsMaskAsAGreyPictureOf0And255) {
  EXPECT_EQ(info.get_mask_preview_image(), test::image<std::uint8_t>({{255, 0}, {255, 255}}));
}

TEST(MaskInfo, AppliedToAnImageItIsARecipeWith0Outside) {
  const ImageEntry entry = info.apply_to_image(test::image<std::uint16_t>({{7, 8}, {9, 10}}));
  EXPECT_TRUE(entry.is_recipe());
  EXPECT_EQ(entry.pixels(), test::image<std::uint16_t>({{7, 0}, {9, 10}}));
}

TEST(MaskInfo, AppliedToAMaskedImageItStartsFromTheBase) {
  const Image base = test::image<std::uint16_t>({{7, 8}, {9, 10}});
  const ImageEntry other = ImageEntry::masked(base, test::mask({"..", ".#"}));
  EXPECT_EQ(info.apply_to_image(other).pixels(), test::image<std::uint16_t>({{7, 0}, {9, 10}}));
}

TEST(MaskInfo, ItsOverlayIsThePictureThatSavedOverlaysAreMadeOf) {
  const Image base = test::image<std::uint8_t>({{7, 8}, {9, 10}});
  EXPECT_EQ(info.get_mask_overlay_image(base).pixels(), overlay_image(base, info.mask_array));
}

}  // namespace
}  // namespace orvexa::model
