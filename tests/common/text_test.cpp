#include "orvexa/common/text.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <sstream>

#include "support/python.h"

namespace orvexa::common {
namespace {

struct NumberCase {
  const char* name;
  double value;
  const char* text;
};

class NumberText : public testing::TestWithParam<NumberCase> {};

TEST_P(NumberText, IsTheShortestFormThatReadsAsAReal) {
  EXPECT_EQ(number_text(GetParam().value), GetParam().text);
}

// The layout of Python's repr, which is what the reports' readers know.
INSTANTIATE_TEST_SUITE_P(
    Table, NumberText,
    testing::Values(NumberCase{"Zero", 0.0, "0.0"}, NumberCase{"NegativeZero", -0.0, "-0.0"},
                    NumberCase{"Whole", 1.0, "1.0"}, NumberCase{"Hundred", 100.0, "100.0"},
                    NumberCase{"Eighth", 0.125, "0.125"}, NumberCase{"Third", 1.0 / 3, "0.3333333333333333"},
                    NumberCase{"Mixed", -123.456, "-123.456"}, NumberCase{"SmallestPlain", 0.0001, "0.0001"},
                    NumberCase{"BelowIt", 0.00001, "1e-05"}, NumberCase{"SmallWithDigits", 1.25e-7, "1.25e-07"},
                    NumberCase{"TenToThe15", 1e15, "1000000000000000.0"},
                    NumberCase{"AboveTwoToThe53", 9007199254740993.0, "9007199254740992.0"},
                    NumberCase{"TenToThe16", 1e16, "1e+16"}, NumberCase{"TenToThe22", 1e22, "1e+22"},
                    NumberCase{"SeventeenDigits", 123456789012345680.0, "1.2345678901234568e+17"},
                    NumberCase{"ThreeDigitExponent", 1e100, "1e+100"}, NumberCase{"SmallestOfAll", 5e-324, "5e-324"},
                    NumberCase{"Largest", std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
                    NumberCase{"SingleTenth", double{0.1f}, "0.10000000149011612"},
                    NumberCase{"NotANumber", std::numeric_limits<double>::quiet_NaN(), "nan"},
                    NumberCase{"Infinite", std::numeric_limits<double>::infinity(), "inf"},
                    NumberCase{"MinusInfinite", -std::numeric_limits<double>::infinity(), "-inf"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(NumberTextOfRandomNumbers, ReadsBackAndEqualsPythonsRepr) {
  std::mt19937_64 random(1);
  std::string hexadecimal;
  std::vector<std::string> ours;
  for (int i = 0; i < 5000; ++i) {
    // Half over all bit patterns, half of everyday size.
    double value = i % 2 == 0
                       ? std::bit_cast<double>(random())
                       : std::ldexp(static_cast<double>(random() >> 11), -53) * std::pow(10, int(random() % 24) - 6);
    if (!std::isfinite(value)) value = double(i);
    ours.push_back(number_text(value));
    EXPECT_EQ(std::strtod(ours.back().c_str(), nullptr), value) << ours.back();
    hexadecimal += fmt::format("{:a}\n", value);
  }
  const auto theirs = test::python_lines(
      "import sys\n"
      "for line in open(sys.argv[1], encoding='utf-8'): print(repr(float.fromhex(line.strip())))",
      hexadecimal);
  EXPECT_EQ(ours, theirs);
}

TEST(ScalarText, WritesEachKindAsTheReportsDo) {
  EXPECT_EQ(scalar_text(3), "3");
  EXPECT_EQ(scalar_text(-3), "-3");
  EXPECT_EQ(scalar_text(18446744073709551615u), "18446744073709551615");
  EXPECT_EQ(scalar_text(3.0), "3.0");
  EXPECT_EQ(scalar_text(std::numeric_limits<double>::quiet_NaN()), "nan");
  EXPECT_EQ(scalar_text(true), "True");
  EXPECT_EQ(scalar_text(false), "False");
  EXPECT_EQ(scalar_text("as it \"stands\"\n"), "as it \"stands\"\n");
  EXPECT_EQ(scalar_text(nullptr), "None");
}

TEST(ScalarText, WritesListsAndMapsInTheirJsonForm) {
  EXPECT_EQ(scalar_text(Value::parse(R"([1,2.0,"a",null,true])")), R"([1, 2.0, "a", null, true])");
  EXPECT_EQ(scalar_text(Value::parse(R"({"b":[],"a":{}})")), R"({"b": [], "a": {}})");
  EXPECT_EQ(scalar_text(Value(std::vector<double>{std::numeric_limits<double>::infinity()})), "[inf]");
}

TEST(KindText, NamesEachKind) {
  EXPECT_EQ(kind_text(Value::object()), "a map");
  EXPECT_EQ(kind_text(Value::array()), "a list");
  EXPECT_EQ(kind_text("x"), "a text");
  EXPECT_EQ(kind_text(1), "a number");
  EXPECT_EQ(kind_text(1u), "a number");
  EXPECT_EQ(kind_text(1.5), "a number");
  EXPECT_EQ(kind_text(true), "true or false");
  EXPECT_EQ(kind_text(nullptr), "nothing");
}

TEST(GroupedIntegerText, PutsACommaBetweenThousands) {
  EXPECT_EQ(grouped_integer_text(0), "0");
  EXPECT_EQ(grouped_integer_text(999), "999");
  EXPECT_EQ(grouped_integer_text(1000), "1,000");
  EXPECT_EQ(grouped_integer_text(1234567), "1,234,567");
  EXPECT_EQ(grouped_integer_text(-999), "-999");
  EXPECT_EQ(grouped_integer_text(-123456), "-123,456");
  EXPECT_EQ(grouped_integer_text(std::numeric_limits<std::int64_t>::min()), "-9,223,372,036,854,775,808");
}

struct NearestCase {
  const char* name;
  const char* wanted;
  std::optional<std::string> nearest;
};

class NearestName : public testing::TestWithParam<NearestCase> {};

TEST_P(NearestName, IsTheOneThatWasMeant) {
  static const std::vector<std::string> known = {"erode",           "dilate", "threshold_auto",
                                                 "threshold_range", "area",   "arex"};
  EXPECT_EQ(nearest_name(GetParam().wanted, known), GetParam().nearest);
}

INSTANTIATE_TEST_SUITE_P(Table, NearestName,
                         testing::Values(NearestCase{"OneLetterMissing", "erod", "erode"},
                                         NearestCase{"TwoLettersSwapped", "dialte", "dilate"},
                                         NearestCase{"AnotherCase", "ERODE", "erode"},
                                         // threshold_rnge: 14 characters, so four edits are allowed; one is needed
                                         NearestCase{"LongName", "threshold_rnge", "threshold_range"},
                                         NearestCase{"FourEditsOfFourteen", "thrshld_auto", "threshold_auto"},
                                         NearestCase{"TwoEqallyNearTheFirst", "are", "area"},
                                         NearestCase{"TooFar", "histogram", std::nullopt},
                                         NearestCase{"NothingInCommon", "xy", std::nullopt},
                                         NearestCase{"Empty", "", std::nullopt}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(DidYouMean, IsTheTailOfASentenceOrNothing) {
  const std::vector<std::string> known = {"erode"};
  EXPECT_EQ(did_you_mean("eroed", known), " (did you mean \"erode\"?)");
  EXPECT_EQ(did_you_mean("histogram", known), "");
  EXPECT_EQ(did_you_mean("erode", {}), "");
}

TEST(Joined, PutsTheSeparatorBetween) {
  EXPECT_EQ(joined({}, ", "), "");
  EXPECT_EQ(joined(std::vector<std::string>{"a"}, ", "), "a");
  EXPECT_EQ(joined(std::vector<std::string>{"a", "", "b"}, ", "), "a, , b");
}

TEST(ToLowerAscii, LeavesEverythingElse) {
  EXPECT_EQ(to_lower_ascii("AZ az 09 \xC3\x84"), "az az 09 \xC3\x84");
}

TEST(Trimmed, TakesBlanksOffBothEnds) {
  EXPECT_EQ(trimmed(" \t a b \r\n"), "a b");
  EXPECT_EQ(trimmed(" \t"), "");
  EXPECT_EQ(trimmed(""), "");
}

struct MatchCase {
  const char* name;
  const char* pattern;
  bool matches;
};

class Fnmatch : public testing::TestWithParam<MatchCase> {};

TEST_P(Fnmatch, MatchesTheWholeName) {
  EXPECT_EQ(fnmatch(GetParam().name, GetParam().pattern), GetParam().matches)
      << GetParam().name << " against " << GetParam().pattern;
}

INSTANTIATE_TEST_SUITE_P(
    Table, Fnmatch,
    testing::Values(MatchCase{"roi_rect", "roi_*", true}, MatchCase{"roi_", "roi_*", true},
                    MatchCase{"auto_roi", "roi_*", false}, MatchCase{"auto_roi", "*roi*", true},
                    MatchCase{"roi", "roi", true}, MatchCase{"ROI", "roi", false}, MatchCase{"roi", "ro", false},
                    MatchCase{"roi", "roi?", false}, MatchCase{"roi", "r?i", true}, MatchCase{"", "", true},
                    MatchCase{"", "*", true}, MatchCase{"", "?", false}, MatchCase{"a", "", false},
                    MatchCase{"abcabd", "*abd", true}, MatchCase{"abcabd", "a*b*c", false},
                    MatchCase{"a", "[abc]", true}, MatchCase{"d", "[abc]", false}, MatchCase{"m", "[a-z]", true},
                    MatchCase{"M", "[a-z]", false}, MatchCase{"m", "[!a-z]", false}, MatchCase{"M", "[!a-z]", true},
                    MatchCase{"-", "[a-]", true}, MatchCase{"-", "[-a]", true}, MatchCase{"]", "[]]", true},
                    MatchCase{"]", "[!]]", false}, MatchCase{"b", "[!]]", true}, MatchCase{"[abc", "[abc", true},
                    MatchCase{"a", "[abc", false}, MatchCase{"*", "[*]", true}, MatchCase{"a", "[*]", false},
                    MatchCase{"\xC3\xA9", "?", true}, MatchCase{"\xC3\xA9", "??", false},
                    MatchCase{"\xC3\xA9", "[\xC3\xA0-\xC3\xBF]", true}, MatchCase{"\xFF", "?", true}));

TEST(FnmatchOfRandomPatterns, EqualsPythons) {
  std::mt19937 random(2);
  const auto some = [&](std::string_view alphabet, std::size_t longest) {
    std::string text;
    for (std::size_t n = random() % (longest + 1); n > 0; --n) text += alphabet[random() % alphabet.size()];
    return text;
  };
  std::string questions;
  std::vector<std::string> ours;
  int matches = 0;
  for (int i = 0; i < 5000; ++i) {
    const std::string name = some("ab-]c", 5);
    const std::string pattern = some("ab*?[]!-c*", 7);
    const bool is_match = fnmatch(name, pattern);
    matches += is_match ? 1 : 0;
    ours.push_back(fmt::format("{} {} {}", name, pattern, is_match ? "True" : "False"));
    questions += name + " " + pattern + "\n";
  }
  EXPECT_GT(matches, 200) << "too few of the random patterns match to say anything";
  const auto theirs = test::python_lines(
      "import fnmatch, sys\n"
      "for line in open(sys.argv[1], encoding='utf-8'):\n"
      "  name, pattern = line.rstrip('\\n').split(' ')\n"
      "  print(name, pattern, fnmatch.fnmatchcase(name, pattern))",
      questions);
  ASSERT_EQ(ours.size(), theirs.size());
  for (std::size_t i = 0; i < ours.size(); ++i) EXPECT_EQ(ours[i], theirs[i]);
}

TEST(Fnmatch, TakesNoLongTimeForManyStars) {
  std::string pattern;
  for (int i = 0; i < 500; ++i) pattern += "a*";
  EXPECT_FALSE(fnmatch(std::string(5000, 'a'), pattern + "b"));
  EXPECT_TRUE(fnmatch(std::string(5000, 'a'), pattern));
}

TEST(VisibleText, StaysOnOneLineAndCannotSteerATerminal) {
  EXPECT_EQ(visible_text("two\nlines"), "two\\nlines");
  EXPECT_EQ(visible_text("\x1b[2J\t\r\x7f"), "\\x1b[2J\\x09\\x0d\\x7f");
  EXPECT_EQ(visible_text("Blätter 7"), "Blätter 7");
  EXPECT_EQ(visible_text("a\xff"), "a\uFFFD");
}

}  // namespace
}  // namespace orvexa::common
