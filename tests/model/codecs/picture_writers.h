#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "orvexa/common/files.h"
#include "orvexa/model/codecs/image_file.h"

// Writes pictures of kinds that the product reads but never writes, through the libraries' own encoders.

namespace orvexa::test {

using common::Bytes;
using Octets = std::vector<std::uint8_t>;
using Colour = std::array<std::uint8_t, 3>;

/// Pixels as rows of numbers, channels one after another: what a test compares.
using Matrix = std::vector<std::vector<double>>;
[[nodiscard]] Matrix matrix(const model::Image& image);
[[nodiscard]] model::Image read(const Bytes& bytes, int page = 0);
/// The sentence with which a file is refused; empty when it is read.
[[nodiscard]] std::string refusal(const Bytes& bytes, int page = 0, const model::ImageLimits& limits = {});

[[nodiscard]] Bytes bytes_of(const Octets& octets);
[[nodiscard]] Octets little_endian(std::uint32_t value, int size);
/// An image with the values of a seeded generator, float ones between -1000 and 1000.
[[nodiscard]] model::Image random_image(int height, int width, int type, unsigned seed);

/// One of the eight orientations of the picture 1 2 3 / 4 5 6, upright, written out by hand from the definition in
/// TIFF 6.0 and EXIF 2.3: where the stored first row and first column are to be seen.
[[nodiscard]] const Matrix& upright_one_to_six(int orientation);
/// An EXIF block ("Exif", two zero bytes, a TIFF structure) that says nothing but an orientation.
[[nodiscard]] Octets exif_block(int orientation, bool is_big_endian);

struct PngPicture {
  int width = 1;
  int height = 1;
  int bits = 8;
  int color_type = 0;
  std::vector<Octets> rows = {};  ///< as the format packs them: big-endian, highest bit first
  bool is_interlaced = false;
  std::vector<Colour> palette = {};
  Octets palette_alpha = {};
  std::optional<std::uint16_t> transparent_grey = {};
  std::optional<double> gamma = {};
  Octets exif = {};  ///< with "Exif" and two zero bytes, which PNG leaves out
};
[[nodiscard]] Bytes png(const PngPicture& picture);
/// A chunk with its length and CRC.
[[nodiscard]] Octets png_chunk(const std::string& type, const Octets& content);

/// @param pixels  8-bit: one channel grey, three RGB, four CMYK as stored.
[[nodiscard]] Bytes jpeg(const cv::Mat& pixels, int subsampling, bool is_progressive = false);
/// The same with one more segment right after the beginning.
[[nodiscard]] Bytes with_jpeg_segment(const Bytes& file, std::uint8_t marker, const Octets& content);
/// The same without its first segment of a kind.
[[nodiscard]] Bytes without_jpeg_segment(const Bytes& file, std::uint8_t marker);

struct TiffPage {
  std::uint32_t width = 1;
  std::uint32_t height = 1;
  int bits = 8;
  int samples = 1;
  int photometric = 1;
  Octets pixels = {};  ///< in this machine's byte order; rows of whole bytes, planes one after another where planar
  int sample_format = 1;
  int compression = 1;
  int predictor = 1;
  int orientation = 1;
  bool is_planar = false;
  int tile = 0;  ///< side of a tile; 0 = strips
  int rows_per_strip = 0;
  int fill_order = 1;
  std::vector<std::uint16_t> extra_samples = {};
  std::vector<std::array<std::uint16_t, 3>> palette = {};
  bool is_upsampled_ycbcr = false;  ///< `pixels` are RGB and the JPEG codec makes YCbCr of them
  std::array<int, 2> subsampling{1, 1};
};
/// @param mode  libtiff's: "w" with "l" or "b" for the byte order and "8" for BigTIFF.
[[nodiscard]] Bytes tiff(const std::vector<TiffPage>& pages, const std::string& mode = "wl");

struct GifFrame {
  int left = 0;
  int top = 0;
  int width = 1;
  int height = 1;
  Octets indices = {};
  bool is_interlaced = false;
  int transparent = -1;
  std::vector<Colour> palette = {};  ///< of its own; the count is a power of two
};
struct GifPicture {
  int width = 1;
  int height = 1;
  int background = 0;
  std::vector<Colour> palette = {};
  std::vector<GifFrame> frames = {};
};
[[nodiscard]] Bytes gif(const GifPicture& picture);

struct BmpPicture {
  std::int32_t width = 1;
  std::int32_t height = 1;
  int bits = 24;
  std::uint32_t compression = 0;
  std::vector<std::uint32_t> masks = {};  ///< three, or four with alpha, after a header of 40 bytes
  std::vector<Colour> palette = {};
  Octets pixels = {};  ///< as the format stores them, padding and all
  bool is_core = false;
};
[[nodiscard]] Bytes bmp(const BmpPicture& picture);

/// A small honest file of each kind that is read, by name: what the tests of damage work on.
[[nodiscard]] const std::map<std::string, Bytes>& sample_files();

}  // namespace orvexa::test
