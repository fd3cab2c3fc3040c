#include "orvexa/model/entities/capture_loader.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "orvexa/common/files.h"
#include "orvexa/common/parallel.h"
#include "orvexa/common/text.h"
#include "orvexa/model/codecs/image_file.h"
#include "orvexa/model/entities/capture_header_file.h"
#include "orvexa/model/entities/capture_references.h"

namespace orvexa::model {

namespace {

using Path = std::filesystem::path;

std::string file_name_text(const Path& path) {
  return common::path_text(path.filename());
}

Path recorded_path(const Path& path) {
  return std::filesystem::absolute(path).lexically_normal();
}

/// A file and one of its pages.
struct PageName {
  Path file;
  std::optional<int> page;  ///< absent when the name has no `[N]`
};

/// "stack.tif[2]" as page 2 of "stack.tif"; any other name as it stands.
PageName split_page(const Path& path) {
  const std::string name = path.filename().string();
  const std::size_t bracket = name.rfind('[');
  if (bracket == std::string::npos || bracket == 0 || !name.ends_with(']')) return {path, std::nullopt};
  const char* first = name.data() + bracket + 1;
  const char* last = name.data() + name.size() - 1;
  int page = 0;
  const auto [end, problem] = std::from_chars(first, last, page);
  if (first == last || end != last || problem != std::errc() || page < 0) return {path, std::nullopt};
  return {path.parent_path() / name.substr(0, bracket), page};
}

/// The same, but a file that has this very name wins over the reading as a page.
PageName existing_file_or_page(const Path& path) {
  std::error_code ignored;
  if (std::filesystem::exists(path, ignored)) return {path, std::nullopt};
  return split_page(path);
}

bool is_header_file_name(const Path& path) {
  return common::to_lower_ascii(path.extension().string()) == ".inf";
}

// ---- captures that a header file describes

/// One picture that a header names, on its way into the capture.
struct HeaderPicture {
  std::string where;    ///< "HDR_plot.INF, line 9"
  std::string what;     ///< "Image NIR" or "White"
  std::string written;  ///< the file as it is named there
  PageName source;      ///< inside the header's folder, links resolved
  Path recorded;        ///< the same file as the header names it
  std::optional<ImageFile> file;
  std::string problem;

  [[noreturn]] void fail(const std::string& sentence) const { throw std::runtime_error(where + ": " + sentence); }
  [[nodiscard]] const Image& image() const { return file->image; }
  [[nodiscard]] std::string text() const { return what + " (" + written + ")"; }
};

std::string size_text(Shape shape) {
  return std::to_string(shape.width) + " x " + std::to_string(shape.height);
}

class HeaderLoader {
 public:
  explicit HeaderLoader(const Path& path)
      : _path(path), _name(file_name_text(path)), _written_folder(recorded_path(path).parent_path()) {}

  std::shared_ptr<CaptureSet> load() {
    const common::Bytes bytes = common::read_file(_path, max_header_bytes);
    const CaptureHeaderFile header = parse_capture_header(common::as_text(bytes), _name);
    _folder = std::filesystem::canonical(_written_folder);
    std::vector<SourceFile> sources{{recorded_path(_path), common::sha256_hex(bytes), bytes.size()}};
    const std::vector<ReferenceFile> reference_files = find_references(header, sources);
    const std::vector<ImageReferenceRequest> requests = reference_requests(header, reference_files);

    for (const auto& measurement : header.measurements) {
      for (const auto& line : measurement.images) {
        _pictures.push_back(find_picture(at(line.line), "Image " + line.name, line.file, {}));
      }
    }
    const std::size_t image_count = _pictures.size();
    for (const ImageReferenceRequest& request : requests) {
      for (const auto& [level, key] : {std::pair{&request.white, "White"}, std::pair{&request.dark, "Dark"}}) {
        if (*level && !(*level)->level->file.empty()) static_cast<void>(reference_picture(**level, key, image_count));
      }
    }
    read();
    expect_one_size();

    MeasurementMap measurements = make_measurements(header);
    for (const ImageReferenceRequest& request : requests)
      add_reference(request, image_count, *measurements.at(request.measurement));
    auto capture = std::make_shared<CaptureSet>(CaptureSet::Arguments{
        .name = header.capture.name,
        .header = std::make_shared<const CaptureHeader>(header.capture),
        .measurements = std::move(measurements),
        .bands = header.bands,
    });
    add_sources(sources);
    capture->sources = std::move(sources);
    return capture;
  }

 private:
  [[nodiscard]] std::string at(int line) const { return _name + ", line " + std::to_string(line); }
  [[noreturn]] void fail(int line, const std::string& what) const { throw std::runtime_error(at(line) + ": " + what); }

  /// The header's own sections, and those of the file that it names.
  std::vector<ReferenceFile> find_references(const CaptureHeaderFile& header, std::vector<SourceFile>& sources) const {
    std::vector<ReferenceFile> files{{.file_name = _name, .folder = {}, .sections = header.references}};
    if (header.reference_file.empty()) return files;
    const HeaderPicture file = find_picture(at(header.reference_file_line), "ReferenceFile", header.reference_file, {});
    if (file.source.page) file.fail("ReferenceFile = " + file.written + ": there is no such file.");
    const common::Bytes bytes = common::read_file(file.source.file, max_header_bytes);
    const std::string name = file_name_text(file.recorded);
    files.push_back({.file_name = name,
                     .folder = Path(header.reference_file).lexically_normal().parent_path(),
                     .sections = parse_reference_file(common::as_text(bytes), name)});
    sources.push_back({file.recorded, common::sha256_hex(bytes), bytes.size()});
    return files;
  }

  /// @param folder  that the written name is relative to, itself relative to the header's folder.
  HeaderPicture find_picture(const std::string& where, const std::string& what, const std::string& written,
                             const Path& folder) const {
    HeaderPicture picture{
        .where = where, .what = what, .written = written, .source = {}, .recorded = {}, .file = {}, .problem = {}};
    const std::string text = what + " = " + written;
    const std::string place = what.starts_with("Image") ? "images lie" : "it lies";
    if (Path(written).is_absolute()) picture.fail(text + " is an absolute path; " + place + " in the header's folder.");
    const Path relative = (folder / written).lexically_normal();
    if (!relative.empty() && *relative.begin() == "..") {
      picture.fail(text + " leaves the header's folder; " + place + " in it.");
    }
    const PageName named = existing_file_or_page(_written_folder / relative);
    std::error_code missing;
    const Path real = std::filesystem::canonical(named.file, missing);
    if (missing) picture.fail(text + ": there is no such file.");
    const auto [end_of_folder, rest] = std::mismatch(_folder.begin(), _folder.end(), real.begin(), real.end());
    if (end_of_folder != _folder.end()) {
      picture.fail(text + " leads out of the header's folder through a link; " + place + " in it.");
    }
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(real, ignored)) picture.fail(text + " is not a file with a picture.");
    picture.source = {real, named.page};
    picture.recorded = named.file;
    return picture;
  }

  /// The index of a reference's picture; one that several images share is found, and decoded, once.
  std::size_t reference_picture(const PlacedLevel& level, const std::string& key, std::size_t image_count) {
    HeaderPicture picture = find_picture(level.where, key, level.level->file, level.folder);
    const auto same = std::find_if(
        _pictures.begin() + static_cast<std::ptrdiff_t>(image_count), _pictures.end(), [&](const HeaderPicture& other) {
          return other.source.file == picture.source.file && other.source.page == picture.source.page;
        });
    const auto index = static_cast<std::size_t>(same - _pictures.begin());
    if (same == _pictures.end()) _pictures.push_back(std::move(picture));
    return index;
  }

  /// Decodes side by side. Whatever the order in which threads meet problems, the first one of the header is reported:
  /// a picture is left out only when one before it has failed.
  void read() {
    std::atomic<std::size_t> first_failed = _pictures.size();
    common::parallel_for(_pictures.size(), [&](std::size_t i) {
      if (first_failed.load() < i) return;
      HeaderPicture& picture = _pictures[i];
      try {
        picture.file = read_image_file(picture.source.file, picture.source.page.value_or(0));
      } catch (const std::exception& error) {
        picture.problem = error.what();
        for (std::size_t known = first_failed.load(); i < known && !first_failed.compare_exchange_weak(known, i);) {
        }
      }
    });
    if (first_failed.load() < _pictures.size()) {
      const HeaderPicture& picture = _pictures[first_failed.load()];
      picture.fail(picture.what + ": " + picture.problem);
    }
  }

  void expect_one_size() const {
    const HeaderPicture& first = _pictures.front();
    const Shape expected = first.image().shape();
    for (const HeaderPicture& picture : _pictures) {
      const Shape shape = picture.image().shape();
      if (shape == expected) continue;
      picture.fail(picture.text() + " is " + size_text(shape) + " pixels, but " + first.text() + " is " +
                   size_text(expected) + "; all images of a capture have one size.");
    }
  }

  MeasurementMap make_measurements(const CaptureHeaderFile& header) const {
    MeasurementMap measurements;
    auto picture = _pictures.begin();
    for (const auto& section : header.measurements) {
      auto measurement = std::make_shared<BaseMeasurement>();
      bool holds_capture_level = header.capture.white_level.has_value();
      for (std::size_t i = 0; i < section.images.size(); ++i, ++picture) {
        const Image& pixels = picture->image();
        if (section.white_level && !can_hold(pixels, *section.white_level)) {
          fail(section.white_level_line, "WhiteLevel = " + common::number_text(*section.white_level) +
                                             " is more than Image " + section.images[i].name + " can hold: it is " +
                                             pixel_type_text(pixels.type()) + ".");
        }
        holds_capture_level = holds_capture_level && can_hold(pixels, *header.capture.white_level);
        measurement->images.insert_or_assign(section.images[i].name, pixels);
      }
      if (section.white_level) {
        measurement->declared_white_level = section.white_level;
      } else if (holds_capture_level) {
        // The 8-bit preview beside 12-bit bands has a white of its own: 4095 cannot be meant for it.
        measurement->declared_white_level = header.capture.white_level;
      }
      measurements.insert_or_assign(section.name, std::move(measurement));
    }
    return measurements;
  }

  static bool can_hold(const Image& image, double level) {
    return image.type() == PixelType::f32 || level <= image.type_white_level();
  }

  void add_reference(const ImageReferenceRequest& request, std::size_t image_count, BaseMeasurement& measurement) {
    const Image& image = measurement.images.at(request.image).base();
    Reference reference{.white = {}, .dark = {}, .reflectance = request.reflectance};
    if (request.dark) reference.dark = level_for(*request.dark, "Dark", image, request, image_count);
    if (request.white) {
      reference.white = level_for(*request.white, "White", image, request, image_count);
    } else if (measurement.declared_white_level) {
      reference.white.constants = {*measurement.declared_white_level};
    } else {
      throw std::runtime_error(request.where + " has no White, and no WhiteLevel is declared that could stand for it.");
    }
    expect_range(reference, request);
    measurement.references.insert_or_assign(request.image, std::make_shared<const Reference>(std::move(reference)));
  }

  ReferenceLevel level_for(const PlacedLevel& placed, const std::string& key, const Image& image,
                           const ImageReferenceRequest& request, std::size_t image_count) {
    const std::string of_image = "Image " + request.image + " of " + request.measurement;
    const ReferenceSection::Level& level = *placed.level;
    if (level.file.empty()) {
      if (level.constants.size() > 1 && !image.is_color()) {
        throw std::runtime_error(placed.where + ": " + key + " has three numbers, but " + of_image +
                                 " has one channel.");
      }
      return {.constants = level.constants};
    }
    const HeaderPicture& picture = _pictures[reference_picture(placed, key, image_count)];
    const Image& pixels = picture.image();
    const std::string text = placed.where + ": " + key + " (" + level.file + ") ";
    if (pixels.is_color() && !image.is_color()) {
      throw std::runtime_error(text + "is a colour picture, but " + of_image + " has one channel.");
    }
    if (pixels.type() != image.type() && pixels.type() != PixelType::f32) {
      throw std::runtime_error(text + "is " + pixel_type_text(pixels.type()) + ", but " + of_image + " is " +
                               pixel_type_text(image.type()) +
                               "; a reference has the image's own counts, or is 32-bit float.");
    }
    return {.picture = pixels,
            .file = SourceFile{picture.recorded, picture.file->sha256, picture.file->bytes, picture.source.page}};
  }

  /// Constants that leave no range would make every pixel invalid, which nobody can mean.
  static void expect_range(const Reference& reference, const ImageReferenceRequest& request) {
    if (reference.white.picture || reference.dark.picture) return;
    const auto& white = reference.white.constants;
    const auto& dark = reference.dark.constants;
    for (std::size_t i = 0; i < std::max(white.size(), dark.size()); ++i) {
      const double bright = white[std::min(i, white.size() - 1)];
      const double black = dark[std::min(i, dark.size() - 1)];
      if (bright > black) continue;
      throw std::runtime_error(request.where + ": white (" + common::number_text(bright) + ") is not above dark (" +
                               common::number_text(black) + ").");
    }
  }

  void add_sources(std::vector<SourceFile>& sources) const {
    for (const HeaderPicture& picture : _pictures) {
      const auto known = std::find_if(sources.begin() + 1, sources.end(),
                                      [&](const SourceFile& source) { return source.path == picture.recorded; });
      if (known == sources.end()) {
        sources.push_back({picture.recorded, picture.file->sha256, picture.file->bytes});
      } else if (known->sha256 != picture.file->sha256) {
        picture.fail(picture.what + ": " + file_name_text(picture.recorded) + " changed while it was read.");
      }
    }
  }

  const Path& _path;
  std::string _name;
  Path _written_folder;                  ///< of the header, as it was named
  Path _folder;                          ///< the same, links resolved
  std::vector<HeaderPicture> _pictures;  ///< the capture's images in their order, then those of references
};

std::shared_ptr<CaptureSet> load_capture(const Path& path) {
  std::error_code unreadable;
  const auto status = std::filesystem::status(path, unreadable);
  if (const PageName named = split_page(path); named.page && is_image_file_name(named.file)) {
    return load_capture_from_image(path);
  }
  const std::string name = file_name_text(path);
  if (status.type() == std::filesystem::file_type::not_found) {
    throw std::runtime_error(name + ": there is no such file.");
  }
  if (std::filesystem::is_directory(status)) {
    throw std::runtime_error(common::path_text(path) +
                             ": this is a folder; a capture is an HDR_*.INF file or an image file.");
  }
  if (!is_header_file_name(path)) {
    throw std::runtime_error(name +
                             ": this is neither a capture header (HDR_*.INF) nor an image file (.png, .jpg, .jpeg, "
                             ".tif, .tiff, .bmp, .gif).");
  }
  if (!std::filesystem::is_regular_file(status))
    throw std::runtime_error(name + ": this is not a file that can be read.");
  return HeaderLoader(path).load();
}

}  // namespace

CaptureLoader get_default_capture_loader() {
  return load_capture;
}

std::shared_ptr<CaptureSet> load_capture_from_image(const Path& path) {
  const PageName named = existing_file_or_page(path);
  const ImageFile file = read_image_file(named.file, named.page.value_or(0));
  const bool is_color = file.image.is_color();

  auto measurement = std::make_shared<BaseMeasurement>();
  measurement->images.insert_or_assign(is_color ? "RGB" : "GRY", file.image);
  MeasurementMap measurements;
  measurements.insert_or_assign(is_color ? "CLR" : "GRY", std::move(measurement));

  std::string name = capture_name_of_stem(named.file.stem().string());
  if (named.page) name += "_page_" + std::to_string(*named.page);
  auto capture = std::make_shared<CaptureSet>(CaptureSet::Arguments{
      .name = std::move(name), .header = nullptr, .measurements = std::move(measurements), .bands = {}});
  capture->sources.push_back({recorded_path(named.file), file.sha256, file.bytes, named.page});
  return capture;
}

Path file_of_image_name(const Path& path) {
  return existing_file_or_page(path).file;
}

bool is_image_file_name(const Path& path) {
  constexpr std::array suffixes{".jpg", ".jpeg", ".png", ".tif", ".tiff", ".bmp", ".gif"};
  const std::string suffix = common::to_lower_ascii(path.extension().string());
  return std::find(suffixes.begin(), suffixes.end(), suffix) != suffixes.end();
}

}  // namespace orvexa::model
