#include "station/base/Json.h"

#include <gtest/gtest.h>

#include <clocale>
#include <utility>

using namespace korvel;

namespace {

TEST(Rendering, EachKindOfValueIsShownAsPeopleReadIt) {
  struct Row {
    const char* json;
    const char* shown;
  };
  const Row rows[] = {
      {"null", ""},
      {"true", "yes"},
      {"false", "no"},
      {"12", "12"},
      {"\"a text\"", "a text"},
      {"\"two\\nlines\"", "two\nlines"},
      {"[]", "(none)"},
      {"[\"a\",\"b\"]", "a\nb"},
      {"{\"name\":\"Film\",\"open\":false}", "name: Film\nopen: no"},
      {"{\"name\":\"\",\"of\":[\"a\",\"b\"]}", "name:\nof: a, b"},
      {"{\"p\":{\"x\":1,\"y\":2}}", "p:\n  x: 1\n  y: 2"},
      {"[{\"name\":\"A\",\"no\":1},{\"name\":\"Long\",\"no\":20}]", "name  no\nA     1\nLong  20"},
      {"[{\"a\":1,\"gone\":\"\"},{\"a\":2,\"gone\":null}]", "a\n1\n2"},
      {"[{\"lock_owner\":\"ANNA\"}]", "lock owner\nANNA"},
      {"{\"edits\":[{\"n\":\"A\"},{\"n\":\"B\"}]}", "edits:\n  n\n  A\n  B"},
      {"[{\"a\":\"\"}]", "(none)"},
  };
  for (const Row& row : rows) {
    const auto value = parseJson(row.json);
    ASSERT_TRUE(value) << row.json;
    EXPECT_EQ(renderForPeople(*value), row.shown) << row.json;
  }
}

TEST(Rendering, AWrappedTableStaysWithin80Columns) {
  const auto row = [](const std::string& first, const std::string& second) {
    return JsonValue::object({{"command", first}, {"does", second}});
  };
  JsonValue rows = JsonValue::array();
  rows.append(
      row("quit", "Ends the station and says so in a sentence that is long enough to wrap."));
  rows.append(row("wait EVENT [KEY=VALUE...] [--timeout S]", "Waits."));
  const std::string margin(28, ' ');
  EXPECT_EQ(renderWrapped(rows),
            "quit                        Ends the station and says so in a sentence that is\n" +
                margin + "long enough to wrap.\nwait EVENT [KEY=VALUE...] [--timeout S]\n" +
                margin + "Waits.");
}

TEST(Rendering, NoNameMovesTheCursor) {
  EXPECT_EQ(renderForPeople(JsonValue("a\x1b[2Jb\rc")), "a?[2Jb?c");
  const JsonValue rows = JsonValue::array();
  JsonValue table = rows;
  table.append(JsonValue::object({{"name", "a\nb"}}));
  EXPECT_EQ(renderForPeople(table), "name\na?b");
}

TEST(Rendering, ColumnsAreAlignedByWhatATerminalShows) {
  if (!std::setlocale(LC_CTYPE, "C.UTF-8")) FAIL() << "C.UTF-8 is missing";
  JsonValue table = JsonValue::array();
  table.append(JsonValue::object({{"name", "\xC3\x84\xC3\x96"}, {"n", 1}}));
  table.append(JsonValue::object({{"name", "\xE6\x98\xA0\xE7\x94\xBB"}, {"n", 2}}));
  EXPECT_EQ(renderForPeople(table), "name  n\n\xC3\x84\xC3\x96    1\n\xE6\x98\xA0\xE7\x94\xBB  2");
}

TEST(NumbersForPeople, HaveThreeDecimalsAtMost) {
  const std::pair<const char*, const char*> rows[] = {
      {"1.041666666666667", "1.042"},
      {"0.1", "0.1"},
      {"2.0", "2"},
      {"-0.00004", "0"},
      {"1e-7", "0"},
      {"41.9999999", "42"},
      {"1e300", "1e300"},
      {"123456789012345678901", "123456789012345678901"},
      {"Inf", "Inf"},
      {"NaN", "NaN"}};
  for (const auto& [spelling, shown] : rows) {
    const JsonValue range = JsonValue::object({{"start", JsonValue::number(spelling)}});
    EXPECT_EQ(renderForPeople(range), "start: " + std::string(shown)) << spelling;
    EXPECT_EQ(writeJson(range), "{\"start\":" + std::string(spelling) + "}") << "JSON keeps it";
  }
}

}  // namespace
