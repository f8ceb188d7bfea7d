#include "app/window/OutcomeTeller.h"

#include <algorithm>
#include <initializer_list>
#include <utility>

#include "app/commands/CommandCall.h"
#include "app/commands/MessageAdvice.h"
#include "app/window/MessageBar.h"
#include "app/window/ObjectsPane.h"
#include "app/window/PanelDock.h"
#include "app/window/ProjectsPane.h"
#include "app/window/TextDialogs.h"
#include "app/window/Texts.h"
#include "app/window/UnsavedGuard.h"

namespace korvel {

namespace {

constexpr qsizetype kLongestAnswer = 200;  // letters of an answer that needs no dialog

bool isOneOf(const QString& command, std::initializer_list<const char*> names) {
  return std::any_of(names.begin(), names.end(),
                     [&command](const char* name) { return command == QLatin1String(name); });
}

bool makesEdit(const QString& command) {
  return isOneOf(command, {"edit create", "log create", "edit import", "edit save-copy"});
}

/// Whether the lists show what a command did, so that its answer needs no showing.
bool isShownByLists(const QString& command) {
  return makesEdit(command) || command.endsWith(QLatin1String(" create")) ||
         command.endsWith(QLatin1String(" add")) || command.endsWith(QLatin1String(" remove")) ||
         command.startsWith(QLatin1String("project enter"));
}

}  // namespace

OutcomeTeller::OutcomeTeller(QWidget& window, HostLink& link, const WindowPanes& panes)
    : window_(window), link_(link), panes_(panes) {
  connect(panes.messages, &MessageBar::acted, this, [this] {
    panes_.messages->hide();
    if (const auto act = std::exchange(act_, {})) act();
  });
}

void OutcomeTeller::tell(const QString& text, const QString& action,
                         const std::function<void()>& act) {
  tellsOfSending_ = false;
  panes_.messages->tell(MessageBar::Kind::eNote, text);
  panes_.messages->offer({action});
  act_ = act;
}

void OutcomeTeller::tellOfSending(const QString& problem) {
  tellsOfSending_ = true;
  panes_.messages->tell(MessageBar::Kind::eChange, problem);
}

// Advice on one message has done its part when the next one needs none.
void OutcomeTeller::tellOfMessage(const CommandOutcome& said) {
  const CommandCall call = readCall(link_.commands(), said.line.toStdString());
  const QString before = std::exchange(advice_, readableText(messageAdvice(call.arguments.back())));
  if (!advice_.isEmpty()) {
    tellOfSending(advice_);
  } else if (!before.isEmpty() && panes_.messages->text() == before) {
    tellsOfSending_ = false;
  }
}

void OutcomeTeller::tellUndoably(const QString& text, const QStringList& undoLines) {
  const QString undo = undoLines.isEmpty() ? QString() : QStringLiteral("Undo");
  tell(text, undo, [this, undoLines] { link_.runAll(undoLines, [](const CommandOutcome&) {}); });
}

void OutcomeTeller::take(const CommandOutcome& outcome) {
  if (UnsavedGuard::isConflict(outcome)) return;  // it asks
  const bool isMessage = outcome.command == QLatin1String("say");
  if (!outcome.succeeded) {
    tellsOfSending_ = false;
    panes_.messages->tell(MessageBar::Kind::eError, outcome.text);
    if (isMessage) panes_.panel->restoreUnsent();
    return;
  }
  if (isMessage) tellOfMessage(outcome);
  if (!tellsOfSending_) panes_.messages->hide();
  noteMade(outcome);
  if (!isShownByLists(outcome.command)) tellAnswer(outcome);
  showAgain(outcome);
}

void OutcomeTeller::tellAnswer(const CommandOutcome& outcome) {
  if (outcome.text.isEmpty()) return;
  if (outcome.text.contains(QLatin1Char('\n')) || outcome.text.size() >= kLongestAnswer) {
    return showTable(window_, outcome.line, outcome.text);
  }
  panes_.messages->tell(MessageBar::Kind::eNote, outcome.text);
}

void OutcomeTeller::noteMade(const CommandOutcome& outcome) {
  if (makesEdit(outcome.command)) madeEdit_ = outcome.text;
  if (outcome.command == QLatin1String("project create")) madeProject_ = outcome.text;
}

void OutcomeTeller::chooseMade() {
  if (!madeEdit_.isEmpty() && panes_.objects->model(ObjectKind::eEdits).rowOf(madeEdit_) >= 0) {
    panes_.objects->choose(ObjectKind::eEdits, std::exchange(madeEdit_, {}));
  }
  if (!madeProject_.isEmpty() && panes_.projects->chooseProject(madeProject_)) {
    madeProject_.clear();
  }
}

// The chosen edit's timeline is drawn anew where a command of the user's changed it.
void OutcomeTeller::showAgain(const CommandOutcome& outcome) {
  const bool isEdit = outcome.command.startsWith(QLatin1String("edit "));
  const auto chosen = panes_.objects->chosen();
  if (!isEdit || isShownByLists(outcome.command) || chosen.empty()) return;
  if (panes_.objects->kind() != ObjectKind::eEdits) return;
  if (outcome.line.contains(chosen.front().cookie)) link_.askTimeline(chosen.front().cookie);
}

}  // namespace korvel
