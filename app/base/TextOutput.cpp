#include "app/base/TextOutput.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/talk/Asks.h"

namespace korvel {

namespace {

void printDirectly(std::FILE* stream, const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fputc('\n', stream);
  std::fflush(stream);
}

bool isSameFile(int one, int other) {
  struct stat first {};
  struct stat second {};
  return ::fstat(one, &first) == 0 && ::fstat(other, &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

std::string missing(std::size_t count) {
  return std::to_string(count) + " texts are missing here, since nobody read them.";
}

/// The text of an event under a key. Bytes that are no text become U+FFFD. Further lines are
/// indented, so that only the first can look like a line of the station.
std::string textOf(const JsonValue& event, const std::string& key) {
  const JsonValue* const text = event.find(key);
  const std::string shown =
      text ? renderForPeople(*text)
           : loggedText(bytesOfHex(event[key + "_hex"].asString()).value_or(""));
  std::string lines;
  for (const char byte : shown)
    lines += byte == '\n' ? std::string("\n    ") : std::string(1, byte);
  return lines;
}

/// How the plug-in's line begins that words for a user came.
constexpr std::string_view kWordsCame = "msg for ";

/// Whether a line is of a block in which the plug-in logs a message:
///
///     Sent :
///     {
///        Project : P7c1...
///        Type    : EditSaved
///     }
bool isLineOfBlock(const std::string& line) {
  constexpr std::size_t kColon = 11;
  if (line == "Sent :" || line == "Received :" || line == "{" || line == "}") return true;
  return line.starts_with("   ") && line.find(" : ") == kColon - 1;
}

/// What came of asking, in words; empty for other events.
std::string askingText(const JsonValue& event, const std::string& name) {
  const std::string mark = event["unverified"].asBool() ? " (unverified)" : "";
  if (name == "free") return event["words"].asString();
  if (name == "answered" || name == "withdrawn") return event["words"].asString() + mark;
  const std::string number = std::to_string(event["number"].asLong());
  if (name == "asked") {
    return event["words"].asString() + mark + " (\"answer " + number +
           " give\" gives it away, \"answer " + number + " no\" keeps it)";
  }
  return {};
}

/// "Notification from ANNA: lunch?"
std::string notificationText(const JsonValue& event) {
  const bool hasSender = event.find("source") || event.find("source_hex");
  const std::string mark = event["unverified"].asBool() ? " (unverified)" : "";
  return "Notification" + (hasSender ? " from " + textOf(event, "source") + mark : "") + ": " +
         textOf(event, "text") + (event["cut"].asBool() ? " (cut here)" : "");
}

}  // namespace

void TextOutput::answer(const std::string& text) {
  if (!text.empty()) show(answers_, text);
}

void TextOutput::problem(const std::string& text) { show(problems_, text); }

bool TextOutput::isHidden(const std::string& line) {
  if (!hidesBlocks_) return false;
  if (line == "Sent :" || line == "Received :") isInBlock_ = true;
  if (!isInBlock_) return line.starts_with(kWordsCame);
  if (line == "}") isInBlock_ = false;
  // Another thread may log something between two lines of a block.
  return isLineOfBlock(line);
}

bool TextOutput::takes(std::string_view name) const {
  constexpr std::string_view kTaken[] = {"log",      "notification", "network", "asked",
                                         "answered", "withdrawn",    "free"};
  return std::ranges::find(kTaken, name) != std::end(kTaken);
}

void TextOutput::take(const StationEvent& event) {
  if (event.name == "log" && event.value["to"].asString() == "console") {
    if (!isHidden(event.value["text"].asString())) show(problems_, textOf(event.value, "text"));
  } else if (event.name == "notification") {
    // An ask is told with what can be typed about it.
    const bool isAsk = readAskWords(event.value["text"].asString()).has_value();
    if (!isAsk) show(answers_, notificationText(event.value));
  } else if (event.name == "network") {
    show(problems_, "Network: " + textOf(event.value, "problem"));
  } else {
    answer(askingText(event.value, event.name));
  }
}

void TextOutput::show(std::FILE* stream, const std::string& text) {
  const std::lock_guard lock(mutex_);
  if (!wake_) return print(stream, text);
  // Printing now would write into the line that is being typed.
  keep(stream, text);
  wake_();
}

void TextOutput::keep(std::FILE* stream, const std::string& text) {
  if (heldBytes_ + text.size() > kMaxHeld) {
    ++notHeld_;
    return;
  }
  heldBytes_ += text.size();
  held_.emplace_back(stream, text);
}

void TextOutput::print(std::FILE* stream, const std::string& text) {
  const Writer writer = writerFor(stream);
  if (!writer) return printDirectly(stream, text);
  const std::string before = unread_ > 0 ? missing(unread_) + "\n" : std::string();
  const bool isTaken = writer->write(before + text + "\n");
  unread_ = isTaken ? 0 : unread_ + 1;
}

/// Made with the first text: the writer's thread must inherit the signal mask, which is set later
/// than this object is made. Two streams that are one file share a writer, which keeps the order.
TextOutput::Writer TextOutput::writerFor(std::FILE* stream) {
  const auto known = writers_.find(stream);
  if (known != writers_.end()) return known->second;
  Writer& made = writers_[stream];
  const int descriptor = ::fileno(stream);
  if (descriptor < 0 || !isReadBySomebody(descriptor)) return made;
  for (const auto& [other, writer] : writers_) {
    if (other != stream && isSameFile(descriptor, ::fileno(other))) made = writer;
  }
  if (made) return made;
  const int own = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
  if (own >= 0) made = std::make_shared<PipeWriter>(own, std::string(), [](int) {});
  return made;
}

void TextOutput::hold(std::function<void()> wake) {
  {
    const std::lock_guard lock(mutex_);
    wake_ = std::move(wake);
  }
  awaitShown();
}

void TextOutput::showHeld() {
  {
    const std::lock_guard lock(mutex_);
    printHeld();
  }
  awaitShown();
}

void TextOutput::printHeld() {
  for (const auto& [stream, text] : held_) print(stream, text);
  if (notHeld_ > 0) print(problems_, missing(notHeld_));
  held_.clear();
  heldBytes_ = notHeld_ = 0;
}

void TextOutput::release() {
  const std::lock_guard lock(mutex_);
  printHeld();
  wake_ = nullptr;
}

// Waits without the lock, so that other threads can print meanwhile.
void TextOutput::awaitShown() {
  std::map<std::FILE*, Writer> writers;
  {
    const std::lock_guard lock(mutex_);
    writers = writers_;
  }
  for (const auto& [stream, writer] : writers) {
    if (writer) writer->awaitWritten();
  }
}

}  // namespace korvel
