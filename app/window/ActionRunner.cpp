#include "app/window/ActionRunner.h"

#include <QSet>
#include <algorithm>

#include "app/commands/Command.h"
#include "app/window/DetailPane.h"
#include "app/window/Dialogs.h"
#include "app/window/HistoryPane.h"
#include "app/window/ObjectsModel.h"
#include "app/window/ObjectsPane.h"
#include "app/window/ProjectsPane.h"
#include "app/window/Texts.h"
#include "app/window/TimelineView.h"

namespace korvel {

namespace {

/// A dialog's property: the line that is to be filled in, and for which objects.
constexpr const char* kMeant = "meant";

std::optional<ObjectKind> kindOf(Target target) {
  switch (target) {
    case Target::eEdit:
    case Target::eClip:
      return ObjectKind::eEdits;
    case Target::eBin:
      return ObjectKind::eBins;
    case Target::eRack:
      return ObjectKind::eRacks;
    case Target::eFilter:
      return ObjectKind::eFilters;
    case Target::eMedia:
      return ObjectKind::eMedia;
    default:
      return std::nullopt;
  }
}

/// The word that names an object in a command. Media are named by path: a file and its proxies
/// share a cookie.
QString wordOf(const ObjectRow& row, Target target) {
  return target == Target::eMedia ? row.detail : row.cookie;
}

std::vector<FieldChoice> choicesOf(const ObjectRows& rows) {
  std::vector<FieldChoice> choices;
  for (const ObjectRow& row : rows) choices.push_back({row.name, row.cookie});
  return choices;
}

/// Whether an action takes something away from everybody.
bool isDeletion(const ActionSpec& action) {
  const QString line = QString::fromUtf8(action.line);
  return line.startsWith(QLatin1String("edit delete")) || line.contains(QLatin1String(" destroy "));
}

/// Whether an action asks where a clip is to begin and end.
bool asksForTrim(const ActionSpec& action) {
  return QLatin1String(action.line).startsWith(QLatin1String("edit trim")) &&
         !action.fields.empty();
}

constexpr const char* kAskWithWords = "ask {object} {0}";

bool isGift(const ActionSpec& action) {
  return QLatin1String(action.line).startsWith(QLatin1String("edit give"));
}

/// "Quay", or "Quay (open here, with unsaved changes)".
QString thingToDelete(const ObjectRow& row) {
  const QString name = shownName(row);
  if (row.isOpen && row.isDirty) {
    return ActionRunner::tr("%1 (open here, with unsaved changes)").arg(name);
  }
  if (row.isDirty) return ActionRunner::tr("%1 (with unsaved changes)").arg(name);
  return row.isOpen ? ActionRunner::tr("%1 (open here)").arg(name) : name;
}

QString deletedText(const std::vector<ObjectRow>& rows) {
  if (rows.size() == 1) return ActionRunner::tr("Deleted \"%1\".").arg(shownName(rows.front()));
  return ActionRunner::tr("Deleted %Ln objects.", nullptr, static_cast<int>(rows.size()));
}

}  // namespace

ActionRunner::ActionRunner(QWidget& window, HostLink& link, const WindowPanes& panes)
    : window_(window),
      link_(link),
      panes_(panes),
      guard_(window, link, *panes.recovery),
      imports_([this](const QString& line, const HostLink::Ended& then, const QString& file) {
        runDoubtful(line, then, file);
      }) {
  connect(&imports_, &FileImports::told, this, &ActionRunner::told);
  connect(&imports_, &FileImports::ended, this,
          [this](const QString& what) { Q_EMIT done(what, {}); });
}

void ActionRunner::takeSnapshot(const SnapshotPtr& snapshot) {
  snapshot_ = snapshot;
  imports_.takeProject(snapshot->project.cookie);
}

namespace {

bool isAsking(const QString& line) {
  return line.startsWith(QLatin1String("ask ")) ||
         line.startsWith(QLatin1String("tell-when-free "));
}

QString lackOf(Target target) {
  switch (target) {
    case Target::eProject:
      return ActionRunner::tr("Choose a project in the list first.");
    case Target::eRoom:
      return ActionRunner::tr("Choose a room in the list first.");
    case Target::eEdit:
      return ActionRunner::tr("Choose an edit or a log in the list first.");
    case Target::eClip:
      return ActionRunner::tr("Choose a clip in the timeline first.");
    case Target::eBin:
      return ActionRunner::tr("Choose a bin in the list first.");
    case Target::eRack:
      return ActionRunner::tr("Choose a rack in the list first.");
    case Target::eFilter:
      return ActionRunner::tr("Choose a filter in the list first.");
    case Target::eMedia:
      return ActionRunner::tr("Choose a media file in the list first.");
    default:
      return ActionRunner::tr("Choose something in the list first.");
  }
}

}  // namespace

QString ActionRunner::whatLacks(Target target) const {
  const bool hasProject = snapshot_ && !snapshot_->project.cookie.isEmpty();
  const bool hasObject = hasProject && !panes_.objects->chosen().empty();
  const QString noProject = hasProject ? QString() : tr("Open a project first.");
  const auto unless = [target](bool isThere) { return isThere ? QString() : lackOf(target); };
  switch (target) {
    case Target::eNothing:
      return snapshot_ ? QString() : tr("The station is starting.");
    case Target::eOpenProject:
      return noProject;
    case Target::eSharedProject:
      if (!hasProject || !snapshot_->project.isPrivate) return noProject;
      return tr("A private project has no rooms.");
    case Target::eProject:
      return unless(panes_.projects->chosenProject().has_value());
    case Target::eRoom:
      return unless(panes_.projects->chosenRoom().has_value());
    case Target::eObject:
      return hasProject ? unless(hasObject) : noProject;
    case Target::eClip:
      return whatLacks(Target::eEdit).isEmpty() ? unless(panes_.detail->view().chosen())
                                                : whatLacks(Target::eEdit);
    default:
      return hasProject ? unless(hasObject && kindOf(target) == panes_.objects->kind()) : noProject;
  }
}

QString ActionRunner::whyNot(const ActionSpec& action) const {
  const QString lack = whatLacks(action.target);
  if (!lack.isEmpty() || !snapshot_) return lack;
  const QString line = QString::fromUtf8(action.line);
  if (isAsking(line)) return whyNotAsk(action.target);
  const QString why = whyNotPlace(line);
  return why.isEmpty() && action.target != Target::eNothing ? whyNotObject(line) : why;
}

// Only what another holds can be asked for.
QString ActionRunner::whyNotAsk(Target target) const {
  if (target == Target::eEdit) return whyNotAskForEdit();
  if (target == Target::eRoom) {
    const auto room = panes_.projects->chosenRoom();
    if (room->isHere) return tr("You are in this room already.");
    return room->hold == Hold::eTaken ? QString() : tr("Nobody is in this room.");
  }
  const auto project = panes_.projects->chosenProject();
  if (project->isOpen) return tr("This project is open already.");
  if (!project->isPrivate) return tr("A shared project is open to all.");
  return project->hold == Hold::eTaken ? QString() : tr("Nobody has this project open.");
}

QString ActionRunner::whyNotAskForEdit() const {
  const ObjectRow edit = panes_.objects->chosen().front();
  if (edit.owner.isEmpty()) return tr("It has no owner who could be asked for it.");
  const auto may = panes_.objects->model(ObjectKind::eEdits).mayChange(edit.cookie);
  return may.value_or(false) ? tr("You may change it already.") : QString();
}

QString ActionRunner::whyNotPlace(const QString& line) const {
  const auto is = [&line](const char* command) { return line.startsWith(QLatin1String(command)); };
  if (is("project enter") && panes_.projects->chosenProject()->isOpen)
    return tr("This project is open already.");
  if (is("room enter") && panes_.projects->chosenRoom()->isHere)
    return tr("You are in this room already.");
  if (is("room leave") && snapshot_->project.room.isEmpty()) return tr("You are in no room.");
  if (is("panel close") && snapshot_->panel && !snapshot_->panel->isOpen)
    return tr("The message panel is closed.");
  if (is("bin add") && panes_.objects->rows(ObjectKind::eBins).empty())
    return tr("There is no bin yet: Bin > New bin makes one.");
  if (is("rack add") && panes_.objects->rows(ObjectKind::eRacks).empty())
    return tr("There is no rack yet: Rack > New rack makes one.");
  if (is("edit recover") && (!snapshot_->left || snapshot_->left->empty()))
    return tr("No unsaved changes were left behind.");
  return is("edit trim") ? whyNotTrim(line) : QString();
}

QString ActionRunner::whyNotTrim(const QString& line) const {
  const TimelineView& view = panes_.detail->view();
  const TimelinePtr& shown = view.timeline();
  const auto chosen = panes_.objects->chosen();
  const bool isOfAnother = shown && !chosen.empty() && shown->cookie != chosen.front().cookie;
  if (!shown || !shown->problem.isEmpty() || isOfAnother) {
    // What will not pass is said rather than what will in a moment.
    const QString why = whyNotObject(line);
    return why.isEmpty() ? tr("The timeline is not there yet.") : why;
  }
  if (!shown->version.isEmpty()) {
    return tr("This is an older version. Only the edit as it is now can be trimmed.");
  }
  if (panes_.detail->isOutdated()) {
    return tr("Another station changed this edit. Show the change first (F7).");
  }
  const bool isOfChosen = line.contains(QLatin1String("{clip}"));
  if (!isOfChosen || !view.chosen() || view.chosen()->canBeTrimmed) return {};
  return tr("This part of the edit cannot be trimmed.");
}

QString ActionRunner::whyNotObject(const QString& line) const {
  const auto chosen = panes_.objects->chosen();
  if (chosen.empty() || !line.contains(QLatin1String("{object"))) return {};
  const ObjectRow& row = chosen.front();
  const auto is = [&line](const char* command) { return line.startsWith(QLatin1String(command)); };
  if (is("edit close") && !row.isOpen && !row.isDirty) return tr("It is not open.");
  const bool isSave =
      line == QLatin1String("edit save {object}") || is("edit save {object} --over");
  if ((is("edit revert") || (isSave && !row.isDeleted)) && !row.isDirty)
    return tr("It has no unsaved changes.");
  if ((is("bin remove") || is("rack remove")) && row.contents.isEmpty()) return tr("It is empty.");
  for (const ObjectRow& each : chosen) {
    if (const QString why = whyNotChange(line, each); !why.isEmpty()) return why;
    if (!line.contains(QLatin1String("{objects}"))) break;
  }
  return {};
}

QString ActionRunner::ownerText(const ObjectRow& row) {
  return tr("\"%1\" belongs to %2.").arg(shownName(row), oneLine(row.owner));
}

QString ActionRunner::whyNotRestore() const {
  return isThere(Target::eEdit) ? whyNotObject(QStringLiteral("edit restore {object}")) : QString();
}

// What the rules said last may be untrue by now: then it is asked anew, and meanwhile allowed.
QString ActionRunner::whyNotChange(const QString& line, const ObjectRow& row) const {
  const bool isGift = line.startsWith(QLatin1String("edit give"));
  const bool isChange = isGift || line.startsWith(QLatin1String("edit trim")) ||
                        line.startsWith(QLatin1String("edit rename")) ||
                        line.startsWith(QLatin1String("edit delete")) ||
                        line.startsWith(QLatin1String("edit restore")) ||
                        line.startsWith(QLatin1String("edit save "));
  const auto may = panes_.objects->model(ObjectKind::eEdits).mayChange(row.cookie);
  if (!isChange || may.value_or(true)) return {};
  if (!row.owner.isEmpty()) return ownerText(row);
  if (isGift) return {};
  return tr("\"%1\" has no owner: give it to somebody first.").arg(shownName(row));
}

QStringList ActionRunner::targetWords(Target target) const {
  if (target == Target::eProject) return {panes_.projects->chosenProject()->cookie};
  if (target == Target::eRoom) return {panes_.projects->chosenRoom()->name};
  QStringList words;
  for (const ObjectRow& row : panes_.objects->chosen()) words.append(wordOf(row, target));
  if (target == Target::eClip) return {words.front(), panes_.detail->view().chosen()->path};
  return words;
}

void ActionRunner::run(const ActionSpec& action) {
  if (!whyNot(action).isEmpty()) return;
  if (isDeletion(action)) {
    askBeforeDeleting(action);
  } else if (QLatin1String(action.line).contains(QLatin1String("{copy}"))) {
    const ObjectRow row = panes_.objects->chosen().front();
    runLine(filledLine(action, {row.cookie, copyName(row.name)}, {}));
  } else if (asksForTrim(action)) {
    const TimelineItem* const clip = panes_.detail->view().chosen();
    askTrim(panes_.detail->view().timeline(), clip ? clip->path : QString())->show();
  } else if (action.fields.empty()) {
    runLine(filledLine(action, targetWords(action.target), {}));
  } else {
    askFields(action);
  }
}

bool ActionRunner::leavesProject(const QString& line) const {
  if (!isThere(Target::eOpenProject)) return false;
  const CommandCall call = readCall(link_.commands(), line.toStdString());
  if (!call.command || call.problem) return false;
  const std::string& name = call.command->name;
  const bool isDecided = std::ranges::any_of(
      call.arguments, [](const std::string& word) { return word.starts_with("--"); });
  return (name == "project leave" || name == "project enter") && !isDecided;
}

void ActionRunner::runLine(const QString& line, const HostLink::Ended& then) {
  // Closing the window asks about unsaved changes and then ends the station.
  if (line.trimmed() == QLatin1String("quit")) {
    window_.close();
  } else if (leavesProject(line)) {
    // Discarded by the command itself: where the other project cannot be entered, nothing is.
    guard_.before(
        tr("Leave the project"), [this, line, then] { link_.run(line, then); }, [] {},
        [this, line, then] { link_.run(line + QStringLiteral(" --discard"), then); });
  } else {
    link_.run(line, then);
  }
}

void ActionRunner::open(const ObjectRow& row) {
  const ObjectKind kind = panes_.objects->kind();
  if (kind == ObjectKind::eEdits) link_.run(QStringLiteral("edit open ") + quoted(row.cookie));
  if (kind == ObjectKind::eFilters) panes_.objects->showFound(row.detail);
  if (kind == ObjectKind::eBins || kind == ObjectKind::eRacks) {
    panes_.objects->showWithin(kind, row.key);
  }
}

void ActionRunner::putInto(ObjectKind kind, const QString& container, const QStringList& cookies) {
  QStringList words{QString::fromStdString(familyOf(kind)), QStringLiteral("add"),
                    quoted(container)};
  for (const QString& cookie : cookies) words << quoted(cookie);
  link_.run(words.join(QLatin1Char(' ')));
}

// "Quay copy", "Quay copy 2": a name that no other has.
QString ActionRunner::copyName(const QString& name) const {
  QSet<QString> taken;
  for (const ObjectRow& row : panes_.objects->rows(ObjectKind::eEdits)) taken.insert(row.name);
  const QString first = tr("%1 copy").arg(name);
  QString copy = first;
  for (int number = 2; taken.contains(copy); ++number) {
    copy = tr("%1 copy %2").arg(name, QString::number(number));
  }
  return copy;
}

void ActionRunner::showTrash() {
  if (trash_) return trash_->raise();
  trash_ = new TrashDialog(&window_);
  connect(&link_, &HostLink::trashReady, trash_, &TrashDialog::take);
  connect(&link_, &HostLink::snapshotReady, trash_, [this] { link_.askTrash(); });
  connect(trash_, &TrashDialog::restoreWanted, this, [this](const QStringList& keys) {
    QStringList lines;
    for (const QString& key : keys) lines << QStringLiteral("trash restore ") + quoted(key);
    link_.runAll(lines, [this](const CommandOutcome&) { link_.askTrash(); });
  });
  connect(trash_, &TrashDialog::emptyWanted, this, &ActionRunner::askBeforeEmptying);
  trash_->show();
  link_.askTrash();
}

void ActionRunner::askBeforeEmptying(std::size_t count) {
  auto* question =
      new Question(QStringLiteral("emptyDialog"), tr("Empty the trash"),
                   tr("Remove what is in the trash (%L1) for good, with its versions? Nobody can "
                      "bring it back then. What others own and deleted stays.")
                       .arg(count),
                   {}, trash_);
  question->answer(tr("&Empty the trash"), [this] {
    link_.run(QStringLiteral("trash empty"), [this](const CommandOutcome&) { link_.askTrash(); });
  });
  question->ask();
}

void ActionRunner::restore(const ObjectRow& edit, const VersionRow& version) {
  const QString cookie = quoted(edit.cookie);
  const QString line = QStringLiteral("edit restore %1 %2").arg(cookie, quoted(version.version));
  const QString what =
      tr("\"%1\" is again as it was saved %2.").arg(shownName(edit), versionTitle(version));
  const auto run = [this, what](const QStringList& lines) {
    link_.runAll(lines, [this, what](const CommandOutcome& outcome) {
      if (outcome.succeeded) Q_EMIT done(what, {QStringLiteral("undo")});
    });
  };
  if (!edit.isDirty) return run({line});
  auto* question = new Question(
      QStringLiteral("restoreDialog"), tr("Restore"),
      tr("\"%1\" has changes that are not saved. What is to become of them?").arg(shownName(edit)),
      {}, &window_);
  question->usualAnswer(tr("&Save them first"), [run, cookie, line] {
    run({QStringLiteral("edit save ") + cookie, line});
  });
  question->answer(tr("&Drop them"), [run, line] { run({line + QStringLiteral(" --discard")}); });
  question->ask();
}

bool ActionRunner::takesOption(const char* command, const char* option) const {
  const auto found = link_.commands().all().find(command);
  return found != link_.commands().all().end() &&
         found->second.usage.find(option) != std::string::npos;
}

// The question keeps the rows of the moment in which it was asked: the selection may change before
// the answer.
void ActionRunner::askBeforeDeleting(const ActionSpec& action) {
  const std::vector<ObjectRow> rows = panes_.objects->chosen();
  QStringList things;
  for (const ObjectRow& row : rows) things.append(thingToDelete(row));
  const QString text =
      tr("Delete these %Ln for everybody in the project? They go to the project's trash.", nullptr,
         static_cast<int>(rows.size()));
  auto* question =
      new Question(QStringLiteral("deleteDialog"), tr("Delete"), text, things, &window_);
  question->answer(tr("&Delete"), [this, &action, rows] { remove(action, rows); });
  question->ask();
  nameOpeners(question, rows);
}

// Adds the stations that have an object open. Asking the share takes time, so the question is shown
// before.
void ActionRunner::nameOpeners(const QPointer<Question>& question,
                               const std::vector<ObjectRow>& rows) {
  QStringList cookies;
  for (const ObjectRow& row : rows) cookies << row.cookie;
  link_.askOpeners(cookies, [question, rows](const QHash<QString, QString>& openers) {
    for (int i = 0; const ObjectRow& row : rows) {
      const int at = i++;
      if (!question || !openers.contains(row.cookie)) continue;
      question->setThing(at, tr("%1, open at %2").arg(thingToDelete(row), openers[row.cookie]));
    }
  });
}

// Runs an action on a single object once for each selected object.
void ActionRunner::remove(const ActionSpec& action, const std::vector<ObjectRow>& rows) {
  QStringList cookies;
  for (const ObjectRow& row : rows) cookies.append(row.cookie);
  QStringList lines;
  if (QLatin1String(action.line).contains(QLatin1String("{objects}"))) {
    lines.append(filledLine(action, cookies, {}));
  } else {
    for (const QString& cookie : cookies) lines.append(filledLine(action, {cookie}, {}));
  }
  QStringList undo;
  for (const QString& cookie : cookies) undo << QStringLiteral("trash restore ") + quoted(cookie);
  link_.runAll(lines, [this, undo, what = deletedText(rows)](const CommandOutcome& outcome) {
    if (outcome.succeeded) Q_EMIT done(what, undo);
  });
}

// The dialog keeps the words of the moment in which it opened: the selection may change meanwhile.
void ActionRunner::askFields(const ActionSpec& action) {
  const QStringList words = targetWords(action.target);
  const QStringList meant = QStringList(QString::fromLatin1(action.line)) + words;
  for (ActionDialog* const each : window_.findChildren<ActionDialog*>()) {
    if (each->isVisible() && each->property(kMeant).toStringList() == meant) {
      each->raise();
      return each->activateWindow();
    }
  }
  ActionDialog* const dialog = askFields(action, words);
  dialog->setProperty(kMeant, meant);
  dialog->show();
}

ActionDialog* ActionRunner::askFields(const ActionSpec& action, const QStringList& words) {
  std::vector<FieldContent> contents;
  for (const ActionField& field : action.fields) contents.push_back(fieldContent(field));
  auto* dialog = new ActionDialog(action, contents, &window_);
  connect(dialog, &ActionDialog::filled, this, [this, &action, words](const QStringList& values) {
    const bool isImport = action.fields.front().kind == ActionField::Kind::eImportFiles;
    const QStringList files = values.front().split(QLatin1Char('\n'));
    if (isImport && files.size() > 1) return importFiles(files);
    if (isGift(action)) return give(action, words, values);
    const QString line = filledLine(action, words, values);
    runDoubtful(line, [this, &action, words, values](const CommandOutcome& outcome) {
      askAgain(action, words, values, outcome);
    });
  });
  return dialog;
}

void ActionRunner::askWithWords(const QString& object, Target target) {
  const auto isMeant = [target](const ActionSpec& action) {
    return action.target == target && QLatin1String(action.line) == QLatin1String(kAskWithWords);
  };
  askFields(*std::ranges::find_if(actionTable(), isMeant), {object})->show();
}

TrimDialog* ActionRunner::askTrim(const TimelinePtr& timeline, const QString& path) {
  auto* dialog = new TrimDialog(timeline, path, &window_);
  connect(dialog, &TrimDialog::filled, this, [this, timeline](const ClipTrim& trim) {
    link_.run(trim.line(timeline->cookie), [this, timeline, trim](const CommandOutcome& outcome) {
      if (outcome.succeeded || !panes_.objects->find(timeline->cookie)) return;
      // Another edit may be chosen by now, or an older version shown.
      const TimelinePtr& shown = panes_.detail->view().timeline();
      const bool isStillShown = shown && shown->cookie == timeline->cookie &&
                                shown->version.isEmpty() && shown->problem.isEmpty();
      TrimDialog* const again = askTrim(isStillShown ? shown : timeline, trim.path());
      again->correct(trim, outcome.text);
      again->show();
    });
  });
  return dialog;
}

void ActionRunner::trim(const ClipTrim& trim) {
  const auto chosen = panes_.objects->chosen();
  const TimelinePtr& shown = panes_.detail->view().timeline();
  if (chosen.empty() || !shown || shown->cookie != chosen.front().cookie) return;
  link_.run(trim.line(chosen.front().cookie), [this](const CommandOutcome& outcome) {
    if (!outcome.succeeded) panes_.detail->view().dropTrim();
  });
}

QString ActionRunner::whyNotTrim() const {
  const QString line = QStringLiteral("edit trim {object}");
  const QString lack = whatLacks(Target::eEdit);
  if (!lack.isEmpty()) return lack;
  const QString why = whyNotTrim(line);
  return why.isEmpty() ? whyNotObject(line) : why;
}

// What was typed and refused is not to be typed a second time.
void ActionRunner::askAgain(const ActionSpec& action, const QStringList& words,
                            const QStringList& values, const CommandOutcome& outcome) {
  if (outcome.succeeded || outcome.line.isEmpty()) return;
  const bool isToNobody =
      outcome.command == QLatin1String("say") && outcome.code == ErrorCode::eNotFound;
  const bool isOfWhatWasTyped = isToNobody || outcome.code == ErrorCode::eUsage ||
                                outcome.code == ErrorCode::eExists ||
                                outcome.code == ErrorCode::eRefused;
  // Nobody may be called so, or the edit is being saved elsewhere: the name need not be wrong.
  const bool isGiftThatFailed = isGift(action) && panes_.objects->find(words.front());
  if (!isOfWhatWasTyped && !isGiftThatFailed) return;
  ActionDialog* const dialog = askFields(action, words);
  dialog->correct(values, outcome.text);
  dialog->show();
}

// Asks first where the station has reason to doubt it: of two of one name only the cookie says
// which is meant. `then` follows in any case; with the outcome of no line where it was not run.
// `file` is the one of several that the question is about.
void ActionRunner::runDoubtful(const QString& line, const HostLink::Ended& then,
                               const QString& file) {
  link_.askDoubt(line, [this, line, then, file](const QString& doubt) {
    const auto go = [this, line, then] { then ? link_.run(line, then) : runLine(line); };
    if (doubt.isEmpty()) return go();
    auto* question =
        new Question(QStringLiteral("nameDialog"), tr("Two of one name"),
                     file.isEmpty() ? doubt : tr("%1: %2").arg(file, doubt), {}, &window_);
    question->answer(tr("&Use it all the same"), go);
    if (then) question->otherwise([then] { then({}); });
    question->ask();
  });
}

void ActionRunner::importFiles(const QStringList& files) {
  const QString lack = whatLacks(Target::eOpenProject);
  if (!lack.isEmpty()) {
    Q_EMIT told(lack);
    return;
  }
  imports_.add(files);
}

bool ActionRunner::wouldReplace(const CommandOutcome& outcome) {
  return !outcome.succeeded && outcome.command == QLatin1String("edit export") &&
         outcome.code == ErrorCode::eExists;
}

// Asked here and not in the file dialog: a name may also be typed.
void ActionRunner::takeOutcome(const CommandOutcome& outcome) {
  if (!wouldReplace(outcome)) return;
  const CommandCall call = readCall(link_.commands(), outcome.line.toStdString());
  auto* question =
      new Question(QStringLiteral("replaceDialog"), tr("Export"),
                   tr("This file is there already. Replace what it holds? It cannot be brought "
                      "back."),
                   {readableText(call.arguments[1])}, &window_);
  question->answer(tr("&Replace"),
                   [this, line = outcome.line] { link_.run(line + QStringLiteral(" --force")); });
  question->ask();
}

// Asks before giving an edit to an unknown name: nobody could change it then.
void ActionRunner::give(const ActionSpec& action, const QStringList& words,
                        const QStringList& values) {
  const QString line = filledLine(action, words, values);
  const QString doubt = doubtAbout(values.front());
  const HostLink::Ended then = [this, &action, words, values](const CommandOutcome& outcome) {
    askAgain(action, words, values, outcome);
  };
  if (doubt.isEmpty()) return link_.run(line, then);
  auto* question = new Question(QStringLiteral("giveDialog"), tr("Give"), doubt, {}, &window_);
  const QString forced =
      takesOption("edit give", "--force") ? QStringLiteral(" --force") : QString();
  question->answer(tr("&Give all the same"),
                   [this, line, forced, then] { link_.run(line + forced, then); });
  question->ask();
}

QString ActionRunner::doubtAbout(const QString& user) const {
  static const QStringList kReserved{QStringLiteral("RENDER"), QStringLiteral("<NOBODY>"),
                                     QStringLiteral("<All>")};
  if (kReserved.contains(user, Qt::CaseInsensitive)) {
    return tr("\"%1\" is no user. Only an administrator could then change the edit. Give it all "
              "the same?")
        .arg(user);
  }
  const QStringList users = snapshot_ && snapshot_->owners ? *snapshot_->owners : QStringList();
  if (users.contains(user)) return {};
  for (const QString& known : users) {
    if (known.compare(user, Qt::CaseInsensitive) != 0) continue;
    return tr("Nobody is called \"%1\", but there is \"%2\". Give it to \"%1\"?").arg(user, known);
  }
  return tr("Nobody called \"%1\" is known here. Until somebody of that name comes, you could "
            "not change the edit, and nobody else could. Give it all the same?")
      .arg(user);
}

FieldContent ActionRunner::fieldContent(const ActionField& field) const {
  FieldContent content{QString::fromUtf8(field.initial), {}};
  const auto chosen = panes_.objects->chosen();
  if (!chosen.empty()) {
    content.initial.replace(QLatin1String("{name}"), chosen.front().name);
    content.initial.replace(QLatin1String("{detail}"), chosen.front().detail);
  }
  fillChoices(content, field);
  return content;
}

void ActionRunner::fillChoices(FieldContent& content, const ActionField& field) const {
  const auto chosen = panes_.objects->chosen();
  switch (field.kind) {
    case ActionField::Kind::eUser:
    case ActionField::Kind::eNewOwner: {
      const bool isOwner = field.kind == ActionField::Kind::eNewOwner;
      const auto& users = isOwner ? snapshot_->owners : snapshot_->users;
      for (const QString& user : users ? *users : QStringList()) {
        if (user != user_) content.choices.push_back({user, user});
      }
      break;
    }
    case ActionField::Kind::eBin:
      content.choices = choicesOf(panes_.objects->rows(ObjectKind::eBins));
      break;
    case ActionField::Kind::eRack:
      content.choices = choicesOf(panes_.objects->rows(ObjectKind::eRacks));
      break;
    case ActionField::Kind::eContent:
      if (chosen.empty()) break;
      for (const QString& cookie : chosen.front().contents) {
        const auto object = panes_.objects->find(cookie);
        content.choices.push_back({object ? object->name : cookie, cookie});
      }
      break;
    default:
      break;
  }
}

}  // namespace korvel
