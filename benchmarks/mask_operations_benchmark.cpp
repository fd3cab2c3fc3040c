// Every mask operation of the registry, on the mask that an automatic threshold made: with its default parameters, and
// small against large for those whose work could grow with a parameter.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <string>
#include <utility>
#include <vector>

#include "drawn_captures.h"
#include "orvexa/common/parallel.h"
#include "orvexa/model/mask_operations/registry.h"

namespace orvexa::benchmarks {
namespace {

/// What an operation needs before it can run on the drawn capture; the others run with their defaults.
model::Value needed_parameters(const std::string& key, model::Shape shape) {
  if (key == "region_grow" || key == "threshold_color_distance") {
    return {{"points", model::Value::array({first_disc(shape)})}};
  }
  if (key == "roi_polygon") return {{"points", {{0.1, 0.1}, {0.9, 0.2}, {0.5, 0.9}}}};
  return model::Value::object();
}

void apply(benchmark::State& state, const model::MaskOperationInfo* info, const model::Value& chosen) {
  const auto shape = shape_of(state.range(0));
  model::Value params = needed_parameters(info->key, shape);
  params.update(chosen);
  const auto capture = drawn_capture(shape);
  const auto images = capture->image_stack();
  const auto threshold = model::get_mask_operation("threshold_auto")();
  const auto current = threshold->apply({.image_stack = images});
  common::set_thread_count(static_cast<int>(state.range(1)));
  std::optional<model::Mask> expected;
  for (auto _ : state) {
    const auto operation = (*info)();
    std::optional<model::Mask> mask =
        operation->apply({.image_stack = images, .current_mask = current, .params = params});
    state.PauseTiming();
    if (!mask || (expected && *mask != *expected)) state.SkipWithError("another mask than the time before");
    expected = std::move(mask);
    state.ResumeTiming();
  }
  common::set_thread_count(0);
  state.SetItemsProcessed(state.iterations() * shape.pixels());
}

/// A parameter whose small and large value may differ in cost by a factor of 20 at most.
struct Reach {
  const char* operation;
  const char* parameter;
  model::Value small;
  model::Value large;
  model::Value others = model::Value::object();
};

const std::vector<Reach>& reaches() {
  static const std::vector<Reach> all{
      {"erode", "radius", 1, 50},
      {"dilate", "radius", 1, 50},
      {"open", "radius", 1, 50},
      {"close", "radius", 1, 50},
      {"smooth_mask", "radius", 1, 50},
      {"threshold_adaptive", "window", 3, 501},
      {"threshold_adaptive", "window", 3, 501, {{"method", "gaussian"}}},
      {"threshold_sauvola", "window", 3, 501},
      {"texture_threshold", "radius", 1, 50},
      {"texture_threshold", "radius", 1, 50, {{"measure", "entropy"}}},
      {"texture_threshold", "radius", 1, 50, {{"measure", "range"}}},
      {"threshold_range", "smooth_radius", 1, 50, {{"smooth", "median"}, {"band", "CLR.RGB.G"}}},
      {"threshold_range", "smooth_radius", 1, 50, {{"smooth", "median"}, {"band", "MSP.NIR"}}}};
  return all;
}

void register_reach(const Reach& reach) {
  const model::MaskOperationInfo& info = model::get_mask_operation(reach.operation);
  for (const auto& [name, value] : {std::pair{"small", reach.small}, std::pair{"large", reach.large}}) {
    model::Value params = reach.others;
    params[reach.parameter] = value;
    std::string title = fmt::format("reach/{}", reach.operation);
    for (const auto& [other, setting] : reach.others.items()) title += "_" + setting.get<std::string>();
    benchmark::RegisterBenchmark(fmt::format("{}/{}", title, name).c_str(), apply, &info, params)
        ->ArgNames({"megapixels", "threads"})
        ->Args({12, 1})
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime()
        ->UseRealTime();
  }
}

[[maybe_unused]] const bool are_registered = [] {
  for (const Reach& reach : reaches()) register_reach(reach);
  for (const model::MaskOperationInfo* info : model::get_all_mask_operation_infos()) {
    if (info->key == "mask_from_file" || info->key == "background_difference") continue;  // need a file
    benchmark::RegisterBenchmark(("mask/" + info->key).c_str(), apply, info, model::Value::object())
        ->ArgNames({"megapixels", "threads"})
        ->ArgsProduct({{1, 12}, {1, 2}})
        ->Args({24, 1})
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime()
        ->UseRealTime();
  }
  return true;
}();

}  // namespace
}  // namespace orvexa::benchmarks
