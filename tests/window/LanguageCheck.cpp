#include "tests/window/LanguageCheck.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAction>
#include <QComboBox>
#include <QCoreApplication>
#include <QDialog>
#include <QDockWidget>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QRegularExpression>
#include <QTabBar>
#include <QTextDocumentFragment>
#include <QToolButton>
#include <QTreeView>
#include <algorithm>
#include <functional>

#include "app/window/ActionTable.h"
#include "app/window/HistoryPane.h"
#include "app/window/Texts.h"
#include "app/window/WindowLayout.h"
#include "tests/window/WindowScene.h"

namespace korvel {

QString MadeUpLanguage::translate(const char* context, const char* sourceText, const char*,
                                  int) const {
  // The names of keys are data here.
  if (qstrcmp(context, "QShortcut") == 0) return {};
  return of(QString::fromUtf8(sourceText));
}

QString MadeUpLanguage::of(const QString& text) {
  QString made;
  qsizetype letters = 0;
  // Places, markup and marks stay as they are.
  static const QRegularExpression kKept("%L?(?:\\d+|n)|<[^>]+>|&\\w+;|&|.|\\n");
  for (auto each = kKept.globalMatch(text); each.hasNext();) {
    const QString part = each.next().captured();
    const bool isLetter = part.size() == 1 && part.front().isLetter();
    letters += isLetter;
    made += isLetter ? accented(part.front()) : part;
  }
  if (letters == 0) return {};
  return '[' + made + padding(std::max<qsizetype>(0, letters * 4 / 10 - 2)) + ']';
}

QChar MadeUpLanguage::accented(QChar letter) {
  static const QString kPlain("aeiouyAEIOUY");
  static const QString kAccented(QString::fromUtf8("åéîöûÿÅÉÎÖÛÝ"));
  const qsizetype at = kPlain.indexOf(letter);
  return at < 0 ? letter : kAccented[at];
}

QString MadeUpLanguage::padding(qsizetype letters) {
  QString made;
  for (qsizetype i = 0; i < letters; ++i) {
    made += i % 5 == 0 ? QChar(' ') : QString::fromUtf8("å").front();
  }
  return made;
}

namespace {

QString withoutMarkup(const QString& text) {
  return Qt::mightBeRichText(text) ? QTextDocumentFragment::fromHtml(text).toPlainText() : text;
}

}  // namespace

void LanguageCheck::look(const QString& where) {
  where_ = where;
  // What it waits for is said by the station.
  const QString ready = MadeUpLanguage::of("Ready");
  waitFor([&] { return window_.status().busyText() == ready; }, 5000);
  // A text that has just changed has its room once all is laid out anew.
  QCoreApplication::processEvents();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
  learn();
  lookAt(window_);
  for (const QAction* action : window_.findChildren<QAction*>()) lookAt(*action);
  for (QDialog* dialog : window_.findChildren<QDialog*>()) {
    if (dialog->isVisible()) lookAt(*dialog);
  }
}

void LanguageCheck::lookAtDialog(QDialog& dialog, const QString& where) {
  where_ = where;
  QTest::qWait(50);
  lookAt(dialog);
}

void LanguageCheck::learn() {
  const SnapshotPtr& now = window_.snapshot();
  if (!now) return;
  QStringList data{now->undo, now->redo, now->project.name, now->user};
  for (const auto& rows : now->objects) {
    for (const ObjectRow& row : rows ? *rows : ObjectRows()) {
      if (!row.detail.contains('[')) data << row.detail;
      data << row.name << row.cookie << row.extra;
    }
  }
  for (const VersionRow& row : window_.history().rows()) data << row.changes << row.user;
  data << inWindowWords(window_.status().trouble());
  if (now->users) data += *now->users;
  if (now->panel) {
    data += now->panel->recipients + now->panel->lines;
    data << now->panel->title << now->panel->prompt << now->panel->tooltip;
  }
  for (const StationRow& row : now->presence.stations) data << row.user << row.host;
  if (const TimelinePtr& timeline = window_.detail().view().timeline()) {
    for (const TimelineTrack& track : timeline->tracks) {
      data << track.name;
      for (const TimelineItem& item : track.items) data << item.name << item.change;
    }
    data += timeline->changes;
  }
  for (const QString& each : data) {
    if (!each.isEmpty() && !data_.contains(each)) data_ << each;
  }
  // The longest first: one may be a part of another.
  std::ranges::stable_sort(data_, std::greater(), &QString::size);
}

void LanguageCheck::complain(const char* what, const QString& text, const QString& of) {
  const QString complaint = QString("%1: %2 \"%3\" (%4)").arg(where_, what, text, of);
  if (!told_.contains(what + text)) ADD_FAILURE() << complaint.toStdString();
  told_.insert(what + text);
}

void LanguageCheck::check(const QString& text, const char* of) {
  seen_.insert(text);
  QString left = withoutMarkup(text).remove('&');
  for (const QString& each : data_) left.remove(each);
  // Cookies and their beginnings, keys, days, initials, the plug-in, sizes.
  static const QRegularExpression kData(
      "\\b[A-Z][0-9a-f]{8,32}(-[0-9a-f]{4})?\\b|"
      "\\b((Ctrl|Alt|Shift)\\+)+\\w+|\\bDel\\b|\\b\\d+ [A-Z][a-z]{2} \\d{4}|"
      "\\b[A-Z]{2}\\b|Project ?Share [\\d.]+|\\d+ (bytes|kB|KiB|MB|MiB)");
  left.remove(kData);
  static const QRegularExpression kPlain("\\w*[aeiouyAEIOUY]\\w*");
  const QString word = kPlain.match(left).captured();
  if (!word.isEmpty()) complain("not translated", text, QString("%1, \"%2\"").arg(of, word));
}

void LanguageCheck::lookAt(const QAction& action) {
  check(action.text(), "action");
  check(action.toolTip(), "tool tip of an action");
  check(action.statusTip(), "status tip of an action");
}

void LanguageCheck::lookAt(QWidget& root) {
  lookAtOne(root);
  for (QWidget* each : root.findChildren<QWidget*>()) {
    // Dialogs and menus are looked at by themselves.
    if (each->isVisible() && each->window() == root.window()) lookAtOne(*each);
  }
}

void LanguageCheck::lookAtOne(QWidget& widget) {
  if (leftOut_.contains(&widget)) return;
  const char* const of = widget.metaObject()->className();
  for (const QString& text : {widget.toolTip(), widget.accessibleName(),
                              widget.accessibleDescription(), widget.statusTip()}) {
    check(text, of);
  }
  if (widget.isWindow() || qobject_cast<QDockWidget*>(&widget)) check(widget.windowTitle(), of);
  for (const QString& text : textsOf(widget)) check(text, of);
  lookWhetherItFits(widget);
}

QStringList LanguageCheck::textsOf(const QWidget& widget) {
  if (const auto* label = qobject_cast<const QLabel*>(&widget)) return {label->text()};
  if (const auto* button = qobject_cast<const QAbstractButton*>(&widget)) return {button->text()};
  if (const auto* box = qobject_cast<const QGroupBox*>(&widget)) return {box->title()};
  if (const auto* line = qobject_cast<const QLineEdit*>(&widget)) {
    return {line->placeholderText()};
  }
  if (const auto* text = qobject_cast<const QPlainTextEdit*>(&widget)) {
    return {text->placeholderText(), text->toPlainText()};
  }
  if (const auto* tabs = qobject_cast<const QTabBar*>(&widget)) return textsOf(*tabs);
  if (const auto* choice = qobject_cast<const QComboBox*>(&widget)) return textsOf(*choice);
  if (const auto* view = qobject_cast<const QTreeView*>(&widget)) return textsOf(*view);
  return {};
}

QStringList LanguageCheck::textsOf(const QTabBar& tabs) {
  QStringList texts;
  for (int i = 0; i < tabs.count(); ++i) texts << tabs.tabText(i) << tabs.tabToolTip(i);
  return texts;
}

QStringList LanguageCheck::textsOf(const QComboBox& choice) {
  QStringList texts;
  for (int i = 0; i < choice.count(); ++i) texts << choice.itemText(i);
  return texts;
}

QStringList LanguageCheck::textsOf(const QTreeView& view) {
  constexpr int kMostRows = 30;
  QStringList texts;
  const QAbstractItemModel& model = *view.model();
  for (int column = 0; column < model.columnCount(); ++column) {
    texts << model.headerData(column, Qt::Horizontal).toString();
    for (int row = 0; row < std::min(kMostRows, model.rowCount()); ++row) {
      const QModelIndex index = model.index(row, column);
      for (const int role :
           {int(Qt::DisplayRole), int(Qt::ToolTipRole), int(Qt::AccessibleTextRole)}) {
        texts << index.data(role).toString();
      }
    }
  }
  return texts;
}

bool LanguageCheck::isTold(const QWidget& widget, const QString& text) {
  return withoutMarkup(widget.toolTip()).contains(QString(text).remove('&'));
}

void LanguageCheck::lookWhetherItFits(const QWidget& widget) {
  const char* const of = widget.metaObject()->className();
  const auto cut = [&](const QString& text) {
    complain("cut", text, QString("%1, %2 wide").arg(of).arg(widget.width()));
  };
  if (const auto* label = qobject_cast<const QLabel*>(&widget)) {
    if (!fits(*label)) cut(label->text());
  } else if (const auto* button = qobject_cast<const QAbstractButton*>(&widget)) {
    const bool isWhole = button->text().isEmpty() || isTold(*button, button->text()) ||
                         button->sizeHint().width() <= button->width();
    if (!isWhole) cut(button->text());
  } else if (const auto* line = qobject_cast<const QLineEdit*>(&widget)) {
    const QString text = line->placeholderText();
    const int width = line->fontMetrics().horizontalAdvance(text);
    if (width + 16 > line->width() && !isTold(*line, text)) cut(text);
  } else if (const auto* tabs = qobject_cast<const QTabBar*>(&widget)) {
    lookWhetherTabsFit(*tabs);
  } else if (const auto* view = qobject_cast<const QTreeView*>(&widget)) {
    lookWhetherHeadingsFit(*view);
  } else if (const auto* bar = qobject_cast<const QMenuBar*>(&widget)) {
    lookWhetherMenusAreReached(*bar);
  } else if (const auto* dialog = qobject_cast<const QDialog*>(&widget)) {
    const int needed = dialog->layout() ? dialog->layout()->totalMinimumSize().width() : 0;
    if (needed > dialog->width()) cut(dialog->windowTitle());
  } else if (const auto* dock = qobject_cast<const QDockWidget*>(&widget)) {
    constexpr int kButtons = 44;
    const int width = dock->fontMetrics().horizontalAdvance(dock->windowTitle());
    if (width + kButtons > dock->width() && !isTold(*dock, dock->windowTitle())) {
      cut(dock->windowTitle());
    }
  }
}

bool LanguageCheck::fits(const QLabel& label) {
  const bool isElastic = dynamic_cast<const ElidedLabel*>(&label) != nullptr;
  if (isElastic || label.text().isEmpty()) return true;
  if (label.wordWrap()) return label.heightForWidth(label.width()) <= label.height() + 1;
  return label.sizeHint().width() <= label.width() || !label.toolTip().isEmpty();
}

void LanguageCheck::lookWhetherMenusAreReached(const QMenuBar& bar) {
  constexpr int kLeastButton = 10;
  const auto* const others = bar.findChild<const QToolButton*>("qt_menubar_ext_button");
  const bool isReached = others && others->isVisible() && others->width() >= kLeastButton &&
                         others->geometry().right() <= bar.width();
  for (QAction* action : bar.actions()) {
    const QRect place = bar.actionGeometry(action);
    const bool isSeen = place.width() > 0 && place.right() <= bar.width();
    if (!isSeen && !isReached) complain("not reached", action->text(), "menu");
  }
}

void LanguageCheck::lookWhetherTabsFit(const QTabBar& tabs) {
  for (int i = 0; i < tabs.count(); ++i) {
    const int width = tabs.fontMetrics().horizontalAdvance(QString(tabs.tabText(i)).remove('&'));
    if (width <= tabs.tabRect(i).width() || !tabs.tabToolTip(i).isEmpty()) continue;
    complain("cut", tabs.tabText(i), QString("tab, %1 wide").arg(tabs.tabRect(i).width()));
  }
}

void LanguageCheck::lookWhetherHeadingsFit(const QTreeView& view) {
  if (view.isHeaderHidden()) return;
  const QHeaderView& header = *view.header();
  for (int column = 0; column < header.count(); ++column) {
    if (header.isSectionHidden(column)) continue;
    const QString text = view.model()->headerData(column, Qt::Horizontal).toString();
    const int width = header.fontMetrics().horizontalAdvance(text);
    if (width + 8 > header.sectionSize(column)) {
      complain("cut", text, QString("heading, %1 wide").arg(header.sectionSize(column)));
    }
  }
}

}  // namespace korvel
