#include "orvexa/model/result_operations/wanted_bands.h"

#include <algorithm>
#include <string>

namespace orvexa::model {

ParameterInfo bands_parameter() {
  return {.name = "bands",
          .type = ParameterType::bands,
          .default_value = Value::array(),
          .help = "Images or channels to look at, such as MSP.NIR or CLR.RGB.G; none means all of the capture."};
}

std::vector<Band> wanted_bands(const ImageSource& source, const Value& names, OperationResult& result) {
  std::vector<Band> bands;
  if (names.empty()) bands = all_bands(source);
  for (const Value& name : names) {
    Band band = find_band(source, name.get<std::string>());
    const auto is_same = [&](const Band& other) { return other.name == band.name; };
    if (std::none_of(bands.begin(), bands.end(), is_same)) bands.push_back(std::move(band));
  }
  Value& chosen = result.chosen_bands["bands"] = Value::array();
  for (const Band& band : bands) chosen.push_back(band.name);
  return bands;
}

}  // namespace orvexa::model
