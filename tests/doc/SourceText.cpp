#include "tests/doc/SourceText.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <memory>
#include <regex>
#include <sstream>

namespace korvel {

std::string readText(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

std::vector<std::filesystem::path> sourcesBelow(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    const auto ending = entry.path().extension();
    if (ending == ".h" || ending == ".cpp") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string withoutCommentsAndStrings(const std::string& text) {
  std::string kept;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text.compare(i, 2, "//") == 0) {
      i = std::min(text.find('\n', i), text.size()) - 1;
    } else if (text.compare(i, 2, "/*") == 0) {
      i = text.find("*/", i) + 1;
    } else if (text.compare(i, 3, "'\"'") == 0) {
      i += 2;
    } else if (text[i] == '"') {
      while (++i < text.size() && text[i] != '"') i += text[i] == '\\' ? 1 : 0;
      kept += "\"\"";
    } else {
      kept += text[i];
    }
  }
  return kept;
}

bool hasWord(const std::string& text, const std::string& word) {
  const auto isPartOfWord = [&text](std::size_t i) {
    return i < text.size() && (std::isalnum(static_cast<unsigned char>(text[i])) || text[i] == '_');
  };
  for (std::size_t i = text.find(word); i != text.npos; i = text.find(word, i + 1)) {
    if (!isPartOfWord(i - 1) && !isPartOfWord(i + word.size())) return true;
  }
  return false;
}

std::string disagreement(const std::set<std::string>& page, const std::set<std::string>& programs) {
  std::string text;
  for (const std::string& each : programs) {
    if (!page.contains(each)) text += "not on the page: " + each + '\n';
  }
  for (const std::string& each : page) {
    if (!programs.contains(each)) text += "on the page alone: " + each + '\n';
  }
  return text;
}

std::vector<std::string> linesOf(const std::string& command) {
  std::vector<std::string> lines;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::string text;
  for (int c = pipe ? std::fgetc(pipe.get()) : EOF; c != EOF; c = std::fgetc(pipe.get())) {
    text += static_cast<char>(c);
  }
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

}  // namespace korvel
