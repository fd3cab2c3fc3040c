#include "orvexa/model/codecs/decoder.h"

#include <fmt/format.h>
#include <libexif/exif-data.h>

#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <utility>

#include "orvexa/common/text.h"

namespace orvexa::model::codecs {

void Input::refuse(const std::string& what) const {
  throw std::runtime_error(name + ": " + what);
}

void Input::refuse(const std::string& what, const std::string& cause) const {
  std::string_view text = common::trimmed(cause);
  while (text.ends_with('.')) text.remove_suffix(1);
  if (text.empty()) refuse(what + ".");
  refuse(what + " (" + common::to_valid_utf8(text) + ").");
}

void Input::check_size(std::int64_t width, std::int64_t height, std::int64_t most_in_file) const {
  if (width < 1 || height < 1) refuse(fmt::format("the file claims a picture of {} x {} pixels.", width, height));
  constexpr std::int64_t longest_side = 0x7fffffff;
  if (width > longest_side || height > longest_side || width > limits.max_pixels / height) {
    refuse(fmt::format("the picture of {} x {} pixels is larger than the limit of {} pixels.", width, height,
                       common::grouped_integer_text(limits.max_pixels)));
  }
  if (most_in_file >= 0 && width * height > most_in_file) {
    refuse(fmt::format("the file claims {} x {} pixels, more than its {} bytes can hold: it is cut off or damaged.",
                       width, height, common::grouped_integer_text(static_cast<std::int64_t>(bytes.size()))));
  }
}

cv::Mat upright(cv::Mat pixels, int orientation) {
  cv::Mat turned;
  const bool is_exchanged = orientation >= 5 && orientation <= 8;
  if (is_exchanged) {
    cv::transpose(pixels, turned);
    pixels = std::move(turned);
  }
  constexpr int left_to_right = 1;
  constexpr int top_to_bottom = 0;
  constexpr int both = -1;
  switch (orientation) {
    case 2:
    case 6:
      cv::flip(pixels, pixels, left_to_right);
      break;
    case 3:
    case 7:
      cv::flip(pixels, pixels, both);
      break;
    case 4:
    case 8:
      cv::flip(pixels, pixels, top_to_bottom);
      break;
    default:
      break;
  }
  return pixels;
}

int exif_orientation(std::span<const std::byte> exif) {
  // The length of an EXIF block is an unsigned int in libexif; a larger one would not be an EXIF block anyway.
  constexpr std::size_t largest = 1u << 24;
  if (exif.size() > largest) return 1;
  const std::unique_ptr<ExifData, decltype(&exif_data_unref)> data(exif_data_new(), &exif_data_unref);
  if (!data) return 1;
  exif_data_load_data(data.get(), reinterpret_cast<const unsigned char*>(exif.data()),
                      static_cast<unsigned>(exif.size()));
  const ExifEntry* entry = exif_content_get_entry(data->ifd[EXIF_IFD_0], EXIF_TAG_ORIENTATION);
  if (entry == nullptr || entry->format != EXIF_FORMAT_SHORT || entry->components < 1 || entry->size < 2) return 1;
  return exif_get_short(entry->data, exif_data_get_byte_order(data.get()));
}

cv::Mat expanded_palette(const Input& input, const char* kind, const cv::Mat& indices,
                         std::span<const Colour> palette) {
  cv::Mat pixels(indices.rows, indices.cols, CV_8UC3);
  for (int y = 0; y < indices.rows; ++y) {
    const std::uint8_t* from = indices.ptr<std::uint8_t>(y);
    std::uint8_t* to = pixels.ptr<std::uint8_t>(y);
    for (int x = 0; x < indices.cols; ++x, to += 3) {
      if (from[x] >= palette.size()) {
        input.refuse(fmt::format("this {} file is damaged", kind), "a pixel has a colour that is not in the palette");
      }
      std::memcpy(to, palette[from[x]].data(), 3);
    }
  }
  return single_band_where_grey(std::move(pixels));
}

cv::Mat single_band_where_grey(cv::Mat rgb) {
  for (int y = 0; y < rgb.rows; ++y) {
    const auto* row = rgb.ptr<cv::Vec3b>(y);
    for (int x = 0; x < rgb.cols; ++x) {
      if (row[x][0] != row[x][1] || row[x][0] != row[x][2]) return rgb;
    }
  }
  cv::Mat grey;
  cv::extractChannel(rgb, grey, 0);
  return grey;
}

namespace {

template <typename T>
void convert_cmyk(const cv::Mat& cmyk, bool is_inverted, cv::Mat& rgb) {
  constexpr std::uint32_t full = std::numeric_limits<T>::max();
  const std::uint32_t flip = is_inverted ? 0 : full;  // x ^ full is full - x
  for (int y = 0; y < cmyk.rows; ++y) {
    const T* from = cmyk.ptr<T>(y);
    T* to = rgb.ptr<T>(y);
    for (int x = 0; x < cmyk.cols; ++x, from += 4, to += 3) {
      const std::uint32_t key = from[3] ^ flip;
      for (int c = 0; c < 3; ++c) to[c] = static_cast<T>(((from[c] ^ flip) * key + full / 2) / full);
    }
  }
}

}  // namespace

cv::Mat rgb_from_cmyk(const cv::Mat& cmyk, bool is_inverted) {
  cv::Mat rgb(cmyk.rows, cmyk.cols, CV_MAKETYPE(cmyk.depth(), 3));
  if (cmyk.depth() == CV_8U) {
    convert_cmyk<std::uint8_t>(cmyk, is_inverted, rgb);
  } else {
    convert_cmyk<std::uint16_t>(cmyk, is_inverted, rgb);
  }
  return rgb;
}

}  // namespace orvexa::model::codecs
