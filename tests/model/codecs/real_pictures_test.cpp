#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <set>

#include "model/codecs/picture_writers.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/model/codecs/image_file.h"
#include "support/temporary_folder.h"

// Real pictures beside the project, against values that other programs read from them (reference/*.json: OpenCV).

namespace orvexa::test {
namespace {

namespace fs = std::filesystem;

using common::Value;

constexpr const char* no_data = "no folder shared/data beside the project";

Value reference(const std::string& name) {
  const fs::path file = *real_data() / "reference" / name;
  constexpr std::uintmax_t largest = 16u << 20;
  return common::parse_json(common::read_text_file(file, largest), name);
}

/// Type, shape and the mean, minimum, maximum and standard deviation of each of our channels. OpenCV's alpha channel is
/// left out of the comparison: alpha is dropped here.
void expect_as_listed(const model::Image& image, const Value& listed, const Value& shape) {
  const std::map<model::PixelType, std::string> types{
      {model::PixelType::u8, "uint8"}, {model::PixelType::u16, "uint16"}, {model::PixelType::f32, "float32"}};
  if (listed.contains("dtype")) {
    EXPECT_EQ(types.at(image.type()), listed.at("dtype").get<std::string>());
  }
  EXPECT_EQ(image.height(), shape.at(0).get<int>());
  EXPECT_EQ(image.width(), shape.at(1).get<int>());
  EXPECT_EQ(image.channels(), shape.size() == 2 ? 1 : 3);
  const std::vector<std::string> names =
      image.is_color() ? std::vector<std::string>{"R", "G", "B"} : std::vector<std::string>{"grey"};
  cv::Mat mean;
  cv::Mat deviation;
  cv::meanStdDev(image.read_only(), mean, deviation);
  std::vector<cv::Mat> planes;
  cv::split(image.read_only(), planes);
  for (int c = 0; c < image.channels(); ++c) {
    const std::string& name = names[static_cast<std::size_t>(c)];
    SCOPED_TRACE(name);
    const Value& channel = listed.at("channels").at(name);
    double low = 0;
    double high = 0;
    cv::minMaxLoc(planes[static_cast<std::size_t>(c)], &low, &high);
    constexpr double listed_digits = 1e-6;
    EXPECT_NEAR(mean.at<double>(c), channel.at("mean").get<double>(), listed_digits);
    EXPECT_NEAR(deviation.at<double>(c), channel.at("std").get<double>(), listed_digits);
    EXPECT_NEAR(low, channel.at("min").get<double>(), listed_digits);
    EXPECT_NEAR(high, channel.at("max").get<double>(), listed_digits);
  }
}

/// What the tests below expect by other values than OpenCV's, each with its reason.
const std::set<std::string> read_otherwise{
    "odd/bmp_rgb16-565.bmp",                    // five and six bits are widened to 255, not shifted to 248 and 252
    "odd/jpeg_cmyk.jpg",                        // 255 (1 - C)(1 - K) rounded, not shifted by eight bits
    "odd/tiff_cmyk_jpeg.tif",                   // the same, and no opaque alpha
    "odd/jpeg_exif_orientation_5.jpg",          // upright; OpenCV was asked for the pixels as stored
    "odd/jpeg_exif_orientation_6.jpg",          //
    "odd/jpeg_exif_orientation_6_640x480.jpg",  //
    "odd/tiff_3_pages_palette.tiff",            // OpenCV gives the indices as grey
    "odd/broken_truncated.jpg",                 // refused, where OpenCV fills up the rest
    "odd/pgm_16bit.pgm",                        // not one of our formats
};

TEST(RealPictures, OddFilesAreReadAsOpenCvReadsThem) {
  if (!real_data()) GTEST_SKIP() << no_data;
  int compared = 0;
  const Value all = reference("odd.json");
  for (const auto& [name, entry] : all.items()) {
    const Value& listed = entry.at("opencv");
    if (read_otherwise.contains(name) || listed.is_null()) continue;
    SCOPED_TRACE(name);
    const model::ImageFile read = model::read_image_file(*real_data() / name);
    Value shape = listed.at("shape");
    if (read.image.channels() == 1 && shape.size() == 3) shape.erase(2);
    expect_as_listed(read.image, listed, shape);
    ++compared;
  }
  EXPECT_EQ(compared, 23);
}

/// Mean and standard deviation of R, G, B (or of the only channel).
struct Known {
  const char* name;
  int height;
  int width;
  std::vector<double> means;
  std::vector<double> deviations;
};

// Values of Pillow 9.4, for ink of its CMYK by the formula in double precision: floor((255 - C)(255 - K) / 255 + 0.5);
// for the 565 file of its fields by floor(v 255 / 31 + 0.5) and floor(v 255 / 63 + 0.5).
TEST(RealPictures, OddFilesThatOpenCvReadsOtherwise) {
  if (!real_data()) GTEST_SKIP() << no_data;
  const std::vector<Known> all{
      {"bmp_rgb16-565.bmp", 64, 127, {121.530143, 118.399606, 122.897884}, {79.520543, 79.563683, 80.084267}},
      {"jpeg_cmyk.jpg", 100, 100, {30.232, 5.444, 7.3861}, {77.960984, 3.590914, 6.246185}},
      {"tiff_cmyk_jpeg.tif", 100, 100, {30.2318, 5.4428, 7.3832}, {77.958959, 3.585433, 6.239884}},
      {"gif_palette.gif", 128, 128, {89.659668, 80.080688, 95.393433}, {76.618363, 65.846193, 74.780957}},
      {"gif_animated_5.gif", 100, 100, {72.4515, 169.0666, 246.914}, {51.529386, 30.426876, 9.815121}},
      {"tiff_3_pages_palette.tiff", 10, 10, {0, 128, 0}, {0, 0, 0}},
      {"tiff_float32_128.tiff", 128, 128, {0.156913}, {1.699603}},
      {"jpeg_exif_orientation_5.jpg", 128, 128, {89.674927, 80.075073, 95.336548}, {75.69995, 65.95819, 74.928553}},
      {"jpeg_exif_orientation_6.jpg", 128, 128, {89.674927, 80.075073, 95.336548}, {75.69995, 65.95819, 74.928553}},
      {"jpeg_exif_orientation_6_640x480.jpg",
       640,
       480,
       {191.4364, 176.484033, 180.017783},
       {17.193021, 27.609365, 24.149648}},
  };
  for (const Known& known : all) {
    SCOPED_TRACE(known.name);
    const model::Image image = model::read_image_file(*real_data() / "odd" / known.name).image;
    EXPECT_EQ(image.shape(), (model::Shape{known.height, known.width}));
    ASSERT_EQ(image.channels(), static_cast<int>(known.means.size()));
    cv::Mat mean;
    cv::Mat deviation;
    cv::meanStdDev(image.read_only(), mean, deviation);
    for (int c = 0; c < image.channels(); ++c) {
      EXPECT_NEAR(mean.at<double>(c), known.means[static_cast<std::size_t>(c)], 1e-6);
      EXPECT_NEAR(deviation.at<double>(c), known.deviations[static_cast<std::size_t>(c)], 1e-6);
    }
  }
}

TEST(RealPictures, TurnedPhotographsStandUpright) {
  if (!real_data()) GTEST_SKIP() << no_data;
  // The four corners as Pillow's ImageOps.exif_transpose gives them: top left, top right, bottom left, bottom right.
  const auto corners = [](const char* name) {
    const Matrix pixels = matrix(model::read_image_file(*real_data() / "odd" / name).image);
    Matrix found;
    for (const std::vector<double>& row : {pixels.front(), pixels.back()}) {
      found.push_back({row[0], row[1], row[2]});
      found.push_back({row[row.size() - 3], row[row.size() - 2], row[row.size() - 1]});
    }
    return found;
  };
  const Matrix portrait{{25, 21, 72}, {82, 115, 194}, {198, 162, 138}, {132, 161, 201}};
  EXPECT_EQ(corners("jpeg_exif_orientation_5.jpg"), portrait);
  EXPECT_EQ(corners("jpeg_exif_orientation_6.jpg"), portrait);
  EXPECT_EQ(corners("jpeg_exif_orientation_6_640x480.jpg"),
            (Matrix{{189, 141, 191}, {188, 188, 180}, {187, 148, 175}, {199, 196, 207}}));
}

TEST(RealPictures, PagesOfATiffAreReadOneByOne) {
  if (!real_data()) GTEST_SKIP() << no_data;
  const fs::path file = *real_data() / "odd" / "tiff_3_pages_palette.tiff";
  const model::ImageFile second = model::read_image_file(file, 1);
  EXPECT_EQ(second.pages, 3);
  EXPECT_EQ(cv::mean(second.image.read_only()), cv::Scalar(255, 0, 0));
  const model::ImageFile third = model::read_image_file(file, 2);
  EXPECT_EQ(third.image.shape(), (model::Shape{20, 20}));
  EXPECT_EQ(cv::mean(third.image.read_only()), cv::Scalar(0, 0, 255));
}

TEST(RealPictures, BrokenFilesAreRefusedInOneSentence) {
  if (!real_data()) GTEST_SKIP() << no_data;
  const std::map<std::string, std::string> sentences{
      {"broken_bmp_shortfile.bmp",
       "the file claims 127 x 64 pixels, more than its 273 bytes can hold: it is cut off or damaged."},
      {"broken_text_inside.tif", "this is not a picture that can be read; PNG, JPEG, TIFF, BMP and GIF can."},
      {"broken_truncated.jpg", "this JPEG file is cut off (Premature end of JPEG file)."},
      {"broken_truncated.png", "this PNG file is cut off."},
      {"broken_zero_bytes.png", "the file is empty."},
      {"tiff_6_bands.tif",
       "this TIFF file holds 6 bands; a picture has one, or three for red, green and blue. Save each band as a file or "
       "page of its own and name them in a capture header."},
      {"pgm_16bit.pgm", "this is not a picture that can be read; PNG, JPEG, TIFF, BMP and GIF can."},
  };
  for (const auto& [name, sentence] : sentences) {
    try {
      (void)model::read_image_file(*real_data() / "odd" / name);
      ADD_FAILURE() << name << " was read.";
    } catch (const std::runtime_error& e) {
      EXPECT_EQ(e.what(), name + ": " + sentence);
    }
  }
}

TEST(RealPictures, AJpegUnderThePngNameIsReadByItsContent) {
  if (!real_data()) GTEST_SKIP() << no_data;
  EXPECT_EQ(model::read_image_file(*real_data() / "odd" / "wrong_extension_jpeg_inside.png").format, "JPEG");
}

TEST(RealPictures, PhotographsAreReadAsOpenCvReadsThem) {
  if (!real_data()) GTEST_SKIP() << no_data;
  const Value all = reference("images.json");
  for (const auto& [name, listed] : all.items()) {
    SCOPED_TRACE(name);
    expect_as_listed(model::read_image_file(*real_data() / name).image, listed, listed.at("shape_used"));
  }
}

TEST(RealPictures, BandsOfCapturesAreReadAsOpenCvReadsThem) {
  if (!real_data()) GTEST_SKIP() << no_data;
  int compared = 0;
  const Value all = reference("captures.json");
  for (const auto& [capture, entry] : all.items()) {
    const fs::path folder = (*real_data() / entry.at("header").get<std::string>()).parent_path();
    for (const auto& [measurement, images] : entry.at("measurements").items()) {
      for (const auto& [image_name, listed] : images.items()) {
        SCOPED_TRACE(capture + " " + measurement + " " + image_name);
        std::vector<fs::path> files;
        for (const auto& file : fs::directory_iterator(folder)) {
          if (file.path().stem().string().ends_with("_" + image_name)) files.push_back(file.path());
        }
        files.erase(
            std::remove_if(files.begin(), files.end(), [](const fs::path& file) { return file.extension() == ".INF"; }),
            files.end());
        ASSERT_EQ(files.size(), 1u);
        expect_as_listed(model::read_image_file(files.front()).image, listed, listed.at("shape_used"));
        ++compared;
      }
    }
  }
  EXPECT_GE(compared, 30);
}

}  // namespace
}  // namespace orvexa::test
