// Result operations of the registry with their default parameters, with every pixel in one region and with the same
// pixels in 5,000.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <optional>
#include <utility>
#include <vector>

#include "drawn_captures.h"
#include "orvexa/common/parallel.h"
#include "orvexa/model/result_operations/registry.h"

namespace orvexa::benchmarks {
namespace {

/// The whole image in rows and columns of regions.
model::Mask grid(model::Shape shape, int rows, int columns) {
  auto labels = std::make_shared<model::RegionLabels>();
  labels->image.create(shape.height, shape.width, CV_32SC1);
  for (int y = 0; y < shape.height; ++y) {
    auto* label = labels->image.ptr<std::int32_t>(y);
    const int first = y * rows / shape.height * columns + 1;
    for (int x = 0; x < shape.width; ++x) label[x] = first + x * columns / shape.width;
  }
  for (int k = 1; k <= rows * columns; ++k) labels->names.push_back(fmt::format("ROI_{}", k));
  return model::Mask::full(shape).with_labels(std::move(labels));
}

void measure(benchmark::State& state, const model::ResultOperationInfo* info, int rows, int columns) {
  const auto shape = shape_of(state.range(0));
  const auto capture = drawn_capture(shape)->apply_mask(grid(shape, rows, columns));
  const model::RegionSet regions(*capture->mask);
  common::set_thread_count(static_cast<int>(state.range(1)));
  std::optional<model::OperationResult> result;
  for (auto _ : state) {
    const auto operation = (*info)();
    result = operation->run({.source_capture = *capture, .regions = &regions});
    state.PauseTiming();
    if (result->regions.size() != regions.regions().size()) state.SkipWithError("another number of regions");
    result.reset();
    state.ResumeTiming();
  }
  common::set_thread_count(0);
  state.SetItemsProcessed(state.iterations() * shape.pixels());
}

[[maybe_unused]] const bool are_registered = [] {
  for (const auto& [key, info] : model::get_available_result_operations()) {
    if (key == "psii") continue;  // the drawn capture has no fluorescence
    for (const auto& [rows, columns] : {std::pair{1, 1}, std::pair{50, 100}}) {
      const bool is_one = rows * columns == 1;
      auto* registered = benchmark::RegisterBenchmark(fmt::format("result/{}/{}_regions", key, rows * columns).c_str(),
                                                      measure, info, rows, columns);
      if (is_one) registered->Args({24, 1});
      registered->ArgNames({"megapixels", "threads"})
          ->ArgsProduct({is_one ? std::vector<std::int64_t>{1, 12} : std::vector<std::int64_t>{12}, {1, 2}})
          ->Unit(benchmark::kMillisecond)
          ->MeasureProcessCPUTime()
          ->UseRealTime();
    }
  }
  return true;
}();

}  // namespace
}  // namespace orvexa::benchmarks
