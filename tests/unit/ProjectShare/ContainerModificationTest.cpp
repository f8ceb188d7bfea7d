#include "ProjectShare/ContainerModification.h"

#include <gtest/gtest.h>

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

constexpr const char* kReport = "assertion failed valid_ at ProjectShare/NetMessage line 31\n";

TEST(ContainerModification, IsNothingAndValidByDefault) {
  const ContainerModification modification;
  EXPECT_EQ(modification.value_, 0u);
  EXPECT_TRUE(modification.valid_);
}

TEST(ContainerModification, ReadsTheDecimalNumberAtTheStartOfItsText) {
  const struct {
    const char* text;
    unsigned value;
  } rows[] = {{"0", 0},    {"1", 1},    {"2", 2},   {"3", 3},   {"", 0},    {"x", 0},
              {"abc3", 0}, {"3abc", 3}, {"  2", 2}, {"+1", 1},  {"1.9", 1}, {"03", 3},
              {"-0", 0},   {"2 3", 2},  {"\t3", 3}, {"0x3", 0}, {"-", 0},   {"4294967298", 2}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    CaptureStdout();
    const ContainerModification modification{LightweightString<char>(row.text)};
    EXPECT_EQ(GetCapturedStdout(), "");
    EXPECT_EQ(modification.value_, row.value);
    EXPECT_TRUE(modification.valid_);
  }
}

TEST(ContainerModification, KeepsAndReportsAValueOfFourOrMore) {
  const struct {
    const char* text;
    unsigned value;
  } rows[] = {{"4", 4},
              {"9", 9},
              {"-1", 4294967295u},
              {"4294967295", 4294967295u},
              {"12x", 12},
              {"9223372036854775810", 4294967295u}};  // read as the largest signed number
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    CaptureStdout();
    const ContainerModification modification{LightweightString<char>(row.text)};
    EXPECT_EQ(GetCapturedStdout(), kReport);
    EXPECT_EQ(modification.value_, row.value);
    EXPECT_FALSE(modification.valid_);
  }
}

TEST(ContainerModification, WritesItsValueAsUnsignedDecimal) {
  EXPECT_EQ(ContainerModification().asString(), "0");
  EXPECT_EQ(ContainerModification(ContainerModification::eDestroyed).asString(), "3");
  ContainerModification huge;
  huge.value_ = 4294967295u;
  EXPECT_EQ(huge.asString(), "4294967295");
}

}  // namespace
