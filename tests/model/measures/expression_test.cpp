#include "orvexa/model/measures/expression.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>

#include "orvexa/model/measures/named_expressions.h"
#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using testing::ElementsAre;

/// The value of one pixel where the bands have these values.
double value_of(const std::string& text, const std::map<std::string, double>& bands = {{"a", 2}, {"b", 3}, {"z", 0}}) {
  const Expression expression(text);
  std::vector<std::vector<double>> rows;
  for (const std::string& name : expression.names()) rows.push_back({bands.at(name)});
  std::vector<double> out(1);
  Expression::Rows(expression, 1).evaluate(rows, out);
  return out[0];
}

struct ValueCase {
  const char* text;
  double value;
};
class ExpressionValues : public testing::TestWithParam<ValueCase> {};

TEST_P(ExpressionValues, AreThoseOfArithmetic) {
  EXPECT_DOUBLE_EQ(value_of(GetParam().text), GetParam().value) << GetParam().text;
}

// a = 2, b = 3, z = 0
INSTANTIATE_TEST_SUITE_P(ByHand, ExpressionValues,
                         testing::Values(ValueCase{"a", 2}, ValueCase{"a + b * 4", 14}, ValueCase{"(a + b) * 4", 20},
                                         ValueCase{"a - b - 4", -5}, ValueCase{"12 / a / b", 2},
                                         ValueCase{"-a ^ 2", -4},        // the sign after the power
                                         ValueCase{"(-a) ^ 2", 4},       //
                                         ValueCase{"a ^ b ^ 2", 512},    // 2^9
                                         ValueCase{"a ^ -1", 0.5},       //
                                         ValueCase{"--a", 2},            //
                                         ValueCase{"+a - -b", 5},        //
                                         ValueCase{"sqrt(a * 8)", 4},    //
                                         ValueCase{"abs(a - b)", 1},     //
                                         ValueCase{"min(a, b, 1)", 1},   //
                                         ValueCase{"max(b, a)", 3},      //
                                         ValueCase{"a * -b", -6},        //
                                         ValueCase{"1.5e1*a+.5", 30.5},  //
                                         ValueCase{"2 * (a - b) / (a + b + 1)", -1.0 / 3},
                                         ValueCase{"z ^ 0 + a", 3},  // as in IEEE 754
                                         ValueCase{" \t a \n ", 2}));

class PixelsWithoutAValue : public testing::TestWithParam<const char*> {};

TEST_P(PixelsWithoutAValue, AreNoNumbers) {
  EXPECT_TRUE(std::isnan(value_of(GetParam()))) << value_of(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Undefined, PixelsWithoutAValue,
                         testing::Values("a / z", "z / z", "z ^ -1", "sqrt(z - a)", "(z - a) ^ 0.5", "a * 1e308 * 10",
                                         "1 / (a * 1e308 * 10)",            // not 0, though the quotient would be
                                         "min(a, a / z)", "max(a / z, a)",  // not the other one
                                         "(a / z) ^ 0", "1 ^ (a / z)",      // for C these are 1
                                         "a + 0 * (1 / z)", "10 ^ (a * 1000)"));

TEST(Expressions, GivenABandWithoutAFiniteValue_ThenThePixelHasNone) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_TRUE(std::isnan(value_of("1 / a", {{"a", infinity}})));
  EXPECT_TRUE(std::isnan(value_of("max(a, 0)", {{"a", std::nan("")}})));
}

// In fractions of 255 the terms are rounded and leave a rest of some 1e-17, by which nothing may be divided; the same
// holds for 0.1 + 0.2 - 0.3 in binary fractions.
TEST(Expressions, ASumThatCancelsButForRoundingIsZero) {
  EXPECT_EQ(value_of("g + r - b", {{"g", 25 / 255.0}, {"r", 51 / 255.0}, {"b", 76 / 255.0}}), 0);
  EXPECT_TRUE(std::isnan(value_of("(g - r) / (g + r - b)", {{"g", 0.1}, {"r", 0.2}, {"b", 0.1 + 0.2}})));
  EXPECT_EQ(value_of("a + b - c", {{"a", 0.1}, {"b", 0.2}, {"c", 0.3}}), 0);
  EXPECT_EQ(value_of("sqrt(a + b - c)", {{"a", 0.1}, {"b", 0.2}, {"c", 0.30000000000000004}}), 0);
  // A small value that is nobody's rest stays: 1e-17 is one term.
  EXPECT_EQ(value_of("a + b", {{"a", 1e-17}, {"b", 0}}), 1e-17);
}

TEST(Expressions, NamesStandOnceInTheOrderOfTheirAppearance) {
  EXPECT_THAT(Expression("(MSP.NIR - \"Band 1\") / (RE2 + MSP.NIR) + min").names(),
              ElementsAre("MSP.NIR", "Band 1", "RE2", "min"));
  EXPECT_THAT(Expression("Bänd_1.x * 2").names(), ElementsAre("Bänd_1.x"));
}

struct SentenceCase {
  const char* text;
  const char* sentence;
};
class RefusedExpressions : public testing::TestWithParam<SentenceCase> {};

TEST_P(RefusedExpressions, SayWhereAndWhatWasExpected) {
  EXPECT_EQ(test::refusal([] { static_cast<void>(Expression(GetParam().text)); }), GetParam().sentence);
}

INSTANTIATE_TEST_SUITE_P(
    Sentences, RefusedExpressions,
    testing::Values(
        SentenceCase{"",
                     "The expression \"\" is empty at character 1: expected a formula over bands, such as (N - R) "
                     "/ (N + R)."},
        SentenceCase{"(N - R", "The expression \"(N - R\" ends too early at character 7: expected \")\"."},
        SentenceCase{"N + * R",
                     "The expression \"N + * R\" cannot be read at character 5: expected a number, a band or a "
                     "parenthesis."},
        SentenceCase{"2N", "The expression \"2N\" does not go on at character 2: expected an operator or the end."},
        SentenceCase{"Ää $ N",
                     "The expression \"Ää $ N\" does not go on at character 4: expected an operator or the "
                     "end."},
        SentenceCase{"sin(N)",
                     "The expression \"sin(N)\" has a function that there is not at character 1: expected one of sqrt, "
                     "abs, min, max, or an operator before the parenthesis."},
        SentenceCase{"min(N)",
                     "The expression \"min(N)\" cannot be read at character 6: expected a comma, because min has two "
                     "arguments or more."},
        SentenceCase{"sqrt(N, R)", "The expression \"sqrt(N, R)\" cannot be read at character 7: expected \")\"."},
        SentenceCase{
            "N + 1e999",
            "The expression \"N + 1e999\" has a number that is too large or too small at character 5: expected "
            "one that a computer can hold."},
        SentenceCase{"\"N", "The expression \"\"N\" has a name without its second quote at character 1: expected \"."},
        SentenceCase{"N\x1b[0m",
                     "The expression \"N\\x1b[0m\" does not go on at character 2: expected an operator or "
                     "the end."},
        SentenceCase{"1 + 2", "The expression \"1 + 2\" names no band, so every pixel would have the same value."}));

TEST(Expressions, TheLimitsOfLengthAndDepthAreKeptAndBeyondThemIsASentence) {
  EXPECT_NO_THROW(Expression(std::string(1000, 'N')));
  EXPECT_EQ(test::refusal([] { static_cast<void>(Expression(std::string(1001, 'N'))); }),
            "An expression has 1000 bytes at most, and this one has 1001: \"" + std::string(40, 'N') + " ...\".");
  const auto nested = [](std::size_t depth) { return std::string(depth, '(') + "N" + std::string(depth, ')'); };
  EXPECT_NO_THROW(Expression(nested(63)));  // and the innermost value is the 64th
  EXPECT_EQ(test::refusal([&] { static_cast<void>(Expression(nested(64))); }),
            "The expression \"" + nested(64) +
                "\" has more than 64 parentheses, signs and powers inside each other at character 65.");
  EXPECT_THAT(test::refusal([] { static_cast<void>(Expression(std::string(900, '-') + "N")); }),
              testing::HasSubstr("more than 64"));
}

struct ScaleCase {
  const char* text;
  std::optional<double> degree;
  bool needs_reflectance;
};
class ScalesOfExpressions : public testing::TestWithParam<ScaleCase> {};

TEST_P(ScalesOfExpressions, AreToldFromTheForm) {
  const Expression expression(GetParam().text);
  EXPECT_EQ(expression.degree(), GetParam().degree) << GetParam().text;
  EXPECT_EQ(expression.needs_reflectance(), GetParam().needs_reflectance) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(ByHand, ScalesOfExpressions,
                         testing::Values(ScaleCase{"(N - R) / (N + R)", 0, false},
                                         ScaleCase{"2.5 * (N - R) / (N + 2.4 * R)", 0, false},
                                         ScaleCase{"(N - R) / (N + R + 0.16)", {}, true}, ScaleCase{"N - R", 1, false},
                                         ScaleCase{"1.3 * R - G", 1, true}, ScaleCase{"1 / G - 1 / RE", -1, true},
                                         ScaleCase{"sqrt(N * R)", 1, false}, ScaleCase{"N ^ 2 / R ^ 2", 0, false},
                                         ScaleCase{"N ^ 2", 2, false}, ScaleCase{"max(N - R, 0)", 1, false},
                                         ScaleCase{"max(N - R, 0.1)", {}, true}, ScaleCase{"N / R + 1", 0, false},
                                         ScaleCase{"2 ^ (N / R)", 0, false}, ScaleCase{"2 ^ N", {}, true},
                                         ScaleCase{"N ^ R", {}, false}, ScaleCase{"N / (N + (3 - 3))", 0, false},
                                         ScaleCase{"sqrt(4) ^ 2 * N / R", 0, false},
                                         ScaleCase{"-abs(N / R)", 0, false}));

TEST(NamedExpressions, AreANameAndAFormula) {
  const auto expressions = named_expressions("op", "p", "ratio = N / R;; d2=N-R\n x = min(N, R) ;");
  ASSERT_EQ(expressions.size(), 3u);
  EXPECT_EQ(expressions[0].name, "ratio");
  EXPECT_EQ(expressions[0].expression.text(), "N / R");
  EXPECT_EQ(expressions[1].name, "d2");
}

TEST(NamedExpressions, OfAnotherFormAreRefusedWithASentence) {
  const auto refused = [](const std::string& entries) {
    return test::refusal([&] { static_cast<void>(named_expressions("op", "p", entries)); });
  };
  EXPECT_EQ(refused("N / R"),
            "op: parameter \"p\" holds \"N / R\", but an entry is a name and an expression: NAME = EXPRESSION, such as "
            "ratio = N / R.");
  for (const char* entry : {"= N", "2a = N", "a b = N", "a.b = N", "ä = N"}) {
    EXPECT_THAT(refused(entry), testing::HasSubstr("begins with a letter and holds up to 60 letters")) << entry;
  }
  EXPECT_EQ(refused("a = N; A = R"), "op: parameter \"p\" holds \"A = R\", but the name A is there already.");
  EXPECT_EQ(refused("a = N +"),
            "op: a: The expression \"N +\" ends too early at character 4: expected a number, a band or a parenthesis.");
}

TEST(NamedExpressions, AreOneAtLeast) {
  EXPECT_EQ(test::refusal([] { static_cast<void>(named_expressions("op", "p", " ; \n")); }),
            "op: parameter \"p\" is empty, but at least one expression has to be named, such as ratio = N / R.");
}

TEST(NamedExpressions, KnowWhichOfTheirNamesAreRoles) {
  EXPECT_THAT(role_user("x", Expression("N + MSP.NIR / RE2 - \"n\"")).roles, ElementsAre("N", "RE2"));
}

}  // namespace
}  // namespace orvexa::model
