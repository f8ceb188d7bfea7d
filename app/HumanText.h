#pragma once

#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "app/iEventSink.h"

/// The text that people read: answers of commands, problems, and of the events those that concern
/// them (log lines for the console, notifications, network problems).
///
/// While somebody types at a prompt, what comes is held back for the reader of the prompt, which
/// shows it above the line being typed. Any thread.
class HumanText : public iEventSink {
 public:
  /// The streams stay the caller's and must outlive this.
  HumanText(std::FILE* answers, std::FILE* problems) : answers_(answers), problems_(problems) {}

  /// Shows a text that a command gave; an empty one is not shown.
  void answer(const std::string& text);

  /// Shows a sentence about what went wrong.
  void problem(const std::string& text);

  void take(const StationEvent& event) override;

  /// From now on texts are held back, and `wake` is called for each.
  void hold(std::function<void()> wake);

  /// Shows what was held back so far.
  void showHeld();

  /// Shows what was held back, and everything that comes at once again.
  void release();

 private:
  void show(std::FILE* stream, const std::string& text);

  std::FILE* answers_;
  std::FILE* problems_;
  std::mutex mutex_;
  std::function<void()> wake_;
  std::vector<std::pair<std::FILE*, std::string>> held_;
};
