#include "orvexa/model/operation_base.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::refusal;

ParameterInfo parameter(ParameterType type, std::optional<double> min = {}, std::optional<double> max = {}) {
  ParameterInfo info{.name = "p", .type = type, .default_value = "not looked at", .min = min, .max = max};
  if (type == ParameterType::choice || type == ParameterType::choices) info.choices = {"otsu", "triangle", "li", "8"};
  return info;
}

ParameterInfo parameter_without_default(ParameterType type) {
  ParameterInfo info = parameter(type);
  info.default_value = nullptr;
  return info;
}

Value validated(const ParameterInfo& info, const Value& value) {
  return validate_parameters("op", std::vector{info}, Value{{"p", value}}).at("p");
}

std::string refused(const ParameterInfo& info, const Value& value) {
  return refusal([&] { static_cast<void>(validated(info, value)); });
}

struct AcceptedCase {
  const char* name;
  ParameterType type;
  const char* given;
  const char* stored;
};

class AcceptedValues : public testing::TestWithParam<AcceptedCase> {};

TEST_P(AcceptedValues, AreStoredInTheirJsonForm) {
  const AcceptedCase& c = GetParam();
  EXPECT_EQ(validated(parameter(c.type), Value::parse(c.given)).dump(), c.stored);
}

INSTANTIATE_TEST_SUITE_P(
    ParameterTypes, AcceptedValues,
    testing::Values(
        AcceptedCase{"Integer", ParameterType::integer, "3", "3"},
        AcceptedCase{"WholeRealForAnInteger", ParameterType::integer, "3.0", "3"},
        AcceptedCase{"NegativeZeroForAnInteger", ParameterType::integer, "-0.0", "0"},
        AcceptedCase{"LargestExactRealForAnInteger", ParameterType::integer, "9007199254740992.0", "9007199254740992"},
        AcceptedCase{"LargestInteger", ParameterType::integer, "9223372036854775807", "9223372036854775807"},
        AcceptedCase{"Real", ParameterType::real, "0.5", "0.5"},
        AcceptedCase{"IntegerForAReal", ParameterType::real, "3", "3.0"},
        AcceptedCase{"Boolean", ParameterType::boolean, "true", "true"},
        AcceptedCase{"Text", ParameterType::text, R"("true")", R"("true")"},
        AcceptedCase{"Choice", ParameterType::choice, R"("li")", R"("li")"},
        AcceptedCase{"NumberForAChoice", ParameterType::choice, "8", R"("8")"},
        AcceptedCase{"Choices", ParameterType::choices, R"(["li","otsu"])", R"(["li","otsu"])"},
        AcceptedCase{"TextForChoices", ParameterType::choices, R"("li")", R"(["li"])"},
        AcceptedCase{"EmptyChoices", ParameterType::choices, "[]", "[]"},
        AcceptedCase{"Band", ParameterType::band, R"("MSP.NIR")", R"("MSP.NIR")"},
        AcceptedCase{"Bands", ParameterType::bands, R"(["A","B"])", R"(["A","B"])"},
        AcceptedCase{"TextForBands", ParameterType::bands, R"("A")", R"(["A"])"},
        AcceptedCase{"Point", ParameterType::point, "[0, 1]", "[0.0,1.0]"},
        AcceptedCase{"PointAsMap", ParameterType::point, R"({"y": 1, "x": 0.5})", "[0.5,1.0]"},
        AcceptedCase{"Points", ParameterType::points, R"([[0, 1], {"x_norm": 2, "y_norm": 3}])",
                     "[[0.0,1.0],[2.0,3.0]]"},
        AcceptedCase{"Rect", ParameterType::rect, "[0.5, 0.5, 1, 1]", "[0.5,0.5,1.0,1.0]"},
        AcceptedCase{"RectAsMap", ParameterType::rect, R"({"h": 4, "cx": 1, "cy": 2, "w": 3})", "[1.0,2.0,3.0,4.0]"},
        AcceptedCase{"RectAsPicked", ParameterType::rect, R"({"cx_norm": 1, "cy_norm": 2, "w_norm": 3, "h_norm": 4})",
                     "[1.0,2.0,3.0,4.0]"},
        AcceptedCase{"RectPartlyOutside", ParameterType::rect, "[-3, 9, 0, 0]", "[-3.0,9.0,0.0,0.0]"},
        AcceptedCase{"Rects", ParameterType::rects, "[[1, 2, 3, 4]]", "[[1.0,2.0,3.0,4.0]]"},
        AcceptedCase{"NoRects", ParameterType::rects, "[]", "[]"},
        AcceptedCase{"Expression", ParameterType::expression, R"("N/R")", R"("N/R")"},
        AcceptedCase{"File", ParameterType::file, R"("a/b.png")", R"("a/b.png")"},
        AcceptedCase{"Palette", ParameterType::palette, R"([{"lab": [50, -40, 30], "name": "leaf"}])",
                     R"([{"name":"leaf","lab":[50.0,-40.0,30.0]}])"},
        AcceptedCase{"Polygons", ParameterType::polygons, R"([[[0, 1], {"x": 2, "y": 3}, [4, 5]]])",
                     "[[[0.0,1.0],[2.0,3.0],[4.0,5.0]]]"},
        AcceptedCase{"NoPolygons", ParameterType::polygons, "[]", "[]"},
        AcceptedCase{"NullIsTheDefault", ParameterType::real, "null", R"("not looked at")"}),
    [](const auto& tested) { return std::string(tested.param.name); });

struct RefusedCase {
  const char* name;
  ParameterType type;
  const char* given;
};

class RefusedValues : public testing::TestWithParam<RefusedCase> {};

TEST_P(RefusedValues, NameOperationParameterValueAndWhatIsAllowed) {
  const RefusedCase& c = GetParam();
  const ParameterInfo info = parameter(c.type);
  const std::string sentence = refused(info, Value::parse(c.given));
  EXPECT_THAT(sentence, testing::StartsWith("op: parameter \"p\" is "));
  EXPECT_THAT(sentence, testing::HasSubstr(", but it must be " + allowed_text(info)));
  EXPECT_THAT(sentence, testing::EndsWith("."));
}

INSTANTIATE_TEST_SUITE_P(
    ParameterTypes, RefusedValues,
    testing::Values(RefusedCase{"FractionForAnInteger", ParameterType::integer, "3.5"},
                    RefusedCase{"TextForAnInteger", ParameterType::integer, R"("3")"},
                    RefusedCase{"BooleanForAnInteger", ParameterType::integer, "true"},
                    RefusedCase{"InexactRealForAnInteger", ParameterType::integer, "1e17"},
                    RefusedCase{"IntegerBeyondTheType", ParameterType::integer, "9223372036854775808"},
                    RefusedCase{"TextForAReal", ParameterType::real, R"("0.5")"},
                    RefusedCase{"IntegerThatARealWouldRound", ParameterType::real, "9007199254740993"},
                    RefusedCase{"NumberForABoolean", ParameterType::boolean, "1"},
                    RefusedCase{"NumberForAText", ParameterType::text, "1"},
                    RefusedCase{"UnknownChoice", ParameterType::choice, R"("otso")"},
                    RefusedCase{"OtherCaseOfAChoice", ParameterType::choice, R"("Otsu")"},
                    RefusedCase{"RealForAChoice", ParameterType::choice, "8.0"},
                    RefusedCase{"RepeatedChoice", ParameterType::choices, R"(["li","li"])"},
                    RefusedCase{"UnknownAmongChoices", ParameterType::choices, R"(["li","x"])"},
                    RefusedCase{"RepeatedBand", ParameterType::bands, R"(["A","A"])"},
                    RefusedCase{"NumberAmongBands", ParameterType::bands, "[1]"},
                    RefusedCase{"PointOfOne", ParameterType::point, "[1]"},
                    RefusedCase{"PointOfThree", ParameterType::point, "[1, 2, 3]"},
                    RefusedCase{"PointOfTexts", ParameterType::point, R"(["1", "2"])"},
                    RefusedCase{"MapOfOtherNames", ParameterType::point, R"({"a": 1, "y": 2})"},
                    RefusedCase{"PointForPoints", ParameterType::points, "[1, 2]"},
                    RefusedCase{"RectOfThree", ParameterType::rect, "[1, 2, 3]"},
                    RefusedCase{"NegativeWidth", ParameterType::rect, "[0.5, 0.5, -1, 1]"},
                    RefusedCase{"NegativeHeightAmongRects", ParameterType::rects, "[[0.5, 0.5, 1, -1]]"},
                    RefusedCase{"RectForRects", ParameterType::rects, "[1, 2, 3, 4]"},
                    RefusedCase{"MapForAFile", ParameterType::file, R"({"path": "x"})"},
                    RefusedCase{"PaletteWithoutNames", ParameterType::palette, R"([{"lab": [1, 2, 3]}])"},
                    RefusedCase{"PaletteWithAnEmptyName", ParameterType::palette,
                                R"([{"name": "", "lab": [1, 2, 3]}])"},
                    RefusedCase{"PaletteWithARepeatedName", ParameterType::palette,
                                R"([{"name": "a", "lab": [1, 2, 3]}, {"name": "a", "lab": [4, 5, 6]}])"},
                    RefusedCase{"PolygonForPolygons", ParameterType::polygons, "[[0, 0], [1, 0], [1, 1]]"},
                    RefusedCase{"PolygonOfTwoPoints", ParameterType::polygons, "[[[0, 0], [1, 0]]]"},
                    RefusedCase{"PolygonOfNoPoint", ParameterType::polygons, "[[]]"},
                    RefusedCase{"PaletteWithAMoreThanItNeeds", ParameterType::palette,
                                R"([{"name": "a", "lab": [1, 2, 3], "rgb": 1}])"}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST(ValidateParameters, FillsInDefaultsInTheOrderOfTheDescription) {
  const std::vector<ParameterInfo> infos{
      {.name = "b", .type = ParameterType::real, .default_value = 0.5, .min = 0.0, .max = 1.0},
      {.name = "a", .type = ParameterType::integer, .default_value = 7}};
  EXPECT_EQ(validate_parameters("op", infos, Value()).dump(), R"({"b":0.5,"a":7})");
  EXPECT_EQ(validate_parameters("op", infos, Value{{"a", 1}}).dump(), R"({"b":0.5,"a":1})");
  EXPECT_EQ(validate_parameters("op", infos, Value{{"a", nullptr}, {"b", 1}}).dump(), R"({"b":1.0,"a":7})");
  EXPECT_EQ(default_parameters(infos).dump(), R"({"b":0.5,"a":7})");
}

TEST(ValidateParameters, RefusesAnUnknownParameterWithTheNearestKnownName) {
  const std::vector<ParameterInfo> infos{{.name = "method", .default_value = ""},
                                         {.name = "factor", .default_value = ""}};
  EXPECT_EQ(refusal([&] {
              static_cast<void>(validate_parameters("op", infos, Value{{"metod", 1}}));
            }),
            "op: there is no parameter \"metod\" (did you mean \"method\"?); its parameters are method, factor.");
  EXPECT_EQ(refusal([&] {
              static_cast<void>(validate_parameters("op", {}, Value{{"metod", 1}}));
            }),
            "op: there is no parameter \"metod\"; this operation has none.");
}

TEST(ValidateParameters, RefusesParametersThatAreNoMap) {
  EXPECT_EQ(refusal([] { static_cast<void>(validate_parameters("op", {}, Value(3))); }),
            "op: parameters must be a map of names to values, not 3.");
}

TEST(ValidateParameters, RefusesNumbersThatAreNotFinite) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(refused(parameter(ParameterType::real), std::nan("")),
            "op: parameter \"p\" is nan, but it must be a number.");
  EXPECT_EQ(refused(parameter(ParameterType::integer), infinity),
            "op: parameter \"p\" is inf, but it must be a whole number.");
  EXPECT_EQ(refused(parameter(ParameterType::point), Value::array({0.5, -infinity})),
            "op: parameter \"p\" is [0.5, -inf], but it must be a point [x, y].");
}

TEST(ValidateParameters, KeepsNumbersInsideTheirRangeLimitsIncluded) {
  const ParameterInfo radius = parameter(ParameterType::integer, 0, 200);
  EXPECT_EQ(validated(radius, 0), 0);
  EXPECT_EQ(validated(radius, 200), 200);
  EXPECT_EQ(refused(radius, 201), "op: parameter \"p\" is 201, but it must be a whole number from 0 to 200.");
  EXPECT_EQ(refused(parameter(ParameterType::real, 0.1, 10), 0.05),
            "op: parameter \"p\" is 0.05, but it must be a number from 0.1 to 10.");
  EXPECT_EQ(refused(parameter(ParameterType::points, 0, 1), Value::parse("[[0, 0], [0.5, 1.5]]")),
            "op: parameter \"p\" is [[0, 0], [0.5, 1.5]], but it must be a list of points [x, y], each number from 0 "
            "to 1.");
}

TEST(ValidateParameters, NamesTheNearestChoice) {
  EXPECT_EQ(refused(parameter(ParameterType::choice), "otso"),
            "op: parameter \"p\" is \"otso\", but it must be one of otsu, triangle, li, 8 (did you mean \"otsu\"?).");
}

TEST(ValidateParameters, ShortensLongValuesAndRepairsBrokenTexts) {
  Value long_list = Value::array();
  for (int i = 0; i < 1000; ++i) long_list.push_back(i);
  EXPECT_EQ(refused(parameter(ParameterType::point), long_list),
            "op: parameter \"p\" is [0, 1, 2, 3, 4, 5, 6, 7, ...], but it must be a point [x, y].");
  EXPECT_EQ(refused(parameter(ParameterType::text), "a\xFF"),
            "op: parameter \"p\" is \"a\xEF\xBF\xBD\", but it must be a text.");
}

TEST(RefuseUnused, NamesTheFirstParameterThatNothingLooksAtUnlessItHasItsDefault) {
  const ParameterList parameters{{.name = "way", .type = ParameterType::text, .default_value = "up"},
                                 {.name = "radius", .type = ParameterType::integer, .default_value = 3},
                                 {.name = "place", .type = ParameterType::point, .default_value = {0.5, 0.5}}};
  const auto sentence = [&](const Value& given) {
    const Value params = validate_parameters("op", parameters, given);
    return refusal([&] { refuse_unused("op", parameters, params, {"place", "radius"}, "the way is up"); });
  };
  EXPECT_EQ(sentence({}), "");
  EXPECT_EQ(sentence({{"way", "down"}, {"radius", 3}, {"place", {0.5, 0.5}}}), "");
  EXPECT_EQ(sentence({{"radius", 4}, {"place", {0, 1}}}), "op: parameter \"radius\" is 4, but the way is up.");
  EXPECT_EQ(sentence({{"place", {0, 1}}}), "op: parameter \"place\" is [0.0, 1.0], but the way is up.");
}

TEST(AllowedText, SaysHalfOpenRanges) {
  EXPECT_EQ(allowed_text(parameter(ParameterType::real, 0)), "a number of at least 0");
  EXPECT_EQ(allowed_text(parameter(ParameterType::real, {}, 0.5)), "a number of at most 0.5");
  EXPECT_EQ(allowed_text(parameter(ParameterType::boolean)), "true or false");
}

TEST(AllowedText, SaysThatNullIsNoValueWhereThatIsTheDefault) {
  EXPECT_EQ(allowed_text(parameter_without_default(ParameterType::real)), "a number, or null for no value");
  EXPECT_EQ(allowed_text(parameter_without_default(ParameterType::choice)),
            "one of otsu, triangle, li, 8, or null for no value");
}

TEST(ParameterTypeName, IsTheNameOfEachKind) {
  EXPECT_EQ(parameter_type_name(ParameterType::integer), "integer");
  EXPECT_EQ(parameter_type_name(ParameterType::rects), "rects");
  EXPECT_EQ(parameter_type_name(ParameterType::palette), "palette");
  EXPECT_EQ(parameter_type_name(ParameterType::polygons), "polygons");
}

struct SpellingCase {
  const char* name;
  ParameterType type;
  const char* text;
  const char* value;
};

class Spellings : public testing::TestWithParam<SpellingCase> {};

TEST_P(Spellings, AreReadFromTheCommandLine) {
  const SpellingCase& c = GetParam();
  EXPECT_EQ(parse_parameter_text(parameter(c.type), c.text).dump(), c.value);
}

INSTANTIATE_TEST_SUITE_P(
    ParameterTypes, Spellings,
    testing::Values(
        SpellingCase{"Integer", ParameterType::integer, "-3", "-3"},
        SpellingCase{"WholeReal", ParameterType::integer, "3.0", "3"},
        SpellingCase{"Real", ParameterType::real, " 0.5 ", "0.5"},
        SpellingCase{"RealWithoutAPoint", ParameterType::real, "1e3", "1000.0"},
        SpellingCase{"True", ParameterType::boolean, "true", "true"},
        SpellingCase{"FalseWithACapital", ParameterType::boolean, "False", "false"},
        SpellingCase{"Text", ParameterType::text, "a, b", R"("a, b")"},
        SpellingCase{"QuotedText", ParameterType::text, R"(" a ")", R"(" a ")"},
        SpellingCase{"TextWithAQuoteAtItsStart", ParameterType::text, R"("a" b)", R"("\"a\" b")"},
        SpellingCase{"Choice", ParameterType::choice, "otsu", R"("otsu")"},
        SpellingCase{"ChoiceOfDigits", ParameterType::choice, "8", R"("8")"},
        SpellingCase{"Choices", ParameterType::choices, "otsu, li", R"(["otsu","li"])"},
        SpellingCase{"ChoicesAsJson", ParameterType::choices, R"(["otsu"])", R"(["otsu"])"},
        SpellingCase{"NoChoices", ParameterType::choices, "", "[]"},
        SpellingCase{"Bands", ParameterType::bands, "MSP.NIR,MSP.RED", R"(["MSP.NIR","MSP.RED"])"},
        SpellingCase{"NoBand", ParameterType::band, "", R"("")"},
        SpellingCase{"Point", ParameterType::point, "0.1,2", "[0.1,2.0]"},
        SpellingCase{"Points", ParameterType::points, "0.1,0.2; 0.3,0.4", "[[0.1,0.2],[0.3,0.4]]"},
        SpellingCase{"Rect", ParameterType::rect, "0.5,0.5,1,1", "[0.5,0.5,1.0,1.0]"},
        SpellingCase{"RectAsMap", ParameterType::rect, R"({"cx":1,"cy":2,"w":3,"h":4})", "[1.0,2.0,3.0,4.0]"},
        SpellingCase{"Rects", ParameterType::rects, "1,2,3,4;5,6,7,8", "[[1.0,2.0,3.0,4.0],[5.0,6.0,7.0,8.0]]"},
        SpellingCase{"NoRects", ParameterType::rects, "", "[]"},
        SpellingCase{"Polygons", ParameterType::polygons, "0,0;1,0;1,1 | 0.5,0;1,1;0,1",
                     "[[[0.0,0.0],[1.0,0.0],[1.0,1.0]],[[0.5,0.0],[1.0,1.0],[0.0,1.0]]]"},
        SpellingCase{"PolygonsAsJson", ParameterType::polygons, "[[[0,0],[1,0],[1,1]]]",
                     "[[[0.0,0.0],[1.0,0.0],[1.0,1.0]]]"},
        SpellingCase{"NoPolygons", ParameterType::polygons, "", "[]"},
        SpellingCase{"Palette", ParameterType::palette, R"([{"name":"a","lab":[1,2,3]}])",
                     R"([{"name":"a","lab":[1.0,2.0,3.0]}])"}),
    [](const auto& tested) { return std::string(tested.param.name); });

class WrongSpellings : public testing::TestWithParam<std::pair<ParameterType, const char*>> {};

TEST_P(WrongSpellings, AreRefusedWithASentence) {
  const auto& [type, text] = GetParam();
  const ParameterInfo info = parameter(type);
  EXPECT_EQ(refusal([&] { static_cast<void>(parse_parameter_text(info, text)); }),
            "Parameter \"p\" is given as \"" + std::string(text) + "\", but it must be " + allowed_text(info) + ".");
}

INSTANTIATE_TEST_SUITE_P(
    ParameterTypes, WrongSpellings,
    testing::Values(std::pair{ParameterType::integer, "3.5"}, std::pair{ParameterType::integer, ""},
                    std::pair{ParameterType::integer, "3px"}, std::pair{ParameterType::real, "0,5"},
                    std::pair{ParameterType::real, "nan"}, std::pair{ParameterType::real, "inf"},
                    std::pair{ParameterType::boolean, "maybe"}, std::pair{ParameterType::point, "1"},
                    std::pair{ParameterType::point, "1,"}, std::pair{ParameterType::point, "[1,"},
                    std::pair{ParameterType::points, "1,2;"}, std::pair{ParameterType::rect, "1,2,3"},
                    std::pair{ParameterType::rects, "1,2,3,4;5"}, std::pair{ParameterType::palette, "leaf"},
                    std::pair{ParameterType::polygons, "0,0;1,1"}, std::pair{ParameterType::polygons, "0,0;1,0;1,1|"}));

TEST(ParseParameterText, ReadsNullAsNoValueWhereThatIsTheDefault) {
  for (const ParameterType type : {ParameterType::real, ParameterType::choice, ParameterType::text,
                                   ParameterType::bands, ParameterType::palette}) {
    SCOPED_TRACE(parameter_type_name(type));
    EXPECT_TRUE(parse_parameter_text(parameter_without_default(type), " null ").is_null());
  }
  EXPECT_EQ(parse_parameter_text(parameter_without_default(ParameterType::text), "\"null\""), "null");
  EXPECT_EQ(parse_parameter_text(parameter(ParameterType::text), "null"), "null");
  EXPECT_EQ(refusal([] { static_cast<void>(parse_parameter_text(parameter(ParameterType::real), "null")); }),
            "Parameter \"p\" is given as \"null\", but it must be a number.");
  EXPECT_EQ(
      refusal([] { static_cast<void>(parse_parameter_text(parameter_without_default(ParameterType::real), "none")); }),
      "Parameter \"p\" is given as \"none\", but it must be a number, or null for no value.");
}

TEST(ParseParameterText, LeavesTheRangeToTheCheckThatFollows) {
  EXPECT_EQ(parse_parameter_text(parameter(ParameterType::integer, 0, 5), "9"), 9);
}

}  // namespace
}  // namespace orvexa::model
