// What holds for every result operation, whatever it measures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <set>

#include "orvexa/model/entities/capture_loader.h"
#include "orvexa/model/measures/components.h"
#include "orvexa/model/measures/shape_measures.h"
#include "support/base_images.h"
#include "support/mask_operations.h"
#include "support/result_operations.h"
#include "support/temporary_folder.h"

namespace orvexa::model {
namespace {

/// Everything an operation could ask for: colour, five bands with a white level, fluorescence, a scale, a float plane.
std::shared_ptr<CaptureSet> rich_capture(unsigned seed, int height, int width) {
  const auto u16 = [&](unsigned k, double highest) {
    return test::random_image<std::uint16_t>(seed + k, height, width, 1, highest);
  };
  auto capture = test::capture("rich",
                               {{"CLR", {{"RGB", test::random_image<std::uint8_t>(seed, height, width, 3, 255.9)}}},
                                {"MSP",
                                 {{"BLU", u16(1, 4000)},
                                  {"GRN", u16(2, 5000)},
                                  {"RED", u16(3, 6000)},
                                  {"EDG", u16(4, 8000)},
                                  {"NIR", u16(5, 9000)}}},
                                {"FLU",
                                 {{"F0", u16(6, 9000)},
                                  {"FM", u16(7, 60000)},
                                  {"FS", u16(8, 20000)},
                                  {"FMP", u16(9, 40000)},
                                  {"F0P", u16(10, 8000)}}},
                                {"GRY", {{"GRY", test::random_image<float>(seed + 11, height, width, 1, 1.0)}}}},
                               test::header_with_scale(0.25));
  capture->measurements.at("MSP")->declared_white_level = 10000;
  return capture;
}

/// Parameters that make each operation give all it can on the rich capture.
Value rich_parameters(const std::string& key) {
  if (key == "perimeter") return {{"chain", true}};
  if (key == "centroid") return {{"band", "MSP.NIR"}};
  if (key == "index_statistics") return {{"indices", {"ndvi", "savi", "vari", "ndre", "exgr"}}};
  if (key == "custom_index") {
    return {{"expressions",
             "ratio = N / (R + G); root = sqrt(abs(MSP.NIR - MSP.RED)) ^ 3; largest = max(CLR.RGB.R, GRY, FLU.F0)"}};
  }
  if (key == "histogram") return {{"bins", 16}};
  // A point lies in another pixel of a turned picture.
  if (key == "color_difference") return {{"reference", "lab"}, {"lab_l", 40}, {"lab_a", -30}, {"lab_b", 20}};
  if (key == "texture_glcm") return {{"levels", 8}, {"bands", {"MSP.NIR", "CLR.RGB.G", "GRY"}}};
  if (key == "band_correlation") {
    return {{"bands", {"MSP.NIR", "MSP.RED", "GRY"}}, {"profile", "radial"}, {"samples", 7}};
  }
  return Value::object();
}

std::vector<std::string> all_keys() {
  std::vector<std::string> keys;
  for (const auto& [key, info] : get_available_result_operations()) keys.push_back(key);
  return keys;
}

class EveryOperation : public testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(Registry, EveryOperation, testing::ValuesIn(all_keys()),
                         [](const auto& key) { return key.param; });

TEST(ResultOperations, NoTwoOfThemGiveAMetricOfTheSameName) {
  const auto capture = rich_capture(1, 12, 14);
  std::map<std::string, std::string> owner;
  for (const std::string& key : all_keys()) {
    const auto result = test::measured(key, *capture, test::random_mask(2, 12, 14, 0.5), rich_parameters(key));
    std::set<std::string> names;
    for (const Value* part : {&result.metrics, &result.reasons}) {
      for (const auto& [name, value] : part->items()) {
        EXPECT_TRUE(names.insert(name).second) << name << " is twice in " << key;
        const auto [found, is_new] = owner.emplace(name, key);
        EXPECT_TRUE(is_new) << name << " is given by " << found->second << " and " << key;
      }
    }
  }
  EXPECT_GT(owner.size(), 300u);
}

TEST_P(EveryOperation, GivesEachMetricAUnitAndNoListButTheBinsOfAHistogram) {
  const auto result =
      test::measured(GetParam(), *rich_capture(3, 9, 8), test::random_mask(4, 9, 8, 0.5), rich_parameters(GetParam()));
  for (const auto& [name, value] : result.metrics.items()) {
    EXPECT_TRUE(result.units.contains(name)) << name;
    EXPECT_EQ(value.is_array(), name.ends_with(".histogram.bins")) << name;
    EXPECT_TRUE(!value.is_number_float() || std::isfinite(value.get<double>())) << name;
  }
  EXPECT_FALSE(result.metrics.empty());
}

TEST_P(EveryOperation, GivesTheSameUnitsInTheSameOrderWhateverIsUndefined) {
  const auto capture = rich_capture(3, 9, 8);
  const auto full = test::measured(GetParam(), *capture, Mask::full({9, 8}), rich_parameters(GetParam()));
  const auto none = test::measured(GetParam(), *capture, Mask::empty({9, 8}), rich_parameters(GetParam()));
  EXPECT_EQ(none.units.dump(), full.units.dump());
  for (const auto& [name, reason] : none.reasons.items()) EXPECT_TRUE(none.units.contains(name)) << name;
}

/// Those whose rows are long can leave the regions out.
class OperationOfTheWhole : public testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(Registry, OperationOfTheWhole,
                         testing::Values("band_statistics", "histogram", "color_statistics", "color_difference",
                                         "color_classes", "index_statistics", "custom_index", "image_quality",
                                         "band_correlation", "texture_glcm", "texture_lbp"),
                         [](const auto& key) { return key.param; });

TEST_P(OperationOfTheWhole, GivenThatRegionsAreNotWanted_ThenTheWholeIsAsIfNobodyHadMadeThemAndNoRegionIsThere) {
  const auto capture = rich_capture(6, 20, 20);
  const Mask mask = test::mask_of_grid(test::random_mask(5, 20, 20, 0.4), 4, 4);
  Value params = rich_parameters(GetParam());
  EXPECT_EQ(test::measured(GetParam(), *capture, mask, params).regions.size(), 16u);
  const auto without_regions = test::measured(GetParam(), *capture, mask.with_labels(nullptr), params);
  params["each_region"] = false;
  const auto whole = test::measured(GetParam(), *capture, mask, params);
  EXPECT_TRUE(whole.regions.empty());
  EXPECT_EQ(whole.metrics, without_regions.metrics);
  EXPECT_EQ(whole.reasons, without_regions.reasons);
  EXPECT_EQ(whole.units, without_regions.units);
  EXPECT_EQ(whole.tables.size(), without_regions.tables.size());
  EXPECT_EQ(whole.images.size(), without_regions.images.size());
}

TEST_P(OperationOfTheWhole, GivenThatNobodyMadeRegions_ThenTheOneRegionStays) {
  Value params = rich_parameters(GetParam());
  params["each_region"] = false;
  const auto result = test::measured(GetParam(), *rich_capture(6, 20, 20), test::random_mask(5, 20, 20, 0.4), params);
  ASSERT_EQ(result.regions.size(), 1u);
  EXPECT_EQ(result.regions.at("ROI_1").metrics, result.metrics);
}

TEST_P(EveryOperation, GivesEveryRegionTheNamesOfTheWhole) {
  const Mask mask = test::mask_of_grid(test::random_mask(5, 20, 20, 0.4), 4, 4);
  const auto result = test::measured(GetParam(), *rich_capture(6, 20, 20), mask, rich_parameters(GetParam()));
  const auto names = [](const Value& metrics, const Value& reasons) {
    std::set<std::string> all;
    for (const Value* part : {&metrics, &reasons}) {
      for (const auto& [name, value] : part->items()) all.insert(name);
    }
    return all;
  };
  EXPECT_EQ(result.regions.size(), 16u);
  for (const auto& [name, region] : result.regions) {
    EXPECT_EQ(names(region.metrics, region.reasons), names(result.metrics, result.reasons)) << name;
  }
}

TEST_P(EveryOperation, MeasuresARegionLikeAMaskOfItAlone) {
  if (get_result_operation(GetParam()).needs_labels) return;  // it compares regions: alone there is nothing to compare
  const auto capture = rich_capture(7, 24, 30);
  const Mask mask = test::mask_of_grid(test::random_mask(8, 24, 30, 0.6), 2, 3);
  const auto together = test::measured(GetParam(), *capture, mask, rich_parameters(GetParam()));
  for (int label = 1; label <= 6; ++label) {
    const auto alone =
        test::measured(GetParam(), *capture, test::only_region(mask, label), rich_parameters(GetParam()));
    const RegionResult& region = together.regions.at("ROI_" + std::to_string(label));
    for (const auto& [name, value] : region.metrics.items()) {
      if (value.is_number_float()) {
        const double expected = alone.metrics.at(name).get<double>();
        EXPECT_NEAR(value.get<double>(), expected, 1e-9 * std::max(1.0, std::abs(expected))) << name;
      } else {
        EXPECT_EQ(value, alone.metrics.at(name)) << name;
      }
    }
  }
}

TEST_P(EveryOperation, OfAnEmptyMaskHasReasonsInsteadOfNumbers) {
  const auto result =
      test::measured(GetParam(), *rich_capture(9, 6, 7), Mask::empty({6, 7}), rich_parameters(GetParam()));
  for (const auto& [name, value] : result.metrics.items()) {
    EXPECT_EQ(name, "area");
    EXPECT_EQ(value, 0);
  }
  EXPECT_FALSE(result.reasons.empty());
}

// 640000 pixels are three stripes; 30 regions keep 8-bit planes in tables and 16-bit ones as well.
TEST_P(EveryOperation, GivesTheSameBytesWithAnyNumberOfThreads) {
  const auto capture = rich_capture(10, 800, 800);
  const Mask mask = test::mask_of_grid(test::random_mask(11, 800, 800, 0.9), 6, 5);
  std::string alone;
  for (const int threads : {1, 2, 3, 7}) {
    const test::ThreadCount limit(threads);
    const std::string text = test::text_of(test::measured(GetParam(), *capture, mask, rich_parameters(GetParam())));
    if (threads == 1) alone = text;
    EXPECT_TRUE(text == alone) << threads << " threads";
  }
}

TEST_P(EveryOperation, LeavesTheBaseImagesAsTheyAre) {
  const auto capture = rich_capture(12, 30, 20);
  const auto before = test::base_image_hashes(*capture);
  static_cast<void>(
      test::measured(GetParam(), *capture, test::random_mask(13, 30, 20, 0.5), rich_parameters(GetParam())));
  EXPECT_EQ(test::base_image_hashes(*capture), before);
}

TEST_P(EveryOperation, StopsWhenItIsCancelled) {
  const auto capture = rich_capture(14, 10, 10);
  common::CancelEvent event;
  event.set();
  const auto operation = get_result_operation(GetParam())();
  operation->set_context({.cancel_event = &event, .progress = {}});
  EXPECT_THROW(static_cast<void>(operation->run({.source_capture = *capture, .params = rich_parameters(GetParam())})),
               CancelledError);
}

Image turned(const Image& image) {
  cv::Mat pixels;
  cv::rotate(image.read_only(), pixels, cv::ROTATE_90_CLOCKWISE);
  return Image(std::move(pixels));
}

/// Metrics that say where something lies or which way it points, in whatever unit: operation to the names in pixels.
bool turns_with_the_picture(const std::string& key, std::string name) {
  if (name.ends_with("_mm")) name.resize(name.size() - std::string_view("_mm").size());
  static const std::map<std::string, std::set<std::string>> positional{
      {"bounding_box",
       {"bbox_x", "bbox_y", "bbox_width", "bbox_height", "bbox_x_norm", "bbox_y_norm", "bbox_width_norm",
        "bbox_height_norm"}},
      {"centroid",
       {"centroid_x", "centroid_y", "centroid_x_norm", "centroid_y_norm", "MSP.NIR.centroid_x", "MSP.NIR.centroid_y",
        "MSP.NIR.centroid_x_norm", "MSP.NIR.centroid_y_norm"}},
      {"ellipse_fit", {"ellipse_angle"}},
      {"feret", {"feret_max_angle", "feret_min_angle"}},
      {"enclosing", {"min_rectangle_angle", "min_rectangle_x", "min_rectangle_y", "min_circle_x", "min_circle_y"}},
      {"symmetry", {"symmetry_left_right", "symmetry_top_bottom"}},
      // The half-steps of the thinning begin at one corner.
      {"skeleton", {"skeleton_length", "skeleton_branches", "skeleton_ends", "skeleton_junctions", "skeleton_pixels"}},
  };
  const auto found = positional.find(key);
  return found != positional.end() && found->second.contains(name);
}

TEST_P(EveryOperation, GivesTheSameForATurnedCapture) {
  const auto capture = rich_capture(15, 20, 31);
  const Mask mask = test::random_mask(16, 20, 31, 0.5);
  const auto after = std::make_shared<CaptureSet>(*capture);
  for (auto it = after->measurements.begin(); it != after->measurements.end(); ++it) {
    auto measurement = it.value()->deep_copy();
    for (auto image = measurement->images.begin(); image != measurement->images.end(); ++image) {
      image.value() = turned(image.value().base());
    }
    it.value() = std::move(measurement);
  }
  cv::Mat turned_mask;
  cv::rotate(mask.read_only(), turned_mask, cv::ROTATE_90_CLOCKWISE);
  const auto a = test::measured(GetParam(), *capture, mask, rich_parameters(GetParam()));
  const auto b = test::measured(GetParam(), *after, Mask(turned_mask), rich_parameters(GetParam()));
  ASSERT_EQ(a.metrics.size(), b.metrics.size());
  for (const auto& [name, value] : a.metrics.items()) {
    if (turns_with_the_picture(GetParam(), name)) continue;
    if (value.is_number_float()) {
      EXPECT_NEAR(value.get<double>(), b.metrics.at(name).get<double>(),
                  1e-9 * std::max(1.0, std::abs(value.get<double>())))
          << name;
    } else {
      EXPECT_EQ(value, b.metrics.at(name)) << name;
    }
  }
}

/// All counts and the white level times four.
std::shared_ptr<CaptureSet> four_times(const CaptureSet& capture) {
  auto result = std::make_shared<CaptureSet>(capture);
  for (auto it = result->measurements.begin(); it != result->measurements.end(); ++it) {
    auto measurement = it.value()->deep_copy();
    measurement->declared_white_level = 4 * measurement->declared_white_level.value_or(1);
    for (auto image = measurement->images.begin(); image != measurement->images.end(); ++image) {
      cv::Mat pixels = image.value().base().read_only() * 4;
      image.value() = Image(pixels);
    }
    it.value() = std::move(measurement);
  }
  return result;
}

TEST_P(EveryOperation, GivesTheSameFractionsAndIndicesWhenCountsAndWhiteLevelGrowTogether) {
  auto capture = test::capture("c", {{"MSP",
                                      {{"BLU", test::random_image<std::uint16_t>(1, 15, 16, 1, 4000)},
                                       {"GRN", test::random_image<std::uint16_t>(2, 15, 16, 1, 5000)},
                                       {"RED", test::random_image<std::uint16_t>(3, 15, 16, 1, 6000)},
                                       {"EDG", test::random_image<std::uint16_t>(4, 15, 16, 1, 8000)},
                                       {"NIR", test::random_image<std::uint16_t>(5, 15, 16, 1, 9000)}}},
                                     {"FLU",
                                      {{"F0", test::random_image<std::uint16_t>(6, 15, 16, 1, 2000)},
                                       {"FM", test::random_image<std::uint16_t>(7, 15, 16, 1, 9000)},
                                       {"FS", test::random_image<std::uint16_t>(8, 15, 16, 1, 3000)},
                                       {"FMP", test::random_image<std::uint16_t>(9, 15, 16, 1, 7000)},
                                       {"F0P", test::random_image<std::uint16_t>(10, 15, 16, 1, 1500)}}}});
  for (auto& [name, measurement] : capture->measurements) measurement->declared_white_level = 10000;
  Value params = rich_parameters(GetParam());
  if (GetParam() == "band_statistics") params["unit"] = "fraction";
  const auto a = test::measured(GetParam(), *capture, {}, params);
  const auto b = test::measured(GetParam(), *four_times(*capture), {}, params);
  ASSERT_EQ(a.metrics.size(), b.metrics.size());
  for (const auto& [name, value] : a.metrics.items()) {
    if (value.is_number_float()) {
      EXPECT_NEAR(value.get<double>(), b.metrics.at(name).get<double>(),
                  1e-9 * std::max(1.0, std::abs(value.get<double>())))
          << name;
    } else {
      EXPECT_EQ(value, b.metrics.at(name)) << name;
    }
  }
}

/// Whatever the picture: numbers, reasons, or one sentence.
TEST_P(EveryOperation, NeverCrashesOnStrangePictures) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  std::vector<std::shared_ptr<CaptureSet>> captures;
  for (const Shape shape : {Shape{1, 1}, Shape{1, 37}, Shape{41, 1}, Shape{3, 3}}) {
    captures.push_back(rich_capture(20, shape.height, shape.width));
    captures.push_back(
        test::capture("u8", {{"GRY", {{"GRY", test::flat_image<std::uint8_t>(shape.height, shape.width, 255)}}}}));
    captures.push_back(
        test::capture("u16", {{"MSP",
                               {{"RED", test::flat_image<std::uint16_t>(shape.height, shape.width, 0)},
                                {"NIR", test::flat_image<std::uint16_t>(shape.height, shape.width, 65535)}}}}));
    captures.push_back(test::capture("f32", {{"FLU",
                                              {{"F0", test::flat_image<float>(shape.height, shape.width, nan)},
                                               {"FM", test::flat_image<float>(shape.height, shape.width, nan)}}}}));
    captures.push_back(test::capture(
        "rgb", {{"CLR", {{"RGB", Image(cv::Mat(shape.height, shape.width, CV_32FC3, cv::Scalar(nan, -1, 1e38)))}}}}));
  }
  for (const auto& capture : captures) {
    SCOPED_TRACE(capture->name);
    const Shape shape = capture->get_shape();
    for (const auto& mask : {std::optional<Mask>(), std::optional(Mask::empty(shape)), std::optional(Mask::full(shape)),
                             std::optional(test::random_mask(1, shape.height, shape.width, 0.5))}) {
      const std::string sentence =
          test::refusal([&] { static_cast<void>(test::measured(GetParam(), *capture, mask)); });
      if (!sentence.empty()) {
        EXPECT_TRUE(sentence.ends_with('.') || sentence.ends_with("declared")) << sentence;
      }
    }
  }
}

// ---- Real pictures ----

TEST(ResultOperations, AgreeWithTheReferenceOnRealCaptures) {
  const auto data = test::real_data();
  if (!data) GTEST_SKIP() << "no folder shared/data beside the project";
  const auto reference = common::Value::parse(test::read_all(*data / "reference" / "captures.json"));
  int indices = 0;
  for (const auto& [name, expected] : reference.items()) {
    SCOPED_TRACE(name);
    if (name == "retina") continue;  // a JPEG, which two decoders may read a count apart
    const auto capture = get_default_capture_loader()(*data / expected.at("header").get<std::string>());
    const auto statistics = test::measured("band_statistics", *capture);
    for (const auto& [measurement, images] : expected.at("measurements").items()) {
      for (const auto& [image, facts] : images.items()) {
        for (const auto& [channel, numbers] : facts.at("channels").items()) {
          std::string prefix = measurement;
          prefix.append(".").append(image).append(channel == "grey" ? "" : "." + channel).append(".");
          EXPECT_NEAR(statistics.metrics.at(prefix + "mean").get<double>(), numbers.at("mean").get<double>(), 1e-6)
              << prefix;
          EXPECT_NEAR(statistics.metrics.at(prefix + "sd").get<double>(), numbers.at("std").get<double>(), 1e-6)
              << prefix;
          EXPECT_EQ(statistics.metrics.at(prefix + "min").get<double>(), numbers.at("min").get<double>()) << prefix;
          EXPECT_EQ(statistics.metrics.at(prefix + "max").get<double>(), numbers.at("max").get<double>()) << prefix;
        }
      }
    }
    const auto expect_mean = [&](const char* index, double mean) {
      const auto result = test::measured("index_statistics", *capture, {}, {{"indices", {index}}});
      EXPECT_NEAR(result.metrics.at(std::string(index) + ".mean").get<double>(), mean, 1e-6) << index;
      ++indices;
    };
    if (expected.contains("ndvi")) expect_mean("ndvi", expected.at("ndvi").at("mean_all").get<double>());
    for (const char* index : {"gndvi", "ndre"}) {
      const std::string key = std::string(index) + "_mean_all";
      if (expected.contains(key)) expect_mean(index, expected.at(key).get<double>());
    }
  }
  EXPECT_GE(indices, 15);
}

TEST(ResultOperations, AgreeWithTheReferenceOnRealMasks) {
  const auto data = test::real_data();
  if (!data) GTEST_SKIP() << "no folder shared/data beside the project";
  const auto reference = common::Value::parse(test::read_all(*data / "reference" / "masks.json"));
  int shapes = 0;
  for (const auto& [file, expected] : reference.items()) {
    if (!expected.contains("components")) continue;
    SCOPED_TRACE(file);
    const Image picture = load_capture_from_image(*data / file)->find_image("GRY", "GRY").value();
    cv::Mat set;
    cv::compare(picture.read_only(), 0, set, cv::CMP_GT);
    // Every 8-connected part becomes a region.
    const Components parts = label_components(set);
    auto labels = std::make_shared<RegionLabels>();
    labels->image = parts.label_image();
    for (std::size_t k = 1; k <= parts.components.size(); ++k) labels->names.push_back(std::to_string(k));
    const Mask mask = Mask(set).with_labels(labels);
    EXPECT_EQ(mask.count(), expected.at("area_px").get<std::int64_t>());
    const RegionSet regions(mask);
    const auto& components = expected.at("components");
    ASSERT_EQ(regions.regions().size(), components.size());
    EXPECT_EQ(components.size(), expected.at("components_8").get<std::size_t>());
    for (std::size_t k = 0; k < components.size(); ++k) {
      const auto& facts = components.at(k);
      const Region& region = regions.regions()[k];
      EXPECT_EQ(region.area, facts.at("area_px").get<std::int64_t>());
      EXPECT_EQ(Value({region.box.x0, region.box.y0, region.box.x1, region.box.y1}), facts.at("bbox_x0_y0_x1_y1"));
      const cv::Mat crop = regions.crop(region);
      const EllipseFit fit = fit_ellipse(crop);
      EXPECT_NEAR(fit.major_axis, facts.at("major_axis").get<double>(), 1e-5);
      EXPECT_NEAR(fit.minor_axis, facts.at("minor_axis").get<double>(), 1e-5);
      EXPECT_NEAR(fit.eccentricity, facts.at("eccentricity").get<double>(), 1e-5);
      EXPECT_NEAR(fit.centroid_x + region.box.x0, facts.at("centroid_x_y").at(0).get<double>(), 1e-5);
      EXPECT_NEAR(fit.centroid_y + region.box.y0, facts.at("centroid_x_y").at(1).get<double>(), 1e-5);
      EXPECT_NEAR(chain_perimeter(crop), facts.at("perimeter_skimage").get<double>(), 1e-5);
      // The reference counts the pixels of the hull of pixel centres; ours is the area of the hull of pixel corners,
      // which is larger by about half a pixel along the rim.
      EXPECT_LE(measure_shape(crop).solidity(), facts.at("solidity").get<double>() + 0.01);
      ++shapes;
    }
  }
  EXPECT_GT(shapes, 300);
}

}  // namespace
}  // namespace orvexa::model
