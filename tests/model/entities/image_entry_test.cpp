#include "orvexa/model/entities/image_entry.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/captures.h"

namespace orvexa::model {
namespace {

TEST(ImageEntry, WithoutPixelsItIsNotAnArray) {
  const ImageEntry entry;
  EXPECT_FALSE(entry.is_array());
  EXPECT_FALSE(entry.is_recipe());
  EXPECT_THROW(static_cast<void>(entry.pixels()), std::logic_error);
  EXPECT_THROW(static_cast<void>(entry.base()), std::logic_error);
}

TEST(ImageEntry, PlainPixelsAreHandedOutWithoutACopy) {
  const Image image = test::image<std::uint16_t>({{1, 2}, {3, 4}});
  const ImageEntry entry = image;
  EXPECT_TRUE(entry.is_array());
  EXPECT_FALSE(entry.is_recipe());
  EXPECT_EQ(entry.shape(), (Shape{2, 2}));
  EXPECT_EQ(entry.pixels().read_only().data, image.read_only().data);
}

TEST(ImageEntry, AMaskedEntryIsArrayAndRecipeAndShows0OutsideItsMask) {
  const Image image = test::image<std::uint16_t>({{1, 2}, {3, 4}});
  const ImageEntry entry = ImageEntry::masked(image, test::mask({"#.", ".#"}));
  EXPECT_TRUE(entry.is_array());
  EXPECT_TRUE(entry.is_recipe());
  EXPECT_EQ(entry.pixels(), test::image<std::uint16_t>({{1, 0}, {0, 4}}));
}

TEST(ImageEntry, ARecipeKeepsItsBaseAndNeverItsResult) {
  const Image image = test::image<float>({{1, 2}});
  const ImageEntry entry = ImageEntry::masked(image, test::mask({"#."}));
  EXPECT_EQ(entry.base().read_only().data, image.read_only().data);
  const Image first = entry.pixels();
  const Image second = entry.pixels();
  EXPECT_NE(first.read_only().data, second.read_only().data);
  EXPECT_EQ(first, second);
  EXPECT_EQ(image, test::image<float>({{1, 2}}));
}

TEST(ImageEntry, AnOverlaidEntryShowsAn8BitColourPicture) {
  const ImageEntry entry = ImageEntry::overlaid(test::image<std::uint8_t>({{10, 20, 30}}), test::mask({"#.."}));
  EXPECT_TRUE(entry.is_recipe());
  const Image picture = entry.pixels();
  EXPECT_TRUE(picture.is_color());
  EXPECT_EQ(picture.type(), PixelType::u8);
  EXPECT_EQ(picture.shape(), (Shape{1, 3}));
  // Outside the mask the picture is as it was, grey repeated; inside it is tinted.
  EXPECT_EQ(picture.row<std::uint8_t>(0)[6], 30);
  EXPECT_EQ(picture.row<std::uint8_t>(0)[7], 30);
  EXPECT_EQ(picture.row<std::uint8_t>(0)[8], 30);
  const auto row = picture.row<std::uint8_t>(0);
  EXPECT_FALSE(row[0] == 10 && row[1] == 10 && row[2] == 10);
}

TEST(ImageEntry, AMaskOfAnotherSizeIsRefusedWhenTheRecipeIsMade) {
  const Image image = test::image<std::uint8_t>({{1, 2}});
  EXPECT_THROW(ImageEntry::masked(image, Mask::full({2, 1})), std::invalid_argument);
  EXPECT_THROW(ImageEntry::overlaid(image, Mask::full({2, 1})), std::invalid_argument);
}

}  // namespace
}  // namespace orvexa::model
