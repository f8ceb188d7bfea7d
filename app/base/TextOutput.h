#pragma once

#include <cstddef>
#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "app/base/EventSinks.h"
#include "station/base/PipeWriter.h"

namespace korvel {

/// The text that people read: answers of commands, problems, and of the events those that concern
/// them (log lines for the console, notifications, network problems).
///
/// At a prompt, texts are held back for the prompt's reader, which shows them above the line being
/// typed. Never blocks: texts wait up to a bound for a slow reader of a pipe or terminal. Beyond
/// the bound they are dropped, and their number is printed. Any thread.
class TextOutput : public iEventSink {
 public:
  /// How many bytes are held back for a prompt at most.
  static constexpr std::size_t kMaxHeld = 1u << 20;

  /// The streams stay the caller's and must outlive this.
  TextOutput(std::FILE* answers, std::FILE* problems) : answers_(answers), problems_(problems) {}
  TextOutput(const TextOutput&) = delete;
  TextOutput& operator=(const TextOutput&) = delete;

  /// Shows a text that a command gave; an empty one is not shown.
  void answer(const std::string& text);

  /// Shows a sentence about what went wrong.
  void problem(const std::string& text);

  void take(const StationEvent& event) override;
  [[nodiscard]] bool takes(std::string_view name) const override;

  /// Leaves what the plug-in logs of each message ("Sent :", "{" ..., and that words came) to the
  /// log file and to events: a person at a terminal is told of both in words. Before events come.
  void hideMessageBlocks() { hidesBlocks_ = true; }

  /// From now on texts are held back, and `wake` is called for each. Returns when everything before
  /// is shown, or nobody reads it.
  void hold(std::function<void()> wake);

  /// Shows what was held back so far; returns as hold() does.
  void showHeld();

  /// Shows what was held back, and everything that comes at once again.
  void release();

 private:
  using Writer = std::shared_ptr<PipeWriter>;

  [[nodiscard]] bool isHidden(const std::string& line);
  void show(std::FILE* stream, const std::string& text);
  void keep(std::FILE* stream, const std::string& text);
  void print(std::FILE* stream, const std::string& text);
  void printHeld();
  Writer writerFor(std::FILE* stream);
  void awaitShown();

  std::FILE* answers_;
  std::FILE* problems_;
  bool hidesBlocks_ = false;
  bool isInBlock_ = false;  ///< the block's first line came, and not its last
  std::mutex mutex_;
  std::function<void()> wake_;
  std::deque<std::pair<std::FILE*, std::string>> held_;
  std::size_t heldBytes_ = 0;
  std::size_t notHeld_ = 0;               ///< texts for which there was no room at the prompt
  std::size_t unread_ = 0;                ///< texts for which there was no room in a writer
  std::map<std::FILE*, Writer> writers_;  ///< null for a stream that is written to directly
};

}  // namespace korvel
