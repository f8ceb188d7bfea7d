#pragma once

#include "app/base/Waiter.h"
#include "app/base/iLineReader.h"
#include "station/base/Result.h"

namespace korvel {

/// Reads lines from a file or from standard input, as they come.
class ScriptReader : public iLineReader {
 public:
  /// `waiter` ends the reading; it must outlive this.
  explicit ScriptReader(const Waiter& waiter) : waiter_(waiter) {}
  ScriptReader(const ScriptReader&) = delete;
  ScriptReader& operator=(const ScriptReader&) = delete;
  ~ScriptReader() override;

  /// Opens `path`; "-" is standard input.
  Result<void> open(const std::string& path);

  std::optional<std::string> next() override;
  [[nodiscard]] std::string place() const override;
  [[nodiscard]] bool isInteractive() const override;

 private:
  bool readMore();

  const Waiter& waiter_;
  std::string name_;
  int descriptor_ = -1;
  int line_ = 0;
  std::string pending_;
  bool isAtEnd_ = false;
};

/// Waits until `descriptor` can be read; false when the program is to end first.
bool awaitInput(int descriptor, const Waiter& waiter);

}  // namespace korvel
