#include "app/window/MessageBar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QStyle>
#include <QToolButton>
#include <algorithm>
#include <utility>

#include "app/window/Appearance.h"
#include "app/window/Icons.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

constexpr int kLongestBarText = 400;  // letters; the whole text is in the tool tip

const char* roleOf(MessageBar::Kind kind) {
  if (kind == MessageBar::Kind::eError) return "bar-error";
  return kind == MessageBar::Kind::eNote ? "bar-note" : "bar-change";
}

QIcon signOf(MessageBar::Kind kind) {
  if (kind == MessageBar::Kind::eError) return icon(Glyph::eProblem, colours().bad);
  if (kind == MessageBar::Kind::eChange) return icon(Glyph::eChanged, colours().warn);
  return icon(Glyph::eBell, colours().accent);
}

}  // namespace

MessageBar::MessageBar(const QString& name, QWidget* parent)
    : QFrame(parent),
      sign_(new QLabel),
      label_(new QLabel),
      buttons_{new QToolButton, new QToolButton, new QToolButton},
      close_(new QToolButton) {
  setObjectName(name);
  label_->setObjectName(name + QStringLiteral("Text"));
  label_->setWordWrap(true);
  label_->setTextFormat(Qt::PlainText);
  label_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  label_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  close_->setAutoRaise(true);
  close_->setToolTip(QStringLiteral("Close (Esc)"));
  close_->setAccessibleName(QStringLiteral("Close this message"));
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(12, 8, 8, 8);
  layout->addWidget(sign_, 0, Qt::AlignTop);
  layout->addWidget(label_, 1);
  for (int i = 0; QToolButton * button : buttons_) {
    button->setObjectName(name + QStringLiteral("Button") +
                          (i > 0 ? QString::number(i) : QString()));
    button->hide();
    layout->addWidget(button, 0, Qt::AlignVCenter);
    connect(button, &QToolButton::clicked, this, [this, i] { Q_EMIT acted(i); });
    ++i;
  }
  layout->addWidget(close_, 0, Qt::AlignTop);
  connect(close_, &QToolButton::clicked, this, &QWidget::hide);
  hide();
}

void MessageBar::tell(Kind kind, const QString& text) {
  text_ = text;
  offer({});
  setProperty("role", roleOf(kind));
  style()->unpolish(this);
  style()->polish(this);
  sign_->setPixmap(signOf(kind).pixmap(18, 18));
  close_->setIcon(icon(Glyph::eClose, colours().quiet));
  setAccessibleName(text);
  showText();
  show();
}

void MessageBar::offer(const QStringList& actions) {
  for (qsizetype i = 0; QToolButton * button : buttons_) {
    const QString action = actions.value(i++);
    button->setText(action);
    button->setVisible(!action.isEmpty());
  }
}

void MessageBar::setLines(Lines lines) {
  if (std::exchange(lines_, lines) == lines) return;
  label_->setWordWrap(lines == Lines::eAll);
  showText();
}

void MessageBar::showText() {
  QString shown =
      text_.size() > kLongestBarText ? text_.left(kLongestBarText) + QStringLiteral("…") : text_;
  if (lines_ == Lines::eOne) {
    shown = fontMetrics().elidedText(oneLine(shown), Qt::ElideRight, label_->width());
  }
  label_->setText(shown);
  label_->setToolTip(shown == text_ ? QString() : plainTip(text_));
  const int height = lines_ == Lines::eAll ? label_->heightForWidth(label_->width()) : 0;
  label_->setMinimumHeight(std::max(0, height));
}

void MessageBar::resizeEvent(QResizeEvent* event) {
  QFrame::resizeEvent(event);
  showText();
}

}  // namespace korvel
