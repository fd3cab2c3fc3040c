#include "orvexa/model/measures/color_planes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

Image picture() {
  return Image(cv::Mat(1, 1, CV_8UC3, cv::Scalar(1, 2, 3)));
}

Image plane() {
  return test::flat_image<std::uint8_t>(1, 1, 1);
}

std::vector<std::string> names(const ColorPlanes& planes) {
  std::vector<std::string> result{planes.name};
  for (const Band& band : planes.rgb) result.push_back(band.name);
  return result;
}

TEST(ColorPlanes, AreThoseOfTheFirstImageOfClrBeforeAnyOther) {
  const auto capture = test::capture(
      "c", {{"ABC", {{"PIC", picture()}}}, {"CLR", {{"GRY", plane()}, {"ONE", picture()}, {"TWO", picture()}}}});
  EXPECT_THAT(names(find_color_planes(*capture, "op", "")),
              testing::ElementsAre("CLR.ONE", "CLR.ONE.R", "CLR.ONE.G", "CLR.ONE.B"));
}

TEST(ColorPlanes, AreThoseOfTheFirstColourImageOfACaptureWithoutClr) {
  const auto capture = test::capture("c", {{"MSP", {{"RED", plane()}, {"GRN", plane()}, {"BLU", plane()}}},
                                           {"ABC", {{"PIC", picture()}}},
                                           {"XYZ", {{"PIC", picture()}}}});
  EXPECT_THAT(names(find_color_planes(*capture, "op", "")),
              testing::ElementsAre("ABC.PIC", "ABC.PIC.R", "ABC.PIC.G", "ABC.PIC.B"));
  EXPECT_THAT(names(find_color_planes(*capture, "op", "XYZ.PIC")),
              testing::ElementsAre("XYZ.PIC", "XYZ.PIC.R", "XYZ.PIC.G", "XYZ.PIC.B"));
}

TEST(ColorPlanes, AreTheBandsOfTheRolesWithoutAColourImage) {
  const auto capture = test::capture("c", {{"MSP", {{"BLU", plane()}, {"GRN", plane()}, {"RED", plane()}}}});
  EXPECT_THAT(names(find_color_planes(*capture, "op", "")),
              testing::ElementsAre("MSP.RGB", "MSP.RED", "MSP.GRN", "MSP.BLU"));
}

TEST(ColorPlanes, AreNotInASingleBandImage) {
  const auto capture = test::capture("c", {{"MSP", {{"NIR", plane()}}}});
  EXPECT_EQ(test::refusal([&] { static_cast<void>(find_color_planes(*capture, "op", "NIR")); }),
            "op: MSP.NIR is a single-band image; colour needs an image with three channels.");
}

}  // namespace
}  // namespace orvexa::model
