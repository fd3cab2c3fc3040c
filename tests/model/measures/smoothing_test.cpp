#include "orvexa/model/measures/smoothing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "orvexa/model/measures/bilateral_filter.h"
#include "orvexa/model/measures/gaussian_filter.h"
#include "orvexa/model/measures/median_filter.h"
#include "support/counting_event.h"
#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using testing::ElementsAre;

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();

Value parameters(const Value& given) {
  return validate_parameters("test", with_smoothing({}), given);
}

Image filtered(const Image& image, const Value& given) {
  const Band band{image, 0, {.counts = image.type_white_level()}, "T.I", "T"};
  return smoothed(band, parameters(given), {}).image;
}

std::vector<double> row_of(const Image& image, int y) {
  std::vector<double> values(static_cast<std::size_t>(image.width()));
  Band{image, 0, {}, "T.I", "T"}.read_row(y, values);
  return values;
}

// ---- The slow definitions, for comparison ----

/// The median by sorting the window, replicated border, finite values only.
template <typename T>
Image sorted_median(const Image& image, int radius) {
  const cv::Mat& plane = image.read_only();
  cv::Mat result(plane.rows, plane.cols, plane.type());
  for (int y = 0; y < plane.rows; ++y) {
    for (int x = 0; x < plane.cols; ++x) {
      std::vector<T> window;
      for (int dy = -radius; dy <= radius; ++dy) {
        for (int dx = -radius; dx <= radius; ++dx) {
          const T value = plane.at<T>(std::clamp(y + dy, 0, plane.rows - 1), std::clamp(x + dx, 0, plane.cols - 1));
          if (std::isfinite(double(value))) window.push_back(value);
        }
      }
      std::ranges::sort(window);
      const T own = plane.at<T>(y, x);
      result.at<T>(y, x) = std::isfinite(double(own)) ? window[window.size() / 2] : own;
    }
  }
  return Image(result);
}

/// A mean with weights of any two pixels' distances and values, replicated border.
template <typename T, typename Weight>
cv::Mat weighted_mean(const Image& image, int radius, const Weight& weight) {
  const cv::Mat& plane = image.read_only();
  cv::Mat result(plane.rows, plane.cols, CV_64FC1);
  for (int y = 0; y < plane.rows; ++y) {
    for (int x = 0; x < plane.cols; ++x) {
      double sum = 0;
      double weights = 0;
      for (int dy = -radius; dy <= radius; ++dy) {
        for (int dx = -radius; dx <= radius; ++dx) {
          const double value =
              double(plane.at<T>(std::clamp(y + dy, 0, plane.rows - 1), std::clamp(x + dx, 0, plane.cols - 1)));
          if (!std::isfinite(value)) continue;
          const double w = weight(dy, dx, value - double(plane.at<T>(y, x)));
          sum += w * value;
          weights += w;
        }
      }
      result.at<double>(y, x) = sum / weights;
    }
  }
  return result;
}

void expect_near(const Image& image, const cv::Mat& expected, double tolerance) {
  ASSERT_EQ(image.type(), PixelType::f32);
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      ASSERT_NEAR(image.read_only().at<float>(y, x), expected.at<double>(y, x), tolerance) << y << ", " << x;
    }
  }
}

// ---- none ----

TEST(Smoothing, WithoutAFilterGivesThePlaneOfTheChannelAlone) {
  const auto capture = test::random_capture(1, 5, 6);
  const Band band = find_band(*capture, "CLR.RGB.G");
  const Band plane = smoothed(band, parameters({}), {});
  EXPECT_EQ(plane.image, band.plane());
  EXPECT_EQ(plane.name, "CLR.RGB.G");
  EXPECT_EQ(plane.measurement, "CLR");
}

// ---- gaussian ----

TEST(GaussianWeights, EndAtFourSigmaAndAddUpToOne) {
  for (const double sigma : {0.1, 0.125, 0.3, 1.0, 2.5, 50.0}) {
    SCOPED_TRACE(sigma);
    const std::vector<double> weights = gaussian_weights(sigma);
    EXPECT_EQ(weights.size(), static_cast<std::size_t>(std::floor(4 * sigma + 0.5)) + 1);
    double sum = weights[0];
    for (std::size_t k = 1; k < weights.size(); ++k) sum += 2 * weights[k];
    EXPECT_NEAR(sum, 1, 1e-14);
    EXPECT_TRUE(std::ranges::is_sorted(weights, std::greater<>()));
  }
  EXPECT_THROW(static_cast<void>(gaussian_weights(0)), std::invalid_argument);
}

TEST(GaussianFilter, SpreadsAPointAsTheProductOfTwoWeights) {
  cv::Mat pixels = cv::Mat::zeros(21, 23, CV_8UC1);
  pixels.at<std::uint8_t>(10, 11) = 200;
  const Image result = filtered(Image(pixels), {{"smooth", "gaussian"}, {"smooth_sigma", 1.5}});
  const std::vector<double> weights = gaussian_weights(1.5);
  ASSERT_EQ(weights.size(), 7u);
  for (std::size_t k = 0; k < 7; ++k) {
    const int at = static_cast<int>(k);
    EXPECT_FLOAT_EQ(result.read_only().at<float>(10 - at, 11), static_cast<float>(200 * weights[0] * weights[k]));
    EXPECT_FLOAT_EQ(result.read_only().at<float>(10 + at, 11 + at), static_cast<float>(200 * weights[k] * weights[k]));
  }
  EXPECT_EQ(result.read_only().at<float>(10, 18), 0.0f);
}

TEST(GaussianFilter, EqualsTheSumOverTheWindowInEveryTypeAndAtTheBorder) {
  const auto weight = [](int dy, int dx, double) { return std::exp(-0.5 * (dx * dx + dy * dy) / 4.0); };
  const Image u8 = test::random_image<std::uint8_t>(1, 30, 41, 1, 255.9);
  expect_near(filtered(u8, {{"smooth", "gaussian"}, {"smooth_sigma", 2}}), weighted_mean<std::uint8_t>(u8, 8, weight),
              1e-5);
  const Image u16 = test::random_image<std::uint16_t>(2, 9, 300, 1, 65535);
  expect_near(filtered(u16, {{"smooth", "gaussian"}, {"smooth_sigma", 2}}),
              weighted_mean<std::uint16_t>(u16, 8, weight), 65535 * 1e-7);
  const Image f32 = test::random_image<float>(3, 30, 5, 1, 1.0);
  expect_near(filtered(f32, {{"smooth", "gaussian"}, {"smooth_sigma", 2}}), weighted_mean<float>(f32, 8, weight), 1e-7);
}

TEST(GaussianFilter, LeavesOutWhatIsNoNumber) {
  // Sigma 0.5 has radius 2; between 1 and 3 at equal distances the gap would be 2, but it stays as it is.
  const Image result =
      filtered(test::image<float>({{1, nan_value, 3, infinite}}), {{"smooth", "gaussian"}, {"smooth_sigma", 0.5}});
  const auto row = row_of(result, 0);
  EXPECT_TRUE(std::isnan(row[1]));
  EXPECT_TRUE(std::isinf(row[3]));
  // Around the first pixel, replicated twice to the left: weights of 1 w0 + w1 + w2, of 3 w2.
  const auto w = gaussian_weights(0.5);
  EXPECT_FLOAT_EQ(static_cast<float>(row[0]),
                  static_cast<float>(((w[0] + w[1] + w[2]) * 1 + w[2] * 3) / (w[0] + w[1] + 2 * w[2])));
}

TEST(GaussianFilter, IsTheSameWhereTilesMeet) {
  // A stripe of 1500 columns is 174 rows high; the pieces of a plane and the whole must agree.
  const Image image = test::random_image<std::uint16_t>(4, 400, 1500, 1, 60000);
  const Image whole = filtered(image, {{"smooth", "gaussian"}, {"smooth_sigma", 3}});
  const Image part =
      filtered(Image(image.read_only().rowRange(100, 300).clone()), {{"smooth", "gaussian"}, {"smooth_sigma", 3}});
  EXPECT_EQ(cv::norm(whole.read_only().rowRange(112, 288), part.read_only().rowRange(12, 188), cv::NORM_INF), 0);
}

TEST(GaussianRows, GivenAMask_ThenOnlyItsPixelsCount) {
  const Image image = test::image<std::uint8_t>({{10, 20, 200, 30}});
  const Mask mask = test::mask({"##.#"});
  const auto w = gaussian_weights(0.25);  // radius 1
  std::vector<double> means;
  for_each_gaussian_row(image.read_only(), &mask, 0.25, GaussianBorder::left_out, {},
                        [&](int, std::span<const double> row) { means.assign(row.begin(), row.end()); });
  EXPECT_NEAR(means[0], (w[0] * 10 + w[1] * 20) / (w[0] + w[1]), 1e-12);
  EXPECT_NEAR(means[1], (w[0] * 20 + w[1] * 10) / (w[0] + w[1]), 1e-12);
  EXPECT_NEAR(means[2], 25, 1e-12) << "the mean of the two beside it";
  EXPECT_NEAR(means[3], 30, 1e-12);
  const Mask none = Mask::empty({1, 4});
  for_each_gaussian_row(image.read_only(), &none, 0.25, GaussianBorder::left_out, {},
                        [&](int, std::span<const double> row) { means.assign(row.begin(), row.end()); });
  EXPECT_TRUE(std::ranges::all_of(means, [](double mean) { return std::isnan(mean); }));
}

TEST(GaussianRows, GivenABorderThatIsLeftOut_ThenTheWeightsInsideAddUpToOne) {
  const Image flat = test::flat_image<std::uint8_t>(7, 9, 50);
  const Image noise = test::random_image<std::uint8_t>(9, 20, 30, 1, 255.9);
  const Mask full = Mask::full({20, 30});
  for_each_gaussian_row(flat.read_only(), nullptr, 4, GaussianBorder::left_out, {},
                        [&](int, std::span<const double> row) {
                          for (const double mean : row) EXPECT_NEAR(mean, 50, 1e-12);
                        });
  cv::Mat without(20, 30, CV_64FC1);
  for_each_gaussian_row(noise.read_only(), nullptr, 2, GaussianBorder::left_out, {},
                        [&](int y, std::span<const double> row) { std::ranges::copy(row, without.ptr<double>(y)); });
  for_each_gaussian_row(noise.read_only(), &full, 2, GaussianBorder::left_out, {},
                        [&](int y, std::span<const double> row) {
                          for (int x = 0; x < 30; ++x) {
                            EXPECT_NEAR(row[static_cast<std::size_t>(x)], without.at<double>(y, x), 1e-11);
                          }
                        });
}

TEST(GaussianRows, OfLargeSigmasEqualTheSumOverTheWindow) {
  // From radius 32 on (sigma 8) sums go by way of spectra; sigma 9 has radius 36, more than the picture has rows.
  const Image image = test::random_image<std::uint8_t>(5, 31, 50, 1, 255.9);
  const Mask mask = test::random_mask(6, 31, 50, 0.4);
  const auto w = gaussian_weights(9);
  for (const Mask* seen_by : {static_cast<const Mask*>(nullptr), &mask}) {
    for_each_gaussian_row(
        image.read_only(), seen_by, 9, GaussianBorder::left_out, {}, [&](int y, std::span<const double> row) {
          for (int x = 0; x < 50; x += 7) {
            double sum = 0;
            double weights = 0;
            for (int v = 0; v < 31; ++v) {
              for (int u = std::max(0, x - 36); u <= std::min(49, x + 36); ++u) {
                if (seen_by != nullptr && !seen_by->at(v, u)) continue;
                const double weight =
                    w[static_cast<std::size_t>(std::abs(v - y))] * w[static_cast<std::size_t>(std::abs(u - x))];
                sum += weight * image.read_only().at<std::uint8_t>(v, u);
                weights += weight;
              }
            }
            ASSERT_NEAR(row[static_cast<std::size_t>(x)], sum / weights, 1e-9) << y << ", " << x;
          }
        });
  }
  const auto weight = [](int dy, int dx, double) { return std::exp(-0.5 * (dx * dx + dy * dy) / 81.0); };
  expect_near(filtered(image, {{"smooth", "gaussian"}, {"smooth_sigma", 9}}),
              weighted_mean<std::uint8_t>(image, 36, weight), 1e-5);
}

// ---- median ----

TEST(MedianFilter, EqualsSortingTheWindowInEveryTypeAndAtEveryRadius) {
  for (const int radius : {1, 2, 3, 7, 20}) {
    SCOPED_TRACE(radius);
    const Value params{{"smooth", "median"}, {"smooth_radius", radius}};
    const Image u8 = test::random_image<std::uint8_t>(1, 23, 37, 1, 255.9);
    EXPECT_EQ(filtered(u8, params), sorted_median<std::uint8_t>(u8, radius));
    for (const double highest : {3.0, 300.0, 65535.9}) {
      const Image u16 = test::random_image<std::uint16_t>(2, 31, 29, 1, highest);
      EXPECT_EQ(filtered(u16, params), sorted_median<std::uint16_t>(u16, radius));
    }
    const Image f32 = test::random_image<float>(3, 17, 40, 1, 1.0);
    EXPECT_EQ(filtered(f32, params), sorted_median<float>(f32, radius));
  }
}

TEST(MedianFilter, EqualsSortingWhereTilesMeetAndAtTheLargestRadius) {
  // Tiles are 256 pixels wide and high.
  const Image image = test::random_image<std::uint16_t>(5, 262, 266, 1, 5000);
  EXPECT_EQ(filtered(image, {{"smooth", "median"}, {"smooth_radius", 3}}), sorted_median<std::uint16_t>(image, 3));
  const Image small = test::random_image<std::uint16_t>(6, 12, 15, 1, 60000);
  EXPECT_EQ(filtered(small, {{"smooth", "median"}, {"smooth_radius", 100}}), sorted_median<std::uint16_t>(small, 100));
  const Image eight = test::random_image<std::uint8_t>(6, 12, 15, 1, 255.9);
  EXPECT_EQ(filtered(eight, {{"smooth", "median"}, {"smooth_radius", 100}}), sorted_median<std::uint8_t>(eight, 100));
}

TEST(MedianFilter, EqualsSortingWhereSquaresOfTheLibraryMeet) {
  // Squares are 1024 pixels wide and high.
  const Image wide = test::random_image<std::uint8_t>(7, 20, 2060, 1, 255.9);
  EXPECT_EQ(filtered(wide, {{"smooth", "median"}, {"smooth_radius", 3}}), sorted_median<std::uint8_t>(wide, 3));
  const Image high = test::random_image<std::uint8_t>(8, 1040, 9, 1, 255.9);
  EXPECT_EQ(filtered(high, {{"smooth", "median"}, {"smooth_radius", 7}}), sorted_median<std::uint8_t>(high, 7));
}

TEST(MedianFilter, LeavesOutWhatIsNoNumber) {
  // Window of three: 5 1 2 -> valid 1 5 around the first two; of two values the upper one.
  const Image result =
      filtered(test::image<float>({{5, nan_value, 1, 2, -infinite}}), {{"smooth", "median"}, {"smooth_radius", 1}});
  const auto row = row_of(result, 0);
  EXPECT_EQ(row[0], 5);
  EXPECT_TRUE(std::isnan(row[1]));
  EXPECT_EQ(row[2], 2);  // 1 and 2, three times each
  EXPECT_EQ(row[3], 2);  // 1 and 2, three times each
  EXPECT_EQ(row[4], double(-infinite));
  const Image gaps = test::random_image<float>(8, 30, 30, 1, 1.0);
  cv::Mat pixels = gaps.read_only().clone();
  for (int i = 0; i < 900; i += 7) pixels.at<float>(i / 30, i % 30) = nan_value;
  for (int i = 0; i < 900; i += 31) pixels.at<float>(i / 30, i % 30) = -pixels.at<float>(i / 30, i % 30);
  const Image expected = sorted_median<float>(Image(pixels), 4);
  const Image got = filtered(Image(pixels), {{"smooth", "median"}, {"smooth_radius", 4}});
  for (int i = 0; i < 900; ++i) {
    const float e = expected.read_only().at<float>(i / 30, i % 30);
    const float g = got.read_only().at<float>(i / 30, i % 30);
    EXPECT_TRUE(e == g || (std::isnan(e) && std::isnan(g))) << i;
  }
  const Image nothing = test::flat_image<float>(3, 4, nan_value);
  EXPECT_TRUE(std::isnan(row_of(filtered(nothing, {{"smooth", "median"}}), 1)[2]));
}

// ---- bilateral ----

TEST(BilateralFilter, EqualsTheSumOverTheDisc) {
  const auto weight = [](double sigma_value) {
    return [sigma_value](int dy, int dx, double difference) {
      if (dx * dx + dy * dy > 9) return 0.0;
      return std::exp(-0.5 * (dx * dx + dy * dy) / 4.0) *
             std::exp(-0.5 * difference * difference / (sigma_value * sigma_value));
    };
  };
  const Value params{{"smooth", "bilateral"}, {"smooth_sigma", 2}, {"smooth_radius", 3}, {"smooth_range", 0.2}};
  const Image u8 = test::random_image<std::uint8_t>(1, 20, 25, 1, 255.9);
  expect_near(filtered(u8, params), weighted_mean<std::uint8_t>(u8, 3, weight(0.2 * 255)), 1e-4);
  const Image u16 = test::random_image<std::uint16_t>(2, 20, 25, 1, 65535);
  expect_near(filtered(u16, params), weighted_mean<std::uint16_t>(u16, 3, weight(0.2 * 65535)), 0.03);
  const Image f32 = test::random_image<float>(3, 20, 25, 1, 1.0);
  expect_near(filtered(f32, params), weighted_mean<float>(f32, 3, weight(0.2)), 1e-6);
}

TEST(BilateralFilter, KeepsAnEdgeThatIsHigherThanItsRange) {
  // 10 sigma apart nothing of the other side counts.
  const Image edge = test::image<std::uint8_t>({{10, 10, 10, 210, 210}});
  EXPECT_THAT(row_of(filtered(edge, {{"smooth", "bilateral"}, {"smooth_range", 20.0 / 255}, {"smooth_radius", 2}}), 0),
              ElementsAre(10, 10, 10, 210, 210));
}

TEST(BilateralFilter, LeavesOutWhatIsNoNumber) {
  const auto row = row_of(filtered(test::image<float>({{1, nan_value, 1, infinite}}), {{"smooth", "bilateral"}}), 0);
  EXPECT_EQ(row[0], 1);
  EXPECT_TRUE(std::isnan(row[1]));
  EXPECT_EQ(row[2], 1);
  EXPECT_TRUE(std::isnan(row[3]) || std::isinf(row[3]));
}

// ---- all ----

TEST(Smoothing, LeavesAFlatPictureAsItIs) {
  for (const char* filter : {"gaussian", "median", "bilateral"}) {
    SCOPED_TRACE(filter);
    for (const double size : {1.0, 5.0}) {
      const Value params{{"smooth", filter},
                         {std::string(filter) == "gaussian" ? "smooth_sigma" : "smooth_radius", size}};
      const Image result = filtered(test::flat_image<std::uint16_t>(4, 7, 40000), params);
      for (int y = 0; y < 4; ++y) {
        for (const double value : row_of(result, y)) EXPECT_EQ(value, 40000);
      }
    }
  }
}

TEST(Smoothing, TakesSizesFromItsLimits) {
  const Image image = test::random_image<std::uint8_t>(2, 6, 7, 1, 255.9);
  for (const auto& [name, value] : {std::pair("smooth_sigma", 0.1), std::pair("smooth_sigma", 50.0),
                                    std::pair("smooth_radius", 1.0), std::pair("smooth_radius", 100.0)}) {
    for (const char* filter : {"gaussian", "median"}) {
      EXPECT_EQ(filtered(image, {{"smooth", filter}, {name, value}}).shape(), image.shape());
    }
  }
  EXPECT_THROW(static_cast<void>(parameters({{"smooth_sigma", 0.05}})), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(parameters({{"smooth_sigma", 50.5}})), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(parameters({{"smooth_radius", 0}})), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(parameters({{"smooth_radius", 101}})), std::invalid_argument);
  EXPECT_NO_THROW(check_smoothing("step", parameters({{"smooth", "bilateral"}, {"smooth_radius", 5}})));
  EXPECT_EQ(test::refusal([] {
              check_smoothing("step", parameters({{"smooth", "bilateral"}, {"smooth_radius", 6}}));
            }),
            "step: parameter \"smooth_radius\" is 6, but the bilateral filter's radius is from 1 to 5.");
}

TEST(Smoothing, RefusesASizeThatTheFilterDoesNotLookAt) {
  const auto refusal_of = [](const Value& params) {
    return test::refusal([&] { check_smoothing("step", parameters(params)); });
  };
  EXPECT_EQ(refusal_of({{"smooth_sigma", 2}}),
            "step: parameter \"smooth_sigma\" is 2.0, but parameter \"smooth\" is \"none\" and does not use it.");
  for (const auto& [filter, unused] : {std::pair("gaussian", "smooth_radius"), std::pair("gaussian", "smooth_range"),
                                       std::pair("median", "smooth_sigma"), std::pair("median", "smooth_range")}) {
    EXPECT_THAT(refusal_of({{"smooth", filter}, {unused, 3}}), testing::HasSubstr("and does not use it")) << unused;
  }
  EXPECT_EQ(refusal_of({{"smooth", "bilateral"}, {"smooth_sigma", 2}, {"smooth_radius", 3}, {"smooth_range", 0.3}}),
            "");
}

TEST(Smoothing, EndsOnceCancelled) {
  const Image image = test::random_image<std::uint16_t>(3, 300, 300, 1, 60000);
  for (const char* filter : {"gaussian", "median", "bilateral"}) {
    SCOPED_TRACE(filter);
    const test::CountingEvent cancel(3);
    const Band band{image, 0, {.counts = 65535}, "T.I", "T"};
    EXPECT_THROW(
        static_cast<void>(smoothed(band, parameters({{"smooth", filter}}), {.cancel_event = &cancel, .progress = {}})),
        CancelledError);
  }
}

TEST(Smoothing, GivesTheSameWithAnyNumberOfThreads) {
  const Image image = test::random_image<std::uint16_t>(5, 700, 1100, 1, 60000);
  for (const char* filter : {"gaussian", "median", "bilateral"}) {
    SCOPED_TRACE(filter);
    const Value params{{"smooth", filter}, {std::string(filter) == "gaussian" ? "smooth_sigma" : "smooth_radius", 4}};
    std::optional<Image> first;
    for (const int threads : {1, 2, 5}) {
      const test::ThreadCount limit(threads);
      const Image result = filtered(image, params);
      if (!first) first = result;
      EXPECT_EQ(result, *first);
    }
  }
}

}  // namespace
}  // namespace orvexa::model
