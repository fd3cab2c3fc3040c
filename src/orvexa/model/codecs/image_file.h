#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "orvexa/common/files.h"
#include "orvexa/model/image.h"
#include "orvexa/model/mask.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// Budgets for what is read from outside.
struct ImageLimits {
  std::int64_t max_pixels = std::int64_t{1} << 29;  ///< a page: 536 megapixels
  int max_pages = 100'000;
  std::uintmax_t max_file_bytes = std::uintmax_t{8} << 30;
};

/// A decoded picture and the record of its bytes.
struct ImageFile {
  Image image;
  std::string format;  ///< "PNG", "JPEG", "TIFF", "BMP", "GIF"
  int pages = 1;       ///< pages of a TIFF, frames of a GIF
  std::string sha256;  ///< of the whole file
  std::uintmax_t bytes = 0;
};

/// Reads one picture. The format is found by content, the header is read and checked against the limits before anything
/// large is allocated. 8-bit, 16-bit and 32-bit float are kept (narrower integers are widened to the full 8-bit range
/// as their format says, 64-bit float and 16-bit float become 32-bit float); RGB order; alpha dropped without
/// premultiplying, palettes expanded, grey stays single-band (also a palette of greys), white-is-zero inverted, CMYK
/// converted by R = 255 (1 - C)(1 - K); orientation tags honoured; first frame of an animation.
/// @param page  page of a multi-page TIFF, counted from 0.
/// @throws std::runtime_error with one sentence that begins with the file's name (its path where it cannot be opened):
/// not there, empty, not a picture, cut off, damaged, too large, no such page, a pixel type that cannot be kept. Never
/// a partial image.
[[nodiscard]] ImageFile read_image_file(const std::filesystem::path& file, int page = 0,
                                        const ImageLimits& limits = {});

/// The same from memory; `name` stands for the file in sentences.
[[nodiscard]] ImageFile read_image(std::span<const std::byte> bytes, const std::string& name, int page = 0,
                                   const ImageLimits& limits = {});

/// A lossless PNG in memory: 8-bit or 16-bit, grey or RGB. Quick settings chosen by measurement. All three look at the
/// cancellation flag every quarter of a megabyte or more often.
/// @throws std::invalid_argument for float pixels; CancelledError.
[[nodiscard]] common::Bytes encode_png(const Image& image, const RunContext& context = {});
/// A one-bit grey PNG of a mask.
[[nodiscard]] common::Bytes encode_mask_png(const Mask& mask, const RunContext& context = {});
/// A TIFF of one page in memory, any type of image; deflate with predictor for integers, plain for float.
[[nodiscard]] common::Bytes encode_tiff(const Image& image, const RunContext& context = {});

}  // namespace orvexa::model
