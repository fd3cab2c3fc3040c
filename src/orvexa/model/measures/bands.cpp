#include "orvexa/model/measures/bands.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "orvexa/common/text.h"
#include "orvexa/model/measures/band_roles.h"
#include "orvexa/model/measures/color.h"

namespace orvexa::model {

namespace {

constexpr std::array<std::string_view, 4> channel_names{"R", "G", "B", "grey"};

/// 0.299 R + 0.587 G + 0.114 B; in integers, so that a half is rounded up whatever the processor.
template <typename T>
T grey_of(const T* rgb) {
  if constexpr (std::is_integral_v<T>) {
    return static_cast<T>((299u * rgb[0] + 587u * rgb[1] + 114u * rgb[2] + 500u) / 1000u);
  } else {
    return static_cast<T>(0.299 * rgb[0] + 0.587 * rgb[1] + 0.114 * rgb[2]);
  }
}

/// One channel of a row of interleaved pixels.
template <typename T, typename Out>
void take_channel(const T* pixels, int width, bool is_color, int channel, Out* out) {
  if (!is_color) {
    for (int x = 0; x < width; ++x) out[x] = static_cast<Out>(pixels[x]);
  } else if (channel == Band::grey_channel) {
    for (int x = 0; x < width; ++x) out[x] = static_cast<Out>(grey_of(pixels + 3 * x));
  } else {
    for (int x = 0; x < width; ++x) out[x] = static_cast<Out>(pixels[3 * x + channel]);
  }
}

template <typename T, typename Out>
void read_plane_row(const Image& image, int channel, int y, Out* out) {
  take_channel(image.row<T>(y).data(), image.width(), image.is_color(), channel, out);
}

template <typename Out>
void read_reflectance_row(const Band& band, int y, Out* out) {
  const Image& image = band.counts->image;
  std::vector<float> row(static_cast<std::size_t>(image.width()) * static_cast<std::size_t>(image.channels()));
  fill_reflectance_row(image, *band.counts->reference, y, row);
  take_channel(row.data(), image.width(), image.is_color(), band.channel, out);
}

template <typename T>
Image plane_of(const Image& image, int channel, const RunContext& context) {
  cv::Mat plane(image.height(), image.width(), cv::DataType<T>::type);
  for_each_stripe(image.height(), image.width(), context, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) read_plane_row<T>(image, channel, y, plane.ptr<T>(y));
  });
  return Image(std::move(plane));
}

// ---- Names ----

std::optional<Band> image_band(const ImageSource& source, const std::string& measurement, const std::string& image,
                               int channel_of_colour) {
  auto pixels = source.find_image(measurement, image);
  if (!pixels) return {};
  const bool is_color = pixels->is_color();
  std::string name = measurement + "." + image;
  if (is_color) name.append(".").append(channel_names.at(static_cast<std::size_t>(channel_of_colour)));
  Band band{.image = *std::move(pixels),
            .channel = is_color ? channel_of_colour : 0,
            .white = source.white_level(measurement, image),
            .name = std::move(name),
            .measurement = measurement};
  auto reference = source.reference(measurement, image);
  return reference ? with_reference(band, std::move(reference)) : band;
}

/// A plane with every name that means it.
struct NamedPlane {
  std::string measurement;
  std::string image;
  int channel = 0;
  bool is_color = false;

  [[nodiscard]] std::string bare_name() const {
    return is_color ? image + "." + std::string(channel_names.at(static_cast<std::size_t>(channel))) : image;
  }
  [[nodiscard]] std::string full_name() const { return measurement + "." + bare_name(); }
  /// A colour image named without a channel means its grey.
  [[nodiscard]] bool is_meant_by_image_name() const { return !is_color || channel == Band::grey_channel; }
};

std::vector<NamedPlane> named_planes(const ImageSource& source) {
  std::vector<NamedPlane> planes;
  for (const std::string& measurement : source.get_measurement_types()) {
    for (const std::string& image : source.image_names(measurement)) {
      const auto pixels = source.find_image(measurement, image);
      if (!pixels) continue;
      const int channels = pixels->is_color() ? static_cast<int>(channel_names.size()) : 1;
      for (int channel = 0; channel < channels; ++channel) {
        planes.push_back({measurement, image, channel, pixels->is_color()});
      }
    }
  }
  return planes;
}

Band band_of(const ImageSource& source, const NamedPlane& plane) {
  auto band = image_band(source, plane.measurement, plane.image, plane.channel);
  if (!band) throw std::logic_error("An image of the capture vanished while it was looked up.");
  return *std::move(band);
}

std::vector<std::string> full_names(const std::vector<NamedPlane>& planes) {
  std::vector<std::string> names;
  names.reserve(planes.size());
  for (const NamedPlane& plane : planes) names.push_back(plane.full_name());
  return names;
}

std::string contents_text(const std::vector<NamedPlane>& planes) {
  return planes.empty() ? "it has no images" : "it has " + common::joined(full_names(planes), ", ");
}

/// The plane of that full name.
std::optional<Band> fully_named_band(const ImageSource& source, const std::vector<NamedPlane>& planes,
                                     std::string_view name) {
  for (const NamedPlane& plane : planes) {
    if (plane.full_name() == name) return band_of(source, plane);
    if (plane.is_meant_by_image_name() && plane.measurement + "." + plane.image == name) return band_of(source, plane);
  }
  return {};
}

std::runtime_error no_such_band(std::string_view name, const std::vector<NamedPlane>& planes) {
  return std::runtime_error(fmt::format("There is no band \"{}\" in this capture{}; {}.", common::to_valid_utf8(name),
                                        common::did_you_mean(name, full_names(planes)), contents_text(planes)));
}

/// The plane of that full name, or of that bare name when only one measurement has it.
std::optional<Band> band_named(const ImageSource& source, const std::vector<NamedPlane>& planes,
                               std::string_view name) {
  if (auto band = fully_named_band(source, planes, name)) return band;
  std::vector<NamedPlane> bare;
  for (const NamedPlane& plane : planes) {
    if (plane.bare_name() == name || (plane.is_meant_by_image_name() && plane.image == name)) bare.push_back(plane);
  }
  if (bare.size() > 1) {
    throw std::runtime_error(fmt::format("Band \"{}\" is in several measurements: name one of {}.",
                                         common::to_valid_utf8(name), common::joined(full_names(bare), ", ")));
  }
  if (bare.empty()) return {};
  return band_of(source, bare.front());
}

Band default_band(const ImageSource& source, const std::vector<NamedPlane>& planes) {
  if (planes.empty()) throw std::runtime_error("This capture has no images.");
  const auto grey = std::ranges::find_if(planes, [](const auto& plane) { return plane.channel == Band::grey_channel; });
  return band_of(source, grey == planes.end() ? planes.front() : *grey);
}

// ---- Roles ----

constexpr std::array roles{
    BandRole{"B", "blue", "BLU", 470, 430, 510, 2},
    BandRole{"G", "green", "GRN", 555, 510, 600, 1},
    BandRole{"R", "red", "RED", 660, 600, 690, 0},
    BandRole{"RE", "red edge", "EDG", 705, 690, 745, -1},
    BandRole{"RE2", "second red edge", "", 750, 730, 770, -1},
    BandRole{"N", "near infrared", "NIR", 842, 760, 900, -1},
    BandRole{"R531", "531 nm", "", 531, 526, 536, -1},
    BandRole{"R570", "570 nm", "", 570, 565, 575, -1},
};

const BandRole* find_role(std::string_view name) {
  const auto found = std::ranges::find(roles, name, &BandRole::name);
  return found == roles.end() ? nullptr : &*found;
}

std::string looked_for(const BandRole& role) {
  std::string text = fmt::format("a single-band image whose [Band] section declares a centre from {:g} to {:g} nm",
                                 role.from_nm, role.to_nm);
  if (!role.image_name.empty()) text += fmt::format(", or one named {}", role.image_name);
  if (role.color_channel >= 0) {
    text += fmt::format(", or in a capture without MSP the channel {} of CLR",
                        channel_names.at(static_cast<std::size_t>(role.color_channel)));
  }
  return text;
}

std::optional<Band> role_in_measurement(const ImageSource& source, const std::string& measurement,
                                        const BandRole& role) {
  std::optional<Band> nearest;
  std::optional<Band> named;
  double smallest_distance = 0;
  for (const std::string& image : source.image_names(measurement)) {
    auto band = image_band(source, measurement, image, 0);
    if (!band || band->image.is_color()) continue;
    const auto info = source.find_band(image);
    const auto centre = info ? info->centre_nm : std::nullopt;
    if (centre && *centre >= role.from_nm && *centre <= role.to_nm) {
      const double distance = std::abs(*centre - role.centre_nm);
      if (!nearest || distance < smallest_distance) {
        nearest = band;
        smallest_distance = distance;
      }
    }
    // What the header declares is known better than what a name promises.
    if (!role.image_name.empty() && image == role.image_name && !centre) named = std::move(band);
  }
  return nearest ? nearest : named;
}

/// Images that have the role's customary name and a centre elsewhere: why they were not taken.
std::string lies_elsewhere(const ImageSource& source, const BandRole& role) {
  std::string text;
  for (const std::string& measurement : source.get_measurement_types()) {
    for (const std::string& image : source.image_names(measurement)) {
      if (role.image_name.empty() || image != role.image_name) continue;
      const auto info = source.find_band(image);
      const auto centre = info ? info->centre_nm : std::nullopt;
      if (!centre || (*centre >= role.from_nm && *centre <= role.to_nm)) continue;
      text += fmt::format("{}.{} has its centre at {:g} nm; ", measurement, image, *centre);
    }
  }
  return text;
}

std::optional<Band> role_in_color_picture(const ImageSource& source, const BandRole& role) {
  if (role.color_channel < 0) return {};
  for (const std::string& image : source.image_names("CLR")) {
    auto band = image_band(source, "CLR", image, role.color_channel);
    if (band && band->image.is_color()) return band;
  }
  return {};
}

bool has_msp(const ImageSource& source) {
  const auto measurements = source.get_measurement_types();
  return std::ranges::find(measurements, "MSP") != measurements.end();
}

/// In the picture of a band that is a channel itself, so that no two pictures are mixed; else in the first picture.
std::optional<Band> role_beside_channel(const ImageSource& source, const Band& example, const BandRole& role) {
  if (!example.image.is_color()) return role_in_color_picture(source, role);
  if (role.color_channel < 0) return {};
  return color_channels(example).at(static_cast<std::size_t>(role.color_channel));
}

/// The grey of a colour image, which stands for the image elsewhere, is not what a role means.
std::runtime_error no_channel_named(std::string_view image, const BandRole& role) {
  std::vector<std::string> channels;
  channels.reserve(channel_names.size());
  for (const std::string_view channel : channel_names) channels.push_back(fmt::format("{}.{}", image, channel));
  return std::runtime_error(
      fmt::format("{} is named for the role {}, but it is a colour image; name one of its channels: {}.",
                  common::to_valid_utf8(image), role.name, common::joined(channels, ", ")));
}

/// The bands that were named for some of the roles, and for the others those of the same measurement.
std::vector<Band> roles_beside_named(const ImageSource& source, const std::vector<const BandRole*>& wanted,
                                     const RoleBands& named) {
  const std::vector<NamedPlane> planes = named_planes(source);
  std::vector<std::optional<Band>> found(wanted.size());
  std::size_t first = wanted.size();
  for (std::size_t k = 0; k < wanted.size(); ++k) {
    const auto entry = named.find(wanted[k]->name);
    if (entry == named.end()) continue;
    found[k] = fully_named_band(source, planes, entry->second);
    if (!found[k]) throw no_such_band(entry->second, planes);
    if (found[k]->image.is_color() && found[k]->name != entry->second)
      throw no_channel_named(entry->second, *wanted[k]);
    if (first == wanted.size()) first = k;
    if (found[k]->measurement == found[first]->measurement) continue;
    throw std::runtime_error(
        fmt::format("{} is named for the role {} and {} for the role {}, but bands that are calculated with each other "
                    "have to come from one measurement.",
                    found[first]->name, wanted[first]->name, found[k]->name, wanted[k]->name));
  }
  const Band& example = *found.at(first);
  const bool may_be_in_a_color_picture = example.measurement == "CLR" && !has_msp(source);
  std::vector<Band> bands;
  for (std::size_t k = 0; k < wanted.size(); ++k) {
    auto& band = found[k];
    if (!band) band = role_in_measurement(source, example.measurement, *wanted[k]);
    if (!band && may_be_in_a_color_picture) band = role_beside_channel(source, example, *wanted[k]);
    if (!band) {
      std::vector<NamedPlane> own;
      std::ranges::copy_if(planes, std::back_inserter(own),
                           [&](const NamedPlane& plane) { return plane.measurement == example.measurement; });
      throw std::runtime_error(fmt::format(
          "{} is named for the role {}, but its measurement {} has no band for the role {} ({}): looked for {}; {}{}. "
          "Name that band too.",
          example.name, wanted[first]->name, example.measurement, wanted[k]->name, wanted[k]->meaning,
          looked_for(*wanted[k]), lies_elsewhere(source, *wanted[k]), contents_text(own)));
    }
    bands.push_back(*band);
  }
  return bands;
}

/// As many of the roles as one measurement has, in their order; stops at the first that it lacks.
template <typename Find>
std::vector<Band> resolved(const std::vector<const BandRole*>& wanted, const Find& find) {
  std::vector<Band> bands;
  for (const BandRole* role : wanted) {
    auto band = find(*role);
    if (!band) break;
    bands.push_back(*std::move(band));
  }
  return bands;
}

}  // namespace

Band Band::raw() const {
  Band band = *this;
  if (!counts) return band;
  band.image = counts->image;
  band.white = counts->white;
  band.counts = nullptr;
  return band;
}

Band with_reference(const Band& band, std::shared_ptr<const Reference> reference) {
  Band result = band;
  result.image = reflectance_image(band.image, reference);
  result.white = {.counts = 1.0, .is_declared = true};
  result.counts = std::make_shared<const Band::Counts>(Band::Counts{band.image, band.white, std::move(reference)});
  return result;
}

void Band::read_row(int y, std::span<double> values) const {
  if (counts) return read_reflectance_row(*this, y, values.data());
  switch (image.type()) {
    case PixelType::u8:
      return read_plane_row<std::uint8_t>(image, channel, y, values.data());
    case PixelType::u16:
      return read_plane_row<std::uint16_t>(image, channel, y, values.data());
    case PixelType::f32:
      return read_plane_row<float>(image, channel, y, values.data());
  }
}

void Band::read_normalised_row(int y, std::span<double> fractions) const {
  read_row(y, fractions);
  for (int x = 0; x < image.width(); ++x) fractions[static_cast<std::size_t>(x)] /= white.counts;
}

Image Band::plane(const RunContext& context) const {
  if (counts) {
    cv::Mat plane(image.height(), image.width(), CV_32FC1);
    for_each_stripe(image.height(), image.width(), context, [&](int y0, int y1) {
      for (int y = y0; y < y1; ++y) read_reflectance_row(*this, y, plane.ptr<float>(y));
    });
    return Image(std::move(plane));
  }
  if (!image.is_color()) return image;
  switch (image.type()) {
    case PixelType::u8:
      return plane_of<std::uint8_t>(image, channel, context);
    case PixelType::u16:
      return plane_of<std::uint16_t>(image, channel, context);
    case PixelType::f32:
      break;
  }
  return plane_of<float>(image, channel, context);
}

Band find_band(const ImageSource& source, std::string_view name) {
  const std::vector<NamedPlane> planes = named_planes(source);
  if (name.empty()) return default_band(source, planes);
  if (auto band = band_named(source, planes, name)) return *std::move(band);
  if (find_role(name) != nullptr) return find_roles(source, {std::string(name)}).front();
  throw no_such_band(name, planes);
}

std::vector<Band> find_bands(const ImageSource& source, const std::vector<std::string>& names, const RoleBands& named) {
  const std::vector<NamedPlane> planes = named_planes(source);
  std::vector<std::optional<Band>> found(names.size());
  std::vector<std::string> wanted_roles;
  for (std::size_t k = 0; k < names.size(); ++k) {
    if (!named.contains(names[k])) found[k] = band_named(source, planes, names[k]);
    if (found[k]) continue;
    if (find_role(names[k]) == nullptr) throw no_such_band(names[k], planes);
    wanted_roles.push_back(names[k]);
  }
  const std::vector<Band> of_roles =
      wanted_roles.empty() ? std::vector<Band>() : find_roles(source, wanted_roles, named);
  std::vector<Band> bands;
  auto next = of_roles.begin();
  for (const auto& band : found) {
    if (band && !of_roles.empty() && band->measurement != of_roles.front().measurement) {
      throw std::runtime_error(fmt::format(
          "The role {} is {} and {} is of another measurement, but a role is calculated with bands of its own "
          "measurement only; write the full names of all bands to mix measurements.",
          wanted_roles.front(), of_roles.front().name, band->name));
    }
    bands.push_back(band ? *band : *next++);
  }
  return bands;
}

std::vector<Band> all_bands(const ImageSource& source) {
  std::vector<Band> bands;
  for (const NamedPlane& plane : named_planes(source)) {
    if (plane.channel != Band::grey_channel) bands.push_back(band_of(source, plane));
  }
  return bands;
}

std::span<const BandRole> band_roles() {
  return roles;
}

const BandRole& get_band_role(std::string_view name) {
  if (const BandRole* role = find_role(name)) return *role;
  throw std::invalid_argument("There is no band role \"" + common::to_valid_utf8(name) + "\".");
}

std::vector<std::string> role_names() {
  std::vector<std::string> names;
  names.reserve(roles.size());
  for (const BandRole& role : roles) names.emplace_back(role.name);
  return names;
}

std::vector<Band> find_roles(const ImageSource& source, const std::vector<std::string>& names, const RoleBands& named) {
  std::vector<const BandRole*> wanted;
  wanted.reserve(names.size());
  for (const std::string& name : names) wanted.push_back(&get_band_role(name));
  if (std::ranges::any_of(wanted, [&](const BandRole* role) { return named.contains(role->name); })) {
    return roles_beside_named(source, wanted, named);
  }

  std::size_t most = 0;
  for (const std::string& measurement : source.get_measurement_types()) {
    auto bands = resolved(wanted, [&](const BandRole& role) { return role_in_measurement(source, measurement, role); });
    if (bands.size() == wanted.size()) return bands;
    most = std::max(most, bands.size());
  }
  if (!has_msp(source)) {
    auto bands = resolved(wanted, [&](const BandRole& role) { return role_in_color_picture(source, role); });
    if (bands.size() == wanted.size()) return bands;
    most = std::max(most, bands.size());
  }
  const BandRole& missing = *wanted.at(most);
  std::vector<std::string> others;
  for (const BandRole* role : wanted) {
    if (role != &missing) others.emplace_back(role->name);
  }
  throw std::runtime_error(fmt::format(
      "No measurement of this capture has a band for the role {} ({}){}: looked for {}; {}{}.", missing.name,
      missing.meaning, others.empty() ? std::string() : " together with " + common::joined(others, ", "),
      looked_for(missing), lies_elsewhere(source, missing), contents_text(named_planes(source))));
}

}  // namespace orvexa::model
