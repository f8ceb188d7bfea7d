#include "host/edit/EditModification.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "tests/support/Slowdown.h"

namespace {

EditModification modificationOf(std::string_view text) {
  return EditModification(LightweightString<char>(text));
}

EditModification trim(double start, double end) {
  EditModification made(eModTrim);
  made.range_.start = start;
  made.range_.end = end;
  made.subject_ = "0/2/1";
  return made;
}

TEST(EditModificationText, IsTypeRangeSubjectAndValue) {
  EditModification made = trim(0.5, 2);
  made.value_ = "a b";
  EXPECT_EQ(made.asString().str(), "1;0.5;2;0%2F2%2F1;a%20b");
}

TEST(EditModificationText, OfADefaultModificationReadsBackAsOne) {
  EXPECT_EQ(EditModification().asString().str(), "0;0;0;;");
  EXPECT_EQ(modificationOf("0;0;0;;").type_, eModNone);
}

TEST(EditModificationText, ReadsBackEveryByte) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  EditModification made(eModRename);
  made.subject_ = LightweightString<char>(std::string_view(bytes));
  made.value_ = made.subject_;
  const LightweightString<char> text = made.asString();
  for (const char each : text.view()) {
    EXPECT_GT(each, 0x20);
    EXPECT_LE(each, 0x7E);
  }
  EXPECT_EQ(EditModification(text).subject_, made.subject_);
  EXPECT_EQ(EditModification(text).value_, made.value_);
}

TEST(EditModificationText, ReadsBackTheSameDouble) {
  using Limits = std::numeric_limits<double>;
  for (const double value : {0.0, -0.0, 0.1, 1.0 / 3, 1e300, -1e-300, Limits::max(), Limits::min(),
                             Limits::denorm_min(), Limits::infinity(), -Limits::infinity()}) {
    SCOPED_TRACE(value);
    const EditModification again(trim(value, -value).asString());
    EXPECT_EQ(again.range_.start, value);
    EXPECT_EQ(std::signbit(again.range_.start), std::signbit(value));
    EXPECT_EQ(again.range_.end, -value);
  }
  EXPECT_TRUE(std::isnan(EditModification(trim(Limits::quiet_NaN(), 0).asString()).range_.start));
}

TEST(EditModificationText, CarriesTypesThatThisStationDoesNotKnow) {
  EXPECT_EQ(modificationOf("4711;0;0;;").asString().str(), "4711;0;0;;");
  EXPECT_EQ(modificationOf("-3;0;0;;").asString().str(), "-3;0;0;;");
}

TEST(EditModificationText, DoesNotPutItsRangeInOrder) {
  EXPECT_EQ(modificationOf("1;5;2;;").range_.start, 5);
  EXPECT_EQ(modificationOf("1;5;2;;").range_.end, 2);
}

TEST(EditModificationText, ThatIsNotOfTheFormIsReadAsFarAsItIsUnderstood) {
  struct Row {
    std::string text;
    std::string understood;
  };
  const Row rows[] = {
      {"", "0;0;0;;"},
      {"x", "0;0;0;;"},
      {" 1;2;3;;", "0;0;0;;"},
      {"1x;2;3;;", "0;0;0;;"},
      {"99999999999;2;3;;", "0;0;0;;"},
      {"1", "1;0;0;;"},
      {"1;", "1;0;0;;"},
      {"1;two;3;;", "1;0;0;;"},
      {"1;2;1e999;a;b", "1;2;0;;"},
      {"1;2;3", "1;2;3;;"},
      {"1;2;3;%zz;b", "1;2;3;;"},
      {"1;2;3;%4;b", "1;2;3;;"},
      {"1;2;3;a%2f;b", "1;2;3;;"},
      {"1;2;3;a b;c", "1;2;3;;"},
      {"1;2;3;a;\xAC", "1;2;3;a;"},
      {"1;2;3;a;b;c", "1;2;3;a;b"},
      {std::string("1\0;2", 4), "0;0;0;;"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(modificationOf(row.text).asString().str(), row.understood) << "'" << row.text << "'";
  }
}

std::string shortestOf(double number) {
  char digits[64];
  return {digits, std::to_chars(digits, digits + sizeof digits, number).ptr};
}

/// The text of a number as a modification's start.
std::string writtenAs(double number) {
  EditModification modification(eModTrim);
  modification.range_.start = number;
  const std::string text = modification.asString().str();
  const std::size_t start = text.find(';') + 1;
  return text.substr(start, text.find(';', start) - start);
}

TEST(EditModificationTest, EveryNumberIsWrittenAsTheShortestText) {
  for (int thousandths = 0; thousandths <= fewer(200'000); ++thousandths) {
    const double number = thousandths / 1000.0;
    ASSERT_EQ(writtenAs(number), shortestOf(number));
  }
  std::mt19937_64 random(7);
  for (int count = 0; count < fewer(200'000); ++count) {
    const double number = static_cast<double>(random() % 200'000'000) / 1000.0;
    for (const double each : {number, -number, number / 7, std::nextafter(number, 1e9),
                              std::nextafter(number, 0.0), number * 1e9, number / 1e9}) {
      ASSERT_EQ(writtenAs(each), shortestOf(each));
    }
  }
  for (const double each : {0.0, -0.0, 0.0005, 0.0004999, 99'999.999, 99'999.9995, 100'000.0, 1e300,
                            std::numeric_limits<double>::infinity(), 5e-324}) {
    EXPECT_EQ(writtenAs(each), shortestOf(each));
  }
}

}  // namespace
