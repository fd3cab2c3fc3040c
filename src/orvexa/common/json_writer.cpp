#include "orvexa/common/json_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"
#include "orvexa/common/utf8.h"

namespace orvexa::common {

namespace {

/// Code points that a reader could take for a line break, swallow, or not show: written as escapes.
bool needs_escape(char32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x2028 || code == 0x2029 || code == 0xFEFF ||
         code == 0xFFFE || code == 0xFFFF;
}

void append_code_point(std::string& text, const Utf8Step& step, std::string_view bytes) {
  switch (step.code) {
    case '"':
      text += "\\\"";
      return;
    case '\\':
      text += "\\\\";
      return;
    case '\n':
      text += "\\n";
      return;
    case '\r':
      text += "\\r";
      return;
    case '\t':
      text += "\\t";
      return;
    default:
      break;
  }
  if (needs_escape(step.code)) {
    text += fmt::format("\\u{:04x}", static_cast<unsigned>(step.code));
  } else if (step.is_valid) {
    text += bytes.substr(0, step.length);
  } else {
    append_utf8(text, step.code);
  }
}

class Writer {
 public:
  Writer(std::string& text, const JsonStyle& style) : _text(text), _style(style) {}

  void write(const Value& value, int depth) {
    if (append_plain_scalar(_text, value)) return;
    if (value.is_structured()) {
      write_container(value, depth + 1);
    } else if (value.is_string()) {
      _text += json_quoted(value.get_ref<const std::string&>());
    } else if (!value.is_number_float()) {
      throw std::invalid_argument("JSON has no form for binary data.");
    } else if (_style.allows_non_finite) {
      _text += number_text(value.get<double>());
    } else {
      throw std::invalid_argument("JSON has no word for the number " + number_text(value.get<double>()) + ".");
    }
  }

 private:
  void write_container(const Value& value, int depth) {
    if (depth > DocumentLimits{}.max_depth) {
      throw std::invalid_argument(fmt::format("A document with more than {} levels of lists and maps is not written.",
                                              DocumentLimits{}.max_depth));
    }
    const bool is_map = value.is_object();
    const bool is_one_line = !_style.is_indented || value.empty() || (!is_map && all_numbers(value));
    _text += is_map ? '{' : '[';
    bool is_first = true;
    for (auto it = value.begin(); it != value.end(); ++it) {
      if (!is_first) _text += is_one_line ? ", " : ",";
      is_first = false;
      if (!is_one_line) break_line(depth);
      if (is_map) _text += json_quoted(it.key()) + ": ";
      write(*it, depth);
    }
    if (!is_one_line) break_line(depth - 1);
    _text += is_map ? '}' : ']';
  }

  static bool all_numbers(const Value& list) {
    return std::all_of(list.begin(), list.end(), [](const Value& item) { return item.is_number(); });
  }

  void break_line(int depth) {
    _text += '\n';
    _text.append(static_cast<std::size_t>(depth) * 2, ' ');
  }

  std::string& _text;
  JsonStyle _style;
};

}  // namespace

bool append_plain_scalar(std::string& text, const Value& value) {
  switch (value.type()) {
    case Value::value_t::null:
      text += "null";
      return true;
    case Value::value_t::boolean:
      text += value.get<bool>() ? "true" : "false";
      return true;
    case Value::value_t::number_integer:
      text += std::to_string(value.get<std::int64_t>());
      return true;
    case Value::value_t::number_unsigned:
      text += std::to_string(value.get<std::uint64_t>());
      return true;
    case Value::value_t::number_float:
      if (!std::isfinite(value.get<double>())) return false;
      text += number_text(value.get<double>());
      return true;
    default:
      return false;
  }
}

std::string json_quoted(std::string_view text) {
  std::string quoted = "\"";
  while (!text.empty()) {
    const Utf8Step step = first_code_point(text);
    append_code_point(quoted, step, text);
    text.remove_prefix(step.length);
  }
  return quoted + '"';
}

void append_json(std::string& text, const Value& value, const JsonStyle& style) {
  Writer(text, style).write(value, 0);
}

}  // namespace orvexa::common
