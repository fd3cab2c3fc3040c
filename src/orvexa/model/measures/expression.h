#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvexa::model {

/// A formula over bands, written by a user: "(N - RE) / (N + RE - 2 * MSP.BLU)".
///
///     sum     = product { ("+" | "-") product }
///     product = signed { ("*" | "/") signed }
///     signed  = [ "-" | "+" ] signed | power
///     power   = value [ "^" signed ]                          so that -2^2 = -4 and 2^3^2 = 2^9
///     value   = number | name | function "(" sum { "," sum } ")" | "(" sum ")"
///
/// Functions are sqrt and abs of one argument, min and max of two or more. A name begins with a letter or underscore
/// and holds letters, digits, underscores and dots; any other stands in double quotes. A function's name without a
/// parenthesis is a name too. Nothing can be assigned, called or read but this.
class Expression {
 public:
  static constexpr std::size_t max_length = 1000;  ///< bytes
  static constexpr int max_depth = 64;             ///< parentheses, signs and powers inside each other

  /// @throws std::invalid_argument with a sentence that quotes the text and says at which character (counted from 1)
  /// what was expected.
  explicit Expression(std::string_view text);

  [[nodiscard]] const std::string& text() const { return _text; }
  /// The names in it, each once, in the order of their first appearance; at least one.
  [[nodiscard]] const std::vector<std::string>& names() const { return _names; }

  /// The exponent d for which multiplying all bands by k multiplies the value by k^d: 0 for (N - R) / (N + R), 1 for
  /// N - R; absent where there is none that can be told from the form, such as for N + 1.
  [[nodiscard]] std::optional<double> degree() const { return _degree; }
  /// Whether its numbers mean something only in reflectance: its value depends on the scale (the degree is not 0) and
  /// it holds a number other than 0 that is not an exponent. N - R has none and is a difference in whatever unit the
  /// bands have.
  [[nodiscard]] bool needs_reflectance() const;

  /// Works out rows of one width; holds what it needs for that, so one is made for each thread.
  class Rows {
   public:
    /// @param expression  must live as long as this.
    Rows(const Expression& expression, std::size_t width);

    /// @param bands  a row for each of `names()`.
    /// @param values  NaN where a band has no finite value, a denominator is 0, a root or power has no real value, or
    /// any step overflows. A sum whose terms cancel but for rounding (16 epsilons of the sum of their absolute values)
    /// is 0.
    void evaluate(std::span<const std::vector<double>> bands, std::span<double> values);

   private:
    /// A value of each pixel and, for sums, the sum of the absolute values of the terms.
    struct Slot {
      std::vector<double> value;
      std::vector<double> terms;
      bool is_sum = false;
    };
    void add(Slot& left, const Slot& right, double sign) const;

    const Expression& _expression;
    std::size_t _width;
    std::vector<Slot> _slots;
  };

 private:
  enum class Code : std::uint8_t { number, band, add, subtract, multiply, divide, power, negate, sqrt, abs, min, max };
  /// A step of a program for a stack: operands are the topmost slots, which the result replaces.
  struct Step {
    Code code = Code::number;
    double number = 0;     ///< of `number`
    std::size_t band = 0;  ///< of `band`: place in `_names`
  };
  class Parser;
  struct Scaling;
  [[nodiscard]] static Scaling scaling_of(Code code, const Scaling& left, const Scaling& right);
  [[nodiscard]] static bool is_binary(Code code);
  static void apply(Code code, std::vector<double>& left, const std::vector<double>& right);
  static void apply(Code code, std::vector<double>& value);
  void find_degree();

  std::string _text;
  std::vector<std::string> _names;
  std::vector<Step> _steps;
  std::size_t _slots = 0;  ///< the most that are in use at once
  std::optional<double> _degree;
  bool _has_numbers = false;  ///< other than 0, outside exponents
};

}  // namespace orvexa::model
