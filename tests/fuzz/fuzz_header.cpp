// Any bytes as a capture header: refused with a sentence, or read to a header that keeps its promises and is read back
// the same from its plainest spelling.
#include <cmath>
#include <set>
#include <string>

#include "expect.h"
#include "orvexa/model/entities/capture_header_file.h"

namespace {

using orvexa::model::CaptureHeaderFile;
using orvexa::model::ReferenceSection;
using orvexa::test::expect;

bool has_control_character(const std::string& text) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) return true;
  }
  return false;
}

void expect_good_name(const std::string& name, std::set<std::string>& names) {
  expect(!name.empty() && !has_control_character(name), "a name is a word without control characters");
  expect(names.insert(orvexa::common::to_lower_ascii(name)).second, "no two names differ only by case");
}

void expect_good_number(const std::optional<double>& number) {
  expect(!number || (std::isfinite(*number) && *number > 0), "a number is finite and above 0");
}

std::string line(const std::string& key, const std::optional<double>& number) {
  return number ? key + " = " + orvexa::common::number_text(*number) + "\n" : "";
}

std::string line(const std::string& key, const std::optional<ReferenceSection::Level>& level) {
  if (!level) return "";
  std::string text = level->file;
  for (const double number : level->constants) {
    text += (text.empty() ? "" : ", ") + orvexa::common::number_text(number);
  }
  return key + " = " + text + "\n";
}

std::string plainest_spelling(const std::vector<ReferenceSection>& references) {
  std::string text;
  for (const auto& reference : references) {
    text += "[Reference " + reference.name() + "]\n" + line("White", reference.white) + line("Dark", reference.dark) +
            line("Reflectance", reference.reflectance);
  }
  return text;
}

std::string plainest_spelling(const CaptureHeaderFile& header) {
  const auto& capture = header.capture;
  std::string text = "[Capture]\nName = " + capture.name + "\nDate = " + capture.date + "\nTime = " + capture.time +
                     "\nCamera = " + capture.camera + "\n" +
                     line("MillimetresPerPixel", capture.millimetres_per_pixel) +
                     line("WhiteLevel", capture.white_level);
  if (!header.reference_file.empty()) text += "ReferenceFile = " + header.reference_file + "\n";
  for (const auto& measurement : header.measurements) {
    text += "[Measurement " + measurement.name + "]\n" + line("WhiteLevel", measurement.white_level);
    for (const auto& image : measurement.images) text += "Image " + image.name + " = " + image.file + "\n";
  }
  for (const auto& [name, band] : header.bands) {
    text += "[Band " + name + "]\n" + line("CentreNm", band.centre_nm) + line("WidthNm", band.width_nm);
  }
  return text + plainest_spelling(header.references);
}

void expect_promises(const std::vector<ReferenceSection>& references) {
  std::set<std::string> names;
  for (const auto& reference : references) {
    expect_good_name(reference.name(), names);
    expect(!reference.measurement.empty(), "a reference belongs to a measurement");
    expect_good_number(reference.reflectance);
    for (const auto* level : {&reference.white, &reference.dark}) {
      if (!*level) continue;
      const auto& constants = (*level)->constants;
      expect((*level)->file.empty() != constants.empty(), "a level is a file or numbers");
      expect(constants.empty() || constants.size() == 1 || constants.size() == 3, "one number or three");
      for (const double number : constants) expect(std::isfinite(number), "a count is finite");
    }
  }
}

void expect_promises(const CaptureHeaderFile& header) {
  expect_promises(header.references);
  expect(!has_control_character(header.reference_file), "a file's name has no control character");
  expect(!header.capture.name.empty() && !has_control_character(header.capture.name), "a capture has a name");
  expect_good_number(header.capture.millimetres_per_pixel);
  expect_good_number(header.capture.white_level);
  expect(!header.measurements.empty(), "a capture has a measurement");
  std::set<std::string> measurements;
  for (const auto& measurement : header.measurements) {
    expect_good_name(measurement.name, measurements);
    expect_good_number(measurement.white_level);
    expect(!measurement.images.empty(), "a measurement has an image");
    std::set<std::string> images;
    for (const auto& image : measurement.images) {
      expect_good_name(image.name, images);
      expect(!image.file.empty() && !has_control_character(image.file), "an image names a file");
    }
  }
  std::set<std::string> bands;
  for (const auto& [name, band] : header.bands) {
    expect_good_name(name, bands);
    expect_good_number(band.centre_nm);
    expect_good_number(band.width_nm);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvexa;
  try {
    const auto header = model::parse_capture_header(test::text_of(data, size), "input.INF");
    expect_promises(header);
    const std::string written = plainest_spelling(header);
    const auto again = model::parse_capture_header(written, "written.INF");
    expect(plainest_spelling(again) == written, "the plainest spelling is read back the same");
    if (!header.references.empty()) {
      const std::string references = plainest_spelling(header.references);
      const auto read = model::parse_reference_file(references, "references.inf");
      expect(plainest_spelling(read) == references, "a reference file is read by the same rules");
    }
  } catch (const std::runtime_error& failure) {
    const std::string_view sentence = failure.what();
    expect(sentence.starts_with("input.INF"), "a refusal begins with the header's name");
    expect(sentence.ends_with('.'), "a refusal is a sentence");
    expect(common::is_valid_utf8(sentence) && !has_control_character(std::string(sentence)),
           "a refusal is one line of UTF-8");
  }
  return 0;
}
