#include "app/window/NotificationsPane.h"

#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QVBoxLayout>

#include "app/window/Appearance.h"
#include "app/window/Icons.h"
#include "app/window/LongText.h"

namespace {

constexpr qsizetype kLongestLine = 300;

}  // namespace

NotificationsPane::NotificationsPane(QWidget* parent)
    : QWidget(parent),
      list_(new QListWidget),
      hint_(new QLabel(QStringLiteral("Nothing yet. What colleagues write to you shows here."))),
      whole_(new QPlainTextEdit) {
  list_->setObjectName(QStringLiteral("notifications"));
  list_->setAccessibleName(QStringLiteral("Notifications"));
  list_->setUniformItemSizes(true);
  list_->setTextElideMode(Qt::ElideRight);
  list_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  hint_->setProperty("role", "quiet");
  hint_->setWordWrap(true);
  hint_->setMargin(12);
  whole_->setReadOnly(true);
  whole_->setMaximumHeight(90);
  whole_->setTabChangesFocus(true);
  whole_->setAccessibleName(QStringLiteral("The whole notification"));
  whole_->hide();
  list_->hide();
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addWidget(hint_, 0, Qt::AlignTop);
  layout->addWidget(list_, 1);
  layout->addWidget(whole_);
  connect(list_, &QListWidget::currentItemChanged, this, &NotificationsPane::showChosen);
}

void NotificationsPane::add(const std::vector<NotificationLine>& lines) {
  if (lines.empty()) return;
  hint_->hide();
  list_->show();
  for (const NotificationLine& line : lines) {
    auto* item = new QListWidgetItem(icon(Glyph::eBell, colours().accent),
                                     line.time.toString(QStringLiteral("HH:mm:ss  ")) +
                                         line.text.left(kLongestLine).simplified());
    item->setData(Qt::UserRole, line.text);
    item->setToolTip(line.time.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")));
    list_->insertItem(0, item);
  }
  while (list_->count() > kMost) delete list_->takeItem(list_->count() - 1);
}

void NotificationsPane::showChosen() {
  const QListWidgetItem* item = list_->currentItem();
  whole_->setVisible(item != nullptr);
  if (item) showLongText(*whole_, item->data(Qt::UserRole).toString());
}
