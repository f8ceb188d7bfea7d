#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "ProjectShare/Broadcaster.h"
#include "tests/doc/SourceText.h"
#include "tests/fakes/FakeHost.h"

using namespace korvel;

// docs/host-seam.md lists what the plug-in needs of a host. These tests compare its tables with the
// library's undefined symbols, with the host's headers and with the plug-in's sources.

namespace {

namespace fs = std::filesystem;

const fs::path kRoot = KV_SOURCE_DIR;

using Names = std::set<std::string>;

/// The names in the first column of the page's tables, by host folder.
std::map<std::string, Names> namesOnPage() {
  static const std::regex kName("`([^`]+)`");
  std::map<std::string, Names> names;
  std::string folder;
  std::istringstream page(readText(kRoot / "docs/host-seam.md"));
  for (std::string line; std::getline(page, line);) {
    if (line.rfind("### host/", 0) == 0) folder = line.substr(9);
    if (folder.empty() || line.rfind("| `", 0) != 0) continue;
    const std::string column = line.substr(0, line.find('|', 1));
    for (std::sregex_iterator found(column.begin(), column.end(), kName), end; found != end;
         ++found) {
      names[folder].insert((*found)[1]);
    }
  }
  return names;
}

/// Every name of the page, and the class of each member.
Names allNames() {
  Names all;
  for (const auto& [folder, names] : namesOnPage()) {
    for (const std::string& name : names) {
      all.insert(name);
      const auto cut = name.rfind("::");
      if (cut != name.npos) all.insert(name.substr(0, cut));
    }
  }
  return all;
}

/// The plug-in's whole source without comments and texts.
const std::string& pluginSource() {
  static const std::string source = [] {
    std::string all;
    for (const fs::path& file : sourcesBelow(kRoot / "ProjectShare"))
      all += withoutCommentsAndStrings(readText(file));
    return all;
  }();
  return source;
}

std::string lastPart(const std::string& name) {
  const auto cut = name.rfind("::");
  return cut == name.npos ? name : name.substr(cut + 2);
}

/// A demangled symbol as the page writes it: no arguments, and a class for what makes, destroys or
/// describes its objects.
std::string pageName(std::string symbol) {
  static const std::regex kDescribes("^(typeinfo|typeinfo name|vtable|VTT) for ");
  static const std::regex kMakes(R"(^(.*?)(\w+)::~?\2$)");
  symbol = std::regex_replace(symbol, kDescribes, "");
  symbol = symbol.substr(0, symbol.find_first_of("(<["));
  if (symbol.rfind("operator") == symbol.size() - 8 && symbol.size() > 8) symbol += "[]";
  return std::regex_replace(symbol, kMakes, "$1$2");
}

/// The symbols that the library leaves to the host: those that no system library gives a version.
Names undefinedHostSymbols() {
  static const std::regex kSymbol(R"(^\s+U ((?!_)[^@]+)$)");
  const std::string command = std::string(KV_NM) + " -D -C --undefined-only " + KV_PLUGIN;
  Names symbols;
  for (const std::string& line : linesOf(command)) {
    std::smatch found;
    if (std::regex_match(line, found, kSymbol)) symbols.insert(found[1]);
  }
  return symbols;
}

struct Virtual {
  std::string folder, owner, name;
};

/// The virtual operations that the host's headers declare.
std::vector<Virtual> hostVirtuals() {
  static const std::regex kClass(R"(^(?:class|struct) (?:KV_HOST_API )?(\w+)[^;]*$)");
  static const std::regex kVirtual(R"(^\s.*\bvirtual\s[^(~]*?(\w+)\()");
  std::vector<Virtual> all;
  for (const fs::path& file : sourcesBelow(kRoot / "host")) {
    const std::string folder = file.parent_path().filename();
    std::string owner;
    std::istringstream text(withoutCommentsAndStrings(readText(file)));
    for (std::string line; std::getline(text, line);) {
      std::smatch found;
      if (std::regex_search(line, found, kClass)) owner = found[1];
      if (std::regex_search(line, found, kVirtual)) all.push_back({folder, owner, found[1]});
    }
  }
  return all;
}

bool isOverridden(const std::string& name) {
  const std::string& source = pluginSource();
  for (std::size_t i = source.find(" " + name + "("); i != source.npos;
       i = source.find(" " + name + "(", i + 1)) {
    const std::string declaration = source.substr(i, source.find_first_of(";{", i) - i);
    if (hasWord(declaration, "override")) return true;
  }
  return false;
}

bool isCalledOrOverridden(const std::string& name) {
  const auto holds = [](const std::string& text) {
    return pluginSource().find(text) != std::string::npos;
  };
  return holds("->" + name + "(") || holds("." + name + "(") || isOverridden(name);
}

TEST(HostSeamTest, EverySymbolThatTheLibraryLeavesToTheHostIsOnThePage) {
  const Names page = allNames();
  const Names symbols = undefinedHostSymbols();
  EXPECT_GT(symbols.size(), 50U);
  for (const std::string& symbol : symbols) {
    EXPECT_TRUE(page.count(pageName(symbol))) << symbol << " as " << pageName(symbol);
  }
}

TEST(HostSeamTest, EveryVirtualOperationThatIsCalledOrOverriddenIsOnThePage) {
  const auto page = namesOnPage();
  std::size_t used = 0;
  for (const Virtual& each : hostVirtuals()) {
    if (!isCalledOrOverridden(each.name)) continue;
    ++used;
    const std::string name = each.owner + "::" + each.name;
    ASSERT_TRUE(page.count(each.folder)) << each.folder;
    EXPECT_TRUE(page.at(each.folder).count(name)) << name << " in host/" << each.folder;
  }
  EXPECT_GT(used, 50U);
}

TEST(HostSeamTest, EveryNameOnThePageIsUsedByThePlugIn) {
  Names symbols;
  for (const std::string& symbol : undefinedHostSymbols()) symbols.insert(pageName(symbol));
  for (const auto& [folder, names] : namesOnPage()) {
    for (const std::string& name : names) {
      EXPECT_TRUE(symbols.count(name) || hasWord(pluginSource(), lastPart(name)))
          << name << " in host/" << folder;
    }
  }
}

TEST(HostSeamTest, EveryNameStandsUnderTheFolderThatDeclaresIt) {
  for (const auto& [folder, names] : namesOnPage()) {
    std::string headers;
    for (const fs::path& file : sourcesBelow(kRoot / "host" / folder))
      headers += withoutCommentsAndStrings(readText(file));
    for (std::string name : names) {
      if (name.find("::operator") != name.npos) name = name.substr(0, name.find("::"));
      EXPECT_TRUE(hasWord(headers, lastPart(name))) << name << " in host/" << folder;
    }
  }
}

TEST(HostSeamTest, EveryFolderOfTheHostHasItsTable) {
  const auto page = namesOnPage();
  for (const auto& entry : fs::directory_iterator(kRoot / "host")) {
    if (!entry.is_directory()) continue;
    EXPECT_TRUE(page.count(entry.path().filename())) << entry.path();
  }
}

TEST(HostSeamTest, TheExamplesDatagramIsTheOneThatLeaves) {
  static const std::regex kText("text = ((?:[0-9A-F]{2} *)+)\n");
  const std::string page = readText(kRoot / "docs/host-seam.md");
  std::smatch found;
  ASSERT_TRUE(std::regex_search(page, found, kText));
  std::string datagram;
  std::istringstream bytes(found[1]);
  for (unsigned byte = 0; bytes >> std::hex >> byte;) datagram += static_cast<char>(byte);
  FakeHost host;
  const Kv::Ptr<ProjectSharing::Broadcaster> broadcaster(new ProjectSharing::Broadcaster);
  ProjectSharing::Broadcaster::enable();
  host.project.eachListener(
      [](ProjectListener& listener) { listener.handleLogStorage(Cookie("E0001", false), false); });
  EXPECT_EQ(host.network.sent, std::vector<std::string>{datagram});
}

}  // namespace
