#include "orvexa/common/utf8.h"

#include <gtest/gtest.h>

#include "orvexa/common/text.h"

namespace orvexa::common {
namespace {

TEST(Utf8, ReadsBackEveryCodePointThatItWrites) {
  for (char32_t code = 0; code <= 0x10FFFF; ++code) {
    if (code == 0xD800) code = 0xE000;  // surrogates are no characters
    std::string text;
    append_utf8(text, code);
    const Utf8Step step = first_code_point(text);
    ASSERT_TRUE(step.is_valid) << std::uint32_t{code};
    ASSERT_EQ(step.code, code);
    ASSERT_EQ(step.length, text.size());
  }
}

struct Utf8Case {
  const char* name;
  std::string bytes;
  bool is_valid;
  std::string repaired;
};

class Utf8Table : public testing::TestWithParam<Utf8Case> {};

TEST_P(Utf8Table, IsJudgedAndRepaired) {
  EXPECT_EQ(is_valid_utf8(GetParam().bytes), GetParam().is_valid);
  EXPECT_EQ(to_valid_utf8(GetParam().bytes), GetParam().repaired);
  EXPECT_TRUE(is_valid_utf8(to_valid_utf8(GetParam().bytes)));
}

// EF BF BD is U+FFFD. Well-formed bytes: The Unicode Standard, table 3-7; one replacement for each longest beginning:
// table 3-8.
INSTANTIATE_TEST_SUITE_P(
    Table, Utf8Table,
    testing::Values(
        Utf8Case{"Empty", "", true, ""}, Utf8Case{"Ascii", "a\x7F", true, "a\x7F"},
        Utf8Case{"TwoThreeFour", "\xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80", true, "\xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80"},
        Utf8Case{"LoneContinuation", "a\x80z", false, "a\xEF\xBF\xBDz"},
        Utf8Case{"OverlongSlash", "\xC0\xAF", false, "\xEF\xBF\xBD\xEF\xBF\xBD"},
        Utf8Case{"OverlongThree", "\xE0\x9F\xBF", false, "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
        Utf8Case{"Surrogate", "\xED\xA0\x80", false, "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
        Utf8Case{"AboveTheLast", "\xF4\x90\x80\x80", false, "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
        Utf8Case{"CutShort", "\xE4\xB8", false, "\xEF\xBF\xBD"},
        Utf8Case{"CutShortBeforeALetter", "\xF0\x9F\x98z", false, "\xEF\xBF\xBDz"},
        Utf8Case{"Latin1", "caf\xE9", false, "caf\xEF\xBF\xBD"}, Utf8Case{"NeverUsed", "\xFF", false, "\xEF\xBF\xBD"}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace orvexa::common
