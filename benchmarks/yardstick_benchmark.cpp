// What the other times are compared with: copying a colour picture of 8 bits, three bytes read and three written a
// pixel.
#include <benchmark/benchmark.h>

#include "drawn_captures.h"

namespace orvexa::benchmarks {
namespace {

void copy_picture(benchmark::State& state) {
  const auto shape = shape_of(state.range(0));
  const auto capture = drawn_capture(shape);
  const cv::Mat picture = capture->find_image("CLR", "RGB").value().read_only();
  cv::Mat copy(picture.size(), picture.type());
  for (auto _ : state) {
    picture.copyTo(copy);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * shape.pixels());
}

BENCHMARK(copy_picture)
    ->Name("yardstick/copy_picture")
    ->ArgNames({"megapixels"})
    ->ArgsProduct({{3, 12}})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

}  // namespace
}  // namespace orvexa::benchmarks
