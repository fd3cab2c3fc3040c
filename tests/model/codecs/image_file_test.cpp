#include "orvexa/model/codecs/image_file.h"

#include <gtest/gtest.h>

#include <ctime>
#include <random>

#include "model/codecs/picture_writers.h"
#include "support/captures.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

/// Seconds of this process's time, which a busy machine does not lengthen.
double seconds() {
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

TEST(ImageFile, TheRecordOfTheBytesGoesWithThePicture) {
  const TemporaryFolder folder;
  const Bytes bytes = model::encode_png(flat_image<std::uint8_t>(2, 3, 7));
  const auto file = folder.write("a picture.dat", common::as_text(bytes));
  const model::ImageFile read = model::read_image_file(file);
  EXPECT_EQ(read.image, flat_image<std::uint8_t>(2, 3, 7));
  EXPECT_EQ(read.format, "PNG");
  EXPECT_EQ(read.pages, 1);
  EXPECT_EQ(read.bytes, bytes.size());
  EXPECT_EQ(read.sha256, common::sha256_hex(bytes));
}

TEST(ImageFile, EverySampleIsReadAndItsFormatNamed) {
  const std::map<std::string, std::string> formats{
      {"png", "PNG"}, {"jpg", "JPEG"}, {"tif", "TIFF"}, {"gif", "GIF"}, {"bmp", "BMP"}};
  for (const auto& [name, bytes] : sample_files()) {
    SCOPED_TRACE(name);
    const model::ImageFile read = model::read_image(bytes, name);
    EXPECT_EQ(read.format, formats.at(name.substr(name.rfind('.') + 1)));
    EXPECT_EQ(read.image.shape(), (model::Shape{24, 24}));
  }
}

TEST(ImageFile, WhatIsNoPictureIsSaidInOneSentence) {
  const TemporaryFolder folder;
  const auto sentence = [](const std::filesystem::path& file) -> std::string {
    try {
      (void)model::read_image_file(file);
      return {};
    } catch (const std::runtime_error& e) {
      return e.what();
    }
  };
  EXPECT_EQ(sentence(folder.write("empty.png", "")), "empty.png: the file is empty.");
  EXPECT_EQ(sentence(folder.write("note.tif", "This is a text.")),
            "note.tif: this is not a picture that can be read; PNG, JPEG, TIFF, BMP and GIF can.");
  EXPECT_EQ(sentence(folder.write("stump.png", "\x89PNG")),
            "stump.png: the file ends within the first bytes of a PNG file: it is cut off.");
  EXPECT_NE(sentence(folder / "missing.png").find("missing.png"), std::string::npos);
  EXPECT_NE(sentence(folder.path()).find(folder.path().filename().string()), std::string::npos);
}

TEST(ImageFile, OnlyATiffHasPages) {
  EXPECT_EQ(refusal(sample_files().at("rgb.png"), 1), "picture: there is no page 1: only a TIFF file has pages.");
  EXPECT_EQ(refusal(sample_files().at("animated.gif"), 1), "picture: there is no page 1: only a TIFF file has pages.");
}

TEST(ImageFile, MorePixelsThanTheLimitAreRefused) {
  for (const auto& [name, bytes] : sample_files()) {
    SCOPED_TRACE(name);
    EXPECT_EQ(refusal(bytes, 0, {.max_pixels = 24 * 24}), "");
    EXPECT_EQ(refusal(bytes, 0, {.max_pixels = 24 * 24 - 1}),
              "picture: the picture of 24 x 24 pixels is larger than the limit of 575 pixels.");
  }
}

// Headers that promise more than there is

Octets big_endian(std::uint32_t value) {
  return {static_cast<std::uint8_t>(value >> 24), static_cast<std::uint8_t>(value >> 16),
          static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
}

Octets joined(const std::vector<Octets>& parts) {
  Octets all;
  for (const Octets& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes lying_png(std::uint32_t width, std::uint32_t height) {
  return bytes_of(joined({{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'},
                          png_chunk("IHDR", joined({big_endian(width), big_endian(height), {8, 2, 0, 0, 0}})),
                          png_chunk("IDAT", {0x78, 0x01, 0x63, 0x00})}));
}

/// A little-endian TIFF of one strip of 16 bytes with the given compression.
Bytes lying_tiff(std::uint32_t width, std::uint32_t height, std::uint32_t compression, std::uint32_t rows_per_strip) {
  const auto entry = [](std::uint32_t tag, std::uint32_t type, std::uint32_t value) {
    return joined({little_endian(tag, 2), little_endian(type, 2), little_endian(1, 4), little_endian(value, 4)});
  };
  constexpr std::uint32_t u16 = 3;
  constexpr std::uint32_t u32 = 4;
  return bytes_of(joined({{'I', 'I', 42, 0, 24, 0, 0, 0},
                          Octets(16, 0),
                          little_endian(8, 2),
                          entry(256, u32, width),
                          entry(257, u32, height),
                          entry(258, u16, 8),
                          entry(259, u16, compression),
                          entry(262, u16, 1),
                          entry(273, u32, 8),
                          entry(278, u32, rows_per_strip),
                          entry(279, u32, 16),
                          little_endian(0, 4)}));
}

Bytes lying_gif(std::uint32_t width, std::uint32_t height) {
  return bytes_of(joined({{'G', 'I', 'F', '8', '9', 'a'},
                          little_endian(width, 2),
                          little_endian(height, 2),
                          {0x80, 0, 0, 0, 0, 0, 255, 255, 255, ','},
                          little_endian(0, 4),
                          little_endian(width, 2),
                          little_endian(height, 2),
                          {0, 2, 2, 0x44, 1, 0, ';'}}));
}

Bytes lying_jpeg(std::uint8_t size_byte) {
  Bytes file = sample_files().at("rgb.jpg");
  for (std::size_t i = 0; i + 9 < file.size(); ++i) {
    if (file[i] == std::byte{0xff} && file[i + 1] == std::byte{0xc0}) {
      for (std::size_t k = 5; k < 9; ++k) file[i + k] = std::byte{size_byte};
      return file;
    }
  }
  return {};
}

struct Lie {
  const char* name;
  Bytes file;
  std::string sentence;
};

std::vector<Lie> lies() {
  const std::string too_large = "larger than the limit of 536,870,912 pixels.";
  const std::string cannot_hold = "bytes can hold: it is cut off or damaged.";
  const auto size_text = [](const std::string& size) { return "picture: the picture of " + size + " pixels is "; };
  const std::string huge = size_text("100000 x 100000") + too_large;
  const auto claim = [&](const std::string& size, const std::string& bytes) {
    return "picture: the file claims " + size + " pixels, more than its " + bytes + " " + cannot_hold;
  };
  return {
      {"PngHuge", lying_png(100000, 100000), huge},
      {"PngLarge", lying_png(20000, 20000), claim("20000 x 20000", "49")},
      {"PngLargestNumbers", lying_png(0x7fffffff, 0x7fffffff), size_text("2147483647 x 2147483647") + too_large},
      {"TiffHuge", lying_tiff(100000, 100000, 1, 100000), huge},
      {"TiffLarge", lying_tiff(20000, 20000, 1, 20000), claim("20000 x 20000", "126")},
      {"TiffLargeLzw", lying_tiff(20000, 20000, 5, 20000), claim("20000 x 20000", "126")},
      {"TiffLargeDeflate", lying_tiff(20000, 20000, 8, 16), claim("20000 x 20000", "126")},
      {"TiffLargePackBits", lying_tiff(100, 100, 32773, 100), claim("100 x 100", "126")},
      {"TiffNoPixels", lying_tiff(0, 5, 1, 5), ""},
      {"BmpHuge", bmp({.width = 100000, .height = 100000, .pixels = {1, 2, 3}}), huge},
      {"BmpLarge", bmp({.width = 20000, .height = -20000, .pixels = {1, 2, 3}}), claim("20000 x 20000", "57")},
      {"BmpLargeRuns",
       bmp({.width = 20000, .height = 20000, .bits = 8, .compression = 1, .palette = {{1, 2, 3}}, .pixels = {0, 1}}),
       claim("20000 x 20000", "60")},
      {"BmpLowestHeight", bmp({.width = 1, .height = std::numeric_limits<std::int32_t>::min(), .pixels = {1, 2, 3}}),
       size_text("1 x 2147483648") + too_large},
      {"BmpNegativeWidth", bmp({.width = -5, .height = 5, .pixels = {1, 2, 3}}),
       "picture: the file claims a picture of -5 x 5 pixels."},
      {"GifHuge", lying_gif(65535, 65535), size_text("65535 x 65535") + too_large},
      {"GifLarge", lying_gif(20000, 20000), claim("20000 x 20000", "35")},
      {"JpegHuge", lying_jpeg(0xfe), size_text("65278 x 65278") + too_large},
      {"JpegLarge", lying_jpeg(0x4e), ""},
  };
}

TEST(HostileFiles, AHeaderThatLiesIsToldFromItsSizeWithinASecond) {
  for (const Lie& lie : lies()) {
    SCOPED_TRACE(lie.name);
    const double begin = seconds();
    const std::string sentence = refusal(lie.file);
    EXPECT_LT(seconds() - begin, 1.0);
    if (lie.sentence.empty()) {
      EXPECT_TRUE(sentence.starts_with("picture: ") && sentence.ends_with('.')) << sentence;
    } else {
      EXPECT_EQ(sentence, lie.sentence);
    }
  }
}

TEST(HostileFiles, ACutFileNeverGivesAPicture) {
  for (const auto& [name, bytes] : sample_files()) {
    for (std::size_t sixteenth = 0; sixteenth < 16; ++sixteenth) {
      SCOPED_TRACE(testing::Message() << name << ", " << sixteenth << " sixteenths of it");
      const Bytes part(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() * sixteenth / 16));
      const std::string sentence = refusal(part);
      EXPECT_TRUE(sentence.starts_with("picture: ") && sentence.ends_with('.')) << sentence;
    }
  }
}

TEST(HostileFiles, TheLastByteIsMissedWhereItBelongsToThePicture) {
  for (const char* name : {"grey.png", "grey.jpg", "animated.gif", "rgb.bmp", "palette.bmp", "plain.tif"}) {
    SCOPED_TRACE(name);
    Bytes bytes = sample_files().at(name);
    bytes.pop_back();
    EXPECT_NE(refusal(bytes), "");
  }
}

TEST(HostileFiles, FlippedBytesGiveAPictureOrASentence) {
  constexpr int cases_a_file = 250;
  const model::ImageLimits limits{.max_pixels = std::int64_t{1} << 26};
  unsigned seed = 0;
  for (const auto& [name, bytes] : sample_files()) {
    for (int i = 0; i < cases_a_file; ++i) {
      std::mt19937 random(++seed);
      SCOPED_TRACE(testing::Message() << name << ", seed " << seed);
      Bytes changed = bytes;
      // Every second case changes the first bytes, where the header is.
      const std::size_t reach = i % 2 == 0 ? changed.size() : std::min<std::size_t>(changed.size(), 160);
      for (unsigned n = 1 + random() % 4; n > 0; --n) changed[random() % reach] = static_cast<std::byte>(random());
      const double begin = seconds();
      try {
        const model::ImageFile read = model::read_image(changed, "picture", 0, limits);
        EXPECT_LE(read.image.shape().pixels(), limits.max_pixels);
      } catch (const std::runtime_error& e) {
        const std::string sentence = e.what();
        EXPECT_TRUE(sentence.starts_with("picture: ") && sentence.ends_with('.')) << sentence;
      }
      EXPECT_LT(seconds() - begin, 1.0);
    }
  }
}

TEST(HostileFiles, NothingIsWrittenToTheStreams) {
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  for (const auto& [name, bytes] : sample_files()) {
    std::mt19937 random(static_cast<unsigned>(bytes.size()));
    for (int i = 0; i < 40; ++i) {
      Bytes changed = bytes;
      changed[random() % changed.size()] ^= std::byte{0x11};
      (void)refusal(changed);
    }
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace orvexa::test
