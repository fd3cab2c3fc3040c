// Every operation at both ends of every parameter, on pictures that break careless arithmetic: a mask or numbers, or a
// sentence, never anything else.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <limits>
#include <utility>

#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

struct NamedCapture {
  std::string name;
  std::shared_ptr<CaptureSet> capture;
};

/// Colour and bands in one type of pixels; `pixel` gives the share of white at column x and row y.
template <typename T>
std::shared_ptr<CaptureSet> capture_of(Shape shape, double white, const std::function<double(int x, int y)>& pixel) {
  cv::Mat color(shape.height, shape.width, CV_MAKETYPE(cv::DataType<T>::depth, 3));
  cv::Mat plane(shape.height, shape.width, cv::DataType<T>::type);
  for (int y = 0; y < shape.height; ++y) {
    for (int x = 0; x < shape.width; ++x) {
      const T value = static_cast<T>(pixel(x, y) * white);
      plane.at<T>(y, x) = value;
      for (int channel = 0; channel < 3; ++channel) color.ptr<T>(y)[3 * x + channel] = value;
    }
  }
  const Image band(plane);
  auto capture = test::capture("strange",
                               {{"CLR", {{"RGB", Image(color)}}},
                                {"MSP", {{"BLU", band}, {"GRN", band}, {"RED", band}, {"EDG", band}, {"NIR", band}}},
                                {"FLU", {{"F0", band}, {"FM", band}, {"FS", band}, {"FMP", band}, {"F0P", band}}}},
                               test::header_with_scale(0.5));
  capture->measurements.at("MSP")->declared_white_level = white;
  return capture;
}

/// Sizes that have no inside, an odd one, and contents without contrast, with one hot pixel, and without numbers.
std::vector<NamedCapture> strange_captures() {
  const auto black = [](int, int) { return 0.0; };
  const auto white = [](int, int) { return 1.0; };
  const auto hot = [](int x, int y) { return x == 0 && y == 0 ? 1.0 : 0.0; };
  const auto chequered = [](int x, int y) { return (x + y) % 2 == 0 ? 1.0 : 0.25; };
  const auto nothing = [](int, int) { return std::numeric_limits<double>::quiet_NaN(); };
  std::vector<NamedCapture> captures;
  for (const Shape shape : {Shape{1, 1}, Shape{1, 23}, Shape{19, 1}, Shape{13, 17}}) {
    const std::string size = std::to_string(shape.height) + "x" + std::to_string(shape.width);
    captures.push_back({size + " 8-bit black", capture_of<std::uint8_t>(shape, 255, black)});
    captures.push_back({size + " 8-bit white", capture_of<std::uint8_t>(shape, 255, white)});
    captures.push_back({size + " 16-bit hot pixel", capture_of<std::uint16_t>(shape, 65535, hot)});
    captures.push_back({size + " float not a number", capture_of<float>(shape, 1, nothing)});
    captures.push_back({size + " float chequered", capture_of<float>(shape, 1, chequered)});
  }
  return captures;
}

/// The numbers of a value, each not farther out than the parameter allows.
Value within_limits(const ParameterInfo& parameter, Value value) {
  if (value.is_array()) {
    for (Value& element : value) element = within_limits(parameter, element);
    return value;
  }
  if (parameter.min) value = std::max(value.get<double>(), *parameter.min);
  if (parameter.max) value = std::min(value.get<double>(), *parameter.max);
  return value;
}

/// Maps with one parameter at one of its ends, and the empty map for the defaults.
std::vector<Value> parameter_ends(const ParameterList& parameters) {
  std::vector<Value> ends{Value::object()};
  const auto add = [&](const ParameterInfo& parameter, const Value& value) {
    ends.push_back(Value{{parameter.name, value}});
  };
  for (const ParameterInfo& parameter : parameters) {
    const bool is_whole = parameter.type == ParameterType::integer;
    if (is_whole || parameter.type == ParameterType::real) {
      for (const std::optional<double>& end : {parameter.min, parameter.max}) {
        if (end) add(parameter, is_whole ? Value(static_cast<std::int64_t>(*end)) : Value(*end));
      }
    }
    if (parameter.type == ParameterType::boolean) {
      for (const bool value : {false, true}) add(parameter, value);
    }
    for (const std::string& choice : parameter.choices) {
      add(parameter, parameter.type == ParameterType::choices ? Value{choice} : Value(choice));
    }
    if (parameter.type == ParameterType::point) {
      for (const double place : {0.0, 1.0, -3.0}) add(parameter, within_limits(parameter, {place, place}));
    }
    if (parameter.type == ParameterType::points) {
      add(parameter, Value::array({{0.0, 0.0}, {1.0, 0.0}, {1.0, 1.0}}));
      add(parameter, within_limits(parameter, Value::array({{-5.0, -5.0}, {-4.0, 5.0}, {-4.0, -4.0}})));
    }
    if (parameter.type == ParameterType::polygons) {
      add(parameter, Value::parse("[[[0, 0], [1, 0], [1, 1]], [[-5, -5], [5, -5], [0, 9]]]"));
      add(parameter, Value::parse("[[[-1e300, 0], [1e300, 0], [0, 1e300]]]"));
    }
    if (parameter.type == ParameterType::rect) {
      add(parameter, {0.5, 0.5, 0.0, 0.0});
      add(parameter, {9.0, 9.0, 1.0, 1.0});
      add(parameter, {0.5, 0.5, 50.0, 50.0});
    }
  }
  return ends;
}

void expect_sentence(const std::exception& e) {
  const std::string text = e.what();
  EXPECT_GT(text.size(), 10u) << text;
  EXPECT_TRUE(text.ends_with('.') || text.ends_with("declared")) << text;
}

/// The capture has no band at these places of the spectrum, and an index of one's own has none by itself.
void name_the_bands(Value& params, const std::string& index) {
  if (index == "pri") params["bands"] = {"R531=MSP.GRN", "R570=MSP.RED"};
  if (index == "psri") params["bands"] = {"RE2=MSP.EDG"};
  if (index == "custom") params["expression"] = "N - R";
}

/// The end of one parameter with values of the others that let it be looked at.
Value usable_mask_params(const MaskOperationInfo& info, Value params, Shape shape) {
  const auto has = [&](const char* name) { return params.contains(name); };
  if (has("smooth_sigma")) params["smooth"] = "gaussian";
  if (has("smooth_radius")) params["smooth"] = params.at("smooth_radius") == 1 ? "bilateral" : "median";
  if (has("smooth_range")) params["smooth"] = "bilateral";
  const std::string& key = info.key;
  if (has("points") && key == "roi_exclude") params["shape"] = "polygon";
  if (has("points") && key == "cluster_kmeans") params["keep"] = "points";
  if (has("point") && key == "keep_regions") params["by"] = "distance_to_point";
  if (key == "keep_regions" && has("order")) params["n"] = 1;
  if (key == "auto_roi" && (has("border") || has("k"))) params["method"] = "border_background";
  if (key == "threshold_percentile" && has("high")) params["low"] = 0;
  if (key == "threshold_color_distance" && has("reference") && params.at("reference") == "lab")
    params["colors"] = {{{"name", "grey"}, {"lab", {50, 0, 0}}}};
  if (key == "threshold_multiotsu" && has("keep"))
    params["classes"] = std::max(3, std::stoi(params["keep"][0].get<std::string>()));
  if (has("index")) name_the_bands(params, params.at("index").get<std::string>());
  Value given = test::usable_params(info, shape);
  given.update(params);
  return given;
}

class MaskParameterEnds : public testing::TestWithParam<const MaskOperationInfo*> {};
INSTANTIATE_TEST_SUITE_P(Registry, MaskParameterEnds, testing::ValuesIn(get_all_mask_operation_infos()),
                         [](const auto& operation) { return operation.param->key; });

TEST_P(MaskParameterEnds, GiveAMaskOfTheRightSizeOrASentence) {
  const MaskOperationInfo& info = *GetParam();
  const std::vector<Value> ends = parameter_ends(info.all_parameters());
  std::vector<int> masks(ends.size(), 0);
  for (const auto& [name, capture] : strange_captures()) {
    const Shape shape = capture->get_shape();
    for (std::size_t end = 0; end < ends.size(); ++end) {
      const Value params = usable_mask_params(info, ends[end], shape);
      for (const auto& mask :
           {std::optional<Mask>(), std::optional(Mask::empty(shape)), std::optional(Mask::full(shape)),
            std::optional(test::mask_of_grid(Mask::full(shape), 1, 1))}) {
        SCOPED_TRACE(name + " " + params.dump() + (mask ? " mask of " + std::to_string(mask->count()) : ""));
        try {
          const auto result = info()->apply({.image_stack = *capture, .current_mask = mask, .params = params});
          ASSERT_TRUE(result);
          ASSERT_EQ(result->shape(), shape);
          ++masks[end];
        } catch (const std::runtime_error& e) {
          expect_sentence(e);
        } catch (const std::invalid_argument& e) {
          expect_sentence(e);
        }
      }
    }
  }
  for (std::size_t end = 0; end < ends.size(); ++end) EXPECT_GT(masks[end], 0) << "refused each time " << ends[end];
}

/// The end of one parameter with values of the others that let it be looked at.
Value usable_result_params(const std::string& key, Value params) {
  const auto has = [&](const char* name) { return params.contains(name); };
  const auto number = [&](const char* name) { return params.at(name).get<double>(); };
  // Low stays below high: where an end leaves no room for the other one, the pair lies at that end.
  constexpr double most = 1e6;
  for (const auto& [low, high] : {std::pair("low", "high"), std::pair("map_low", "map_high")}) {
    if (has(low) && number(low) == most) params = {{low, most - 1}, {high, most}};
    if (has(high) && number(high) == -most) params = {{low, -most}, {high, 1 - most}};
    if (has("map_low") || has("map_high")) params["map_range"] = "fixed";
  }
  if (key == "color_difference" && (has("lab_l") || has("lab_a") || has("lab_b"))) params["reference"] = "lab";
  if (key == "band_correlation") {
    if (has("points")) params["points"].erase(2);  // a line has two ends
    if (has("points") || has("line_width")) params["profile"] = "line";
    if (has("samples")) params["profile"] = "radial";
    if (has("profile") && params.at("profile") == "line" && !has("points")) params["points"] = {{0.1, 0.2}, {0.9, 0.8}};
    if (has("profile")) params["bands"] = {"MSP.RED", "MSP.NIR"};  // all of them are many
  }
  if (has("indices")) name_the_bands(params, params.at("indices").at(0).get<std::string>());
  return params;
}

std::vector<std::string> result_keys() {
  std::vector<std::string> keys;
  for (const auto& [key, operation] : get_available_result_operations()) keys.push_back(key);
  return keys;
}

class ResultParameterEnds : public testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(Registry, ResultParameterEnds, testing::ValuesIn(result_keys()),
                         [](const auto& operation) { return operation.param; });

TEST_P(ResultParameterEnds, GiveFiniteNumbersReasonsOrASentence) {
  const ResultOperationInfo& info = get_result_operation(GetParam());
  const std::vector<Value> ends = parameter_ends(info.parameters);
  std::vector<int> measured(ends.size(), 0);
  for (const auto& [name, capture] : strange_captures()) {
    const Shape shape = capture->get_shape();
    for (std::size_t end = 0; end < ends.size(); ++end) {
      const Value params = usable_result_params(GetParam(), ends[end]);
      // Without a mask every pixel counts; the shape of a part of them is another matter.
      for (const auto& mask : {std::optional<Mask>(), std::optional(Mask::empty(shape)),
                               std::optional(test::random_mask(1, shape.height, shape.width, 0.5))}) {
        SCOPED_TRACE(name + " " + params.dump() + (mask ? " mask of " + std::to_string(mask->count()) : ""));
        try {
          const OperationResult result = test::measured(GetParam(), *capture, mask, params);
          EXPECT_FALSE(result.metrics.empty() && result.reasons.empty());
          if (!result.metrics.empty()) ++measured[end];
          for (const auto& [metric, value] : result.metrics.items()) {
            EXPECT_TRUE(!value.is_number_float() || std::isfinite(value.get<double>())) << metric;
            EXPECT_FALSE(result.reasons.contains(metric)) << metric;
          }
        } catch (const std::runtime_error& e) {
          expect_sentence(e);
        } catch (const std::invalid_argument& e) {
          expect_sentence(e);
        }
      }
    }
  }
  for (std::size_t end = 0; end < ends.size(); ++end) EXPECT_GT(measured[end], 0) << "never measured " << ends[end];
}

}  // namespace
}  // namespace orvexa::model
