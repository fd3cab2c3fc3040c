#include "orvexa/model/entities/capture_references.h"

#include <algorithm>
#include <stdexcept>

#include "orvexa/common/text.h"

namespace orvexa::model {

namespace {

/// A section with the file that it stands in.
struct PlacedSection {
  const ReferenceFile* file = nullptr;
  const ReferenceSection* section = nullptr;

  [[nodiscard]] std::string at(int line) const { return file->file_name + ", line " + std::to_string(line); }
  [[nodiscard]] std::string where() const { return at(section->line) + ": [Reference " + section->name() + "]"; }
};

std::vector<PlacedSection> all_sections(const std::vector<ReferenceFile>& files) {
  std::vector<PlacedSection> all;
  for (const ReferenceFile& file : files) {
    for (const ReferenceSection& section : file.sections) {
      const auto same = std::find_if(
          all.begin(), all.end(), [&](const PlacedSection& other) { return other.section->name() == section.name(); });
      const PlacedSection placed{&file, &section};
      if (same != all.end()) {
        throw std::runtime_error(placed.where() + " stands already in " + same->at(same->section->line) + ".");
      }
      all.push_back(placed);
    }
  }
  return all;
}

std::vector<std::string> names_of(const auto& named) {
  std::vector<std::string> names;
  names.reserve(named.size());
  for (const auto& one : named) names.push_back(one.name);
  return names;
}

void expect_known(const PlacedSection& placed, const CaptureHeaderFile& header) {
  const ReferenceSection& section = *placed.section;
  const auto measurement = std::find_if(header.measurements.begin(), header.measurements.end(),
                                        [&](const auto& one) { return one.name == section.measurement; });
  if (measurement == header.measurements.end()) {
    throw std::runtime_error(placed.where() + ": the capture has no measurement " + section.measurement +
                             common::did_you_mean(section.measurement, names_of(header.measurements)) + ".");
  }
  if (section.image.empty()) return;
  const std::vector<std::string> images = names_of(measurement->images);
  if (std::find(images.begin(), images.end(), section.image) != images.end()) return;
  throw std::runtime_error(placed.where() + ": the measurement " + section.measurement + " has no image " +
                           section.image + common::did_you_mean(section.image, images) + ".");
}

std::optional<PlacedLevel> level_of(const PlacedSection& placed, const std::optional<ReferenceSection::Level>& level) {
  if (!level) return std::nullopt;
  return PlacedLevel{.level = &*level, .where = placed.at(level->line), .folder = placed.file->folder};
}

/// @param sections  of the image itself first, then of its measurement.
ImageReferenceRequest request_from(const std::vector<PlacedSection>& sections) {
  ImageReferenceRequest request;
  request.where = sections.front().where();
  const PlacedSection* reflectance = nullptr;
  for (const PlacedSection& placed : sections) {
    if (!request.white) request.white = level_of(placed, placed.section->white);
    if (!request.dark) request.dark = level_of(placed, placed.section->dark);
    if (reflectance == nullptr && placed.section->reflectance) reflectance = &placed;
  }
  if (!request.white && !request.dark) {
    throw std::runtime_error(request.where + " has neither White nor Dark.");
  }
  if (reflectance != nullptr) {
    if (!request.white) {
      throw std::runtime_error(reflectance->at(reflectance->section->reflectance_line) +
                               ": Reflectance is that of the white panel, but there is no White.");
    }
    request.reflectance = *reflectance->section->reflectance;
  }
  return request;
}

}  // namespace

std::vector<ImageReferenceRequest> reference_requests(const CaptureHeaderFile& header,
                                                      const std::vector<ReferenceFile>& files) {
  const std::vector<PlacedSection> all = all_sections(files);
  for (const PlacedSection& placed : all) expect_known(placed, header);
  std::vector<ImageReferenceRequest> requests;
  for (const auto& measurement : header.measurements) {
    for (const auto& image : measurement.images) {
      std::vector<PlacedSection> own;
      for (const std::string& wanted : {image.name, std::string()}) {
        for (const PlacedSection& placed : all) {
          if (placed.section->measurement == measurement.name && placed.section->image == wanted) own.push_back(placed);
        }
      }
      if (own.empty()) continue;
      requests.push_back(request_from(own));
      requests.back().measurement = measurement.name;
      requests.back().image = image.name;
    }
  }
  return requests;
}

}  // namespace orvexa::model
