#include "orvexa/model/measures/bands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orvexa/model/measures/band_roles.h"
#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::flat_image;
using test::refusal;

Image color_image(double red = 10, double green = 20, double blue = 30) {
  return Image(cv::Mat(2, 3, CV_8UC3, cv::Scalar(red, green, blue)));
}

std::shared_ptr<CaptureSet> plot(BandMap bands = {}) {
  return test::capture("plot",
                       {{"MSP",
                         {{"RED", flat_image<std::uint16_t>(2, 3, 100)},
                          {"NIR", flat_image<std::uint16_t>(2, 3, 200)},
                          {"EDG", flat_image<std::uint16_t>(2, 3, 300)}}},
                        {"CLR", {{"RGB", color_image()}}}},
                       nullptr, std::move(bands));
}

std::vector<std::string> names(const std::vector<Band>& bands) {
  std::vector<std::string> result;
  for (const Band& band : bands) result.push_back(band.name);
  return result;
}

TEST(FindBand, ResolvesFullAndBareNames) {
  const auto capture = plot();
  EXPECT_EQ(find_band(*capture, "MSP.NIR").name, "MSP.NIR");
  EXPECT_EQ(find_band(*capture, "NIR").name, "MSP.NIR");
  EXPECT_EQ(find_band(*capture, "NIR").measurement, "MSP");
  EXPECT_EQ(find_band(*capture, "CLR.RGB.G").name, "CLR.RGB.G");
  EXPECT_EQ(find_band(*capture, "CLR.RGB.G").channel, 1);
  EXPECT_EQ(find_band(*capture, "RGB.B").channel, 2);
}

TEST(FindBand, TakesAColourImageWithoutChannelForItsGrey) {
  const auto capture = plot();
  for (const char* name : {"CLR.RGB", "RGB", "CLR.RGB.grey", "RGB.grey"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(find_band(*capture, name).name, "CLR.RGB.grey");
    EXPECT_EQ(find_band(*capture, name).channel, Band::grey_channel);
  }
}

TEST(FindBand, TakesAnEmptyNameForTheGreyOfTheFirstColourImageElseTheFirstImage) {
  EXPECT_EQ(find_band(*plot(), "").name, "CLR.RGB.grey");
  const auto grey_only = test::capture("c", {{"MSP", {{"NIR", flat_image<float>(1, 1, 0.5f)}}}});
  EXPECT_EQ(find_band(*grey_only, "").name, "MSP.NIR");
}

TEST(FindBand, ResolvesARoleWhereNoImageHasThatName) {
  EXPECT_EQ(find_band(*plot(), "N").name, "MSP.NIR");
}

TEST(FindBand, SaysWhatTheCaptureHasInstead) {
  EXPECT_EQ(refusal([] { static_cast<void>(find_band(*plot(), "MSP.NIX")); }),
            "There is no band \"MSP.NIX\" in this capture (did you mean \"MSP.NIR\"?); it has MSP.RED, MSP.NIR, "
            "MSP.EDG, CLR.RGB.R, CLR.RGB.G, CLR.RGB.B, CLR.RGB.grey.");
  EXPECT_EQ(refusal([] { static_cast<void>(find_band(*test::capture("c", {}), "X")); }),
            "There is no band \"X\" in this capture; it has no images.");
  EXPECT_EQ(refusal([] { static_cast<void>(find_band(*test::capture("c", {}), "")); }), "This capture has no images.");
}

TEST(FindBand, AsksForTheMeasurementWhenSeveralHaveTheImage) {
  const auto capture = test::capture(
      "c", {{"A", {{"NIR", flat_image<std::uint8_t>(1, 1, 1)}}}, {"B", {{"NIR", flat_image<std::uint8_t>(1, 1, 2)}}}});
  EXPECT_EQ(refusal([&] { static_cast<void>(find_band(*capture, "NIR")); }),
            "Band \"NIR\" is in several measurements: name one of A.NIR, B.NIR.");
  EXPECT_EQ(find_band(*capture, "B.NIR").name, "B.NIR");
}

TEST(AllBands, AreTheSinglePlanesInOrderWithoutGrey) {
  EXPECT_THAT(names(all_bands(*plot())),
              testing::ElementsAre("MSP.RED", "MSP.NIR", "MSP.EDG", "CLR.RGB.R", "CLR.RGB.G", "CLR.RGB.B"));
}

TEST(BandRows, GiveCountsAndFractionsOfTheDeclaredWhite) {
  const auto capture = test::capture("c", {{"MSP", {{"NIR", test::image<std::uint16_t>({{0, 1024, 4095}})}}}});
  capture->measurements.at("MSP")->declared_white_level = 4095;
  const Band band = find_band(*capture, "NIR");
  EXPECT_TRUE(band.white.is_declared);
  std::vector<double> row(3);
  band.read_row(0, row);
  EXPECT_THAT(row, testing::ElementsAre(0.0, 1024.0, 4095.0));
  band.read_normalised_row(0, row);
  EXPECT_THAT(row, testing::ElementsAre(0.0, 1024.0 / 4095.0, 1.0));
}

TEST(BandPlane, SharesASingleBandImageAndCutsAChannelOutOfAColourOne) {
  const auto capture = plot();
  const Band nir = find_band(*capture, "NIR");
  EXPECT_EQ(nir.plane().read_only().data, nir.image.read_only().data);
  EXPECT_EQ(find_band(*capture, "RGB.G").plane(), flat_image<std::uint8_t>(2, 3, 20));
  // 0.299 * 10 + 0.587 * 20 + 0.114 * 30 = 18.15
  EXPECT_EQ(find_band(*capture, "RGB").plane(), flat_image<std::uint8_t>(2, 3, 18));
}

struct GreyCase {
  const char* name;
  unsigned red;
  unsigned green;
  unsigned blue;
  unsigned grey;
};

class GreyOf16Bit : public testing::TestWithParam<GreyCase> {};

TEST_P(GreyOf16Bit, RoundsHalfUp) {
  const GreyCase& c = GetParam();
  const Image image(cv::Mat(1, 1, CV_16UC3, cv::Scalar(c.red, c.green, c.blue)));
  const auto capture = test::capture("c", {{"CLR", {{"RGB", image}}}});
  EXPECT_EQ(find_band(*capture, "").plane().row<std::uint16_t>(0)[0], c.grey);
}

INSTANTIATE_TEST_SUITE_P(Colours, GreyOf16Bit,
                         testing::Values(GreyCase{"White", 65535, 65535, 65535, 65535}, GreyCase{"Black", 0, 0, 0, 0},
                                         GreyCase{"HalfGoesUp", 500, 0, 0, 150},         // 149.5
                                         GreyCase{"BelowHalfGoesDown", 499, 0, 0, 149},  // 149.201
                                         GreyCase{"Green", 0, 40000, 0, 23480}, GreyCase{"Blue", 0, 0, 1000, 114}),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(GreyOfFloat, IsTheWeightedSum) {
  const Image image(cv::Mat(1, 1, CV_32FC3, cv::Scalar(0.5, 0.25, 1.0)));
  const auto capture = test::capture("c", {{"CLR", {{"RGB", image}}}});
  // 0.1495 + 0.14675 + 0.114 = 0.41025
  EXPECT_FLOAT_EQ(find_band(*capture, "").plane().row<float>(0)[0], 0.41025f);
  std::vector<double> row(1);
  find_band(*capture, "").read_row(0, row);
  EXPECT_NEAR(row[0], 0.41025, 1e-7);
}

BandMap centres(const std::vector<std::pair<std::string, double>>& entries) {
  BandMap bands;
  for (const auto& [name, centre] : entries)
    bands.insert_or_assign(name, BandInfo{.centre_nm = centre, .width_nm = {}});
  return bands;
}

std::shared_ptr<CaptureSet> bands_named(const std::string& measurement, const std::vector<std::string>& images,
                                        BandMap bands) {
  std::vector<std::pair<std::string, Image>> planes;
  for (const std::string& name : images) planes.emplace_back(name, flat_image<std::uint8_t>(1, 1, 1));
  return test::capture("c", {{measurement, planes}}, nullptr, std::move(bands));
}

TEST(FindRoles, PreferTheCentreNearestToTheRole) {
  const auto capture =
      bands_named("MSP", {"B4", "B5", "B6", "B7", "B8", "B8A"},
                  centres({{"B4", 665}, {"B5", 705}, {"B6", 740}, {"B7", 783}, {"B8", 833}, {"B8A", 865}}));
  EXPECT_THAT(names(find_roles(*capture, {"N", "R", "RE", "RE2"})),
              testing::ElementsAre("MSP.B8", "MSP.B4", "MSP.B5", "MSP.B6"));
}

TEST(FindRoles, FallBackOnTheCustomaryNamesOfImages) {
  const auto capture = bands_named("MSP", {"BLU", "GRN", "RED", "EDG", "NIR"}, {});
  EXPECT_THAT(names(find_roles(*capture, {"N", "R", "G", "B", "RE"})),
              testing::ElementsAre("MSP.NIR", "MSP.RED", "MSP.GRN", "MSP.BLU", "MSP.EDG"));
}

TEST(FindRoles, GivenAnImageOfTheNameWhoseCentreLiesElsewhere_ThenItIsNotTakenAndTheReasonIsShown) {
  const auto capture = bands_named("MSP", {"RED", "NIR"}, centres({{"RED", 668}, {"NIR", 950}}));
  EXPECT_EQ(
      refusal([&] {
        static_cast<void>(find_roles(*capture, {"N", "R"}));
      }),
      "No measurement of this capture has a band for the role N (near infrared) together with R: looked for a "
      "single-band image whose [Band] section declares a centre from 760 to 900 nm, or one named NIR; MSP.NIR has "
      "its centre at 950 nm; it has MSP.RED, MSP.NIR.");
  // Who names it wants it.
  EXPECT_THAT(names(find_roles(*capture, {"N", "R"}, {{"N", "MSP.NIR"}})), testing::ElementsAre("MSP.NIR", "MSP.RED"));
  // Both ends of the range belong to it.
  for (const double centre : {760.0, 900.0}) {
    const auto inside = bands_named("MSP", {"NIR"}, centres({{"NIR", centre}}));
    EXPECT_THAT(names(find_roles(*inside, {"N"})), testing::ElementsAre("MSP.NIR")) << centre;
  }
}

TEST(FindBands, ResolveNamesAndRolesOfOneMeasurementTogether) {
  const auto capture = plot();
  EXPECT_THAT(names(find_bands(*capture, {"N", "MSP.RED", "EDG"})),
              testing::ElementsAre("MSP.NIR", "MSP.RED", "MSP.EDG"));
  EXPECT_THAT(names(find_bands(*capture, {"CLR.RGB.G", "MSP.RED"})), testing::ElementsAre("CLR.RGB.G", "MSP.RED"));
  EXPECT_EQ(refusal([&] {
              static_cast<void>(find_bands(*capture, {"CLR.RGB.G", "N"}));
            }),
            "The role N is MSP.NIR and CLR.RGB.G is of another measurement, but a role is calculated with bands of its "
            "own measurement only; write the full names of all bands to mix measurements.");
  EXPECT_THAT(refusal([&] { static_cast<void>(find_bands(*capture, {"SW1"})); }),
              testing::StartsWith("There is no band \"SW1\" in this capture"));
}

TEST(FindBands, GivenAnImageThatIsCalledLikeARole_ThenTheImageIsMeant) {
  const auto capture = bands_named("MSP", {"R", "RED"}, {});
  EXPECT_THAT(names(find_bands(*capture, {"R"})), testing::ElementsAre("MSP.R"));
  EXPECT_THAT(names(find_bands(*capture, {"R"}, {{"R", "MSP.RED"}})), testing::ElementsAre("MSP.RED"));
}

TEST(BandRoles, HaveARangeAroundTheirCentreAndAreKnownByName) {
  for (const BandRole& role : band_roles()) {
    EXPECT_LE(role.from_nm, role.centre_nm) << role.name;
    EXPECT_GE(role.to_nm, role.centre_nm) << role.name;
  }
  EXPECT_EQ(get_band_role("RE").centre_nm, 705);
  EXPECT_EQ(refusal([] { static_cast<void>(get_band_role("X")); }), "There is no band role \"X\".");
}

TEST(FindRoles, PreferACentreToAName) {
  const auto capture = bands_named("MSP", {"NIR", "X"}, centres({{"NIR", 950}, {"X", 850}}));
  EXPECT_THAT(names(find_roles(*capture, {"N"})), testing::ElementsAre("MSP.X"));
}

TEST(FindRoles, TakeTheColourPictureOnlyWithoutMsp) {
  const auto plain = test::capture("c", {{"CLR", {{"RGB", color_image()}}}});
  EXPECT_THAT(names(find_roles(*plain, {"R", "G", "B"})), testing::ElementsAre("CLR.RGB.R", "CLR.RGB.G", "CLR.RGB.B"));
  EXPECT_EQ(refusal([] { static_cast<void>(find_roles(*plot(), {"G"})); }),
            "No measurement of this capture has a band for the role G (green): looked for a single-band image whose "
            "[Band] section declares a centre from 510 to 600 nm, or one named GRN, or in a capture without MSP the "
            "channel G of CLR; it has MSP.RED, MSP.NIR, MSP.EDG, CLR.RGB.R, CLR.RGB.G, CLR.RGB.B, CLR.RGB.grey.");
}

TEST(FindRoles, NeverMixMeasurements) {
  const auto split = test::capture(
      "c", {{"A", {{"RED", flat_image<std::uint8_t>(1, 1, 1)}}},
            {"B", {{"NIR", flat_image<std::uint8_t>(1, 1, 1)}}},
            {"C", {{"NIR", flat_image<std::uint8_t>(1, 1, 1)}, {"RED", flat_image<std::uint8_t>(1, 1, 1)}}}});
  EXPECT_THAT(names(find_roles(*split, {"N", "R"})), testing::ElementsAre("C.NIR", "C.RED"));
  const auto without = test::capture(
      "c", {{"A", {{"RED", flat_image<std::uint8_t>(1, 1, 1)}}}, {"B", {{"NIR", flat_image<std::uint8_t>(1, 1, 1)}}}});
  EXPECT_THAT(refusal([&] {
                static_cast<void>(find_roles(*without, {"N", "R"}));
              }),
              testing::StartsWith("No measurement of this capture has a band for the role R (red) together with N: "));
}

TEST(FindRoles, TakeANamedBandFirstAndTheOthersFromItsMeasurement) {
  const auto capture = test::capture(
      "c", {{"MSP", {{"RED", flat_image<std::uint8_t>(1, 1, 1)}, {"NIR", flat_image<std::uint8_t>(1, 1, 1)}}},
            {"ABC",
             {{"RED", flat_image<std::uint8_t>(1, 1, 1)},
              {"NIR", flat_image<std::uint8_t>(1, 1, 1)},
              {"X", flat_image<std::uint8_t>(1, 1, 1)}}}});
  EXPECT_THAT(names(find_roles(*capture, {"N", "R"}, {{"N", "ABC.X"}})), testing::ElementsAre("ABC.X", "ABC.RED"));
  EXPECT_THAT(names(find_roles(*capture, {"R", "N"}, {{"N", "ABC.X"}})), testing::ElementsAre("ABC.RED", "ABC.X"));
  EXPECT_THAT(names(find_roles(*capture, {"N", "R"}, {{"G", "ABC.X"}})), testing::ElementsAre("MSP.NIR", "MSP.RED"));
}

TEST(FindRoles, TakeNamedChannelsOfAColourPictureBesideMsp) {
  EXPECT_THAT(names(find_roles(*plot(), {"G", "R"}, {{"G", "CLR.RGB.G"}, {"R", "CLR.RGB.R"}})),
              testing::ElementsAre("CLR.RGB.G", "CLR.RGB.R"));
  EXPECT_EQ(refusal([] {
              static_cast<void>(find_roles(*plot(), {"G", "R"}, {{"G", "CLR.RGB.G"}}));
            }),
            "CLR.RGB.G is named for the role G, but its measurement CLR has no band for the role R (red): looked for a "
            "single-band image whose [Band] section declares a centre from 600 to 690 nm, or one named RED, or in a "
            "capture without MSP the channel R of CLR; it has CLR.RGB.R, CLR.RGB.G, CLR.RGB.B, CLR.RGB.grey. Name that "
            "band too.");
  const auto plain = test::capture("c", {{"CLR", {{"RGB", color_image()}, {"TWO", color_image()}}}});
  EXPECT_THAT(names(find_roles(*plain, {"G", "R"}, {{"G", "CLR.TWO.G"}})),
              testing::ElementsAre("CLR.TWO.G", "CLR.TWO.R"));
}

TEST(FindRoles, NeverMixMeasurementsEvenWhenBandsAreNamed) {
  EXPECT_EQ(refusal([] {
              static_cast<void>(find_roles(*plot(), {"N", "R"}, {{"N", "MSP.NIR"}, {"R", "CLR.RGB.R"}}));
            }),
            "MSP.NIR is named for the role N and CLR.RGB.R for the role R, but bands that are calculated with each "
            "other have to come from one measurement.");
}

TEST(FindRoles, SayThatANamedBandIsNotThere) {
  EXPECT_EQ(refusal([] {
              static_cast<void>(find_roles(*plot(), {"N", "R"}, {{"N", "MSP.NIX"}}));
            }),
            "There is no band \"MSP.NIX\" in this capture (did you mean \"MSP.NIR\"?); it has MSP.RED, MSP.NIR, "
            "MSP.EDG, CLR.RGB.R, CLR.RGB.G, CLR.RGB.B, CLR.RGB.grey.");
  EXPECT_THAT(refusal([] {
                static_cast<void>(find_roles(*plot(), {"N"}, {{"N", "RGB.R"}}));
              }),
              testing::StartsWith("There is no band \"RGB.R\" in this capture"));
}

TEST(FindRoles, GivenAColourImageWithoutAChannelForARole_ThenTheChannelsAreNamed) {
  const std::string sentence =
      "CLR.RGB is named for the role R, but it is a colour image; name one of its channels: CLR.RGB.R, CLR.RGB.G, "
      "CLR.RGB.B, CLR.RGB.grey.";
  EXPECT_EQ(test::refusal([] { static_cast<void>(find_roles(*plot(), {"G", "R"}, {{"R", "CLR.RGB"}})); }), sentence);
  EXPECT_EQ(test::refusal([] { static_cast<void>(find_bands(*plot(), {"R"}, {{"R", "CLR.RGB"}})); }), sentence);
  EXPECT_THAT(names(find_roles(*plot(), {"R"}, {{"R", "CLR.RGB.grey"}})), testing::ElementsAre("CLR.RGB.grey"))
      << "the grey may be meant";
}

TEST(FindRoles, RefuseARoleThatThereIsNot) {
  EXPECT_THROW(static_cast<void>(find_roles(*plot(), {"UV"})), std::invalid_argument);
}

}  // namespace
}  // namespace orvexa::model
