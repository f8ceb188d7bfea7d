#include "app/window/ObjectsPane.h"

#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QSettings>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

#include "app/base/Options.h"
#include "app/window/Appearance.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

using Column = ObjectsModel::Column;

constexpr int kLeastObjectName = 100;
constexpr int kNameBeside = 220;  ///< the least for names beside what tells little
constexpr int kNameBesideNews = 180;
/// How soon news are kept that came or were looked at.
constexpr int kKeepNewsMs = 2000;

QString emptyText(ObjectKind kind) {
  switch (kind) {
    case ObjectKind::eEdits:
      return ObjectsPane::tr(
          "<h3>No edits yet</h3><p>Ctrl+I takes an OpenTimelineIO file (.otio) in, Ctrl+E makes an "
          "empty edit.<br>What others make shows here at once.</p>");
    case ObjectKind::eBins:
      return ObjectsPane::tr(
          "<h3>No bins yet</h3><p>A bin gathers edits, logs and media. Bin &gt; New bin makes "
          "one.</p>");
    case ObjectKind::eRacks:
      return ObjectsPane::tr(
          "<h3>No racks yet</h3><p>A rack gathers bins. Rack &gt; New rack makes one.</p>");
    case ObjectKind::eFilters:
      return ObjectsPane::tr(
          "<h3>No filters yet</h3><p>A filter keeps a search for all users of the project. "
          "Filter &gt; New filter makes one.</p>");
    case ObjectKind::eMedia:
      break;
  }
  return ObjectsPane::tr(
      "<h3>No media yet</h3><p>Media &gt; Add a file makes a media file known to all users of "
      "the project.</p>");
}

/// The width of a column: that of its longest usual text. Names and paths may be cut.
ColumnFit::Width widthOf(const QTreeView& view, Column column) {
  constexpr int kAroundText = 44;
  const auto whole = [&view](const QString& text) {
    return view.fontMetrics().horizontalAdvance(text) + kAroundText;
  };
  const auto longest = [&whole](const QString& a, const QString& b) {
    const int width = std::max(whole(a), whole(b));
    return ColumnFit::Width{width, width};
  };
  const QDateTime noon(QDate::currentDate(), QTime(12, 4));
  const int timecode = view.fontMetrics().horizontalAdvance(QStringLiteral("00:00:00:00")) + 20;
  switch (column) {
    case Column::eNews:
      return {whole(newsText({false, QStringLiteral("ANNABEN"), noon})),
              whole(WindowText::tr("changed by %1").arg(QString())), kNameBesideNews};
    case Column::eMay:
      return longest(ObjectsModel::tr("change it"), ObjectsModel::tr("look only"));
    case Column::eState:
      return longest(ObjectsModel::tr("open, unsaved"), ObjectsModel::tr("unsaved there"));
    case Column::eModified:
      return {whole(shownDayAndTime(noon)), whole(shownDayAndTime(noon)), kNameBeside};
    case Column::eLength:
      return {timecode, timecode, kNameBeside};
    case Column::eSavedBy:
      return {96, 72, kNameBeside, false, 160};
    case Column::eSource:
      return {150, 90, kNameBeside, false, 320};
    case Column::eOwner:
      return {96, 72, 0, false, 160};
    default:
      return {230, 100, 0, false, 420};
  }
}

ColumnFit* makeColumns(QTreeView& view, const ObjectsModel& model) {
  std::vector<ColumnFit::Width> widths;
  for (int i = 1; i < model.columnCount(); ++i) {
    widths.push_back(widthOf(view, model.columnAt(i)));
  }
  return new ColumnFit(view, kLeastObjectName, std::move(widths));
}

std::string newsFolder() {
  const std::string folder = stateFolder();
  return folder.empty() ? folder : folder + "/news";
}

QString noProjectText() {
  return ObjectsPane::tr(
      "<h3>No project is open</h3><p>Choose one on the left and press Return to enter it,<br>or "
      "make one with Ctrl+N.</p>");
}

}  // namespace

ObjectsPane::ObjectsPane(QWidget* parent)
    : QWidget(parent),
      news_(newsFolder()),
      tabs_(new QTabBar),
      search_(new QLineEdit),
      stack_(new QStackedWidget),
      empty_(new QLabel),
      within_(new QToolButton) {
  tabs_->setObjectName(QStringLiteral("kinds"));
  tabs_->setAccessibleName(tr("Kinds of objects"));
  tabs_->setDrawBase(false);
  tabs_->setExpanding(false);
  tabs_->setUsesScrollButtons(true);
  // So that what is dragged reaches another kind's list.
  tabs_->setChangeCurrentOnDrag(true);
  tabs_->setAcceptDrops(true);
  for (auto* scroll : tabs_->findChildren<QToolButton*>()) scroll->setFocusPolicy(Qt::NoFocus);
  search_->setObjectName(QStringLiteral("search"));
  search_->setPlaceholderText(tr("Narrow the list by name (Ctrl+F)"));
  search_->setAccessibleName(tr("Narrow the list by name"));
  search_->setClearButtonEnabled(true);
  search_->installEventFilter(this);
  // Where the window is too narrow for the whole of it, its tool tip has it.
  search_->setToolTip(search_->placeholderText());
  search_->setMaximumWidth(
      std::max(320, search_->fontMetrics().horizontalAdvance(search_->placeholderText()) + 60));
  search_->setMinimumWidth(60);
  empty_->setAlignment(Qt::AlignCenter);
  empty_->setWordWrap(true);
  empty_->setProperty("role", "quiet");
  empty_->setMargin(16);
  empty_->setObjectName(QStringLiteral("empty"));
  for (std::size_t i = 0; i < kObjectKinds; ++i) {
    tabs_->addTab({});
    lists_[i] = makeList(static_cast<ObjectKind>(i));
    stack_->addWidget(lists_[i].view);
  }
  stack_->addWidget(empty_);
  auto* tools = new QHBoxLayout;
  tools->setContentsMargins(10, 8, 10, 8);
  tools->addWidget(search_, 1);
  within_->setObjectName(QStringLiteral("within"));
  within_->setProperty("role", "button");
  within_->setToolTip(tr("Show everything again (Escape)"));
  within_->hide();
  connect(within_, &QToolButton::clicked, this, &ObjectsPane::showAll);
  tools->addWidget(within_);
  tools->addStretch();
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addWidget(tabs_);
  layout->addLayout(tools);
  layout->addWidget(stack_, 1);
  connect(tabs_, &QTabBar::currentChanged, this, &ObjectsPane::showKind);
  connect(search_, &QLineEdit::textChanged, this, &ObjectsPane::narrow);
  keepNews_.setSingleShot(true);
  connect(&keepNews_, &QTimer::timeout, this, [this] { news_.save(); });
  showTitles();
  showEmptiness();
}

ObjectsPane::List ObjectsPane::makeList(ObjectKind kind) {
  List list{new ObjectsModel(kind, news_, this), new ObjectsProxy(this), new QTreeView, nullptr};
  list.proxy->setSourceModel(list.model);
  list.proxy->setSortRole(ObjectsModel::eSortRole);
  QTreeView& view = *list.view;
  view.setModel(list.proxy);
  view.setRootIsDecorated(false);
  view.setUniformRowHeights(true);
  view.setAllColumnsShowFocus(true);
  view.setSelectionMode(QAbstractItemView::ExtendedSelection);
  view.setContextMenuPolicy(Qt::CustomContextMenu);
  view.setSortingEnabled(true);
  view.setDragEnabled(true);
  view.setAcceptDrops(kind == ObjectKind::eBins || kind == ObjectKind::eRacks);
  connect(list.model, &ObjectsModel::dropped, this,
          [this, kind](const QString& container, const QStringList& cookies) {
            Q_EMIT dropped(kind, container, cookies);
          });
  view.sortByColumn(0, Qt::AscendingOrder);
  // ChoiceKeeper reads the scroll bar as a row number.
  view.setVerticalScrollMode(QAbstractItemView::ScrollPerItem);
  view.setTextElideMode(Qt::ElideMiddle);
  view.setItemDelegateForColumn(ObjectsModel::eName, new BadgesDelegate(&view));
  list.columns = makeColumns(view, *list.model);
  view.setObjectName(QString::fromStdString(familyOf(kind)) + QStringLiteral("List"));
  view.setAccessibleName(list.model->title());
  new ArrowKeys(view);
  view.installEventFilter(this);
  list.keeper = new ChoiceKeeper(*list.model, *list.proxy, view, this);
  connect(list.model, &ObjectsModel::mayWanted, this, &ObjectsPane::mayWanted);
  connect(view.selectionModel(), &QItemSelectionModel::selectionChanged, this,
          &ObjectsPane::choiceChanged);
  connect(view.selectionModel(), &QItemSelectionModel::currentChanged, this,
          &ObjectsPane::choiceChanged);
  connect(&view, &QTreeView::customContextMenuRequested, this,
          [this, v = list.view](QPoint at) { Q_EMIT menuWanted(v->viewport()->mapToGlobal(at)); });
  connect(&view, &QTreeView::clicked, this, [this] {
    for (const ObjectRow& row : chosen()) markSeen(row.key);
  });
  connect(&view, &QTreeView::activated, this, [this](const QModelIndex&) {
    const auto rows = chosen();
    if (!rows.empty()) Q_EMIT opened(rows.front());
  });
  return list;
}

const ObjectsPane::List& ObjectsPane::list(ObjectKind kind) const {
  return lists_[static_cast<std::size_t>(kind)];
}

ObjectsModel& ObjectsPane::model(ObjectKind kind) const { return *list(kind).model; }

QTreeView& ObjectsPane::view(ObjectKind kind) const { return *list(kind).view; }

const ObjectRows& ObjectsPane::rows(ObjectKind kind) const { return list(kind).model->rows(); }

void ObjectsPane::show(const Snapshot& snapshot) {
  hasProject_ = !snapshot.project.cookie.isEmpty();
  const bool isOther = project_ != snapshot.project.cookie;
  project_ = snapshot.project.cookie;
  // What was looked for in one project would hide the next one's objects.
  if (isOther) search_->clear();
  if (isOther) opened_.clear();
  news_.open(project_, snapshot.user);
  for (std::size_t i = 0; i < kObjectKinds; ++i) {
    if (isOther) lists_[i].startAfresh();
    takeRows(lists_[i], snapshot.objects[i]);
  }
  list(ObjectKind::eEdits).model->setPeople(whereaboutsOf(snapshot.presence, project_).edits);
  keepToOpened();
  showTitles();
  showEmptiness();
  lacksChoice_ = lacksChoice_ || isOther;
  if (lacksChoice_) chooseFirst();
}

void ObjectsPane::List::startAfresh() const {
  view->selectionModel()->clear();
  model->startAfresh();
  keeper->startAfresh();
}

void ObjectsPane::takeRows(const List& list, const Shared<ObjectRows>& rows) {
  isChoosing_ = true;
  list.keeper->beforeRows();
  list.model->setRows(rows);
  list.keeper->afterRows();
  isChoosing_ = false;
}

// Chooses the first edit of an entered project, unless the user has chosen one before it was
// listed.
void ObjectsPane::chooseFirst() {
  const List& edits = list(ObjectKind::eEdits);
  if (edits.proxy->rowCount() == 0) return;
  lacksChoice_ = false;
  if (edits.view->currentIndex().isValid()) return;
  isChoosing_ = true;
  edits.view->setCurrentIndex(edits.proxy->index(0, 0));
  isChoosing_ = false;
}

void ObjectsPane::takeAnswers(const QHash<QString, bool>& answers) {
  list(ObjectKind::eEdits).model->takeAnswers(answers);
}

void ObjectsPane::showTitles() {
  for (std::size_t i = 0; i < kObjectKinds; ++i) {
    const ObjectsModel& model = *lists_[i].model;
    const int tab = static_cast<int>(i);
    const int news = model.newsCount();
    lists_[i].columns->setSecondEmpty(news == 0);
    tabs_->setTabText(tab, model.tabText());
    tabs_->setTabIcon(tab, news > 0 ? icon(Glyph::eChanged, colours().accent) : QIcon());
    tabs_->setTabToolTip(tab,
                         news > 0 ? tr("%Ln new or changed by others", nullptr, news) : QString());
  }
  if (news_.hasChanged() && !keepNews_.isActive()) keepNews_.start(kKeepNewsMs);
}

void ObjectsPane::showEmptiness() {
  const List& shown = list(kind());
  const bool isEmpty = shown.model->rowCount() == 0;
  const bool isNarrowed = !isEmpty && shown.proxy->rowCount() == 0;
  search_->setVisible(!isEmpty);
  if (isEmpty) {
    empty_->setText(hasProject_ ? emptyText(kind()) : noProjectText());
  } else if (isNarrowed && !opened_.isEmpty() && search_->text().isEmpty()) {
    empty_->setText(QStringLiteral("<h3>%1</h3>").arg(tr("Nothing of this kind is in it")));
  } else if (isNarrowed) {
    empty_->setText(tr("<h3>No name contains \"%1\"</h3>").arg(search_->text().toHtmlEscaped()));
  }
  QWidget* const page = isEmpty || isNarrowed ? static_cast<QWidget*>(empty_) : shown.view;
  if (stack_->currentWidget() != page) stack_->setCurrentWidget(page);
}

ObjectKind ObjectsPane::kind() const {
  return static_cast<ObjectKind>(std::max(0, tabs_->currentIndex()));
}

void ObjectsPane::setKind(ObjectKind kind) { tabs_->setCurrentIndex(static_cast<int>(kind)); }

void ObjectsPane::showKind() {
  // All lists share the search field, but each has its own filter.
  narrow(search_->text());
  Q_EMIT choiceChanged();
}

void ObjectsPane::narrow(const QString& text) {
  list(kind()).proxy->narrow(text);
  showEmptiness();
}

std::vector<ObjectRow> ObjectsPane::chosen() const {
  std::vector<ObjectRow> rows;
  const List& shown = list(kind());
  const QModelIndex current = shown.view->currentIndex();
  QModelIndexList selected = shown.view->selectionModel()->selectedRows();
  std::ranges::sort(selected, {}, &QModelIndex::row);
  for (const QModelIndex& index : selected) {
    const ObjectRow& row = shown.model->at(shown.proxy->mapToSource(index).row());
    // The current row first: actions on a single object take that one.
    rows.insert(index.row() == current.row() ? rows.begin() : rows.end(), row);
  }
  return rows;
}

std::optional<ObjectRow> ObjectsPane::find(const QString& cookie) const {
  for (const List& each : lists_) {
    const int row = each.model->rowOf(cookie);
    if (row >= 0) return each.model->at(row);
  }
  return std::nullopt;
}

void ObjectsPane::choose(ObjectKind kind, const QString& key) {
  const int row = list(kind).model->rowOf(key);
  if (row < 0) return;
  setKind(kind);
  const List& shown = list(kind);
  const auto place = [&] { return shown.proxy->mapFromSource(shown.model->index(row, 0)); };
  if (!place().isValid()) search_->clear();
  if (!place().isValid()) showAll();  // it is not in the bin that is open
  const QModelIndex index = place();
  shown.view->setCurrentIndex(index);
  shown.view->scrollTo(index);
}

void ObjectsPane::markSeen(const QString& key) {
  ObjectsModel& model = *list(kind()).model;
  if (const int row = model.rowOf(key); row >= 0) model.markSeen(row);
  showTitles();
}

void ObjectsPane::markAllSeen() {
  for (const List& each : lists_) each.model->markAllSeen();
  showTitles();
}

bool ObjectsPane::hasNews() const {
  return std::ranges::any_of(lists_, [](const List& each) { return each.model->newsCount() > 0; });
}

void ObjectsPane::showWithin(ObjectKind kind, const QString& key) {
  const int row = list(kind).model->rowOf(key);
  if (row < 0) return;
  opened_ = key;
  openedKind_ = kind;
  search_->clear();
  keepToOpened();
  const QStringList listed = list(kind).model->at(row).contents;
  const QSet<QString> contents(listed.begin(), listed.end());
  const auto holds = [&contents](const List& each) {
    return std::ranges::any_of(each.model->rows(), [&contents](const ObjectRow& object) {
      return contents.contains(object.cookie);
    });
  };
  const auto found = std::ranges::find_if(lists_, holds);
  setKind(found == lists_.end() ? ObjectKind::eEdits : found->model->kind());
  showEmptiness();
  view(this->kind()).setFocus();
}

void ObjectsPane::showAll() {
  opened_.clear();
  keepToOpened();
  showEmptiness();
}

// A container that is gone, or that another project has, is not open any more.
void ObjectsPane::keepToOpened() {
  const ObjectsModel& model = *list(openedKind_).model;
  const int row = opened_.isEmpty() ? -1 : model.rowOf(opened_);
  std::optional<QSet<QString>> cookies;
  if (row < 0) opened_.clear();
  if (row >= 0) {
    const QStringList& contents = model.at(row).contents;
    cookies.emplace(contents.begin(), contents.end());
    within_->setText(tr("In %1  ✕").arg(menuText(shownName(model.at(row)))));
  }
  for (const List& each : lists_) each.proxy->keepTo(cookies);
  within_->setVisible(row >= 0);
}

void ObjectsPane::showFound(const QString& text) {
  showAll();
  setKind(ObjectKind::eEdits);
  search_->setText(text);
  view(ObjectKind::eEdits).setFocus();
}

QStringList ObjectsPane::namesWith(const QString& text) const {
  QStringList names;
  for (const List& each : lists_) {
    if (text.isEmpty() || each.model->kind() == ObjectKind::eFilters) continue;
    for (const ObjectRow& row : each.model->rows()) {
      if (row.name.contains(text, Qt::CaseInsensitive)) names << shownName(row);
    }
  }
  return names;
}

namespace {

QString columnsKey(ObjectKind kind, const char* what) {
  return QStringLiteral("columns/%1/%2")
      .arg(QString::fromStdString(familyOf(kind)), QLatin1String(what));
}

}  // namespace

// By what the columns show: a later program may have others, in another order.
void ObjectsPane::saveColumns(QSettings& kept) const {
  for (const List& each : lists_) {
    QVariantList hidden;
    for (const int column : each.columns->unwanted()) hidden << each.model->columnAt(column);
    const ObjectKind kind = each.model->kind();
    const QHeaderView& header = *each.view->header();
    kept.setValue(columnsKey(kind, "hidden"), hidden);
    kept.setValue(columnsKey(kind, "sortedBy"),
                  each.model->columnAt(std::max(0, header.sortIndicatorSection())));
    kept.setValue(columnsKey(kind, "isDescending"),
                  header.sortIndicatorOrder() == Qt::DescendingOrder);
  }
}

void ObjectsPane::restoreColumns(QSettings& kept) {
  for (const List& each : lists_) {
    const ObjectKind kind = each.model->kind();
    const QVariantList hidden = kept.value(columnsKey(kind, "hidden")).toList();
    const int sortedBy = kept.value(columnsKey(kind, "sortedBy")).toInt();
    const bool isDescending = kept.value(columnsKey(kind, "isDescending")).toBool();
    std::set<int> unwanted;
    for (int column = 0; column < each.model->columnCount(); ++column) {
      const int shows = each.model->columnAt(column);
      const auto isShown = [shows](const QVariant& one) { return one.toInt() == shows; };
      if (column > 0 && std::ranges::any_of(hidden, isShown)) unwanted.insert(column);
      if (shows != sortedBy) continue;
      each.view->sortByColumn(column, isDescending ? Qt::DescendingOrder : Qt::AscendingOrder);
    }
    each.columns->setUnwanted(unwanted);
  }
}

void ObjectsPane::offerColumns(QMenu& menu) { list(kind()).columns->offer(menu); }

void ObjectsPane::startSearch() {
  search_->setFocus(Qt::ShortcutFocusReason);
  search_->selectAll();
}

namespace {

/// Whether a field takes this key of the window's menus for its own: line end, cut to the end, cut
/// all.
bool isMenuKeyOfAField(const QKeyEvent& event) {
  const int key = event.key();
  return event.modifiers() == Qt::ControlModifier &&
         (key == Qt::Key_E || key == Qt::Key_K || key == Qt::Key_U);
}

}  // namespace

// Escape takes the whole list back, and once it is whole leaves the field, as Down and Return do.
bool ObjectsPane::eventFilter(QObject* watched, QEvent* event) {
  // Somebody who asks for a new edit would type its name into the search.
  if (watched == search_ && event->type() == QEvent::ShortcutOverride &&
      isMenuKeyOfAField(*static_cast<QKeyEvent*>(event))) {
    event->ignore();
    return true;
  }
  const bool isKey = event->type() == QEvent::KeyPress;
  if (isKey && watched != search_) return takeListKey(*static_cast<QKeyEvent*>(event));
  if (!isKey) return QWidget::eventFilter(watched, event);
  const int key = static_cast<QKeyEvent*>(event)->key();
  const bool isEscape = key == Qt::Key_Escape;
  if (isEscape && !search_->text().isEmpty()) {
    search_->clear();
    return true;
  }
  if (!isEscape && key != Qt::Key_Down && key != Qt::Key_Return && key != Qt::Key_Enter)
    return false;
  leaveSearch();
  return !isEscape;  // which also closes a message
}

// In a list that is narrowed, Escape takes the whole list back, too.
bool ObjectsPane::takeListKey(const QKeyEvent& event) {
  const bool isNarrowed = !search_->text().isEmpty();
  if (event.key() != Qt::Key_Escape || (!isNarrowed && opened_.isEmpty())) return false;
  isNarrowed ? search_->clear() : showAll();
  QTreeView& view = *list(kind()).view;
  view.scrollTo(view.currentIndex());
  return true;
}

// Icons keep the colours in which they were drawn.
void ObjectsPane::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::PaletteChange) showTitles();
}

void ObjectsPane::leaveSearch() {
  QTreeView& view = *list(kind()).view;
  if (!view.isVisible()) return;
  view.setFocus(Qt::OtherFocusReason);
  if (!view.selectionModel()->hasSelection()) view.setCurrentIndex(view.model()->index(0, 0));
}

}  // namespace korvel
