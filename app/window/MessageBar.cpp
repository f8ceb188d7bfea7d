#include "app/window/MessageBar.h"

#include <QAccessible>
#include <QEvent>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QStyle>
#include <QToolButton>
#include <algorithm>
#include <initializer_list>
#include <utility>

#include "app/commands/Command.h"
#include "app/window/ActionRunner.h"
#include "app/window/ActionTable.h"
#include "app/window/Appearance.h"
#include "app/window/Dialogs.h"
#include "app/window/ObjectsPane.h"
#include "app/window/PeoplePane.h"
#include "app/window/ProjectsPane.h"
#include "app/window/TalkPanes.h"
#include "app/window/Texts.h"
#include "app/window/UnsavedGuard.h"
#include "station/talk/Conversation.h"

namespace korvel {

namespace {

constexpr int kLongestBarText = 400;  // letters; the whole text is in the tool tip
constexpr int kLeastBarText = 220;    // of a text beside buttons
constexpr int kAroundBarText = 90;    // the sign, the cross, and the edges

const char* roleOf(MessageBar::Kind kind) {
  if (kind == MessageBar::Kind::eError) return "bar-error";
  return kind == MessageBar::Kind::eNote ? "bar-note" : "bar-change";
}

QIcon signOf(MessageBar::Kind kind) {
  if (kind == MessageBar::Kind::eError) return icon(Glyph::eProblem, colours().bad);
  if (kind == MessageBar::Kind::eChange) return icon(Glyph::eChanged, colours().warn);
  return icon(Glyph::eBell, colours().accent);
}

}  // namespace

MessageBar::MessageBar(const QString& name, QWidget* parent)
    : QFrame(parent),
      grid_(new QGridLayout(this)),
      offers_(new QWidget),
      sign_(new QLabel),
      label_(new QLabel),
      buttons_{new QToolButton, new QToolButton, new QToolButton},
      close_(new QToolButton) {
  setObjectName(name);
  label_->setObjectName(name + QStringLiteral("Text"));
  sign_->setObjectName(QStringLiteral("sign"));
  label_->setWordWrap(true);
  label_->setTextFormat(Qt::PlainText);
  label_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  label_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  close_->setAutoRaise(true);
  close_->setToolTip(tr("Close (Esc)"));
  close_->setAccessibleName(tr("Close this message"));
  grid_->setContentsMargins(12, 8, 8, 8);
  grid_->addWidget(sign_, 0, 0, Qt::AlignTop);
  grid_->addWidget(label_, 0, 1);
  grid_->setColumnStretch(1, 1);
  auto* row = new QHBoxLayout(offers_);
  row->setContentsMargins(0, 0, 0, 0);
  for (int i = 0; QToolButton * button : buttons_) {
    button->setObjectName(name + QStringLiteral("Button") +
                          (i > 0 ? QString::number(i) : QString()));
    button->setProperty("role", "button");
    button->hide();
    row->addWidget(button, 0, Qt::AlignVCenter);
    connect(button, &QToolButton::clicked, this, [this, i] { Q_EMIT acted(i); });
    ++i;
  }
  grid_->addWidget(close_, 0, 3, Qt::AlignTop);
  placeButtons();
  connect(close_, &QToolButton::clicked, this, &QWidget::hide);
  hide();
}

void MessageBar::tell(Kind kind, const QString& text) {
  text_ = text;
  offer({});
  setProperty("role", roleOf(kind));
  // Qt matches a style sheet's property only when a widget is polished.
  style()->unpolish(this);
  style()->polish(this);
  kind_ = kind;
  drawSigns();
  setAccessibleName(text);
  showText();
  show();
  if (!QAccessible::isActive()) return;
  QAccessibleEvent alert(this, QAccessible::Alert);
  QAccessible::updateAccessibility(&alert);
}

void MessageBar::drawSigns() {
  sign_->setPixmap(signOf(kind_).pixmap(18, 18));
  close_->setIcon(icon(Glyph::eClose, colours().quiet));
}

void MessageBar::changeEvent(QEvent* event) {
  QFrame::changeEvent(event);
  if (event->type() == QEvent::PaletteChange) drawSigns();  // in the colours of now
}

void MessageBar::offer(const QStringList& actions) {
  for (qsizetype i = 0; QToolButton * button : buttons_) {
    const QString action = actions.value(i++);
    button->setText(action);
    button->setVisible(!action.isEmpty());
  }
  offers_->setVisible(!actions.value(0).isEmpty());
  placeButtons();
}

void MessageBar::holdOff() {
  constexpr int kSettleMs = 700;  // longer than a hand that has begun to press takes
  offers_->setEnabled(false);
  QTimer::singleShot(kSettleMs, offers_, [offers = offers_] { offers->setEnabled(true); });
}

/// Beside the text where enough room is left to it, else below.
void MessageBar::placeButtons() {
  const int room = width() - kAroundBarText - offers_->sizeHint().width();
  const bool areBeside = lines_ == Lines::eAll && room >= kLeastBarText;
  if (std::exchange(areBeside_, areBeside) == areBeside) return;
  grid_->removeWidget(offers_);
  if (areBeside) {
    grid_->addWidget(offers_, 0, 2, Qt::AlignVCenter);
  } else {
    grid_->addWidget(offers_, 1, 0, 1, 4, Qt::AlignLeft);
  }
}

void MessageBar::setLines(Lines lines) {
  if (std::exchange(lines_, lines) == lines) return;
  label_->setWordWrap(lines == Lines::eAll);
  placeButtons();
  showText();
}

void MessageBar::showText() {
  // A label lays out its whole text at once; a long answer would fill the window.
  QString shown =
      text_.size() > kLongestBarText ? text_.left(kLongestBarText) + QStringLiteral("…") : text_;
  if (lines_ == Lines::eOne) {
    shown = fontMetrics().elidedText(oneLine(shown), Qt::ElideRight, label_->width());
  }
  label_->setText(shown);
  label_->setToolTip(shown == text_ ? QString() : plainTip(text_));
  // A layout does not ask a wrapped label for its height at this width.
  const int height = lines_ == Lines::eAll ? label_->heightForWidth(label_->width()) : 0;
  label_->setMinimumHeight(std::max(0, height));
}

void MessageBar::resizeEvent(QResizeEvent* event) {
  QFrame::resizeEvent(event);
  placeButtons();
  showText();
}

void MessageBar::showEvent(QShowEvent* event) {
  QFrame::showEvent(event);
  Q_EMIT tells(true);
}

void MessageBar::hideEvent(QHideEvent* event) {
  QFrame::hideEvent(event);
  // Behind another tab it goes on telling.
  Q_EMIT tells(!isHidden());
}

namespace {

constexpr qsizetype kLongestAnswer = 200;  // letters of an answer that needs no dialog

bool isOneOf(const QString& command, std::initializer_list<const char*> names) {
  return std::any_of(names.begin(), names.end(),
                     [&command](const char* name) { return command == QLatin1String(name); });
}

bool makesEdit(const QString& command) {
  return isOneOf(command, {"edit create", "log create", "edit import", "edit save-copy"});
}

/// What an answer is called: as the menu calls what was asked for.
QString titleOf(const QString& line) {
  const QString place = placeOf(line);
  return place.isEmpty() ? line : place.section(QStringLiteral(" > "), -1);
}

/// Whether the lists show what a command did, so that its answer needs no showing.
bool isShownByLists(const QString& command) {
  return makesEdit(command) || command.endsWith(QLatin1String(" create")) ||
         command.endsWith(QLatin1String(" add")) || command.endsWith(QLatin1String(" remove")) ||
         command.startsWith(QLatin1String("project enter"));
}

/// "BEN is asked for "Quay"; the ask waits until BEN is back."
QString askedText(const JsonValue& ask) {
  const QString to = personName(readableText(ask["to"].asString()));
  const QString name = personName(readableText(ask["name"].asString()));
  if (ask["here"].asBool()) return OutcomeTeller::tr("%1 is asked for \"%2\".").arg(to, name);
  return OutcomeTeller::tr("%1 is not here now: the ask for \"%2\" waits until then.")
      .arg(to, name);
}

/// What giving took from the giver's own window: "You left the room "Sound": BEN can enter it."
QString leftText(const JsonValue& answer) {
  if (answer["answer"].asString() != "give") return {};
  const QString name = personName(readableText(answer["name"].asString()));
  const QString to = personName(readableText(answer["to"].asString()));
  const std::string& kind = answer["kind"].asString();
  if (kind == "room") {
    return OutcomeTeller::tr("You left the room \"%1\": %2 can enter it.").arg(name, to);
  }
  if (kind != "project") return {};
  return OutcomeTeller::tr("You left the project \"%1\": %2 can enter it.").arg(name, to);
}

QString countOfUsers(long count) {
  return OutcomeTeller::tr("%Ln users are active.", nullptr, static_cast<int>(count));
}

}  // namespace

OutcomeTeller::OutcomeTeller(QWidget& window, HostLink& link, const WindowPanes& panes)
    : window_(window), link_(link), panes_(panes) {
  connect(panes.messages, &MessageBar::acted, this, [this](int which) {
    panes_.messages->hide();
    const auto acts = std::exchange(acts_, {});
    const auto chosen = static_cast<std::size_t>(which);
    if (chosen < acts.size() && acts[chosen]) acts[chosen]();
  });
}

void OutcomeTeller::tell(const QString& text, const QString& action,
                         const std::function<void()>& act) {
  tellsOfSending_ = false;
  panes_.messages->tell(MessageBar::Kind::eNote, text);
  panes_.messages->offer({action});
  acts_ = {act};
}

void OutcomeTeller::tellOfSending(const QString& problem) {
  tellsOfSending_ = true;
  panes_.messages->tell(MessageBar::Kind::eChange, problem);
}

// Advice on a message is removed when the next message needs none.
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
  const QString undo = undoLines.isEmpty() ? QString() : tr("Undo");
  tell(text, undo, [this, undoLines] { link_.runAll(undoLines, [](const CommandOutcome&) {}); });
}

// The words must not be lost with a refusal.
void OutcomeTeller::settleMessage(const CommandOutcome& outcome) {
  const CommandCall call = readCall(link_.commands(), outcome.line.toStdString());
  if (call.arguments.size() < 2) return;
  panes_.panel->settle(QString::fromStdString(call.arguments[1]), outcome.succeeded);
}

void OutcomeTeller::take(const CommandOutcome& outcome) {
  if (UnsavedGuard::isConflict(outcome)) return;    // UnsavedGuard asks
  if (ActionRunner::wouldReplace(outcome)) return;  // ActionRunner asks
  const bool isMessage = outcome.command == QLatin1String("say");
  if (isMessage) settleMessage(outcome);
  if (!outcome.succeeded) {
    tellsOfSending_ = false;
    panes_.messages->tell(MessageBar::Kind::eError, outcome.text);
    noteRefusal(outcome);
    offerAsking(outcome);
    return;
  }
  if (isMessage) tellOfMessage(outcome);
  if (!tellsOfSending_) panes_.messages->hide();
  noteMade(outcome);
  if (!isShownByLists(outcome.command)) tellAnswer(outcome);
  showAgain(outcome);
}

/// "You may not change "Quay": it belongs to DORA."
QString OutcomeTeller::permission(const JsonValue& answer) const {
  const QString cookie = readableText(answer["cookie"].asString());
  const auto row = panes_.objects->find(cookie);
  const QString name = row ? shownName(*row) : cookie;
  if (answer["allowed"].asBool()) return tr("You may change \"%1\".").arg(name);
  const QString owner = oneLine(readableText(answer["owner"].asString()));
  if (owner.isEmpty()) return tr("You may not change \"%1\": it has no owner.").arg(name);
  return tr("You may not change \"%1\": it belongs to %2.").arg(name, owner);
}

void OutcomeTeller::dropAskedNote() {
  if (!asked_.isEmpty() && panes_.messages->text() == asked_) panes_.messages->hide();
  asked_.clear();
}

// An answer that is a cookie, a number or nothing says little to somebody in the window.
QString OutcomeTeller::inWords(const CommandOutcome& outcome) const {
  const auto is = [&outcome](const char* command) {
    return outcome.command == QLatin1String(command);
  };
  if (is("active")) return countOfUsers(outcome.result.asLong());
  if (is("edit may")) return permission(outcome.result);
  if (is("ask")) return askedText(outcome.result);
  if (is("answer")) return leftText(outcome.result);
  if (is("tell-when-free")) return tr("You are told when you can have it.");
  if (is("trash restore")) return tr("Brought back from the trash.");
  if (is("edit recover")) {
    return outcome.line.endsWith(QLatin1String(" --discard"))
               ? tr("The unsaved changes are thrown away.")
               : takenUpText(outcome.text);
  }
  if (!is("edit export")) return outcome.text;
  const CommandCall call = readCall(link_.commands(), outcome.line.toStdString());
  const QFileInfo file(readableText(call.arguments[1]));
  return tr("Exported to \"%1\".").arg(oneLine(file.absoluteFilePath()));
}

/// An edit may have been given away since.
QString OutcomeTeller::takenUpText(const QString& cookie) const {
  const auto row = panes_.objects->find(cookie);
  const auto may = panes_.objects->model(ObjectKind::eEdits).mayChange(cookie);
  if (!row || row->owner.isEmpty() || may.value_or(true)) {
    return tr("The unsaved changes are back. They are not saved yet.");
  }
  return tr("The unsaved changes are back, but \"%1\" belongs to %2 now: Edit > Save a copy keeps "
            "them.")
      .arg(shownName(*row), personName(row->owner));
}

void OutcomeTeller::tellAnswer(const CommandOutcome& outcome) {
  const QString text = inWords(outcome);
  if (text.isEmpty()) return;
  const bool isLong = text.contains(QLatin1Char('\n')) || text.size() >= kLongestAnswer;
  if (isLong && text == outcome.text) return showTable(window_, titleOf(outcome.line), text);
  // Goes with the answer that it promises.
  if (isOneOf(outcome.command, {"ask", "tell-when-free"})) asked_ = text;
  panes_.messages->tell(MessageBar::Kind::eNote, text);
}

void OutcomeTeller::noteMade(const CommandOutcome& outcome) {
  const bool isBack = isOneOf(outcome.command, {"trash restore", "edit recover"});
  if (isBack || makesEdit(outcome.command)) madeEdit_ = outcome.text;
  if (outcome.command == QLatin1String("project create")) madeProject_ = outcome.text;
}

void OutcomeTeller::noteRefusal(const CommandOutcome& outcome) {
  const bool isEntry = isOneOf(outcome.command, {"room enter", "project enter"});
  held_ = isEntry && outcome.code == ErrorCode::eHeld ? outcome : CommandOutcome();
}

void OutcomeTeller::tellRefusal(const QString& why) {
  panes_.messages->tell(MessageBar::Kind::eNote, why);
  if (panes_.objects->kind() != ObjectKind::eEdits) return;
  for (const ObjectRow& row : panes_.objects->chosen()) {
    if (why == ActionRunner::ownerText(row))
      return offerAsking(Target::eEdit, row.cookie, row.owner);
  }
}

// A refused entry may be asked for, and an edit that belongs to another.
void OutcomeTeller::offerAsking(const CommandOutcome& refused) {
  const CommandCall call = readCall(link_.commands(), refused.line.toStdString());
  if (call.arguments.empty()) return;
  const QString word = readableText(call.arguments.front());
  if (!held_.line.isEmpty()) return offerHeld(word);
  if (refused.code != ErrorCode::eRefused || !refused.command.startsWith(QLatin1String("edit ")))
    return;
  const auto row = panes_.objects->find(word);
  // A refusal for another reason does not name the owner.
  if (row && !row->owner.isEmpty() && refused.text.contains(row->owner))
    offerAsking(Target::eEdit, word, row->owner);
}

// By its kind: an edit may have the name of a room.
void OutcomeTeller::offerHeld(const QString& word) {
  const bool isRoom = held_.command == QLatin1String("room enter");
  offerAsking(isRoom ? Target::eRoom : Target::eProject,
              (isRoom ? QStringLiteral("room:") : QString()) + word, holderOf(held_.command, word));
}

void OutcomeTeller::offerAsking(Target target, const QString& word, const QString& holder) {
  const QString ask =
      holder.isEmpty() ? tr("Ask for it") : tr("Ask %1 for it").arg(personName(holder));
  panes_.messages->offer({menuText(ask), tr("With a word…"), tr("Tell me when it is free")});
  acts_ = {[this, word] { link_.run(QStringLiteral("ask ") + quoted(word)); },
           [this, word, target] { Q_EMIT wordsWanted(word, target); },
           [this, word] { link_.run(QStringLiteral("tell-when-free ") + quoted(word)); }};
}

QString OutcomeTeller::holderOf(const QString& command, const QString& word) const {
  if (command == QLatin1String("room enter")) {
    for (const RoomRow& row : rooms_ ? *rooms_ : std::vector<RoomRow>()) {
      if (row.name == word) return row.holder;
    }
  }
  for (const ProjectRow& row : projects_ ? *projects_ : std::vector<ProjectRow>()) {
    if (row.cookie == word || row.name == word) return row.holder;
  }
  return {};
}

// The lists learn of the holder after the refusal.
void OutcomeTeller::nameHolder(const QString& word) {
  const QString holder = holderOf(held_.command, word);
  if (!holder.isEmpty() && panes_.messages->isVisible()) offerHeld(word);
}

void OutcomeTeller::takeSnapshot(const Snapshot& snapshot) {
  projects_ = snapshot.projects;
  rooms_ = snapshot.rooms;
  if (held_.line.isEmpty()) return;
  // Another message stands there by now.
  if (panes_.messages->text() != held_.text) return noteRefusal({});
  const CommandCall call = readCall(link_.commands(), held_.line.toStdString());
  const QString word = readableText(call.arguments.front());
  const auto isOpen = [](Hold hold) { return hold == Hold::eFree || hold == Hold::eLeftBehind; };
  bool canBeEntered = false;
  if (held_.command == QLatin1String("room enter") && snapshot.rooms) {
    for (const RoomRow& row : *snapshot.rooms) canBeEntered |= row.name == word && isOpen(row.hold);
  } else if (held_.command == QLatin1String("project enter") && snapshot.projects) {
    for (const ProjectRow& row : *snapshot.projects) {
      canBeEntered |= (row.cookie == word || row.name == word) && isOpen(row.hold);
    }
  }
  if (!canBeEntered) return nameHolder(word);
  noteRefusal({});
  panes_.messages->hide();
}

void OutcomeTeller::chooseSoon(const QString& cookie) {
  madeEdit_ = cookie;
  chooseMade();
}

void OutcomeTeller::chooseMade() {
  const ObjectsModel& edits = panes_.objects->model(ObjectKind::eEdits);
  if (const int row = madeEdit_.isEmpty() ? -1 : edits.rowOf(madeEdit_); row >= 0) {
    panes_.objects->choose(ObjectKind::eEdits, std::exchange(madeEdit_, {}));
    // Of what was imported the name is known only now.
    if (edits.at(row).isNamesake) {
      panes_.messages->tell(MessageBar::Kind::eNote,
                            tr("Another edit or log is called so, too. This one is \"%1\".")
                                .arg(shownName(edits.at(row))));
    }
  }
  if (!madeProject_.isEmpty() && panes_.projects->chooseProject(madeProject_)) {
    madeProject_.clear();
  }
}

// The chosen edit's timeline is drawn anew where a command of the user's changed it. Which edit a
// step belonged to is not said, so it may always be the chosen one.
void OutcomeTeller::showAgain(const CommandOutcome& outcome) {
  const bool isStep = isOneOf(outcome.command, {"undo", "redo"});
  const bool isEdit = outcome.command.startsWith(QLatin1String("edit "));
  const auto chosen = panes_.objects->chosen();
  if (!(isEdit || isStep) || isShownByLists(outcome.command) || chosen.empty()) return;
  if (panes_.objects->kind() != ObjectKind::eEdits) return;
  if (isStep || outcome.line.contains(chosen.front().cookie))
    link_.askTimeline(chosen.front().cookie);
}

}  // namespace korvel
