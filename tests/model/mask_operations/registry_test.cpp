#include "orvexa/model/mask_operations/registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <limits>
#include <set>

#include "support/base_images.h"
#include "support/mask_operations.h"
#include "support/operations.h"

namespace orvexa::model {
namespace {

using test::flat_image;

std::string name_of(const testing::TestParamInfo<const MaskOperationInfo*>& info) {
  return info.param->key;
}

class EveryMaskOperation : public testing::TestWithParam<const MaskOperationInfo*> {};

INSTANTIATE_TEST_SUITE_P(Registry, EveryMaskOperation, testing::ValuesIn(get_all_mask_operation_infos()), name_of);

bool is_sentence(const std::string& text) {
  return text.size() > 2 && std::isupper(static_cast<unsigned char>(text.front())) != 0 && text.back() == '.';
}

TEST_P(EveryMaskOperation, DescribesItselfCompletely) {
  const MaskOperationInfo& info = *GetParam();
  EXPECT_FALSE(info.display_name.empty());
  EXPECT_FALSE(info.category.empty());
  EXPECT_TRUE(is_sentence(info.summary)) << info.summary;
  EXPECT_TRUE(is_sentence(info.description)) << info.description;
  EXPECT_FALSE(info.source.empty());
  std::set<std::string> names;
  for (const ParameterInfo& parameter : info.all_parameters()) {
    SCOPED_TRACE(parameter.name);
    EXPECT_TRUE(names.insert(parameter.name).second) << "the name is used twice";
    EXPECT_TRUE(is_sentence(parameter.help)) << parameter.help;
    const bool is_choice = parameter.type == ParameterType::choice || parameter.type == ParameterType::choices;
    EXPECT_EQ(is_choice, !parameter.choices.empty());
  }
}

TEST_P(EveryMaskOperation, AcceptsItsOwnDefaultsAndLeavesThemAsTheyAre) {
  const MaskOperationInfo& info = *GetParam();
  const Value defaults = info.get_default_params();
  EXPECT_EQ(info()->validate_params(Value::object()), defaults);
  EXPECT_EQ(info()->validate_params(defaults).dump(), defaults.dump());
}

/// Images of every kind that a file can bring, among them the ones that break careless arithmetic.
std::vector<std::pair<std::string, std::shared_ptr<CaptureSet>>> awkward_captures() {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  const auto color = [](int height, int width, int depth, const cv::Scalar& value) {
    return Image(cv::Mat(height, width, CV_MAKETYPE(depth, 3), value));
  };
  const auto plane = [](int height, int width, int depth, double value) {
    return Image(cv::Mat(height, width, CV_MAKETYPE(depth, 1), cv::Scalar(value)));
  };
  std::vector<std::pair<std::string, std::shared_ptr<CaptureSet>>> captures;
  for (const auto& [height, width] : {std::pair(1, 1), std::pair(1, 70), std::pair(70, 1), std::pair(5, 9)}) {
    for (const auto& [type, depth, white] :
         {std::tuple("8-bit", CV_8U, 255.0), std::tuple("16-bit", CV_16U, 65535.0), std::tuple("float", CV_32F, 1.0)}) {
      for (const double share : {0.0, 1.0}) {
        const std::string name =
            std::to_string(height) + "x" + std::to_string(width) + " " + type + (share > 0 ? " white" : " black");
        captures.emplace_back(
            name + " colour",
            test::capture("c", {{"CLR", {{"RGB", color(height, width, depth, cv::Scalar::all(share * white))}}}}));
        captures.emplace_back(name + " grey",
                              test::capture("c", {{"GRY", {{"GRY", plane(height, width, depth, share * white)}}}}));
        captures.emplace_back(name + " bands",
                              test::capture("c", {{"MSP",
                                                   {{"RED", plane(height, width, depth, share * white)},
                                                    {"NIR", plane(height, width, depth, (1 - share) * white)}}}}));
      }
    }
    captures.emplace_back(std::to_string(height) + "x" + std::to_string(width) + " not a number",
                          test::capture("c", {{"CLR", {{"RGB", color(height, width, CV_32F, cv::Scalar::all(nan))}}},
                                              {"MSP",
                                               {{"RED", plane(height, width, CV_32F, nan)},
                                                {"GRN", plane(height, width, CV_32F, nan)},
                                                {"BLU", plane(height, width, CV_32F, nan)},
                                                {"NIR", plane(height, width, CV_32F, nan)}}}}));
  }
  return captures;
}

TEST_P(EveryMaskOperation, GivesAMaskInsideItsBoundsOrASentenceForAnyImageAndMask) {
  const MaskOperationInfo& info = *GetParam();
  for (const auto& [name, capture] : awkward_captures()) {
    SCOPED_TRACE(name);
    const Shape shape = capture->get_shape();
    cv::Mat checkered(shape.height, shape.width, CV_8UC1);
    for (int y = 0; y < shape.height; ++y) {
      for (int x = 0; x < shape.width; ++x) {
        checkered.at<std::uint8_t>(y, x) = static_cast<std::uint8_t>((x + y) % 2 == 0 ? 255 : 0);
      }
    }
    const std::vector<std::optional<Mask>> masks{std::nullopt, Mask::empty(shape), Mask::full(shape), Mask(checkered)};
    for (const std::optional<Mask>& mask : masks) {
      try {
        const auto result =
            info()->apply({.image_stack = *capture, .current_mask = mask, .params = test::usable_params(info, shape)});
        ASSERT_TRUE(result);
        EXPECT_EQ(result->shape(), shape);
        if (mask && !info._preview_unconstrained) {
          EXPECT_EQ(*result & *mask, *result);
        }
      } catch (const std::runtime_error& e) {
        EXPECT_TRUE(is_sentence(e.what())) << e.what();
        // What needs a band, colour or a file says what the capture lacks, or how the file differs from it.
        EXPECT_TRUE(!mask || info.check_capture || test::names_a_file(info)) << e.what();
      }
    }
  }
}

TEST_P(EveryMaskOperation, LeavesTheImagesAndTheIncomingMaskAsTheyWere) {
  const MaskOperationInfo& info = *GetParam();
  const auto capture = test::random_capture(7, 40, 30);
  const Mask mask = test::random_mask(8, 40, 30, 0.6);
  const auto images_before = test::base_image_hashes(*capture);
  const std::size_t mask_before = test::hash_of(mask.read_only());
  const Value params = test::usable_params(info, {40, 30});
  ASSERT_TRUE(info()->apply({.image_stack = *capture, .current_mask = mask, .params = params}));
  EXPECT_EQ(test::base_image_hashes(*capture), images_before);
  EXPECT_EQ(test::hash_of(mask.read_only()), mask_before);
}

TEST_P(EveryMaskOperation, DrawsAPictureOfItsStepOnlyForWhoLooksAndThenGivesTheSameMask) {
  const MaskOperationInfo& info = *GetParam();
  const auto capture = test::random_capture(7, 40, 30);
  const Mask mask = test::random_mask(8, 40, 30, 0.6);
  const auto looked_at = info();
  const auto unseen = info();
  unseen->wants_overlay = false;
  const Value params = test::usable_params(info, mask.shape());
  EXPECT_EQ(looked_at->apply({.image_stack = *capture, .current_mask = mask, .params = params}),
            unseen->apply({.image_stack = *capture, .current_mask = mask, .params = params}));
  EXPECT_FALSE(unseen->viz_overlay);
  if (looked_at->viz_overlay) {
    EXPECT_EQ(looked_at->viz_overlay->shape(), mask.shape());
    EXPECT_EQ(looked_at->viz_overlay->read_only().type(), CV_8UC3);
  }
}

TEST_P(EveryMaskOperation, ReadsAWholeCaptureAndItsBareImagesAlike) {
  const MaskOperationInfo& info = *GetParam();
  const auto capture = test::random_capture(9, 40, 30);
  const Mask mask = test::random_mask(10, 40, 30, 0.6);
  const ImageStack stack = capture->image_stack();
  const Value params = test::usable_params(info, {40, 30});
  EXPECT_EQ(info()->apply({.image_stack = *capture, .current_mask = mask, .params = params}),
            info()->apply({.image_stack = stack, .current_mask = mask, .params = params}));
}

TEST_P(EveryMaskOperation, GivesTheSameWithAnyNumberOfThreads) {
  const MaskOperationInfo& info = *GetParam();
  // Wide enough for several stripes of a quarter of a megapixel.
  const auto capture = test::random_capture(11, 700, 1500);
  const Mask mask = test::random_mask(12, 700, 1500, 0.6);
  std::optional<Mask> first;
  for (const int threads : {1, 2, 3, 7}) {
    SCOPED_TRACE(threads);
    const test::ThreadCount limit(threads);
    const auto result = info()->apply(
        {.image_stack = *capture, .current_mask = mask, .params = test::usable_params(info, {700, 1500})});
    ASSERT_TRUE(result);
    if (!first) first = result;
    EXPECT_EQ(*result, *first);
    ASSERT_EQ(result->labels() == nullptr, first->labels() == nullptr);
    if (result->labels() != nullptr) {
      EXPECT_EQ(test::hash_of(result->labels()->image), test::hash_of(first->labels()->image));
      EXPECT_EQ(result->labels()->names, first->labels()->names);
    }
  }
}

/// Sets the flag when the operation first looks at the images: after `apply` itself has looked at the flag.
class CancellingSource final : public ImageSource {
 public:
  CancellingSource(const ImageSource& source, common::CancelEvent& cancel) : _source(source), _cancel(cancel) {}
  Shape get_shape() const override {
    _cancel.set();
    return _source.get_shape();
  }
  std::vector<std::string> get_measurement_types() const override { return _source.get_measurement_types(); }
  std::vector<std::string> image_names(std::string_view measurement) const override {
    return _source.image_names(measurement);
  }
  std::optional<Image> find_image(std::string_view measurement, std::string_view image) const override {
    return _source.find_image(measurement, image);
  }
  WhiteLevel white_level(std::string_view measurement, std::string_view image) const override {
    return _source.white_level(measurement, image);
  }
  std::optional<BandInfo> find_band(std::string_view image) const override { return _source.find_band(image); }
  std::optional<double> millimetres_per_pixel() const override { return _source.millimetres_per_pixel(); }

 private:
  const ImageSource& _source;
  common::CancelEvent& _cancel;
};

TEST_P(EveryMaskOperation, EndsWithoutAResultOnceCancelledWhileItWorks) {
  const MaskOperationInfo& info = *GetParam();
  const auto capture = test::random_capture(13, 20, 20);
  common::CancelEvent cancel;
  const CancellingSource source(*capture, cancel);
  const auto operation = info();
  operation->set_context({.cancel_event = &cancel, .progress = {}});
  EXPECT_THROW(static_cast<void>(operation->apply({.image_stack = source,
                                                   .current_mask = Mask::full({20, 20}),
                                                   .params = test::usable_params(info, {20, 20})})),
               CancelledError);
}

TEST(MaskOperation, GivenACancellationWhileItsLastPixelsAreMade_ThenItsMaskIsNotNarrowedAnyMore) {
  common::CancelEvent cancel;
  const auto info = test::fake_mask("late", [&](test::FakeMask&, const ImageSource&, const Mask*, const Value&) {
    cancel.set();
    return Mask::full({2, 2});
  });
  const auto operation = info();
  operation->set_context({.cancel_event = &cancel, .progress = {}});
  const auto capture = test::blank_capture({2, 2});
  EXPECT_THROW(static_cast<void>(operation->apply({.image_stack = *capture})), CancelledError);
}

TEST_P(EveryMaskOperation, CarriesRegionsAndBoundsOn) {
  const MaskOperationInfo& info = *GetParam();
  const auto capture = test::random_capture(14, 40, 30);
  auto labels = std::make_shared<RegionLabels>();
  labels->image = cv::Mat(40, 30, CV_32SC1, cv::Scalar(1));
  labels->names = {"tray"};
  cv::Mat left(40, 30, CV_8UC1, cv::Scalar(0));
  left.colRange(0, 20).setTo(255);
  const Mask bounds{left};
  const Mask mask = (test::random_mask(15, 40, 30, 0.5) & bounds).with_labels(labels).with_bounds(bounds);
  const auto result =
      info()->apply({.image_stack = *capture, .current_mask = mask, .params = test::usable_params(info, {40, 30})});
  ASSERT_TRUE(result);
  ASSERT_TRUE(result->bounds());
  EXPECT_EQ(*result->bounds() & bounds, *result->bounds()) << "nothing widens the bounds";
  // An ellipse leaves out the corners of the image, a grid the margins of its cells, a found rectangle what is around
  // it.
  if (info.key != "roi_ellipse" && info.key != "roi_grid" && info.key != "auto_roi") {
    EXPECT_EQ(*result->bounds(), bounds) << "a rectangle of the whole image narrows no bounds";
  }
  EXPECT_EQ(*result & bounds, *result) << "nothing grows beyond the bounds";
  ASSERT_NE(result->labels(), nullptr);
  if (info.key == "roi_rects" || info.key == "roi_grid") {
    EXPECT_THAT(result->labels()->names, testing::ElementsAre("ROI_1"));
  } else if (info.key == "split_touching") {
    EXPECT_NE(result->labels(), labels) << "what was found takes the place of what was drawn";
  } else if (info.key == "convex_hull") {
    EXPECT_THAT(result->labels()->names, testing::ElementsAre("tray")) << "hulls widen the region that they belong to";
  } else {
    EXPECT_EQ(result->labels(), labels);
  }
}

TEST(MaskRegistry, HasEachKeyOnceAndInTheOrderOfTheMenus) {
  std::vector<std::string> keys;
  for (const MaskOperationInfo* info : get_all_mask_operation_infos()) keys.push_back(info->key);
  // clang-format off
  const std::vector<std::string> expected{
      "roi_rect",
      "roi_rects",
      "roi_polygon",
      "roi_ellipse",
      "roi_exclude",
      "roi_grid",
      "auto_roi",
      "threshold_range",
      "threshold_auto",
      "threshold_percentile",
      "threshold_hysteresis",
      "threshold_multiotsu",
      "threshold_adaptive",
      "threshold_sauvola",
      "texture_threshold",
      "threshold_hsv",
      "threshold_color_distance",
      "threshold_index",
      "cluster_kmeans",
      "region_grow",
      "grabcut",
      "erode",
      "dilate",
      "open",
      "close",
      "fill_holes",
      "remove_small",
      "clear_border",
      "keep_regions",
      "convex_hull",
      "smooth_mask",
      "split_touching",
      "mask_edit",
      "mask_from_file",
      "background_difference",
  };
  // clang-format on
  EXPECT_EQ(keys, expected);
  std::vector<std::string> mapped;
  for (const auto& [key, info] : get_available_mask_operations()) {
    EXPECT_EQ(key, info->key);
    mapped.push_back(key);
  }
  EXPECT_EQ(mapped, keys);
}

TEST(MaskRegistry, FindsAnOperationByKeyAndNamesTheNearestForAMisspeltOne) {
  EXPECT_EQ(get_mask_operation("erode").key, "erode");
  EXPECT_EQ(find_mask_operation("erode"), &get_mask_operation("erode"));
  EXPECT_EQ(find_mask_operation("errode"), nullptr);
  try {
    static_cast<void>(get_mask_operation("treshold_auto"));
    FAIL() << "an unknown key was found";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "There is no mask operation \"treshold_auto\" (did you mean \"threshold_auto\"?).");
  }
}

TEST(MaskRegistry, HoldsOtherOperationsWhileAnOverrideLives) {
  {
    std::vector<std::string> accesses;
    const MaskRegistryOverride override_({&get_mask_operation("open")},
                                         [&](std::string_view key) { accesses.emplace_back(key); });
    EXPECT_EQ(get_all_mask_operation_infos().size(), 1u);
    EXPECT_EQ(find_mask_operation("erode"), nullptr);
    {
      const MaskRegistryOverride inner({});
      EXPECT_TRUE(get_all_mask_operation_infos().empty());
    }
    EXPECT_EQ(get_mask_operation("open").key, "open");
    EXPECT_THAT(accesses, testing::ElementsAre("", "erode", "open"));
  }
  EXPECT_GT(get_all_mask_operation_infos().size(), 10u);
}

TEST(MaskRegistry, PassesOnThatAnOverrideCannotBeBuilt) {
  const MaskRegistryOverride broken({}, [](std::string_view) { throw std::runtime_error("broken"); });
  EXPECT_THROW(static_cast<void>(get_available_mask_operations()), std::runtime_error);
  EXPECT_THROW(static_cast<void>(get_mask_operation("open")), std::runtime_error);
}

}  // namespace
}  // namespace orvexa::model
