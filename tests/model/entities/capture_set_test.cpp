#include "orvexa/model/entities/capture_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "support/base_images.h"
#include "support/captures.h"

namespace orvexa::model {
namespace {

using testing::ElementsAre;

std::shared_ptr<CaptureSet> plot() {
  auto header = std::make_shared<CaptureHeader>();
  header->name = "plot";
  header->millimetres_per_pixel = 0.5;
  BandMap bands;
  bands.insert_or_assign("NIR", BandInfo{.centre_nm = 842, .width_nm = 57});
  auto capture = test::capture(
      "plot",
      {{"MSP",
        {{"RED", test::image<std::uint16_t>({{1, 2}, {3, 4}})}, {"NIR", test::image<std::uint16_t>({{5, 6}, {7, 8}})}}},
       {"GRY", {{"GRY", test::image<std::uint8_t>({{9, 10}, {11, 12}})}}}},
      header, bands);
  capture->measurements.at("MSP")->declared_white_level = 4095;
  capture->sources.push_back({"/data/HDR_plot.INF", "00", 1});
  return capture;
}

const void* pixels_of(const CaptureSet& capture, const char* measurement, const char* image) {
  return capture.measurements.at(measurement)->images.at(image).base().read_only().data;
}

TEST(CaptureSet, AnswersWhatOperationsAskOfAnImageSource) {
  const auto capture = plot();
  EXPECT_EQ(capture->get_shape(), (Shape{2, 2}));
  EXPECT_THAT(capture->get_measurement_types(), ElementsAre("MSP", "GRY"));
  EXPECT_THAT(capture->image_names("MSP"), ElementsAre("RED", "NIR"));
  EXPECT_TRUE(capture->image_names("FLU").empty());
  EXPECT_EQ(capture->find_image("MSP", "NIR"), test::image<std::uint16_t>({{5, 6}, {7, 8}}));
  EXPECT_EQ(capture->find_image("MSP", "BLU"), std::nullopt);
  EXPECT_EQ(capture->find_image("FLU", "NIR"), std::nullopt);
  EXPECT_EQ(capture->white_level("MSP", "NIR").counts, 4095);
  EXPECT_TRUE(capture->white_level("MSP", "NIR").is_declared);
  EXPECT_EQ(capture->white_level("GRY", "GRY").counts, 255);
  EXPECT_FALSE(capture->white_level("GRY", "GRY").is_declared);
  EXPECT_EQ(capture->find_band("NIR")->centre_nm, 842);
  EXPECT_FALSE(capture->find_band("RED").has_value());
  EXPECT_EQ(capture->millimetres_per_pixel(), 0.5);
  EXPECT_EQ(test::capture("photo", {})->millimetres_per_pixel(), std::nullopt);
}

TEST(CaptureSet, WithoutAnyImageItHasNoShape) {
  EXPECT_THROW(static_cast<void>(test::capture("empty", {})->get_shape()), std::runtime_error);
}

TEST(CaptureSet, ApplyMaskSharesEveryImageAndLeavesTheReceiverAsItIs) {
  const auto capture = plot();
  const auto before = test::base_image_hashes(*capture);
  const Mask mask = test::mask({"#.", "##"});

  const auto masked = capture->apply_mask(mask, {"threshold_range", {{"low", 0.5}}});

  for (const auto& [measurement, image] : {std::pair{"MSP", "RED"}, std::pair{"MSP", "NIR"}, std::pair{"GRY", "GRY"}}) {
    EXPECT_EQ(pixels_of(*masked, measurement, image), pixels_of(*capture, measurement, image)) << image;
    EXPECT_TRUE(masked->measurements.at(measurement)->images.at(image).is_recipe());
    EXPECT_FALSE(capture->measurements.at(measurement)->images.at(image).is_recipe());
  }
  EXPECT_EQ(masked->mask->read_only().data, mask.read_only().data);
  EXPECT_EQ(capture->mask, std::nullopt);
  EXPECT_TRUE(capture->measurements.at("MSP")->masks.empty());
  EXPECT_EQ(test::base_image_hashes(*capture), before);
}

TEST(CaptureSet, ApplyMaskKeepsEverythingElseTheCaptureKnows) {
  const auto capture = plot();
  const auto masked = capture->apply_mask(Mask::full({2, 2}));
  EXPECT_EQ(masked->name, "plot");
  EXPECT_EQ(masked->header, capture->header);
  EXPECT_EQ(masked->find_band("NIR")->width_nm, 57);
  EXPECT_EQ(masked->white_level("MSP", "RED").counts, 4095);
  EXPECT_THAT(masked->get_measurement_types(), ElementsAre("MSP", "GRY"));
  ASSERT_EQ(masked->sources.size(), 1u);
  EXPECT_EQ(masked->sources[0].path, "/data/HDR_plot.INF");
}

TEST(CaptureSet, ImagesOfAMaskedCaptureShow0OutsideButOperationsSeeTheBase) {
  const auto masked = plot()->apply_mask(test::mask({"#.", ".#"}));
  EXPECT_EQ(masked->measurements.at("MSP")->images.at("NIR").pixels(), test::image<std::uint16_t>({{5, 0}, {0, 8}}));
  EXPECT_EQ(masked->find_image("MSP", "NIR"), test::image<std::uint16_t>({{5, 6}, {7, 8}}));
  EXPECT_EQ(masked->image_stack().find_image("MSP", "NIR"), test::image<std::uint16_t>({{5, 6}, {7, 8}}));
}

TEST(CaptureSet, AChainOfMasksIsStoredStepByStepAndNotCombined) {
  const auto first = plot()->apply_mask(test::mask({"#.", "#."}), {"a", {{"p", 1}}});
  const auto second = first->apply_mask(test::mask({".#", ".#"}), {"b", {{"p", 2}}});
  EXPECT_EQ(second->mask, test::mask({".#", ".#"}));
  EXPECT_EQ(second->measurements.at("GRY")->images.at("GRY").pixels(), test::image<std::uint8_t>({{0, 10}, {0, 12}}));
  const auto& masks = second->measurements.at("GRY")->masks;
  ASSERT_EQ(masks.size(), 2u);
  EXPECT_EQ(masks[0].operation_name, "a");
  EXPECT_EQ(masks[0].mask_index, 0);
  EXPECT_EQ(masks[0].operation_params, (common::Value{{"p", 1}}));
  EXPECT_EQ(masks[0].mask_array, test::mask({"#.", "#."}));
  EXPECT_EQ(masks[1].operation_name, "b");
  EXPECT_EQ(masks[1].mask_index, 1);
  EXPECT_EQ(masks[1].mask_array, test::mask({".#", ".#"}));
  EXPECT_EQ(first->measurements.at("GRY")->masks.size(), 1u);
}

TEST(CaptureSet, ApplyMaskCarriesTheOverlayOfTheReceiverForward) {
  const auto capture = plot();
  EXPECT_EQ(capture->apply_mask(Mask::full({2, 2}))->viz_overlay, std::nullopt);
  const Image overlay(cv::Mat(2, 2, CV_8UC3, cv::Scalar(255, 0, 0)));
  capture->viz_overlay = overlay;
  const auto masked = capture->apply_mask(Mask::full({2, 2}));
  ASSERT_TRUE(masked->viz_overlay.has_value());
  EXPECT_EQ(masked->viz_overlay->read_only().data, overlay.read_only().data);
}

TEST(CaptureSet, AnEntryWithoutPixelsStaysAsItIs) {
  const auto capture = plot();
  capture->measurements.at("GRY")->images.insert_or_assign("note", ImageEntry());
  const auto masked = capture->apply_mask(Mask::full({2, 2}));
  EXPECT_FALSE(masked->measurements.at("GRY")->images.at("note").is_array());
  EXPECT_EQ(masked->find_image("GRY", "note"), std::nullopt);
}

TEST(CaptureSet, AMaskOfAnotherSizeIsRefusedWithTheStepsName) {
  const auto capture = plot();
  try {
    static_cast<void>(capture->apply_mask(Mask::full({3, 2}), {"erode", {}}));
    FAIL() << "no exception";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "The mask of erode has another size than the images of the capture.");
  }
  EXPECT_THROW(static_cast<void>(capture->apply_mask(Mask::full({3, 2}))), std::invalid_argument);
}

TEST(CaptureSet, TheBareStackIsAViewOfTheImagesAtThatMoment) {
  const auto capture = plot();
  const ImageStack stack = capture->image_stack();
  EXPECT_EQ(stack.find_image("MSP", "RED")->read_only().data, pixels_of(*capture, "MSP", "RED"));
  EXPECT_EQ(stack.get_shape(), (Shape{2, 2}));
  EXPECT_EQ(stack.millimetres_per_pixel(), 0.5);
  EXPECT_EQ(stack.find_band("NIR")->centre_nm, 842);
  EXPECT_EQ(stack.white_level("MSP", "RED").counts, 4095);

  capture->measurements.at("MSP")->images.erase("RED");
  EXPECT_THAT(stack.image_names("MSP"), ElementsAre("RED", "NIR"));
  EXPECT_THAT(capture->image_stack().image_names("MSP"), ElementsAre("NIR"));
}

}  // namespace
}  // namespace orvexa::model
