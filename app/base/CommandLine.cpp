#include "app/base/CommandLine.h"

#include <cstddef>
#include <cstdlib>

namespace korvel {

namespace {

constexpr std::string_view kBlanks = " \t\r\n\v\f";

bool isBlank(char byte) { return kBlanks.find(byte) != std::string_view::npos; }

class Splitter {
 public:
  explicit Splitter(std::string_view line) : line_(line) {}

  Result<std::vector<std::string>> split() {
    while (skipToWord()) {
      if (auto read = readWord(); !read) return read.error();
    }
    return words_;
  }

 private:
  bool skipToWord() {
    while (at_ < line_.size() && isBlank(line_[at_])) ++at_;
    return at_ < line_.size() && line_[at_] != '#';
  }

  Result<void> readWord() {
    words_.emplace_back();
    readHome();
    while (at_ < line_.size() && !isBlank(line_[at_])) {
      const char byte = line_[at_];
      const auto read = byte == '\'' || byte == '"' ? readQuoted(byte) : readPlain();
      if (!read) return read;
    }
    return {};
  }

  /// "~" and "~/..." outside quotes are the user's own folder.
  void readHome() {
    const char* const home = std::getenv("HOME");
    const bool isAlone =
        at_ + 1 == line_.size() ||
        (at_ + 1 < line_.size() && (isBlank(line_[at_ + 1]) || line_[at_ + 1] == '/'));
    if (line_[at_] != '~' || !isAlone || !home || !*home) return;
    words_.back() = home;
    ++at_;
  }

  Result<void> readPlain() {
    if (line_[at_] == '\\' && ++at_ == line_.size()) {
      return problem("the backslash at the end of the line has nothing after it", at_);
    }
    words_.back() += line_[at_++];
    return {};
  }

  Result<void> readQuoted(char quote) {
    const std::size_t column = ++at_;
    for (; at_ < line_.size(); ++at_) {
      if (line_[at_] == quote) {
        ++at_;
        return {};
      }
      if (quote == '"' && isEscape()) ++at_;
      words_.back() += line_[at_];
    }
    return problem(std::string("the quote ") + quote + " is never closed", column);
  }

  [[nodiscard]] bool isEscape() const {
    if (line_[at_] != '\\' || at_ + 1 == line_.size()) return false;
    return line_[at_ + 1] == '"' || line_[at_ + 1] == '\\';
  }

  static Error problem(const std::string& what, std::size_t column) {
    return {ErrorCode::eUsage,
            "The line cannot be read: " + what + " (column " + std::to_string(column) +
                "). Put a backslash before a quote or backslash that is meant as it stands.",
            {}};
  }

  std::string_view line_;
  std::size_t at_ = 0;
  std::vector<std::string> words_;
};

}  // namespace

Result<std::vector<std::string>> splitCommandLine(std::string_view line) {
  return Splitter(line).split();
}

std::string quotedWord(std::string_view word) {
  const bool isPlain =
      !word.empty() && word.find_first_of(" \t\r\n\v\f'\"\\#") == word.npos && word.front() != '~';
  if (isPlain) return std::string(word);
  std::string quoted = "\"";
  for (const char byte : word) {
    if (byte == '"' || byte == '\\') quoted += '\\';
    quoted += byte;
  }
  return quoted + "\"";
}

}  // namespace korvel
