// Any bytes as a picture: refused with a sentence, or read to a picture within the limits that survives being written
// as a TIFF and read again.
#include <span>

#include "expect.h"
#include "orvexa/model/codecs/image_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvexa;
  // Small, so that a search is not spent on large pictures.
  const model::ImageLimits limits{.max_pixels = std::int64_t{1} << 20, .max_pages = 1000};
  try {
    const model::Image image = model::read_image(std::as_bytes(std::span(data, size)), "input", 0, limits).image;
    test::expect(image.shape().pixels() <= limits.max_pixels, "the limit of pixels is kept");
    const model::Image again = model::read_image(model::encode_tiff(image), "written").image;
    test::expect(again == image, "a picture survives being written and read");
  } catch (const std::runtime_error& failure) {
    const std::string_view sentence = failure.what();
    test::expect(sentence.starts_with("input: "), "a refusal begins with the file's name");
    test::expect(sentence.ends_with('.'), "a refusal is a sentence");
    test::expect(common::is_valid_utf8(sentence), "a refusal is UTF-8");
  }
  return 0;
}
