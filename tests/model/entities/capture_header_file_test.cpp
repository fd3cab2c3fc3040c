#include "orvexa/model/entities/capture_header_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "support/temporary_folder.h"

namespace orvexa::model {
namespace {

std::string sentence_for(const std::string& text) {
  try {
    static_cast<void>(parse_capture_header(text, "HDR_plot.INF"));
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "(accepted)";
}

const std::string whole_header = R"(; an example
[Capture]
Name = plot_0007
Date = 2019-05-21
Time = 10:32:11
Camera = five-band = multispectral camera
MillimetresPerPixel = 0.21
WhiteLevel = 4095

# colour first
[Measurement CLR]
Image RGB = plot_0007_RGB.png
[Measurement MSP]
WhiteLevel = 1e4
Image BLU = plot_0007_BLU.tif
  Image NIR =   sub folder/plot 0007.tif[2]
[Band NIR]
CentreNm = 842
WidthNm = 57.5
[Band BLU]
)";

void expect_whole_header(const CaptureHeaderFile& header) {
  EXPECT_EQ(header.capture.name, "plot_0007");
  EXPECT_EQ(header.capture.date, "2019-05-21");
  EXPECT_EQ(header.capture.time, "10:32:11");
  EXPECT_EQ(header.capture.get_capture_name_and_time(), std::pair(std::string("2019-05-21"), std::string("10:32:11")));
  EXPECT_EQ(header.capture.camera, "five-band = multispectral camera");
  EXPECT_EQ(header.capture.millimetres_per_pixel, 0.21);
  EXPECT_EQ(header.capture.white_level, 4095);
  ASSERT_EQ(header.measurements.size(), 2u);
  EXPECT_EQ(header.measurements[0].name, "CLR");
  EXPECT_EQ(header.measurements[0].white_level, std::nullopt);
  EXPECT_EQ(header.measurements[1].name, "MSP");
  EXPECT_EQ(header.measurements[1].white_level, 10000);
  ASSERT_EQ(header.measurements[1].images.size(), 2u);
  EXPECT_EQ(header.measurements[1].images[0].name, "BLU");
  EXPECT_EQ(header.measurements[1].images[1].name, "NIR");
  EXPECT_EQ(header.measurements[1].images[1].file, "sub folder/plot 0007.tif[2]");
  EXPECT_EQ(header.measurements[1].images[1].line, 16);
  ASSERT_EQ(header.bands.size(), 2u);
  EXPECT_EQ(header.bands.at("NIR").centre_nm, 842);
  EXPECT_EQ(header.bands.at("NIR").width_nm, 57.5);
  EXPECT_EQ(header.bands.at("BLU").centre_nm, std::nullopt);
}

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
  return text;
}

TEST(CaptureHeaderFile, EverySectionAndKeyIsRead) {
  expect_whole_header(parse_capture_header(whole_header, "a.INF"));
}

TEST(CaptureHeaderFile, CarriageReturnsAndAByteOrderMarkChangeNothing) {
  expect_whole_header(parse_capture_header("\xEF\xBB\xBF" + replaced(whole_header, "\n", "\r\n"), "a.INF"));
}

TEST(CaptureHeaderFile, KeywordsMayBeWrittenInAnyCase) {
  std::string shouted = whole_header;
  for (const char* keyword : {"Capture", "Measurement", "Band ", "Name", "Date", "Time", "Camera",
                              "MillimetresPerPixel", "WhiteLevel", "Image", "CentreNm", "WidthNm"}) {
    std::string upper = keyword;
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    shouted = replaced(shouted, keyword, upper);
  }
  expect_whole_header(parse_capture_header(shouted, "a.INF"));
}

TEST(CaptureHeaderFile, ALastLineWithoutLineFeedCounts) {
  const auto header = parse_capture_header("[Capture]\n[Measurement GRY]\nImage GRY = a.png", "HDR_a.INF");
  EXPECT_EQ(header.measurements.at(0).images.at(0).file, "a.png");
}

TEST(CaptureHeaderFile, WithoutOptionalKeysTheNameIsTheStemAndTheTextsAreEmpty) {
  const std::string text = "[Capture]\n[Measurement GRY]\nImage GRY = a.png\n";
  const auto header = parse_capture_header(text, "HDR_plot 7.INF");
  EXPECT_EQ(header.capture.name, "plot 7");
  EXPECT_EQ(header.capture.date, "");
  EXPECT_EQ(header.capture.time, "");
  EXPECT_EQ(header.capture.camera, "");
  EXPECT_EQ(header.capture.millimetres_per_pixel, std::nullopt);
  EXPECT_EQ(header.capture.white_level, std::nullopt);
  EXPECT_EQ(parse_capture_header(text, "hdr_Plot.inf").capture.name, "Plot");
  EXPECT_EQ(parse_capture_header(text, "plot.INF").capture.name, "plot");
  EXPECT_EQ(parse_capture_header(text, "HDR_.INF").capture.name, "HDR_");
  EXPECT_EQ(parse_capture_header("[Capture]\nName =\n[Measurement G]\nImage G = a.png", "HDR_x.INF").capture.name, "x");
}

TEST(CaptureHeaderFile, NamesAreKeptAsWrittenInAnyScript) {
  const auto header =
      parse_capture_header("[Capture]\nName = Größe 7\n[Measurement Blüte]\nImage Übersicht = a.png\n", "HDR_a.INF");
  EXPECT_EQ(header.capture.name, "Größe 7");
  EXPECT_EQ(header.measurements.at(0).name, "Blüte");
  EXPECT_EQ(header.measurements.at(0).images.at(0).name, "Übersicht");
}

TEST(CaptureHeaderFile, OneImageNameMayStandInTwoMeasurements) {
  const auto header = parse_capture_header(
      "[Capture]\n[Measurement A]\nImage RED = a.png\n[Measurement B]\nImage RED = b.png\n", "HDR_a.INF");
  EXPECT_EQ(header.measurements.at(1).images.at(0).file, "b.png");
}

TEST(CaptureHeaderFile, ABandWithoutAnImageIsKept) {
  const auto header =
      parse_capture_header("[Capture]\n[Measurement G]\nImage G = a.png\n[Band NIR]\nCentreNm = 840\n", "HDR_a.INF");
  EXPECT_EQ(header.bands.at("NIR").centre_nm, 840);
}

struct BadHeader {
  const char* name;
  std::string text;
  const char* sentence;
};
class BadHeaders : public testing::TestWithParam<BadHeader> {};

TEST_P(BadHeaders, AreAnsweredWithOneSentence) {
  EXPECT_EQ(sentence_for(GetParam().text), GetParam().sentence);
}

const std::string good_end = "[Measurement M]\nImage I = a.png\n";

INSTANTIATE_TEST_SUITE_P(
    Table, BadHeaders,
    testing::Values(
        BadHeader{"Empty", "", "HDR_plot.INF: the section [Capture] is missing."},
        BadHeader{"NoCaptureSection", good_end, "HDR_plot.INF: the section [Capture] is missing."},
        BadHeader{"NoMeasurement", "[Capture]\nName = a\n",
                  "HDR_plot.INF: there is no [Measurement NAME] section, so no image."},
        BadHeader{"MeasurementWithoutImage", "[Capture]\n[Measurement CLR]\n[Measurement MSP]\nImage RED = a.tif\n",
                  "HDR_plot.INF, line 2: [Measurement CLR] has no \"Image NAME = file\" line."},
        BadHeader{"Binary", std::string("[Capture]\0", 10) + good_end,
                  "HDR_plot.INF: this is not a text file, so not a capture header."},
        BadHeader{"Utf16", "\xFF\xFE[", "HDR_plot.INF: this is UTF-16 text; a capture header is saved as UTF-8."},
        BadHeader{"Latin1",
                  "[Capture]\nCamera = Gr\xFC"
                  "n\n" +
                      good_end,
                  "HDR_plot.INF, line 2: the text is not UTF-8; save the file as UTF-8."},
        BadHeader{"Latin1InTheLastLine", "[Capture]\n" + good_end + "# Gr\xFC",
                  "HDR_plot.INF, line 4: the text is not UTF-8; save the file as UTF-8."},
        BadHeader{"KeyBeforeSections", "Name = a\n[Capture]\n" + good_end,
                  "HDR_plot.INF, line 1: the key \"Name\" stands before the first section."},
        BadHeader{"NoEquals", "[Capture]\nName plot\n" + good_end,
                  "HDR_plot.INF, line 2: \"Name plot\" is neither a [section] nor a \"key = value\"."},
        BadHeader{"NoKey", "[Capture]\n= plot\n" + good_end,
                  "HDR_plot.INF, line 2: \"= plot\" has no key before the \"=\"."},
        BadHeader{
            "LongLineIsCut", "[Capture]\n" + std::string(70, 'x') + "\n" + good_end,
            "HDR_plot.INF, line 2: \"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx...\" is neither "
            "a [section] nor a \"key = value\"."},
        BadHeader{"OpenSection", "[Capture\n" + good_end,
                  "HDR_plot.INF, line 1: the section \"[Capture\" does not end in \"]\"."},
        BadHeader{"CaptureWithName", "[Capture plot]\n" + good_end,
                  "HDR_plot.INF, line 1: the section [Capture] takes no name, but here it has \"plot\"."},
        BadHeader{"CaptureTwice", "[Capture]\n[capture]\n" + good_end,
                  "HDR_plot.INF, line 2: the section [Capture] stands already in line 1."},
        BadHeader{"MisspeltSection", "[Capture]\n[Mesurement M]\nImage I = a.png\n",
                  "HDR_plot.INF, line 2: the section \"[Mesurement M]\" is not known to this version (did you mean "
                  "\"Measurement NAME\"?)."},
        BadHeader{"SectionOfALaterVersion", "[Capture]\n[Lens white]\n" + good_end,
                  "HDR_plot.INF, line 2: the section \"[Lens white]\" is not known to this version."},
        BadHeader{"ReferenceWithoutName", "[Capture]\n" + good_end + "[Reference]\n",
                  "HDR_plot.INF, line 4: Reference needs a name, for example [Reference MSP] or [Reference MSP.NIR]."},
        BadHeader{
            "ReferenceWithoutImage", "[Capture]\n" + good_end + "[Reference MSP.]\n",
            "HDR_plot.INF, line 4: [Reference MSP.] names no measurement and image, such as [Reference MSP.NIR]."},
        BadHeader{"ReferenceTwice", "[Capture]\n" + good_end + "[Reference M]\nDark = 1\n[Reference m]\nDark = 1\n",
                  "HDR_plot.INF, line 6: Reference m and Reference M (line 4) differ only by case."},
        BadHeader{"ReferenceKeyTwice", "[Capture]\n" + good_end + "[Reference M]\nDark = 1\ndark = 2\n",
                  "HDR_plot.INF, line 6: Dark stands already in line 5 of the same section."},
        BadHeader{"ReferenceOfTwoNumbers", "[Capture]\n" + good_end + "[Reference M]\nWhite = 1, 2\n",
                  "HDR_plot.INF, line 5: White must be a file, one number, or three for R, G, B, not \"1, 2\"."},
        BadHeader{"ReferenceThatIsInfinite", "[Capture]\n" + good_end + "[Reference M]\nDark = inf\n",
                  "HDR_plot.INF, line 5: Dark must be a file, one number, or three for R, G, B, not \"inf\"."},
        BadHeader{"ReferenceWithoutValue", "[Capture]\n" + good_end + "[Reference M]\nWhite =\n",
                  "HDR_plot.INF, line 5: White names no file and is no number."},
        BadHeader{"ReflectanceOfNothing", "[Capture]\n" + good_end + "[Reference M]\nReflectance = 0\n",
                  "HDR_plot.INF, line 5: Reflectance must be a number above 0 such as 0.25, not \"0\"."},
        BadHeader{"ReferenceKeyUnknown", "[Capture]\n" + good_end + "[Reference M]\nWhit = 5\n",
                  "HDR_plot.INF, line 5: the key \"Whit\" in [Reference M] is not known to this version (did you mean "
                  "\"White\"?)."},
        BadHeader{"ReferenceFileWithoutName", "[Capture]\nReferenceFile =\n" + good_end,
                  "HDR_plot.INF, line 2: ReferenceFile names no file."},
        BadHeader{"EmptySection", "[]\n", "HDR_plot.INF, line 1: the section \"[]\" is not known to this version."},
        BadHeader{"MeasurementWithoutName", "[Capture]\n[Measurement]\nImage I = a.png\n",
                  "HDR_plot.INF, line 2: Measurement needs a name, for example [Measurement CLR]."},
        BadHeader{"BandWithoutName", "[Capture]\n" + good_end + "[Band ]\n",
                  "HDR_plot.INF, line 4: Band needs a name, for example [Band NIR]."},
        BadHeader{"ImageWithoutName", "[Capture]\n[Measurement M]\nImage = a.png\n",
                  "HDR_plot.INF, line 3: Image needs a name, for example \"Image RGB = photo.png\"."},
        BadHeader{"ImageWithoutFile", "[Capture]\n[Measurement M]\nImage RED =\n",
                  "HDR_plot.INF, line 3: Image RED names no file."},
        BadHeader{"MeasurementTwice", "[Capture]\n" + good_end + good_end,
                  "HDR_plot.INF, line 4: Measurement M stands already in line 2."},
        BadHeader{"MeasurementsDifferByCase", "[Capture]\n" + good_end + "[Measurement m]\nImage I = a.png\n",
                  "HDR_plot.INF, line 4: Measurement m and Measurement M (line 2) differ only by case."},
        BadHeader{"ImageTwice", "[Capture]\n" + good_end + "Image I = b.png\n",
                  "HDR_plot.INF, line 4: Image I stands already in line 3."},
        BadHeader{"ImagesDifferByCase", "[Capture]\n[Measurement M]\nImage Nir = a.png\nIMAGE NIR = b.png\n",
                  "HDR_plot.INF, line 4: Image NIR and Image Nir (line 3) differ only by case."},
        BadHeader{"BandTwice", "[Capture]\n" + good_end + "[Band I]\n[Band I]\n",
                  "HDR_plot.INF, line 5: Band I stands already in line 4."},
        BadHeader{"BandAndImageDifferByCase", "[Capture]\n[Band nir]\n[Measurement M]\nImage NIR = a.png\n",
                  "HDR_plot.INF, line 2: Band nir and Image NIR (line 4) differ only by case."},
        BadHeader{"KeyTwice", "[Capture]\nName = a\nDate = b\nname = c\n" + good_end,
                  "HDR_plot.INF, line 4: Name stands already in line 2 of the same section."},
        BadHeader{"NumberTwice", "[Capture]\n[Measurement M]\nWhiteLevel = 1\nImage I = a.png\nWhiteLevel = 2\n",
                  "HDR_plot.INF, line 5: WhiteLevel stands already in line 3 of the same section."},
        BadHeader{"MisspeltKey", "[Capture]\nNmae = a\n" + good_end,
                  "HDR_plot.INF, line 2: the key \"Nmae\" in [Capture] is not known to this version (did you mean "
                  "\"Name\"?)."},
        BadHeader{"MisspeltImage", "[Capture]\n[Measurement M]\nImgae RED = a.png\n",
                  "HDR_plot.INF, line 3: the key \"Imgae RED\" in [Measurement M] is not known to this version (did "
                  "you mean \"Image NAME\"?)."},
        BadHeader{"KeyOfAnotherSection", "[Capture]\n" + good_end + "[Band I]\nWhiteLevel = 3\n",
                  "HDR_plot.INF, line 5: the key \"WhiteLevel\" in [Band I] is not known to this version."},
        BadHeader{
            "NameWithADot", "[Capture]\n[Measurement M]\nImage RED.1 = a.png\n",
            "HDR_plot.INF, line 3: the name \"RED.1\" holds one of . [ ], which names of measurements, images and "
            "bands cannot have."},
        BadHeader{"ControlCharacterInAName", "[Capture]\n[Measurement M\tN]\nImage RED = a.png\n",
                  "HDR_plot.INF, line 2: the name \"M?N\" holds a control character."},
        BadHeader{"ControlCharacterInAValue", "[Capture]\nName = a\x1B[31mb\n" + good_end,
                  "HDR_plot.INF, line 2: the value of \"Name\" holds a control character: \"a?[31mb\"."},
        BadHeader{"ScaleZero", "[Capture]\nMillimetresPerPixel = 0\n" + good_end,
                  "HDR_plot.INF, line 2: MillimetresPerPixel must be a number above 0 such as 0.25, not \"0\"."},
        BadHeader{"ScaleWithComma", "[Capture]\nMillimetresPerPixel = 0,21\n" + good_end,
                  "HDR_plot.INF, line 2: MillimetresPerPixel must be a number above 0 such as 0.25, not \"0,21\"."},
        BadHeader{"WhiteNegative", "[Capture]\nWhiteLevel = -4095\n" + good_end,
                  "HDR_plot.INF, line 2: WhiteLevel must be a number above 0 such as 0.25, not \"-4095\"."},
        BadHeader{"WhiteInfinite", "[Capture]\n[Measurement M]\nWhiteLevel = inf\nImage I = a.png\n",
                  "HDR_plot.INF, line 3: WhiteLevel must be a number above 0 such as 0.25, not \"inf\"."},
        BadHeader{"WhiteNaN", "[Capture]\nWhiteLevel = nan\n" + good_end,
                  "HDR_plot.INF, line 2: WhiteLevel must be a number above 0 such as 0.25, not \"nan\"."},
        BadHeader{"WhiteTooLarge", "[Capture]\nWhiteLevel = 1e999\n" + good_end,
                  "HDR_plot.INF, line 2: WhiteLevel must be a number above 0 such as 0.25, not \"1e999\"."},
        BadHeader{"CentreWithUnit", "[Capture]\n" + good_end + "[Band I]\nCentreNm = 842 nm\n",
                  "HDR_plot.INF, line 5: CentreNm must be a number above 0 such as 0.25, not \"842 nm\"."},
        BadHeader{"WidthEmpty", "[Capture]\n" + good_end + "[Band I]\nWidthNm =\n",
                  "HDR_plot.INF, line 5: WidthNm must be a number above 0 such as 0.25, not \"\"."}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(CaptureHeaderFile, ReferencesAreNumbersOrFiles) {
  const auto header = parse_capture_header(
      "[Capture]\nReferenceFile = calibration/all.inf\n[Measurement MSP]\nImage NIR = a.tif\n"
      "[Reference MSP]\nWhite = 250, 245,240\nReflectance = 0.98\n[Reference MSP.NIR]\nDark = dark, cold.tif[2]\n",
      "HDR_plot.INF");
  EXPECT_EQ(header.reference_file, "calibration/all.inf");
  EXPECT_EQ(header.reference_file_line, 2);
  ASSERT_EQ(header.references.size(), 2u);
  EXPECT_EQ(header.references[0].name(), "MSP");
  EXPECT_EQ(header.references[0].line, 5);
  EXPECT_EQ(header.references[0].white->constants, (std::vector<double>{250, 245, 240}));
  EXPECT_EQ(header.references[0].white->line, 6);
  EXPECT_FALSE(header.references[0].dark.has_value());
  EXPECT_EQ(header.references[0].reflectance, 0.98);
  EXPECT_EQ(header.references[1].name(), "MSP.NIR");
  EXPECT_EQ(header.references[1].image, "NIR");
  EXPECT_TRUE(header.references[1].dark->constants.empty());
  EXPECT_EQ(header.references[1].dark->file, "dark, cold.tif[2]");
}

TEST(CaptureHeaderFile, AReferenceFileHoldsNothingElse) {
  EXPECT_EQ(parse_reference_file("; shared\n[reference MSP]\nDark = 64\n", "all.inf").size(), 1u);
  const auto refusal = [](const std::string& text) {
    try {
      static_cast<void>(parse_reference_file(text, "all.inf"));
    } catch (const std::runtime_error& error) {
      return std::string(error.what());
    }
    return std::string("(accepted)");
  };
  EXPECT_EQ(refusal("[Capture]\n"),
            "all.inf, line 1: the section \"[Capture]\" does not belong here: a reference file holds [Reference NAME] "
            "sections.");
  EXPECT_EQ(refusal("; nothing\n"), "all.inf: there is no [Reference NAME] section.");
}

TEST(CaptureHeaderFile, OneImageMoreThanTheLimitIsRefused) {
  std::string text = "[Capture]\n[Measurement M]\n";
  for (std::size_t i = 0; i < max_header_images; ++i) text += "Image I" + std::to_string(i) + " = a.png\n";
  EXPECT_EQ(parse_capture_header(text, "HDR_plot.INF").measurements.at(0).images.size(), max_header_images);
  EXPECT_EQ(sentence_for(text + "Image X = a.png\n"),
            "HDR_plot.INF, line 1003: a capture has at most 1000 images, and this is one more.");
}

TEST(CaptureHeaderFile, ALongNameIsCutBetweenCharacters) {
  // 59 letters and a two-byte one: the 60th byte is inside it.
  const std::string line = std::string(59, 'x') + "ü";
  EXPECT_EQ(sentence_for("[Capture]\n" + line + "\n"),
            "HDR_plot.INF, line 2: \"" + std::string(59, 'x') + "...\" is neither a [section] nor a \"key = value\".");
}

TEST(CaptureHeaderFile, ANameMadeOfAStemHasNoControlCharacters) {
  EXPECT_EQ(capture_name_of_stem("a\nb\x7F"), "a_b_");
  EXPECT_EQ(capture_name_of_stem("blüte"), "blüte");
  EXPECT_EQ(capture_name_of_stem("gr\xFCn"), "gr\xEF\xBF\xBDn");
}

/// The first block ```language of the manual's page.
std::string block_of_manual(const std::string& language) {
  const std::string page = test::read_all(test::source_folder() / "docs" / "captures.md");
  const std::string begin = "```" + language + "\n";
  const std::size_t from = page.find(begin) + begin.size();
  return page.substr(from, page.find("```", from) - from);
}

TEST(CaptureHeaderFile, TheManualsExampleIsRead) {
  const auto header = parse_capture_header(block_of_manual("ini"), "HDR_plot_0007.INF");
  EXPECT_EQ(header.capture.name, "plot_0007");
  ASSERT_EQ(header.measurements.size(), 2u);
  EXPECT_EQ(header.measurements[1].white_level, 4095);
  EXPECT_EQ(header.measurements[1].images.at(1).file, "bands/plot_0007.tif[4]");
  EXPECT_EQ(header.measurements[0].images.at(0).line, 9);  // as the manual's example of a sentence says
  EXPECT_EQ(header.bands.at("NIR").centre_nm, 842);
}

TEST(CaptureHeaderFile, TheManualsExampleOfAMistakeGetsTheSentenceOfTheManual) {
  std::string text = replaced(block_of_manual("ini"), "WhiteLevel", "WhiteLevl");
  EXPECT_EQ(sentence_for(text),
            "HDR_plot.INF, line 12: the key \"WhiteLevl\" in [Measurement MSP] is not known to this version (did you "
            "mean \"WhiteLevel\"?).");
}

}  // namespace
}  // namespace orvexa::model
