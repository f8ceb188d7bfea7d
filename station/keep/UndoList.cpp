#include "station/keep/UndoList.h"

#include "station/base/Events.h"
#include "station/base/Strings.h"

namespace korvel {

namespace {

/// Whether the same may work later: something other than the project's content was in the way.
bool mayWorkLater(ErrorCode code) {
  switch (code) {
    case ErrorCode::eHeld:
    case ErrorCode::eNoRights:
    case ErrorCode::eNoLockService:
    case ErrorCode::eStale:
    case ErrorCode::eReadOnly:
    case ErrorCode::eFull:
    case ErrorCode::eSystem:
    case ErrorCode::eUnsaved:  // the user saves or drops it first
      return true;
    default:
      return false;
  }
}

std::string textOf(const char* verb, const std::deque<Step>& steps) {
  return steps.empty() ? std::string() : verb + (" " + shownText(steps.back().words));
}

/// Marks a step that runs, whatever it throws.
class RunningScope {
 public:
  explicit RunningScope(bool& isRunning) : isRunning_(isRunning) { isRunning_ = true; }
  RunningScope(const RunningScope&) = delete;
  RunningScope& operator=(const RunningScope&) = delete;
  ~RunningScope() { isRunning_ = false; }

 private:
  bool& isRunning_;
};

}  // namespace

void UndoList::add(Step step) {
  // Undoing makes ordinary changes, which come here as well; and the user can undo only what he
  // did.
  if (isRunning_ || currentOrigin() != Origin::eLocal) return;
  done_.push_back(std::move(step));
  if (done_.size() > kMost) done_.pop_front();
  undone_.clear();
  tell();
}

std::string UndoList::undoText() const { return textOf("Undo", done_); }

std::string UndoList::redoText() const { return textOf("Redo", undone_); }

Result<std::string> UndoList::undo() { return run(done_, undone_, "Undo", &Step::undo); }

Result<std::string> UndoList::redo() { return run(undone_, done_, "Redo", &Step::redo); }

Result<std::string> UndoList::run(Steps& from, Steps& to, const char* verb,
                                  std::function<Result<void>()> Step::*action) {
  if (from.empty()) {
    const bool isUndo = &from == &done_;
    return Error{ErrorCode::eNotFound,
                 isUndo ? "There is nothing to undo." : "There is nothing to redo.",
                 {}};
  }
  const std::string text = textOf(verb, from);
  const std::string words = textOf(&from == &done_ ? "Undone:" : "Done again:", from);
  const RunningScope running(isRunning_);
  const Result<void> done = (from.back().*action)();
  if (done) {
    to.push_back(std::move(from.back()));
  } else if (mayWorkLater(done.error().code)) {
    // The step stays: the user can try again when the share works.
    return Error{done.error().code, inQuotes(text) + " was not done: " + done.error().message,
                 done.error().path};
  }
  from.pop_back();
  tell();
  if (done) return words;
  return Error{done.error().code,
               inQuotes(text) + " is no longer possible, and was dropped: " + done.error().message,
               done.error().path};
}

JsonValue UndoList::state() const {
  return JsonValue::object({{"undo", undoText()}, {"redo", redoText()}});
}

void UndoList::clear() {
  done_.clear();
  undone_.clear();
  tell();
}

void UndoList::tell() {
  std::string texts = undoText() + "\n" + redoText();
  // An event only when a text changed: each sends the new texts to everything that shows them.
  if (texts == told_ || (told_.empty() && texts == "\n")) return;
  told_ = std::move(texts);
  events().steps(undoText(), redoText());
}

}  // namespace korvel
