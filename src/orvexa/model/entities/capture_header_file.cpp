#include "orvexa/model/entities/capture_header_file.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <utility>

#include "orvexa/common/text.h"

namespace orvexa::model {

namespace {

using common::to_lower_ascii;
using common::trimmed;

bool is_control(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

/// What was found, fit for a sentence: in quotes, control characters as '?', cut after 60 bytes.
std::string quoted(std::string_view text) {
  constexpr std::size_t longest = 60;
  const bool is_cut = text.size() > longest;
  if (is_cut) {
    std::size_t end = longest;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;  // not inside a character
    text = text.substr(0, end);
  }
  std::string shown = common::to_valid_utf8(text);
  std::replace_if(shown.begin(), shown.end(), is_control, '?');
  return '"' + shown + (is_cut ? "...\"" : "\"");
}

/// Keyword and the rest of a section or key: "Image NIR" -> ("Image", "NIR").
std::pair<std::string_view, std::string_view> split_keyword(std::string_view text) {
  const std::size_t blank = text.find_first_of(" \t");
  if (blank == std::string_view::npos) return {text, {}};
  return {text.substr(0, blank), trimmed(text.substr(blank))};
}

bool is_keyword(std::string_view text, std::string_view keyword) {
  return to_lower_ascii(text) == to_lower_ascii(keyword);
}

/// ` (did you mean "Image NAME"?)` or nothing, without regard to case. `tail` follows the suggestion.
std::string suggestion(std::string_view wanted, std::span<const std::string> keywords) {
  std::vector<std::string> lower;
  for (const std::string& keyword : keywords) lower.push_back(to_lower_ascii(split_keyword(keyword).first));
  const auto near = common::nearest_name(to_lower_ascii(wanted), lower);
  if (!near) return {};
  const auto position = std::find(lower.begin(), lower.end(), *near) - lower.begin();
  return " (did you mean \"" + keywords[static_cast<std::size_t>(position)] + "\"?)";
}

const std::vector<std::string> section_forms{"Capture", "Measurement NAME", "Band NAME", "Reference NAME"};
const std::vector<std::string> capture_keys{"Name",       "Date",         "Time", "Camera", "MillimetresPerPixel",
                                            "WhiteLevel", "ReferenceFile"};
const std::vector<std::string> measurement_keys{"Image NAME", "WhiteLevel"};
const std::vector<std::string> band_keys{"CentreNm", "WidthNm"};
const std::vector<std::string> reference_keys{"White", "Dark", "Reflectance"};

/// "4000" or "250, 245, 240" as numbers; nothing when a part is none, as in the name of a file.
std::optional<std::vector<double>> numbers_of(std::string_view value) {
  std::vector<double> numbers;
  for (std::size_t begin = 0; begin <= value.size();) {
    const std::size_t end = std::min(value.find(',', begin), value.size());
    const std::string_view part = trimmed(value.substr(begin, end - begin));
    double number = 0;
    const auto [last, problem] = std::from_chars(part.data(), part.data() + part.size(), number);
    if (problem != std::errc() || last != part.data() + part.size()) return std::nullopt;
    numbers.push_back(number);
    begin = end + 1;
  }
  return numbers;
}

class Parser {
 public:
  explicit Parser(const std::string& file_name) : _file_name(file_name) {}

  CaptureHeaderFile parse(std::string_view text) {
    read_lines(text);
    check_whole();
    return std::move(_result);
  }

  std::vector<ReferenceSection> parse_references(std::string_view text) {
    _is_reference_file = true;
    read_lines(text);
    if (_result.references.empty()) fail_as_a_whole("there is no [Reference NAME] section.");
    return std::move(_result.references);
  }

 private:
  enum class Section { none, capture, measurement, band, reference };
  struct Seen {
    std::string name;
    int line = 0;
  };
  /// Names met so far by their lower-case form.
  using SeenNames = common::OrderedMap<Seen>;

  void read_lines(std::string_view text) {
    check_encoding(text);
    constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
    if (text.starts_with(byte_order_mark)) text.remove_prefix(byte_order_mark.size());
    while (!text.empty()) {
      const std::size_t end = text.find('\n');
      std::string_view line = text.substr(0, end);
      text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
      if (line.ends_with('\r')) line.remove_suffix(1);
      ++_line;
      read_line(trimmed(line));
    }
  }

  [[noreturn]] void fail(const std::string& what) const { fail_at(_line, what); }
  [[noreturn]] void fail_at(int line, const std::string& what) const {
    throw std::runtime_error(_file_name + ", line " + std::to_string(line) + ": " + what);
  }
  [[noreturn]] void fail_as_a_whole(const std::string& what) const {
    throw std::runtime_error(_file_name + ": " + what);
  }

  void check_encoding(std::string_view text) const {
    if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF")) {
      fail_as_a_whole("this is UTF-16 text; a capture header is saved as UTF-8.");
    }
    if (text.find('\0') != std::string_view::npos) fail_as_a_whole("this is not a text file, so not a capture header.");
    if (common::is_valid_utf8(text)) return;
    int line = 1;
    for (std::string_view rest = text; !rest.empty(); ++line) {
      const std::size_t end = rest.find('\n');
      if (!common::is_valid_utf8(rest.substr(0, end))) break;
      if (end == std::string_view::npos) break;
      rest.remove_prefix(end + 1);
    }
    fail_at(line, "the text is not UTF-8; save the file as UTF-8.");
  }

  void read_line(std::string_view line) {
    if (line.empty() || line.front() == ';' || line.front() == '#') return;
    if (line.front() == '[') {
      begin_section(line);
      return;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
      fail(quoted(line) + " is neither a [section] nor a \"key = value\".");
    }
    const std::string_view key = trimmed(line.substr(0, equals));
    const std::string_view value = trimmed(line.substr(equals + 1));
    if (key.empty()) fail(quoted(line) + " has no key before the \"=\".");
    if (std::any_of(value.begin(), value.end(), is_control)) {
      fail("the value of " + quoted(key) + " holds a control character: " + quoted(value) + ".");
    }
    read_key(key, value);
  }

  void begin_section(std::string_view line) {
    if (line.back() != ']') fail("the section " + quoted(line) + " does not end in \"]\".");
    const std::string_view inside = trimmed(line.substr(1, line.size() - 2));
    const auto [keyword, name] = split_keyword(inside);
    _keys.clear();
    _image_names.clear();
    if (is_keyword(keyword, "Reference")) {
      begin_reference(name);
    } else if (_is_reference_file) {
      fail("the section " + quoted(line) + " does not belong here: a reference file holds [Reference NAME] sections" +
           suggestion(keyword, std::vector<std::string>{"Reference NAME"}) + ".");
    } else if (is_keyword(keyword, "Capture")) {
      if (!name.empty()) fail("the section [Capture] takes no name, but here it has " + quoted(name) + ".");
      if (_capture_line != 0)
        fail("the section [Capture] stands already in line " + std::to_string(_capture_line) + ".");
      _capture_line = _line;
      _section = Section::capture;
      _section_text = "[Capture]";
    } else if (is_keyword(keyword, "Measurement")) {
      remember("Measurement", name, _measurement_names);
      _result.measurements.push_back({.name = std::string(name), .line = _line, .white_level = {}, .images = {}});
      _section = Section::measurement;
      _section_text = "[Measurement " + std::string(name) + "]";
    } else if (is_keyword(keyword, "Band")) {
      remember("Band", name, _band_names);
      _result.bands.insert_or_assign(std::string(name), BandInfo{});
      _section = Section::band;
      _section_text = "[Band " + std::string(name) + "]";
    } else {
      fail("the section " + quoted(line) + " is not known to this version" + suggestion(keyword, section_forms) + ".");
    }
  }

  void begin_reference(std::string_view name) {
    if (name.empty()) fail("Reference needs a name, for example [Reference MSP] or [Reference MSP.NIR].");
    const std::size_t dot = std::min(name.find('.'), name.size());
    const std::string_view measurement = name.substr(0, dot);
    const std::string_view image = name.substr(std::min(dot + 1, name.size()));
    if (measurement.empty() || (dot < name.size() && image.empty())) {
      fail("[Reference " + std::string(name) + "] names no measurement and image, such as [Reference MSP.NIR].");
    }
    for (const std::string_view part : {measurement, image}) expect_plain_name(part);
    remember_new("Reference", name, _reference_names);
    _result.references.push_back({.measurement = std::string(measurement),
                                  .image = std::string(image),
                                  .line = _line,
                                  .white = {},
                                  .dark = {},
                                  .reflectance = {}});
    _section = Section::reference;
    _section_text = "[Reference " + std::string(name) + "]";
  }

  void expect_plain_name(std::string_view name) const {
    if (std::any_of(name.begin(), name.end(), is_control)) {
      fail("the name " + quoted(name) + " holds a control character.");
    }
    if (name.find_first_of(".[]") != std::string_view::npos) {
      fail("the name " + quoted(name) +
           " holds one of . [ ], which names of measurements, images and bands cannot have.");
    }
  }

  /// Checks a name as written and refuses it when it was met before, also in other letters.
  void remember(const std::string& keyword, std::string_view name, SeenNames& seen) const {
    if (name.empty()) fail(keyword + " needs a name, for example " + example_of(keyword) + ".");
    expect_plain_name(name);
    remember_new(keyword, name, seen);
  }

  void remember_new(const std::string& keyword, std::string_view name, SeenNames& seen) const {
    const auto [found, is_new] = seen.insert({to_lower_ascii(name), {std::string(name), _line}});
    if (is_new) return;
    const Seen& first = found->second;
    const std::string where = "line " + std::to_string(first.line);
    if (first.name == name) fail(keyword + " " + std::string(name) + " stands already in " + where + ".");
    fail(keyword + " " + std::string(name) + " and " + keyword + " " + first.name + " (" + where +
         ") differ only by case.");
  }

  static std::string example_of(const std::string& keyword) {
    if (keyword == "Image") return "\"Image RGB = photo.png\"";
    return keyword == "Band" ? "[Band NIR]" : "[Measurement CLR]";
  }

  void read_key(std::string_view key, std::string_view value) {
    switch (_section) {
      case Section::none:
        fail("the key " + quoted(key) + " stands before the first section.");
      case Section::capture:
        read_capture_key(key, value);
        return;
      case Section::measurement:
        read_measurement_key(key, value);
        return;
      case Section::band:
        read_band_key(key, value);
        return;
      case Section::reference:
        read_reference_key(key, value);
        return;
    }
  }

  void read_capture_key(std::string_view key, std::string_view value) {
    CaptureHeader& capture = _result.capture;
    for (const auto& [keyword, text] : {std::pair{"Name", &capture.name}, std::pair{"Date", &capture.date},
                                        std::pair{"Time", &capture.time}, std::pair{"Camera", &capture.camera}}) {
      if (!is_keyword(key, keyword)) continue;
      expect_first(keyword);
      *text = value;
      return;
    }
    if (is_keyword(key, "MillimetresPerPixel")) {
      capture.millimetres_per_pixel = positive_number("MillimetresPerPixel", value);
    } else if (is_keyword(key, "WhiteLevel")) {
      capture.white_level = positive_number("WhiteLevel", value);
    } else if (is_keyword(key, "ReferenceFile")) {
      expect_first("ReferenceFile");
      if (value.empty()) fail("ReferenceFile names no file.");
      _result.reference_file = value;
      _result.reference_file_line = _line;
    } else {
      refuse_key(key, capture_keys);
    }
  }

  void read_measurement_key(std::string_view key, std::string_view value) {
    CaptureHeaderFile::MeasurementSection& measurement = _result.measurements.back();
    const auto [keyword, name] = split_keyword(key);
    if (is_keyword(keyword, "Image")) {
      remember("Image", name, _image_names);
      if (value.empty()) fail("Image " + std::string(name) + " names no file.");
      count_image();
      measurement.images.push_back({std::string(name), std::string(value), _line});
    } else if (is_keyword(key, "WhiteLevel")) {
      measurement.white_level = positive_number("WhiteLevel", value);
      measurement.white_level_line = _line;
    } else {
      refuse_key(key, measurement_keys);
    }
  }

  void read_band_key(std::string_view key, std::string_view value) {
    BandInfo& band = (_result.bands.end() - 1).value();
    if (is_keyword(key, "CentreNm")) {
      band.centre_nm = positive_number("CentreNm", value);
    } else if (is_keyword(key, "WidthNm")) {
      band.width_nm = positive_number("WidthNm", value);
    } else {
      refuse_key(key, band_keys);
    }
  }

  void read_reference_key(std::string_view key, std::string_view value) {
    ReferenceSection& reference = _result.references.back();
    if (is_keyword(key, "White")) {
      reference.white = reference_level("White", value);
    } else if (is_keyword(key, "Dark")) {
      reference.dark = reference_level("Dark", value);
    } else if (is_keyword(key, "Reflectance")) {
      reference.reflectance = positive_number("Reflectance", value);
      reference.reflectance_line = _line;
    } else {
      refuse_key(key, reference_keys);
    }
  }

  ReferenceSection::Level reference_level(const std::string& keyword, std::string_view value) {
    expect_first(keyword);
    if (value.empty()) fail(keyword + " names no file and is no number.");
    ReferenceSection::Level level{.constants = {}, .file = {}, .line = _line};
    if (auto numbers = numbers_of(value)) {
      const bool is_fit = (numbers->size() == 1 || numbers->size() == 3) &&
                          std::all_of(numbers->begin(), numbers->end(), [](double n) { return std::isfinite(n); });
      if (!is_fit) fail(keyword + " must be a file, one number, or three for R, G, B, not " + quoted(value) + ".");
      level.constants = *std::move(numbers);
    } else {
      count_image();
      level.file = value;
    }
    return level;
  }

  void count_image() {
    if (++_image_count > max_header_images) {
      fail("a capture has at most " + std::to_string(max_header_images) + " images, and this is one more.");
    }
  }

  [[noreturn]] void refuse_key(std::string_view key, std::span<const std::string> known) const {
    fail("the key " + quoted(key) + " in " + _section_text + " is not known to this version" +
         suggestion(split_keyword(key).first, known) + ".");
  }

  void expect_first(const std::string& keyword) {
    const auto [found, is_new] = _keys.insert({keyword, _line});
    if (!is_new) {
      fail(keyword + " stands already in line " + std::to_string(found->second) + " of the same section.");
    }
  }

  double positive_number(const std::string& keyword, std::string_view value) {
    expect_first(keyword);
    double number = 0;
    const auto [end, problem] = std::from_chars(value.data(), value.data() + value.size(), number);
    const bool is_number = problem == std::errc() && end == value.data() + value.size();
    if (!is_number || !std::isfinite(number) || number <= 0) {
      fail(keyword + " must be a number above 0 such as 0.25, not " + quoted(value) + ".");
    }
    return number;
  }

  void check_whole() {
    if (_capture_line == 0) fail_as_a_whole("the section [Capture] is missing.");
    if (_result.measurements.empty()) fail_as_a_whole("there is no [Measurement NAME] section, so no image.");
    for (const auto& measurement : _result.measurements) {
      if (measurement.images.empty()) {
        fail_at(measurement.line, "[Measurement " + measurement.name + "] has no \"Image NAME = file\" line.");
      }
      // A band is found by the name of its image, so other letters would silently lose its wavelength.
      for (const auto& image : measurement.images) {
        const auto band = _band_names.find(to_lower_ascii(image.name));
        if (band != _band_names.end() && band->second.name != image.name) {
          fail_at(band->second.line, "Band " + band->second.name + " and Image " + image.name + " (line " +
                                         std::to_string(image.line) + ") differ only by case.");
        }
      }
    }
    if (_result.capture.name.empty()) _result.capture.name = default_name();
  }

  std::string default_name() const {
    const std::string stem = std::filesystem::path(_file_name).stem().string();
    const bool has_prefix = stem.size() > 4 && to_lower_ascii(stem.substr(0, 4)) == "hdr_";
    return capture_name_of_stem(has_prefix ? stem.substr(4) : stem);
  }

  const std::string& _file_name;
  bool _is_reference_file = false;
  int _line = 0;
  Section _section = Section::none;
  std::string _section_text;
  int _capture_line = 0;
  std::size_t _image_count = 0;
  SeenNames _measurement_names;
  SeenNames _band_names;
  SeenNames _reference_names;
  SeenNames _image_names;         ///< of the current section
  common::OrderedMap<int> _keys;  ///< of the current section, to their lines
  CaptureHeaderFile _result;
};

}  // namespace

CaptureHeaderFile parse_capture_header(std::string_view text, const std::string& file_name) {
  return Parser(file_name).parse(text);
}

std::vector<ReferenceSection> parse_reference_file(std::string_view text, const std::string& file_name) {
  return Parser(file_name).parse_references(text);
}

std::string capture_name_of_stem(std::string_view stem) {
  std::string name = common::to_valid_utf8(stem);
  std::replace_if(name.begin(), name.end(), is_control, '_');
  return name;
}

}  // namespace orvexa::model
