#include "app/window/TrashDialog.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <utility>

#include "app/window/Lists.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

enum TrashColumn { eTrashName, eTrashKind, eTrashOwner, eTrashTime, eTrashBy, eTrashSize };

constexpr QSize kTrashSize{720, 360};

QTreeWidgetItem* trashItem(const TrashRow& row) {
  const QString name = oneLine(row.name.isEmpty() ? row.key : row.name);
  auto* item = new QTreeWidgetItem({name, row.kind, oneLine(row.owner), shownTime(row.deleted),
                                    oneLine(row.by), QLocale().formattedDataSize(row.size, 0)});
  item->setData(eTrashName, Qt::UserRole, row.key);
  item->setToolTip(eTrashName, plainTip(row.problem.isEmpty() ? row.name : row.problem));
  item->setTextAlignment(eTrashSize, Qt::AlignRight | Qt::AlignVCenter);
  return item;
}

}  // namespace

TrashDialog::TrashDialog(QWidget* parent)
    : QDialog(parent), list_(new QTreeWidget), hint_(new QLabel) {
  setObjectName(QStringLiteral("trashDialog"));
  setWindowTitle(QStringLiteral("Trash of the project"));
  setAttribute(Qt::WA_DeleteOnClose);
  list_->setObjectName(QStringLiteral("trash"));
  list_->setAccessibleName(QStringLiteral("Deleted objects"));
  new ArrowKeys(*list_);
  list_->setHeaderLabels({QStringLiteral("Name"), QStringLiteral("Kind"), QStringLiteral("Owner"),
                          QStringLiteral("Deleted"), QStringLiteral("By"), QStringLiteral("Size")});
  list_->setRootIsDecorated(false);
  list_->setUniformRowHeights(true);
  list_->setAllColumnsShowFocus(true);
  list_->setTextElideMode(Qt::ElideMiddle);
  list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  const int widths[] = {220, 50, 90, 130, 90};
  for (int column = 0; const int width : widths) list_->setColumnWidth(column++, width);
  hint_->setObjectName(QStringLiteral("trashHint"));
  hint_->setProperty("role", "quiet");
  hint_->setWordWrap(true);
  hint_->setTextFormat(Qt::PlainText);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
  restore_ = buttons->addButton(QStringLiteral("&Restore"), QDialogButtonBox::ActionRole);
  empty_ = buttons->addButton(QStringLiteral("&Empty the trash…"), QDialogButtonBox::ActionRole);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(12, 12, 12, 12);
  layout->addWidget(hint_);
  layout->addWidget(list_, 1);
  layout->addWidget(buttons);
  // Not larger than the window, which may be on a small screen.
  const QSize room = parent ? parent->window()->size() : kTrashSize;
  resize(kTrashSize.boundedTo(room));
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  connect(list_, &QTreeWidget::itemSelectionChanged, this, &TrashDialog::enable);
  connect(restore_, &QPushButton::clicked, this, [this] { Q_EMIT restoreWanted(chosen()); });
  connect(empty_, &QPushButton::clicked, this, [this] { Q_EMIT emptyWanted(rows_.size()); });
  enable();
}

void TrashDialog::take(const TrashPtr& trash) {
  hint_->setText(!trash->problem.isEmpty() ? trash->problem
                 : trash->rows.empty()
                     ? QStringLiteral("The trash is empty.")
                     : QStringLiteral("What is deleted stays here until the trash is emptied. "
                                      "Everybody in the project may take it back."));
  if (rows_ != trash->rows) {
    rows_ = trash->rows;
    fill();
  }
  enable();
}

void TrashDialog::fill() {
  // By key: a row that stays keeps its selection.
  const QStringList before = chosen();
  list_->clear();
  for (const TrashRow& row : rows_) {
    QTreeWidgetItem* const item = trashItem(row);
    list_->addTopLevelItem(item);
    item->setSelected(before.contains(row.key));
  }
  // What was deleted last is most likely what is wanted back.
  const bool isFirst = !rows_.empty() && !std::exchange(isFilled_, true);
  if (isFirst) list_->setCurrentItem(list_->topLevelItem(0));
}

QStringList TrashDialog::chosen() const {
  QStringList keys;
  for (const QTreeWidgetItem* item : list_->selectedItems()) {
    keys << item->data(eTrashName, Qt::UserRole).toString();
  }
  return keys;
}

void TrashDialog::enable() {
  restore_->setEnabled(!list_->selectedItems().isEmpty());
  restore_->setToolTip(restore_->isEnabled() ? QString()
                                             : QStringLiteral("Choose what is to come back."));
  empty_->setEnabled(!rows_.empty());
  empty_->setToolTip(rows_.empty() ? QStringLiteral("It is empty already.") : QString());
}

}  // namespace korvel
