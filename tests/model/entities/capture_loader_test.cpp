#include "orvexa/model/entities/capture_loader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "orvexa/common/files.h"
#include "orvexa/common/parallel.h"
#include "orvexa/model/codecs/image_file.h"
#include "orvexa/model/entities/capture_files.h"
#include "orvexa/model/entities/capture_header_file.h"
#include "support/captures.h"
#include "support/temporary_folder.h"

namespace orvexa::model {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

const Image red = test::image<std::uint16_t>({{100, 200, 300}, {400, 500, 600}});
const Image nir = test::image<std::uint16_t>({{1000, 2000, 3000}, {4000, 4095, 65535}});
const Image grey = test::image<std::uint8_t>({{1, 2, 3}, {4, 5, 6}});

Image color_image() {
  cv::Mat pixels(2, 3, CV_8UC3, cv::Scalar(10, 20, 30));
  pixels.at<cv::Vec3b>(1, 2) = {200, 100, 0};
  return Image(std::move(pixels));
}

/// A TIFF of several grey 8-bit pages, one strip each, little endian: page i is 3 x 2 pixels of value `values[i]`.
std::string tiff_of_pages(const std::vector<int>& values) {
  std::string bytes;
  const auto put = [&bytes](std::uint32_t number, int size) {
    for (int i = 0; i < size; ++i) bytes.push_back(static_cast<char>((number >> (8 * i)) & 0xFF));
  };
  constexpr std::uint32_t entries = 8;
  constexpr std::uint32_t directory_bytes = 2 + 12 * entries + 4;
  constexpr std::uint32_t page_bytes = 6 + directory_bytes;
  bytes += std::string("II*\0", 4);
  put(8 + 6, 4);
  for (std::size_t page = 0; page < values.size(); ++page) {
    const auto begin = static_cast<std::uint32_t>(8 + page * page_bytes);
    bytes += std::string(6, static_cast<char>(values[page]));
    put(entries, 2);
    const std::pair<std::uint32_t, std::uint32_t> tags[entries] = {
        {256, 3} /* width */,      {257, 2} /* height */,    {258, 8} /* bits */, {259, 1} /* not compressed */,
        {262, 1} /* black is 0 */, {273, begin} /* strip */, {278, 2} /* rows */, {279, 6} /* bytes */};
    for (const auto& [tag, value] : tags) {
      put(tag, 2);
      put(4, 2);  // LONG
      put(1, 4);
      put(value, 4);
    }
    put(page + 1 < values.size() ? begin + page_bytes + 6 : 0, 4);
  }
  return bytes;
}

struct Folder : test::TemporaryFolder {
  fs::path write_png(const std::string& name, const Image& image) const {
    return write(name, common::as_text(encode_png(image)));
  }
  fs::path write_tiff(const std::string& name, const Image& image) const {
    return write(name, common::as_text(encode_tiff(image)));
  }
  fs::path header(const std::string& measurements) const { return write("HDR_plot.INF", "[Capture]\n" + measurements); }
};

std::shared_ptr<CaptureSet> load(const fs::path& path) {
  return get_default_capture_loader()(path);
}

template <typename Action>
std::string sentence_of(Action action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "(no failure)";
}

std::string sentence_for(const fs::path& path) {
  return sentence_of([&] { static_cast<void>(load(path)); });
}

// ---- what a header brings

TEST(CaptureLoader, AHeaderBecomesACaptureWithItsImagesInTheirOrder) {
  const Folder folder;
  folder.write_tiff("plot_RED.tif", red);
  folder.write_png("plot_NIR.png", nir);
  folder.write_png("plot_RGB.png", color_image());
  const auto path = folder.write("HDR_plot.INF", R"([Capture]
Name = Feld Süd / 7
Date = 2019-05-21
Time = 10:32:11
MillimetresPerPixel = 0.21
[Measurement MSP]
WhiteLevel = 4095
Image NIR = plot_NIR.png
Image RED = plot_RED.tif
[Measurement CLR]
Image RGB = plot_RGB.png
[Band NIR]
CentreNm = 842
)");

  const auto capture = load(path);

  EXPECT_EQ(capture->name, "Feld Süd / 7");
  ASSERT_NE(capture->header, nullptr);
  EXPECT_EQ(capture->header->get_capture_name_and_time(),
            std::pair(std::string("2019-05-21"), std::string("10:32:11")));
  EXPECT_EQ(capture->millimetres_per_pixel(), 0.21);
  EXPECT_THAT(capture->get_measurement_types(), ElementsAre("MSP", "CLR"));
  EXPECT_THAT(capture->image_names("MSP"), ElementsAre("NIR", "RED"));
  EXPECT_EQ(capture->find_image("MSP", "NIR"), nir);
  EXPECT_EQ(capture->find_image("MSP", "RED"), red);
  EXPECT_EQ(capture->find_image("CLR", "RGB"), color_image());
  EXPECT_EQ(capture->find_band("NIR")->centre_nm, 842);
  EXPECT_EQ(capture->mask, std::nullopt);
  EXPECT_EQ(capture->viz_overlay, std::nullopt);
}

TEST(CaptureLoader, AColourImageAmongBandsKeepsItsThreeChannels) {
  const Folder folder;
  folder.write_png("a.png", nir);
  folder.write_png("b.png", color_image());
  const auto capture = load(folder.header("[Measurement MSP]\nImage NIR = a.png\nImage PREVIEW = b.png\n"));
  EXPECT_EQ(capture->find_image("MSP", "PREVIEW"), color_image());
}

TEST(CaptureLoader, TheRecordOfSourcesHoldsHeaderAndImagesWithTheirHashes) {
  const Folder folder;
  const auto tiff = folder.write_tiff("plot_RED.tif", red);
  const auto header = folder.header("[Measurement MSP]\nImage RED = plot_RED.tif\nImage AGAIN = ./plot_RED.tif\n");
  const auto capture = load(header);

  ASSERT_EQ(capture->sources.size(), 2u);  // a file that two images share stands once
  EXPECT_EQ(capture->sources[0].path, header);
  EXPECT_EQ(capture->sources[0].bytes, fs::file_size(header));
  EXPECT_EQ(capture->sources[0].sha256, common::sha256_hex(common::read_file(header)));
  EXPECT_EQ(capture->sources[1].path, tiff);
  EXPECT_EQ(capture->sources[1].bytes, fs::file_size(tiff));
  EXPECT_EQ(capture->sources[1].sha256, common::sha256_hex(common::read_file(tiff)));
}

TEST(CaptureLoader, ARelativePathIsRecordedAsAnAbsoluteOne) {
  const Folder folder;
  const auto image = folder.write_png("a.png", grey);
  const auto relative = fs::relative(image, fs::current_path());
  ASSERT_TRUE(relative.is_relative());
  EXPECT_EQ(load_capture_from_image(relative)->sources.at(0).path, image);
}

TEST(CaptureLoader, AHeaderWhoseSuffixIsInSmallLettersIsAHeader) {
  const Folder folder;
  folder.write_png("a.png", grey);
  EXPECT_EQ(load(folder.write("hdr_x.inf", "[capture]\n[measurement GRY]\nimage GRY = a.png\n"))->name, "x");
}

// ---- white levels

TEST(CaptureLoader, WithoutAWhiteLevelTheTypesMaximumIsWhiteAndNothingIsDeclared) {
  const Folder folder;
  folder.write_png("a.png", nir);
  const auto capture = load(folder.header("[Measurement MSP]\nImage NIR = a.png\n"));
  EXPECT_EQ(capture->white_level("MSP", "NIR").counts, 65535);
  EXPECT_FALSE(capture->white_level("MSP", "NIR").is_declared);
}

TEST(CaptureLoader, AMeasurementsOwnWhiteLevelComesBeforeTheCaptures) {
  const Folder folder;
  folder.write_png("a.png", nir);
  const auto capture =
      load(folder.header("WhiteLevel = 4095\n[Measurement MSP]\nWhiteLevel = 10000\nImage NIR = a.png\n[Measurement "
                         "FLU]\nImage F0 = a.png\n"));
  EXPECT_EQ(capture->white_level("MSP", "NIR").counts, 10000);
  EXPECT_EQ(capture->white_level("FLU", "F0").counts, 4095);
  EXPECT_TRUE(capture->white_level("FLU", "F0").is_declared);
}

TEST(CaptureLoader, TheCapturesWhiteLevelDoesNotDarkenAPreviewThatCannotHoldIt) {
  const Folder folder;
  folder.write_png("a.png", nir);
  folder.write_png("b.png", color_image());
  const auto capture = load(
      folder.header("WhiteLevel = 4095\n[Measurement MSP]\nImage NIR = a.png\n[Measurement CLR]\nImage RGB = b.png\n"));
  EXPECT_EQ(capture->white_level("MSP", "NIR").counts, 4095);
  EXPECT_EQ(capture->white_level("CLR", "RGB").counts, 255);
  EXPECT_FALSE(capture->white_level("CLR", "RGB").is_declared);
}

TEST(CaptureLoader, AMeasurementsWhiteLevelThatItsImagesCannotHoldIsRefused) {
  const Folder folder;
  folder.write_png("a.png", grey);
  EXPECT_EQ(sentence_for(folder.header("[Measurement GRY]\nWhiteLevel = 4095\nImage GRY = a.png\n")),
            "HDR_plot.INF, line 3: WhiteLevel = 4095.0 is more than Image GRY can hold: it is 8-bit.");
}

TEST(CaptureLoader, FloatImagesMayDeclareAnyWhiteLevel) {
  const Folder folder;
  folder.write_tiff("a.tif", test::image<float>({{0.5f, 70000.0f}}));
  const auto capture = load(folder.header("WhiteLevel = 100000\n[Measurement MSP]\nImage NIR = a.tif\n"));
  EXPECT_EQ(capture->white_level("MSP", "NIR").counts, 100000);
  EXPECT_EQ(capture->find_image("MSP", "NIR"), test::image<float>({{0.5f, 70000.0f}}));
}

// ---- paths

TEST(CaptureLoader, ImagesMayLieInFoldersInsideTheHeadersFolder) {
  const Folder folder;
  folder.write_png("bands ü/a.png", grey);
  const auto capture = load(folder.header("[Measurement GRY]\nImage GRY = x/../bands ü/./a.png\n"));
  EXPECT_EQ(capture->find_image("GRY", "GRY"), grey);
  EXPECT_EQ(capture->sources.at(1).path, folder / "bands ü" / "a.png");
}

TEST(CaptureLoader, AbsolutePathsAreRefused) {
  const Folder folder;
  const auto image = folder.write_png("a.png", grey).string();
  EXPECT_EQ(sentence_for(folder.header("[Measurement GRY]\nImage GRY = " + image + "\n")),
            "HDR_plot.INF, line 3: Image GRY = " + image + " is an absolute path; images lie in the header's folder.");
}

TEST(CaptureLoader, PathsThatLeaveTheHeadersFolderAreRefusedWhetherTheFileIsThereOrNot) {
  const Folder folder;
  folder.write_png("outside.png", grey);
  for (const char* path : {"../outside.png", "../missing.png", "x/../../outside.png", ".."}) {
    const auto header =
        folder.write("inner/HDR_plot.INF", std::string("[Capture]\n[Measurement GRY]\nImage GRY = ") + path + "\n");
    EXPECT_EQ(sentence_for(header), std::string("HDR_plot.INF, line 3: Image GRY = ") + path +
                                        " leaves the header's folder; images lie in it.");
  }
}

TEST(CaptureLoader, LinksThatLeadOutOfTheHeadersFolderAreRefused) {
  const Folder folder;
  folder.write_png("outside/a.png", grey);
  fs::create_directories(folder / "inner");
  fs::create_symlink(folder / "outside" / "a.png", folder / "inner" / "link.png");
  fs::create_directory_symlink(folder / "outside", folder / "inner" / "linked folder");
  // A neighbour whose name begins like the folder's is outside, too.
  folder.write_png("inner 2/a.png", grey);
  fs::create_symlink(folder / "inner 2" / "a.png", folder / "inner" / "neighbour.png");
  for (const char* path : {"link.png", "linked folder/a.png", "neighbour.png"}) {
    const auto header =
        folder.write("inner/HDR_plot.INF", std::string("[Capture]\n[Measurement GRY]\nImage GRY = ") + path + "\n");
    EXPECT_EQ(sentence_for(header), std::string("HDR_plot.INF, line 3: Image GRY = ") + path +
                                        " leads out of the header's folder through a link; images lie in it.");
  }
}

TEST(CaptureLoader, LinksInsideTheFolderAndToTheFolderAreFollowed) {
  const Folder folder;
  folder.write_png("inner/a.png", grey);
  fs::create_symlink("a.png", folder / "inner" / "link.png");
  folder.write("inner/HDR_plot.INF", "[Capture]\n[Measurement GRY]\nImage GRY = link.png\n");
  fs::create_directory_symlink(folder / "inner", folder / "way in");
  const auto capture = load(folder / "way in" / "HDR_plot.INF");
  EXPECT_EQ(capture->find_image("GRY", "GRY"), grey);
  EXPECT_EQ(capture->sources.at(1).path, folder / "way in" / "link.png");
}

TEST(CaptureLoader, AnImageThatIsNotThereOrAFolderOrAPipeIsNamedWithItsLine) {
  const Folder folder;
  fs::create_directories(folder / "a.png");
  ASSERT_EQ(mkfifo((folder / "pipe.png").c_str(), 0600), 0);
  EXPECT_EQ(sentence_for(folder.header("[Measurement M]\nImage A = b.png\n")),
            "HDR_plot.INF, line 3: Image A = b.png: there is no such file.");
  EXPECT_EQ(sentence_for(folder.header("[Measurement M]\nImage A = a.png\n")),
            "HDR_plot.INF, line 3: Image A = a.png is not a file with a picture.");
  EXPECT_EQ(sentence_for(folder.header("[Measurement M]\nImage A = .\n")),
            "HDR_plot.INF, line 3: Image A = . is not a file with a picture.");
  EXPECT_EQ(sentence_for(folder.header("[Measurement M]\nImage A = pipe.png\n")),
            "HDR_plot.INF, line 3: Image A = pipe.png is not a file with a picture.");
}

// ---- pages

TEST(CaptureLoader, PagesOfATiffAreCountedFrom0) {
  const Folder folder;
  folder.write("stack.tif", tiff_of_pages({11, 22, 33}));
  const auto capture =
      load(folder.header("[Measurement M]\nImage A = stack.tif\nImage B = stack.tif[0]\n"
                         "Image C = stack.tif[2]\n"));
  EXPECT_EQ(capture->find_image("M", "A"), test::flat_image<std::uint8_t>(2, 3, 11));
  EXPECT_EQ(capture->find_image("M", "B"), test::flat_image<std::uint8_t>(2, 3, 11));
  EXPECT_EQ(capture->find_image("M", "C"), test::flat_image<std::uint8_t>(2, 3, 33));
  ASSERT_EQ(capture->sources.size(), 2u);
  EXPECT_EQ(capture->sources[1].path, folder / "stack.tif");
}

TEST(CaptureLoader, AFileOfThatVeryNameWinsOverTheReadingAsAPage) {
  const Folder folder;
  folder.write("stack.tif", tiff_of_pages({11, 22}));
  folder.write_png("stack.tif[1]", grey);
  EXPECT_EQ(load(folder.header("[Measurement M]\nImage A = stack.tif[1]\n"))->find_image("M", "A"), grey);
  EXPECT_EQ(load(folder / "stack.tif[1]")->find_image("GRY", "GRY"), grey);
}

TEST(CaptureLoader, APageThatIsNotThereIsNamedWithItsLine) {
  const Folder folder;
  folder.write("stack.tif", tiff_of_pages({11, 22}));
  EXPECT_THAT(sentence_for(folder.header("[Measurement M]\nImage A = stack.tif[2]\n")),
              StartsWith("HDR_plot.INF, line 3: Image A: stack.tif: "));
}

TEST(CaptureLoader, BracketsAroundSomethingElseThanANumberAreNoPage) {
  const Folder folder;
  folder.write("stack.tif", tiff_of_pages({11}));
  for (const char* name : {"stack.tif[]", "stack.tif[-1]", "stack.tif[0x1]", "stack.tif[99999999999]", "[0]"}) {
    EXPECT_EQ(sentence_for(folder.header(std::string("[Measurement M]\nImage A = ") + name + "\n")),
              std::string("HDR_plot.INF, line 3: Image A = ") + name + ": there is no such file.");
  }
}

// ---- what may be wrong with the images

TEST(CaptureLoader, TwoSizesInOneCaptureAreNamedWithBothImages) {
  const Folder folder;
  folder.write_png("a.png", grey);
  folder.write_png("b.png", test::flat_image<std::uint8_t>(3, 2, 0));
  EXPECT_EQ(sentence_for(folder.header("[Measurement A]\nImage X = a.png\n[Measurement B]\nImage Y = b.png\n")),
            "HDR_plot.INF, line 5: Image Y (b.png) is 2 x 3 pixels, but Image X (a.png) is 3 x 2; all images of a "
            "capture have one size.");
}

TEST(CaptureLoader, TheFirstUnreadableImageOfTheHeaderIsReportedWhateverTheThreads) {
  const Folder folder;
  folder.write_png("good.png", grey);
  folder.write("text.png", "this is no picture");
  folder.write("empty.png", "");
  std::string text = "[Measurement M]\n";
  for (int i = 0; i < 8; ++i) text += "Image G" + std::to_string(i) + " = good.png\n";
  text += "Image TEXT = text.png\nImage EMPTY = empty.png\n";
  const auto header = folder.header(text);
  for (const int threads : {1, 2, 7}) {
    common::set_thread_count(threads);
    EXPECT_THAT(sentence_for(header), StartsWith("HDR_plot.INF, line 11: Image TEXT: text.png: ")) << threads;
  }
  common::set_thread_count(0);
}

// ---- what is not a header

TEST(CaptureLoader, WhatIsNotThereIsSaidToBeMissing) {
  const Folder folder;
  EXPECT_EQ(sentence_for(folder / "HDR_none.INF"), "HDR_none.INF: there is no such file.");
  EXPECT_EQ(sentence_for(folder / "data.raw"), "data.raw: there is no such file.");
  EXPECT_EQ(sentence_for(folder / "no folder" / "HDR_none.INF"), "HDR_none.INF: there is no such file.");
}

TEST(CaptureLoader, AFolderIsSaidToBeAFolder) {
  const Folder folder;
  fs::create_directories(folder / "plot");
  EXPECT_EQ(sentence_for(folder / "plot"), common::path_text(folder / "plot") +
                                               ": this is a folder; a capture is an HDR_*.INF file or an image file.");
}

TEST(CaptureLoader, AnotherKindOfFileIsRefusedWithTheKindsThereAre) {
  const Folder folder;
  for (const char* name : {"data.raw", "noext", ".png", "photo.jpg.txt"}) {
    EXPECT_EQ(sentence_for(folder.write(name, "x")),
              std::string(name) +
                  ": this is neither a capture header (HDR_*.INF) nor an image file (.png, .jpg, .jpeg, .tif, .tiff, "
                  ".bmp, .gif).");
  }
}

TEST(CaptureLoader, ABinaryFileWithAHeadersNameIsRefused) {
  const Folder folder;
  EXPECT_EQ(sentence_for(folder.write("HDR_plot.INF", std::string("MZ\0\1\2", 5))),
            "HDR_plot.INF: this is not a text file, so not a capture header.");
}

TEST(CaptureLoader, AHeaderOfMoreThanAMegabyteIsRefused) {
  const Folder folder;
  const auto header = folder.write("HDR_plot.INF", "[Capture]\n#" + std::string(max_header_bytes, '-'));
  EXPECT_THAT(sentence_for(header), HasSubstr("HDR_plot.INF: the file is larger than 1,048,576 bytes"));
}

TEST(CaptureLoader, APipeWithAHeadersNameIsRefusedInsteadOfWaitedFor) {
  const Folder folder;
  ASSERT_EQ(mkfifo((folder / "HDR_plot.INF").c_str(), 0600), 0);
  EXPECT_EQ(sentence_for(folder / "HDR_plot.INF"), "HDR_plot.INF: this is not a file that can be read.");
}

// ---- ordinary images

TEST(ImageCapture, AColourImageIsMeasurementClrWithImageRgb) {
  const Folder folder;
  const auto path = folder.write_png("my photo.v2.png", color_image());
  const auto capture = load_capture_from_image(path);
  EXPECT_EQ(capture->name, "my photo.v2");
  EXPECT_EQ(capture->header, nullptr);
  EXPECT_THAT(capture->get_measurement_types(), ElementsAre("CLR"));
  EXPECT_EQ(capture->find_image("CLR", "RGB"), color_image());
  ASSERT_EQ(capture->sources.size(), 1u);
  EXPECT_EQ(capture->sources[0].path, path);
  EXPECT_EQ(capture->sources[0].sha256, common::sha256_hex(common::read_file(path)));
  EXPECT_EQ(capture->sources[0].bytes, fs::file_size(path));
}

TEST(ImageCapture, ASingleBandImageIsMeasurementGryWithImageGry) {
  const Folder folder;
  const auto capture = load_capture_from_image(folder.write_tiff("band.tif", nir));
  EXPECT_THAT(capture->get_measurement_types(), ElementsAre("GRY"));
  EXPECT_EQ(capture->find_image("GRY", "GRY"), nir);
}

TEST(ImageCapture, APageOfATiffIsACaptureOfItsOwnNameThroughEitherLoader) {
  const Folder folder;
  folder.write("stack.tif", tiff_of_pages({11, 22, 33}));
  for (const auto& capture : {load_capture_from_image(folder / "stack.tif[2]"), load(folder / "stack.tif[2]")}) {
    EXPECT_EQ(capture->name, "stack_page_2");
    EXPECT_EQ(capture->sources.at(0).page, 2) << "the record of where numbers come from";
    EXPECT_EQ(capture->find_image("GRY", "GRY"), test::flat_image<std::uint8_t>(2, 3, 33));
    EXPECT_EQ(capture->sources.at(0).path, folder / "stack.tif");
  }
  EXPECT_EQ(load_capture_from_image(folder / "stack.tif")->name, "stack");
}

TEST(ImageCapture, WhatCannotBeReadIsNamed) {
  const Folder folder;
  const auto sentence = [](const fs::path& path) {
    return sentence_of([&] { static_cast<void>(load_capture_from_image(path)); });
  };
  EXPECT_THAT(sentence(folder / "none.png"), HasSubstr("none.png: there is no such file."));
  EXPECT_THAT(sentence(folder / "none.tif[1]"), HasSubstr("none.tif: there is no such file."));
  EXPECT_THAT(sentence_for(folder / "none.tif[1]"), HasSubstr("none.tif: there is no such file."));
  EXPECT_THAT(sentence(folder.write("text.png", "no picture")), StartsWith("text.png: "));
}

TEST(ImageCapture, AnImageIsKnownByItsSuffixInAnyCase) {
  for (const char* name :
       {"a.png", "a.jpg", "a.jpeg", "a.tif", "a.tiff", "a.bmp", "a.gif", "A.PNG", "a.Jpeg", "a.b.TIF"}) {
    EXPECT_TRUE(is_image_file_name(name)) << name;
  }
  for (const char* name :
       {"HDR_0001.INF", "data.raw", "png", ".png", "a.png ", "a.webp", "a.pgm", "a.tif[2]", "a.png/b"}) {
    EXPECT_FALSE(is_image_file_name(name)) << name;
  }
}

// ---- real captures

double mean_of_channel(const Image& image, int channel) {
  double sum = 0;
  const auto add_rows = [&]<typename T>(T) {
    for (int y = 0; y < image.height(); ++y) {
      const auto row = image.row<T>(y);
      for (std::size_t x = static_cast<std::size_t>(channel); x < row.size();
           x += static_cast<std::size_t>(image.channels())) {
        sum += static_cast<double>(row[x]);
      }
    }
  };
  if (image.type() == PixelType::u8) add_rows(std::uint8_t{});
  if (image.type() == PixelType::u16) add_rows(std::uint16_t{});
  if (image.type() == PixelType::f32) add_rows(float{});
  return sum / static_cast<double>(image.shape().pixels());
}

TEST(RealCaptures, LoadWithTheShapesTypesAndMeansThatAnotherReaderFound) {
  const auto data = test::real_data();
  if (!data) GTEST_SKIP() << "no folder shared/data beside the project";
  const auto reference = common::Value::parse(test::read_all(*data / "reference" / "captures.json"));
  ASSERT_EQ(reference.size(), 10u);
  for (const auto& [name, expected] : reference.items()) {
    SCOPED_TRACE(name);
    const auto capture = load(*data / expected.at("header").get<std::string>());
    EXPECT_EQ(capture->name, name);
    EXPECT_EQ(capture->measurements.size(), expected.at("measurements").size());
    for (const auto& [measurement, images] : expected.at("measurements").items()) {
      EXPECT_EQ(capture->image_names(measurement).size(), images.size());
      for (const auto& [image_name, facts] : images.items()) {
        SCOPED_TRACE(image_name);
        const auto image = capture->find_image(measurement, image_name);
        ASSERT_TRUE(image.has_value());
        EXPECT_EQ(image->height(), facts.at("shape_used").at(0));
        EXPECT_EQ(image->width(), facts.at("shape_used").at(1));
        EXPECT_EQ(image->type(), facts.at("dtype") == "uint8" ? PixelType::u8 : PixelType::u16);
        const auto& channels = facts.at("channels");
        EXPECT_EQ(image->is_color(), channels.contains("R"));
        for (const auto& [channel, statistics] : channels.items()) {
          const int index = channel == "G" ? 1 : channel == "B" ? 2 : 0;
          // The reference has six decimals; two JPEG decoders may differ by a count here and there.
          const double tolerance = name == "retina" ? 0.05 : 1e-6;
          EXPECT_NEAR(mean_of_channel(*image, index), statistics.at("mean").get<double>(), tolerance) << channel;
        }
      }
    }
  }
}

TEST(RealCaptures, DeclaredWhiteLevelsAndDatesArrive) {
  const auto data = test::real_data();
  if (!data) GTEST_SKIP() << "no folder shared/data beside the project";
  const auto field = load(*data / "captures" / "field_20150711" / "HDR_field_20150711.INF");
  EXPECT_EQ(field->white_level("MSP", "NIR").counts, 10000);
  EXPECT_TRUE(field->white_level("MSP", "NIR").is_declared);
  EXPECT_FALSE(field->white_level("CLR", "RGB").is_declared);
  EXPECT_EQ(field->header->date, "2015-07-11");
  EXPECT_EQ(field->header->time, "10:00:08");
  EXPECT_EQ(field->find_band("EDG")->centre_nm, 704);
}

TEST(RealCaptures, BrokenOnesGetTheirSentence) {
  const auto data = test::real_data();
  if (!data) GTEST_SKIP() << "no folder shared/data beside the project";
  EXPECT_EQ(sentence_for(*data / "odd" / "broken_band_sizes" / "HDR_broken_band_sizes.INF"),
            "HDR_broken_band_sizes.INF, line 8: Image PAN (broken_band_sizes_PAN.tif) is 201 x 201 pixels, but Image "
            "RED (broken_band_sizes_RED.tif) is 101 x 101; all images of a capture have one size.");
  EXPECT_EQ(sentence_for(*data / "odd" / "broken_missing_band" / "HDR_broken_missing_band.INF"),
            "HDR_broken_missing_band.INF, line 7: Image NIR = broken_missing_band_NIR.tif: there is no such file.");
}

TEST(RealCaptures, EachPageOfARealStackIsACapture) {
  const auto data = test::real_data();
  if (!data) GTEST_SKIP() << "no folder shared/data beside the project";
  const fs::path stack = *data / "odd" / "tiff_3_pages_palette.tiff";
  for (int page = 0; page < 3; ++page) {
    const auto capture = load(stack.string() + "[" + std::to_string(page) + "]");
    const int side = page == 2 ? 20 : 10;  // ImageWidth and ImageLength of the three directories
    EXPECT_EQ(capture->get_shape(), (Shape{side, side})) << page;
    EXPECT_EQ(capture->name, "tiff_3_pages_palette_page_" + std::to_string(page));
  }
  EXPECT_THAT(sentence_for(stack.string() + "[3]"), StartsWith("tiff_3_pages_palette.tiff: "));
}

// ---- references

struct ReferenceFolder : Folder {
  ReferenceFolder() {
    write_tiff("red.tif", red);
    write_tiff("nir.tif", nir);
    write_png("photo.png", color_image());
    write_tiff("white.tif", test::flat_image<std::uint16_t>(2, 3, 2100));
    write_tiff("dark.tif", test::flat_image<std::uint16_t>(2, 3, 100));
  }
  fs::path with(const std::string& references, const std::string& capture_keys = "") const {
    return write("HDR_plot.INF", "[Capture]\n" + capture_keys +
                                     "[Measurement MSP]\nImage RED = red.tif\nImage NIR = nir.tif\n"
                                     "[Measurement CLR]\nImage RGB = photo.png\n" +
                                     references);
  }
};

TEST(CaptureReferences, BelongToTheImageKeyByKeyBeforeItsMeasurement) {
  const ReferenceFolder folder;
  const auto capture = load(folder.with(
      "[Reference MSP]\nWhite = 4000\nDark = dark.tif\nReflectance = 0.98\n[Reference MSP.NIR]\nWhite = white.tif\n"));
  const auto of_red = capture->reference("MSP", "RED");
  ASSERT_NE(of_red, nullptr);
  EXPECT_EQ(of_red->white.constants, std::vector<double>{4000});
  EXPECT_EQ(of_red->dark.picture, test::flat_image<std::uint16_t>(2, 3, 100));
  EXPECT_EQ(of_red->reflectance, 0.98);
  const auto of_nir = capture->reference("MSP", "NIR");
  EXPECT_EQ(of_nir->white.picture, test::flat_image<std::uint16_t>(2, 3, 2100));
  EXPECT_EQ(of_nir->white.file->path.filename(), "white.tif");
  EXPECT_EQ(of_nir->dark.picture, of_red->dark.picture);
  EXPECT_EQ(of_nir->reflectance, 0.98);
  EXPECT_EQ(capture->reference("CLR", "RGB"), nullptr);
  EXPECT_EQ(capture->find_image("MSP", "NIR"), nir) << "the counts stay";
  std::vector<std::string> files;
  for (const SourceFile& source : capture->sources) files.push_back(source.path.filename());
  EXPECT_THAT(files, ElementsAre("HDR_plot.INF", "red.tif", "nir.tif", "photo.png", "dark.tif", "white.tif"))
      << "each once";
}

TEST(CaptureReferences, WithoutAWhiteTheDeclaredWhiteLevelStandsForIt) {
  const ReferenceFolder folder;
  const auto capture = load(folder.with("[Reference MSP.RED]\nDark = 100\n", "WhiteLevel = 4095\n"));
  EXPECT_EQ(capture->reference("MSP", "RED")->white.constants, std::vector<double>{4095});
  EXPECT_EQ(capture->reference("MSP", "NIR"), nullptr);
  EXPECT_EQ(
      sentence_for(folder.with("[Reference MSP.RED]\nDark = 100\n")),
      "HDR_plot.INF, line 7: [Reference MSP.RED] has no White, and no WhiteLevel is declared that could stand for "
      "it.");
}

TEST(CaptureReferences, MayStandInAFileThatManyCapturesShare) {
  const ReferenceFolder folder;
  folder.write("calibration/all.inf", "[Reference MSP]\nWhite = white.tif\nDark = ../dark.tif\n");
  folder.write_tiff("calibration/white.tif", test::flat_image<std::uint16_t>(2, 3, 3000));
  const auto header =
      folder.with("[Reference CLR.RGB]\nWhite = 250, 245, 240\n", "ReferenceFile = calibration/all.inf\n");
  const auto capture = load(header);
  EXPECT_EQ(capture->reference("MSP", "NIR")->white.picture, test::flat_image<std::uint16_t>(2, 3, 3000));
  EXPECT_EQ(capture->reference("MSP", "NIR")->dark.picture, test::flat_image<std::uint16_t>(2, 3, 100));
  EXPECT_EQ(capture->reference("CLR", "RGB")->white.constants, (std::vector<double>{250, 245, 240}));
  EXPECT_EQ(capture->sources.at(1).path, folder / "calibration/all.inf");
  EXPECT_THAT(files_named_by(header), ElementsAre("red.tif", "nir.tif", "photo.png", "calibration/all.inf",
                                                  "calibration/white.tif", "dark.tif"));
  EXPECT_EQ(hashed_capture_files(header).size(), capture->sources.size());
  EXPECT_EQ(sentence_for(folder.with("[Reference MSP]\nDark = 1\n", "ReferenceFile = calibration/all.inf\n")),
            "all.inf, line 1: [Reference MSP] stands already in HDR_plot.INF, line 8.");
  EXPECT_EQ(sentence_for(folder.with("", "ReferenceFile = gone.inf\n")),
            "HDR_plot.INF, line 2: ReferenceFile = gone.inf: there is no such file.");
}

TEST(CaptureReferences, WhatIsWrongIsSaidWithFileLineAndKey) {
  const ReferenceFolder folder;
  folder.write_png("small.png", test::flat_image<std::uint16_t>(1, 3, 9));
  const auto sentence = [&](const std::string& references) { return sentence_for(folder.with(references)); };
  EXPECT_EQ(sentence("[Reference MPS]\nWhite = 1\n"),
            "HDR_plot.INF, line 7: [Reference MPS]: the capture has no measurement MPS (did you mean \"MSP\"?).");
  EXPECT_EQ(sentence("[Reference MSP.NIT]\nWhite = 1\n"),
            "HDR_plot.INF, line 7: [Reference MSP.NIT]: the measurement MSP has no image NIT (did you mean \"NIR\"?).");
  EXPECT_EQ(sentence("[Reference MSP]\n"), "HDR_plot.INF, line 7: [Reference MSP] has neither White nor Dark.");
  EXPECT_EQ(sentence("[Reference MSP]\nDark = 1\nReflectance = 0.9\n"),
            "HDR_plot.INF, line 9: Reflectance is that of the white panel, but there is no White.");
  EXPECT_EQ(sentence("[Reference MSP]\nWhite = 5\nDark = 5\n"),
            "HDR_plot.INF, line 7: [Reference MSP]: white (5.0) is not above dark (5.0).");
  EXPECT_EQ(sentence("[Reference MSP]\nWhite = gone.tif\n"),
            "HDR_plot.INF, line 8: White = gone.tif: there is no such file.");
  EXPECT_EQ(sentence("[Reference MSP]\nWhite = ../white.tif\n"),
            "HDR_plot.INF, line 8: White = ../white.tif leaves the header's folder; it lies in it.");
  EXPECT_EQ(
      sentence("[Reference MSP]\nWhite = small.png\n"),
      "HDR_plot.INF, line 8: White (small.png) is 3 x 1 pixels, but Image RED (red.tif) is 3 x 2; all images of a "
      "capture have one size.");
  EXPECT_EQ(sentence("[Reference MSP]\nWhite = 1, 2, 3\n"),
            "HDR_plot.INF, line 8: White has three numbers, but Image RED of MSP has one channel.");
  EXPECT_EQ(sentence("[Reference MSP]\nWhite = photo.png\n"),
            "HDR_plot.INF, line 8: White (photo.png) is a colour picture, but Image RED of MSP has one channel.");
  EXPECT_EQ(sentence("[Reference CLR]\nWhite = white.tif\n"),
            "HDR_plot.INF, line 8: White (white.tif) is 16-bit, but Image RGB of CLR is 8-bit; a reference has the "
            "image's own counts, or is 32-bit float.");
}

}  // namespace
}  // namespace orvexa::model
