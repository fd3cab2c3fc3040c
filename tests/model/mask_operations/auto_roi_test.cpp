#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;
using test::note_of;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

/// '#' is 200, '+' is 180, '.' is 10.
std::shared_ptr<CaptureSet> picture(const std::vector<std::string>& rows) {
  std::vector<std::vector<std::uint8_t>> counts;
  for (const std::string& row : rows) {
    counts.emplace_back();
    for (const char at : row) {
      counts.back().push_back(at == '#' ? std::uint8_t{200} : at == '+' ? std::uint8_t{180} : std::uint8_t{10});
    }
  }
  return test::capture("c", {{"GRY", {{"GRY", test::image<std::uint8_t>(counts)}}}});
}

std::string refusal_of(const Value& params) {
  return test::refusal([&] { static_cast<void>(applied("auto_roi", *picture({".#"}), {}, params)); });
}

const std::vector<std::string> two_parts{".......", ".##....", ".#.....", ".......", ".....#.", "......#"};

TEST(AutoRoi, IsTheBoxOfTheLargestPart) {
  const auto capture = picture(two_parts);
  const Value params{{"padding", 0}, {"min_fraction", 0}};
  EXPECT_THAT(drawing(applied("auto_roi", *capture, {}, params)),
              ElementsAre(".......", ".##....", ".##....", ".......", ".......", "......."));
  EXPECT_EQ(note_of("auto_roi", *capture, {}, params),
            "level 10 of GRY.GRY by otsu; columns 1 to 2 and rows 1 to 2 around 1 of 2 parts");
}

TEST(AutoRoi, IsTheBoxOfAllParts) {
  // Corners join: the two pixels below are one part.
  EXPECT_THAT(
      drawing(applied("auto_roi", *picture(two_parts), {}, {{"method", "union"}, {"padding", 0}, {"min_fraction", 0}})),
      ElementsAre(".......", ".######", ".######", ".######", ".######", ".######"));
}

TEST(AutoRoi, IgnoresPartsThatAreTooSmall) {
  // 3 and 2 of 42 pixels: 0.0714 and 0.0476.
  const auto capture = picture(two_parts);
  const auto kept = [&](double least) {
    return applied("auto_roi", *capture, {}, {{"method", "union"}, {"padding", 0}, {"min_fraction", least}}).count();
  };
  EXPECT_EQ(kept(0.04), 30);
  EXPECT_EQ(kept(0.05), 4);
  EXPECT_EQ(kept(0.08), 0);
  EXPECT_EQ(note_of("auto_roi", *capture, {}, {{"min_fraction", 1}}),
            "no_region: none of 2 parts is large enough (level 10 of GRY.GRY by otsu), so the mask is empty");
}

TEST(AutoRoi, OfEqualPartsTakesTheFirst) {
  EXPECT_THAT(drawing(applied("auto_roi", *picture({"#...#"}), {}, {{"padding", 0}})), ElementsAre("#...."));
}

TEST(AutoRoi, WidensTheBoxByFractionsOfTheImage) {
  // 0.15 of 7 columns is 1.05, so 1; 0.15 of 6 rows is 0.9, so 1. 0.5 reaches over the border and is cut off.
  const auto capture = picture(two_parts);
  EXPECT_THAT(drawing(applied("auto_roi", *capture, {}, {{"padding", 0.15}})),
              ElementsAre("####...", "####...", "####...", "####...", ".......", "......."));
  EXPECT_THAT(drawing(applied("auto_roi", *capture, {}, {{"padding", 0.5}})),
              ElementsAre("#######", "#######", "#######", "#######", "#######", "#######"));
}

TEST(AutoRoi, FindsDarkPartsToo) {
  const auto capture = picture({"#####", "#..##", "#####", "####."});
  EXPECT_THAT(drawing(applied("auto_roi", *capture, {}, {{"polarity", "dark"}, {"padding", 0}})),
              ElementsAre(".....", ".##..", ".....", "....."));
}

TEST(AutoRoi, SeesOnlyTheIncomingMaskAndStaysInsideIt) {
  const auto capture = picture(two_parts);
  const Mask mask = test::mask({".......", ".......", ".......", "....###", "....###", "....###"});
  EXPECT_THAT(drawing(applied("auto_roi", *capture, mask, {{"padding", 0}})),
              ElementsAre(".......", ".......", ".......", ".......", ".....##", ".....##"));
  EXPECT_EQ(applied("auto_roi", *capture, mask, {{"padding", 0.5}}), mask);
}

TEST(AutoRoi, BoundsTheStepsThatGrow) {
  const auto capture = picture(two_parts);
  const Mask roi = applied("auto_roi", *capture, {}, {{"padding", 0}});
  ASSERT_TRUE(roi.bounds());
  EXPECT_EQ(*roi.bounds(), roi);
  EXPECT_EQ(applied("dilate", *capture, roi, {{"radius", 3}}), roi);
}

TEST(AutoRoi, FindsWhatIsUnlikeTheBorder) {
  // The border, one pixel wide, has 10 thirteen times and 180 once: median 10, MAD 0; unlike it are all 180 and 200.
  const auto capture = picture({".....", ".#...", "..#..", "....+"});
  const Value params{{"method", "border_background"}, {"padding", 0}};
  EXPECT_THAT(drawing(applied("auto_roi", *capture, {}, params)), ElementsAre(".....", ".####", ".####", ".####"));
  EXPECT_EQ(note_of("auto_roi", *capture, {}, params),
            "background 10 +- 0 of GRY.GRY; columns 1 to 4 and rows 1 to 3 around 2 of 2 parts");
}

TEST(AutoRoi, MeasuresTheBorderInDeviations) {
  // Border 10 20 30 | 10 30 | 10 20 30: median 20, MAD 10. Within 2 MAD lie 0 to 40; 41 does not.
  const auto capture =
      test::capture("c", {{"GRY", {{"GRY", test::image<std::uint8_t>({{10, 20, 30}, {10, 41, 30}, {10, 20, 30}})}}}});
  const Value params{{"method", "border_background"}, {"padding", 0}, {"min_fraction", 0}};
  const auto kept = [&](double k) {
    Value own = params;
    own["k"] = k;
    return applied("auto_roi", *capture, {}, own).count();
  };
  EXPECT_EQ(kept(2), 1);
  EXPECT_EQ(kept(2.1), 0);  // both sides end at 21 from 20, and 41 is 21 away
  EXPECT_EQ(kept(0.5), 9);  // 10, 30 and 41
}

TEST(AutoRoi, LooksAtAnIndexToo) {
  // ndvi 0.8 at the right, 0 elsewhere; red alone would show the left.
  const Image red = test::image<std::uint8_t>({{200, 50, 10}});
  const Image nir = test::image<std::uint8_t>({{200, 50, 90}});
  const auto capture = test::capture("c", {{"MSP", {{"RED", red}, {"NIR", nir}}}});
  const Value params{{"index", "ndvi"}, {"padding", 0}};
  EXPECT_THAT(drawing(applied("auto_roi", *capture, {}, params)), ElementsAre("..#"));
  EXPECT_THAT(note_of("auto_roi", *capture, {}, params), HasSubstr("of ndvi of MSP.NIR, MSP.RED by otsu"));
  EXPECT_THAT(drawing(applied("auto_roi", *capture, {}, {{"padding", 0}, {"band", "MSP.RED"}})), ElementsAre("#.."));
  const MaskOperationInfo& info = get_mask_operation("auto_roi");
  EXPECT_EQ(test::refusal([&] {
              info.check_capture(*capture, info()->validate_params({{"index", "gndvi"}}));
            }),
            test::refusal([&] {
              static_cast<void>(applied("auto_roi", *capture, {}, {{"index", "gndvi"}}));
            }));
  EXPECT_EQ(test::refusal([&] {
              info.check_capture(*capture, info()->validate_params({{"band", "MSP.A"}}));
            }),
            test::refusal([&] {
              static_cast<void>(applied("auto_roi", *capture, {}, {{"band", "MSP.A"}}));
            }));
}

TEST(AutoRoi, SaysWhereThereIsNothingToFind) {
  const auto flat = picture({"...", "..."});
  for (const char* method : {"largest", "union"}) {
    EXPECT_EQ(applied("auto_roi", *flat, {}, {{"method", method}}).count(), 0);
    EXPECT_EQ(note_of("auto_roi", *flat, {}, {{"method", method}}),
              "no_contrast: all pixels have the same value in GRY.GRY, so the mask is empty");
  }
  EXPECT_EQ(note_of("auto_roi", *flat, {}, {{"method", "border_background"}}),
            "no_region: none of 0 parts is large enough (background 10 +- 0 of GRY.GRY), so the mask is empty");
  EXPECT_EQ(note_of("auto_roi", *flat, Mask::empty({2, 3}), {{"method", "border_background"}}),
            "no_contrast: the border of the image has no pixel to look at in GRY.GRY, so the mask is empty");
  EXPECT_EQ(note_of("auto_roi", *flat, Mask::empty({2, 3})),
            "no_contrast: there is no pixel to look at in GRY.GRY, so the mask is empty");
  const auto nothing = test::capture("c", {{"GRY", {{"GRY", test::flat_image<float>(3, 4, nan_value)}}}});
  EXPECT_EQ(applied("auto_roi", *nothing, {}).count(), 0);
}

TEST(AutoRoi, ShowsChosenAndRejectedPartsAndTheRectangle) {
  const auto capture = picture(two_parts);
  const auto operation = get_mask_operation("auto_roi")();
  static_cast<void>(operation->apply({.image_stack = *capture, .params = {{"padding", 0.15}}}));
  ASSERT_TRUE(operation->viz_overlay);
  const Image& overlay = *operation->viz_overlay;
  ASSERT_TRUE(overlay.is_color());
  const auto color = [&](int y, int x) {
    const auto row = overlay.row<std::uint8_t>(y).subspan(static_cast<std::size_t>(x) * 3, 3);
    return std::vector<int>(row.begin(), row.end());
  };
  EXPECT_THAT(color(1, 1), ElementsAre(0, 220, 0));
  EXPECT_THAT(color(4, 5), ElementsAre(230, 30, 30));
  EXPECT_THAT(color(0, 0), ElementsAre(255, 220, 0));
  EXPECT_THAT(color(3, 3), ElementsAre(255, 220, 0));
  EXPECT_THAT(color(5, 0), ElementsAre(0, 0, 0));
}

TEST(AutoRoi, RefusesWhatHasNoMeaning) {
  EXPECT_EQ(refusal_of({{"index", "ndvi"}, {"smooth", "median"}}),
            "auto_roi: parameter \"smooth\" filters a band, but with parameter \"index\" an index is looked at.");
  EXPECT_EQ(refusal_of({{"bands", {"R=MSP.RED"}}}),
            "auto_roi: parameter \"bands\" names bands for an index, but parameter \"index\" is \"none\".");
  EXPECT_EQ(refusal_of({{"smooth", "bilateral"}, {"smooth_radius", 6}}),
            "auto_roi: parameter \"smooth_radius\" is 6, but the bilateral filter's radius is from 1 to 5.");
  for (const auto& [name, beyond] : {std::pair("padding", 0.51), std::pair("min_fraction", 1.01), std::pair("k", 50.1),
                                     std::pair("border", 0.26), std::pair("padding", -0.01)}) {
    EXPECT_THAT(refusal_of({{name, beyond}}), HasSubstr(std::string("\"") + name + "\" is")) << name;
  }
  for (const auto& [name, limit] : {std::pair("padding", 0.5), std::pair("min_fraction", 1.0), std::pair("k", 50.0),
                                    std::pair("k", 0.0), std::pair("border", 0.25), std::pair("border", 0.0)}) {
    EXPECT_EQ(refusal_of({{name, limit}, {"method", "border_background"}}), "") << name;
  }
}

// Of a grey picture G / (R + G + B) is 1/3 everywhere, with two values one rounding apart.
TEST(AutoRoi, GivenAnIndexThatDiffersByRoundingAlone_ThenThereIsNothingToFind) {
  cv::Mat grey(15, 17, CV_8UC3);
  for (int i = 0; i < 255; ++i) grey.at<cv::Vec3b>(i / 17, i % 17) = cv::Vec3b::all(static_cast<std::uint8_t>(i + 1));
  const auto capture = test::capture("c", {{"CLR", {{"RGB", Image(grey)}}}});
  for (const char* method : {"largest", "union"}) {
    const Value params{{"index", "gcc"}, {"method", method}, {"min_fraction", 0}};
    EXPECT_EQ(applied("auto_roi", *capture, {}, params).count(), 0);
    EXPECT_THAT(note_of("auto_roi", *capture, {}, params),
                testing::StartsWith("no_contrast: all pixels have the same value in gcc of "));
  }
  const Value params{{"index", "gcc"}, {"method", "border_background"}, {"k", 0}, {"min_fraction", 0}};
  EXPECT_EQ(applied("auto_roi", *capture, {}, params).count(), 0);
  EXPECT_THAT(note_of("auto_roi", *capture, {}, params), testing::StartsWith("no_region: none of 0 parts"));
}

TEST(AutoRoi, RefusesWhatTheChosenMethodDoesNotLookAt) {
  EXPECT_EQ(refusal_of({{"index", "ndvi"}, {"band", "MSP.RED"}}),
            "auto_roi: parameter \"band\" is \"MSP.RED\", but parameter \"index\" is \"ndvi\"; choose \"none\" to use "
            "it.");
  EXPECT_EQ(refusal_of({{"method", "border_background"}, {"threshold", "li"}}),
            "auto_roi: parameter \"threshold\" is \"li\", but parameter \"method\" is \"border_background\"; choose "
            "\"largest\" or \"union\" to use it.");
  EXPECT_THAT(refusal_of({{"method", "border_background"}, {"polarity", "dark"}}),
              HasSubstr("\"polarity\" is \"dark\""));
  EXPECT_EQ(refusal_of({{"method", "union"}, {"k", 4}}),
            "auto_roi: parameter \"k\" is 4.0, but parameter \"method\" is \"union\"; choose \"border_background\" to "
            "use it.");
  EXPECT_THAT(refusal_of({{"border", 0.1}}), HasSubstr("\"border\" is 0.1"));
  EXPECT_EQ(refusal_of({{"method", "border_background"}, {"threshold", "otsu"}, {"k", 4}}), "")
      << "otsu is the default";
}

}  // namespace
}  // namespace orvexa::model
