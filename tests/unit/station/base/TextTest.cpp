#include "host/base/Text.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>
#include <vector>

namespace {

using Wide = LightweightString<wchar_t>;

Wide decoded(const std::string& bytes) {
  return fromUTF8(LightweightString<char>(std::string_view(bytes)));
}

std::string upper(const std::string& bytes) {
  Wide text = decoded(bytes);
  Kv::toUpper(text);
  return toUTF8(text).str();
}

}  // namespace

TEST(TextTest, Utf8IsDecodedToCodePointsAndBack) {
  struct Row {
    std::string bytes;
    std::wstring text;
  };
  for (const Row& row : std::vector<Row>{{"", L""},
                                         {"abc", L"abc"},
                                         {"\xC2\x80\xDF\xBF", L"\x80\x7FF"},
                                         {"\xC3\xA9", L"\xE9"},
                                         {"\xE0\xA0\x80", L"\x800"},
                                         {"\xE2\x82\xAC", L"\x20AC"},
                                         {"\xED\x9F\xBF\xEE\x80\x80", L"\xD7FF\xE000"},
                                         {"\xEF\xBF\xBF", L"\xFFFF"},
                                         {"\xF0\x90\x80\x80", L"\x10000"},
                                         {"\xF4\x8F\xBF\xBF", L"\x10FFFF"},
                                         {std::string("a\0b", 3), std::wstring(L"a\0b", 3)}}) {
    EXPECT_EQ(decoded(row.bytes).str(), row.text) << testing::PrintToString(row.bytes);
    EXPECT_EQ(toUTF8(decoded(row.bytes)).str(), row.bytes);
  }
}

TEST(TextTest, BytesThatAreNotUtf8AreDecodedOneByOneAndSurvive) {
  struct Row {
    std::string bytes;
    std::wstring text;
  };
  for (const Row& row : std::vector<Row>{{"\x80", L"\xDC80"},
                                         {"\xFF", L"\xDCFF"},
                                         {"\xC3", L"\xDCC3"},
                                         {"\xC3"
                                          "a",
                                          L"\xDCC3"
                                          L"a"},
                                         {"\xC0\xAF", L"\xDCC0\xDCAF"},
                                         {"\xC1\xBF", L"\xDCC1\xDCBF"},
                                         {"\xE0\x80\x80", L"\xDCE0\xDC80\xDC80"},
                                         {"\xE2\x82", L"\xDCE2\xDC82"},
                                         {"\xED\xA0\x80", L"\xDCED\xDCA0\xDC80"},
                                         {"\xF0\x80\x80\x80", L"\xDCF0\xDC80\xDC80\xDC80"},
                                         {"\xF4\x90\x80\x80", L"\xDCF4\xDC90\xDC80\xDC80"},
                                         {"\xF5\x80", L"\xDCF5\xDC80"},
                                         {"\xE2\xE2\x82\xAC", L"\xDCE2\x20AC"}}) {
    EXPECT_EQ(decoded(row.bytes).str(), row.text) << testing::PrintToString(row.bytes);
    EXPECT_EQ(toUTF8(decoded(row.bytes)).str(), row.bytes);
  }
}

TEST(TextTest, AnyTwoBytesBetweenLettersSurvive) {
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      const std::string bytes = {'a', static_cast<char>(first), static_cast<char>(second), 'z'};
      ASSERT_EQ(toUTF8(decoded(bytes)).str(), bytes) << first << ' ' << second;
    }
  }
}

TEST(TextTest, ElementsThatAreNoCharactersAreWrittenAsTheReplacementCharacter) {
  for (const wchar_t element : {wchar_t(0xD800), wchar_t(0xDBFF), wchar_t(0xDC00), wchar_t(0xDC41),
                                wchar_t(0xDD00), wchar_t(0xDFFF), wchar_t(0x110000), wchar_t(-1)}) {
    EXPECT_EQ(toUTF8(Wide(&element, 1)), "\xEF\xBF\xBD")
        << std::hex << static_cast<unsigned>(element);
  }
}

TEST(TextTest, ALengthInBytesMayCutALetter) {
  EXPECT_EQ(fromUTF8("a\xC3\xA9", 2).str(), L"a\xDCC3");
  EXPECT_EQ(fromUTF8("abc", 0).str(), L"");
  EXPECT_EQ(fromUTF8("abc").str(), L"abc");
  EXPECT_EQ(fromUTF8(nullptr, 5).str(), L"");
}

TEST(TextTest, UpperCaseIsUnicodesFullMapping) {
  struct Row {
    std::string text, mapped;
  };
  for (const Row& row : std::vector<Row>{{"", ""},
                                         {"Anna-1 <All>", "ANNA-1 <ALL>"},
                                         {"stra\xC3\x9F"
                                          "e",
                                          "STRASSE"},
                                         {"\xEF\xAC\x83", "FFI"},
                                         {"\xC3\xA9\xC3\xBC", "\xC3\x89\xC3\x9C"},
                                         {"i\xC4\xB1", "II"},
                                         {"\xCF\x83\xCF\x82", "\xCE\xA3\xCE\xA3"},
                                         {"\xCE\x90", "\xCE\x99\xCC\x88\xCC\x81"},
                                         {"\xF0\x90\x90\xA8", "\xF0\x90\x90\x80"},
                                         {"\xE2\x82\xAC", "\xE2\x82\xAC"}}) {
    EXPECT_EQ(upper(row.text), row.mapped) << row.text;
  }
}

TEST(TextTest, UpperCaseKeepsWhatIsNoText) {
  EXPECT_EQ(upper("a\xFF"
                  "b\xF0\x90\x90\xA8\xB8"
                  "c"),
            "A\xFF"
            "B\xF0\x90\x90\x80\xB8"
            "C");
  Wide text(
      L"a\xD801\xDC28"
      L"b",
      4);  // two halves, which are not one letter here
  Kv::toUpper(text);
  EXPECT_EQ(text.str(), (std::wstring{L'A', wchar_t(0xD801), wchar_t(0xDC28), L'B'}));
}

TEST(TextTest, UpperCaseDoesNotDependOnTheLocale) {
  for (const char* const locale : {"tr_TR.UTF-8", "lt_LT.UTF-8", "C"}) {
    std::setlocale(LC_ALL, locale);
    EXPECT_EQ(upper("title i\xCC\x87"), "TITLE I\xCC\x87") << locale;
  }
}

TEST(TextTest, WideningTakesEachByteForItself) {
  EXPECT_EQ(Kv::WStringFromAscii("\xC3\xA9 a").str(), L"\xC3\xA9 a");
  EXPECT_EQ(Kv::WStringFromAscii(LightweightString<char>("a\0b", 3)).str(),
            std::wstring(L"a\0b", 3));
}
