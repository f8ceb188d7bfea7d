#pragma once

#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "station/base/HostParts.h"
#include "station/base/Json.h"
#include "station/base/Result.h"
#include "station/project/iProjectPart.h"

namespace korvel {

/// Something that the user did, and how it is undone and done again. Both are ordinary changes, of
/// which others are told. A failure with eChanged, or of a kind that trying again does not mend,
/// says that it is no longer possible.
struct Step {
  std::string words;  ///< what was done: "trim of Clip-002 in Harbour"
  std::function<Result<void>()> undo;
  std::function<Result<void>()> redo;
};

/// What the user did in the open project since it was entered, as far as it can be undone: the last
/// kMost steps. Host thread. One object a process.
class UndoList : public iProjectPart {
 public:
  static constexpr std::size_t kMost = 200;

  UndoList() = default;
  UndoList(const UndoList&) = delete;
  UndoList& operator=(const UndoList&) = delete;

  /// Notes a step that was done just now: what was undone before can be done again no longer.
  /// Ignored while a step is undone or done again, and where it is not the user's.
  void add(Step step);

  /// What undo() and redo() would do, "Undo trim of Clip-002 in Harbour"; empty for nothing.
  [[nodiscard]] std::string undoText() const;
  [[nodiscard]] std::string redoText() const;

  /// Undoes the last step, or does again the one undone last; what was done, as undoText() had it.
  /// Failure: eNotFound when there is none; else why not. One that is no longer possible is dropped
  /// then, one that the share was in the way of stays.
  Result<std::string> undo();
  Result<std::string> redo();

  void enter(const OpenProject&, const std::vector<std::string>&) override { clear(); }
  void leave() override { clear(); }
  void findByName(const std::string&, std::vector<NamedObject>&) const override {}
  [[nodiscard]] bool holds(const Cookie&) const override { return false; }
  void listObjects(std::vector<NamedObject>&) const override {}

  /// The next steps: undo and redo, each as its text.
  [[nodiscard]] std::string stateKey() const override { return "steps"; }
  [[nodiscard]] JsonValue state() const override;

 private:
  using Steps = std::deque<Step>;

  void clear();
  void tell();
  Result<std::string> run(Steps& from, Steps& to, const char* verb,
                          std::function<Result<void>()> Step::*action);

  Steps done_;    ///< the last one at the end
  Steps undone_;  ///< the one undone last at the end
  bool isRunning_ = false;
  std::string told_;  ///< the texts that were told last
  const HostEntry<UndoList> entry_{&HostParts::undo, *this};
};

/// Notes a step, where there is a list of them.
inline void recordStep(Step step) {
  if (auto* const list = hostParts().undo) list->add(std::move(step));
}

}  // namespace korvel
