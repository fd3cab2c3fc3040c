#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "controller/fakes.h"
#include "support/base_images.h"
#include "support/mask_operations.h"

namespace orvexa::test {
namespace {

/// Draws numbers in a way that is the same with every standard library.
class Dice {
 public:
  explicit Dice(unsigned seed) : _random(seed) {}
  /// A whole number of [low, high].
  int between(int low, int high) { return low + static_cast<int>(_random() % static_cast<unsigned>(high - low + 1)); }
  /// Of [0, 1) in steps of 1/1024.
  double fraction() { return between(0, 1023) / 1024.0; }
  bool chance(double share) { return fraction() < share; }
  template <typename T>
  T one_of(const std::vector<T>& values) {
    return values[static_cast<std::size_t>(between(0, static_cast<int>(values.size()) - 1))];
  }

 private:
  std::mt19937 _random;
};

/// Bright discs on a dark noisy ground.
template <typename T>
model::Image blobs(Dice& dice, int height, int width, int channels, double white) {
  cv::Mat pixels(height, width, CV_MAKETYPE(cv::DataType<T>::depth, channels));
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width * channels; ++x) {
      pixels.ptr<T>(y)[x] = static_cast<T>(white * (0.05 + 0.15 * dice.fraction()));
    }
  }
  for (int blob = dice.between(1, 4); blob > 0; --blob) {
    const int radius = dice.between(2, 6);
    const int cy = dice.between(0, height - 1);
    const int cx = dice.between(0, width - 1);
    const double level = 0.4 + 0.5 * dice.fraction();
    for (int y = std::max(0, cy - radius); y <= std::min(height - 1, cy + radius); ++y) {
      for (int x = std::max(0, cx - radius); x <= std::min(width - 1, cx + radius); ++x) {
        if ((y - cy) * (y - cy) + (x - cx) * (x - cx) > radius * radius) continue;
        for (int c = 0; c < channels; ++c) {
          pixels.ptr<T>(y)[x * channels + c] = static_cast<T>(white * level * (c == 1 ? 1.0 : 0.6));
        }
      }
    }
  }
  return model::Image(std::move(pixels));
}

/// Colour (8-bit), red and near infrared (16-bit, 12 bits used) and fluorescence (float) of one object.
std::shared_ptr<model::CaptureSet> random_capture(Dice& dice) {
  const int height = dice.between(6, 40);
  const int width = dice.between(6, 40);
  auto result = capture("random", {{"CLR", {{"RGB", blobs<std::uint8_t>(dice, height, width, 3, 255)}}},
                                   {"MSP",
                                    {{"RED", blobs<std::uint16_t>(dice, height, width, 1, 4095)},
                                     {"NIR", blobs<std::uint16_t>(dice, height, width, 1, 4095)}}},
                                   {"FLU", {{"FM", blobs<float>(dice, height, width, 1, 1)}}}});
  result->measurements.at("MSP")->declared_white_level = 4095;
  return result;
}

Value random_rect(Dice& dice) {
  // Partly outside the image now and then.
  return {dice.fraction(), dice.fraction(), 0.3 + dice.fraction(), 0.3 + dice.fraction()};
}

Value random_polygon(Dice& dice) {
  Value corners = Value::array();
  for (int left = dice.between(3, 6); left > 0; --left) {
    corners.push_back({1.4 * dice.fraction() - 0.2, 1.4 * dice.fraction() - 0.2});
  }
  return corners;
}

Value random_params_of_shapes(Dice& dice, const std::string& key) {
  if (key == "roi_polygon") return {{"points", random_polygon(dice)}};
  if (key == "roi_ellipse") return {{"rect", random_rect(dice)}};
  if (key == "roi_exclude") {
    const auto shape = dice.one_of<std::string>({"rect", "ellipse", "polygon"});
    if (shape == "polygon") return {{"shape", shape}, {"points", random_polygon(dice)}};
    return {{"shape", shape},
            {"rect", {dice.fraction(), dice.fraction(), 0.3 * dice.fraction(), 0.3 * dice.fraction()}}};
  }
  if (key == "roi_grid") return {{"rows", dice.between(1, 3)}, {"cols", dice.between(1, 3)}};
  if (key == "mask_edit") {
    return {{"add", Value::array({random_polygon(dice)})}, {"remove", Value::array({random_polygon(dice)})}};
  }
  return Value::object();
}

Value random_params(Dice& dice, const std::string& key, model::Shape shape) {
  const std::vector<std::string> bands = {"", "CLR.RGB.G", "CLR.RGB", "MSP.RED", "MSP.NIR", "FLU.FM"};
  const std::vector<std::string> methods = {"otsu", "triangle", "li"};
  const std::vector<std::string> sides = {"bright", "bright", "dark"};
  Value params = random_params_of_shapes(dice, key);
  if (key == "roi_rect") params = {{"rect", random_rect(dice)}};
  if (key == "roi_rects") params = {{"rects", Value::array({random_rect(dice), random_rect(dice), random_rect(dice)})}};
  if (key == "threshold_range") {
    const double low = 0.4 * dice.fraction();
    params = {{"band", dice.one_of(bands)}, {"low", low}, {"high", low + 0.6 * dice.fraction()}};
    params["invert"] = dice.chance(0.3);
  }
  if (key == "threshold_auto") {
    params = {{"band", dice.one_of(bands)}, {"method", dice.one_of(methods)}, {"polarity", dice.one_of(sides)}};
    if (dice.chance(0.3)) params["factor"] = 0.5 + dice.fraction();
  }
  if (key == "threshold_hsv") params = {{"image", "CLR.RGB"}, {"v_min", 0.5 * dice.fraction()}};
  if (key == "threshold_index") {
    params = {{"index", "ndvi"}, {"method", dice.one_of(methods)}, {"polarity", dice.one_of(sides)}};
  }
  if (key == "erode" || key == "dilate" || key == "open" || key == "close") {
    params = {{"radius", dice.between(0, 5) / 2.0},
              {"shape", dice.one_of<std::string>({"disc", "square"})},
              {"iterations", dice.between(1, 2)}};
  }
  if (key == "fill_holes" && dice.chance(0.5)) params = {{"max_area", dice.between(1, 20)}};
  if (key == "remove_small") {
    params = {{"min_area", dice.between(0, 12)}, {"connectivity", dice.one_of<std::string>({"4", "8"})}};
  }
  if (key == "keep_regions") {
    params = {{"by", dice.one_of<std::string>({"area", "solidity", "distance_to_point"})},
              {"n", dice.between(1, 3)},
              {"make_regions", dice.chance(0.5)}};
  }
  if (key == "convex_hull") params = {{"per_region", dice.chance(0.5)}};
  if (key == "smooth_mask") params = {{"radius", dice.between(1, 4)}};
  if (key == "split_touching") params = {{"min_distance", dice.between(1, 8)}};
  const Value files = usable_params(model::get_mask_operation(key), shape);
  for (const auto& [name, file] : files.items()) params[name] = file;
  if (dice.chance(0.15)) params["reset_mask_chain"] = true;
  return params;
}

/// @param shape  of the pictures in files that steps name.
std::shared_ptr<model::Workflow> random_workflow(Dice& dice, model::Shape shape) {
  std::vector<std::string> makers;
  std::vector<std::string> all;
  for (const model::MaskOperationInfo* info : model::get_all_mask_operation_infos()) {
    all.push_back(info->key);
    if (!info->needs_mask) makers.push_back(info->key);
  }
  auto workflow = std::make_shared<model::Workflow>();
  for (int step = 0, count = dice.between(1, 6); step < count; ++step) {
    const std::string key = dice.one_of(step == 0 ? makers : all);
    workflow->mask_operations.push_back({{.op = key, .params = random_params(dice, key, shape)}});
  }
  return workflow;
}

/// Empty when pixels, bounds and regions are the same; otherwise what is not.
std::string difference(const model::Mask& a, const model::Mask& b) {
  if (!(a == b)) return "pixels";
  if (a.bounds() != b.bounds()) return "bounds";
  if ((a.labels() == nullptr) != (b.labels() == nullptr)) return "whether there are regions";
  if (a.labels() && a.labels()->names != b.labels()->names) return "names of regions";
  if (a.labels() && cv::countNonZero(a.labels()->image != b.labels()->image) != 0) return "regions";
  return "";
}

std::string text_of(const model::Workflow& workflow) {
  std::string text;
  for (const auto& step : workflow.mask_operations) text += step.op + " " + step.params.dump() + "\n";
  return text;
}

TEST(MaskChainLaw, CachedChainExecutorAndAccumulatedMaskAgreeOnRandomWorkflowsAndBasePixelsStayAsTheyWere) {
  std::map<std::string, int> uses;
  int telling_masks = 0;
  constexpr unsigned workflows = 600;
  for (unsigned seed = 0; seed < workflows; ++seed) {
    Dice dice(seed);
    Probe controller;
    const auto capture = random_capture(dice);
    const auto workflow = random_workflow(dice, capture->get_shape());
    SCOPED_TRACE(testing::Message() << "seed " << seed << "\n" << text_of(*workflow));
    const auto before = base_image_hashes(*capture);
    controller.state.current_capture = capture;
    controller.state.current_workflow = workflow;

    const int last = static_cast<int>(workflow->mask_operations.size()) - 1;
    const auto chain_end = controller.get_mask_result(last);
    ASSERT_NE(chain_end, nullptr) << "a step of a workflow that ought to run failed";
    for (int i = 0; i <= last; ++i) {
      const auto cached = controller.get_mask_result(i);
      ASSERT_TRUE(cached && cached->mask);
      EXPECT_EQ(difference(*cached->mask, controller.executor->build_mask(*capture, *workflow, i)), "") << "step " << i;
      EXPECT_EQ(base_image_hashes(*cached), before) << "step " << i;
      ++uses[workflow->mask_operations[static_cast<std::size_t>(i)].op];
    }
    EXPECT_EQ(difference(*chain_end->mask, controller.executor->build_mask(*capture, *workflow)), "");
    const auto accumulated = controller.build_accumulated_mask();
    ASSERT_TRUE(accumulated);
    EXPECT_EQ(difference(*chain_end->mask, *accumulated), "");
    EXPECT_EQ(base_image_hashes(*capture), before);
    if (chain_end->mask->count() > 0 && chain_end->mask->count() < capture->get_shape().pixels()) ++telling_masks;
    if (testing::Test::HasFailure()) return;
  }
  // The law says little about empty and full masks or operations that never came up.
  EXPECT_GT(telling_masks, static_cast<int>(workflows) / 2);
  for (const model::MaskOperationInfo* info : model::get_all_mask_operation_infos()) {
    EXPECT_GE(uses[info->key], 20) << info->key;
  }
}

TEST(MaskChainLaw, StepsAppliedOneByOneGiveTheChainOfTheWholeWorkflow) {
  const model::ResultRegistryOverride no_result_operations({});
  for (unsigned seed = 1000; seed < 1060; ++seed) {
    Dice dice(seed);
    const auto capture = random_capture(dice);
    const auto workflow = random_workflow(dice, capture->get_shape());
    SCOPED_TRACE(testing::Message() << "seed " << seed << "\n" << text_of(*workflow));
    Probe whole;
    whole.state.current_capture = capture;
    whole.state.current_workflow = workflow;
    Probe one_by_one;
    one_by_one.state.current_capture = capture;
    for (int i = 0; i < static_cast<int>(workflow->mask_operations.size()); ++i) {
      const auto& step = workflow->mask_operations[static_cast<std::size_t>(i)];
      const auto masked = one_by_one.apply_mask_to_workflow(step.op, step.params);
      ASSERT_NE(masked, nullptr) << one_by_one.state.error.value_or("");
      EXPECT_EQ(difference(*masked->mask, *whole.get_mask_result(i)->mask), "") << "step " << i;
    }
    EXPECT_EQ(one_by_one._mask_result_cache.size(), workflow->mask_operations.size());
  }
}

TEST(MaskChainLaw, ThePreviewOfAnOperationOnTopOfTheChainIsTheStepOnceCommitted) {
  const model::ResultRegistryOverride no_result_operations({});
  int on_the_chain = 0;
  int telling_masks = 0;
  for (unsigned seed = 2000; seed < 2300; ++seed) {
    Dice dice(seed);
    const auto capture = random_capture(dice);
    const auto workflow = random_workflow(dice, capture->get_shape());
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", its last step is tuned\n" << text_of(*workflow));
    const auto before = base_image_hashes(*capture);
    const model::MaskOperationConfig tuned = workflow->mask_operations.back();
    workflow->mask_operations.pop_back();
    Probe tuning;
    tuning.state.current_capture = capture;
    tuning.state.current_workflow = workflow;

    // An operation that the workflow has already is tuned where it first stands.
    Probe committing;
    committing.state.current_capture = capture;
    committing.state.current_workflow = workflow_of({});
    auto& steps = committing.state.current_workflow->mask_operations;
    for (const auto& step : workflow->mask_operations) {
      if (step.op == tuned.op) break;
      steps.push_back(step);
    }
    const auto accumulated = committing.build_accumulated_mask();

    const model::MaskOperationInfo& info = model::get_mask_operation(tuned.op);
    if (info.needs_mask && !accumulated) {
      EXPECT_THROW(static_cast<void>(tuning.run_mask_preview(tuned.op, tuned.params)), std::runtime_error);
      EXPECT_EQ(committing.apply_mask_to_workflow(tuned.op, tuned.params), nullptr);
      continue;
    }
    const auto preview = tuning.run_mask_preview(tuned.op, tuned.params);
    ASSERT_TRUE(preview.mask);
    EXPECT_EQ(base_image_hashes(*capture), before);
    const auto committed = committing.apply_mask_to_workflow(tuned.op, tuned.params);
    ASSERT_NE(committed, nullptr) << committing.state.error.value_or("");
    const bool is_afresh = model::resets_mask_chain(tuned.params) && !info.needs_mask;
    if (!info._is_roi_operation && !is_afresh) {
      EXPECT_EQ(difference(*preview.mask, *committed->mask), "");
      if (accumulated) ++on_the_chain;
    } else if (accumulated) {
      // A region of interest is previewed on the bare capture; one that starts afresh within what the chain left.
      EXPECT_EQ(*preview.mask & *accumulated, *committed->mask & *accumulated);
    }
    if (preview.mask->count() > 0 && preview.mask->count() < capture->get_shape().pixels()) ++telling_masks;
    if (testing::Test::HasFailure()) return;
  }
  EXPECT_GT(on_the_chain, 100);
  EXPECT_GT(telling_masks, 150);
}

TEST(MaskChainLaw, ThePreviewOfTheNextStepIsThatStepOnceCommittedWhateverCameBefore) {
  const model::ResultRegistryOverride no_result_operations({});
  int repeated = 0;
  for (unsigned seed = 4000; seed < 4200; ++seed) {
    Dice dice(seed);
    const auto capture = random_capture(dice);
    const auto workflow = random_workflow(dice, capture->get_shape());
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", its last step is tuned\n" << text_of(*workflow));
    const model::MaskOperationConfig tuned = workflow->mask_operations.back();
    workflow->mask_operations.pop_back();
    Probe controller;
    controller.state.current_capture = capture;
    controller.state.current_workflow = workflow;
    const model::MaskOperationInfo& info = model::get_mask_operation(tuned.op);
    const bool is_on_the_chain =
        !info._is_roi_operation && !(model::resets_mask_chain(tuned.params) && !info.needs_mask);
    if (!is_on_the_chain || (info.needs_mask && workflow->mask_operations.empty())) continue;
    const auto preview = controller.run_next_step_preview(tuned.op, tuned.params);
    ASSERT_TRUE(preview.mask);
    const auto committed = controller.apply_mask_to_workflow(tuned.op, tuned.params);
    ASSERT_NE(committed, nullptr) << controller.state.error.value_or("");
    EXPECT_EQ(difference(*preview.mask, *committed->mask), "");
    const auto& steps = controller.state.current_workflow->mask_operations;
    repeated += static_cast<int>(
        std::any_of(steps.begin(), steps.end() - 1, [&](const auto& step) { return step.op == tuned.op; }));
    if (testing::Test::HasFailure()) return;
  }
  EXPECT_GT(repeated, 3) << "steps whose operation the workflow had already";
}

TEST(MaskChainLaw, ThePreviewOfTheStateIsTheFirstStepOfAWorkflow) {
  for (unsigned seed = 3000; seed < 3060; ++seed) {
    Dice dice(seed);
    Probe controller;
    const auto capture = random_capture(dice);
    const auto workflow = random_workflow(dice, capture->get_shape());
    SCOPED_TRACE(testing::Message() << "seed " << seed << "\n" << text_of(*workflow));
    controller.state.current_capture = capture;
    controller.state.current_workflow = workflow;
    const auto& first = workflow->mask_operations.front();
    controller.set_mask_operation(first.op, first.params);
    ASSERT_TRUE(controller.state.preview_mask) << controller.state.error.value_or("");
    EXPECT_EQ(difference(*controller.state.preview_mask, *controller.get_mask_result(0)->mask), "");
  }
}

}  // namespace
}  // namespace orvexa::test
