#include "app/window/NotificationsPane.h"

#include <QEvent>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QSplitter>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "app/window/Appearance.h"
#include "app/window/Lists.h"
#include "app/window/Texts.h"

namespace korvel {

ConversationView::ConversationView(QWidget* parent) : QPlainTextEdit(parent) {
  setReadOnly(true);
  setTabChangesFocus(true);
  setPlaceholderText(QStringLiteral("Nothing written yet."));
  setAccessibleName(QStringLiteral("Conversation"));
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

constexpr qsizetype kLongestNotice = 300;
constexpr int kTextRole = Qt::UserRole;
constexpr int kTitleRole = Qt::UserRole + 1;

QIcon sign() { return icon(Glyph::eBell, colours().accent); }

void setBold(QListWidgetItem& item, int weight) {
  QFont font = item.font();
  font.setWeight(static_cast<QFont::Weight>(weight));
  item.setFont(font);
}

}  // namespace

QString notificationText(const NotificationLine& line) {
  const QString who = line.sender.isEmpty() ? QString() : oneLine(line.sender) + ": ";
  if (line.text.size() <= kLongestNotice) return who + line.text.simplified();
  return who + line.text.left(kLongestNotice).simplified() +
         QStringLiteral("… (%L1 letters)").arg(line.text.size());
}

NotificationsPane::NotificationsPane(QWidget* parent)
    : QWidget(parent),
      list_(new QListWidget),
      hint_(new QLabel(QStringLiteral("Nothing yet. What colleagues write to you shows here."))),
      whole_(new QPlainTextEdit) {
  list_->setObjectName(QStringLiteral("notifications"));
  list_->setAccessibleName(QStringLiteral("Notifications"));
  new ArrowKeys(*list_);
  list_->setUniformItemSizes(true);
  list_->setTextElideMode(Qt::ElideRight);
  list_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  hint_->setProperty("role", "quiet");
  hint_->setWordWrap(true);
  hint_->setMargin(12);
  whole_->setReadOnly(true);
  whole_->setTabChangesFocus(true);
  whole_->setAccessibleName(QStringLiteral("The whole notification"));
  whole_->hide();
  for (QWidget* each : {static_cast<QWidget*>(list_), list_->viewport(),
                        static_cast<QWidget*>(whole_), whole_->viewport()}) {
    each->setMouseTracking(true);
    each->installEventFilter(this);
  }
  auto* both = new QSplitter(Qt::Vertical);
  both->addWidget(list_);
  both->addWidget(whole_);
  both->setStretchFactor(0, 2);
  both->setStretchFactor(1, 1);
  both->hide();
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addWidget(hint_, 0, Qt::AlignTop);
  layout->addWidget(both, 1);
  connect(list_, &QListWidget::currentItemChanged, this, &NotificationsPane::showChosen);
  connect(list_, &QListWidget::itemActivated, this, [this](const QListWidgetItem* item) {
    Q_EMIT wholeWanted(item->data(kTitleRole).toString(), item->data(kTextRole).toString());
  });
}

void NotificationsPane::add(const std::vector<NotificationLine>& lines) {
  if (lines.empty()) return;
  if (unread_ == 0) markAllRead();
  hint_->hide();
  list_->parentWidget()->show();
  for (const NotificationLine& line : lines) addLine(line);
  // takeItem() hands the item over.
  while (list_->count() > kMost) delete list_->takeItem(list_->count() - 1);
  setUnread(unread_ + static_cast<int>(lines.size()));
}

void NotificationsPane::addLine(const NotificationLine& line) {
  auto* item = new QListWidgetItem(
      sign(), line.time.toString(QStringLiteral("HH:mm:ss  ")) + notificationText(line));
  const QString when = line.time.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
  item->setData(kTextRole, line.text);
  item->setData(kTitleRole, line.sender.isEmpty() ? when : line.sender + ", " + when);
  item->setToolTip(plainTip(item->data(kTitleRole).toString() + QLatin1Char('\n') + line.text));
  setBold(*item, QFont::Bold);
  list_->insertItem(0, item);
}

void NotificationsPane::chooseLatest() { list_->setCurrentRow(0); }

void NotificationsPane::showChosen() {
  const QListWidgetItem* item = list_->currentItem();
  whole_->setVisible(item != nullptr);
  if (item) showLongText(*whole_, item->data(kTextRole).toString());
}

void NotificationsPane::setUnread(int count) {
  if (std::exchange(unread_, count) != count) Q_EMIT unreadChanged(count);
}

void NotificationsPane::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (!event->spontaneous()) takeLook();
}

bool NotificationsPane::eventFilter(QObject* watched, QEvent* event) {
  const QEvent::Type type = event->type();
  if (type == QEvent::KeyPress || type == QEvent::MouseMove || type == QEvent::MouseButtonPress ||
      type == QEvent::Wheel || type == QEvent::FocusIn) {
    takeLook();
  }
  return QWidget::eventFilter(watched, event);
}

// While the window moves its panes about, this one may come and go and get the keyboard although
// nobody looks.
void NotificationsPane::takeLook() {
  if (updatesEnabled()) setUnread(0);
}

// Icons keep the colours in which they were drawn.
void NotificationsPane::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() != QEvent::PaletteChange) return;
  for (int i = 0; i < list_->count(); ++i) list_->item(i)->setIcon(sign());
}

void NotificationsPane::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  if (unread_ == 0) markAllRead();
}

void NotificationsPane::markAllRead() {
  for (int i = 0; i < list_->count(); ++i) setBold(*list_->item(i), QFont::Normal);
}

}  // namespace korvel
