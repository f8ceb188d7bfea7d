#include "app/window/EventPanes.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QEvent>
#include <QFileInfo>
#include <QFontDatabase>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QListWidget>
#include <QLocale>
#include <QPlainTextEdit>
#include <QRegularExpression>
#include <QScrollBar>
#include <QSortFilterProxyModel>
#include <QSplitter>
#include <QTreeView>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "app/window/Appearance.h"
#include "app/window/Lists.h"
#include "app/window/PeoplePane.h"
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
  if (!index.isValid() || index.row() >= rowCount()) return {};
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
  // An ask or an answer names who it is from.
  if (line.sender.isEmpty() || (line.isAsking && text.startsWith(oneLine(line.sender))))
    return text;
  return NotificationsPane::tr("%1: %2", "who, and the words").arg(oneLine(line.sender), text);
}

NotificationsPane::NotificationsPane(QWidget* parent)
    : QWidget(parent),
      list_(new QListWidget),
      hint_(new QLabel(tr("Nothing since this window was opened. What was written before is in the "
                          "conversation."))),
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
  const auto words = std::ranges::count(lines, false, &NotificationLine::isAsking);
  setUnread(unread_ + static_cast<int>(words));
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

void HappenedModel::load(const std::vector<HappenedLine>& lines) {
  beginResetModel();
  lines_.assign(lines.begin(), lines.end());
  endResetModel();
}

void HappenedModel::add(const std::vector<HappenedLine>& lines) {
  for (const HappenedLine& each : lines) addOne(each);
  if (lines_.size() <= kMost) return;
  beginRemoveRows({}, static_cast<int>(kMost), static_cast<int>(lines_.size()) - 1);
  lines_.resize(kMost);
  endRemoveRows();
}

void HappenedModel::addOne(const HappenedLine& line) {
  const auto known = std::ranges::find(lines_, line.id, &HappenedLine::id);
  if (known != lines_.end() && known->when == line.when) {
    const int row = static_cast<int>(known - lines_.begin());
    *known = line;
    Q_EMIT dataChanged(index(row, 0), index(row, eWhen));
    return;
  }
  if (known != lines_.end()) {
    const int row = static_cast<int>(known - lines_.begin());
    beginRemoveRows({}, row, row);
    lines_.erase(known);
    endRemoveRows();
  }
  beginInsertRows({}, 0, 0);
  lines_.push_front(line);
  endInsertRows();
}

int HappenedModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(lines_.size());
}

int HappenedModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : eWhen + 1;
}

QVariant HappenedModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  const QString titles[] = {tr("What happened"), tr("To"), tr("When")};
  return titles[section];
}

namespace {

QString happenedWho(const HappenedLine& line) {
  if (line.by.isEmpty()) return HappenedPane::tr("Somebody");
  return line.isOwn ? HappenedPane::tr("%1 (you)").arg(personName(line.by)) : personName(line.by);
}

/// "ANNA trimmed Clip-002".
QString happenedWhat(const HappenedLine& line) {
  const QString text = HappenedPane::tr("%1 %2").arg(happenedWho(line), line.deedsText());
  return line.isUnsaved ? HappenedPane::tr("%1, not saved then").arg(text) : text;
}

/// "Harbour", "the bin Selects".
QString happenedObject(const HappenedLine& line) {
  const QString name = oneLine(line.name.isEmpty() ? line.cookie : line.name);
  const auto is = [&line](const char* what) { return line.what == QLatin1String(what); };
  if (is("log")) return HappenedPane::tr("log %1").arg(name);
  if (is("bin")) return HappenedPane::tr("bin %1").arg(name);
  if (is("rack")) return HappenedPane::tr("rack %1").arg(name);
  if (is("filter")) return HappenedPane::tr("filter %1").arg(name);
  return is("media") ? HappenedPane::tr("media file %1").arg(name) : name;
}

/// All of it in a sentence, for the tool tip and for those who do not see the columns.
QString happenedInWords(const HappenedLine& line) {
  return HappenedPane::tr("%1: %2, %3")
      .arg(happenedObject(line), happenedWhat(line), shownTime(line.when));
}

QString happenedText(const HappenedLine& line, int column) {
  switch (column) {
    case HappenedModel::eWhat:
      return happenedWhat(line);
    case HappenedModel::eObject:
      return happenedObject(line);
    default:
      return shownTime(line.when);
  }
}

}  // namespace

QVariant HappenedModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) return {};
  const HappenedLine& line = at(index.row());
  switch (role) {
    case Qt::DisplayRole:
      return happenedText(line, index.column());
    case Qt::ToolTipRole:
      return plainTip(happenedInWords(line));
    case Qt::AccessibleTextRole:
      return index.column() == eWhat ? QVariant(happenedInWords(line)) : QVariant();
    case Qt::DecorationRole:
      if (index.column() != eWhat || line.by.isEmpty()) return {};
      return badgeIcon({line.by, {}, false, false});
    case Qt::ForegroundRole:
      return index.column() == eWhen ? QVariant(colours().quiet) : QVariant();
    default:
      return {};
  }
}

void HappenedProxy::keepTo(const QString& user, const QString& words,
                           const std::optional<QString>& cookie) {
  user_ = user;
  words_ = words;
  cookie_ = cookie;
  invalidateFilter();
}

bool HappenedProxy::filterAcceptsRow(int row, const QModelIndex&) const {
  const HappenedLine& line = static_cast<const HappenedModel*>(sourceModel())->at(row);
  if (!user_.isEmpty() && line.by != user_) return false;
  if (cookie_ && line.cookie != *cookie_) return false;
  return words_.isEmpty() || happenedInWords(line).contains(words_, Qt::CaseInsensitive);
}

namespace {

constexpr int kMostDoers = 500;  // names can be made up without end
constexpr int kLeastDeed = 160;

}  // namespace

HappenedPane::HappenedPane(QWidget* parent)
    : QWidget(parent),
      model_(new HappenedModel(this)),
      proxy_(new HappenedProxy(this)),
      who_(new QComboBox),
      search_(new QLineEdit),
      chosenOnly_(new QCheckBox(tr("Only the chosen edit"))),
      list_(new QTreeView) {
  build();
  connect(who_, &QComboBox::currentIndexChanged, this, &HappenedPane::narrow);
  connect(search_, &QLineEdit::textChanged, this, &HappenedPane::narrow);
  connect(chosenOnly_, &QCheckBox::toggled, this, &HappenedPane::narrow);
  connect(list_, &QTreeView::activated, this, [this](const QModelIndex& index) {
    const HappenedLine& line = model_->at(proxy_->mapToSource(index).row());
    Q_EMIT objectWanted(line.what, line.cookie);
  });
}

void HappenedPane::build() {
  who_->setObjectName(QStringLiteral("doers"));
  who_->setAccessibleName(tr("Whose doings to show"));
  who_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  who_->setMinimumContentsLength(8);
  who_->addItem(tr("By all"), QString());
  search_->setObjectName(QStringLiteral("searchHappened"));
  search_->setPlaceholderText(tr("Find an edit or clip"));
  search_->setAccessibleName(tr("Find what happened by its words"));
  search_->setClearButtonEnabled(true);
  chosenOnly_->setObjectName(QStringLiteral("chosenOnly"));
  proxy_->setSourceModel(model_);
  list_->setObjectName(QStringLiteral("happened"));
  list_->setAccessibleName(tr("What happened, the latest first"));
  list_->setModel(proxy_);
  list_->setRootIsDecorated(false);
  list_->setUniformRowHeights(true);
  list_->setAllColumnsShowFocus(true);
  list_->setTextElideMode(Qt::ElideRight);
  list_->setIconSize({27, 18});
  list_->setMinimumHeight(40);
  new ArrowKeys(*list_);
  // What matters least is hidden first where there is no room for all.
  new ColumnFit(*list_, kLeastDeed, {{200, 80}, {130, 60}});
  auto* tools = new QHBoxLayout;
  tools->setContentsMargins(8, 6, 8, 6);
  tools->setSpacing(8);
  tools->addWidget(who_);
  tools->addWidget(search_, 1);
  tools->addWidget(chosenOnly_);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addLayout(tools);
  layout->addWidget(list_, 1);
}

void HappenedPane::load(const std::vector<HappenedLine>& lines, long first) {
  first_ = first;
  model_->load(lines);
  who_->setCurrentIndex(0);
  while (who_->count() > 1) who_->removeItem(1);
  noteDoers(lines);
}

void HappenedPane::add(const std::vector<HappenedLine>& lines) {
  std::vector<HappenedLine> own = lines;
  std::erase_if(own, [this](const HappenedLine& each) { return each.id < first_; });
  if (own.empty()) return;
  // The latest stays in sight unless the user has scrolled down.
  const QScrollBar& bar = *list_->verticalScrollBar();
  const bool isAtTop = bar.value() == bar.minimum();
  model_->add(own);
  if (isAtTop) list_->scrollToTop();
  noteDoers(own);
}

void HappenedPane::noteDoers(const std::vector<HappenedLine>& lines) {
  for (const HappenedLine& each : lines) {
    if (each.by.isEmpty() || who_->findData(each.by) >= 0 || who_->count() > kMostDoers) continue;
    who_->addItem(badgeIcon({each.by, {}, false, false}), personName(each.by), each.by);
  }
}

void HappenedPane::setChosen(const QString& cookie) {
  if (std::exchange(chosen_, cookie) != cookie && chosenOnly_->isChecked()) narrow();
}

void HappenedPane::narrow() {
  const auto cookie = chosenOnly_->isChecked() ? std::optional(chosen_) : std::nullopt;
  proxy_->keepTo(who_->currentData().toString(), search_->text().trimmed(), cookie);
}

// Icons keep the colours in which they were drawn.
void HappenedPane::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::PaletteChange) list_->viewport()->update();
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
