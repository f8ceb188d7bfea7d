#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "host/base/Cookie.h"
#include "host/base/LightweightString.h"

namespace korvel {

/// One argument of a noted call, as text: wide text as UTF-8, cookies in their text form.
struct NotedArgument {
  NotedArgument(const char* value) : text(value) {}                           // NOLINT
  NotedArgument(const std::string& value) : text(value) {}                    // NOLINT
  NotedArgument(const LightweightString<char>& value) : text(value.str()) {}  // NOLINT
  NotedArgument(const LightweightString<wchar_t>& value);                     // NOLINT
  NotedArgument(const Cookie& value) : text(value.asString(false).str()) {}   // NOLINT
  NotedArgument(int value) : text(std::to_string(value)) {}                   // NOLINT
  NotedArgument(unsigned value) : text(std::to_string(value)) {}              // NOLINT
  NotedArgument(bool value) : text(value ? "true" : "false") {}               // NOLINT

  std::string text;
};

/// What was asked of the fake host, in order, one line a call: "BinManager::reload(G0001)". A line
/// that only asks for something begins with "? ".
class Journal {
 public:
  /// Notes something that was done.
  void did(const std::string& what, std::initializer_list<NotedArgument> arguments = {});

  /// Notes a question.
  void asked(const std::string& what, std::initializer_list<NotedArgument> arguments = {});

  [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }

  /// The lines without the questions.
  [[nodiscard]] std::vector<std::string> effects() const;

  /// How many lines are exactly this one.
  [[nodiscard]] int count(const std::string& line) const;

  void clear() { lines_.clear(); }

  /// Called with each line after it was noted: a test's way to act in the middle of things, or to
  /// throw from a call.
  std::function<void(const std::string&)> onLine;

 private:
  void note(const std::string& line);

  std::vector<std::string> lines_;
};

}  // namespace korvel
