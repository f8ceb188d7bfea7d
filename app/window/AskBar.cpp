#include "app/window/AskBar.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "app/window/Dialogs.h"
#include "app/window/Lists.h"
#include "app/window/MessageBar.h"
#include "app/window/PeoplePane.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

enum AskColumn { eAskWho, eAskWhat, eAskWords, eAskSince };

constexpr std::size_t kMostOffers = 3;
constexpr std::ptrdiff_t kMostTold = 20;
constexpr int kLongestReply = 300;  // letters
constexpr qsizetype kMostFolded = 6;
constexpr QSize kAskSize{640, 320};

/// "the edit "Opening titles"".
QString thing(const QString& kind, const QString& name) {
  if (kind == QLatin1String("room")) return AskTeller::tr("the room \"%1\"").arg(personName(name));
  if (kind == QLatin1String("project"))
    return AskTeller::tr("the project \"%1\"").arg(personName(name));
  if (kind == QLatin1String("log")) return AskTeller::tr("the log \"%1\"").arg(personName(name));
  return AskTeller::tr("the edit \"%1\"").arg(personName(name));
}

QString askerName(const AskRow& ask) {
  const QString name = personName(ask.from);
  return ask.isUnverified ? AskTeller::tr("%1 (unverified)").arg(name) : name;
}

QString wholeAsk(const AskRow& ask) {
  const QString text =
      AskTeller::tr("%1 asks for %2").arg(askerName(ask), thing(ask.kind, ask.name));
  return ask.text.isEmpty()
             ? text
             : AskTeller::tr("%1: %2", "an ask, and its words").arg(text, oneLine(ask.text));
}

/// "3 asks: BEN for the edit "Quay", CARL for the room "Sound", ...".
QString foldedAsks(const std::vector<AskRow>& asks) {
  QStringList texts;
  for (const AskRow& each : asks) {
    if (texts.size() == kMostFolded) break;
    texts.append(AskTeller::tr("%1 for %2").arg(askerName(each), thing(each.kind, each.name)));
  }
  const auto count = static_cast<int>(asks.size());
  const int more = count - static_cast<int>(texts.size());
  if (more > 0) texts.append(AskTeller::tr("%n more", nullptr, more));
  return AskTeller::tr("%n asks: %1", nullptr, count).arg(listed(texts));
}

QTreeWidgetItem* askItem(const AskRow& ask) {
  const QString asked = ask.isAwaited ? AskTeller::tr("you wait for %1").arg(personName(ask.to))
                                      : AskTeller::tr("you ask %1").arg(personName(ask.to));
  const QString words =
      ask.isAwaited ? AskTeller::tr("to be told when it is free") : oneLine(ask.text.left(300));
  auto* item = new QTreeWidgetItem(
      {ask.isOwn ? asked : askerName(ask), thing(ask.kind, ask.name), words, shownTime(ask.when)});
  item->setData(eAskWho, Qt::UserRole, QVariant::fromValue(ask.number));
  item->setToolTip(eAskWords, plainTip(ask.text));
  if (!ask.isOwn) item->setIcon(eAskWho, badgeIcon({ask.from, {}, false, false}));
  return item;
}

}  // namespace

QString answerLine(const AskRow& ask, const QString& how, const QString& words) {
  const QString line = QStringLiteral("answer %1 %2").arg(ask.number).arg(how);
  return words.isEmpty() ? line : line + QLatin1Char(' ') + quoted(words);
}

AskDialog::AskDialog(QWidget* parent)
    : QDialog(parent),
      list_(new QTreeWidget),
      gone_(wrappedLabel("gone", tr("This ask was taken back, or is answered."))),
      words_(new QLineEdit) {
  setObjectName(QStringLiteral("askDialog"));
  setWindowTitle(tr("Asks that wait for an answer"));
  setAttribute(Qt::WA_DeleteOnClose);
  build();
  const QSize room = parent ? parent->window()->size() : kAskSize;
  resize(kAskSize.boundedTo(room));
  connect(list_, &QTreeWidget::currentItemChanged, this, &AskDialog::enable);
  connect(give_, &QPushButton::clicked, this, [this] { answer(QStringLiteral("give")); });
  connect(keep_, &QPushButton::clicked, this, [this] { answer(QStringLiteral("no")); });
  enable();
}

void AskDialog::build() {
  list_->setObjectName(QStringLiteral("asks"));
  list_->setAccessibleName(tr("Asks"));
  new ArrowKeys(*list_);
  list_->setHeaderLabels({tr("Who asks"), tr("For"), tr("With the words"), tr("Since")});
  list_->setRootIsDecorated(false);
  list_->setUniformRowHeights(true);
  list_->setAllColumnsShowFocus(true);
  list_->setTextElideMode(Qt::ElideRight);
  list_->setIconSize({27, 18});
  setColumnWidths(*list_, {130, 200, 170});
  words_->setObjectName(QStringLiteral("replyWords"));
  words_->setAccessibleName(tr("A word back"));
  words_->setPlaceholderText(tr("A word back, if you like"));
  words_->setMaxLength(kLongestReply);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
  give_ = buttons->addButton(tr("&Give"), QDialogButtonBox::ActionRole);
  keep_ = buttons->addButton(tr("&Not now"), QDialogButtonBox::ActionRole);
  // Return in the words presses nothing: they would be lost with the dialog.
  for (QPushButton* each : {give_, keep_, buttons->button(QDialogButtonBox::Close)}) {
    each->setAutoDefault(false);
  }
  gone_->hide();
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(12, 12, 12, 12);
  layout->addWidget(list_, 1);
  layout->addWidget(gone_);
  layout->addWidget(words_);
  layout->addWidget(buttons);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

void AskDialog::take(const std::vector<AskRow>& asks) {
  if (asks == rows_ && list_->topLevelItemCount() > 0) return;
  const AskRow* const before = chosen();
  const long number = before ? before->number : -1;
  const bool isGone = number >= 0 && number != answered_ &&
                      std::ranges::find(asks, number, &AskRow::number) == asks.end();
  const bool isFirst = list_->topLevelItemCount() == 0;
  rows_ = asks;
  list_->clear();
  for (const AskRow& each : rows_) {
    QTreeWidgetItem* const item = askItem(each);
    list_->addTopLevelItem(item);
    if (each.number == number) list_->setCurrentItem(item);
  }
  // What was typed for one who took his ask back is for nobody else.
  if (number < 0 && (isFirst || words_->text().isEmpty())) {
    list_->setCurrentItem(list_->topLevelItem(0));
  }
  if (isGone) gone_->show();
  enable();
}

const AskRow* AskDialog::chosen() const {
  const QTreeWidgetItem* const item = list_->currentItem();
  if (!item) return nullptr;
  const auto number = item->data(eAskWho, Qt::UserRole).value<long>();
  const auto found = std::ranges::find(rows_, number, &AskRow::number);
  return found == rows_.end() ? nullptr : &*found;
}

void AskDialog::answer(const QString& how) {
  const AskRow* const ask = chosen();
  if (!ask) return;
  answered_ = ask->number;
  Q_EMIT answered(ask->number, answerLine(*ask, how, words_->text().trimmed()), words_->text());
}

void AskDialog::noteAnswered(const QString& words) {
  if (words_->text() == words) words_->clear();
}

void AskDialog::enable() {
  const AskRow* const ask = chosen();
  give_->setEnabled(ask && !ask->isOwn);
  keep_->setEnabled(ask);
  const QString end = ask && ask->isAwaited ? tr("&Wait no longer") : tr("&Take it back");
  keep_->setText(ask && ask->isOwn ? end : tr("&Not now"));
  if (ask) gone_->hide();
  // Never while something is typed: the keyboard would go on to a button, and then to the window.
  words_->setEnabled(words_->hasFocus() || !words_->text().isEmpty() || (ask && !ask->isOwn));
}

AskTeller::AskTeller(QWidget& window, MessageBar& asks, MessageBar& answers, Runner run)
    : window_(window), asks_(asks), answers_(answers), run_(std::move(run)) {
  connect(&asks_, &MessageBar::acted, this, &AskTeller::act);
  connect(&answers_, &MessageBar::acted, this, &AskTeller::actOnAnswer);
  // What was closed was read.
  connect(&answers_, &MessageBar::tells, this, [this](bool isTelling) {
    if (!isTelling) told_.clear();
  });
}

std::vector<AskRow> AskTeller::others() const {
  std::vector<AskRow> asks = rows_ ? *rows_ : std::vector<AskRow>();
  std::erase_if(asks, &AskRow::isOwn);
  return asks;
}

std::size_t AskTeller::waiting() const { return others().size(); }

void AskTeller::takeSnapshot(const Snapshot& snapshot) {
  if (snapshot.asks == rows_) return;
  const std::vector<AskRow> before = others();
  const Shared<std::vector<AskRow>> earlier = std::exchange(rows_, snapshot.asks);
  bool areOutdated = false;
  for (const AskRow& each : rows_ ? *rows_ : std::vector<AskRow>()) {
    const bool isNew = !earlier || std::ranges::find(*earlier, each) == earlier->end();
    if (each.isOwn && isNew) areOutdated |= forgetAnswers(each.kind, each.name);
  }
  if (areOutdated) showAnswers();
  if (dialog_ && rows_) dialog_->take(*rows_);
  std::erase_if(answering_, [this](long number) {
    return !rows_ || std::ranges::find(*rows_, number, &AskRow::number) == rows_->end();
  });
  const std::vector<AskRow> now = others();
  const bool hasNew = std::ranges::any_of(now, [&before](const AskRow& each) {
    return std::ranges::find(before, each.number, &AskRow::number) == before.end();
  });
  // A bar that was closed comes back with the next ask, not when one goes.
  if (now != before && (hasNew || !asks_.isHidden())) showAsks();
}

void AskTeller::showAsks() {
  const std::vector<AskRow> asks = others();
  if (asks.empty()) return asks_.hide();
  const bool isUnderTheHand = asks_.isVisible();
  asks_.tell(MessageBar::Kind::eNote, asks.size() == 1 ? wholeAsk(asks.front()) : foldedAsks(asks));
  asks_.offer(asks.size() == 1 ? QStringList{tr("Give"), tr("Not now"), tr("With a word…")}
                               : QStringList{tr("Answer them…")});
  if (isUnderTheHand) asks_.holdOff();
}

void AskTeller::act(int which) {
  const std::vector<AskRow> asks = others();
  if (asks.size() != 1 || which == 2) return showAll();
  const QString how = which == 0 ? QStringLiteral("give") : QStringLiteral("no");
  answerOnce(asks.front().number, answerLine(asks.front(), how, {}), {});
}

/// Of two clicks the second would answer what is answered; one that failed may be tried again.
void AskTeller::answerOnce(long number, const QString& line, const QString& words) {
  if (!answering_.insert(number).second) return;
  run_(line, [self = QPointer(this), number, words](bool succeeded) {
    if (!self) return;
    if (!succeeded) {
      self->answering_.erase(number);
      return;
    }
    // The dialog may have been closed meanwhile, and opened again.
    if (self->unsent_ == words) self->unsent_.clear();
    if (self->dialog_) self->dialog_->noteAnswered(words);
  });
}

void AskTeller::showAll() {
  if (!dialog_) {
    dialog_ = new AskDialog(&window_);
    connect(dialog_, &AskDialog::answered, this, &AskTeller::answerOnce);
    connect(dialog_, &QDialog::finished, this, [this] { unsent_ = dialog_->words().text(); });
    dialog_->words().setText(unsent_);
    dialog_->show();
  }
  dialog_->take(rows_ ? *rows_ : std::vector<AskRow>());
  dialog_->raise();
  dialog_->words().setFocus();
}

void AskTeller::takeAnswers(const std::vector<AskAnswer>& answers) {
  if (answers.empty()) return;
  for (const AskAnswer& each : answers) {
    forgetAnswers(each.kind, each.name);
    told_.push_back(each);
  }
  // The conversation has them all.
  if (std::ssize(told_) > kMostTold) told_.erase(told_.begin(), told_.end() - kMostTold);
  const bool isUnderTheHand = answers_.isVisible();
  showAnswers();
  if (isUnderTheHand) answers_.holdOff();
}

/// What was answered about a thing before is outdated by a new ask or answer.
bool AskTeller::forgetAnswers(const QString& kind, const QString& name) {
  return std::erase_if(told_, [&](const AskAnswer& each) {
           return each.kind == kind && each.name == name;
         }) > 0;
}

void AskTeller::showAnswers() {
  QStringList texts;
  QStringList offers;
  // The latest first: the line may be cut, and only so many can be offered.
  for (auto at = told_.rbegin(); at != told_.rend(); ++at) {
    const AskAnswer& each = *at;
    texts.append(oneLine(each.words));
    const bool isOffered = each.canOpen && offers.size() < static_cast<qsizetype>(kMostOffers);
    if (isOffered) offers.append(menuText(tr("Open %1").arg(personName(each.name))));
  }
  if (texts.isEmpty()) return answers_.hide();
  answers_.tell(MessageBar::Kind::eNote, texts.join(QStringLiteral("  ·  ")));
  answers_.offer(offers);
}

void AskTeller::actOnAnswer(int which) {
  auto chosen = told_.rbegin();
  for (; chosen != told_.rend(); ++chosen) {
    if (chosen->canOpen && which-- == 0) break;
  }
  if (chosen == told_.rend()) return;
  const AskAnswer answer = *chosen;
  told_.erase(std::next(chosen).base());
  showAnswers();
  Q_EMIT openWanted(answer);
}

}  // namespace korvel
