#include "orvexa/common/serialisation.h"

#include <fmt/format.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/mark.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <istream>
#include <map>
#include <optional>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "orvexa/common/json_writer.h"
#include "orvexa/common/text.h"
#include "orvexa/common/utf8.h"

namespace orvexa::common {

namespace {

[[noreturn]] void fail(std::string_view name, std::string_view what) {
  throw std::runtime_error(fmt::format("{}: {}.", name, what));
}

[[noreturn]] void fail(std::string_view name, std::size_t line, std::string_view what) {
  throw std::runtime_error(fmt::format("{}, line {}: {}.", name, line, what));
}

/// @param at  how many bytes stand before the place.
std::size_t line_of(std::string_view text, std::size_t at) {
  const std::string_view before = text.substr(0, at);
  return 1 + static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
}

std::string quoted_start(std::string_view text) {
  constexpr std::size_t longest = 60;
  return json_quoted(text.size() <= longest ? std::string(text) : std::string(text.substr(0, longest)) + "...");
}

/// What both formats have in common before anything is parsed: size and encoding. Gives the text without a byte order
/// mark.
std::string_view checked_text(std::string_view text, std::string_view name, const DocumentLimits& limits) {
  if (text.size() > limits.max_bytes) {
    fail(name, fmt::format("the document has more than {} bytes, the most that is read",
                           grouped_integer_text(static_cast<std::int64_t>(limits.max_bytes))));
  }
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Step step = first_code_point(text.substr(at));
    if (!step.is_valid) fail(name, line_of(text, at), "the text is not UTF-8");
    const char32_t code = step.code;
    if ((code < 0x20 && code != '\t' && code != '\n' && code != '\r') || code == 0x7F) {
      fail(name, line_of(text, at), fmt::format("the control character U+{:04X} cannot stand here", unsigned(code)));
    }
    at += step.length;
  }
  return text;
}

// What a plain scalar is

enum class NumberKind { none, integer, real };

struct NumberShape {
  NumberKind kind = NumberKind::none;
  bool is_negative = false;
  int base = 10;
  std::string_view digits;  ///< without sign and base
};

bool all_of(std::string_view text, std::string_view allowed) {
  return !text.empty() && text.find_first_not_of(allowed) == std::string_view::npos;
}

constexpr std::string_view decimal_digits = "0123456789";

/// Takes the leading decimal digits off and gives how many there were.
std::size_t take_digits(std::string_view& text) {
  const std::size_t count = std::min(text.find_first_not_of(decimal_digits), text.size());
  text.remove_prefix(count);
  return count;
}

/// The numbers of YAML 1.2's core schema (section 10.3.2), which include those of JSON.
NumberShape number_shape(std::string_view text) {
  if (text.starts_with("0o") && all_of(text.substr(2), "01234567")) {
    return {NumberKind::integer, false, 8, text.substr(2)};
  }
  if (text.starts_with("0x") && all_of(text.substr(2), "0123456789abcdefABCDEF")) {
    return {NumberKind::integer, false, 16, text.substr(2)};
  }
  NumberShape shape;
  if (text.starts_with('-') || text.starts_with('+')) {
    shape.is_negative = text.front() == '-';
    text.remove_prefix(1);
  }
  shape.digits = text;
  if (text == ".inf" || text == ".Inf" || text == ".INF") {
    shape.kind = NumberKind::real;
    return shape;
  }
  if (all_of(text, decimal_digits)) {
    shape.kind = NumberKind::integer;
    return shape;
  }
  const std::size_t whole = take_digits(text);
  std::size_t fraction = 0;
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    fraction = take_digits(text);
  }
  if (whole + fraction == 0) return {};
  if (text.starts_with('e') || text.starts_with('E')) {
    text.remove_prefix(1);
    if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
    if (take_digits(text) == 0) return {};
  }
  if (text.empty()) shape.kind = NumberKind::real;
  return shape;
}

/// @throws std::invalid_argument with the rest of a sentence when no 64-bit type holds the integer.
Value integer_value(const NumberShape& shape) {
  std::uint64_t magnitude = 0;
  const char* const end = shape.digits.data() + shape.digits.size();
  const auto result = std::from_chars(shape.digits.data(), end, magnitude, shape.base);
  constexpr std::uint64_t highest_signed = std::uint64_t{1} << 63;
  if (result.ec != std::errc() || (shape.is_negative && magnitude > highest_signed)) {
    throw std::invalid_argument("is outside the range of whole numbers, which is -2^63 to 2^64 - 1");
  }
  if (shape.is_negative) return static_cast<std::int64_t>(~magnitude + 1);
  if (magnitude < highest_signed) return static_cast<std::int64_t>(magnitude);
  return magnitude;
}

/// @throws std::invalid_argument likewise.
Value real_value(const NumberShape& shape) {
  double magnitude = 0;
  if (shape.digits.starts_with('.') && !all_of(shape.digits.substr(1, 1), decimal_digits)) {
    magnitude = std::numeric_limits<double>::infinity();
  } else {
    const auto result = std::from_chars(shape.digits.data(), shape.digits.data() + shape.digits.size(), magnitude);
    if (result.ec != std::errc()) {
      throw std::invalid_argument("is outside the range of real numbers, which is about 1e-308 to 1e308");
    }
  }
  return shape.is_negative ? -magnitude : magnitude;
}

bool is_null_word(std::string_view text) {
  return text.empty() || text == "~" || text == "null" || text == "Null" || text == "NULL";
}

std::optional<bool> boolean_word(std::string_view text) {
  if (text == "true" || text == "True" || text == "TRUE") return true;
  if (text == "false" || text == "False" || text == "FALSE") return false;
  return std::nullopt;
}

bool is_nan_word(std::string_view text) {
  return text == ".nan" || text == ".NaN" || text == ".NAN";
}

/// A plain scalar under the core schema.
/// @throws std::invalid_argument as the two above.
Value plain_value(std::string_view text) {
  if (is_null_word(text)) return nullptr;
  if (const auto word = boolean_word(text)) return *word;
  if (is_nan_word(text)) return std::numeric_limits<double>::quiet_NaN();
  const NumberShape shape = number_shape(text);
  switch (shape.kind) {
    case NumberKind::integer:
      return integer_value(shape);
    case NumberKind::real:
      return real_value(shape);
    case NumberKind::none:
      break;
  }
  return std::string(text);
}

// Building a value from events

/// Puts a document together, for both formats: limits, repeated keys, the path from the top.
class Builder {
 public:
  Builder(std::string_view name, const DocumentLimits& limits) : _name(name), _limits(limits) {}

  /// A part that an alias may stand for again.
  struct Part {
    Value value;
    std::size_t nodes = 1;  ///< scalars, lists and maps in it
    std::size_t bytes = 0;  ///< of its scalars and keys
    int depth = 0;          ///< 0 for a scalar
  };

  void begin_container(Value empty, std::size_t line) {
    if (static_cast<int>(_open.size()) >= _limits.max_depth) refuse_depth(line);
    charge(1, 0, line);
    _open.push_back({.part = {.value = std::move(empty), .depth = 1}, .keys = {}, .key = std::nullopt});
  }

  void end_container(std::size_t line) {
    Part part = std::move(_open.back().part);
    _open.pop_back();
    add(std::move(part), line);
  }

  void scalar(Value value, std::size_t line) {
    const std::size_t bytes = value.is_string() ? value.get_ref<const std::string&>().size() : 0;
    charge(1, bytes, line);
    add({.value = std::move(value), .nodes = 1, .bytes = bytes, .depth = 0}, line);
  }

  /// Puts a part in once more, and pays for it.
  void repeated(const Part& part, std::size_t line) {
    if (static_cast<int>(_open.size()) + part.depth > _limits.max_depth) refuse_depth(line);
    charge(part.nodes, part.bytes, line);
    add(part, line);
  }

  /// Pays for a part that is kept besides.
  void charge(std::size_t nodes, std::size_t bytes, std::size_t line) {
    _nodes += nodes;
    _bytes += bytes;
    if (_nodes > _limits.max_nodes) {
      fail(_name, line,
           fmt::format("the document has more than {} entries, the most that is read",
                       grouped_integer_text(static_cast<std::int64_t>(_limits.max_nodes))));
    }
    if (_bytes > _limits.max_bytes) {
      fail(
          _name, line,
          fmt::format("the document's texts have more than {} bytes once repeated parts are written out, the most that "
                      "is read",
                      grouped_integer_text(static_cast<std::int64_t>(_limits.max_bytes))));
    }
  }

  /// Whether the next scalar is a key.
  [[nodiscard]] bool expects_key() const {
    return !_open.empty() && _open.back().part.value.is_object() && !_open.back().key;
  }

  /// The finished document; null when there was none.
  [[nodiscard]] Value take() { return std::move(_root); }
  /// Whether the events from here on leave what they added in `last()`.
  void keep_last(bool keeps) { _keeps_last = keeps; }
  [[nodiscard]] const Part& last() const { return _last; }

 private:
  struct Frame {
    Part part;
    std::unordered_set<std::string> keys;
    std::optional<std::string> key;
  };

  [[noreturn]] void refuse_depth(std::size_t line) const {
    fail(_name, line,
         fmt::format("lists and maps stand inside each other more than {} levels deep, the most that is read",
                     _limits.max_depth));
  }

  void add(Part part, std::size_t line) {
    if (_keeps_last) _last = part;
    if (_open.empty()) {
      _root = std::move(part.value);
      return;
    }
    Frame& frame = _open.back();
    frame.part.nodes += part.nodes;
    frame.part.bytes += part.bytes;
    if (expects_key()) {
      if (!part.value.is_string()) {
        fail(_name, line,
             part.value.is_structured() ? "a list or map cannot be a key"
                                        : "the key " + scalar_text(part.value) + " must be a text: write it in quotes");
      }
      frame.key = std::move(part.value.get_ref<std::string&>());
      if (!frame.keys.insert(*frame.key).second) {
        fail(_name, line, "the key " + quoted_start(*frame.key) + " stands twice in one map");
      }
      return;
    }
    frame.part.depth = std::max(frame.part.depth, part.depth + 1);
    if (frame.key) {
      // Past the map's own search for the key, which is linear: it is known to be new.
      using Entries = Value::object_t::Container;
      static_cast<Entries&>(frame.part.value.get_ref<Value::object_t&>())
          .emplace_back(std::move(*frame.key), std::move(part.value));
      frame.key.reset();
    } else {
      frame.part.value.get_ref<Value::array_t&>().push_back(std::move(part.value));
    }
  }

  std::string_view _name;
  DocumentLimits _limits;
  std::vector<Frame> _open;
  Value _root;
  Part _last;
  bool _keeps_last = false;
  std::size_t _nodes = 0;
  std::size_t _bytes = 0;
};

// YAML in

/// The YAML library turns the escapes \N and \_ (U+0085, U+00A0) into single bytes that are not UTF-8.
std::string with_valid_escapes(const std::string& text) {
  if (is_valid_utf8(text)) return text;
  std::string repaired;
  for (std::string_view rest = text; !rest.empty();) {
    const Utf8Step step = first_code_point(rest);
    append_utf8(repaired, step.is_valid ? step.code : static_cast<unsigned char>(rest.front()));
    rest.remove_prefix(step.is_valid ? step.length : 1);
  }
  return repaired;
}

/// The YAML library's words for what it met, in words for somebody who wrote the file.
std::string yaml_failure_text(const std::string& message) {
  namespace words = YAML::ErrorMsg;
  static const std::map<std::string, std::string> known = {
      {words::END_OF_MAP, "this line is no entry of the map it stands in; a colon may be missing, or blanks before it"},
      {words::END_OF_SEQ, "this line is no entry of the list it stands in; a dash may be missing, or blanks before it"},
      {words::END_OF_MAP_FLOW, "a { is not closed"},
      {words::END_OF_SEQ_FLOW, "a [ is not closed"},
      {words::FLOW_END, "a ] or } closes nothing"},
      {words::DOC_IN_SCALAR, "a quoted text is not closed"},
      {words::EOF_IN_SCALAR, "a quoted text is not closed"},
      {words::TAB_IN_INDENTATION, "a line is indented with a tab; YAML wants blanks"},
      {words::BLOCK_ENTRY, "a dash for an entry of a list cannot stand here"},
      {words::MAP_KEY, "a key cannot stand here"},
      {words::MAP_VALUE, "a colon cannot stand here; a text with a colon needs quotes, and indentation needs blanks"},
      {words::UNKNOWN_TOKEN, "a text that begins with this character needs quotes"},
      {words::UNKNOWN_ANCHOR, "an alias (*name) has no anchor (&name) before it"},
  };
  const auto found = known.find(message);
  return "this is not YAML: " + (found != known.end() ? found->second : message);
}

class YamlHandler : public YAML::EventHandler {
 public:
  YamlHandler(std::string_view text, std::string_view name, const DocumentLimits& limits)
      : _text(text), _name(name), _builder(name, limits) {}

  void OnDocumentStart(const YAML::Mark& mark) override {
    if (_has_document) {
      fail(_name, line(mark), "a second document begins here, or something that belongs to no entry");
    }
    _has_document = true;
  }
  void OnDocumentEnd() override {}

  void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    // "[1,,2]": YAML forbids it, the library reads a null there.
    const auto at = static_cast<std::size_t>(std::max(mark.pos, 0));
    const bool is_in_list = !_open.empty() && _open.back().is_list;
    if (is_in_list && at < _text.size() && _text[at] == ',')
      fail(_name, line(mark), "there is nothing before this comma");
    add_scalar(mark, anchor, nullptr);
  }

  void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                const std::string& value) override {
    add_scalar(mark, anchor, resolved(mark, tag, value));
  }

  void OnAlias(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    const auto found = _anchors.find(anchor);
    if (found == _anchors.end()) fail(_name, line(mark), "an alias stands inside the part that it repeats");
    _builder.repeated(found->second, line(mark));
  }

  void OnSequenceStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                       YAML::EmitterStyle::value /*style*/) override {
    check_container_tag(mark, tag, "tag:yaml.org,2002:seq");
    begin(mark, anchor, Value::array());
  }
  void OnSequenceEnd() override { end(); }

  void OnMapStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                  YAML::EmitterStyle::value /*style*/) override {
    check_container_tag(mark, tag, "tag:yaml.org,2002:map");
    begin(mark, anchor, Value::object());
  }
  void OnMapEnd() override { end(); }

  [[nodiscard]] Value take() { return _builder.take(); }

 private:
  struct Open {
    YAML::anchor_t anchor;
    std::size_t line;
    bool is_list;
  };

  static std::size_t line(const YAML::Mark& mark) { return static_cast<std::size_t>(std::max(mark.line, 0)) + 1; }

  [[noreturn]] void refuse_tag(const YAML::Mark& mark, const std::string& tag) const {
    fail(_name, line(mark), "the tag " + quoted_start(tag) + " is not known");
  }

  void check_container_tag(const YAML::Mark& mark, const std::string& tag, std::string_view expected) const {
    if (!tag.empty() && tag != "?" && tag != "!" && tag != expected) refuse_tag(mark, tag);
  }

  Value resolved(const YAML::Mark& mark, const std::string& tag, const std::string& raw) {
    const std::string text = with_valid_escapes(raw);
    if (tag == "!" || tag == "tag:yaml.org,2002:str") return text;
    if (_builder.expects_key() && tag == "?" && text == "<<") {
      fail(_name, line(mark),
           "the merge key << is not supported; write the entries out, or \"<<\" for a key of that name");
    }
    try {
      Value value = plain_value(text);
      if (tag == "?" || tag.empty()) return value;
      constexpr std::string_view core = "tag:yaml.org,2002:";
      const std::string_view type =
          std::string_view(tag).starts_with(core) ? std::string_view(tag).substr(core.size()) : std::string_view();
      if (type == "null" && value.is_null()) return value;
      if (type == "bool" && value.is_boolean()) return value;
      if (type == "int" && value.is_number_integer()) return value;
      if (type == "float" && value.is_number()) return value.get<double>();
      if (type == "null" || type == "bool" || type == "int" || type == "float") {
        fail(_name, line(mark), fmt::format("{} is not what its tag !!{} says", quoted_start(text), type));
      }
    } catch (const std::invalid_argument& failure) {
      fail(_name, line(mark), fmt::format("the number {} {}", quoted_start(text), failure.what()));
    }
    refuse_tag(mark, tag);
  }

  void add_scalar(const YAML::Mark& mark, YAML::anchor_t anchor, Value value) {
    _builder.keep_last(anchor != 0);
    _builder.scalar(std::move(value), line(mark));
    remember(anchor, line(mark));
  }

  void begin(const YAML::Mark& mark, YAML::anchor_t anchor, Value empty) {
    _open.push_back({anchor, line(mark), empty.is_array()});
    _builder.begin_container(std::move(empty), line(mark));
  }

  void end() {
    const Open open = _open.back();
    _open.pop_back();
    _builder.keep_last(open.anchor != 0);
    _builder.end_container(open.line);
    remember(open.anchor, open.line);
  }

  /// An anchor is known from its part's end on: an alias before that would stand inside it.
  void remember(YAML::anchor_t anchor, std::size_t at_line) {
    if (anchor == 0) return;
    const Builder::Part& part = _builder.last();
    _builder.charge(part.nodes, part.bytes, at_line);
    _anchors.insert_or_assign(anchor, part);
  }

  std::string_view _text;
  std::string_view _name;
  Builder _builder;
  bool _has_document = false;
  std::vector<Open> _open;
  std::map<YAML::anchor_t, Builder::Part> _anchors;
};

/// A stream over a text that is not copied.
class TextStream : private std::streambuf, public std::istream {
 public:
  explicit TextStream(std::string_view text) : std::istream(static_cast<std::streambuf*>(this)) {
    char* const begin = const_cast<char*>(text.data());  // a get area is never written to
    setg(begin, begin, begin + text.size());
  }
};

// YAML out

/// Words that YAML 1.1 and other readers take for something else than a text.
bool is_special_word(std::string_view text) {
  static constexpr std::array<std::string_view, 11> words = {"null", "true", "false", "yes", "no", "on",
                                                             "off",  "y",    "n",     "nan", "inf"};
  return std::find(words.begin(), words.end(), to_lower_ascii(text)) != words.end();
}

/// Whether a text may stand without quotes. Narrow on purpose: it begins with a letter, an underscore or a slash and
/// has no character that any YAML reader gives a meaning to.
bool is_safe_plain(std::string_view text) {
  constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  constexpr std::string_view others = "0123456789_/.,;+-*()<>=^% ";
  if (text.empty() || text.back() == ' ' || is_special_word(text)) return false;
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Step step = first_code_point(text.substr(at));
    if (!step.is_valid) return false;
    if (step.code < 0x80) {
      const char c = text[at];
      const bool is_letter = letters.find(c) != std::string_view::npos || c == '_' || c == '/';
      if (!is_letter && (at == 0 || others.find(c) == std::string_view::npos)) return false;
    } else if (json_quoted(text.substr(at, step.length)).size() != step.length + 2) {
      return false;  // it needs an escape
    }
    at += step.length;
  }
  return true;
}

class YamlWriter {
 public:
  std::string document(const Value& value) {
    if (is_inline(value)) {
      write_inline(value);
      _text += '\n';
    } else {
      write_block(value, 0, false);
    }
    if (_text.size() > _limits.max_bytes) {
      throw std::invalid_argument(fmt::format("A document of more than {} bytes is not written: it could not be read.",
                                              grouped_integer_text(static_cast<std::int64_t>(_limits.max_bytes))));
    }
    return std::move(_text);
  }

 private:
  static bool is_inline(const Value& value) {
    if (!value.is_structured() || value.empty()) return true;
    return value.is_array() && std::all_of(value.begin(), value.end(), [](const Value& v) { return v.is_number(); });
  }

  void count_node() {
    if (++_nodes > _limits.max_nodes) {
      throw std::invalid_argument(
          fmt::format("A document of more than {} entries is not written: it could not be read.",
                      grouped_integer_text(static_cast<std::int64_t>(_limits.max_nodes))));
    }
  }

  void check_depth(int level) const {
    if (level >= _limits.max_depth) {
      throw std::invalid_argument(
          fmt::format("A document with more than {} levels of lists and maps is not written: it could not be read.",
                      _limits.max_depth));
    }
  }

  /// @param level  how many containers the value stands in.
  /// @param continues_line  the first entry goes on the line that has been begun (after "- ").
  void write_block(const Value& value, int level, bool continues_line) {
    check_depth(level);
    count_node();
    for (auto it = value.begin(); it != value.end(); ++it) {
      if (!continues_line) indent(level);
      continues_line = false;
      if (value.is_array()) {
        _text += "- ";
        write_item(*it, level, true);
      } else {
        write_key(it.key(), level);
        write_item(*it, level, false);
      }
    }
  }

  void write_item(const Value& item, int level, bool is_in_list) {
    if (is_inline(item)) {
      if (item.is_structured()) check_depth(level + 1);
      if (!is_in_list) _text += ' ';
      write_inline(item);
      _text += '\n';
    } else {
      if (!is_in_list) _text += '\n';
      write_block(item, level + 1, is_in_list);
    }
  }

  void write_key(const std::string& key, int level) {
    count_node();
    // A key on the line of its value may have at most 1024 characters; quoting makes at most six of one.
    constexpr std::size_t longest_simple_key = 1024 / 6 - 2;
    const bool is_long = key.size() > longest_simple_key;
    if (is_long) _text += "? ";
    write_text(key);
    if (is_long) {
      _text += '\n';
      indent(level);
    }
    _text += ':';
  }

  void write_inline(const Value& value) {
    count_node();
    if (append_plain_scalar(_text, value)) return;
    if (value.is_string()) {
      write_text(value.get_ref<const std::string&>());
    } else if (value.is_number_float()) {
      write_non_finite(value.get<double>());
    } else if (value.is_structured()) {
      write_flow(value);
    } else {
      throw std::invalid_argument("YAML has no form for binary data here.");
    }
  }

  void write_non_finite(double value) {
    if (std::isnan(value)) {
      _text += ".nan";
    } else {
      _text += value < 0 ? "-.inf" : ".inf";
    }
  }

  /// A list of numbers, or an empty list or map.
  void write_flow(const Value& value) {
    _text += value.is_object() ? '{' : '[';
    std::string_view separator;
    for (const Value& item : value) {
      _text += separator;
      separator = ", ";
      write_inline(item);
    }
    _text += value.is_object() ? '}' : ']';
  }

  void write_text(const std::string& text) { _text += is_safe_plain(text) ? text : json_quoted(text); }

  void indent(int level) { _text.append(static_cast<std::size_t>(level) * 2, ' '); }

  DocumentLimits _limits;
  std::size_t _nodes = 0;
  std::string _text;
};

// JSON in

/// A text's bytes, with a note of how far the parser has come: its events carry no place.
class WatchedIterator {
 public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  WatchedIterator() = default;
  WatchedIterator(const char* at, const char** furthest) : _at(at), _furthest(furthest) {}
  const char& operator*() const { return *_at; }
  WatchedIterator& operator++() {
    *_furthest = ++_at;
    return *this;
  }
  WatchedIterator operator++(int) {
    WatchedIterator before = *this;
    ++*this;
    return before;
  }
  friend bool operator==(const WatchedIterator& a, const WatchedIterator& b) { return a._at == b._at; }

 private:
  const char* _at = nullptr;
  const char** _furthest = nullptr;
};

class JsonHandler {
 public:
  JsonHandler(std::string_view text, std::string_view name, const DocumentLimits& limits, const char* const& furthest)
      : _text(text), _name(name), _builder(name, limits), _furthest(furthest) {}

  bool null() { return scalar(nullptr); }
  bool boolean(bool value) { return scalar(value); }
  bool number_integer(std::int64_t value) { return scalar(value); }
  bool number_unsigned(std::uint64_t value) {
    if (value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      return scalar(static_cast<std::int64_t>(value));
    }
    return scalar(value);
  }
  bool number_float(double value, const std::string& text) {
    if (number_shape(text).kind == NumberKind::integer) {
      fail(_name, line(),
           "the number " + quoted_start(text) + " is outside the range of whole numbers, which is -2^63 to 2^64 - 1");
    }
    return scalar(value);
  }
  bool string(std::string& value) { return scalar(std::move(value)); }
  bool binary(Value::binary_t& /*value*/) { return false; }
  bool start_object(std::size_t /*size*/) {
    _builder.begin_container(Value::object(), line());
    return true;
  }
  bool key(std::string& value) { return scalar(std::move(value)); }
  bool end_object() { return end(); }
  bool start_array(std::size_t /*size*/) {
    _builder.begin_container(Value::array(), line());
    return true;
  }
  bool end_array() { return end(); }
  bool parse_error(std::size_t /*position*/, const std::string& last_token,
                   const nlohmann::detail::exception& failure) {
    constexpr int number_out_of_range = 406;
    if (failure.id == number_out_of_range) {
      fail(_name, line(),
           "the number " + quoted_start(last_token) +
               " is outside the range of real numbers, which is about 1e-308 to "
               "1e308");
    }
    const bool is_cut = std::string_view(failure.what()).find("unexpected end of input") != std::string_view::npos;
    fail(_name, line(), is_cut ? "this is not JSON: the text ends too early" : "this is not JSON, near " + nearby());
  }

  [[nodiscard]] Value take() { return _builder.take(); }

 private:
  /// A number is known only after the character behind it, which may be a line feed.
  [[nodiscard]] std::size_t line() {
    const auto at = static_cast<std::size_t>(_furthest - _text.data());
    const std::string_view fresh = _text.substr(_counted, std::max(at, _counted + 1) - 1 - _counted);
    _line += static_cast<std::size_t>(std::count(fresh.begin(), fresh.end(), '\n'));
    _counted += fresh.size();
    return _line;
  }

  /// What stands on the line before the place where the parser gave up.
  [[nodiscard]] std::string nearby() const {
    std::string_view read = trimmed(_text.substr(0, static_cast<std::size_t>(_furthest - _text.data())));
    if (const std::size_t feed = read.rfind('\n'); feed != std::string_view::npos) read.remove_prefix(feed + 1);
    constexpr std::size_t longest = 40;
    if (read.size() > longest) read.remove_prefix(read.size() - longest);
    return json_quoted(trimmed(read));
  }

  bool scalar(Value value) {
    _builder.scalar(std::move(value), line());
    return true;
  }

  bool end() {
    _builder.end_container(line());
    return true;
  }

  std::string_view _text;
  std::string_view _name;
  Builder _builder;
  const char* const& _furthest;
  std::size_t _line = 1;
  std::size_t _counted = 0;  ///< bytes of the text whose line feeds are in `_line`
};

}  // namespace

void save_yaml(const Path& path, const Value& value) {
  write_file_atomically(path, yaml_text(value));
}

Value load_yaml(const Path& path, const DocumentLimits& limits) {
  return parse_yaml(read_text_file(path, limits.max_bytes), path_text(path), limits);
}

std::string yaml_text(const Value& value) {
  return YamlWriter().document(value);
}

Value parse_yaml(std::string_view text, std::string_view name, const DocumentLimits& limits) {
  const std::string_view checked = checked_text(text, name, limits);
  // At the end of a file the YAML library takes a quoted text that nobody closes for complete, and a last line without
  // a colon for a key. A comment and the mark of a document's end make it look closely.
  std::string document(checked);
  if (!document.ends_with('\n')) document += '\n';
  document += "#\n...\n";
  YamlHandler handler(document, name, limits);
  TextStream stream(document);
  try {
    YAML::Parser parser(stream);
    while (parser.HandleNextDocument(handler)) {
      // A second document is the handler's to refuse.
    }
  } catch (const YAML::Exception& failure) {
    if (failure.mark.is_null()) fail(name, yaml_failure_text(failure.msg));
    const std::size_t last_line = line_of(checked, std::max<std::size_t>(checked.size(), 1) - 1);
    fail(name, std::min(static_cast<std::size_t>(failure.mark.line) + 1, last_line), yaml_failure_text(failure.msg));
  }
  return handler.take();
}

std::string json_text(const Value& value) {
  std::string text;
  append_json(text, value, {.is_indented = true});
  return text + '\n';
}

std::string json_line(const Value& value) {
  std::string text;
  append_json(text, value, {});
  return text;
}

Value parse_json(std::string_view text, std::string_view name, const DocumentLimits& limits) {
  const std::string_view checked = checked_text(text, name, limits);
  const char* furthest = checked.data();
  JsonHandler handler(checked, name, limits, furthest);
  static_cast<void>(Value::sax_parse(WatchedIterator(checked.data(), &furthest),
                                     WatchedIterator(checked.data() + checked.size(), &furthest), &handler));
  return handler.take();
}

}  // namespace orvexa::common
