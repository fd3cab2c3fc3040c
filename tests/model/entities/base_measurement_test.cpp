#include "orvexa/model/entities/base_measurement.h"

#include <gtest/gtest.h>

#include <memory>

#include "support/captures.h"

namespace orvexa::model {
namespace {

std::shared_ptr<BaseMeasurement> measurement_with_two_masks() {
  auto measurement = std::make_shared<BaseMeasurement>();
  measurement->images.insert_or_assign("RED", test::image<std::uint8_t>({{1, 2, 3}}));
  measurement->images.insert_or_assign("later", ImageEntry());
  measurement->images.insert_or_assign("NIR", test::image<std::uint16_t>({{4, 5, 6}}));
  measurement->masks.push_back({.operation_name = "a", .mask_array = test::mask({"##."}), .mask_index = 0});
  measurement->masks.push_back({.operation_name = "b", .mask_array = test::mask({".#."}), .mask_index = 1});
  return measurement;
}

TEST(BaseMeasurement, GivesTheImagesUnderEachOfItsMasksInTheirOrder) {
  const auto measurement = measurement_with_two_masks();
  const ImageMap first = measurement->get_masked_images(0);
  ASSERT_EQ(first.size(), 2u);  // the entry without pixels is passed over
  EXPECT_EQ(first.begin()->first, "RED");
  EXPECT_EQ(first.at("RED").pixels(), test::image<std::uint8_t>({{1, 2, 0}}));
  EXPECT_EQ(first.at("NIR").pixels(), test::image<std::uint16_t>({{4, 5, 0}}));
  EXPECT_EQ(measurement->get_masked_images(1).at("NIR").pixels(), test::image<std::uint16_t>({{0, 5, 0}}));
}

TEST(BaseMeasurement, AnIndexWithoutAMaskGivesNothing) {
  const auto measurement = measurement_with_two_masks();
  EXPECT_TRUE(measurement->get_masked_images(-1).empty());
  EXPECT_TRUE(measurement->get_masked_images(2).empty());
  EXPECT_TRUE(BaseMeasurement().get_masked_images(0).empty());
}

TEST(BaseMeasurement, ADeepCopyHasMapsOfItsOwnAndSharesThePixels) {
  const auto measurement = measurement_with_two_masks();
  measurement->declared_white_level = 4095;
  const auto copy = measurement->deep_copy();
  EXPECT_EQ(copy->declared_white_level, 4095);
  EXPECT_EQ(copy->images.at("RED").base().read_only().data, measurement->images.at("RED").base().read_only().data);
  EXPECT_EQ(copy->masks.at(1).mask_array.read_only().data, measurement->masks.at(1).mask_array.read_only().data);

  copy->images.erase("RED");
  copy->masks.clear();
  EXPECT_EQ(measurement->images.size(), 3u);
  EXPECT_EQ(measurement->masks.size(), 2u);
}

// What a header names freely may come as a type of its own.
struct NamedMeasurement : BaseMeasurement {
  int lamp = 0;
  [[nodiscard]] std::shared_ptr<BaseMeasurement> deep_copy() const override {
    return std::shared_ptr<BaseMeasurement>(new NamedMeasurement(*this));
  }
};

TEST(BaseMeasurement, ADeepCopyOfADerivedMeasurementKeepsItsType) {
  NamedMeasurement measurement;
  measurement.lamp = 3;
  const BaseMeasurement& base = measurement;
  const auto copy = std::dynamic_pointer_cast<NamedMeasurement>(base.deep_copy());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->lamp, 3);
}

}  // namespace
}  // namespace orvexa::model
