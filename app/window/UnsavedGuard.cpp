#include "app/window/UnsavedGuard.h"

#include <algorithm>

#include "app/commands/Command.h"
#include "app/window/ActionTable.h"
#include "app/window/Dialogs.h"
#include "app/window/MessageBar.h"
#include "app/window/ObjectsModel.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

constexpr const char* kSaveCopy = "edit save-copy {object} {0}";

QString lineOn(const char* command, const QString& cookie) {
  return QLatin1String(command) + QLatin1Char(' ') + quoted(cookie);
}

QStringList linesOn(const char* command, const std::vector<UnsavedEdit>& edits) {
  QStringList lines;
  for (const UnsavedEdit& edit : edits) lines << lineOn(command, edit.cookie);
  return lines;
}

/// Each edit once: several ended stations may have left changes to it.
QStringList cookiesOf(const std::vector<LeftEdit>& left) {
  QStringList cookies;
  for (const LeftEdit& each : left) {
    if (!cookies.contains(each.cookie)) cookies << each.cookie;
  }
  return cookies;
}

/// What another did to an edit, in one sentence.
QString otherText(const QString& name, const OtherSave& other) {
  if (other.isGone) {
    return UnsavedGuard::tr("\"%1\" was deleted by another since you opened it.").arg(name);
  }
  if (!other.problem.isEmpty()) {
    return UnsavedGuard::tr(
               "\"%1\" was changed by another program and cannot be read now since you opened it.")
        .arg(name);
  }
  if (other.by.isEmpty()) {
    return UnsavedGuard::tr("\"%1\" was changed by another program since you opened it.").arg(name);
  }
  return UnsavedGuard::tr("\"%1\" was saved by %2 at %3 since you opened it.")
      .arg(name, oneLine(other.by), shownTime(other.at));
}

const ActionSpec& saveCopyAction() {
  return *std::ranges::find_if(actionTable(), [](const ActionSpec& action) {
    return QLatin1String(action.line) == QLatin1String(kSaveCopy);
  });
}

}  // namespace

UnsavedGuard::UnsavedGuard(QWidget& window, HostLink& link, MessageBar& bar)
    : window_(window), link_(link), bar_(bar) {
  connect(&bar_, &MessageBar::acted, this, [this](int which) {
    bar_.hide();
    const auto at = static_cast<std::size_t>(which);
    if (const auto act = at < offered_.size() ? offered_[at] : nullptr) act();
  });
}

/// The name of an edit, with the beginning of its cookie where another has that name, too.
QString UnsavedGuard::called(const QString& cookie, const QString& name) const {
  ObjectRow row;
  row.cookie = cookie;
  row.name = name;
  const auto isOther = [&](const auto& each) { return each.name == name && each.cookie != cookie; };
  const auto& edits = snapshot_ ? snapshot_->objects[0] : nullptr;
  row.isNamesake = (edits && std::ranges::any_of(*edits, isOther)) ||
                   (left_ && std::ranges::any_of(*left_, isOther));
  return shownName(row);
}

QString UnsavedGuard::titleOf(const LeftEdit& left) const {
  const QString name = called(left.cookie, left.name);
  return left.problem.isEmpty() ? QStringLiteral("%1 (%2)").arg(name, shownTime(left.changed))
                                : tr("%1 (cannot be read)").arg(name);
}

QString UnsavedGuard::textOf(const std::vector<LeftEdit>& left) const {
  const qsizetype count = cookiesOf(left).size();
  const QString when = shownTime(left.front().changed);
  if (count == 1) {
    return tr("Unsaved changes of %1 in \"%2\" were left when the station ended.")
        .arg(when, called(left.front().cookie, left.front().name));
  }
  return tr("Unsaved changes of %1 in %Ln edits were left when the station ended.", nullptr,
            static_cast<int>(count))
      .arg(when);
}

void UnsavedGuard::before(const QString& what, const std::function<void()>& go,
                          const std::function<void()>& stay,
                          const std::function<void()>& goWithout) {
  // Asks the host thread, so go() or stay() is called later, never from here.
  link_.askUnsaved([this, what, go, stay, goWithout](const std::vector<UnsavedEdit>& unsaved) {
    if (unsaved.empty()) return go();
    const bool isAsking = asked_ && asked_->isVisible();
    isAsking ? stay() : ask(what, unsaved, go, stay, goWithout);
  });
}

void UnsavedGuard::ask(const QString& what, const std::vector<UnsavedEdit>& unsaved,
                       const std::function<void()>& go, const std::function<void()>& stay,
                       const std::function<void()>& goWithout) {
  QStringList names;
  for (const UnsavedEdit& edit : unsaved) names << called(edit.cookie, edit.name);
  const QString text = tr("%Ln edits have changes that are not saved. Discarded changes are lost.",
                          nullptr, static_cast<int>(unsaved.size()));
  // What was answered a moment before may have saved or reverted them meanwhile, or left the
  // project.
  const auto unlessFailed = [this, go, stay](const CommandOutcome& outcome) {
    if (outcome.succeeded) return go();
    link_.askUnsaved(
        [go, stay](const std::vector<UnsavedEdit>& left) { left.empty() ? go() : stay(); });
  };
  asked_ = new Question(QStringLiteral("unsavedDialog"), what, text, names, &window_);
  asked_->usualAnswer(tr("&Save"), [this, lines = linesOn("edit save", unsaved), unlessFailed] {
    link_.runAll(lines, unlessFailed);
  });
  const auto revert = [this, lines = linesOn("edit revert", unsaved), unlessFailed] {
    link_.runAll(lines, unlessFailed);
  };
  asked_->answer(tr("&Discard"), goWithout ? goWithout : revert);
  asked_->otherwise(stay);
  asked_->ask();
  Q_EMIT asking();
}

bool UnsavedGuard::isConflict(const CommandOutcome& outcome) {
  return !outcome.succeeded && outcome.command == QLatin1String("edit save") &&
         outcome.code == ErrorCode::eChanged;
}

void UnsavedGuard::takeOutcome(const CommandOutcome& outcome) {
  // One question at a time; the refused edit stays unsaved and can be saved again.
  if (!isConflict(outcome) || conflict_) return;
  const auto edit = editOf(outcome.line);
  if (!edit) return Q_EMIT refused(outcome.text);
  link_.askOtherSave(edit->cookie, [this, edit, outcome](const std::optional<OtherSave>& other) {
    if (!other) return Q_EMIT refused(outcome.text);
    if (!conflict_) askAboutConflict(*edit, *other);
  });
}

/// The edit that a command line names first.
std::optional<UnsavedEdit> UnsavedGuard::editOf(const QString& line) const {
  const CommandCall call = readCall(link_.commands(), line.toStdString());
  const auto& edits = snapshot_ ? snapshot_->objects[0] : nullptr;
  if (call.arguments.empty() || !edits) return std::nullopt;
  const QString word = readableText(call.arguments.front());
  for (const ObjectRow& row : *edits) {
    if (row.name == word || row.cookie.startsWith(word)) return UnsavedEdit{row.cookie, row.name};
  }
  return std::nullopt;
}

void UnsavedGuard::askAboutConflict(const UnsavedEdit& edit, const OtherSave& other) {
  QStringList text{otherText(called(edit.cookie, edit.name), other),
                   tr("Your changes are not saved yet. Where you save over it, the other version "
                      "stays in the history.")};
  if (!other.changes.isEmpty()) {
    text << (other.isKnown ? tr("What the other changed:")
                           : tr("How the other differs from yours:"));
  }
  conflict_ = new Question(QStringLiteral("saveDialog"), tr("Save"), text.join(QLatin1Char(' ')),
                           other.changes, &window_);
  conflict_->usualAnswer(tr("Save a &copy…"), [this, edit, other] {
    QStringList after;  // the edit then shows what the other saved
    // A deleted edit has no saved version to go back to.
    if (!other.isGone) after << lineOn("edit revert", edit.cookie);
    askForCopy(edit, QStringLiteral("%1 (%2)").arg(edit.name, user_), after);
  });
  conflict_->answer(tr("Save &over it"), [this, edit] {
    link_.run(lineOn("edit save", edit.cookie) + QStringLiteral(" --over"));
  });
  conflict_->ask();
}

void UnsavedGuard::askForCopy(const UnsavedEdit& edit, const QString& name,
                              const QStringList& after) {
  const ActionSpec& action = saveCopyAction();
  auto* dialog = new ActionDialog(action, {{name, {}}}, &window_);
  connect(dialog, &ActionDialog::filled, this,
          [this, &action, edit, after](const QStringList& values) {
            link_.runAll(QStringList(filledLine(action, {edit.cookie}, values)) + after,
                         [](const CommandOutcome&) {});
          });
  dialog->show();
}

void UnsavedGuard::offer(const QString& text, const QStringList& actions,
                         std::vector<std::function<void()>> offered) {
  told_.clear();
  offered_ = std::move(offered);
  // The bar has three buttons; those without a function only close it.
  offered_.resize(3);
  bar_.tell(MessageBar::Kind::eChange, text);
  bar_.offer(actions);
}

// A deleted edit that is open here exists in this station's memory alone. Told once for each
// project visit.
void UnsavedGuard::tellOfDeletions() {
  QSet<QString> deleted;
  for (const ObjectRow& row : *snapshot_->objects[0]) {
    if (!row.isDeleted) continue;
    deleted.insert(row.cookie);
    if (deleted_.contains(row.cookie)) continue;
    link_.askDeleter(row.cookie, [this, edit = UnsavedEdit{row.cookie, row.name},
                                  isDirty = row.isDirty](const QString& user) {
      if (!deleted_.contains(edit.cookie)) return;  // brought back meanwhile
      const QString name = called(edit.cookie, edit.name);
      const QString text =
          user.isEmpty()
              ? tr("Another deleted \"%1\". What it holds is kept here until you close it.")
                    .arg(name)
              : tr("%1 deleted \"%2\". What it holds is kept here until you close it.")
                    .arg(oneLine(user), name);
      // Closing is refused with unsaved changes.
      const char* const drop = isDirty ? "edit revert" : "edit close";
      offer(text, {tr("Save a copy…"), tr("Let it go"), tr("Later")},
            {[this, edit] { askForCopy(edit, edit.name, {}); },
             [this, edit, drop] { link_.run(lineOn(drop, edit.cookie)); }});
      told_ = edit.cookie;
    });
  }
  deleted_ = deleted;
  if (told_.isEmpty() || deleted.contains(told_)) return;
  told_.clear();
  bar_.hide();
}

void UnsavedGuard::takeSnapshot(const SnapshotPtr& snapshot) {
  const bool isOther = !snapshot_ || snapshot_->project.cookie != snapshot->project.cookie;
  snapshot_ = snapshot;
  if (isOther) left_ = nullptr;
  if (isOther) deleted_.clear();
  if (snapshot->objects[0]) tellOfDeletions();
  // Unchanged parts are the same object, so a dismissed offer is not repeated.
  if (snapshot->left == left_) return;
  left_ = snapshot->left;
  offerLeft();
}

void UnsavedGuard::offerLeft() {
  if (!left_ || left_->empty()) return bar_.hide();
  offer(textOf(*left_), {tr("Take up"), tr("Throw away…"), tr("Later")},
        {[this] { takeUpLeft(); }, [this] { askBeforeThrowingAway(); }});
}

void UnsavedGuard::takeUpLeft() {
  QStringList lines;
  for (const QString& cookie : cookiesOf(*left_)) lines << lineOn("edit recover", cookie);
  link_.runAll(lines, [](const CommandOutcome&) {});
}

void UnsavedGuard::askBeforeThrowingAway() {
  QStringList things;
  QStringList lines;
  for (const LeftEdit& each : *left_) things << titleOf(each);
  for (const QString& cookie : cookiesOf(*left_)) {
    lines << lineOn("edit recover", cookie) + QStringLiteral(" --discard");
  }
  auto* question = new Question(
      QStringLiteral("throwAwayDialog"), tr("Throw away"),
      tr("Throw these unsaved changes away? They cannot be brought back."), things, &window_);
  question->answer(tr("&Throw away"),
                   [this, lines] { link_.runAll(lines, [](const CommandOutcome&) {}); });
  question->otherwise([this] { offerLeft(); });
  question->ask();
}

}  // namespace korvel
