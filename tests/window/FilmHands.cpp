#include "tests/window/FilmHands.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAction>
#include <QComboBox>
#include <QLabel>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QTreeView>
#include <QTreeWidget>
#include <algorithm>
#include <optional>

#include "app/window/ActionTable.h"
#include "app/window/HistoryPane.h"
#include "tests/window/WindowScene.h"

namespace korvel {

namespace {

constexpr int kLongWaitMs = 60'000;
constexpr int kMostSteps = 200;  // from widget to widget, or from row to row

/// Whether a widget, or what is at its middle, can be seen and is not cut off there.
bool isInSight(const QWidget& widget) {
  return widget.isVisible() && widget.visibleRegion().contains(widget.rect().center());
}

QAbstractButton* findButton(const MainWindow& window, const QString& text) {
  for (QAbstractButton* button : window.findChildren<QAbstractButton*>()) {
    if (isInSight(*button) && withoutMarks(button->text()) == text) return button;
  }
  return nullptr;
}

std::string whereFocusIs() {
  const QWidget* const now = QApplication::focusWidget();
  return now ? now->metaObject()->className() + std::string(" ") + now->objectName().toStdString()
             : "nowhere";
}

QModelIndex rowNamed(const QAbstractItemView& view, const QString& name) {
  for (int row = 0; row < view.model()->rowCount(); ++row) {
    const QModelIndex index = view.model()->index(row, 0);
    if (index.data().toString() == name) return index;
  }
  return {};
}

QAction* entryOf(const QWidget& menu, const QString& text) {
  const QList<QAction*> entries = menu.actions();
  const auto found = std::ranges::find_if(
      entries, [&text](const QAction* each) { return withoutMarks(each->text()) == text; });
  return found == entries.end() ? nullptr : *found;
}

/// The menu that is open now; waits for it.
QMenu* openMenu() {
  QMenu* menu = nullptr;
  waitFor([&menu] {
    menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
    return menu != nullptr;
  });
  return menu;
}

/// An entry as the menu shows it: undoing is called by what it undoes.
QAction* entryBeginning(const QMenu& menu, const QString& text) {
  if (QAction* const whole = entryOf(menu, text)) return whole;
  for (QAction* each : menu.actions()) {
    if (withoutMarks(each->text()).startsWith(text + QLatin1Char(' '))) return each;
  }
  return nullptr;
}

struct ClipPlace {
  std::size_t track = 0;
  std::size_t item = 0;
  long frames = 0;  ///< how long it is
};

std::optional<ClipPlace> findClip(const TimelineView& view, const QString& name) {
  if (!view.timeline()) return {};
  const auto& tracks = view.timeline()->tracks;
  for (std::size_t track = 0; track < tracks.size(); ++track) {
    for (std::size_t item = 0; item < tracks[track].items.size(); ++item) {
      const TimelineItem& each = tracks[track].items[item];
      if (each.name == name) return ClipPlace{track, item, std::lround(each.length * each.rate)};
    }
  }
  return {};
}

class MouseHand : public Hand {
 public:
  using Hand::Hand;

  void enterProject(const QString& name) override {
    QTreeView& view = window().projects().projects();
    ASSERT_TRUE(waitFor([&] { return rowNamed(view, name).isValid(); }, kLongWaitMs));
    const QPoint at = view.visualRect(rowNamed(view, name)).center();
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, at);
    QTest::mouseDClick(view.viewport(), Qt::LeftButton, {}, at);
  }

  void chooseEdit(const QString& name) override { clickEdit(window(), name); }

  void menu(const QString& title, const QString& entry) override {
    QMenuBar& bar = *window().menuBar();
    QAction* const top = entryOf(bar, title);
    ASSERT_NE(top, nullptr) << title.toStdString();
    const QRect place = bar.actionGeometry(top);
    ASSERT_TRUE(bar.rect().contains(place) && !place.isEmpty())
        << title.toStdString() << " is not in the bar";
    QTest::mouseClick(&bar, Qt::LeftButton, {}, place.center());
    QMenu* const open = openMenu();
    ASSERT_NE(open, nullptr) << title.toStdString();
    QAction* const chosen = entryBeginning(*open, entry);
    ASSERT_NE(chosen, nullptr) << entry.toStdString();
    ASSERT_TRUE(chosen->isEnabled())
        << entry.toStdString() << ": " << chosen->statusTip().toStdString();
    const QPoint at = open->actionGeometry(chosen).center();
    QTest::mouseMove(open, at);
    QTest::mouseClick(open, Qt::LeftButton, {}, at);
  }

  void press(const QString& button) override {
    QAbstractButton* found = nullptr;
    ASSERT_TRUE(waitFor([&] { return (found = findButton(window(), button)) != nullptr; }))
        << button.toStdString();
    QTest::mouseClick(found, Qt::LeftButton);
  }

  void trimOut(const QString& clip, const std::function<void()>& during) override {
    TimelineView& view = window().detail().view();
    const auto place = findClip(view, clip);
    ASSERT_TRUE(place) << clip.toStdString();
    const QRect rect = view.rectOf(place->track, place->item);
    const int way = rect.width() / 3;
    const QPoint from(rect.right() - 1, rect.center().y());
    QTest::mousePress(view.viewport(), Qt::LeftButton, {}, from);
    for (int by = 1; by <= way; ++by) QTest::mouseMove(view.viewport(), from - QPoint(by, 0));
    ASSERT_NE(view.trim(), nullptr);
    during();
    QTest::mouseRelease(view.viewport(), Qt::LeftButton, {}, from - QPoint(way, 0));
  }

  void chooseVersion(int row) override {
    QTreeWidget& list = window().history().list();
    const QRect place = list.visualItemRect(list.topLevelItem(row));
    QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, place.center());
  }

  void write(const QString& to, const QString& words) override {
    QComboBox& names = window().panel().recipients();
    ASSERT_TRUE(waitFor([&] { return isInSight(names); }));
    QTest::mouseClick(&names, Qt::LeftButton);
    QAbstractItemView& list = *names.view();
    ASSERT_TRUE(waitFor([&] { return list.isVisible() && rowNamed(list, to).isValid(); }));
    // The list takes a click only once it has been open for as long as a double click lasts.
    const auto isChosen = [&] { return window().panel().state().recipient == to; };
    EXPECT_TRUE(waitFor([&] {
      if (list.isVisible()) {
        QTest::mouseClick(list.viewport(), Qt::LeftButton, {},
                          list.visualRect(rowNamed(list, to)).center());
      }
      return isChosen();
    }));
    QLineEdit& entry = window().panel().entry();
    QTest::mouseClick(&entry, Qt::LeftButton);
    QTest::keyClicks(&entry, words);
    press("Send");
  }
};

class KeyHand : public Hand {
 public:
  using Hand::Hand;

  void enterProject(const QString& name) override {
    QTreeView& view = window().projects().projects();
    ASSERT_TRUE(waitFor([&] { return rowNamed(view, name).isValid(); }, kLongWaitMs));
    goTo(view);
    walkTo(view, name);
    key(Qt::Key_O, Qt::ControlModifier);
  }

  void chooseEdit(const QString& name) override {
    key(Qt::Key_1, Qt::ControlModifier);
    walkTo(window().objects().view(ObjectKind::eEdits), name);
  }

  void menu(const QString& title, const QString& entry) override {
    QAction* const top = entryOf(*window().menuBar(), title);
    ASSERT_NE(top, nullptr) << title.toStdString();
    const QChar letter = top->text()[top->text().indexOf(QLatin1Char('&')) + 1];
    key(static_cast<Qt::Key>(letter.toUpper().unicode()), Qt::AltModifier);
    QMenu* const open = openMenu();
    ASSERT_NE(open, nullptr) << title.toStdString();
    const QAction* const chosen = entryBeginning(*open, entry);
    ASSERT_TRUE(chosen && chosen->isEnabled()) << entry.toStdString();
    for (int step = 0; open->activeAction() != chosen && step < kMostSteps; ++step)
      QTest::keyClick(open, Qt::Key_Down);
    ASSERT_EQ(open->activeAction(), chosen);
    QTest::keyClick(open, Qt::Key_Return);
    EXPECT_TRUE(waitFor([] { return !QApplication::activePopupWidget(); }));
    takeKeyboardBack();
  }

  void press(const QString& button) override {
    ASSERT_TRUE(waitFor([&] { return findButton(window(), button) != nullptr; }))
        << button.toStdString();
    const auto isThere = [&] {
      const auto* const now = qobject_cast<QAbstractButton*>(QApplication::focusWidget());
      return now && withoutMarks(now->text()) == button;
    };
    for (int step = 0; !isThere() && step < kMostSteps; ++step) key(Qt::Key_Tab);
    ASSERT_TRUE(isThere()) << button.toStdString() << ": Tab does not lead there";
    key(Qt::Key_Space);
  }

  void trimOut(const QString& clip, const std::function<void()>&) override {
    TimelineView& view = window().detail().view();
    goTo(view);
    const auto isThere = [&] { return view.chosen() && view.chosen()->name == clip; };
    // Over each track, from its end to its beginning.
    for (int row = 0; !isThere() && row < kMostSteps; ++row) {
      for (int step = 0; !isThere() && step < kMostSteps; ++step) key(Qt::Key_Left);
      for (int step = 0; !isThere() && step < kMostSteps / 10; ++step) key(Qt::Key_Right);
      if (!isThere()) key(row % 6 < 3 ? Qt::Key_Up : Qt::Key_Down);
    }
    ASSERT_TRUE(isThere()) << clip.toStdString();
    key(Qt::Key_Left, Qt::ControlModifier);
  }

  void chooseVersion(int row) override {
    goTo(window().history().list());
    key(Qt::Key_Home);
    for (int step = 0; step < row; ++step) key(Qt::Key_Down);
  }

  void write(const QString& to, const QString& words) override {
    ASSERT_TRUE(waitFor([&] {
      takeKeyboardBack();
      return window().panel().entry().hasFocus();
    })) << whereFocusIs();
    QComboBox& names = window().panel().recipients();
    for (int step = 0; !names.hasFocus() && step < kMostSteps; ++step) key(Qt::Key_Backtab);
    ASSERT_TRUE(names.hasFocus());
    key(Qt::Key_Home);
    for (int step = 0; names.currentText() != to && step < kMostSteps; ++step) key(Qt::Key_Down);
    ASSERT_EQ(names.currentText(), to);
    EXPECT_TRUE(waitFor([&] { return window().panel().state().recipient == to; }));
    for (int step = 0; !window().panel().entry().hasFocus() && step < kMostSteps; ++step)
      key(Qt::Key_Tab);
    QTest::keyClicks(&window().panel().entry(), words);
    key(Qt::Key_Return);
  }

 private:
  /// Presses a key where the keyboard is.
  void key(Qt::Key which, Qt::KeyboardModifiers with = {}) {
    takeKeyboardBack();
    QWidget* const now = QApplication::focusWidget();
    QTest::keyClick(now ? now : &window(), which, with);
  }

  /// Nobody manages windows on a test's display: what a menu had, the window gets back.
  void takeKeyboardBack() {
    const QWidget* const active = QApplication::activeWindow();
    if (active && active->isVisible() && !qobject_cast<const QMenu*>(active)) return;
    QApplication::setActiveWindow(&window());
  }

  void goTo(const QWidget& pane) {
    for (int step = 0; !pane.hasFocus() && step < kMostSteps; ++step) key(Qt::Key_F6);
    ASSERT_TRUE(pane.hasFocus()) << "F6 does not lead to " << pane.objectName().toStdString()
                                 << ", but to " << whereFocusIs();
  }

  void walkTo(const QAbstractItemView& view, const QString& name) {
    ASSERT_TRUE(waitFor([&] { return rowNamed(view, name).isValid(); }, kLongWaitMs));
    key(Qt::Key_Home);
    const auto isThere = [&] { return view.currentIndex().siblingAtColumn(0).data() == name; };
    for (int step = 0; !isThere() && step < kMostSteps; ++step) key(Qt::Key_Down);
    ASSERT_TRUE(isThere()) << name.toStdString() << ", but " << whereFocusIs();
  }
};

}  // namespace

// A label that is cut shows less than its text; then its tool tip has all.
bool Hand::reads(const QString& words) const {
  for (const QLabel* label : window_.findChildren<QLabel*>()) {
    if (isInSight(*label) && label->text().contains(words)) return true;
  }
  for (const auto* text : window_.findChildren<QPlainTextEdit*>()) {
    if (isInSight(*text) && text->toPlainText().contains(words)) return true;
  }
  return false;
}

std::unique_ptr<Hand> mouseHand(MainWindow& window) { return std::make_unique<MouseHand>(window); }

std::unique_ptr<Hand> keyHand(MainWindow& window) { return std::make_unique<KeyHand>(window); }

}  // namespace korvel
