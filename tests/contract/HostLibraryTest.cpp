#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <regex>
#include <set>

#include "tests/doc/SourceText.h"

using namespace korvel;

// What programs and plug-ins see of the station: the host's operations, and nothing of how they are
// made.

namespace {

using Symbols = std::set<std::string>;

/// The symbols of a file's dynamic table that `nm` shows with `which`, as they are mangled.
Symbols symbolsOf(const std::string& file, const std::string& which) {
  Symbols symbols;
  const std::string command = std::string(KV_NM) + " -D " + which + " " + file;
  for (const std::string& line : linesOf(command)) {
    const std::string symbol = line.substr(line.rfind(' ') + 1);
    symbols.insert(symbol.substr(0, symbol.find('@')));
  }
  return symbols;
}

#ifndef KV_SANITIZED  // which adds names of types that nobody can call

/// The words of all headers of host/.
Symbols wordsOfTheHost() {
  static const std::regex kWord(R"(\w+)");
  Symbols words;
  for (const auto& header : sourcesBelow(KV_SOURCE_DIR "/host")) {
    const std::string text = withoutCommentsAndStrings(readText(header));
    for (std::sregex_iterator each(text.begin(), text.end(), kWord), end; each != end; ++each) {
      words.insert(each->str());
    }
  }
  return words;
}

/// The first name in a mangled symbol: "Glob" of _ZN4Glob4drawEv, of its vtable _ZTV4Glob and of
/// its thunk _ZThn16_N4Glob4drawEv; empty where it has none.
std::string firstName(const std::string& symbol) {
  static const std::regex kLength(R"(^_Z(?:T[a-z0-9_]*_|T[VTIS])?N?K?(\d+))");
  std::smatch found;
  if (!std::regex_search(symbol, found, kLength)) return {};
  return symbol.substr(static_cast<std::size_t>(found.length()), std::stoul(found[1]));
}

TEST(HostLibraryTest, ItExportsWhatTheHostsHeadersDeclareAndNothingElse) {
  const Symbols declared = wordsOfTheHost();
  const Symbols exported = symbolsOf(KV_HOST_LIBRARY, "--defined-only");
  EXPECT_GT(exported.size(), 100U);
  for (const std::string& symbol : exported) {
    EXPECT_TRUE(declared.count(firstName(symbol))) << symbol;
  }
}

#endif

TEST(HostLibraryTest, TheLibraryAndTheStationHoldAllThatThePluginCalls) {
  const Symbols called = symbolsOf(KV_PLUGIN, "--undefined-only");
  const Symbols exported = symbolsOf(KV_HOST_LIBRARY, "--defined-only");
  const Symbols shown = symbolsOf(KV_STATION, "--defined-only");
  const std::regex ofTheHost("^_Z(TI|TV|N?K?)[0-9]|^_ZNK?[0-9]");
  std::size_t seen = 0;
  for (const std::string& symbol : called) {
    if (!std::regex_search(symbol, ofTheHost) || symbol.find("__cxxabi") != symbol.npos) continue;
    EXPECT_TRUE(exported.count(symbol)) << symbol << " is not in libkorvelhost.so";
    EXPECT_TRUE(shown.count(symbol)) << symbol << " is not shown by kv-station";
    ++seen;
  }
  EXPECT_GT(seen, 100U);
}

TEST(HostLibraryTest, TheStationShowsPluginsTheSameNamesAsTheLibrary) {
  const Symbols exported = symbolsOf(KV_HOST_LIBRARY, "--defined-only");
  const Symbols shown = symbolsOf(KV_STATION, "--defined-only");
  Symbols missing;
  std::ranges::set_difference(exported, shown, std::inserter(missing, missing.end()));
  EXPECT_EQ(missing, Symbols{});
}

}  // namespace
