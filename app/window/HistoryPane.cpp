#include "app/window/HistoryPane.h"

#include <QHBoxLayout>
#include <QHideEvent>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "app/window/Lists.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

enum VersionColumn { eTime, eUser, eSize, eChanges };

constexpr int kRoomForSizes = 800;
constexpr int kVersionRole = Qt::UserRole;

QString versionChanges(const VersionRow& row) {
  if (!row.problem.isEmpty()) return row.problem;
  const QString changes = row.changes.isEmpty() ? HistoryPane::tr("the first kept") : row.changes;
  return row.isNow ? HistoryPane::tr("as it is now: %1").arg(changes) : changes;
}

QTreeWidgetItem* versionItem(const VersionRow& row) {
  auto* item =
      new QTreeWidgetItem({shownTime(row.time), oneLine(row.user),
                           QLocale().formattedDataSize(row.size, 0), oneLine(versionChanges(row))});
  item->setData(eTime, kVersionRole, row.version);
  item->setToolTip(eUser, plainTip(row.user));
  item->setToolTip(eChanges, plainTip(versionChanges(row)));
  item->setTextAlignment(eSize, Qt::AlignRight | Qt::AlignVCenter);
  return item;
}

}  // namespace

QString versionTitle(const VersionRow& version) {
  const QString when = shownTime(version.time);
  return version.user.isEmpty() ? when : listed({when, oneLine(version.user)});
}

HistoryPane::HistoryPane(QWidget* parent)
    : QWidget(parent),
      title_(new ElidedLabel),
      hint_(new QLabel),
      list_(new QTreeWidget),
      changes_(new QPlainTextEdit),
      restore_(new QPushButton(tr("&Restore this version"))) {
  build();
  connect(list_, &QTreeWidget::currentItemChanged, this, &HistoryPane::takeChoice);
  connect(restore_, &QPushButton::clicked, this, [this] {
    if (const auto version = chosen()) Q_EMIT restoreWanted(edit_, *version);
  });
  showHint();
}

void HistoryPane::build() {
  title_->setProperty("role", "heading");
  title_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  hint_->setProperty("role", "quiet");
  hint_->setWordWrap(true);
  hint_->setMargin(12);
  hint_->setTextFormat(Qt::PlainText);
  list_->setObjectName(QStringLiteral("versions"));
  list_->setAccessibleName(tr("Versions of the chosen edit"));
  new ArrowKeys(*list_);
  list_->setHeaderLabels({tr("Saved"), tr("By"), tr("Size"), tr("What changed")});
  list_->setRootIsDecorated(false);
  list_->setUniformRowHeights(true);
  list_->setAllColumnsShowFocus(true);
  list_->setTextElideMode(Qt::ElideRight);
  setColumnWidths(*list_, {widthOfTimes(*list_), 90, 70});
  changes_->setObjectName(QStringLiteral("versionChanges"));
  changes_->setAccessibleName(tr("What changed since the chosen version"));
  changes_->setReadOnly(true);
  changes_->setTabChangesFocus(true);
  restore_->setObjectName(QStringLiteral("restoreVersion"));
  auto* top = new QHBoxLayout;
  top->setContentsMargins(10, 6, 10, 6);
  top->addWidget(title_, 1);
  top->addWidget(restore_);
  auto* both = new QSplitter(Qt::Horizontal);
  both->setHandleWidth(1);
  both->addWidget(list_);
  both->addWidget(changes_);
  both->setStretchFactor(0, 3);
  both->setStretchFactor(1, 2);
  both->setSizes({600, 400});
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addLayout(top);
  layout->addWidget(hint_, 0, Qt::AlignTop);
  layout->addWidget(both, 1);
}

void HistoryPane::showEdit(const std::optional<ObjectRow>& row) {
  const ObjectRow now = row.value_or(ObjectRow());
  const ObjectRow before = std::exchange(edit_, now);
  if (now == before) return;
  if (now.cookie != before.cookie) {
    showNow();
    rows_.clear();
    problem_.clear();
    fill();
  }
  showHint();
  refresh();
}

void HistoryPane::setRefusal(const QString& why) {
  if (std::exchange(refusal_, why) != why) showHint();
}

void HistoryPane::refresh() {
  // Versions are read from the share: only while they can be seen.
  if (isVisible() && !edit_.cookie.isEmpty()) Q_EMIT versionsWanted(edit_.cookie);
}

void HistoryPane::takeVersions(const VersionsPtr& versions) {
  // A late answer about an edit that was chosen before.
  if (versions->cookie != edit_.cookie) return;
  problem_ = versions->problem;
  if (rows_ != versions->rows) {
    rows_ = versions->rows;
    fill();
  }
  showHint();
}

// Keeps the chosen version while other rows come and go. A version that was thinned out is no
// longer chosen.
void HistoryPane::fill() {
  const bool isKept = chosen().has_value();
  // Filling the list changes the current item, which is no choice of the user.
  isFilling_ = true;
  list_->clear();
  for (const VersionRow& row : rows_) {
    QTreeWidgetItem* const item = versionItem(row);
    list_->addTopLevelItem(item);
    if (row.version == chosen_) list_->setCurrentItem(item);
  }
  isFilling_ = false;
  if (!isKept) showNow();
}

void HistoryPane::takeChoice() {
  const QTreeWidgetItem* const item = list_->currentItem();
  if (isFilling_ || !item) return;
  chosen_ = item->data(eTime, kVersionRole).toString();
  changes_->clear();
  showHint();
  Q_EMIT versionChosen(chosen());
}

void HistoryPane::showNow() {
  if (std::exchange(chosen_, {}).isEmpty()) return;
  isFilling_ = true;
  list_->setCurrentItem(nullptr);
  isFilling_ = false;
  showHint();
  Q_EMIT versionChosen(std::nullopt);
}

std::optional<VersionRow> HistoryPane::chosen() const {
  const auto found = std::ranges::find(rows_, chosen_, &VersionRow::version);
  if (chosen_.isEmpty() || found == rows_.end()) return std::nullopt;
  return *found;
}

void HistoryPane::takeTimeline(const TimelinePtr& timeline) {
  if (timeline->cookie != edit_.cookie || chosen_.isEmpty() || timeline->version != chosen_) return;
  QString text = timeline->problem;
  if (text.isEmpty() && timeline->changes.isEmpty()) {
    text = tr("The edit holds the same now.");
  } else if (text.isEmpty()) {
    text = tr("Since then:") + QLatin1Char('\n') + timeline->changes.join(QLatin1Char('\n'));
  }
  showLongText(*changes_, text);
}

void HistoryPane::showHint() {
  const bool hasEdit = !edit_.cookie.isEmpty();
  const auto version = chosen();
  const QString name = edit_.name.isEmpty() ? edit_.cookie : oneLine(edit_.name);
  title_->setText(hasEdit ? tr("Versions of %1").arg(name) : tr("Versions"));
  hint_->setText(!hasEdit ? tr("Choose an edit to see its versions.") : problem_);
  hint_->setVisible(!hint_->text().isEmpty());
  list_->parentWidget()->setVisible(hasEdit && problem_.isEmpty());
  restore_->setVisible(hasEdit);
  const bool isOlder = version && !version->isNow && version->problem.isEmpty();
  restore_->setEnabled(isOlder && refusal_.isEmpty());
  restore_->setToolTip(!refusal_.isEmpty() ? plainTip(refusal_)
                       : isOlder           ? QString()
                                           : tr("Choose an older version first."));
  if (!version) {
    changes_->setPlainText(tr("Choose a version to see it drawn above, with what changed since."));
  }
}

void HistoryPane::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  refresh();
}

// In a narrow pane the changes matter more than the size.
void HistoryPane::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  list_->setColumnHidden(eSize, width() < kRoomForSizes);
}

void HistoryPane::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  // A spontaneous event means a minimised window, whose state is kept.
  if (!event->spontaneous()) showNow();
}

}  // namespace korvel
