#include "orvexa/model/result_operations/wanted_bands.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "orvexa/common/text.h"

namespace orvexa::model {

ParameterInfo bands_parameter() {
  return {.name = "bands",
          .type = ParameterType::bands,
          .default_value = Value::array(),
          .help = "Images or channels to look at, such as MSP.NIR or CLR.RGB.G; none means all of the capture."};
}

std::vector<WantedBand> wanted_bands(const ImageSource& source, const Value& names, OperationResult& result) {
  std::vector<WantedBand> wanted;
  const auto add = [&](WantedBand band) {
    const auto is_same = [&](const WantedBand& other) { return other.name == band.name; };
    if (std::none_of(wanted.begin(), wanted.end(), is_same)) wanted.push_back(std::move(band));
  };
  if (names.empty()) {
    for (const Band& band : all_bands(source)) add({.name = band.name, .band = band});
  }
  std::vector<std::string> reasons;
  for (const Value& name : names) {
    try {
      const Band band = find_band(source, name.get<std::string>());
      add({.name = band.name, .band = band});
    } catch (const std::runtime_error& missing) {
      reasons.emplace_back(missing.what());
      add({.name = name.get<std::string>(), .reason = missing.what()});
    }
  }
  if (!names.empty() && reasons.size() == names.size()) throw std::runtime_error(common::joined(reasons, " "));
  Value& chosen = result.chosen_bands["bands"] = Value::array();
  for (const WantedBand& band : wanted) {
    if (band.band) chosen.push_back(band.name);
  }
  return wanted;
}

void check_wanted_bands(const ImageSource& source, const Value& params) {
  OperationResult forgotten;
  static_cast<void>(wanted_bands(source, params.at("bands"), forgotten));
}

}  // namespace orvexa::model
