#include "app/window/EventPanes.h"

#include <QComboBox>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QEvent>
#include <QFileInfo>
#include <QFontDatabase>
#include <QLabel>
#include <QListView>
#include <QListWidget>
#include <QLocale>
#include <QPlainTextEdit>
#include <QRegularExpression>
#include <QScrollBar>
#include <QSortFilterProxyModel>
#include <QSplitter>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "app/window/Appearance.h"
#include "app/window/Lists.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

/// Letters shown of a line; the tool tip has more.
constexpr qsizetype kLongestLine = 500;

QString kindWord(LogLine::Kind kind) {
  switch (kind) {
    case LogLine::Kind::eSent:
      return LogPane::tr("sent");
    case LogLine::Kind::eReceived:
      return LogPane::tr("received");
    case LogLine::Kind::eAssertion:
      return LogPane::tr("assertion");
    case LogLine::Kind::eNetwork:
      return LogPane::tr("network");
    case LogLine::Kind::eCommand:
      return LogPane::tr("command");
    case LogLine::Kind::eText:
      break;
  }
  return LogPane::tr("log");
}

/// In letters, so that what follows the words begins in one column.
qsizetype longestKindWord() {
  qsizetype most = 0;
  for (const LogLine::Kind kind :
       {LogLine::Kind::eText, LogLine::Kind::eSent, LogLine::Kind::eReceived,
        LogLine::Kind::eAssertion, LogLine::Kind::eNetwork, LogLine::Kind::eCommand}) {
    most = std::max(most, kindWord(kind).size());
  }
  return most;
}

QIcon kindIcon(LogLine::Kind kind) {
  const Colours& with = colours();
  switch (kind) {
    case LogLine::Kind::eSent:
      return icon(Glyph::eSent, with.accent);
    case LogLine::Kind::eReceived:
      return icon(Glyph::eReceived, with.good);
    case LogLine::Kind::eAssertion:
      return icon(Glyph::eProblem, with.bad);
    case LogLine::Kind::eNetwork:
      return icon(Glyph::eNetwork, with.warn);
    default:
      return icon(Glyph::eLog, with.quiet);
  }
}

}  // namespace

void LogModel::append(const std::vector<LogLine>& lines) {
  if (lines.empty()) return;
  const int first = static_cast<int>(lines_.size());
  beginInsertRows({}, first, first + static_cast<int>(lines.size()) - 1);
  lines_.insert(lines_.end(), lines.begin(), lines.end());
  endInsertRows();
  if (lines_.size() <= kMostLines) return;
  const auto excess = static_cast<int>(lines_.size() - kMostLines);
  beginRemoveRows({}, 0, excess - 1);
  lines_.erase(lines_.begin(), lines_.begin() + excess);
  endRemoveRows();
}

int LogModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(lines_.size());
}

QVariant LogModel::data(const QModelIndex& index, int role) const {
  const LogLine& line = lines_[static_cast<std::size_t>(index.row())];
  if (role == Qt::DisplayRole) {
    return QStringLiteral("%1  %2  %3")
        .arg(clockTime(line.time), kindWord(line.kind).leftJustified(longestKindWord()),
             line.text.left(kLongestLine).simplified());
  }
  if (role == Qt::DecorationRole) return kindIcon(line.kind);
  if (role == Qt::ToolTipRole) return plainTip(line.text);
  if (role == kKindRole) return static_cast<int>(line.kind);
  return {};
}

LogPane::LogPane(QWidget* parent)
    : QWidget(parent),
      model_(new LogModel(this)),
      proxy_(new QSortFilterProxyModel(this)),
      choice_(new QComboBox),
      view_(new QListView) {
  proxy_->setSourceModel(model_);
  proxy_->setFilterRole(LogModel::kKindRole);
  choice_->setObjectName(QStringLiteral("logChoice"));
  choice_->setAccessibleName(tr("Which log lines to show"));
  choice_->addItem(tr("Everything"), QString());
  for (const LogLine::Kind kind : {LogLine::Kind::eSent, LogLine::Kind::eReceived,
                                   LogLine::Kind::eAssertion, LogLine::Kind::eNetwork}) {
    const QString words[] = {tr("Sent"), tr("Received"), tr("Assertions"), tr("Network")};
    choice_->addItem(words[static_cast<int>(kind)],
                     QStringLiteral("^%1$").arg(static_cast<int>(kind)));
  }
  view_->setModel(proxy_);
  // Otherwise Qt would measure thousands of lines.
  view_->setUniformItemSizes(true);
  view_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  view_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  view_->setAccessibleName(tr("Log"));
  view_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  auto* tools = new QHBoxLayout;
  tools->setContentsMargins(8, 6, 8, 6);
  tools->setSpacing(8);
  tools->addWidget(new QLabel(tr("Show")));
  tools->addWidget(choice_);
  tools->addStretch();
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addLayout(tools);
  layout->addWidget(view_, 1);
  connect(choice_, &QComboBox::currentIndexChanged, this, &LogPane::narrow);
}

void LogPane::append(const std::vector<LogLine>& lines) {
  if (lines.empty()) return;
  const QScrollBar& bar = *view_->verticalScrollBar();
  // Follows new lines only where the user has not scrolled up.
  const bool isAtEnd = bar.value() >= bar.maximum();
  model_->append(lines);
  if (isAtEnd) view_->scrollToBottom();
}

void LogPane::narrow() {
  proxy_->setFilterRegularExpression(choice_->currentData().toString());
  view_->scrollToBottom();
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
  QString text = line.text.left(kLongestNotice).simplified();
  if (line.text.size() > kLongestNotice) {
    text =
        NotificationsPane::tr("%1… (%2 letters)").arg(text, QLocale().toString(line.text.size()));
  }
  if (line.sender.isEmpty()) return text;
  return NotificationsPane::tr("%1: %2", "who, and the words").arg(oneLine(line.sender), text);
}

NotificationsPane::NotificationsPane(QWidget* parent)
    : QWidget(parent),
      list_(new QListWidget),
      hint_(new QLabel(tr("Nothing yet. What colleagues write to you shows here."))),
      whole_(new QPlainTextEdit) {
  list_->setObjectName(QStringLiteral("notifications"));
  list_->setAccessibleName(tr("Notifications"));
  new ArrowKeys(*list_);
  list_->setUniformItemSizes(true);
  list_->setTextElideMode(Qt::ElideRight);
  list_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  hint_->setProperty("role", "quiet");
  hint_->setWordWrap(true);
  hint_->setMargin(12);
  whole_->setReadOnly(true);
  whole_->setTabChangesFocus(true);
  whole_->setAccessibleName(tr("The whole notification"));
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
      sign(), clockTime(line.time.time()) + QStringLiteral("  ") + notificationText(line));
  const QString when = QLocale().toString(line.time.date(), QLocale::ShortFormat) +
                       QLatin1Char(' ') + clockTime(line.time.time());
  item->setData(kTextRole, line.text);
  item->setData(kTitleRole, line.sender.isEmpty() ? when : listed({line.sender, when}));
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

bool DesktopNotices::isPossible() {
  if (!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")) return true;
  const QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
  return !folder.isEmpty() && QFileInfo::exists(folder + QStringLiteral("/bus"));
}

void DesktopNotices::tell(const QString& title, const QString& text) {
  const std::lock_guard lock(mutex_);
  waiting_ = Notice{title, text};
  if (!std::exchange(isWorking_, true)) worker_.start([this] { work(); });
}

std::optional<DesktopNotices::Notice> DesktopNotices::next() {
  const std::lock_guard lock(mutex_);
  isWorking_ = waiting_.has_value();
  return std::exchange(waiting_, std::nullopt);
}

// Without a word where the desktop takes none: the window shows the same.
void DesktopNotices::work() {
  constexpr int kPatience = 2000;  // milliseconds
  const QString service = QStringLiteral("org.freedesktop.Notifications");
  while (const auto notice = next()) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(service, QStringLiteral("/org/freedesktop/Notifications"),
                                       service, QStringLiteral("Notify"));
    // Desktops read the text, not the title, as markup.
    call << QStringLiteral("kv-station") << shown_ << QString() << notice->title
         << notice->text.toHtmlEscaped() << QStringList() << QVariantMap() << -1;
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, kPatience);
    if (reply.type() == QDBusMessage::ReplyMessage) shown_ = reply.arguments().value(0).toUInt();
  }
}

}  // namespace korvel
