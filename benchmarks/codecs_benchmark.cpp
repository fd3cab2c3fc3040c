// Decoding, encoding and the pictures for the eye, in memory.
#include <benchmark/benchmark.h>

#include <string>

#include "drawn_captures.h"
#include "orvexa/common/files.h"
#include "orvexa/common/parallel.h"
#include "orvexa/model/codecs/image_file.h"
#include "orvexa/model/pictures/viewing.h"

namespace orvexa::benchmarks {
namespace {

model::Image colour_image(model::Shape shape) {
  static const auto small = drawn_capture(shape_of(3));
  static const auto large = drawn_capture(shape_of(12));
  return *(shape == shape_of(12) ? large : small)->find_image("CLR", "RGB");
}

model::Image deep_image(model::Shape shape) {
  static const auto small = drawn_capture(shape_of(3));
  static const auto large = drawn_capture(shape_of(12));
  return *(shape == shape_of(12) ? large : small)->find_image("MSP", "NIR");
}

model::Image float_image(model::Shape shape) {
  cv::Mat numbers;
  deep_image(shape).read_only().convertTo(numbers, CV_32F, 1.0 / 65535);
  return model::Image(std::move(numbers));
}

/// The bright discs of the drawn tray.
model::Mask disc_mask(model::Shape shape) {
  constexpr double between_ground_and_leaf = 27500;
  return model::Mask(cv::Mat(deep_image(shape).read_only() > between_ground_and_leaf));
}

void count(benchmark::State& state, model::Shape shape) {
  common::set_thread_count(0);
  state.SetItemsProcessed(state.iterations() * shape.pixels());
}

template <typename Encode>
void encode(benchmark::State& state, const Encode& encode_picture) {
  common::set_thread_count(static_cast<int>(state.range(1)));
  std::size_t bytes = 0;
  for (auto _ : state) {
    const common::Bytes file = encode_picture();
    if (bytes != 0 && file.size() != bytes) state.SkipWithError("another file than the time before");
    bytes = file.size();
  }
  state.counters["bytes"] = static_cast<double>(bytes);
  count(state, shape_of(state.range(0)));
}

template <typename Picture>
void decode(benchmark::State& state, const common::Bytes& file, const Picture& expected) {
  common::set_thread_count(static_cast<int>(state.range(1)));
  for (auto _ : state) {
    const model::ImageFile read = model::read_image(file, "picture");
    if (!(read.image == expected)) state.SkipWithError("another picture than was written");
  }
  count(state, expected.shape());
}

template <typename Make>
void make_picture(benchmark::State& state, const Make& make) {
  const model::Shape shape = shape_of(state.range(0));
  common::set_thread_count(static_cast<int>(state.range(1)));
  for (auto _ : state) {
    const model::Image made = make();
    if (made.shape() != shape) state.SkipWithError("another size than was asked for");
    benchmark::DoNotOptimize(made.read_only().data);
  }
  count(state, shape);
}

void sizes_and_threads(benchmark::internal::Benchmark* made) {
  made->ArgNames({"megapixels", "threads"})
      ->ArgsProduct({{3, 12}, {1, 2}})
      ->Unit(benchmark::kMillisecond)
      ->MeasureProcessCPUTime()
      ->UseRealTime();
}

void encode_png_colour(benchmark::State& state) {
  const model::Image image = colour_image(shape_of(state.range(0)));
  encode(state, [&] { return model::encode_png(image); });
}
void encode_png_16_bit(benchmark::State& state) {
  const model::Image image = deep_image(shape_of(state.range(0)));
  encode(state, [&] { return model::encode_png(image); });
}
void encode_png_mask(benchmark::State& state) {
  const model::Mask mask = disc_mask(shape_of(state.range(0)));
  encode(state, [&] { return model::encode_mask_png(mask); });
}
void encode_tiff_16_bit(benchmark::State& state) {
  const model::Image image = deep_image(shape_of(state.range(0)));
  encode(state, [&] { return model::encode_tiff(image); });
}
void encode_tiff_float(benchmark::State& state) {
  const model::Image numbers = float_image(shape_of(state.range(0)));
  encode(state, [&] { return model::encode_tiff(numbers); });
}
void decode_png_colour(benchmark::State& state) {
  const model::Image image = colour_image(shape_of(state.range(0)));
  decode(state, model::encode_png(image), image);
}
void decode_png_16_bit(benchmark::State& state) {
  const model::Image image = deep_image(shape_of(state.range(0)));
  decode(state, model::encode_png(image), image);
}
void decode_png_mask(benchmark::State& state) {
  const model::Mask mask = disc_mask(shape_of(state.range(0)));
  decode(state, model::encode_mask_png(mask), model::mask_picture(mask));
}
void decode_tiff_16_bit(benchmark::State& state) {
  const model::Image image = deep_image(shape_of(state.range(0)));
  decode(state, model::encode_tiff(image), image);
}
void decode_tiff_float(benchmark::State& state) {
  const model::Image numbers = float_image(shape_of(state.range(0)));
  decode(state, model::encode_tiff(numbers), numbers);
}
void make_overlay_colour(benchmark::State& state) {
  const model::Mask mask = disc_mask(shape_of(state.range(0)));
  const model::Image image = colour_image(shape_of(state.range(0)));
  make_picture(state, [&] { return model::overlay_image(image, mask); });
}
void make_overlay_16_bit(benchmark::State& state) {
  const model::Mask mask = disc_mask(shape_of(state.range(0)));
  const model::Image image = deep_image(shape_of(state.range(0)));
  make_picture(state, [&] { return model::overlay_image(image, mask); });
}
void make_viewable_float(benchmark::State& state) {
  const model::Image numbers = float_image(shape_of(state.range(0)));
  make_picture(state, [&] { return model::viewable_image(numbers); });
}
void make_masked_colour(benchmark::State& state) {
  const model::Mask mask = disc_mask(shape_of(state.range(0)));
  const model::Image image = colour_image(shape_of(state.range(0)));
  make_picture(state, [&] { return model::masked_image(image, mask); });
}

BENCHMARK(encode_png_colour)->Name("encode/png_colour")->Apply(sizes_and_threads);
BENCHMARK(encode_png_16_bit)->Name("encode/png_16_bit")->Apply(sizes_and_threads);
BENCHMARK(encode_png_mask)->Name("encode/png_mask")->Apply(sizes_and_threads);
BENCHMARK(encode_tiff_16_bit)->Name("encode/tiff_16_bit")->Apply(sizes_and_threads);
BENCHMARK(encode_tiff_float)->Name("encode/tiff_float")->Apply(sizes_and_threads);
BENCHMARK(decode_png_colour)->Name("decode/png_colour")->Apply(sizes_and_threads);
BENCHMARK(decode_png_16_bit)->Name("decode/png_16_bit")->Apply(sizes_and_threads);
BENCHMARK(decode_png_mask)->Name("decode/png_mask")->Apply(sizes_and_threads);
BENCHMARK(decode_tiff_16_bit)->Name("decode/tiff_16_bit")->Apply(sizes_and_threads);
BENCHMARK(decode_tiff_float)->Name("decode/tiff_float")->Apply(sizes_and_threads);
BENCHMARK(make_overlay_colour)->Name("viewing/overlay_colour")->Apply(sizes_and_threads);
BENCHMARK(make_overlay_16_bit)->Name("viewing/overlay_16_bit")->Apply(sizes_and_threads);
BENCHMARK(make_viewable_float)->Name("viewing/viewable_float")->Apply(sizes_and_threads);
BENCHMARK(make_masked_colour)->Name("viewing/masked_colour")->Apply(sizes_and_threads);

}  // namespace
}  // namespace orvexa::benchmarks
