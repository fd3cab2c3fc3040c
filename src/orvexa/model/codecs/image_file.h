#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
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

/// Reads one picture. The format is found by content, the header is read and checked against the limits, and against
/// what a file of that many bytes can hold, before anything large is allocated.
///
/// - Types: 8-bit, 16-bit and 32-bit float are kept. Narrower integers are widened: v (2^n - 1 -> 255), those of 9 to
/// 15
///   bits and BMP fields of more than 8 to 65535, rounded. 64-bit and 16-bit float become 32-bit float; so do signed
///   and 32-bit integers where every value of the picture is kept exactly, otherwise they are refused.
/// - Channels: RGB order; grey stays single-band. Alpha is dropped and colours under it are kept; where a TIFF says
/// that
///   colours were multiplied by alpha they are divided by it again (0 where alpha is 0). A TIFF with further bands is
///   refused, since dropping or choosing some would be a guess.
/// - Palettes are expanded; where all colours that some pixel uses are greys, the picture is single-band.
/// - Ink (CMYK, YCCK) becomes R = full (1 - C)(1 - K), rounded; a JPEG with Adobe's marker stores it inverted. YCbCr
///   becomes RGB as JPEG defines it. White-is-zero is inverted. Gamma and colour profiles are not applied.
/// - Orientation tags (TIFF, EXIF in JPEG and PNG) are honoured: the picture stands upright.
/// - A GIF gives its first frame on its screen; what is free or transparent has the screen's background colour, black
///   where there is none.
/// - Damage is never overlooked: a warning of a library about missing or made-up pixels is an error, and so is a GIF
///   animation or a chain of TIFF pages that is cut off after the part that was wanted.
/// @param page  page of a multi-page TIFF, counted from 0.
/// @throws std::runtime_error with one sentence that begins with the file's name (its path where it cannot be opened):
/// not there, empty, not a picture, cut off, damaged, too large, no such page, a pixel type that cannot be kept. Never
/// a partial image.
[[nodiscard]] ImageFile read_image_file(const std::filesystem::path& file, int page = 0,
                                        const ImageLimits& limits = {});

/// The same from memory; `name` stands for the file in sentences.
[[nodiscard]] ImageFile read_image(std::span<const std::byte> bytes, const std::string& name, int page = 0,
                                   const ImageLimits& limits = {});

/// A lossless PNG in memory: 8-bit or 16-bit, grey or RGB. Quick settings chosen by measurement. All four look at the
/// cancellation flag every quarter of a megabyte or more often.
/// @throws std::invalid_argument for float pixels; CancelledError.
[[nodiscard]] common::Bytes encode_png(const Image& image, const RunContext& context = {});
/// An 8-bit RGB picture that is made while it is encoded.
/// @param write_row  writes the width * 3 bytes of a row; called once a row, in any order and on several threads.
[[nodiscard]] common::Bytes encode_rgb_png(Shape shape, const std::function<void(int y, std::uint8_t* rgb)>& write_row,
                                           const RunContext& context = {});
/// A one-bit grey PNG of a mask.
[[nodiscard]] common::Bytes encode_mask_png(const Mask& mask, const RunContext& context = {});
/// A TIFF of one page in memory, any type of image; deflate with predictor for integers, plain for float.
[[nodiscard]] common::Bytes encode_tiff(const Image& image, const RunContext& context = {});

}  // namespace orvexa::model
