#include "orvexa/model/codecs/image_file.h"

#include <fmt/format.h>

#include <array>
#include <new>
#include <string_view>
#include <utility>

#include "orvexa/model/codecs/decoder.h"

namespace orvexa::model {

namespace {

using codecs::Decoded;
using codecs::Input;

struct Format {
  const char* name;
  Decoded (*decode)(const Input& input);
};

struct Signature {
  std::string_view begins;
  Format format;
};

constexpr std::array signatures{
    Signature{std::string_view("\x89PNG\r\n\x1a\n"), {"PNG", &codecs::decode_png}},
    Signature{std::string_view("\xff\xd8\xff"), {"JPEG", &codecs::decode_jpeg}},
    Signature{std::string_view("II*\0", 4), {"TIFF", &codecs::decode_tiff}},
    Signature{std::string_view("MM\0*", 4), {"TIFF", &codecs::decode_tiff}},
    Signature{std::string_view("II+\0", 4), {"TIFF", &codecs::decode_tiff}},
    Signature{std::string_view("MM\0+", 4), {"TIFF", &codecs::decode_tiff}},
    Signature{std::string_view("GIF87a"), {"GIF", &codecs::decode_gif}},
    Signature{std::string_view("GIF89a"), {"GIF", &codecs::decode_gif}},
    Signature{std::string_view("BM"), {"BMP", &codecs::decode_bmp}},
};

const Format& format_of(const Input& input) {
  if (input.bytes.empty()) input.refuse("the file is empty.");
  const std::string_view content = common::as_text(input.bytes);
  for (const Signature& signature : signatures) {
    if (content.starts_with(signature.begins)) return signature.format;
  }
  for (const Signature& signature : signatures) {
    // Two bytes in common may be chance; a file of three or more bytes that ends inside a signature is a stump.
    if (content.size() >= 3 && signature.begins.starts_with(content)) {
      input.refuse(
          fmt::format("the file ends within the first bytes of a {} file: it is cut off.", signature.format.name));
    }
  }
  input.refuse("this is not a picture that can be read; PNG, JPEG, TIFF, BMP and GIF can.");
}

}  // namespace

ImageFile read_image(std::span<const std::byte> bytes, const std::string& name, int page, const ImageLimits& limits) {
  const Input input{.bytes = bytes, .name = name, .page = page, .limits = limits};
  const Format& format = format_of(input);
  if (page < 0) input.refuse(fmt::format("pages are counted from 0, so there is no page {}.", page));
  if (page > 0 && format.decode != &codecs::decode_tiff) {
    input.refuse(fmt::format("there is no page {}: only a TIFF file has pages.", page));
  }
  try {
    Decoded decoded = format.decode(input);
    return ImageFile{.image = Image(std::move(decoded.pixels)),
                     .format = format.name,
                     .pages = decoded.pages,
                     .sha256 = common::sha256_hex(bytes),
                     .bytes = bytes.size()};
  } catch (const std::bad_alloc&) {
    input.refuse("there is not enough memory to read this picture.");
  } catch (const cv::Exception&) {
    input.refuse("there is not enough memory to read this picture.");
  }
}

ImageFile read_image_file(const std::filesystem::path& file, int page, const ImageLimits& limits) {
  const common::Bytes bytes = common::read_file(file, limits.max_file_bytes);
  return read_image(bytes, common::path_text(file.filename()), page, limits);
}

}  // namespace orvexa::model
