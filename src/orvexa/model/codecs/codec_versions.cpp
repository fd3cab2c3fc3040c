#include "orvexa/model/codecs/codec_versions.h"

#include <jconfig.h>
#include <png.h>
#include <tiffio.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "orvexa/common/version.h"

#define ORVEXA_TEXT_OF(token) #token
#define ORVEXA_TEXT_OF_VALUE(macro) ORVEXA_TEXT_OF(macro)

namespace orvexa::model {

namespace {

/// TIFFGetVersion() says "LIBTIFF, Version 4.5.0" and goes on with its copyright on further lines.
std::string tiff_version() {
  constexpr std::string_view mark = "Version ";
  std::string text = TIFFGetVersion();
  text.erase(std::min(text.find('\n'), text.size()));
  const std::size_t begin = text.find(mark);
  return begin == std::string::npos ? text : text.substr(begin + mark.size());
}

}  // namespace

common::Value codec_versions() {
  return {{"libpng", png_get_libpng_ver(nullptr)},
          {"libjpeg-turbo", ORVEXA_TEXT_OF_VALUE(LIBJPEG_TURBO_VERSION)},
          {"libtiff", tiff_version()},
          {"giflib", common::built_with("giflib")}};
}

}  // namespace orvexa::model
