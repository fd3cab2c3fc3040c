// Every mask operation of the registry with its default parameters, on the mask that an automatic threshold made.
#include <benchmark/benchmark.h>

#include <string>

#include "drawn_captures.h"
#include "orvexa/common/parallel.h"
#include "orvexa/model/mask_operations/registry.h"

namespace orvexa::benchmarks {
namespace {

void apply(benchmark::State& state, const model::MaskOperationInfo* info) {
  const auto shape = shape_of(state.range(0));
  const auto capture = drawn_capture(shape);
  const auto images = capture->image_stack();
  const auto threshold = model::get_mask_operation("threshold_auto")();
  const auto current = threshold->apply({.image_stack = images});
  common::set_thread_count(static_cast<int>(state.range(1)));
  std::optional<model::Mask> expected;
  for (auto _ : state) {
    const auto operation = (*info)();
    std::optional<model::Mask> mask = operation->apply({.image_stack = images, .current_mask = current});
    state.PauseTiming();
    if (!mask || (expected && *mask != *expected)) state.SkipWithError("another mask than the time before");
    expected = std::move(mask);
    state.ResumeTiming();
  }
  common::set_thread_count(0);
  state.SetItemsProcessed(state.iterations() * shape.pixels());
}

[[maybe_unused]] const bool are_registered = [] {
  for (const model::MaskOperationInfo* info : model::get_all_mask_operation_infos()) {
    benchmark::RegisterBenchmark(("mask/" + info->key).c_str(), apply, info)
        ->ArgNames({"megapixels", "threads"})
        ->ArgsProduct({{3, 12}, {1, 2}})
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime()
        ->UseRealTime();
  }
  return true;
}();

}  // namespace
}  // namespace orvexa::benchmarks
