#include "app/window/TextDialogs.h"

#include <QDialog>
#include <QFontDatabase>
#include <QInputDialog>
#include <QPlainTextEdit>
#include <QVBoxLayout>

#include "app/window/LongText.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

QPlainTextEdit& showInDialog(QWidget& parent, const QString& title) {
  auto* dialog = new QDialog(&parent);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setObjectName(QStringLiteral("answer"));
  dialog->setWindowTitle(plainTitle(title));
  auto* shown = new QPlainTextEdit;
  shown->setReadOnly(true);
  auto* layout = new QVBoxLayout(dialog);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(shown);
  dialog->resize(720, 420);
  dialog->show();
  return *shown;
}

}  // namespace

void showTable(QWidget& parent, const QString& title, const QString& text) {
  QPlainTextEdit& shown = showInDialog(parent, title);
  shown.setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  shown.setLineWrapMode(QPlainTextEdit::NoWrap);
  shown.setPlainText(text);
}

void showWholeText(QWidget& parent, const QString& title, const QString& text) {
  showLongText(showInDialog(parent, title), text);
}

void askLine(QWidget& parent, const std::function<void(const QString& line)>& take) {
  auto* dialog = new QInputDialog(&parent);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setObjectName(QStringLiteral("commandDialog"));
  dialog->setWindowTitle(QStringLiteral("Run a command"));
  dialog->setLabelText(QStringLiteral("A command as the console takes it:"));
  dialog->resize(460, dialog->sizeHint().height());
  QObject::connect(dialog, &QInputDialog::textValueSelected, &parent, [take](const QString& line) {
    if (!line.trimmed().isEmpty()) take(line);
  });
  dialog->show();
}

}  // namespace korvel
