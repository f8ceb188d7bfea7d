#include "host/base/Cookie.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "station/base/StationSettings.h"

using namespace korvel;

namespace {

Cookie read(const std::string& text) { return Cookie(text.c_str(), false); }

std::string written(const Cookie& cookie) { return cookie.asString().str(); }

}  // namespace

TEST(CookieTest, EveryTextFormReadsBackExactly) {
  for (const std::string text :
       {"P0001", "E0000", "I0000", "Gabcd", "V12345", "S00ff", "B0001-ff00", "F0001-00ff",
        "Effffffffffffffffffffffffffffffff", "E10000000000000000000000000000000-0102", "x0001"}) {
    const Cookie cookie = read(text);
    EXPECT_FALSE(cookie.isNull()) << text;
    EXPECT_EQ(cookie.getType(), text[0]) << text;
    EXPECT_EQ(written(cookie), text);
  }
}

TEST(CookieTest, WhatIsNoTextFormReadsAsTheNullCookie) {
  for (const std::string text : {"",
                                 "P",
                                 "P1",
                                 "P001",
                                 "P00001",
                                 "PABCD",
                                 "10001",
                                 "P000g",
                                 "P0001-",
                                 "P0001-0000",
                                 "P0001-ff",
                                 "P0001-FF00",
                                 "P0001-ff000",
                                 "P0001 ",
                                 " P0001",
                                 "P0001-ff00-ff00",
                                 "\xAC"
                                 "0001",
                                 "P0001\xAC",
                                 "Pfffffffffffffffffffffffffffffffff",
                                 "-0001",
                                 "P-ff00",
                                 "/0001"}) {
    EXPECT_TRUE(read(text).isNull()) << text;
    EXPECT_EQ(written(read(text)), "") << text;
  }
  EXPECT_TRUE(Cookie(nullptr, false).isNull());
}

TEST(CookieTest, ANullCookieHasNoTextAndNoParts) {
  const Cookie null;
  EXPECT_TRUE(null.isNull());
  EXPECT_EQ(written(null), "");
  EXPECT_EQ(null.getType(), CookieTypeNone);
  EXPECT_EQ(null, Cookie(UUID{}, CookieTypeNone, 1, 2));
  EXPECT_EQ(null, Cookie(UUID{{1}}, '\xAC'));
}

TEST(CookieTest, TheTypeBytesStandInTheirOrder) {
  const Cookie cookie = read("E0102-03ff");
  EXPECT_EQ(cookie.getTypeBytes(), (std::array<std::uint8_t, 3>{'E', 0x03, 0xff}));
  EXPECT_EQ(cookie.getUuid().bytes[14], 1);
  EXPECT_EQ(cookie.getUuid().bytes[15], 2);
}

TEST(CookieTest, NewCookiesDifferAndReadBack) {
  std::set<std::string> texts;
  for (int i = 0; i < 1000; ++i) {
    const Cookie cookie = Cookie::create(CookieTypeEdit);
    EXPECT_EQ(read(written(cookie)), cookie);
    texts.insert(written(cookie));
  }
  EXPECT_EQ(texts.size(), 1000U);
}

TEST(CookieTest, ANameGivesTheSameMaterialCookieEveryTime) {
  const Cookie first("/media/a.mov", true);
  EXPECT_EQ(first.getType(), CookieTypeMaterial);
  EXPECT_EQ(first, Cookie("/media/a.mov", true));
  EXPECT_FALSE(first == Cookie("/media/b.mov", true));
  EXPECT_EQ(first.getUuid().bytes[6] >> 4, 5) << "a UUID of version 5";
  EXPECT_EQ(written(first), "Vada3793e47085b22a01991280c6275c0");
}

TEST(CookieTest, ATextFormAsANameIsTheCookieItSpells) {
  EXPECT_EQ(Cookie("P0001", true), read("P0001"));
  EXPECT_EQ(Cookie("P00001", true).getType(), CookieTypeMaterial);
}

TEST(CookieTest, CookiesAreOrderedByLetterThenUuidThenTheOtherBytes) {
  const std::vector<std::string> ordered = {"",      "B0001-0001", "B0001-0100", "B0002",
                                            "E0001", "E0001-0001", "E0001-ff00", "V0000"};
  for (std::size_t i = 0; i < ordered.size(); ++i) {
    for (std::size_t j = 0; j < ordered.size(); ++j) {
      const int order = read(ordered[i]).compare(read(ordered[j]));
      EXPECT_EQ(order < 0, i < j) << ordered[i] << ' ' << ordered[j];
      EXPECT_EQ(order == 0, i == j) << ordered[i] << ' ' << ordered[j];
    }
  }
}

TEST(CookieTest, AnAbbreviatedCookieHasAtMostEightDigits) {
  EXPECT_EQ(read("E0001").asString(true), "E0001");
  EXPECT_EQ(read("E123456789-ff00").asString(true), "E12345678");
}

TEST(CookieTest, AConvertedCookieKeepsItsUuid) {
  const Cookie converted = convertCookie(read("P0012-0102"), 69, 255);
  EXPECT_EQ(written(converted), "E0012-ff00");
  EXPECT_TRUE(convertCookie(Cookie(), 69, 255).isNull());
}

TEST(CookieTest, TheWideTextIsTheSameText) {
  EXPECT_EQ(read("E0001-ff00").asWString(), L"E0001-ff00");
}

TEST(CookieTest, TheMachineNumberIsThatOfTheSettings) {
  StationSettings settings;
  settings.machine = 12;
  installSettings(settings);
  EXPECT_EQ(Cookie::getLocalMachineNumber(), 12);
}
