#include "app/program/LineReader.h"

#include <fcntl.h>
#include <histedit.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <cwchar>
#include <utility>

namespace korvel {

bool awaitInput(int descriptor, const Waiter& waiter) {
  std::array<pollfd, 2> wanted{pollfd{descriptor, POLLIN, 0},
                               pollfd{waiter.descriptor(), POLLIN, 0}};
  while (::poll(wanted.data(), wanted.size(), -1) < 0 && errno == EINTR) {
  }
  return wanted[1].revents == 0;
}

ScriptReader::~ScriptReader() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

Result<void> ScriptReader::open(const std::string& path) {
  name_ = path == "-" ? "standard input" : path;
  // A copy: closing this reader must not close standard input.
  descriptor_ = path == "-" ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                            : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status {};
  const bool isKnown = descriptor_ >= 0 && ::fstat(descriptor_, &status) == 0;
  if (isKnown && !S_ISDIR(status.st_mode)) return {};
  const int problem = isKnown ? EISDIR : errno;
  return Error{ErrorCode::eNotFound,
               "The script " + name_ + " cannot be read: " + std::strerror(problem) +
                   "; name another with --script FILE.",
               path};
}

std::optional<std::string> ScriptReader::next() {
  std::size_t end = 0;
  while ((end = pending_.find('\n')) == std::string::npos && !isAtEnd_) {
    if (!readMore()) return std::nullopt;
  }
  if (pending_.empty() || waiter_.isEnding()) return std::nullopt;
  std::string line = pending_.substr(0, end);
  pending_.erase(0, end == std::string::npos ? pending_.size() : end + 1);
  ++line_;
  return line;
}

bool ScriptReader::readMore() {
  if (!awaitInput(descriptor_, waiter_)) return false;
  std::array<char, 4096> block;
  const ssize_t count = ::read(descriptor_, block.data(), block.size());
  if (count < 0 && errno == EINTR) return true;
  if (count <= 0) isAtEnd_ = true;
  if (count > 0) pending_.append(block.data(), static_cast<std::size_t>(count));
  return true;
}

std::string ScriptReader::place() const { return name_ + ":" + std::to_string(line_) + ": "; }

bool ScriptReader::isInteractive() const { return ::isatty(descriptor_) == 1; }

namespace {

constexpr const char* kClearLine = "\r\033[K";
constexpr int kHistoryLength = 1000;

constexpr const char* kPrompt = "kv> ";

/// The key that clears the whole line in the line editor's usual bindings.
constexpr wchar_t kClearKey = L'\x15';

}  // namespace

/// The line editor and what its callbacks need.
class TerminalReader::Editor {
 public:
  Editor(const Waiter& waiter, TextOutput& text, Completing completing, std::string historyFile)
      : waiter_(waiter),
        text_(text),
        completing_(std::move(completing)),
        historyFile_(std::move(historyFile)),
        told_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
        interrupted_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
        history_(::history_init()),
        edit_(::el_init("kv-station", stdin, stdout, stderr)) {
    HistEvent event;
    ::history(history_, &event, H_SETSIZE, kHistoryLength);
    ::history(history_, &event, H_SETUNIQUE, 1);
    if (!historyFile_.empty()) ::history(history_, &event, H_LOAD, historyFile_.c_str());
    ::el_set(edit_, EL_CLIENTDATA, this);
    ::el_set(edit_, EL_PROMPT, promptOf);
    ::el_set(edit_, EL_EDITOR, "emacs");
    ::el_set(edit_, EL_HIST, ::history, history_);
    ::el_set(edit_, EL_GETCFN, readLetter);
    ::el_set(edit_, EL_ADDFN, "kv-complete", "Completes the word", complete);
    ::el_set(edit_, EL_BIND, "^I", "kv-complete", nullptr);
    // An end of input that was typed while the terminal was not being read arrives as a zero byte.
    // The library binds that key to quoting, which would turn the next end of input into a letter.
    ::el_set(edit_, EL_BIND, "^@", "ed-unassigned", nullptr);
  }

  Editor(const Editor&) = delete;
  Editor& operator=(const Editor&) = delete;

  ~Editor() {
    ::el_end(edit_);
    ::history_end(history_);
    ::close(told_);
    ::close(interrupted_);
  }

  std::optional<std::string> next() {
    auto line = read(kPrompt);
    if (line) remember(*line);
    if (line || !wantsToQuit_) return line;
    return "quit";
  }

  std::optional<std::string> ask(const std::string& question) {
    isAsking_ = true;
    auto line = read(question);
    isAsking_ = false;
    return line;
  }

  bool interrupt() {
    if (!isReading_) return false;
    ::eventfd_write(interrupted_, 1);
    return true;
  }

 private:
  /// A line without its end; nothing at the end of the input, and where an interrupt ended it.
  std::optional<std::string> read(const std::string& prompt) {
    wantsToQuit_ = false;
    if (waiter_.isEnding()) return std::nullopt;
    prompt_ = prompt;
    text_.hold([this] { ::eventfd_write(told_, 1); });
    ::el_set(edit_, EL_PREP_TERM, 1);  // before the prompt: keys typed at it are read singly
    int length = 0;
    isReading_ = true;
    const char* line = ::el_gets(edit_, &length);
    isReading_ = false;
    text_.release();
    if (!line || length <= 0 || wantsToQuit_ || waiter_.isEnding()) {
      std::fputs("\n", stdout);
      return std::nullopt;
    }
    std::string read(line, static_cast<std::size_t>(length));
    while (!read.empty() && (read.back() == '\n' || read.back() == '\r')) read.pop_back();
    return read;
  }

  static char* promptOf(EditLine* edit) { return of(edit).prompt_.data(); }

  static Editor& of(EditLine* edit) {
    void* self = nullptr;
    ::el_get(edit, EL_CLIENTDATA, &self);
    return *static_cast<Editor*>(self);
  }

  /// Waits for a letter, and shows texts of the station meanwhile. Returns 0 to end the line and
  /// the input.
  static int readLetter(EditLine* edit, wchar_t* letter) {
    Editor& self = of(edit);
    std::array<pollfd, 4> wanted{
        pollfd{STDIN_FILENO, POLLIN, 0}, pollfd{self.waiter_.descriptor(), POLLIN, 0},
        pollfd{self.told_, POLLIN, 0}, pollfd{self.interrupted_, POLLIN, 0}};
    while (true) {
      if (::poll(wanted.data(), wanted.size(), -1) < 0) continue;
      if (wanted[1].revents != 0) return 0;
      if (wanted[2].revents != 0) self.showAboveLine();
      if (wanted[3].revents != 0) return self.takeInterrupt(letter);
      if (wanted[0].revents != 0) return self.readOne(letter);
    }
  }

  /// The first interrupt clears the line. A second one, and one at a question, end the reading.
  int takeInterrupt(wchar_t* letter) {
    eventfd_t count = 0;
    ::eventfd_read(interrupted_, &count);
    wantsToQuit_ = isAsking_ || isInterrupted_;
    if (wantsToQuit_) return 0;
    isInterrupted_ = true;
    std::fputs("^C (again, or \"quit\", ends)\n", stdout);
    *letter = kClearKey;
    return 1;
  }

  /// Reads one letter in the terminal's encoding, byte by byte. A byte that is no part of a letter
  /// stands for itself.
  int readOne(wchar_t* letter) {
    std::mbstate_t state{};
    char byte = 0;
    isInterrupted_ = false;
    while (::read(STDIN_FILENO, &byte, 1) == 1) {
      const std::size_t used = std::mbrtowc(letter, &byte, 1, &state);
      if (used == static_cast<std::size_t>(-2)) continue;
      if (used == static_cast<std::size_t>(-1)) *letter = static_cast<unsigned char>(byte);
      return 1;
    }
    return 0;
  }

  void showAboveLine() {
    eventfd_t count = 0;
    ::eventfd_read(told_, &count);
    std::fputs(kClearLine, stdout);
    std::fflush(stdout);
    text_.showHeld();
    ::el_set(edit_, EL_REFRESH);
  }

  static unsigned char complete(EditLine* edit, int) { return of(edit).completeWord(); }

  unsigned char completeWord() {
    const LineInfo* info = ::el_line(edit_);
    const std::string line(info->buffer, static_cast<std::size_t>(info->cursor - info->buffer));
    const auto found = completions(line, completing_.commands, completing_.candidates);
    const std::string begun(lastWord(line));
    std::string word = commonBeginning(found);
    // A folder goes on with what is in it.
    if (found.size() == 1 && !word.ends_with('/')) word += ' ';
    if (word.size() > begun.size()) return replaceWord(begun, word);
    if (found.empty()) return CC_REFRESH_BEEP;
    showCandidates(found);
    return CC_REDISPLAY;
  }

  unsigned char replaceWord(const std::string& begun, const std::string& word) {
    std::mbstate_t state{};
    const char* bytes = begun.c_str();
    const std::size_t letters = std::mbsrtowcs(nullptr, &bytes, 0, &state);
    ::el_deletestr(edit_, static_cast<int>(letters == ~std::size_t{0} ? begun.size() : letters));
    return ::el_insertstr(edit_, word.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
  }

  static void showCandidates(const std::vector<std::string>& found) {
    std::fputs("\n", stdout);
    for (const std::string& each : found) std::fprintf(stdout, "%s  ", each.c_str());
    std::fputs("\n", stdout);
    std::fflush(stdout);
  }

  void remember(const std::string& line) {
    HistEvent event;
    if (line.find_first_not_of(" \t\r\n") == std::string::npos) return;
    ::history(history_, &event, H_ENTER, line.c_str());
    // Saved with each line, since a station may be killed. The library makes the file readable to
    // its owner alone.
    if (!historyFile_.empty()) ::history(history_, &event, H_SAVE, historyFile_.c_str());
  }

  const Waiter& waiter_;
  TextOutput& text_;
  Completing completing_;
  std::string historyFile_;
  int told_;
  int interrupted_;
  std::atomic<bool> isReading_ = false;
  bool isAsking_ = false;
  bool isInterrupted_ = false;  ///< no key came since
  bool wantsToQuit_ = false;
  std::string prompt_;
  History* history_;
  EditLine* edit_;
};

TerminalReader::TerminalReader(const Waiter& waiter, TextOutput& text, Completing completing,
                               const std::string& historyFile)
    : editor_(std::make_unique<Editor>(waiter, text, std::move(completing), historyFile)) {}

TerminalReader::~TerminalReader() = default;

std::optional<std::string> TerminalReader::next() { return editor_->next(); }

std::optional<std::string> TerminalReader::ask(const std::string& question) {
  return editor_->ask(question);
}

bool TerminalReader::interrupt() { return editor_->interrupt(); }

}  // namespace korvel
