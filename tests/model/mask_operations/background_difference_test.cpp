#include <gtest/gtest.h>

#include <limits>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using Drawing = std::vector<std::string>;

std::shared_ptr<CaptureSet> grey_capture(const Image& image) {
  return test::capture("scene", {{"GRY", {{"GRY", image}}}});
}

/// The empty scene in a file.
struct Background {
  explicit Background(const Image& image) : file(folder.write("empty.tif", common::as_text(encode_tiff(image)))) {}
  [[nodiscard]] Value params(Value more = Value::object()) const {
    more["reference"] = file.string();
    return more;
  }
  test::TemporaryFolder folder;
  std::filesystem::path file;
};

std::string refusal(const ImageSource& source, const Value& params) {
  return test::refusal(
      [&] { static_cast<void>(test::applied("background_difference", source, std::nullopt, params)); });
}

// Differences -2 -1 0 1 2 and 9: median 0.5, deviations 2.5 1.5 0.5 0.5 1.5 8.5, their median 1.5: sigma is 2.2239
// counts.
const Image empty_scene = test::image<std::uint8_t>({{100, 100, 100, 100, 100, 100}});
const Image scene = test::image<std::uint8_t>({{98, 99, 100, 101, 102, 109}});

TEST(BackgroundDifference, KeepsWhatDiffersByMoreThanKSigma) {
  const Background background(empty_scene);
  const auto capture = grey_capture(scene);
  const auto kept = [&](double k) {
    return test::drawing(test::applied("background_difference", *capture, std::nullopt, background.params({{"k", k}})));
  };
  EXPECT_EQ(kept(3), (Drawing{".....#"})) << "3 sigma = 6.67";
  EXPECT_EQ(kept(4.04), (Drawing{".....#"})) << "8.98";
  EXPECT_EQ(kept(4.05), (Drawing{"......"})) << "9.007";
  EXPECT_EQ(kept(0.8), (Drawing{"#...##"})) << "1.78: both sides count";
  EXPECT_EQ(kept(0), (Drawing{"##.###"})) << "everything that differs at all";
  EXPECT_EQ(kept(20), (Drawing{"......"}));
}

TEST(BackgroundDifference, SaysWhatSigmaAndLimitAre) {
  // 2.2239 / 255 = 0.00872118, three times that 0.0261635.
  EXPECT_EQ(
      test::note_of("background_difference", *grey_capture(scene), std::nullopt, Background(empty_scene).params()),
      "sigma 0.00872118 of white, limit 0.0261635 of white");
}

TEST(BackgroundDifference, FindsSigmaInsideTheIncomingMask) {
  // Inside: -2, -1, 9: median -1, deviations 1 0 10, median 1: sigma 1.4826, limit 4.4478.
  const Mask mask = test::mask({"##...#"});
  EXPECT_EQ(test::drawing(
                test::applied("background_difference", *grey_capture(scene), mask, Background(empty_scene).params())),
            (Drawing{".....#"}));
  EXPECT_EQ(test::note_of("background_difference", *grey_capture(scene), Mask::empty({1, 6}),
                          Background(empty_scene).params()),
            "no_contrast: there is no pixel to look at, so the mask is empty");
}

TEST(BackgroundDifference, GivenNoNoise_ThenEverythingThatDiffersIsKept) {
  const Image drawn = test::image<std::uint8_t>({{100, 100, 100, 100, 101, 99}});
  const auto capture = grey_capture(drawn);
  const Background background(empty_scene);
  EXPECT_EQ(test::drawing(test::applied("background_difference", *capture, std::nullopt, background.params())),
            (Drawing{"....##"}));
  EXPECT_EQ(test::note_of("background_difference", *capture, std::nullopt, background.params()),
            "sigma 0 of white, limit 0 of white; sigma is 0, so every pixel that differs at all is beyond the limit");
}

TEST(BackgroundDifference, GivenTheSameScene_ThenTheMaskIsEmptyWithItsReason) {
  const Background background(empty_scene);
  const auto capture = grey_capture(empty_scene);
  EXPECT_EQ(test::applied("background_difference", *capture, std::nullopt, background.params()).count(), 0);
  EXPECT_TRUE(test::note_of("background_difference", *capture, std::nullopt, background.params())
                  .starts_with("no_contrast: no pixel differs from the background by more"));
}

TEST(BackgroundDifference, LeavesOutWhatIsNoNumberInOneOfTheTwo) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const auto capture = grey_capture(test::image<float>({{nan, 0.5f, 0.5f, 0.5f, 1.0f}}));
  const Background background(test::image<float>({{0.5f, nan, 0.5f, 0.5f, 0.5f}}));
  EXPECT_EQ(test::drawing(test::applied("background_difference", *capture, std::nullopt, background.params())),
            (Drawing{"....#"}));
  const auto nothing = grey_capture(test::image<float>({{nan, nan, nan, nan, nan}}));
  EXPECT_EQ(test::applied("background_difference", *nothing, std::nullopt, background.params()).count(), 0);
}

TEST(BackgroundDifference, ComparesColoursInCielab) {
  // Red (255, 0, 0) is L 53.24 a 80.09 b 67.20 and black 0 0 0: 117.3 apart; equal colours are 0 apart, so sigma is 0.
  cv::Mat pixels(1, 3, CV_8UC3, cv::Scalar::all(0));
  pixels.at<cv::Vec3b>(0, 1) = {255, 0, 0};
  const auto capture = test::capture("scene", {{"CLR", {{"RGB", Image(pixels.clone())}}}});
  const Background background{Image(cv::Mat(1, 3, CV_8UC3, cv::Scalar::all(0)))};
  const Value params = background.params({{"metric", "delta_e_76"}});
  EXPECT_EQ(test::drawing(test::applied("background_difference", *capture, std::nullopt, params)), (Drawing{".#."}));
  EXPECT_EQ(test::note_of("background_difference", *capture, std::nullopt, params),
            "sigma 0 Delta E 76, limit 0 Delta E 76; sigma is 0, so every pixel that differs at all is beyond the "
            "limit");
}

TEST(BackgroundDifference, TakesTheBandOfThatNameFromACapture) {
  const test::TemporaryFolder folder;
  const auto header = folder.write(
      "HDR_empty.INF", "[Capture]\n[Measurement MSP]\nWhiteLevel = 200\nImage RED = red.tif\nImage NIR = nir.tif\n");
  folder.write("red.tif", common::as_text(encode_tiff(test::flat_image<std::uint8_t>(1, 6, 7))));
  folder.write("nir.tif", common::as_text(encode_tiff(test::flat_image<std::uint8_t>(1, 6, 200))));
  // White is 100 here and 200 there: the empty scene is 100 in counts of the scene.
  auto capture = test::capture("scene", {{"MSP", {{"NIR", scene}}}});
  capture->measurements.at("MSP")->declared_white_level = 100;
  const Value params{{"reference", header.string()}, {"band", "NIR"}};
  EXPECT_EQ(test::drawing(test::applied("background_difference", *capture, std::nullopt, params)), (Drawing{".....#"}));

  const auto other = test::capture("scene", {{"MSP", {{"EDG", scene}}}});
  EXPECT_EQ(refusal(*other, {{"reference", header.string()}, {"band", "EDG"}}),
            "The reference HDR_empty.INF does not fit. There is no band \"MSP.EDG\" in this capture (did you mean "
            "\"MSP.RED\"?); it has MSP.RED, MSP.NIR.");
}

TEST(BackgroundDifference, GivenAReference_ThenItHoldsForThePictureOfTheEmptySceneToo) {
  // White 300 and dark 100 make the scene's 98..109 counts -0.01..0.045 and the background 0.
  auto capture = grey_capture(scene);
  capture->measurements.at("GRY")->references.insert_or_assign(
      "GRY", std::make_shared<const Reference>(Reference{.white = {.constants = {300}}, .dark = {.constants = {100}}}));
  const Background background(empty_scene);
  EXPECT_EQ(test::drawing(test::applied("background_difference", *capture, std::nullopt, background.params())),
            (Drawing{".....#"}));
  // 2.2239 / 200 = 0.0111195.
  EXPECT_EQ(test::note_of("background_difference", *capture, std::nullopt, background.params()),
            "sigma 0.0111195 of white, limit 0.0333585 of white");
}

TEST(BackgroundDifference, SaysWhatDoesNotFit) {
  const auto capture = grey_capture(scene);
  EXPECT_EQ(refusal(*capture, Background(test::flat_image<std::uint8_t>(2, 6, 1)).params()),
            "The file empty.tif is 6 x 2 pixels, but the images of the capture are 6 x 1; both must have "
            "the same size.");
  EXPECT_EQ(refusal(*capture, Background(test::flat_image<std::uint16_t>(1, 6, 1)).params()),
            "The reference empty.tif is 16-bit, but GRY.GRY is 8-bit; both must have the same counts.");
  EXPECT_EQ(refusal(*capture, Background(Image(cv::Mat(1, 6, CV_8UC3, cv::Scalar::all(1)))).params()),
            "The reference empty.tif is a colour picture, but GRY.GRY is a picture with one channel.");
  EXPECT_EQ(refusal(*capture, Value::object()), "The parameter \"reference\" names no file.");
  EXPECT_EQ(refusal(*capture, Background(empty_scene).params({{"k", -0.1}})),
            "background_difference: parameter \"k\" is -0.1, but it must be a number from 0 to 20.");
  EXPECT_EQ(refusal(*capture, Background(empty_scene).params({{"k", 20.1}})),
            "background_difference: parameter \"k\" is 20.1, but it must be a number from 0 to 20.");
  EXPECT_NE(refusal(*capture, Background(empty_scene).params({{"metric", "delta_e_76"}})), "");
}

TEST(BackgroundDifference, SaysBeforeARunWhatTheCaptureLacks) {
  const auto& check = get_mask_operation("background_difference").check_capture;
  Value params = get_mask_operation("background_difference").get_default_params();
  EXPECT_NO_THROW(check(*grey_capture(scene), params));
  params["band"] = "MSP.NIR";
  EXPECT_THROW(check(*grey_capture(scene), params), std::runtime_error);
}

TEST(BackgroundDifference, RefusesWhatTheChosenMetricDoesNotLookAt) {
  const auto capture = grey_capture(scene);
  const Background background(empty_scene);
  EXPECT_EQ(refusal(*capture, background.params({{"metric", "delta_e_76"}, {"band", "GRY.GRY"}})),
            "background_difference: parameter \"band\" is \"GRY.GRY\", but parameter \"metric\" is \"delta_e_76\"; "
            "choose \"abs\" to use it.");
  EXPECT_EQ(refusal(*capture, background.params({{"image", "GRY.GRY"}})),
            "background_difference: parameter \"image\" is \"GRY.GRY\", but parameter \"metric\" is \"abs\"; choose "
            "\"delta_e_76\" to use it.");
}

}  // namespace
}  // namespace orvexa::model
