#include "app/window/Question.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>

#include "app/window/Texts.h"

namespace korvel {

namespace {

constexpr int kMostRows = 8;  // in sight; more are scrolled to

QListWidget* listOf(const QStringList& things) {
  auto* list = new QListWidget;
  list->setObjectName(QStringLiteral("things"));
  list->setAccessibleName(QStringLiteral("What this is about"));
  list->setSelectionMode(QAbstractItemView::NoSelection);
  for (const QString& thing : things) list->addItem(oneLine(thing));
  const int rows = std::min<int>(kMostRows, static_cast<int>(things.size()));
  list->setFixedHeight(rows * list->sizeHintForRow(0) + 2 * list->frameWidth() + 4);
  return list;
}

}  // namespace

Question::Question(const QString& name, const QString& title, const QString& text,
                   const QStringList& things, QWidget* parent)
    : QDialog(parent), buttons_(new QDialogButtonBox(QDialogButtonBox::Cancel)) {
  setObjectName(name);
  setWindowTitle(plainTitle(title));
  setAttribute(Qt::WA_DeleteOnClose);
  auto* label = new QLabel(text);
  label->setObjectName(QStringLiteral("question"));
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(true);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(16, 16, 16, 12);
  layout->setSpacing(12);
  layout->addWidget(label);
  if (!things.isEmpty()) {
    things_ = listOf(things);
    layout->addWidget(things_);
  }
  layout->addWidget(buttons_);
  setMinimumWidth(260);
  resize(440, sizeHint().height());
  buttons_->button(QDialogButtonBox::Cancel)->setDefault(true);
  connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);
  connect(this, &QDialog::finished, parent, [this] {
    const std::function<void()> next = chosen_ ? chosen_ : otherwise_;
    if (next) next();
  });
}

QPushButton* Question::addAnswer(const QString& text, const std::function<void()>& run) {
  QPushButton* const button = buttons_->addButton(text, QDialogButtonBox::ActionRole);
  button->setAutoDefault(false);
  connect(button, &QPushButton::clicked, this, [this, run] {
    chosen_ = run;
    accept();
  });
  return button;
}

void Question::answer(const QString& text, const std::function<void()>& run) {
  addAnswer(text, run);
}

void Question::usualAnswer(const QString& text, const std::function<void()>& run) {
  QPushButton* const button = addAnswer(text, run);
  button->setDefault(true);
  button->setFocus();
}

void Question::setThing(int at, const QString& text) {
  if (things_ && at < things_->count()) things_->item(at)->setText(oneLine(text));
}

void Question::ask() { open(); }

}  // namespace korvel
