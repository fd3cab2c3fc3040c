#include "orvexa/model/entities/capture_files.h"

#include <algorithm>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "orvexa/common/files.h"
#include "orvexa/common/text.h"
#include "orvexa/model/entities/capture_header_file.h"
#include "orvexa/model/entities/capture_loader.h"

namespace orvexa::model {

namespace {

using Path = std::filesystem::path;

/// Collects file names relative to the header's folder; false when one leaves it.
class NamedFiles {
 public:
  bool add(const Path& folder, const std::string& name) {
    if (name.empty()) return true;
    const Path relative = (folder / name).lexically_normal();
    if (relative.is_absolute() || relative.empty() || *relative.begin() == "..") return false;
    files.push_back(relative.string());
    return true;
  }
  bool add(const Path& folder, const std::vector<ReferenceSection>& references) {
    for (const ReferenceSection& reference : references) {
      for (const auto* level : {&reference.white, &reference.dark}) {
        if (*level && !add(folder, (*level)->file)) return false;
      }
    }
    return true;
  }
  std::vector<std::string> files = {};
};

bool is_file(const Path& path) {
  std::error_code unknown;
  return std::filesystem::is_regular_file(path, unknown);
}

std::string header_text(const Path& file) {
  return common::read_text_file(file, max_header_bytes);
}

bool is_header(const Path& path) {
  return common::to_lower_ascii(path.extension().string()) == ".inf";
}

}  // namespace

std::vector<std::string> files_named_by(const Path& header) {
  if (!is_header(header)) return {};
  NamedFiles named;
  try {
    const auto parsed = parse_capture_header(header_text(header), common::path_text(header.filename()));
    for (const auto& measurement : parsed.measurements) {
      for (const auto& image : measurement.images) {
        if (!named.add({}, image.file)) return {};
      }
    }
    if (!named.add({}, parsed.references) || !named.add({}, parsed.reference_file)) return {};
    const Path references = header.parent_path() / parsed.reference_file;
    if (parsed.reference_file.empty() || !is_file(references)) return std::move(named.files);
    const Path folder = Path(parsed.reference_file).parent_path();
    const std::string name = common::path_text(references.filename());
    if (!named.add(folder, parse_reference_file(header_text(references), name))) return {};
  } catch (const std::runtime_error&) {
    return {};
  }
  return std::move(named.files);
}

std::vector<SourceFile> hashed_capture_files(const Path& capture) {
  std::vector<Path> files{file_of_image_name(capture)};
  if (is_header(capture)) {
    for (const std::string& name : files_named_by(capture)) {
      Path file = file_of_image_name(capture.parent_path() / name);
      if (std::find(files.begin(), files.end(), file) == files.end()) files.push_back(std::move(file));
    }
  }
  std::vector<SourceFile> hashed;
  hashed.reserve(files.size());
  for (const Path& file : files) {
    const common::Bytes bytes = common::read_file(file);
    hashed.push_back({file, common::sha256_hex(bytes), bytes.size()});
  }
  return hashed;
}

std::shared_ptr<CaptureSet> load_capture_file(const Path& path) {
  return is_header(path) ? get_default_capture_loader()(path) : load_capture_from_image(path);
}

}  // namespace orvexa::model
