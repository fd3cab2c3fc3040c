#include <fmt/format.h>
#include <gif_lib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "orvexa/model/codecs/decoder.h"

namespace orvexa::model::codecs {

namespace {

struct Source {
  std::span<const std::byte> bytes;
  std::size_t position = 0;
  bool is_cut_off = false;
};

int read_some(GifFileType* gif, GifByteType* to, int wanted) {
  auto* source = static_cast<Source*>(gif->UserData);
  const std::size_t n = std::min(static_cast<std::size_t>(wanted), source->bytes.size() - source->position);
  std::memcpy(to, source->bytes.data() + source->position, n);
  source->position += n;
  if (n < static_cast<std::size_t>(wanted)) source->is_cut_off = true;
  return static_cast<int>(n);
}

struct Closer {
  void operator()(GifFileType* gif) const { DGifCloseFile(gif, nullptr); }
};

/// Walks through the records of a GIF. Every failure ends in a sentence.
class Reader {
 public:
  explicit Reader(const Input& input) : _input(input), _source{.bytes = input.bytes} {
    int error = 0;
    _gif.reset(DGifOpen(&_source, &read_some, &error));
    if (!_gif) fail(error);
  }

  Decoded decoded() {
    const int width = _gif->SWidth;
    const int height = _gif->SHeight;
    // A code of LZW has at least three bits and stands for at most 4096 pixels.
    constexpr std::int64_t most_pixels_a_byte = 4096 * 8 / 3;
    _input.check_size(width, height, most_pixels_a_byte * static_cast<std::int64_t>(_input.bytes.size()));
    Decoded decoded{.pixels = {}, .pages = 0};
    GifRecordType record = UNDEFINED_RECORD_TYPE;
    while (true) {
      expect(DGifGetRecordType(_gif.get(), &record));
      if (record == TERMINATE_RECORD_TYPE) break;
      if (record == EXTENSION_RECORD_TYPE) {
        read_extension();
      } else if (record == IMAGE_DESC_RECORD_TYPE) {
        expect(DGifGetImageDesc(_gif.get()));
        if (++decoded.pages > _input.limits.max_pages) {
          _input.refuse(fmt::format("the animation has more frames than the limit of {}.", _input.limits.max_pages));
        }
        if (decoded.pages == 1) {
          decoded.pixels = composed();
        } else {
          skip_pixels();
        }
      }
    }
    if (decoded.pages == 0) _input.refuse("this GIF file has no picture in it.");
    return decoded;
  }

 private:
  [[noreturn]] void fail(int error) const {
    if (_source.is_cut_off) _input.refuse("this GIF file is cut off.");
    const char* text = GifErrorString(error);
    _input.refuse("this GIF file is damaged", text != nullptr ? text : "");
  }
  void expect(int status) const {
    if (status != GIF_OK) fail(_gif->Error);
  }
  [[noreturn]] void damaged(const char* cause) const { _input.refuse("this GIF file is damaged", cause); }

  void read_extension() {
    int code = 0;
    GifByteType* block = nullptr;
    expect(DGifGetExtension(_gif.get(), &code, &block));
    while (block != nullptr) {
      GraphicsControlBlock control{};
      if (code == GRAPHICS_EXT_FUNC_CODE && DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK) {
        _transparent = control.TransparentColor;
      }
      expect(DGifGetExtensionNext(_gif.get(), &block));
    }
  }

  void skip_pixels() {
    int code_size = 0;
    GifByteType* block = nullptr;
    expect(DGifGetCode(_gif.get(), &code_size, &block));
    while (block != nullptr) expect(DGifGetCodeNext(_gif.get(), &block));
  }

  static Colour colour(const ColorMapObject& map, int index) {
    const GifColorType& entry = map.Colors[index];
    return {entry.Red, entry.Green, entry.Blue};
  }

  /// The frame at hand on the screen; what it leaves free or transparent has the screen's background colour.
  cv::Mat composed() {
    const GifImageDesc& frame = _gif->Image;
    if (frame.Width < 1 || frame.Height < 1) damaged("its first frame has no pixels");
    if (frame.Left < 0 || frame.Top < 0 || frame.Left + frame.Width > _gif->SWidth ||
        frame.Top + frame.Height > _gif->SHeight) {
      damaged("its first frame lies outside of its screen");
    }
    const ColorMapObject* map = frame.ColorMap != nullptr ? frame.ColorMap : _gif->SColorMap;
    if (map == nullptr) damaged("it has no palette");

    Colour background{};
    const ColorMapObject* screen_map = _gif->SColorMap;
    if (screen_map != nullptr && _gif->SBackGroundColor < screen_map->ColorCount) {
      background = colour(*screen_map, _gif->SBackGroundColor);
    }
    cv::Mat pixels(_gif->SHeight, _gif->SWidth, CV_8UC3, cv::Scalar(background[0], background[1], background[2]));

    std::vector<GifPixelType> line(static_cast<std::size_t>(frame.Width));
    const auto read_line = [&](int y) {
      expect(DGifGetLine(_gif.get(), line.data(), frame.Width));
      std::uint8_t* to = pixels.ptr<std::uint8_t>(frame.Top + y, frame.Left);
      for (const GifPixelType index : line) {
        if (index != _transparent) {
          if (index >= map->ColorCount) damaged("a pixel has a colour that is not in the palette");
          const Colour rgb = colour(*map, index);
          std::copy(rgb.begin(), rgb.end(), to);
        }
        to += 3;
      }
    };
    struct Pass {
      int first;
      int step;
    };
    constexpr std::array<Pass, 4> interlaced{{{0, 8}, {4, 8}, {2, 4}, {1, 2}}};
    constexpr std::array<Pass, 1> plain{{{0, 1}}};
    const std::span<const Pass> passes =
        frame.Interlace ? std::span<const Pass>(interlaced) : std::span<const Pass>(plain);
    for (const Pass& pass : passes) {
      for (int y = pass.first; y < frame.Height; y += pass.step) read_line(y);
    }
    return single_band_where_grey(std::move(pixels));
  }

  const Input& _input;
  Source _source;
  std::unique_ptr<GifFileType, Closer> _gif;
  int _transparent = NO_TRANSPARENT_COLOR;
};

}  // namespace

Decoded decode_gif(const Input& input) {
  return Reader(input).decoded();
}

}  // namespace orvexa::model::codecs
