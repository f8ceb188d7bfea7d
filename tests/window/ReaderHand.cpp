#include <gtest/gtest.h>

#include <QAccessible>
#include <QApplication>

#include "tests/window/FilmHands.h"
#include "tests/window/WindowScene.h"

namespace korvel {

namespace {

using Access = QAccessibleInterface;
using IsWanted = std::function<bool(const QString& name)>;

constexpr int kReaderWaitMs = 60'000;

IsWanted isCalled(const QString& text) {
  return [text](const QString& name) { return name == text; };
}

IsWanted beginsWith(const QString& text) {
  return [text](const QString& name) { return name.startsWith(text); };
}

/// The first thing below that has this role and such a name, and can be perceived; null for none.
Access* findBelow(Access* at, QAccessible::Role role, const IsWanted& isWanted) {
  for (int i = 0; at && i < at->childCount(); ++i) {
    Access* const child = at->child(i);
    if (!child || child->state().invisible) continue;
    if (child->role() == role && isWanted(child->text(QAccessible::Name))) return child;
    if (Access* const found = findBelow(child, role, isWanted)) return found;
  }
  return nullptr;
}

/// As findBelow(), and waits for it; what is not found fails the test.
Access* found(QAccessible::Role role, const IsWanted& isWanted, const QString& what) {
  Access* result = nullptr;
  waitFor(
      [&] {
        result = findBelow(QAccessible::queryAccessibleInterface(qApp), role, isWanted);
        return result != nullptr;
      },
      kReaderWaitMs);
  EXPECT_NE(result, nullptr) << "nothing is called " << what.toStdString();
  return result;
}

/// An entry of a menu, whether or not the menu is open. Undoing is called by what it undoes.
Access* entryIn(Access* menu, const QString& text) {
  Access* longer = nullptr;
  for (int i = 0; menu && i < menu->childCount(); ++i) {
    Access* const each = menu->child(i);
    const QString name = each ? each->text(QAccessible::Name).remove(QStringLiteral("…")) : "";
    if (name == text) return each;
    if (!longer && name.startsWith(text + QLatin1Char(' '))) longer = each;
  }
  return longer;
}

void act(Access* on, const QString& action) {
  ASSERT_NE(on, nullptr);
  const QString name = on->text(QAccessible::Name);
  ASSERT_FALSE(on->state().disabled) << name.toStdString();
  ASSERT_TRUE(on->actionInterface()) << name.toStdString();
  ASSERT_TRUE(on->actionInterface()->actionNames().contains(action)) << name.toStdString();
  on->actionInterface()->doAction(action);
}

void type(Access* field, const QString& words) {
  ASSERT_NE(field, nullptr);
  ASSERT_TRUE(field->editableTextInterface());
  const int before = field->textInterface()->characterCount();
  field->editableTextInterface()->replaceText(0, before, words);
}

bool holds(Access* at, const QString& words) {
  for (const QAccessible::Text part : {QAccessible::Name, QAccessible::Value}) {
    if (at->text(part).contains(words)) return true;
  }
  QAccessibleTextInterface* const text = at->textInterface();
  return text && text->text(0, text->characterCount()).contains(words);
}

bool isAnywhere(Access* at, const QString& words) {
  for (int i = 0; at && i < at->childCount(); ++i) {
    Access* const child = at->child(i);
    if (!child || child->state().invisible) continue;
    if (holds(child, words) || isAnywhere(child, words)) return true;
  }
  return false;
}

class ReaderHand : public Hand {
 public:
  explicit ReaderHand(MainWindow& window) : Hand(window) { QAccessible::setActive(true); }

  void enterProject(const QString& name) override {
    chooseRow("Projects", name);
    menu("Project", "Enter the chosen project");
  }

  void chooseEdit(const QString& name) override { chooseRow("Edits and logs", name); }

  void menu(const QString& title, const QString& entry) override {
    Access* const bar = found(
        QAccessible::MenuBar, [](const QString&) { return true; }, "menu bar");
    Access* const top = bar ? entryIn(bar, title) : nullptr;
    ASSERT_TRUE(top && top->childCount() == 1) << title.toStdString();
    Access* const item = entryIn(top->child(0), entry);
    ASSERT_NE(item, nullptr) << entry.toStdString();
    act(item, QAccessibleActionInterface::pressAction());
  }

  void press(const QString& button) override {
    act(found(QAccessible::Button, isCalled(button), button),
        QAccessibleActionInterface::pressAction());
  }

  void trimOut(const QString& clip, const std::function<void()>&) override {
    Access* const timeline = found(QAccessible::List, isCalled("Timeline"), "Timeline");
    Access* const item =
        findBelow(timeline, QAccessible::ListItem, beginsWith("clip " + clip + ", "));
    ASSERT_NE(item, nullptr) << clip.toStdString();
    act(item, QAccessibleActionInterface::setFocusAction());
    EXPECT_TRUE(item->state().selected);
    menu("Clip", "Out a frame earlier");
  }

  void chooseVersion(int row) override {
    const QString name = "Versions of the chosen edit";
    choose(found(QAccessible::Tree, isCalled(name), name), row);
  }

  /// By the dialog: a list of names that is closed offers a reader nothing to choose.
  void write(const QString& to, const QString& words) override {
    menu("Messages", "Write to a user");
    type(found(QAccessible::EditableText, isCalled("To"), "To"), to);
    type(found(QAccessible::EditableText, isCalled("Message"), "Message"), words);
    press("Write to a user");
  }

  [[nodiscard]] bool reads(const QString& words) const override {
    return isAnywhere(QAccessible::queryAccessibleInterface(qApp), words);
  }

 private:
  static void choose(Access* list, int row) {
    ASSERT_TRUE(list && list->tableInterface());
    QAccessibleTableInterface& rows = *list->tableInterface();
    // A list that was filled a moment ago has not laid its rows out yet.
    EXPECT_TRUE(waitFor([&] {
      for (const int before : rows.selectedRows()) rows.unselectRow(before);
      return rows.selectRow(row) && rows.isRowSelected(row);
    }));
  }

  static void chooseRow(const QString& list, const QString& name) {
    Access* item = nullptr;
    ASSERT_TRUE(waitFor(
        [&] {
          Access* const tree = findBelow(QAccessible::queryAccessibleInterface(qApp),
                                         QAccessible::Tree, isCalled(list));
          item = tree ? findBelow(tree, QAccessible::TreeItem, beginsWith(name)) : nullptr;
          return item != nullptr;
        },
        kReaderWaitMs))
        << name.toStdString();
    choose(item->parent(), item->tableCellInterface()->rowIndex());
  }
};

}  // namespace

std::unique_ptr<Hand> readerHand(MainWindow& window) {
  return std::make_unique<ReaderHand>(window);
}

}  // namespace korvel
