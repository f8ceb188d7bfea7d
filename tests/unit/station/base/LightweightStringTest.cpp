#include "host/base/LightweightString.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using Text = LightweightString<char>;
using Wide = LightweightString<wchar_t>;

}  // namespace

TEST(LightweightStringTest, TheCharactersEndInAZeroAndMayHoldZeros) {
  for (const std::size_t length : {0U, 1U, 7U, 8U, 15U, 16U, 4096U}) {
    std::wstring characters(length, L'\x1F3A5');
    if (length > 1) characters[1] = L'\0';
    const Wide text(characters.data(), length);
    EXPECT_EQ(text.str(), characters) << length;
    EXPECT_EQ(text.size(), length);
    EXPECT_EQ(text.c_str()[length], L'\0') << length;
  }
}

TEST(LightweightStringTest, NullAndUnsetAreEmpty) {
  for (const Text& text : {Text(), Text(nullptr), Text(""), Text(Text())}) {
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(text.size(), 0U);
    EXPECT_STREQ(text.c_str(), "");
    EXPECT_EQ(text, Text());
  }
}

TEST(LightweightStringTest, CopiesShareTheirCharactersAndKeepThemWhenOneChanges) {
  Text text("a reel");
  const Text copy(text);
  EXPECT_EQ(copy.c_str(), text.c_str());
  text += " of film";
  EXPECT_EQ(copy, "a reel");
  EXPECT_EQ(text, "a reel of film");
  const Text moved(std::move(text));
  text = copy;
  EXPECT_EQ(moved, "a reel of film");
  EXPECT_EQ(text.c_str(), copy.c_str());
}

TEST(LightweightStringTest, ATextMayBeAppendedToItself) {
  Text text("tick ");
  text += text;
  text += text.c_str();
  EXPECT_EQ(text, "tick tick tick tick ");
  text += text[0];
  EXPECT_EQ(text, "tick tick tick tick t");
}

TEST(LightweightStringTest, AppendingNothingKeepsTheSharedCharacters) {
  Text text("bin");
  const Text copy(text);
  text += "";
  text += Text();
  EXPECT_EQ(text.c_str(), copy.c_str());
}

TEST(LightweightStringTest, ThreadsMayShareATextAndTheLastFreesIt) {
  std::vector<std::thread> threads;
  {
    const Wide shared(L"ANNA");
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([own = shared] {
        for (int round = 0; round < 20'000; ++round) {
          const Wide copy(own);
          ASSERT_EQ(copy.size(), 4U);
        }
      });
    }
  }
  for (std::thread& thread : threads) thread.join();
}
