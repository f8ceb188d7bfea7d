#include "app/window/TalkPanes.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QLocale>
#include <QScrollBar>
#include <QTextCursor>
#include <QTextDocument>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "app/window/Appearance.h"
#include "app/window/PeoplePane.h"
#include "app/window/Texts.h"
#include "app/window/WindowLayout.h"
#include "station/talk/Conversation.h"
#include "station/ui/Desktop.h"

namespace korvel {

ConversationView::ConversationView(QWidget* parent) : QPlainTextEdit(parent) {
  setReadOnly(true);
  setTabChangesFocus(true);
  setPlaceholderText(tr("Nothing written yet."));
  setAccessibleName(tr("Conversation"));
  setMinimumHeight(40);
}

void ConversationView::setLines(const QStringList& lines) {
  // Appends where possible: setting the whole text again would lose the selection and take longer
  // each time.
  const bool isLonger =
      lines.size() >= lines_.size() && std::equal(lines_.begin(), lines_.end(), lines.begin());
  const bool isAtEnd = verticalScrollBar()->value() >= verticalScrollBar()->maximum();
  if (isLonger) {
    for (qsizetype i = lines_.size(); i < lines.size(); ++i) {
      wrapFor(*this, lines[i]);
      appendPlainText(lines[i]);
    }
  } else {
    showLongText(*this, lines.join(QLatin1Char('\n')));
  }
  lines_ = lines;
  // Follows new lines only where the user has not scrolled up.
  if (isAtEnd) verticalScrollBar()->setValue(verticalScrollBar()->maximum());
}

namespace {

constexpr int kLongestEntry = 1'000'000;

}  // namespace

QIcon panelIcon(const QString& file) {
  const QString path = QString::fromStdString(resourceDirectory()) + QLatin1Char('/') +
                       (file.isEmpty() ? QStringLiteral("tool_messager_on.png") : file);
  if (QFileInfo::exists(path)) return QIcon(path);
  return icon(Glyph::eMessage, colours().accent);
}

namespace {

/// Has the opened list show as many names as it may: it is opened before it is laid out, and would
/// have room for one.
void showWholeNames(const QComboBox& names) {
  QAbstractItemView& list = *names.view();
  const int shown = std::min(names.count(), names.maxVisibleItems());
  list.setMinimumHeight(shown * std::max(list.sizeHintForRow(0), 0) + 2 * list.frameWidth());
}

}  // namespace

PanelDock::PanelDock(QWidget* parent)
    : QDockWidget(tr("Messages"), parent),
      recipients_(new QComboBox),
      conversation_(new ConversationView),
      entry_(new QLineEdit),
      others_(new QToolButton),
      advice_(new QLabel) {
  setObjectName(QStringLiteral("panelDock"));
  recipients_->setObjectName(QStringLiteral("recipients"));
  recipients_->setAccessibleName(tr("Whom to write to"));
  recipients_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  recipients_->setMinimumContentsLength(6);
  recipients_->setMaxVisibleItems(14);
  auto* names = new QListView;
  // Otherwise Qt measures every name when the list opens.
  names->setUniformItemSizes(true);
  recipients_->setView(names);
  entry_->setObjectName(QStringLiteral("entry"));
  entry_->setMaxLength(kLongestEntry);
  entry_->setAccessibleName(tr("Message"));
  auto* send = new QToolButton;
  send->setText(tr("Send"));
  send->setProperty("role", "button");
  send->setToolTip(tr("Send (Return)"));
  others_->setObjectName(QStringLiteral("others"));
  others_->setProperty("role", "button");
  others_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
  auto* to = new QHBoxLayout;
  auto* label = new QLabel(tr("To"));
  label->setBuddy(recipients_);  // screen readers go by it: a box is called by what it shows
  to->addWidget(label);
  to->addWidget(recipients_, 1);
  auto* bottom = new QHBoxLayout;
  bottom->addWidget(entry_, 1);
  bottom->addWidget(send);
  auto* content = new QWidget;
  auto* layout = new QVBoxLayout(content);
  layout->setContentsMargins(10, 8, 10, 10);
  layout->addLayout(to);
  layout->addWidget(conversation_, 1);
  layout->addWidget(others_);
  layout->addLayout(bottom);
  advice_->setObjectName(QStringLiteral("wordsAdvice"));
  advice_->setProperty("role", "quiet");
  advice_->setWordWrap(true);
  advice_->hide();
  layout->addWidget(advice_);
  setWidget(scrolled(content));
  setFocusProxy(entry_);
  connect(recipients_, &QComboBox::textActivated, this, &PanelDock::recipientChosen);
  connect(entry_, &QLineEdit::returnPressed, this, &PanelDock::send);
  connect(entry_, &QLineEdit::textChanged, this, &PanelDock::advise);
  connect(send, &QToolButton::clicked, this, &PanelDock::send);
  connect(others_, &QToolButton::clicked, this, &PanelDock::notificationsWanted);
  showUnread(0);
  hide();
}

void PanelDock::send() {
  const QString words = entry_->text();
  unsettled_.append(words);
  entry_->clear();
  Q_EMIT sent(recipients_->currentText(), words);
}

// While it can still be written otherwise.
void PanelDock::advise(const QString& words) {
  const QString advice = readableText(messageAdvice(words.toStdString()));
  advice_->setText(advice);
  advice_->setVisible(!advice.isEmpty());
  entry_->setAccessibleDescription(advice);
}

void PanelDock::showUnread(int count) {
  const auto counted = [count](const QString& text) {
    return count == 0 ? text : QStringLiteral("%1 (%L2)").arg(text).arg(count);
  };
  replies_ = counted(tr("Replies: Notifications"));
  shortReplies_ = counted(tr("Notifications"));
  others_->setAccessibleName(replies_);
  others_->setToolTip(plainTip(replies_ + QLatin1Char('\n') +
                               tr("What others write to you is listed there, not here")));
  fitOthers();
}

/// A button would cut its text at both ends.
void PanelDock::fitOthers() {
  constexpr int kAroundText = 44;  // the button's edges, and the panel's
  const QFontMetrics metrics = others_->fontMetrics();
  const int room = width() - kAroundText;
  const bool fits = metrics.horizontalAdvance(replies_) <= room;
  others_->setText(fits ? replies_ : metrics.elidedText(shortReplies_, Qt::ElideMiddle, room));
}

void PanelDock::resizeEvent(QResizeEvent* event) {
  QDockWidget::resizeEvent(event);
  fitOthers();
}

void PanelDock::settle(const QString& words, bool isSent) {
  if (!unsettled_.removeOne(words) || isSent) return;
  const QString since = entry_->text();
  entry_->setText(since.isEmpty() ? words : words + QLatin1Char(' ') + since);
}

void PanelDock::show(const PanelState& panel) {
  const bool wasOpen = state_.isOpen;
  if (panel.isOpen) {
    if (!panel.title.isEmpty()) setWindowTitle(panel.title);
    showRecipients(panel);
    conversation_->setLines(panel.lines);
    entry_->setPlaceholderText(panel.prompt);
    // Never replaces what the user is typing.
    if (entry_->text().isEmpty() && !panel.entry.isEmpty() && panel.entry != state_.entry) {
      entry_->setText(panel.entry);
    }
  }
  state_ = panel;
  if (panel.isOpen == isHidden()) setVisible(panel.isOpen);
  if (panel.isOpen && wantsFocus_) entry_->setFocus(Qt::OtherFocusReason);
  if (panel.isOpen || wasOpen) wantsFocus_ = false;
}

void PanelDock::showRecipients(const PanelState& panel) {
  if (panel.recipients != state_.recipients || !state_.isOpen) {
    const QString chosen = state_.isOpen ? recipients_->currentText() : panel.recipient;
    recipients_->clear();
    recipients_->addItems(panel.recipients);
    // The box chooses its first entry by itself; the words would go there.
    recipients_->setCurrentIndex(static_cast<int>(panel.recipients.indexOf(chosen)));
    showWholeNames(*recipients_);
  }
  if (panel.recipient != state_.recipient || recipients_->currentIndex() < 0 || !state_.isOpen) {
    recipients_->setCurrentIndex(static_cast<int>(panel.recipients.indexOf(panel.recipient)));
  }
}

// The plug-in's panel decides: this dock is hidden once the panel has become an icon.
void PanelDock::closeEvent(QCloseEvent* event) {
  event->ignore();
  Q_EMIT closeWanted();
}

namespace {

const QString kToAll = QStringLiteral("<All>");
constexpr int kMostColleagues = 500;  // senders' names can be made up without end
constexpr int kSearchDelayMs = 150;
constexpr int kBlocksOfOne = 2;  // a line of who and when, and the words

/// The colleague with whom it was said; empty for everybody.
QString colleagueOf(const SaidLine& line) {
  if (line.to == kToAll) return {};
  return line.isOwn ? line.to : line.from;
}

/// The words with their lines, and blanks for what else has no place in a text.
QString saidText(const SaidLine& line) {
  QString text = line.text.left(ConversationPane::kLongestSaid);
  text.replace(QLatin1Char('\n'), QChar::LineSeparator);
  for (QChar& each : text) {
    if (each.category() == QChar::Other_Control) each = QLatin1Char(' ');
  }
  const qsizetype more = line.text.size() - ConversationPane::kLongestSaid;
  return more <= 0
             ? text
             : ConversationPane::tr("%1… (%2 letters more)").arg(text, QLocale().toString(more));
}

/// "ANNA to BEN", "BEN to everybody (unverified)".
QString saidHeading(const SaidLine& line) {
  const QString to = line.to == kToAll ? ConversationPane::tr("everybody") : personName(line.to);
  const QString text = ConversationPane::tr("%1 to %2").arg(personName(line.from), to);
  return line.isUnverified ? ConversationPane::tr("%1 (unverified)").arg(text) : text;
}

QTextCharFormat badgeFormat(const QString& user) {
  QTextCharFormat format;
  format.setBackground(colourOf(user));
  format.setForeground(Qt::white);
  format.setFontWeight(QFont::Bold);
  return format;
}

QTextCharFormat formatOf(const QColor& colour, QFont::Weight weight) {
  QTextCharFormat format;
  format.setForeground(colour);
  format.setFontWeight(weight);
  return format;
}

}  // namespace

ConversationPane::ConversationPane(QWidget* parent)
    : QWidget(parent),
      colleagues_(new QComboBox),
      search_(new QLineEdit),
      view_(new QPlainTextEdit) {
  build();
  for (QWidget* each : {static_cast<QWidget*>(view_), view_->viewport(),
                        static_cast<QWidget*>(search_), static_cast<QWidget*>(colleagues_)}) {
    each->setMouseTracking(true);
    each->installEventFilter(this);
  }
  connect(colleagues_, &QComboBox::currentIndexChanged, this, &ConversationPane::fill);
  searching_.setSingleShot(true);
  searching_.setInterval(kSearchDelayMs);
  connect(&searching_, &QTimer::timeout, this, &ConversationPane::fill);
  connect(search_, &QLineEdit::textChanged, &searching_, qOverload<>(&QTimer::start));
}

void ConversationPane::build() {
  colleagues_->setObjectName(QStringLiteral("colleagues"));
  colleagues_->setAccessibleName(tr("Whose words to show"));
  colleagues_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  colleagues_->setMinimumContentsLength(8);
  colleagues_->addItem(tr("With all"), QString());
  search_->setObjectName(QStringLiteral("searchSaid"));
  search_->setPlaceholderText(tr("Find words"));
  search_->setToolTip(search_->placeholderText());
  search_->setAccessibleName(tr("Find words in the conversation"));
  search_->setClearButtonEnabled(true);
  view_->setObjectName(QStringLiteral("said"));
  view_->setReadOnly(true);
  view_->setTabChangesFocus(true);
  view_->setUndoRedoEnabled(false);
  view_->setMaximumBlockCount(kBlocksOfOne * kMost);
  view_->setPlaceholderText(tr("Nothing was said yet."));
  view_->setAccessibleName(tr("All that was said"));
  view_->setMinimumHeight(40);
  auto* write = new QToolButton;
  write->setObjectName(QStringLiteral("writeThere"));
  write->setText(tr("&Write…"));
  write->setProperty("role", "button");
  write->setFocusPolicy(Qt::StrongFocus);
  connect(write, &QToolButton::clicked, this, [this] { Q_EMIT writeWanted(answeree()); });
  auto* tools = new QHBoxLayout;
  tools->setContentsMargins(8, 6, 8, 6);
  tools->setSpacing(8);
  tools->addWidget(colleagues_);
  tools->addWidget(search_, 1);
  tools->addWidget(write);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addLayout(tools);
  layout->addWidget(view_, 1);
}

namespace {

/// Counts what another said; who answered an ask has read it.
void countIn(QStringList& unread, const SaidLine& line) {
  if (!line.isOwn) {
    unread << line.ask;
  } else if (!line.ask.isEmpty()) {
    unread.removeAll(line.ask);
  }
}

}  // namespace

void ConversationPane::load(const std::vector<SaidLine>& lines, const QDateTime& seenUntil) {
  const std::deque<SaidLine> later = std::exchange(lines_, {});
  for (const SaidLine& each : lines) keep(each);
  for (const SaidLine& each : later) keep(each);
  fill();
  if (!seenUntil.isValid()) {
    Q_EMIT seen(QDateTime::currentDateTime());
    return;
  }
  QStringList unread;
  for (const SaidLine& each : lines) {
    if (each.isOwn || each.time > seenUntil) countIn(unread, each);
  }
  for (const SaidLine& each : later) {
    if (each.isOwn) countIn(unread, each);
  }
  setUnread(unread + unread_);
}

void ConversationPane::add(const std::vector<SaidLine>& lines) {
  if (lines.empty()) return;
  QScrollBar& bar = *view_->verticalScrollBar();
  // Follows new words only where the user has not scrolled up.
  const bool isAtEnd = bar.value() >= bar.maximum();
  QStringList unread = unread_;
  for (const SaidLine& each : lines) {
    keep(each);
    if (isShown(each)) append(each);
    countIn(unread, each);
  }
  if (isAtEnd) bar.setValue(bar.maximum());
  isLookedAt() ? tellSeen() : setUnread(unread);
}

void ConversationPane::keep(const SaidLine& line) {
  lines_.push_back(line);
  if (lines_.size() > kMost) lines_.pop_front();
  const QString colleague = colleagueOf(line);
  // A colleague's name is one whatever the case of its letters.
  const bool isKnown = colleague.isEmpty() ||
                       colleagues_->findData(colleague, Qt::UserRole, Qt::MatchFixedString) >= 0;
  if (!isKnown && colleagues_->count() < kMostColleagues) {
    const Badge badge{colleague, {}, false, false};
    colleagues_->addItem(badgeIcon(badge), personName(colleague), colleague);
  }
}

// An answer that goes to everybody is rarely meant.
QString ConversationPane::answeree() const {
  const QString chosen = colleagues_->currentData().toString();
  const auto last = std::ranges::find(lines_.rbegin(), lines_.rend(), false, &SaidLine::isOwn);
  return chosen.isEmpty() && last != lines_.rend() ? last->from : chosen;
}

bool ConversationPane::isShown(const SaidLine& line) const {
  const QString colleague = colleagues_->currentData().toString();
  const QString with = colleagueOf(line);
  const bool isMeant =
      colleague.isEmpty() || with.isEmpty() || with.compare(colleague, Qt::CaseInsensitive) == 0;
  const QString& words = search_->text();
  return isMeant && (words.isEmpty() || line.text.contains(words, Qt::CaseInsensitive) ||
                     line.from.contains(words, Qt::CaseInsensitive) ||
                     line.to.contains(words, Qt::CaseInsensitive));
}

void ConversationPane::fill() {
  view_->clear();
  view_->setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  for (const SaidLine& each : lines_) {
    if (isShown(each)) append(each);
  }
  view_->verticalScrollBar()->setValue(view_->verticalScrollBar()->maximum());
}

void ConversationPane::append(const SaidLine& line) {
  const QString text = saidText(line);
  wrapFor(*view_, text);
  QTextCursor end(view_->document());
  end.movePosition(QTextCursor::End);
  end.beginEditBlock();
  if (!view_->document()->isEmpty()) end.insertBlock();
  end.insertText(QStringLiteral(" %1 ").arg(initialsOf(line.from)), badgeFormat(line.from));
  end.insertText(QStringLiteral(" ") + saidHeading(line), formatOf(colours().text, QFont::Bold));
  end.insertText(QStringLiteral("  ") + shownTime(line.time),
                 formatOf(colours().quiet, QFont::Normal));
  end.insertBlock();
  const bool isAsking = line.kind != SaidLine::Kind::eWords;
  end.insertText(text, formatOf(isAsking ? colours().accent : colours().text, QFont::Normal));
  end.endEditBlock();
}

void ConversationPane::setUnread(const QStringList& unread) {
  const qsizetype before = std::exchange(unread_, unread).size();
  if (unread.size() != before) Q_EMIT unreadChanged(static_cast<int>(unread.size()));
}

void ConversationPane::tellSeen() {
  if (lines_.empty()) return;
  const QDateTime& last = lines_.back().time;
  if (std::exchange(seenUntil_, last) != last) Q_EMIT seen(last);
}

bool ConversationPane::isLookedAt() const {
  const QWidget* const focus = window()->focusWidget();
  const bool hasKeys = focus && isAncestorOf(focus);
  return isVisible() && !visibleRegion().isEmpty() && isActiveWindow() && (hasKeys || underMouse());
}

// While the window moves its panes about, this one may come and go although nobody looks.
void ConversationPane::takeLook() {
  if (!updatesEnabled()) return;
  setUnread({});
  tellSeen();
}

void ConversationPane::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (!event->spontaneous()) takeLook();
}

bool ConversationPane::eventFilter(QObject* watched, QEvent* event) {
  const QEvent::Type type = event->type();
  if (type == QEvent::KeyPress || type == QEvent::MouseMove || type == QEvent::MouseButtonPress ||
      type == QEvent::Wheel || type == QEvent::FocusIn) {
    takeLook();
  }
  return QWidget::eventFilter(watched, event);
}

// Texts keep the colours in which they were drawn.
void ConversationPane::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::PaletteChange) fill();
}

}  // namespace korvel
