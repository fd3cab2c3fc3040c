// Loading a capture, and a whole run: mask steps, measurements, and all files written.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "drawn_captures.h"
#include "orvexa/common/files.h"
#include "orvexa/common/parallel.h"
#include "orvexa/model/codecs/image_file.h"
#include "orvexa/model/entities/capture_loader.h"
#include "orvexa/model/workflow/executor.h"

namespace orvexa::benchmarks {
namespace {

namespace fs = std::filesystem;

class Folder {
 public:
  Folder() : _path(fs::temp_directory_path() / ("orvexa_benchmark_" + common::random_suffix())) {
    fs::create_directories(_path);
  }
  ~Folder() {
    std::error_code ignored;
    fs::remove_all(_path, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  [[nodiscard]] const fs::path& path() const { return _path; }

 private:
  fs::path _path;
};

/// Writes the capture as a header with a colour PNG and two 16-bit TIFFs.
fs::path write_capture(const fs::path& folder, const model::CaptureSet& capture) {
  common::write_file_atomically(folder / "tray_RGB.png", model::encode_png(*capture.find_image("CLR", "RGB")));
  for (const std::string band : {"RED", "NIR"}) {
    common::write_file_atomically(folder / ("tray_" + band + ".tif"),
                                  model::encode_tiff(*capture.find_image("MSP", band)));
  }
  common::write_file_atomically(
      folder / "HDR_tray.INF",
      "[Capture]\nName = tray\nWhiteLevel = 65535\n[Measurement CLR]\nImage RGB = "
      "tray_RGB.png\n[Measurement MSP]\nImage RED = tray_RED.tif\nImage NIR = tray_NIR.tif\n");
  return folder / "HDR_tray.INF";
}

template <typename Load>
void load(benchmark::State& state, const std::string& name, int images, const Load& load_capture) {
  const Folder folder;
  const auto shape = shape_of(state.range(0));
  const auto drawn = drawn_capture(shape);
  write_capture(folder.path(), *drawn);
  common::set_thread_count(static_cast<int>(state.range(1)));
  for (auto _ : state) {
    const auto capture = load_capture(folder.path() / name);
    if (capture->get_shape() != shape) state.SkipWithError("another size than was written");
    benchmark::DoNotOptimize(capture);
  }
  common::set_thread_count(0);
  state.SetItemsProcessed(state.iterations() * shape.pixels() * images);
}

void load_png(benchmark::State& state) {
  load(state, "tray_RGB.png", 1, model::load_capture_from_image);
}
void load_tiff(benchmark::State& state) {
  load(state, "tray_NIR.tif", 1, model::load_capture_from_image);
}
void load_header(benchmark::State& state) {
  load(state, "HDR_tray.INF", 3, model::get_default_capture_loader());
}

model::Workflow tray_workflow() {
  model::Workflow workflow;
  workflow.mask_operations = {model::mask_op("threshold_auto", {{"band", "CLR.RGB.G"}}),
                              model::mask_op("open", {{"radius", 3}}), model::mask_op("fill_holes"),
                              model::mask_op("remove_small", {{"min_area", 64}})};
  for (const char* key :
       {"region_count", "area", "shape_factors", "color_statistics", "band_statistics", "histogram"}) {
    workflow.result_operations.push_back(model::result_op(key));
  }
  return workflow;
}

void run_and_save(benchmark::State& state) {
  const Folder folder;
  const auto shape = shape_of(state.range(0));
  const auto capture = drawn_capture(shape);
  const auto workflow = std::make_shared<const model::Workflow>(tray_workflow());
  common::set_thread_count(static_cast<int>(state.range(1)));
  for (auto _ : state) {
    const model::RunOutput made = model::Executor().run_and_save(
        {.capture = capture, .wf = workflow, .output_base_dir = folder.path(), .capture_name = capture->name});
    state.PauseTiming();
    for (const auto& [key, result] : made.bundle.results) {
      if (result.error) state.SkipWithError((key + ": " + *result.error).c_str());
    }
    if (made.bundle.results.at("region_count").metrics.at("region_count") != disc_count(shape)) {
      state.SkipWithError("another number of discs than were drawn");
    }
    fs::remove_all(made.results_folder);
    state.ResumeTiming();
  }
  common::set_thread_count(0);
  state.SetItemsProcessed(state.iterations() * shape.pixels());
}

void sizes_and_threads(benchmark::internal::Benchmark* made) {
  made->ArgNames({"megapixels", "threads"})
      ->ArgsProduct({{3, 12}, {1, 2}})
      ->Unit(benchmark::kMillisecond)
      ->MeasureProcessCPUTime()
      ->UseRealTime();
}

BENCHMARK(load_png)->Name("load/png")->Apply(sizes_and_threads);
BENCHMARK(load_tiff)->Name("load/tiff")->Apply(sizes_and_threads);
BENCHMARK(load_header)->Name("load/header_of_three_images")->Apply(sizes_and_threads);
BENCHMARK(run_and_save)->Apply(sizes_and_threads);

}  // namespace
}  // namespace orvexa::benchmarks
