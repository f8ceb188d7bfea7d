#include "app/base/Options.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "station/base/Rendering.h"
#include "station/base/Strings.h"
#include "station/os/Posix.h"

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

namespace {

constexpr off_t kMostBytes = 1 << 20;
constexpr std::string_view kLineBlanks = " \t\r\v\f";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kLineBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kLineBlanks) - first + 1);
}

Error wrongLine(const std::string& file, int number, const std::string& what) {
  return {ErrorCode::eUsage,
          file + ":" + std::to_string(number) + ": " + what +
              "; every line is \"key = value\", a # comment or empty.",
          file};
}

/// Whether the text behind a value is empty or a comment.
bool isRestOfLine(std::string_view rest) {
  rest = trimmed(rest);
  return rest.empty() || rest.front() == '#';
}

Result<std::string> readValue(std::string_view text, const std::string& file, int number) {
  text = trimmed(text);
  if (text.empty() || text.front() != '"') {
    const std::size_t comment = text.find(" #");
    return std::string(trimmed(text.substr(0, comment)));
  }
  const std::size_t end = text.find('"', 1);
  if (end == std::string_view::npos) {
    return wrongLine(file, number, "the quote before the value is never closed");
  }
  if (!isRestOfLine(text.substr(end + 1))) {
    return wrongLine(file, number, "something stands behind the closing quote");
  }
  return std::string(text.substr(1, end - 1));
}

Result<ConfigLine> readLine(std::string_view line, const std::string& file, int number) {
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos) {
    return wrongLine(file, number, inQuotes(std::string(line)) + " has no \"=\"");
  }
  const std::string_view key = trimmed(line.substr(0, equals));
  if (key.empty()) return wrongLine(file, number, "nothing stands before the \"=\"");
  if (key.find_first_of(" \t\"#") != std::string_view::npos) {
    return wrongLine(file, number, inQuotes(std::string(key)) + " is no key");
  }
  auto value = readValue(line.substr(equals + 1), file, number);
  if (!value) return value.error();
  return ConfigLine{number, std::string(key), *value};
}

}  // namespace

Result<std::vector<ConfigLine>> parseConfig(std::string_view text, const std::string& file) {
  std::vector<ConfigLine> lines;
  int number = 0;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = trimmed(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    ++number;
    if (isRestOfLine(line)) continue;
    auto read = readLine(line, file, number);
    if (!read) return read.error();
    lines.push_back(std::move(*read));
  }
  return lines;
}

Result<std::vector<ConfigLine>> readConfigFile(const std::string& file) {
  const std::string named = "The configuration file " + file;
  // Without O_NONBLOCK a named pipe would be waited for until a program writes to it.
  const Descriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!opened.isOpen() || ::fstat(opened.get(), &status) != 0) {
    const int reason = errno;
    return Error{
        reason == ENOENT ? ErrorCode::eNotFound : ErrorCode::eSystem,
        named + " cannot be read: " + std::strerror(reason) + "; name another with --config FILE.",
        file};
  }
  const bool isNothing = S_ISCHR(status.st_mode) && file == "/dev/null";
  if (isNothing) return std::vector<ConfigLine>();
  if (!S_ISREG(status.st_mode)) {
    const char* const kind = S_ISDIR(status.st_mode) ? " is a folder" : " is no plain file";
    return Error{ErrorCode::eSystem, named + kind + "; name a file with --config FILE.", file};
  }
  // The file decides which plug-in is loaded and which networks are used: nobody else may change
  // it.
  if ((status.st_mode & S_IWOTH) != 0) {
    return Error{ErrorCode::eNoRights,
                 named +
                     " may be written by everybody, so it is not used; take that right away: "
                     "chmod o-w " +
                     file,
                 file};
  }
  std::string text;
  if (status.st_size <= kMostBytes && !readAll(opened.get(), text)) {
    return Error{ErrorCode::eSystem, named + " cannot be read: " + std::strerror(errno) + ".",
                 file};
  }
  if (status.st_size > kMostBytes) {
    return Error{ErrorCode::eBadContent,
                 named + " is larger than 1 MiB, so it is none; name another with --config FILE.",
                 file};
  }
  return parseConfig(text, file);
}

namespace {

constexpr const char* kProgram = "kv-station";

constexpr const char* kDescription =
    "usage: kv-station --projects DIR [OPTION...]\n\n"
    "One workstation that shares projects with others over a common folder.\n"
    "Commands are read from the terminal or a script; \"help\" lists them.\n\n";

constexpr const char* kHelpOption = "print this text and exit";
constexpr const char* kVersionOption = "print the program's version and exit";

constexpr const char* kFooter =
    "\n\nA NAME may stand wherever a cookie may. Exit status: 0 after quit or the end of\n"
    "the input, 1 when a command of a script failed, 2 when the station could not be\n"
    "started.";

using Flags = std::map<std::string, bool>;

void declare(CLI::App& app, std::map<std::string, std::vector<std::string>>& values, Flags& flags) {
  for (const OptionSpec& spec : optionTable()) {
    app.add_option("--" + std::string(spec.name), values[spec.name], spec.help)
        ->type_name(spec.value)
        ->allow_extra_args(false);
  }
  for (const FlagSpec& flag : flagTable()) {
    app.add_flag("--" + std::string(flag.name), flags[flag.name], flag.help);
  }
  app.set_help_flag("-h,--help", kHelpOption);
  app.set_version_flag("--version", std::string(kProgram) + " " KV_VERSION " (Project Share)",
                       kVersionOption);
}

std::string helpText() {
  JsonValue rows = JsonValue::array();
  const auto add = [&rows](const std::string& option, const std::string& help) {
    rows.append(JsonValue::object({{"option", "  " + option}, {"help", help}}));
  };
  for (const OptionSpec& spec : optionTable()) {
    add("--" + std::string(spec.name) + " " + spec.value, spec.help);
  }
  for (const FlagSpec& flag : flagTable()) add("--" + std::string(flag.name), flag.help);
  add("-h, --help", kHelpOption);
  add("--version", kVersionOption);
  return kDescription + renderWrapped(rows) + kFooter;
}

/// A usage error. It quotes words of the command line or a file, so control characters are
/// replaced.
ProgramEnd usageError(const std::string& what) {
  return {2, std::string(kProgram) + ": " + shownText(what)};
}

/// The folder that a variable names, else this one of the user's home; empty where there is none.
std::string userFolder(const char* variable, const char* below) {
  const char* const named = std::getenv(variable);
  const char* const home = std::getenv("HOME");
  if (named && *named == '/') return named;
  return home && *home == '/' ? std::string(home) + below : std::string();
}

/// The folder of recovery files.
std::string recoveryFolder() {
  const std::string folder = stateFolder();
  return folder.empty() ? folder : folder + "/recovery";
}

/// The folder of conversations.
std::string conversationFolder() {
  const std::string folder = stateFolder();
  return folder.empty() ? folder : folder + "/conversations";
}

/// $XDG_CONFIG_HOME/korvel/station.conf when there is one; else empty.
std::string defaultConfigFile() {
  const std::string folder = userFolder("XDG_CONFIG_HOME", "/.config");
  if (folder.empty()) return {};
  const std::string file = folder + "/korvel/station.conf";
  std::error_code problem;
  return std::filesystem::exists(file, problem) ? file : std::string();
}

Result<void> addConfigFile(GivenOptions& given) {
  const auto named = given.find("config");
  const std::string file = named == given.end() ? defaultConfigFile() : named->second.back().text;
  if (file.empty() && named == given.end()) return {};
  return addFromConfigFile(file, given);
}

std::variant<Options, ProgramEnd> settled(GivenOptions given, Flags& flags) {
  if (auto added = addConfigFile(given); !added) return usageError(added.error().message);
  auto options = validateOptions(given);
  if (!options) return usageError(options.error().message);
  options->keepsGoing = flags["keep-going"];
  options->isVerbose = flags["verbose"];
  options->hasWindow = flags["gui"];
  options->station.recovery = recoveryFolder();
  options->station.talk = conversationFolder();
  options->station.cache = cacheFolder();
  return *options;
}

ProgramEnd parseEnd(const CLI::ParseError& problem) {
  if (problem.get_name() == "CallForVersion") return {0, problem.what()};
  if (problem.get_exit_code() == 0) return {0, helpText()};
  return usageError(std::string(problem.what()) + "; \"" + kProgram +
                    " --help\" lists the options.");
}

}  // namespace

std::variant<Options, ProgramEnd> readOptions(int argc, const char* const* argv) {
  std::map<std::string, std::vector<std::string>> values;
  Flags flags;
  CLI::App app("", kProgram);
  declare(app, values, flags);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& problem) {
    return parseEnd(problem);
  }
  GivenOptions given;
  for (const auto& [name, texts] : values) {
    for (const std::string& text : texts) given[name].push_back({text, "--" + name});
  }
  return settled(std::move(given), flags);
}

std::string stateFolder() {
  const std::string folder = userFolder("XDG_STATE_HOME", "/.local/state");
  return folder.empty() ? folder : folder + "/korvel";
}

std::string cacheFolder() {
  const std::string folder = userFolder("XDG_CACHE_HOME", "/.cache");
  return folder.empty() ? folder : folder + "/korvel";
}

}  // namespace korvel
