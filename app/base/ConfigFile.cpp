#include "app/base/ConfigFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "station/os/Posix.h"

namespace korvel {

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

/// What stands behind a value: nothing, or a comment.
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
    return wrongLine(file, number, "\"" + std::string(line) + "\" has no \"=\"");
  }
  const std::string_view key = trimmed(line.substr(0, equals));
  if (key.empty()) return wrongLine(file, number, "nothing stands before the \"=\"");
  if (key.find_first_of(" \t\"#") != std::string_view::npos) {
    return wrongLine(file, number, "\"" + std::string(key) + "\" is no key");
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
  // The file decides which plug-in is loaded and which networks are heard.
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

}  // namespace korvel
