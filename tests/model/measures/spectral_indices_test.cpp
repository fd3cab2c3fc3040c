#include "orvexa/model/measures/spectral_indices.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <set>

#include "support/captures.h"
#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

const std::map<std::string, double> reflectances{{"N", .45},  {"R", .06},   {"G", .10},    {"B", .04},
                                                 {"RE", .15}, {"RE2", .35}, {"R531", .12}, {"R570", .08}};

double value_of(const SpectralIndex& index, double scale = 1) {
  std::vector<double> arguments;
  for (const std::string& role : index.roles) arguments.push_back(scale * reflectances.at(role));
  return index.value(arguments);
}

struct Golden {
  const char* key;
  double value;
};
class GoldenIndices : public testing::TestWithParam<Golden> {};

TEST_P(GoldenIndices, HasTheValueThatTheFormulaGivesByHand) {
  EXPECT_NEAR(value_of(get_spectral_index(GetParam().key)), GetParam().value, 5e-7);
}

// N = .45, R = .06, G = .10, B = .04, RE = .15, RE2 = .35, R531 = .12, R570 = .08
INSTANTIATE_TEST_SUITE_P(ByHand, GoldenIndices,
                         testing::Values(Golden{"ndvi", 0.764706},   // .39 / .51
                                         Golden{"gndvi", 0.636364},  // .35 / .55
                                         Golden{"ndre", 0.5},        // .30 / .60
                                         Golden{"savi", 0.579208},   // 1.5 * .39 / 1.01
                                         Golden{"osavi", 0.582090},  // .39 / .67
                                         Golden{"msavi2", 0.6},      // (1.9 - sqrt(3.61 - 3.12)) / 2 = (1.9 - .7) / 2
                                         Golden{"evi", 0.645695},    // .975 / (.45 + .36 - .3 + 1) = .975 / 1.51
                                         Golden{"evi2", 0.611669},   // .975 / (.45 + .144 + 1) = .975 / 1.594
                                         Golden{"gari", 0.578947},   // G - (B - R) = .12; .33 / .57
                                         Golden{"vari", 0.333333},   // .04 / .12
                                         Golden{"exg", 0.5},         // (.2 - .06 - .04) / .2
                                         Golden{"exr", -0.022},      // .078 - .1
                                         Golden{"exgr", 0.122},      // .1 + .022
                                         Golden{"gli", 0.333333},    // .1 / .3
                                         Golden{"ngrdi", 0.25},      // .04 / .16
                                         Golden{"tgi", 5.0},         // -.5 (190 * -.04 - 120 * .02) = -.5 * -10
                                         Golden{"gcc", 0.5},         // .1 / .2
                                         Golden{"ci_green", 3.5},    // 4.5 - 1
                                         Golden{"ci_rededge", 2.0},  // 3 - 1
                                         Golden{"mcari", 0.2},       // (.09 - .01) * 2.5
                                         Golden{"ari", 3.333333},    // 10 - 6.666667
                                         Golden{"psri", 0.057143},   // .02 / .35
                                         Golden{"ndwi", -0.636364},  // -.35 / .55
                                         Golden{"pri", 0.2}),        // .04 / .20
                         [](const auto& golden) { return std::string(golden.param.key); });

TEST(SpectralIndices, EveryRowIsCompleteAndItsKeyUnique) {
  std::set<std::string> keys;
  for (const SpectralIndex& index : spectral_indices()) {
    SCOPED_TRACE(index.key);
    EXPECT_TRUE(keys.insert(index.key).second);
    EXPECT_FALSE(index.display_name.empty());
    EXPECT_FALSE(index.formula.empty());
    EXPECT_FALSE(index.source.empty());
    EXPECT_FALSE(index.roles.empty());
    EXPECT_TRUE(std::isfinite(value_of(index)));
  }
  EXPECT_EQ(keys.size(), 24u);
}

TEST(SpectralIndices, ThoseThatDependOnTheScaleSaySo) {
  std::set<std::string> needing;
  for (const SpectralIndex& index : spectral_indices()) {
    SCOPED_TRACE(index.key);
    if (index.needs_reflectance) needing.insert(index.key);
    const bool depends_on_the_scale = std::abs(value_of(index, 0.5) - value_of(index)) > 1e-9;
    const bool is_of_photographs = index.key == "exr" || index.key == "exgr";
    EXPECT_EQ(index.needs_reflectance || is_of_photographs, depends_on_the_scale);
  }
  EXPECT_EQ(needing, (std::set<std::string>{"evi", "evi2", "savi", "osavi", "msavi2", "mcari", "tgi", "ari"}));
}

TEST(SpectralIndices, AnUnknownOneIsRefusedWithTheNearest) {
  EXPECT_EQ(test::refusal([] { static_cast<void>(get_spectral_index("ndvj")); }),
            "There is no spectral index \"ndvj\" (did you mean \"ndvi\"?).");
}

std::shared_ptr<CaptureSet> two_bands(const Image& red, const Image& nir) {
  return test::capture("plot", {{"MSP", {{"RED", red}, {"NIR", nir}}}});
}

// 8-bit counts are divided by 255: (200 - 50) / (200 + 50) = 0.6 and (30 - 90) / 120 = -0.5; two zeros have no index.
TEST(ComputeIndex, WorksPixelByPixelAndMarksWhatHasNoValue) {
  const auto capture = two_bands(test::image<std::uint8_t>({{50, 90, 0}}), test::image<std::uint8_t>({{200, 30, 0}}));
  const IndexMap map = compute_index(*capture, get_spectral_index("ndvi"), {});
  EXPECT_EQ(map.bands, (std::vector<std::string>{"MSP.NIR", "MSP.RED"}));
  EXPECT_NEAR(map.values.at<double>(0, 0), 0.6, 1e-15);
  EXPECT_NEAR(map.values.at<double>(0, 1), -0.5, 1e-15);
  EXPECT_TRUE(std::isnan(map.values.at<double>(0, 2)));
}

// G + R - B = 25 + 51 - 76 = 0 in counts, but not in rounded fractions of 255: the pixel has no value all the same.
TEST(ComputeIndex, ADenominatorThatIsZeroInCountsIsZero) {
  for (int red = 1; red < 120; ++red) {
    const auto blue = static_cast<std::uint8_t>(red + 100);
    cv::Mat pixels(1, 1, CV_8UC3, cv::Scalar(red, 100, blue));
    const auto capture = test::capture("photo", {{"CLR", {{"RGB", Image(pixels)}}}});
    const IndexMap map = compute_index(*capture, get_spectral_index("vari"), {});
    EXPECT_TRUE(std::isnan(map.values.at<double>(0, 0))) << red << " gives " << map.values.at<double>(0, 0);
  }
}

TEST(ComputeIndex, WithoutADeclaredWhiteLevelAnIndexOfReflectanceIsRefused) {
  const auto capture = two_bands(test::image<std::uint16_t>({{600}}), test::image<std::uint16_t>({{4500}}));
  EXPECT_EQ(test::refusal([&] { static_cast<void>(compute_index(*capture, get_spectral_index("savi"), {})); }),
            "needs reflectance: WhiteLevel or a reference is not declared");
  capture->measurements.at("MSP")->declared_white_level = 10000;
  const IndexMap map = compute_index(*capture, get_spectral_index("savi"), {});
  EXPECT_NEAR(map.values.at<double>(0, 0), 0.579208, 5e-7);  // N = .45, R = .06 as in the table above
}

TEST(ComputeIndex, GivenNoDeclaredWhiteLevel_ThenAnIndexAndTheSameFormulaByHandAreRefusedAlike) {
  cv::Mat pixels(1, 1, CV_8UC3, cv::Scalar(60, 100, 40));
  const auto photo = test::capture("photo", {{"CLR", {{"RGB", Image(pixels)}}}});
  const SpectralIndex& index = get_spectral_index("tgi");
  EXPECT_EQ(test::refusal([&] { static_cast<void>(compute_index(*photo, index, {})); }),
            "needs reflectance: WhiteLevel or a reference is not declared");
  EXPECT_EQ(test::refusal([&] { static_cast<void>(compute_index(*photo, Expression(index.formula), {})); }),
            "needs reflectance: WhiteLevel or a reference is not declared");
  // Excess red is of photographs: 1.3 * 60 / 255 - 100 / 255.
  EXPECT_NEAR(compute_index(*photo, get_spectral_index("exr"), {}).values.at<double>(0, 0), -22.0 / 255, 1e-15);
  photo->measurements.at("CLR")->declared_white_level = 200;
  // 1.3 * 60 / 200 - 100 / 200 = .39 - .5.
  EXPECT_NEAR(compute_index(*photo, get_spectral_index("exr"), {}).values.at<double>(0, 0), -0.11, 1e-15);
}

TEST(ComputeIndex, NotANumberInABandIsNotANumberInTheMap) {
  const float nan = std::nanf("");
  const auto capture = two_bands(test::image<float>({{nan, 0.1F}}), test::image<float>({{0.5F, 0.3F}}));
  const IndexMap map = compute_index(*capture, get_spectral_index("ndvi"), {});
  EXPECT_TRUE(std::isnan(map.values.at<double>(0, 0)));
  EXPECT_NEAR(map.values.at<double>(0, 1), 0.5, 1e-7);
}

}  // namespace
}  // namespace orvexa::model
