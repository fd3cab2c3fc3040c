#include "orvexa/model/mask_operations/band_parameter.h"

#include "orvexa/model/measures/bands.h"

namespace orvexa::model {

ParameterInfo band_parameter() {
  return {.name = "band",
          .type = ParameterType::band,
          .default_value = "",
          .help = "The band to look at; empty means the grey of the first colour image, else the first image."};
}

void check_band(const ImageSource& source, const Value& params) {
  static_cast<void>(find_band(source, params.at("band").get<std::string>()));
}

}  // namespace orvexa::model
