#include "app/window/TalkPanes.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QScrollBar>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

#include "app/window/Appearance.h"
#include "app/window/Texts.h"
#include "app/window/WindowLayout.h"
#include "station/ui/Desktop.h"

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

constexpr int kLongestEntry = 1'000'000;

}  // namespace

QIcon panelIcon(const QString& file) {
  const QString path = QString::fromStdString(resourceDirectory()) + QLatin1Char('/') +
                       (file.isEmpty() ? QStringLiteral("tool_messager_on.png") : file);
  if (QFileInfo::exists(path)) return QIcon(path);
  return icon(Glyph::eMessage, colours().accent);
}

PanelDock::PanelDock(QWidget* parent)
    : QDockWidget(QStringLiteral("Messages"), parent),
      recipients_(new QComboBox),
      conversation_(new ConversationView),
      entry_(new QLineEdit),
      others_(new QToolButton) {
  setObjectName(QStringLiteral("panelDock"));
  recipients_->setObjectName(QStringLiteral("recipients"));
  recipients_->setAccessibleName(QStringLiteral("Whom to write to"));
  recipients_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  recipients_->setMinimumContentsLength(6);
  recipients_->setMaxVisibleItems(14);
  auto* names = new QListView;
  // Otherwise Qt measures every name when the list opens.
  names->setUniformItemSizes(true);
  recipients_->setView(names);
  entry_->setObjectName(QStringLiteral("entry"));
  entry_->setMaxLength(kLongestEntry);
  entry_->setAccessibleName(QStringLiteral("Message"));
  auto* send = new QToolButton;
  send->setText(QStringLiteral("Send"));
  send->setProperty("role", "button");
  send->setToolTip(QStringLiteral("Send (Return)"));
  others_->setObjectName(QStringLiteral("others"));
  others_->setProperty("role", "button");
  others_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
  others_->setToolTip(QStringLiteral("What others write to you is listed there, not here"));
  auto* to = new QHBoxLayout;
  to->addWidget(new QLabel(QStringLiteral("To")));
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
  setWidget(scrolled(content));
  setFocusProxy(entry_);
  connect(recipients_, &QComboBox::textActivated, this, &PanelDock::recipientChosen);
  connect(entry_, &QLineEdit::returnPressed, this, &PanelDock::send);
  connect(send, &QToolButton::clicked, this, &PanelDock::send);
  connect(others_, &QToolButton::clicked, this, &PanelDock::notificationsWanted);
  showUnread(0);
  hide();
}

void PanelDock::send() {
  // Kept until the command has ended: a refused message comes back into the entry.
  lastSent_ = entry_->text();
  entry_->clear();
  Q_EMIT sent(recipients_->currentText(), lastSent_);
}

void PanelDock::showUnread(int count) {
  const QString text = QStringLiteral("Replies: Notifications");
  others_->setText(count == 0 ? text : QStringLiteral("%1 (%L2)").arg(text).arg(count));
  others_->setAccessibleName(others_->text());
}

void PanelDock::restoreUnsent() {
  if (entry_->text().isEmpty()) entry_->setText(lastSent_);
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
    recipients_->clear();
    recipients_->addItems(panel.recipients);
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

}  // namespace korvel
