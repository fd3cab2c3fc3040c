#include "orvexa/model/measures/expression.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

#include "orvexa/common/text.h"

namespace orvexa::model {

namespace {

constexpr double invalid = std::numeric_limits<double>::quiet_NaN();

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

/// Letters beyond ASCII are bytes from 0x80.
bool begins_name(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}

bool continues_name(char c) {
  return begins_name(c) || is_digit(c) || c == '.';
}

bool is_blank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

/// Characters rather than bytes, as a person counts.
std::size_t characters(std::string_view text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

double finite(double value) {
  return std::isfinite(value) ? value : invalid;
}

/// pow of C, but without a value where an operand has none (for C, 1^NaN and NaN^0 are 1).
double power(double base, double exponent) {
  return std::isnan(base) || std::isnan(exponent) ? invalid : finite(std::pow(base, exponent));
}

double lesser(double a, double b) {
  return std::isnan(a) || std::isnan(b) ? invalid : std::min(a, b);
}

double greater(double a, double b) {
  return std::isnan(a) || std::isnan(b) ? invalid : std::max(a, b);
}

}  // namespace

// ---- From text to steps ----

class Expression::Parser {
 public:
  explicit Parser(Expression& expression) : _expression(expression), _text(expression._text) {}

  void parse() {
    skip_blanks();
    if (is_at_end()) fail("is empty", "a formula over bands, such as (N - R) / (N + R)");
    sum();
    if (!is_at_end()) fail("does not go on", "an operator or the end");
  }

 private:
  struct FunctionRow {
    std::string_view name;
    Code code;
    bool takes_several;
  };
  static constexpr std::array<FunctionRow, 4> functions{
      {{"sqrt", Code::sqrt, false}, {"abs", Code::abs, false}, {"min", Code::min, true}, {"max", Code::max, true}}};

  /// Counts how deep the parser is inside itself.
  class Nesting {
   public:
    explicit Nesting(Parser& parser) : _parser(parser) {
      if (++_parser._depth > max_depth) {
        throw std::invalid_argument(
            fmt::format("The expression {} has more than {} parentheses, signs and powers "
                        "inside each other at character {}.",
                        _parser.quoted(), max_depth, _parser.position()));
      }
    }
    ~Nesting() { --_parser._depth; }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;

   private:
    Parser& _parser;
  };

  [[nodiscard]] bool is_at_end() const { return _at == _text.size(); }
  [[nodiscard]] std::size_t position() const { return characters(_text.substr(0, _at)) + 1; }
  [[nodiscard]] std::string quoted() const { return '"' + common::visible_text(_text) + '"'; }

  [[noreturn]] void fail(std::string_view what, std::string_view expected) const {
    throw std::invalid_argument(
        fmt::format("The expression {} {} at character {}: expected {}.", quoted(), what, position(), expected));
  }
  [[noreturn]] void fail_for(std::string_view expected) const {
    fail(is_at_end() ? "ends too early" : "cannot be read", expected);
  }

  void skip_blanks() {
    while (!is_at_end() && is_blank(_text[_at])) ++_at;
  }
  bool takes(char c) {
    if (is_at_end() || _text[_at] != c) return false;
    ++_at;
    skip_blanks();
    return true;
  }

  void emit(Step step, int slots_more) {
    _expression._steps.push_back(step);
    _slots_in_use += slots_more;
    _expression._slots = std::max(_expression._slots, static_cast<std::size_t>(_slots_in_use));
  }

  void sum() {
    product();
    while (true) {
      if (takes('+')) {
        product();
        emit({.code = Code::add}, -1);
      } else if (takes('-')) {
        product();
        emit({.code = Code::subtract}, -1);
      } else {
        return;
      }
    }
  }

  void product() {
    with_sign();
    while (true) {
      if (takes('*')) {
        with_sign();
        emit({.code = Code::multiply}, -1);
      } else if (takes('/')) {
        with_sign();
        emit({.code = Code::divide}, -1);
      } else {
        return;
      }
    }
  }

  void with_sign() {
    const Nesting nesting(*this);
    if (takes('-')) {
      with_sign();
      emit({.code = Code::negate}, 0);
    } else if (takes('+')) {
      with_sign();
    } else {
      raised();
    }
  }

  void raised() {
    value();
    if (!takes('^')) return;
    ++_exponents;
    with_sign();
    --_exponents;
    emit({.code = Code::power}, -1);
  }

  void value() {
    if (is_at_end()) fail_for("a number, a band or a parenthesis");
    const char c = _text[_at];
    if (takes('(')) {
      sum();
      if (!takes(')')) fail_for("\")\"");
    } else if (is_digit(c) || c == '.') {
      number();
    } else if (c == '"') {
      quoted_name();
    } else if (begins_name(c)) {
      name_or_function();
    } else {
      fail_for("a number, a band or a parenthesis");
    }
  }

  void number() {
    double value = 0;
    const char* const begin = _text.data() + _at;
    const auto [end, error] = std::from_chars(begin, _text.data() + _text.size(), value);
    if (error == std::errc::invalid_argument) fail_for("a number");
    if (error == std::errc::result_out_of_range || !std::isfinite(value)) {
      fail("has a number that is too large or too small", "one that a computer can hold");
    }
    _at += static_cast<std::size_t>(end - begin);
    skip_blanks();
    if (_exponents == 0 && value != 0) _expression._has_numbers = true;
    emit({.code = Code::number, .number = value}, 1);
  }

  void band(std::string_view name) {
    auto& names = _expression._names;
    auto found = std::ranges::find(names, name);
    if (found == names.end()) found = names.insert(names.end(), std::string(name));
    emit({.code = Code::band, .band = static_cast<std::size_t>(found - names.begin())}, 1);
  }

  void quoted_name() {
    const std::size_t end = _text.find('"', _at + 1);
    if (end == std::string_view::npos) fail("has a name without its second quote", "\"");
    const std::string_view name = common::trimmed(_text.substr(_at + 1, end - _at - 1));
    if (name.empty()) fail("has an empty name", "the name of a band");
    _at = end + 1;
    skip_blanks();
    band(name);
  }

  void name_or_function() {
    const std::size_t begin = _at;
    while (!is_at_end() && continues_name(_text[_at])) ++_at;
    const std::string_view name = _text.substr(begin, _at - begin);
    skip_blanks();
    if (is_at_end() || _text[_at] != '(') return band(name);
    const auto function = std::ranges::find(functions, name, &FunctionRow::name);
    if (function == functions.end()) {
      _at = begin;
      fail("has a function that there is not", "one of sqrt, abs, min, max, or an operator before the parenthesis");
    }
    arguments(*function);
  }

  void arguments(const FunctionRow& function) {
    static_cast<void>(takes('('));
    sum();
    if (!function.takes_several) {
      emit({.code = function.code}, 0);
    } else {
      if (!takes(',')) fail_for(fmt::format("a comma, because {} has two arguments or more", function.name));
      do {
        sum();
        emit({.code = function.code}, -1);
      } while (takes(','));
    }
    if (!takes(')')) fail_for("\")\"");
  }

  Expression& _expression;
  std::string_view _text;
  std::size_t _at = 0;
  int _depth = 0;
  int _exponents = 0;
  int _slots_in_use = 0;
};

Expression::Expression(std::string_view text) : _text(text) {
  if (text.size() > max_length) {
    throw std::invalid_argument(fmt::format("An expression has {} bytes at most, and this one has {}: \"{} ...\".",
                                            max_length, text.size(),
                                            common::visible_text(common::to_valid_utf8(text.substr(0, 40)))));
  }
  if (!common::is_valid_utf8(text)) {
    throw std::invalid_argument("The expression \"" + common::visible_text(text) + "\" is not valid UTF-8.");
  }
  Parser(*this).parse();
  if (_names.empty()) {
    throw std::invalid_argument("The expression \"" + common::visible_text(_text) +
                                "\" names no band, so every pixel would have the same value.");
  }
  find_degree();
}

// ---- How the value follows the scale of the bands ----

struct Expression::Scaling {
  std::optional<double> constant;  ///< the value where no band is in it
  std::optional<double> degree;
};

bool Expression::is_binary(Code code) {
  switch (code) {
    case Code::add:
    case Code::subtract:
    case Code::multiply:
    case Code::divide:
    case Code::power:
    case Code::min:
    case Code::max:
      return true;
    default:
      return false;
  }
}

Expression::Scaling Expression::scaling_of(Code code, const Scaling& left, const Scaling& right) {
  if (left.constant && right.constant) {
    std::vector<double> value{*left.constant};
    if (code == Code::add || code == Code::subtract) {
      value[0] += (code == Code::add ? 1 : -1) * *right.constant;
    } else {
      apply(code, value, {*right.constant});
    }
    return {.constant = value[0], .degree = 0};
  }
  const bool has_degrees = left.degree.has_value() && right.degree.has_value();
  switch (code) {
    case Code::multiply:
      return {.constant = {}, .degree = has_degrees ? std::optional(*left.degree + *right.degree) : std::nullopt};
    case Code::divide:
      return {.constant = {}, .degree = has_degrees ? std::optional(*left.degree - *right.degree) : std::nullopt};
    case Code::power:
      if (right.constant) {
        return {.constant = {}, .degree = left.degree ? std::optional(*left.degree * *right.constant) : std::nullopt};
      }
      // Only a plain number to the power of a plain number stays one.
      return {.constant = {},
              .degree = has_degrees && *left.degree == 0 && *right.degree == 0 ? left.degree : std::nullopt};
    default:  // sums and choices want the same of both; 0 has every degree
      if (left.constant == 0.0) return {.constant = {}, .degree = right.degree};
      if (right.constant == 0.0 || left.degree == right.degree) return {.constant = {}, .degree = left.degree};
      return {};
  }
}

void Expression::find_degree() {
  std::vector<Scaling> stack;
  for (const Step& step : _steps) {
    if (step.code == Code::number) {
      stack.push_back({.constant = step.number, .degree = 0});
    } else if (step.code == Code::band) {
      stack.push_back({.constant = {}, .degree = 1});
    } else if (is_binary(step.code)) {
      const Scaling right = stack.back();
      stack.pop_back();
      stack.back() = scaling_of(step.code, stack.back(), right);
    } else {
      Scaling& top = stack.back();
      if (top.constant) {
        std::vector<double> value{*top.constant};
        apply(step.code, value);
        top.constant = value[0];
      } else if (step.code == Code::sqrt && top.degree) {
        *top.degree /= 2;
      }
    }
  }
  _degree = stack.back().degree;
}

bool Expression::needs_reflectance() const {
  return _has_numbers && _degree != 0.0;
}

// ---- Values ----

void Expression::apply(Code code, std::vector<double>& left, const std::vector<double>& right) {
  const auto each = [&](const auto& operation) {
    for (std::size_t x = 0; x < left.size(); ++x) left[x] = operation(left[x], right[x]);
  };
  switch (code) {
    case Code::multiply:
      return each([](double a, double b) { return finite(a * b); });
    case Code::divide:
      return each([](double a, double b) { return finite(a / b); });
    case Code::power:
      return each(power);
    case Code::min:
      return each(lesser);
    case Code::max:
      return each(greater);
    default:
      throw std::logic_error("The step of an expression has other operands.");
  }
}

void Expression::apply(Code code, std::vector<double>& value) {
  for (double& v : value) {
    if (code == Code::negate) {
      v = -v;
    } else {
      v = code == Code::sqrt ? std::sqrt(v) : std::abs(v);
    }
  }
}

Expression::Rows::Rows(const Expression& expression, std::size_t width)
    : _expression(expression),
      _width(width),
      _slots(expression._slots, Slot{std::vector<double>(width), std::vector<double>(width), false}) {}

/// Bands are fractions of white and so rounded: terms that cancel in counts leave a rest of some 1e-17, which a
/// division would make a huge number.
void Expression::Rows::add(Slot& left, const Slot& right, double sign) const {
  constexpr double rounding = 16 * std::numeric_limits<double>::epsilon();
  for (std::size_t x = 0; x < _width; ++x) {
    const double terms = (left.is_sum ? left.terms[x] : std::abs(left.value[x])) +
                         (right.is_sum ? right.terms[x] : std::abs(right.value[x]));
    const double value = finite(left.value[x] + sign * right.value[x]);
    left.value[x] = std::abs(value) <= rounding * terms ? 0 : value;
    left.terms[x] = terms;
  }
  left.is_sum = true;
}

void Expression::Rows::evaluate(std::span<const std::vector<double>> bands, std::span<double> values) {
  std::size_t used = 0;
  for (const Step& step : _expression._steps) {
    if (step.code == Code::number) {
      Slot& slot = _slots[used++];
      slot.is_sum = false;
      std::ranges::fill(slot.value, step.number);
    } else if (step.code == Code::band) {
      Slot& slot = _slots[used++];
      slot.is_sum = false;
      std::transform(bands[step.band].begin(), bands[step.band].end(), slot.value.begin(), finite);
    } else if (step.code == Code::add || step.code == Code::subtract) {
      --used;
      add(_slots[used - 1], _slots[used], step.code == Code::add ? 1 : -1);
    } else if (is_binary(step.code)) {
      --used;
      apply(step.code, _slots[used - 1].value, _slots[used].value);
      _slots[used - 1].is_sum = false;
    } else {
      // A sign leaves the terms of a sum as they are; a root does not.
      if (step.code == Code::sqrt) _slots[used - 1].is_sum = false;
      apply(step.code, _slots[used - 1].value);
    }
  }
  std::ranges::copy(_slots.front().value, values.begin());
}

}  // namespace orvexa::model
