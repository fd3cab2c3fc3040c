#include <fmt/format.h>
#include <turbojpeg.h>

#include <array>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "orvexa/model/codecs/decoder.h"

namespace orvexa::model::codecs {

namespace {

/// What the segments before the pixels say beside the picture's size.
struct Segments {
  std::span<const std::byte> exif;
  bool has_adobe_marker = false;
  bool is_arithmetic = false;
};

Segments scan_segments(std::span<const std::byte> bytes) {
  Segments found;
  const auto at = [&](std::size_t i) { return std::to_integer<unsigned>(bytes[i]); };
  std::size_t i = 2;
  while (i + 4 <= bytes.size() && at(i) == 0xff) {
    const unsigned marker = at(i + 1);
    if (marker == 0xff) {  // a fill byte
      ++i;
      continue;
    }
    constexpr unsigned start_of_scan = 0xda;
    if (marker == start_of_scan) break;
    const std::size_t length = at(i + 2) << 8 | at(i + 3);
    if (length < 2 || length > bytes.size() - i - 2) break;
    const std::span<const std::byte> content = bytes.subspan(i + 4, length - 2);
    const auto begins = [&](std::string_view text) { return common::as_text(content).starts_with(text); };
    static constexpr std::array<char, 6> exif_mark{'E', 'x', 'i', 'f', 0, 0};
    if (marker == 0xe1 && found.exif.empty() && begins({exif_mark.data(), exif_mark.size()})) found.exif = content;
    if (marker == 0xee && begins("Adobe")) found.has_adobe_marker = true;
    if (marker >= 0xc9 && marker <= 0xcb) found.is_arithmetic = true;
    i += 2 + length;
  }
  return found;
}

}  // namespace

Decoded decode_jpeg(const Input& input) {
  const std::unique_ptr<void, decltype(&tjDestroy)> decoder(tjInitDecompress(), &tjDestroy);
  if (!decoder) throw std::bad_alloc();
  const auto* bytes = reinterpret_cast<const unsigned char*>(input.bytes.data());
  const auto size = static_cast<unsigned long>(input.bytes.size());
  int width = 0;
  int height = 0;
  int subsampling = -1;
  int colours = -1;
  // Success may leave the sizes untouched where the file ends early, and an unusual subsampling is called a failure
  // although it can be decoded; so the sizes decide.
  const int status = tjDecompressHeader3(decoder.get(), bytes, size, &width, &height, &subsampling, &colours);
  if (width < 1 || height < 1) {
    if (status == 0) input.refuse("this JPEG file is cut off.");
    input.refuse("this JPEG file is damaged", tjGetErrorStr2(decoder.get()));
  }
  if (colours < 0 || colours >= TJ_NUMCS) {
    input.refuse("this JPEG file has colours of a kind that cannot be read: neither grey, RGB, YCbCr, CMYK nor YCCK.");
  }

  const Segments segments = scan_segments(input.bytes);
  // Every 8 x 8 block of some channel takes a bit at least. The worst case of two channels that are coarse in one
  // direction each has eight blocks for 32 x 32 pixels. Arithmetic coding has no such bound.
  constexpr std::int64_t most_pixels_a_byte = 1024;
  input.check_size(width, height,
                   segments.is_arithmetic ? -1 : most_pixels_a_byte * static_cast<std::int64_t>(input.bytes.size()));

  const bool is_ink = colours == TJCS_CMYK || colours == TJCS_YCCK;
  const int format = is_ink ? TJPF_CMYK : colours == TJCS_GRAY ? TJPF_GRAY : TJPF_RGB;
  cv::Mat pixels(height, width, CV_MAKETYPE(CV_8U, tjPixelSize[format]));
  // A warning means that pixels are missing or made up. The limit of scans ends files that are made to take for ever.
  if (tjDecompress2(decoder.get(), bytes, size, pixels.ptr(), width, static_cast<int>(pixels.step[0]), height, format,
                    TJFLAG_STOPONWARNING | TJFLAG_LIMITSCANS) != 0) {
    const std::string cause = tjGetErrorStr2(decoder.get());
    if (cause.find("Premature end") != std::string::npos) input.refuse("this JPEG file is cut off", cause);
    input.refuse("this JPEG file is damaged", cause);
  }
  if (is_ink) pixels = rgb_from_cmyk(pixels, segments.has_adobe_marker);
  return {.pixels = upright(std::move(pixels), segments.exif.empty() ? 1 : exif_orientation(segments.exif))};
}

}  // namespace orvexa::model::codecs
