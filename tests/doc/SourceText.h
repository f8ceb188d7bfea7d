#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace korvel {

/// A file's text; empty when it cannot be read.
std::string readText(const std::filesystem::path& file);

/// The C++ sources and headers below a folder, sorted.
std::vector<std::filesystem::path> sourcesBelow(const std::filesystem::path& folder);

/// A C++ text without its comments and without what its string literals hold.
std::string withoutCommentsAndStrings(const std::string& text);

/// Whether a text holds an identifier as a whole word.
bool hasWord(const std::string& text, const std::string& word);

/// What only one of a page and its programs (or sources) has: "not on the page: quit\n"; empty
/// where they agree.
std::string disagreement(const std::set<std::string>& page, const std::set<std::string>& programs);

/// What a shell command prints, line by line.
std::vector<std::string> linesOf(const std::string& command);

}  // namespace korvel
