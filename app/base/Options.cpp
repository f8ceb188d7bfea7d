#include "app/base/Options.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>

#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/os/FileErrors.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"

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

namespace {

/// It holds no lines, and is no plain file.
constexpr const char* kNoFile = "/dev/null";

/// The text of a configuration file, with the refusals of readConfigFile().
Result<std::string> configText(const std::string& file) {
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
  if (S_ISCHR(status.st_mode) && file == kNoFile) return std::string();
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
  return text;
}

}  // namespace

Result<std::vector<ConfigLine>> readConfigFile(const std::string& file) {
  const auto text = configText(file);
  if (!text) return text.error();
  return parseConfig(*text, file);
}

namespace {

/// The port has two names in a file.
std::string_view canonicalKey(std::string_view key) { return key == kPortKey ? "port" : key; }

/// The value as a line must hold it; a quoted one cannot hold quotes.
Result<std::string> configWord(const std::string& key, const std::string& value) {
  const bool needsQuotes = value.empty() || value.front() == '"' || value.front() == '#' ||
                           value.find(" #") != value.npos || trimmed(value) != value;
  const bool hasControls =
      std::ranges::any_of(value, [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; });
  if (!hasControls && !needsQuotes) return value;
  if (!hasControls && value.find('"') == value.npos) return '"' + value + '"';
  return Error{ErrorCode::eUsage,
               key + ": " + inQuotes(value) +
                   " cannot be kept in a configuration file: leave quotes, line ends and other "
                   "control characters out.",
               {}};
}

/// A line of a configuration file's text, without its end.
struct TextLine {
  std::string_view text;
  std::string_view end;  ///< "\n", or nothing at the end of the file
};

std::vector<TextLine> linesOfText(std::string_view text) {
  std::vector<TextLine> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.push_back({text.substr(0, end), text.substr(end, 1)});
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

/// The key and value of a line; nothing for any other.
std::optional<ConfigLine> settingIn(std::string_view line) {
  line = trimmed(line);
  if (isRestOfLine(line)) return std::nullopt;
  auto read = readLine(line, {}, 0);
  return read ? std::optional(std::move(*read)) : std::nullopt;
}

/// What stands behind the value of a line: blanks and a comment.
std::string_view restBehindValue(std::string_view line) {
  const std::size_t from = line.find_first_not_of(kLineBlanks, line.find('=') + 1);
  if (from == line.npos) return line.substr(line.size() - (line.ends_with('\r') ? 1 : 0));
  if (line[from] == '"') return line.substr(line.find('"', from + 1) + 1);
  return line.substr(line.find_last_not_of(kLineBlanks, line.find(" #", from)) + 1);
}

/// The line with another value; how it is indented, and its comment, stay.
std::string withValue(std::string_view line, const std::string& word) {
  const std::size_t equals = line.find('=');
  const std::size_t value = line.find_first_not_of(kLineBlanks, equals + 1);
  const bool hasValue = value != line.npos;
  const std::string begin(line.substr(0, hasValue ? value : equals + 1));
  return begin + (hasValue ? "" : " ") + word + std::string(restBehindValue(line));
}

/// Puts new values of one file's keys into its lines, one after another.
class ConfigChanger {
 public:
  ConfigChanger(std::string_view text, const ConfigChanges& changes)
      : lines_(linesOfText(text)), changes_(changes) {
    for (const TextLine& line : lines_) {
      if (const auto setting = settingIn(line.text))
        ++left_[std::string(canonicalKey(setting->key))];
    }
  }

  Result<std::string> change() {
    for (const TextLine& line : lines_) {
      if (auto put = putLine(line); !put) return put.error();
    }
    for (const auto& [key, values] : changes_) {
      for (std::size_t at = written_[key]; at < values.size(); ++at) {
        const auto word = configWord(key, values[at]);
        if (!word) return word.error();
        if (!text_.empty() && text_.back() != '\n') text_ += '\n';
        text_ += key + " = " + *word + '\n';
      }
    }
    return text_;
  }

 private:
  /// The last lines of a key take its values: of an option that is given twice the last counts.
  Result<void> putLine(const TextLine& line) {
    const auto setting = settingIn(line.text);
    const auto change =
        setting ? changes_.find(std::string(canonicalKey(setting->key))) : changes_.end();
    if (change == changes_.end()) return keep(line, line.text);
    const auto& [key, values] = *change;
    if (left_[key]-- > values.size()) return keepComment(line);
    const std::string& value = values[written_[key]++];
    if (setting->value == value) return keep(line, line.text);
    const auto word = configWord(key, value);
    if (!word) return word.error();
    return keep(line, withValue(line.text, *word));
  }

  Result<void> keep(const TextLine& line, std::string_view text) {
    text_ += text;
    text_ += line.end;
    return {};
  }

  Result<void> keepComment(const TextLine& line) {
    const std::string_view comment = trimmed(restBehindValue(line.text));
    return comment.empty() ? Result<void>() : keep(line, comment);
  }

  std::vector<TextLine> lines_;
  const ConfigChanges& changes_;
  std::map<std::string, std::size_t> left_;     ///< lines of a key that are still to come
  std::map<std::string, std::size_t> written_;  ///< values of a key that are in lines
  std::string text_;
};

/// What a symbolic link leads to: files of settings are often kept elsewhere.
std::string linkedFile(const std::string& file) {
  constexpr int kMostLinks = 8;
  std::error_code problem;
  std::filesystem::path at = file;
  // One that leads to nothing yet stays a link.
  for (int i = 0; i < kMostLinks && std::filesystem::is_symlink(at, problem); ++i) {
    at = at.parent_path() / std::filesystem::read_symlink(at, problem);
  }
  const auto real = std::filesystem::weakly_canonical(at, problem);
  return problem ? file : real.string();
}

/// Who may read the file stays as it is; a group that cannot be kept may do nothing with it. A new
/// file is its maker's alone.
Result<void> keepMode(const std::string& file, const std::string& temporary) {
  constexpr mode_t kAll = 07777;
  constexpr mode_t kOfGroup = 0070;
  struct stat old {};
  const bool isThere = ::stat(file.c_str(), &old) == 0;
  mode_t mode = isThere ? old.st_mode & kAll : 0600;
  const bool isOfGroup =
      isThere && ::chown(temporary.c_str(), static_cast<uid_t>(-1), old.st_gid) == 0;
  if (isThere && !isOfGroup) mode &= ~kOfGroup;
  if (::chmod(temporary.c_str(), mode) == 0) return {};
  return errorFromErrno(errno, "write", file);
}

}  // namespace

Result<std::string> changedConfig(std::string_view text, const ConfigChanges& changes) {
  return ConfigChanger(text, changes).change();
}

Result<void> changeConfigFile(const std::string& file, const ConfigChanges& changes) {
  const std::string real = linkedFile(file);
  auto text = configText(real);
  if (!text && text.error().code == ErrorCode::eNotFound) text = std::string();
  if (!text) return text.error();
  const auto changed = changedConfig(*text, changes);
  if (!changed) return changed.error();
  if (*changed == *text) return {};
  if (real == kNoFile)
    return Error{ErrorCode::eUsage, file + " keeps nothing; name a file with --config FILE.", file};
  std::error_code problem;
  std::filesystem::create_directories(std::filesystem::path(real).parent_path(), problem);
  return writeAtomically(
      real, *changed, [&real](const std::string& temporary) { return keepMode(real, temporary); });
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

/// $XDG_CONFIG_HOME/korvel/station.conf; empty without a home folder.
std::string defaultConfigFile() {
  const std::string folder = userFolder("XDG_CONFIG_HOME", "/.config");
  return folder.empty() ? folder : folder + "/korvel/station.conf";
}

/// A file that is named must be there.
Result<void> addConfigFile(const std::string& file, GivenOptions& given) {
  std::error_code problem;
  if (!given.contains("config") && !std::filesystem::exists(file, problem)) return {};
  return addFromConfigFile(file, given);
}

std::variant<Options, ProgramEnd> settled(GivenOptions given, Flags& flags) {
  const auto named = given.find("config");
  const std::string file = named == given.end() ? defaultConfigFile() : named->second.back().text;
  if (auto added = addConfigFile(file, given); !added) return usageError(added.error().message);
  auto options = validateOptions(given, flags["gui"] ? Asking::ePerson : Asking::eNobody);
  if (!options) return usageError(options.error().message);
  options->configFile = file;
  options->given = given;
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

bool hostFollowsUser(const Options& options) {
  const auto host = options.given.find("host");
  return host == options.given.end() || host->second.empty() ||
         host->second.back().text == options.station.user;
}

Result<Options> withAnswers(const Options& options, const std::string& projects,
                            const std::string& user) {
  Options answered = options;
  answered.given["projects"] = {{projects, "projects"}};
  answered.given["user"] = {{user, "user"}};
  if (hostFollowsUser(options)) answered.given["host"] = {{user, "host"}};
  auto checked = validateOptions(answered.given);
  if (!checked) return checked.error();
  answered.station = std::move(checked->station);
  answered.station.recovery = options.station.recovery;
  answered.station.talk = options.station.talk;
  answered.station.cache = options.station.cache;
  return answered;
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
