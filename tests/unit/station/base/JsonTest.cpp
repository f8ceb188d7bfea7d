#include "station/base/Json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>

using namespace korvel;

namespace {

std::string bytesOf(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

JsonValue parsed(const std::string& text) {
  const auto value = parseJson(text);
  EXPECT_TRUE(value) << text << ": " << (value ? "" : value.error().message);
  return value ? *value : JsonValue();
}

std::string failure(const std::string& text) {
  const auto value = parseJson(text);
  if (value) return "(read)";
  EXPECT_EQ(value.error().code, ErrorCode::eBadContent);
  return value.error().message;
}

/// Everything but the blanks between tokens.
std::string withoutBlanks(const std::string& text) {
  std::string kept;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"' && (i == 0 || text[i - 1] != '\\')) inString = !inString;
    if (inString || !std::isspace(static_cast<unsigned char>(text[i]))) kept += text[i];
  }
  return kept;
}

}  // namespace

TEST(Json, EverySampleEditComesBackTokenForToken) {
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(KV_DATA "/otio")) {
    if (entry.path().extension() != ".otio") continue;
    ++files;
    const std::string text = bytesOf(entry.path());
    const JsonValue value = parsed(text);
    EXPECT_EQ(withoutBlanks(writeJson(value)), withoutBlanks(text)) << entry.path();
    EXPECT_EQ(parsed(writeJsonIndented(value)), value) << entry.path();
  }
  EXPECT_EQ(files, 6);
}

TEST(Json, NumbersKeepTheirSpelling) {
  for (const std::string spelling : {"0",
                                     "-0",
                                     "-0.0",
                                     "1",
                                     "1.0",
                                     "1.50",
                                     "18446744073709551616",
                                     "-9223372036854775809",
                                     "123456789012345678901234567890123456789012345678901234567890",
                                     "1e400",
                                     "-1e-400",
                                     "1E+2",
                                     "0.1e5",
                                     "3.141592653589793238462643383279502884",
                                     "NaN",
                                     "-NaN",
                                     "Inf",
                                     "-Inf",
                                     "Infinity",
                                     "-Infinity"}) {
    EXPECT_EQ(parsed(spelling).spelling(), spelling);
    EXPECT_EQ(writeJson(parsed("[" + spelling + "]")), "[" + spelling + "]");
  }
}

TEST(Json, NumbersAreEqualWhenTheyAreTheSameNumberOfTheSameKind) {
  struct Row {
    std::string a, b;
    bool equal;
  };
  for (const Row& row :
       std::vector<Row>{{"1", "1", true},
                        {"1", "1.0", false},
                        {"1.0", "1.00", true},
                        {"1.0", "10e-1", true},
                        {"1e400", "1e401", false},
                        {"1e400", "10e399", true},
                        {"0.10000000000000000001", "0.1", false},
                        {"18446744073709551616", "18446744073709551617", false},
                        {"-0.0", "0.0", false},
                        {"0.0", "0e7", true},
                        {"NaN", "NaN", true},
                        {"NaN", "1.0", false},
                        {"Inf", "Infinity", true},
                        {"-Inf", "Infinity", false},
                        {"-Inf", "-Infinity", true},
                        {"1e99999999999999999999", "1e99999999999999999998", false},
                        {"1", "2", false}}) {
    EXPECT_EQ(parsed(row.a) == parsed(row.b), row.equal) << row.a << " and " << row.b;
  }
}

TEST(Json, NumbersAreGivenAsDoubleAndLongWhereTheyFit) {
  EXPECT_EQ(parsed("1.5").asDouble(), 1.5);
  EXPECT_EQ(parsed("7").asDouble(), 7.0);
  EXPECT_EQ(parsed("1e400").asDouble(-1), -1);
  EXPECT_TRUE(std::isnan(parsed("NaN").asDouble()));
  EXPECT_EQ(parsed("-Inf").asDouble(), -HUGE_VAL);
  EXPECT_EQ(parsed("-12").asLong(), -12);
  EXPECT_EQ(parsed("9223372036854775808").asLong(5), 5);
  EXPECT_EQ(parsed("1.0").asLong(5), 5);
  EXPECT_EQ(parsed("\"1\"").asLong(5), 5);
}

TEST(Json, ADoubleIsWrittenAsTheShortestTextThatReadsBack) {
  struct Row {
    double value;
    std::string text;
  };
  for (const Row& row : std::vector<Row>{{1.0, "1.0"},
                                         {0.1, "0.1"},
                                         {-0.0, "-0.0"},
                                         {1e300, "1e+300"},
                                         {HUGE_VAL, "Infinity"},
                                         {-HUGE_VAL, "-Infinity"},
                                         {NAN, "NaN"}}) {
    EXPECT_EQ(writeJson(JsonValue(row.value)), row.text);
    EXPECT_EQ(parsed(row.text), JsonValue(row.value)) << row.text;
  }
}

TEST(Json, EqualKeysAreAllKeptAndTheLastOneCounts) {
  const std::string text = R"({"a":1,"b":2,"a":3})";
  JsonValue value = parsed(text);
  EXPECT_EQ(writeJson(value), text);
  EXPECT_EQ(value["a"].asLong(), 3);
  value.set("a", JsonValue(4));
  EXPECT_EQ(writeJson(value), R"({"a":1,"b":2,"a":4})");
  value.remove("a");
  EXPECT_EQ(writeJson(value), R"({"b":2})");
}

TEST(Json, TheOrderOfKeysIsKeptButDoesNotMatterForEquality) {
  EXPECT_EQ(writeJson(parsed(R"({"z":1,"a":2})")), R"({"z":1,"a":2})");
  EXPECT_EQ(parsed(R"({"z":1,"a":2})"), parsed(R"({"a":2,"z":1})"));
  EXPECT_FALSE(parsed(R"({"z":1,"a":2})") == parsed(R"({"a":2})"));
  EXPECT_FALSE(parsed("[1,2]") == parsed("[2,1]"));
}

TEST(Json, EscapesAreReadAndControlCharactersAreWrittenAsEscapes) {
  EXPECT_EQ(parsed(R"("\"\\\/\b\f\n\r\t\u0041\u00e9\u20AC")").asString(),
            "\"\\/\b\f\n\r\tA\xC3\xA9\xE2\x82\xAC");
  EXPECT_EQ(parsed(R"("\ud83d\ude00")").asString(), "\xF0\x9F\x98\x80");
  EXPECT_EQ(writeJson(JsonValue(std::string("a\"\\\n\x01\x7F\0", 7))),
            "\"a\\\"\\\\\\n\\u0001\\u007f\\u0000\"");
}

TEST(Json, OnOneLineNoCharacterActsOnATerminal) {
  const JsonValue text(std::string("\x7F\xC2\x80\xC2\x9B\xC2\x9F\xC2\xA0"));
  EXPECT_EQ(writeJson(text), "\"\\u007f\\u0080\\u009b\\u009f\xC2\xA0\"");
  EXPECT_EQ(*parseJson(writeJson(text)), text);
  EXPECT_NE(writeJsonIndented(text).find("\xC2\x9B"), std::string::npos) << "as files keep them";
}

TEST(Json, StringsComeBackByteForByteWhateverTheyHold) {
  const std::string half = "\xED\xA0\xBD";
  const std::string otherHalf = "\xED\xB8\x80";
  for (const std::string& bytes : std::vector<std::string>{
           "", "\xFF\xFE", "\xC3", "a\xE2\x82", half, otherHalf, half + otherHalf,
           half + half + otherHalf, otherHalf + half, half + "x", "\xED", "\xED\xA0",
           std::string("\0\0", 2), "\xF0\x9F\x98\x80"}) {
    EXPECT_EQ(parsed(writeJson(JsonValue(bytes))).asString(), bytes)
        << testing::PrintToString(bytes);
  }
  EXPECT_EQ(writeJson(parsed(R"("\ud83dx")")), R"("\ud83dx")");
}

TEST(Json, WhatIsNoJsonIsRefusedWithItsLine) {
  struct Row {
    std::string text, message;
  };
  for (const Row& row : std::vector<Row>{
           {"", "line 1: expected a value, but the text ends"},
           {"{\n\"a\": 1,\n}", "line 3: expected a key in quotes"},
           {"[1,\n\n2", "line 3: expected \",\" or \"]\" after an element, but the text ends"},
           {"[1 2]", "line 1: expected \",\" or \"]\" after an element"},
           {"{\"a\" 1}", "line 1: expected \":\" after a key"},
           {"{\"a\":1", "line 1: expected \",\" or \"}\" after a member, but the text ends"},
           {"tru", "line 1: expected a value"},
           {"01", "line 1: expected the end of the text"},
           {"1.", "line 1: expected the end of the text"},
           {"-", "line 1: expected a value"},
           {"+1", "line 1: expected a value"},
           {".5", "line 1: expected a value"},
           {"1 2", "line 1: expected the end of the text"},
           {"\"abc", "line 1: expected the end of a string, but the text ends"},
           {"\"\\x\"", "line 1: expected an escape such as \\n after a backslash"},
           {"\"\\u12g4\"", "line 1: expected four hex digits after \\u"},
           {"\"\\ud800\\u12\"", "line 1: expected four hex digits after \\u"},
           {"\"a\nb\"", "line 1: expected the end of a string, or control characters as escapes"},
           {"\xFF", "line 1: expected a value"},
           {"nullx", "line 1: expected the end of the text"}}) {
    EXPECT_EQ(failure(row.text), row.message) << row.text;
  }
}

TEST(Json, NestingIsReadTo512LevelsAndRefusedBeyond) {
  const auto nested = [](std::size_t depth, const std::string& open, const std::string& close) {
    std::string text;
    for (std::size_t i = 0; i < depth; ++i) text += open;
    text += "1";
    for (std::size_t i = 0; i < depth; ++i) text += close;
    return text;
  };
  EXPECT_EQ(writeJson(parsed(nested(512, "[", "]"))), nested(512, "[", "]"));
  EXPECT_EQ(writeJson(parsed(nested(512, "{\"a\":", "}"))), nested(512, "{\"a\":", "}"));
  EXPECT_EQ(failure(nested(513, "[", "]")), "line 1: expected no deeper nesting than 512 levels");
  EXPECT_EQ(failure(nested(1'000'000, "{\"a\":", "}")),
            "line 1: expected no deeper nesting than 512 levels");
}

TEST(Json, ATextThatIsCutAnywhereIsRefused) {
  const std::string text = bytesOf(KV_DATA "/otio/simple_cut.otio");
  const std::size_t end = text.find_last_of('}');
  for (std::size_t length = 0; length <= end; length += 7) {
    EXPECT_FALSE(parseJson(std::string_view(text).substr(0, length))) << length;
  }
}

TEST(Json, AByteOrderMarkAndBlanksAroundTheTextAreTaken) {
  EXPECT_EQ(parsed("\xEF\xBB\xBF \t\r\n {} \n"), JsonValue::object());
}

TEST(Json, IndentedTextHasTwoBlanksALevelAndALineEnd) {
  EXPECT_EQ(writeJsonIndented(parsed(R"({"a":[1,{}],"b":[]})")),
            "{\n  \"a\": [\n    1,\n    {}\n  ],\n  \"b\": []\n}\n");
}

TEST(Json, AMissingMemberReadsAsNull) {
  const JsonValue value = parsed(R"({"a":{"b":true}})");
  EXPECT_TRUE(value["a"]["b"].asBool());
  EXPECT_TRUE(value["x"]["y"].isNull());
  EXPECT_EQ(value.find("x"), nullptr);
}

TEST(Json, ValuesAreBuiltFromLiterals) {
  JsonValue value;
  value.set("text", "a");
  value.set("list", JsonValue::array()).append(JsonValue(1U));
  value.set("yes", true);
  EXPECT_EQ(writeJson(value), R"({"text":"a","list":[1],"yes":true})");
  EXPECT_TRUE(JsonValue::number("01").isNull());
  EXPECT_EQ(JsonValue::number("1e400").spelling(), "1e400");
}
