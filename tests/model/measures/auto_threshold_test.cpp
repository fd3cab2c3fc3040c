#include "orvexa/model/measures/auto_threshold.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>

#include "orvexa/common/serialisation.h"
#include "orvexa/model/entities/capture_loader.h"
#include "support/mask_operations.h"
#include "support/temporary_folder.h"

namespace orvexa::model {
namespace {

Histogram histogram_of(const std::vector<int>& values) {
  Histogram histogram;
  histogram.bins.resize(256);
  for (const int value : values) ++histogram.bins[static_cast<std::size_t>(value)];
  histogram.n = static_cast<std::int64_t>(values.size());
  if (!values.empty()) {
    histogram.min = *std::min_element(values.begin(), values.end());
    histogram.max = *std::max_element(values.begin(), values.end());
  }
  return histogram;
}

std::optional<double> level(const std::vector<int>& values, AutoThresholdMethod method) {
  return auto_threshold_level(histogram_of(values), method);
}

TEST(OtsuLevel, IsTheLowestOfEquallyGoodOnes) {
  // Every level from 10 to 19 parts the values alike; 10 is the last level of the background.
  EXPECT_EQ(level({10, 10, 20, 20}, AutoThresholdMethod::otsu), 10);
  // Mirror-symmetric: 0 | 1 2 and 0 1 | 2 are equally good (1 * 2 * 1.5^2 both).
  EXPECT_EQ(level({0, 1, 2}, AutoThresholdMethod::otsu), 0);
}

TEST(OtsuLevel, HasTheGreatestVarianceBetweenTheClasses) {
  // 0 0 0 | 4 5: 3 * 2 * 4.5^2 = 121.5; 0 0 0 4 | 5: 4 * 1 * 4^2 = 64.
  EXPECT_EQ(level({0, 0, 0, 4, 5}, AutoThresholdMethod::otsu), 0);
  // 0 1 | 9 9: 2 * 2 * 8.5^2 = 289; 0 | 1 9 9: 1 * 3 * (19/3)^2 = 120.3.
  EXPECT_EQ(level({0, 1, 9, 9}, AutoThresholdMethod::otsu), 1);
}

TEST(TriangleLevel, IsFarthestBelowTheLineToTheLongerTail) {
  // Peak 4 at 0, tail up to 4 with one each at 1, 2 and 4: the line falls from (0, 4) to (4, 0). Below it lie 1 by
  // 3 - 1 = 2, 2 by 2 - 1 = 1, 3 by 1 - 0 = 1.
  EXPECT_EQ(level({0, 0, 0, 0, 1, 2, 4}, AutoThresholdMethod::triangle), 1);
  // The same mirrored at 4: the level is 3, so that 4 alone is above it.
  EXPECT_EQ(level({4, 4, 4, 4, 3, 2, 0}, AutoThresholdMethod::triangle), 3);
}

TEST(LiLevel, EndsAtItsFixedPoint) {
  // Start: mean of 0 0 0 30 = 7.5, background 0: its logarithm does not exist, the level stays between 0 and 30.
  EXPECT_EQ(level({0, 0, 0, 30}, AutoThresholdMethod::li), 7);
  // Values above the lowest: 0 2 2 30 30. Mean 12.8; background (0 + 2 + 2) / 3 = 1.333, foreground 30;
  // (1.333 - 30) / (ln 1.333 - ln 30) = -28.667 / -3.114 = 9.207, which parts them alike.
  EXPECT_EQ(level({10, 12, 12, 40, 40}, AutoThresholdMethod::li), 10 + 9);
}

TEST(YenLevel, HasTheGreatestCriterion) {
  // 0 0 0 0 | 7 9: P0 P1 = 4/6 * 2/6 = 0.2222, S0 S1 = 0.4444 * 0.0556 = 0.02469; 2 ln 0.2222 - ln 0.02469 = 0.693.
  // 0 0 0 0 7 | 9: P0 P1 = 5/36 = 0.1389, S0 S1 = 0.4722 * 0.02778 = 0.01312; 2 ln 0.1389 - ln 0.01312 = 0.386.
  EXPECT_EQ(level({0, 0, 0, 0, 7, 9}, AutoThresholdMethod::yen), 0);
}

TEST(MaxEntropyLevel, HasTheGreatestSumOfEntropies) {
  // 1 2 3 | 4 5: ln 3 + ln 2 = 1.792; 1 2 | 3 4 5 is the same; 1 | 2 3 4 5: ln 4 = 1.386. The lower of the best is 2.
  EXPECT_EQ(level({1, 2, 3, 4, 5}, AutoThresholdMethod::max_entropy), 2);
  // 3 3 3 4 | 5 6: (ln 4 - 3 ln 3 / 4) + ln 2 = 0.562 + 0.693 = 1.255; 3 3 3 | 4 5 6: 0 + ln 3 = 1.099;
  // 3 3 3 4 5 | 6: (ln 5 - 3 ln 3 / 5) + 0 = 0.950.
  EXPECT_EQ(level({3, 3, 3, 4, 5, 6}, AutoThresholdMethod::max_entropy), 4);
}

TEST(IsodataLevel, IsTheLowestMiddleOfTheMeans) {
  // 10 | 20: the middle is 15 for every level from 10 to 19, and 15 is 15.
  EXPECT_EQ(level({10, 10, 20, 20}, AutoThresholdMethod::isodata), 15);
  // 0 0 | 3 10: (0 + 6.5) / 2 = 3.25, which is not among the levels 0 to 2 that part them so; 0 0 3 | 10: 5.5.
  EXPECT_EQ(level({0, 0, 3, 10}, AutoThresholdMethod::isodata), 5);
  // 0 0 | 2 10: 3, which is not among 0 and 1; 0 0 2 | 10: (0.67 + 10) / 2 = 5.33.
  EXPECT_EQ(level({0, 0, 2, 10}, AutoThresholdMethod::isodata), 5);
}

TEST(MeanLevel, IsTheMeanWithoutItsFraction) {
  EXPECT_EQ(level({1, 2, 9}, AutoThresholdMethod::mean), 4);
  EXPECT_EQ(level({1, 2, 8}, AutoThresholdMethod::mean), 3);  // 3.67
}

TEST(MinimumLevel, IsTheValleyBetweenTheTwoPeaks) {
  // Counts 1 3 1 0 0 1 3 1 at 10 to 17; means of three: 1.67 1.67 1.33 0.33 0.33 1.33 1.67 1.67. The peaks are 11 and,
  // for there is no fall behind 17, none: a rise up to the highest value is no peak. A single 18 ends it: counts
  // 1 3 1 0 0 1 3 1 0 1 have means .. 1.33 1.67 1.33 0.67 0.67 and peaks at 11 and 16; the lowest between is 13.
  EXPECT_FALSE(level({10, 11, 11, 11, 12, 15, 16, 16, 16, 17}, AutoThresholdMethod::minimum));
  EXPECT_EQ(level({10, 11, 11, 11, 12, 15, 16, 16, 16, 17, 19}, AutoThresholdMethod::minimum), 13);
}

TEST(MinimumLevel, IsAbsentWhereTheHistogramDoesNotHaveTwoPeaks) {
  EXPECT_FALSE(level({1, 2, 2, 2, 3, 4}, AutoThresholdMethod::minimum));
  EXPECT_EQ(no_level_text(histogram_of({1, 2, 2, 2, 3, 4}), "MSP.NIR"),
            "no_two_peaks: the histogram of MSP.NIR does not come to have two peaks, so the mask is empty");
}

TEST(AutoThresholdLevel, IsAbsentWithoutContrast) {
  for (const AutoThresholdMethodInfo& info : auto_threshold_methods()) {
    SCOPED_TRACE(info.name);
    EXPECT_FALSE(level({}, info.method));
    EXPECT_FALSE(level({7}, info.method));
    EXPECT_FALSE(level({255, 255, 255}, info.method));
    EXPECT_EQ(level({254, 255}, info.method).has_value(), info.method != AutoThresholdMethod::minimum);
  }
}

TEST(AutoThresholdLevel, AlwaysPartsTheValuesInTwo) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> value(0, 1 + int(seed) % 255);
    std::vector<int> values;
    for (unsigned i = 0; i < 2 + seed % 40; ++i) values.push_back(value(random));
    const auto [min, max] = std::minmax_element(values.begin(), values.end());
    if (*min == *max) continue;
    for (const AutoThresholdMethodInfo& info : auto_threshold_methods()) {
      const auto found = level(values, info.method);
      if (!found && info.method == AutoThresholdMethod::minimum) continue;  // no two peaks
      ASSERT_TRUE(found) << info.name;
      EXPECT_GE(*found, *min) << info.name;
      EXPECT_LT(*found, *max) << info.name;
    }
  }
}

TEST(AutoThresholdMethods, AreFoundByName) {
  EXPECT_THAT(auto_threshold_method_names(),
              testing::ElementsAre("otsu", "li", "yen", "triangle", "isodata", "minimum", "mean", "max_entropy"));
  EXPECT_EQ(auto_threshold_method("li"), AutoThresholdMethod::li);
  EXPECT_THROW(static_cast<void>(auto_threshold_method("guess")), std::invalid_argument);
}

// Oracle pictures of 80 x 50 pixels from a congruential generator, in Python:
//   def lcg(n, s):
//     for _ in range(n): s = (s * 1103515245 + 12345) % 2**31; yield s >> 16
//   humps = (np.array(list(lcg(16000, 1))).reshape(4000, 4) % 32).sum(1); humps[3000:] += 100
//   tail = (np.array(list(lcg(4000, 7))) % 64) ** 2 // 16
// and the levels by skimage.filters.threshold_otsu, threshold_triangle and threshold_li of scikit-image 0.19.3.
std::vector<int> generated(unsigned seed, int count) {
  std::vector<int> values;
  std::uint64_t state = seed;
  for (int i = 0; i < count; ++i) {
    state = (state * 1103515245u + 12345u) % (std::uint64_t{1} << 31);
    values.push_back(static_cast<int>(state >> 16));
  }
  return values;
}

std::vector<int> humps() {
  const std::vector<int> draws = generated(1, 16000);
  std::vector<int> values(4000, 0);
  for (std::size_t i = 0; i < draws.size(); ++i) values[i / 4] += draws[i] % 32;
  for (std::size_t i = 3000; i < values.size(); ++i) values[i] += 100;
  return values;
}

std::vector<int> tail() {
  std::vector<int> values;
  for (const int draw : generated(7, 4000)) values.push_back((draw % 64) * (draw % 64) / 16);
  return values;
}

std::vector<int> inverted(std::vector<int> values) {
  for (int& value : values) value = 255 - value;
  return values;
}

template <typename T>
Histogram picture_histogram(const std::vector<int>& values, double scale) {
  cv::Mat pixels(50, 80, cv::DataType<T>::type);
  for (std::size_t i = 0; i < values.size(); ++i) {
    pixels.at<T>(static_cast<int>(i) / 80, static_cast<int>(i) % 80) = static_cast<T>(values[i] * scale);
  }
  const Band band{.image = Image(pixels), .channel = 0, .white = {}, .name = "T.I", .measurement = "T"};
  return masked_histogram(band, nullptr, {});
}

TEST(AutoThresholdOracle, PicturesAreTheOnesThatTheOracleSaw) {
  const std::vector<int> values = humps();
  EXPECT_EQ(std::accumulate(values.begin(), values.end(), 0), 348082);
  EXPECT_EQ(*std::min_element(values.begin(), values.end()), 7);
  EXPECT_EQ(*std::max_element(values.begin(), values.end()), 217);
}

TEST(AutoThresholdOracle, EightBit) {
  const Histogram histogram = picture_histogram<std::uint8_t>(humps(), 1);
  EXPECT_EQ(auto_threshold_level(histogram, AutoThresholdMethod::otsu), 111);
  EXPECT_EQ(auto_threshold_level(histogram, AutoThresholdMethod::triangle), 104);
  // 102.07 in the oracle, which stops when a step is shorter than half a count.
  EXPECT_NEAR(auto_threshold_level(histogram, AutoThresholdMethod::li).value_or(-1), 102, 1);
}

TEST(AutoThresholdOracle, EightBitInverted) {
  const Histogram histogram = picture_histogram<std::uint8_t>(inverted(humps()), 1);
  EXPECT_EQ(auto_threshold_level(histogram, AutoThresholdMethod::otsu), 143);
  EXPECT_EQ(auto_threshold_level(histogram, AutoThresholdMethod::triangle), 151);
  EXPECT_NEAR(auto_threshold_level(histogram, AutoThresholdMethod::li).value_or(-1), 134, 1);  // 134.80
}

TEST(AutoThresholdOracle, OneHumpWithATail) {
  const Histogram histogram = picture_histogram<std::uint8_t>(tail(), 1);
  EXPECT_EQ(auto_threshold_level(histogram, AutoThresholdMethod::otsu), 100);
  EXPECT_EQ(auto_threshold_level(histogram, AutoThresholdMethod::triangle), 8);
  EXPECT_NEAR(auto_threshold_level(histogram, AutoThresholdMethod::li).value_or(-1), 68, 1);  // 68.85
  const Histogram mirrored = picture_histogram<std::uint8_t>(inverted(tail()), 1);
  EXPECT_EQ(auto_threshold_level(mirrored, AutoThresholdMethod::otsu), 150);
  EXPECT_EQ(auto_threshold_level(mirrored, AutoThresholdMethod::triangle), 247);
  EXPECT_NEAR(auto_threshold_level(mirrored, AutoThresholdMethod::li).value_or(-1), 125, 1);  // 125.998
}

TEST(AutoThresholdOracle, SixteenBitWithOneBinACount) {
  const Histogram histogram = picture_histogram<std::uint16_t>(humps(), 200);
  EXPECT_EQ(auto_threshold_level(histogram, AutoThresholdMethod::otsu), 22200);
  EXPECT_EQ(auto_threshold_level(histogram, AutoThresholdMethod::triangle), 14001);
  EXPECT_NEAR(auto_threshold_level(histogram, AutoThresholdMethod::li).value_or(-1), 20455, 1);  // 20455.58
}

TEST(AutoThresholdOracle, FloatWithBinsOfTheirRange) {
  // threshold_otsu(humps / 256, 4096) = 0.43359 and threshold_li = 0.39871; a bin is 0.0002 wide. No
  // pixel lies between 102 / 256 = 0.39844 and 103 / 256 = 0.40234, so these levels part them alike.
  const Histogram histogram = picture_histogram<float>(humps(), 1.0 / 256);
  EXPECT_NEAR(auto_threshold_level(histogram, AutoThresholdMethod::otsu).value_or(-1), 0.43359, 0.0003);
  EXPECT_GE(auto_threshold_level(histogram, AutoThresholdMethod::li).value_or(-1), 102.0 / 256);
  EXPECT_LT(auto_threshold_level(histogram, AutoThresholdMethod::li).value_or(-1), 103.0 / 256);
}

// ---- Otsu of real pictures: reference values by scikit-image, one bin a count ----

void expect_otsu(const ImageSource& source, const std::string& band, const Value& expected, int& checked) {
  if (!expected.is_number()) return;
  const Histogram histogram = masked_histogram(find_band(source, band), nullptr, {});
  const auto found = auto_threshold_level(histogram, AutoThresholdMethod::otsu);
  ASSERT_TRUE(found) << band;
  EXPECT_EQ(*found, expected.get<double>()) << band;
  ++checked;
}

/// @param image  "CLR.RGB"
void expect_otsu_of_image(const ImageSource& source, const std::string& image, const Value& reference, int& checked) {
  for (const auto& [channel, values] : reference.at("channels").items()) {
    if (channel == "A") continue;  // alpha is dropped
    expect_otsu(source, channel == "grey" ? image : image + "." + channel, values.value("otsu", Value()), checked);
  }
  if (reference.contains("grey")) {
    expect_otsu(source, image + ".grey", reference.at("grey").value("otsu", Value()), checked);
  }
}

Value reference(const std::filesystem::path& file) {
  return common::parse_json(test::read_all(file), file.filename().string());
}

TEST(OtsuOfRealData, EqualsTheReferenceForEveryPicture) {
  const auto data = test::real_data();
  if (!data) GTEST_SKIP() << "no folder shared/data beside the project";
  int checked = 0;
  const Value pictures = reference(*data / "reference" / "images.json");
  for (const auto& [file, values] : pictures.items()) {
    SCOPED_TRACE(file);
    const auto capture = load_capture_from_image(*data / file);
    const std::string image = capture->get_measurement_types().front() == "CLR" ? "CLR.RGB" : "GRY.GRY";
    expect_otsu_of_image(*capture, image, values, checked);
  }
  EXPECT_GE(checked, 80) << "the reference holds fewer levels than it did";
}

TEST(OtsuOfRealData, EqualsTheReferenceForEveryBandOfEveryCapture) {
  const auto data = test::real_data();
  if (!data) GTEST_SKIP() << "no folder shared/data beside the project";
  int checked = 0;
  const Value captures = reference(*data / "reference" / "captures.json");
  for (const auto& [name, capture_reference] : captures.items()) {
    SCOPED_TRACE(name);
    const auto capture = get_default_capture_loader()(*data / capture_reference.at("header").get<std::string>());
    for (const auto& [measurement, images] : capture_reference.at("measurements").items()) {
      for (const auto& [image, values] : images.items()) {
        expect_otsu_of_image(*capture, measurement + "." + image, values, checked);
      }
    }
  }
  EXPECT_GE(checked, 60) << "the reference holds fewer levels than it did";
}

}  // namespace
}  // namespace orvexa::model
