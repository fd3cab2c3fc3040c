#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>
#include <span>
#include <string>

#include "orvexa/model/codecs/image_file.h"

namespace orvexa::model::codecs {

/// What a decoder reads from. Everything borrowed, for the length of the call.
struct Input {
  std::span<const std::byte> bytes;
  const std::string& name;
  int page = 0;
  const ImageLimits& limits;

  /// @throws std::runtime_error "NAME: what" always.
  [[noreturn]] void refuse(const std::string& what) const;
  /// The same with the short cause that a library gave in parentheses, where it gave one.
  [[noreturn]] void refuse(const std::string& what, const std::string& cause) const;

  /// Refuses sizes of no pixels, of more than the limits allow, and of more pixels than `most_in_file` when that is not
  /// negative: what a file of this many bytes can hold in its format. Called before anything large is allocated.
  void check_size(std::int64_t width, std::int64_t height, std::int64_t most_in_file = -1) const;
};

/// Pixels as a decoder leaves them: 8-bit, 16-bit or float, one channel or three (RGB), upright.
struct Decoded {
  cv::Mat pixels;
  int pages = 1;
};

[[nodiscard]] Decoded decode_png(const Input& input);
[[nodiscard]] Decoded decode_jpeg(const Input& input);
[[nodiscard]] Decoded decode_tiff(const Input& input);
[[nodiscard]] Decoded decode_gif(const Input& input);
[[nodiscard]] Decoded decode_bmp(const Input& input);

/// Turns stored pixels upright by the tag that EXIF and TIFF share: 1 as stored, 2 mirrored left to right, 3 turned by
/// 180 degrees, 4 mirrored top to bottom, 5 rows and columns exchanged, 6 to be turned right, 7 exchanged along the
/// other diagonal, 8 to be turned left. Other values stand for 1.
[[nodiscard]] cv::Mat upright(cv::Mat pixels, int orientation);

/// The orientation tag of an EXIF block that begins with "Exif" and two zero bytes; 1 where it has none.
[[nodiscard]] int exif_orientation(std::span<const std::byte> exif);

using Colour = std::array<std::uint8_t, 3>;

/// Indices (one 8-bit channel) as the colours of a palette; one band where all colours that are used are greys.
/// Refuses an index that the palette does not have; `kind` is the file's format for the sentence.
[[nodiscard]] cv::Mat expanded_palette(const Input& input, const char* kind, const cv::Mat& indices,
                                       std::span<const Colour> palette);

/// A picture whose palette was expanded to 8-bit RGB: its first channel alone where every colour that a pixel uses is a
/// grey, otherwise itself. Palette entries that no pixel uses have no say.
[[nodiscard]] cv::Mat single_band_where_grey(cv::Mat rgb);

/// Four channels of ink (8-bit or 16-bit, full = all ink) as RGB of the same depth: R = full (1 - C)(1 - K), rounded.
/// @param is_inverted  the stored numbers say how much light is left instead.
[[nodiscard]] cv::Mat rgb_from_cmyk(const cv::Mat& cmyk, bool is_inverted);

}  // namespace orvexa::model::codecs
