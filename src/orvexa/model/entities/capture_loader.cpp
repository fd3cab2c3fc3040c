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

/// One image of a header on its way into the capture.
struct HeaderImage {
  const CaptureHeaderFile::ImageLine* line = nullptr;
  PageName source;  ///< inside the header's folder, links resolved
  Path recorded;    ///< the same file as the header names it
  std::optional<ImageFile> file;
  std::string problem;
};

class HeaderLoader {
 public:
  explicit HeaderLoader(const Path& path) : _path(path), _name(file_name_text(path)) {}

  std::shared_ptr<CaptureSet> load() {
    const common::Bytes bytes = common::read_file(_path, max_header_bytes);
    const CaptureHeaderFile header = parse_capture_header(common::as_text(bytes), _name);
    std::vector<HeaderImage> images = find_images(header);
    read(images);
    expect_one_size(images);

    auto capture = std::make_shared<CaptureSet>(CaptureSet::Arguments{
        .name = header.capture.name,
        .header = std::make_shared<const CaptureHeader>(header.capture),
        .measurements = make_measurements(header, images),
        .bands = header.bands,
    });
    capture->sources.push_back({recorded_path(_path), common::sha256_hex(bytes), bytes.size()});
    add_sources(images, capture->sources);
    return capture;
  }

 private:
  [[noreturn]] void fail(int line, const std::string& what) const {
    throw std::runtime_error(_name + ", line " + std::to_string(line) + ": " + what);
  }

  std::vector<HeaderImage> find_images(const CaptureHeaderFile& header) const {
    const Path written_folder = recorded_path(_path).parent_path();
    const Path folder = std::filesystem::canonical(written_folder);
    std::vector<HeaderImage> images;
    for (const auto& measurement : header.measurements) {
      for (const auto& line : measurement.images) images.push_back(find_image(line, written_folder, folder));
    }
    return images;
  }

  HeaderImage find_image(const CaptureHeaderFile::ImageLine& line, const Path& written_folder,
                         const Path& folder) const {
    const std::string what = "Image " + line.name + " = " + line.file;
    const Path relative = Path(line.file).lexically_normal();
    if (relative.is_absolute()) fail(line.line, what + " is an absolute path; images lie in the header's folder.");
    if (!relative.empty() && *relative.begin() == "..") {
      fail(line.line, what + " leaves the header's folder; images lie in it.");
    }
    const PageName named = existing_file_or_page(written_folder / relative);
    std::error_code missing;
    const Path real = std::filesystem::canonical(named.file, missing);
    if (missing) fail(line.line, what + ": there is no such file.");
    const auto [end_of_folder, rest] = std::mismatch(folder.begin(), folder.end(), real.begin(), real.end());
    if (end_of_folder != folder.end()) {
      fail(line.line, what + " leads out of the header's folder through a link; images lie in it.");
    }
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(real, ignored)) fail(line.line, what + " is not a file with a picture.");
    return {.line = &line, .source = {real, named.page}, .recorded = named.file, .file = {}, .problem = {}};
  }

  /// Decodes side by side. Whatever the order in which threads meet problems, the first one of the header is reported:
  /// an image is left out only when one before it has failed.
  void read(std::vector<HeaderImage>& images) const {
    std::atomic<std::size_t> first_failed = images.size();
    common::parallel_for(images.size(), [&](std::size_t i) {
      if (first_failed.load() < i) return;
      HeaderImage& image = images[i];
      try {
        image.file = read_image_file(image.source.file, image.source.page.value_or(0));
      } catch (const std::exception& error) {
        image.problem = error.what();
        for (std::size_t known = first_failed.load(); i < known && !first_failed.compare_exchange_weak(known, i);) {
        }
      }
    });
    if (first_failed.load() < images.size()) {
      const HeaderImage& image = images[first_failed.load()];
      fail(image.line->line, "Image " + image.line->name + ": " + image.problem);
    }
  }

  void expect_one_size(const std::vector<HeaderImage>& images) const {
    const HeaderImage& first = images.front();
    const Shape expected = first.file->image.shape();
    for (const HeaderImage& image : images) {
      const Shape shape = image.file->image.shape();
      if (shape == expected) continue;
      fail(image.line->line, "Image " + image.line->name + " (" + image.line->file + ") is " +
                                 std::to_string(shape.width) + " x " + std::to_string(shape.height) +
                                 " pixels, but Image " + first.line->name + " (" + first.line->file + ") is " +
                                 std::to_string(expected.width) + " x " + std::to_string(expected.height) +
                                 "; all images of a capture have one size.");
    }
  }

  MeasurementMap make_measurements(const CaptureHeaderFile& header, const std::vector<HeaderImage>& images) const {
    MeasurementMap measurements;
    auto image = images.begin();
    for (const auto& section : header.measurements) {
      auto measurement = std::make_shared<BaseMeasurement>();
      bool holds_capture_level = header.capture.white_level.has_value();
      for (std::size_t i = 0; i < section.images.size(); ++i, ++image) {
        const Image& pixels = image->file->image;
        if (section.white_level && !can_hold(pixels, *section.white_level)) {
          fail(section.white_level_line, "WhiteLevel = " + common::number_text(*section.white_level) +
                                             " is more than Image " + image->line->name + " can hold: it is " +
                                             pixel_type_text(pixels.type()) + ".");
        }
        holds_capture_level = holds_capture_level && can_hold(pixels, *header.capture.white_level);
        measurement->images.insert_or_assign(image->line->name, pixels);
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

  void add_sources(const std::vector<HeaderImage>& images, std::vector<SourceFile>& sources) const {
    for (const HeaderImage& image : images) {
      const auto known = std::find_if(sources.begin() + 1, sources.end(),
                                      [&](const SourceFile& source) { return source.path == image.recorded; });
      if (known == sources.end()) {
        sources.push_back({image.recorded, image.file->sha256, image.file->bytes});
      } else if (known->sha256 != image.file->sha256) {
        fail(image.line->line,
             "Image " + image.line->name + ": " + file_name_text(image.recorded) + " changed while it was read.");
      }
    }
  }

  const Path& _path;
  std::string _name;
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
