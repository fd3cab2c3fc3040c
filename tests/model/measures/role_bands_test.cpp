#include "orvexa/model/measures/role_bands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

const std::vector<std::string> two_indices{"ndvi", "gndvi"};

std::string refused(const Value& entries) {
  return test::refusal([&] { static_cast<void>(role_bands("op", entries, two_indices)); });
}

TEST(RoleBands, AreReadFromEntries) {
  EXPECT_THAT(role_bands("op", {"N=MSP.NIR2", " R = CLR.RGB.R ", "G=MSP.B 3"}, two_indices),
              testing::ElementsAre(testing::Pair("G", "MSP.B 3"), testing::Pair("N", "MSP.NIR2"),
                                   testing::Pair("R", "CLR.RGB.R")));
  EXPECT_TRUE(role_bands("op", Value::array(), two_indices).empty());
}

class WrongRoleBands : public testing::TestWithParam<const char*> {};

TEST_P(WrongRoleBands, AreRefusedWithTheFormOfAnEntry) {
  EXPECT_EQ(refused(Value::array({GetParam()})),
            std::string("op: parameter \"bands\" holds \"") + GetParam() +
                "\", but an entry is a role and the full name of its band: ROLE=MEASUREMENT.IMAGE, such as N=MSP.NIR, "
                "or with a channel, such as R=CLR.RGB.R.");
}

INSTANTIATE_TEST_SUITE_P(Forms, WrongRoleBands,
                         testing::Values("", "=", "N", "MSP.NIR", "N=", "N=NIR", "N=.NIR", "N=MSP.", "=MSP.NIR"));

TEST(RoleBands, NameARoleThatThereIs) {
  EXPECT_EQ(refused({"NIR=MSP.NIR"}),
            "op: parameter \"bands\" holds \"NIR=MSP.NIR\", but there is no role \"NIR\"; the roles are B, G, R, RE, "
            "RE2, N, R531, R570.");
}

TEST(RoleBands, NameARoleThatAnIndexUses) {
  EXPECT_EQ(refused({"N=MSP.NIR", "B=MSP.BLU"}),
            "op: parameter \"bands\" holds \"B=MSP.BLU\", but no chosen index uses the role B: ndvi uses N, R; gndvi "
            "uses N, G.");
}

TEST(RoleBands, NameARoleOnce) {
  EXPECT_EQ(refused({"N=MSP.NIR", "N=MSP.NIR2"}),
            "op: parameter \"bands\" holds \"N=MSP.NIR2\", but the role N already has the band MSP.NIR.");
}

TEST(RoleBands, AreSpelledAsAListOnTheCommandLine) {
  const Value entries = parse_parameter_text(role_bands_parameter(), "N=MSP.NIR2,R=MSP.RED");
  EXPECT_EQ(role_bands("op", entries, two_indices), (RoleBands{{"N", "MSP.NIR2"}, {"R", "MSP.RED"}}));
}

}  // namespace
}  // namespace orvexa::model
