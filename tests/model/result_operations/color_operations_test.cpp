// color_difference and color_classes: colours compared with colours.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "orvexa/model/pictures/heat_map.h"
#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

using testing::HasSubstr;

double number(const OperationResult& result, const std::string& name) {
  return result.metrics.at(name).get<double>();
}
double number(const RegionResult& result, const std::string& name) {
  return result.metrics.at(name).get<double>();
}

std::shared_ptr<CaptureSet> colors(const std::vector<cv::Vec3b>& pixels) {
  cv::Mat row(1, static_cast<int>(pixels.size()), CV_8UC3);
  for (int x = 0; x < row.cols; ++x) row.at<cv::Vec3b>(0, x) = pixels[static_cast<std::size_t>(x)];
  return test::capture("c", {{"CLR", {{"RGB", Image(row)}}}});
}

const cv::Vec3b black{0, 0, 0};
const cv::Vec3b white{255, 255, 255};

// ---- color_difference ----

const Value from_black{{"reference", "lab"}, {"lab_l", 0}};

// White is L = 100: differences 0, 100, 100, 0 of 1976 in all.
TEST(ColorDifference, DescribesTheDistancesFromAReference) {
  const auto capture = colors({black, white, white, black});
  const auto result = test::measured("color_difference", *capture, test::mask_of_regions({"1223"}), from_black);
  EXPECT_NEAR(number(result, "CLR.RGB.delta_e_76.mean"), 50, 1e-10);
  EXPECT_NEAR(number(result, "CLR.RGB.delta_e_76.p95"), 100, 1e-10);
  EXPECT_NEAR(number(result, "CLR.RGB.delta_e_76.median"), 50, 1e-10);
  EXPECT_EQ(result.metrics.at("CLR.RGB.delta_e_76.n"), 4);
  // S_L of the mean lightness 50 is 1, so CIEDE2000 agrees here.
  EXPECT_NEAR(number(result, "CLR.RGB.delta_e_2000.mean"), 50, 1e-10);
  EXPECT_NEAR(number(result.regions.at("ROI_2"), "CLR.RGB.delta_e_2000.mean"), 100, 1e-10);
  EXPECT_EQ(number(result.regions.at("ROI_3"), "CLR.RGB.delta_e_2000.max"), 0);
  EXPECT_EQ(result.units.at("CLR.RGB.delta_e_2000.mean"), "");
  EXPECT_EQ(result.chosen_bands.at("image"), Value({"CLR.RGB.R", "CLR.RGB.G", "CLR.RGB.B"}));
}

// To (50, 0, 0) from white: 50 by 1976; mean lightness 75, S_L = 1 + 0.015 * 625 / sqrt(645) = 1.369140, 36.519270.
TEST(ColorDifference, HasBothFormulas) {
  const auto result = test::measured("color_difference", *colors({white}), {}, {{"reference", "lab"}});
  EXPECT_NEAR(number(result, "CLR.RGB.delta_e_76.mean"), 50, 1e-10);
  EXPECT_NEAR(number(result, "CLR.RGB.delta_e_2000.mean"), 50 / (1 + 0.015 * 625 / std::sqrt(645.0)), 1e-10);
}

TEST(ColorDifference, TakesTheColourAtAPointOrTheMeanAroundIt) {
  const auto capture = colors({black, white, black});
  const auto picked = test::measured("color_difference", *capture);
  EXPECT_NEAR(picked.tables.at("reference").rows[0][1].get<double>(), 100, 1e-10);
  EXPECT_EQ(picked.tables.at("reference").rows[0][0], "point");
  EXPECT_NEAR(number(picked, "CLR.RGB.delta_e_76.mean"), 200.0 / 3, 1e-10);
  const auto around = test::measured("color_difference", *capture, {}, {{"radius", 1}});
  EXPECT_NEAR(around.tables.at("reference").rows[0][1].get<double>(), 100.0 / 3, 1e-10);
  const auto outside = test::measured("color_difference", *capture, test::mask({"#.#"}));
  EXPECT_NEAR(number(outside, "CLR.RGB.delta_e_76.mean"), 100, 1e-10) << "picked where the mask is not";
}

TEST(ColorDifference, DrawsTheDistancesInsideTheMask) {
  const auto result =
      test::measured("color_difference", *colors({black, white, white}), test::mask({"##."}), from_black);
  for (const char* name : {"delta_e_76", "delta_e_2000"}) {
    const ResultImage& map = result.images.at(name);
    ASSERT_TRUE(map.numbers.has_value());
    EXPECT_EQ(map.numbers->row<float>(0)[0], 0.0F);
    EXPECT_NEAR(map.numbers->row<float>(0)[1], 100.0F, 1e-4);
    EXPECT_TRUE(std::isnan(map.numbers->row<float>(0)[2]));
    EXPECT_TRUE(map.picture.is_color());
  }
}

TEST(ColorDifference, LeavesOutWhatIsNoNumber) {
  cv::Mat pixels(1, 2, CV_32FC3, cv::Scalar::all(1));
  pixels.at<cv::Vec3f>(0, 0)[1] = std::numeric_limits<float>::quiet_NaN();
  const auto capture = test::capture("c", {{"CLR", {{"RGB", Image(pixels)}}}});
  const auto result = test::measured("color_difference", *capture, {}, from_black);
  EXPECT_EQ(result.metrics.at("CLR.RGB.delta_e_76.n"), 1);
  EXPECT_EQ(result.metrics.at("CLR.RGB.delta_e_76.n_invalid"), 1);
  EXPECT_EQ(test::refusal([&] {
              static_cast<void>(test::measured("color_difference", *capture, {}, {{"point", {0.25, 0.5}}}));
            }),
            "No pixel at the point (0.25, 0.5) has a valid colour.");
}

TEST(ColorDifference, RefusesWhatIsOutsideItsLimits) {
  const auto refused = [](const Value& params) {
    return test::refusal([&] { static_cast<void>(test::measured("color_difference", *colors({white}), {}, params)); });
  };
  EXPECT_THAT(refused({{"lab_l", 100.5}}), HasSubstr("a number from 0 to 100"));
  EXPECT_THAT(refused({{"lab_a", -200.5}}), HasSubstr("a number from -200 to 200"));
  EXPECT_THAT(refused({{"point", {0.5, -0.1}}}), HasSubstr("each number from 0 to 1"));
  EXPECT_THAT(refused({{"reference", "patch"}}), HasSubstr("one of point, lab"));
}

TEST(ColorDifference, RefusesWhatTheChosenReferenceDoesNotLookAt) {
  const auto refused = [](const Value& params) {
    return test::refusal([&] { static_cast<void>(test::measured("color_difference", *colors({white}), {}, params)); });
  };
  EXPECT_EQ(
      refused({{"lab_l", 10}}),
      "color_difference: parameter \"lab_l\" is 10.0, but parameter \"reference\" is \"point\"; choose \"lab\" to "
      "use it.");
  EXPECT_THAT(refused({{"reference", "point"}, {"lab_b", -3}}), HasSubstr("\"lab_b\" is -3.0"));
  EXPECT_EQ(refused({{"reference", "lab"}, {"point", {0, 0}}, {"radius", 500}}),
            "color_difference: parameter \"point\" is [0.0, 0.0], but parameter \"reference\" is \"lab\"; choose "
            "\"point\" to use it.");
  EXPECT_THAT(refused({{"reference", "lab"}, {"radius", 500}}), HasSubstr("\"radius\" is 500"));
  EXPECT_EQ(refused({{"reference", "lab"}, {"point", {0.5, 0.5}}, {"radius", 0}}), "") << "as if they were not given";
}

// ---- color_classes ----

Value palette(const std::vector<std::pair<std::string, double>>& greys) {
  Value colors = Value::array();
  for (const auto& [name, l] : greys) colors.push_back({{"name", name}, {"lab", Value::array({l, 0.0, 0.0})}});
  return {{"palette", colors}};
}

// Of black, white, white, black, white: 2 of 5 are dark and 3 bright. From L = 0 to 10: mean lightness 5, S_L = 1 +
// 0.015 * 2025 / sqrt(2045) = 1.671697.
TEST(ColorClasses, GiveTheShareOfEachAndTheDistanceToItsCentre) {
  const auto capture = colors({black, white, white, black, white});
  const auto result = test::measured("color_classes", *capture, test::mask_of_regions({"12211"}),
                                     palette({{"dark", 10}, {"middle", 50}, {"bright", 100}}));
  EXPECT_EQ(result.metrics.at("CLR.RGB.class.dark.n"), 2);
  EXPECT_EQ(number(result, "CLR.RGB.class.dark.share"), 0.4);
  EXPECT_NEAR(number(result, "CLR.RGB.class.dark.delta_e.mean"), 10 / (1 + 0.015 * 2025 / std::sqrt(2045.0)), 1e-12);
  EXPECT_EQ(number(result, "CLR.RGB.class.bright.share"), 0.6);
  EXPECT_NEAR(number(result, "CLR.RGB.class.bright.delta_e.mean"), 0, 1e-10);
  EXPECT_EQ(number(result, "CLR.RGB.class.middle.share"), 0);
  EXPECT_EQ(result.reasons.at("CLR.RGB.class.middle.delta_e.mean"), "No pixel belongs to this class.");
  EXPECT_EQ(result.metrics.at("CLR.RGB.classes.n"), 5);
  EXPECT_EQ(number(result.regions.at("ROI_2"), "CLR.RGB.class.bright.share"), 1);
  EXPECT_NEAR(number(result.regions.at("ROI_1"), "CLR.RGB.class.dark.share"), 2.0 / 3, 1e-15);
  EXPECT_EQ(result.units.at("CLR.RGB.class.dark.share"), "fraction of the valid pixels");
}

TEST(ColorClasses, OfEquallyNearColoursTakeTheFirst) {
  const auto result =
      test::measured("color_classes", *colors({black}), {}, palette({{"b", 20}, {"first", 10}, {"second", 10}}));
  EXPECT_EQ(number(result, "CLR.RGB.class.first.share"), 1);
}

TEST(ColorClasses, DrawEachPixelInTheColourOfItsClassWithItsNumber) {
  const auto result = test::measured("color_classes", *colors({black, white, white}), test::mask({"##."}),
                                     palette({{"bright", 100}, {"dark", 0}}));
  const ResultImage& map = result.images.at("classes");
  const auto row = map.picture.row<std::uint8_t>(0);
  EXPECT_EQ(std::vector<int>(row.begin(), row.end()), (std::vector<int>{0, 0, 0, 255, 255, 255, 217, 217, 217}));
  const auto numbers = map.numbers->row<float>(0);
  EXPECT_EQ(numbers[0], 2.0F);
  EXPECT_EQ(numbers[1], 1.0F);
  EXPECT_TRUE(std::isnan(numbers[2]));
  EXPECT_EQ(result.tables.at("palette").rows[1], (std::vector<Value>{2, "dark", 0.0, 0.0, 0.0}));
}

TEST(ColorClasses, LeaveOutWhatIsNoNumber) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  cv::Mat pixels(1, 2, CV_32FC3, cv::Scalar::all(nan));
  const auto none = test::measured("color_classes", *test::capture("c", {{"CLR", {{"RGB", Image(pixels.clone())}}}}));
  EXPECT_EQ(none.metrics.at("CLR.RGB.classes.n"), 0);
  EXPECT_EQ(none.metrics.at("CLR.RGB.classes.n_invalid"), 2);
  EXPECT_EQ(none.reasons.at("CLR.RGB.class.red.share"), "No pixel has a valid value.");
  pixels.at<cv::Vec3f>(0, 1) = {1, 0, 0};
  const auto one = test::measured("color_classes", *test::capture("c", {{"CLR", {{"RGB", Image(pixels)}}}}));
  EXPECT_EQ(number(one, "CLR.RGB.class.red.share"), 1);
  EXPECT_EQ(one.metrics.at("CLR.RGB.classes.n_invalid"), 1);
}

/// The colours that CSS gives the names of the palette that is there by default.
TEST(ColorClasses, KnowTheColoursOfTheirDefaultPalette) {
  const std::vector<std::pair<const char*, cv::Vec3b>> named{
      {"black", {0, 0, 0}},   {"grey", {128, 128, 128}}, {"white", {255, 255, 255}},
      {"red", {255, 0, 0}},   {"orange", {255, 165, 0}}, {"yellow", {255, 255, 0}},
      {"green", {0, 128, 0}}, {"blue", {0, 0, 255}},     {"brown", {165, 42, 42}}};
  for (const auto& [name, color] : named) {
    const auto result = test::measured("color_classes", *colors({color}));
    EXPECT_EQ(number(result, std::string("CLR.RGB.class.") + name + ".share"), 1) << name;
    EXPECT_LT(number(result, std::string("CLR.RGB.class.") + name + ".delta_e.mean"), 0.1) << name;
  }
}

TEST(ColorClasses, RefuseAPaletteWithoutColours) {
  EXPECT_EQ(test::refusal([] {
              static_cast<void>(test::measured("color_classes", *colors({white}), {}, {{"palette", Value::array()}}));
            }),
            "color_classes: parameter \"palette\" has 0 colours, but it must have from 1 to 64.");
  EXPECT_THAT(test::refusal([] {
                static_cast<void>(test::measured("color_classes", *colors({white}), {}, palette({{"a", 1}, {"a", 2}})));
              }),
              HasSubstr("with different names"));
}

TEST(ColorClasses, NeedThreeChannels) {
  const auto capture = test::capture("c", {{"MSP", {{"NIR", test::flat_image<std::uint8_t>(1, 1, 1)}}}});
  for (const char* key : {"color_classes", "color_difference", "color_statistics"}) {
    const ResultOperationInfo& info = get_result_operation(key);
    const std::string sentence = test::refusal([&] { static_cast<void>(test::measured(key, *capture)); });
    EXPECT_THAT(sentence, testing::StartsWith("No measurement of this capture has a band for the role R"));
    EXPECT_EQ(test::refusal([&] { info.check_capture(*capture, info()->validate_params({})); }), sentence);
  }
}

}  // namespace
}  // namespace orvexa::model
