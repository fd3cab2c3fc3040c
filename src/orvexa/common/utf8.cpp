#include "orvexa/common/utf8.h"

namespace orvexa::common {

Utf8Step first_code_point(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {lead, 1, true};
  constexpr char32_t replacement = 0xFFFD;
  std::size_t length = 0;
  // Only the first continuation byte has a range that depends on the lead byte: it excludes overlong forms, surrogates
  // and what lies above U+10FFFF.
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return {replacement, 1, false};
  }
  char32_t code = lead & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if (i >= text.size() || byte(i) < low || byte(i) > high) return {replacement, i, false};
    code = (code << 6) | (byte(i) & 0x3Fu);
    low = 0x80;
    high = 0xBF;
  }
  return {code, length, true};
}

void append_utf8(std::string& text, char32_t code) {
  const auto put = [&](char32_t byte) { text += static_cast<char>(static_cast<unsigned char>(byte)); };
  if (code < 0x80) {
    put(code);
  } else if (code < 0x800) {
    put(0xC0 | (code >> 6));
    put(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    put(0xE0 | (code >> 12));
    put(0x80 | ((code >> 6) & 0x3F));
    put(0x80 | (code & 0x3F));
  } else {
    put(0xF0 | (code >> 18));
    put(0x80 | ((code >> 12) & 0x3F));
    put(0x80 | ((code >> 6) & 0x3F));
    put(0x80 | (code & 0x3F));
  }
}

}  // namespace orvexa::common
