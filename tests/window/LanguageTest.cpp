#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAction>
#include <QComboBox>
#include <QDialog>
#include <QDockWidget>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPointer>
#include <QPushButton>
#include <QTabWidget>
#include <QTreeView>
#include <QTreeWidget>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "app/window/ActionTable.h"
#include "app/window/HistoryPane.h"
#include "app/window/MessageBar.h"
#include "app/window/PeoplePane.h"
#include "app/window/StartDialog.h"
#include "app/window/Texts.h"
#include "tests/window/LanguageCheck.h"
#include "tests/window/WindowScene.h"

namespace korvel {

namespace {

/// What CT-1 is called until the script renames it; that it was is told for a while.
const QString kEarlierName = QStringLiteral("OTIO TEST - multitrack.Exported.01");

/// A window in the made-up language, with a project, edits, bins and a colleague called BN. Names
/// without a vowel need not be told from texts.
class LanguageTest : public testing::Test, protected WindowScene {
 protected:
  LanguageTest() {
    language = &madeUp_;
    script =
        "project create PRJ\nproject enter PRJ\nroom create RM-1\nroom create RM-2\n"
        "edit import " KV_DATA
        "/otio/multitrack.otio\n"
        "edit rename \"OTIO TEST - multitrack.Exported.01\" CT-1\nedit save CT-1\n"
        "edit create CT-2\nedit save CT-2\nlog create LG-1\nlog create LG-2\nedit save LG-2\n"
        "bin create BN-1\nbin create BN-2\nbin add BN-1 CT-1\nrack create RCK\nfilter create FLT "
        "CT\n"
        "user add BN\nuser add CRL\n";
  }

  /// Has the texts of now read at the size of a usual and of a small screen.
  static void lookAtBothSizes(MainWindow& window, LanguageCheck& check, const QString& where) {
    for (const QSize size : {QSize(1280, 800), QSize(640, 480)}) {
      window.resize(size);
      QTest::qWait(150);
      check.look(QString("%1 at %2").arg(where).arg(size.width()));
      EXPECT_LE(window.minimumSizeHint().width(), 640) << where.toStdString();
      EXPECT_LE(window.minimumSizeHint().height(), 480) << where.toStdString();
    }
    window.resize(1280, 800);
  }

  static bool waitForProjectAndEdits(MainWindow& window) {
    return waitFor([&] { return window.objects().rows(ObjectKind::eEdits).size() == 4; }, 30'000);
  }

  /// Saves CT-3 under another name, and as BN, without a word to the station.
  void saveBehind(const MainWindow& window, const QString& cookie) const {
    const std::string project = window.snapshot()->project.cookie.toStdString();
    const std::string file =
        folder / ("projects/" + project + '/' + cookie.toStdString() + ".otio");
    std::ifstream in(file);
    std::string text{std::istreambuf_iterator<char>(in), {}};
    text.replace(text.find("CT-3"), 4, "CT-9");
    if (const auto by = text.find("\"ANNA\"", text.find("saved")); by != text.npos) {
      text.replace(by, 6, "\"BN\"");
    }
    std::ofstream(file + ".new") << text;
    std::filesystem::rename(file + ".new", file);
  }

  static QDialog* openDialog(MainWindow& window) {
    for (QDialog* each : window.findChildren<QDialog*>()) {
      if (each->isVisible()) return each;
    }
    return nullptr;
  }

  /// Looks at the dialog that opens now, and closes it; false where none does.
  static bool lookAtDialog(MainWindow& window, LanguageCheck& check, const QString& where) {
    if (!waitFor([&] { return openDialog(window) != nullptr; }, 5000)) return false;
    QTest::qWait(50);
    const QPointer<QDialog> dialog = openDialog(window);
    check.look(where);
    EXPECT_LE(dialog->minimumSizeHint().width(), 640) << where.toStdString();
    EXPECT_LE(dialog->minimumSizeHint().height(), 480) << where.toStdString();
    dialog->reject();
    return waitFor([&] { return !dialog || !dialog->isVisible(); });
  }

  MadeUpLanguage madeUp_;
};

TEST_F(LanguageTest, EveryTextOfTheWindowIsTranslatedAndFits) {
  play([](MainWindow& window) {
    LanguageCheck check(window, kEarlierName);
    ASSERT_TRUE(waitForProjectAndEdits(window));
    QTest::qWait(500);
    for (int kind = 0; kind < static_cast<int>(kObjectKinds); ++kind) {
      window.objects().setKind(static_cast<ObjectKind>(kind));
      lookAtBothSizes(window, check, QString("kind %1").arg(kind));
      QTreeView& view = window.objects().view(static_cast<ObjectKind>(kind));
      if (view.model()->rowCount() == 0) continue;
      view.setCurrentIndex(view.model()->index(0, 0));
      QTest::qWait(300);
      lookAtBothSizes(window, check, QString("kind %1, chosen").arg(kind));
    }
    EXPECT_GE(check.texts(), 150);
  });
}

TEST_F(LanguageTest, EveryPaneIsTranslatedAndFits) {
  play([](MainWindow& window) {
    LanguageCheck check(window, kEarlierName);
    ASSERT_TRUE(waitForProjectAndEdits(window));
    window.objects().choose(ObjectKind::eEdits, keyOf(window, "CT-1"));
    for (const char* line : {"edit trim CT-1 0/2 0s 1s", "edit save CT-1", "edit rename CT-2 CT-3",
                             "say BN CT", "panel open"}) {
      window.link().run(line);
    }
    for (const char* name : {"notificationsDock", "logDock", "historyDock", "peopleDock",
                             "conversationDock", "happenedDock"}) {
      auto* const dock = window.findChild<QDockWidget*>(name);
      dock->show();
      dock->raise();
      QTest::qWait(300);
      lookAtBothSizes(window, check, name);
    }
    EXPECT_TRUE(waitFor([&] { return window.history().rows().size() >= 2; }));
    window.history().list().setCurrentItem(window.history().list().topLevelItem(1));
    QTest::qWait(500);
    lookAtBothSizes(window, check, "a version");
    EXPECT_GE(check.texts(), 150);
  });
}

TEST_F(LanguageTest, EveryDialogIsTranslatedAndFits) {
  play([](MainWindow& window) {
    LanguageCheck check(window, kEarlierName);
    ASSERT_TRUE(waitForProjectAndEdits(window));
    check.know({"RENDER", "identify"});
    window.link().run("edit delete LG-1");
    ASSERT_TRUE(
        waitFor([&] { return window.objects().rows(ObjectKind::eEdits).size() == 3; }, 30'000));
    const std::map<Target, ObjectKind> kinds{{Target::eBin, ObjectKind::eBins},
                                             {Target::eRack, ObjectKind::eRacks},
                                             {Target::eFilter, ObjectKind::eFilters},
                                             {Target::eMedia, ObjectKind::eMedia}};
    int dialogs = 0;
    for (const ActionSpec& action : actionTable()) {
      const QString line = QString::fromUtf8(action.line);
      if (action.fields.empty() && !line.contains("delete") && !line.contains("destroy")) continue;
      const auto kind = kinds.find(action.target);
      window.objects().setKind(kind == kinds.end() ? ObjectKind::eEdits : kind->second);
      QTreeView& view = window.objects().view(window.objects().kind());
      view.setCurrentIndex(view.model()->index(0, 0));
      const auto isDone = [&] { return window.menus().action(line)->isEnabled(); };
      if (!waitFor(isDone, 2000)) continue;
      window.menus().action(line)->trigger();
      EXPECT_TRUE(lookAtDialog(window, check, line)) << line.toStdString();
      ++dialogs;
    }
    EXPECT_GE(dialogs, 20);
    window.objects().setKind(ObjectKind::eEdits);
    for (const QKeySequence& keys :
         {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_T), QKeySequence(Qt::CTRL | Qt::Key_K),
          QKeySequence(Qt::Key_F1)}) {
      for (QAction* action : window.findChildren<QAction*>()) {
        if (action->shortcut() == keys) action->trigger();
      }
      QTest::qWait(500);
      EXPECT_TRUE(lookAtDialog(window, check, keys.toString())) << keys.toString().toStdString();
    }
  });
}

TEST_F(LanguageTest, PreferencesAreTranslatedAndFit) {
  play([](MainWindow& window) {
    LanguageCheck check(window, kEarlierName);
    ASSERT_TRUE(waitForProjectAndEdits(window));
    // Words that are typed so.
    check.know({"identify", "refresh", "FOLDER=//server/share"});
    check.know({readableText(window.link().options().configFile)});
    for (QAction* action : window.findChildren<QAction*>()) {
      if (action->shortcut() == QKeySequence(Qt::CTRL | Qt::Key_Comma)) action->trigger();
    }
    ASSERT_TRUE(waitFor([&] { return openDialog(window) != nullptr; }));
    QDialog& dialog = *openDialog(window);
    auto* const pages = dialog.findChild<QTabWidget*>();
    EXPECT_GE(pages->count(), 4);
    for (const QSize size : {QSize(640, 460), QSize(480, 400)}) {
      dialog.resize(size);
      for (int page = 0; page < pages->count(); ++page) {
        pages->setCurrentIndex(page);
        check.lookAtDialog(dialog, QString("page %1 at %2").arg(page).arg(size.width()));
      }
    }
    pages->setCurrentIndex(2);
    dialog.findChild<QLineEdit*>("receive_limit")->setText("x");
    check.lookAtDialog(dialog, "a page with a mistake");
    dialog.reject();
  });
}

TEST_F(LanguageTest, TheFirstStartIsTranslatedAndFits) {
  play([this](MainWindow& window) {
    LanguageCheck check(window, kEarlierName);
    Options options;
    options.configFile = folder / "config";
    options.station.user = "NN";
    check.know({QString::fromStdString(options.configFile), "/mnt/projects"});
    StartDialog dialog(options, {});
    dialog.show();
    auto* const typed = dialog.findChild<QLineEdit*>("folder");
    for (const QSize size : {QSize(600, 380), QSize(400, 400)}) {
      dialog.resize(size);
      for (const QString& text : {QString(), QString("x"), QString("/")}) {
        typed->setText(text);
        check.lookAtDialog(dialog, QString("folder \"%1\" at %2").arg(text).arg(size.width()));
      }
    }
  });
}

// Others are at work: who is where, what they ask and what they hold.
TEST_F(LanguageTest, WhatIsToldOfOthersIsTranslatedAndFits) {
  play([this](MainWindow& window) {
    LanguageCheck check(window, kEarlierName);
    ASSERT_TRUE(waitForProjectAndEdits(window));
    // Refusals, and what was said.
    check.leaveOut(&window.messages());
    check.leaveOut(window.messages().findChild<QLabel*>("messagesText"));
    check.leaveOut(&window.conversation().view());
    StationProcess bn(other("BN"));
    bn.waitUntilReady();
    for (const char* line :
         {"project create PRV --private", "project enter PRJ", "room enter RM-1", "edit open CT-1",
          "edit create CT-4", "edit save CT-4", "ask CT-1", "say ANNA TXT", "say ANNA TXT"}) {
      bn.command(line);
    }
    EXPECT_TRUE(waitFor([&] { return window.asks().isVisible(); }, 30'000));
    EXPECT_TRUE(waitFor([&] { return window.strip().isVisible(); }, 30'000));
    EXPECT_TRUE(waitFor([&] { return window.people().rows().size() == 2; }, 60'000));
    window.findChild<QDockWidget*>("peopleDock")->show();
    window.objects().choose(ObjectKind::eEdits, keyOf(window, "CT-4"));
    window.link().run("edit may CT-4");
    QTest::qWait(1000);
    lookAtBothSizes(window, check, "others");
    window.link().run("room enter RM-1");
    EXPECT_TRUE(waitFor([&] { return window.messages().button(1).isVisible(); }, 30'000));
    lookAtBothSizes(window, check, "a refusal");
    bn.command("ask CT-2");
    bn.command("edit rename CT-1 CT-5");
    EXPECT_TRUE(waitFor([&] { return !window.asks().button(1).isVisible(); }, 30'000));
    lookAtBothSizes(window, check, "two asks");
    EXPECT_TRUE(waitFor([&] { return window.asks().button().isEnabled(); })) << "it had changed";
    window.asks().button().click();
    EXPECT_TRUE(lookAtDialog(window, check, "the asks"));
    bn.command("project leave");
    window.link().run("edit delete CT-2");
    EXPECT_TRUE(waitFor([&] { return keyOf(window, "CT-2").isEmpty(); }, 30'000));
    lookAtBothSizes(window, check, "deleted");
  });
}

TEST_F(LanguageTest, QuestionsAreTranslatedAndFit) {
  play([this](MainWindow& window) {
    LanguageCheck check(window, kEarlierName);
    ASSERT_TRUE(waitForProjectAndEdits(window));
    check.leaveOut(&window.messages());
    check.leaveOut(window.messages().findChild<QLabel*>("messagesText"));
    const std::string file = folder / "CT.tmp";
    check.know({QString::fromStdString(folder.path())});
    std::ofstream(file) << "CT";
    window.link().run(QString::fromStdString("edit export CT-1 \"" + file + '"'));
    EXPECT_TRUE(lookAtDialog(window, check, "replace"));
    window.link().run("edit rename CT-2 CT-3");
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "CT-3").isEmpty(); }));
    command(window, "project leave");
    EXPECT_TRUE(lookAtDialog(window, check, "leave"));
    window.objects().choose(ObjectKind::eEdits, keyOf(window, "CT-1"));
    window.menus().action("edit give {object} {0}")->trigger();
    ASSERT_TRUE(waitFor([&] { return openDialog(window) != nullptr; }));
    openDialog(window)->findChild<QComboBox*>()->setEditText("GHST");
    QTest::keyClick(openDialog(window), Qt::Key_Return);
    ASSERT_TRUE(waitFor([&] { return window.findChild<QDialog*>("giveDialog") != nullptr; }));
    EXPECT_TRUE(lookAtDialog(window, check, "give"));
    window.link().run("edit revert CT-3");
    window.menus().action("edit create {0}")->trigger();
    ASSERT_TRUE(waitFor([&] { return openDialog(window) != nullptr; }));
    openDialog(window)->findChild<QLineEdit*>()->setText("CT-1");
    QTest::keyClick(openDialog(window), Qt::Key_Return);
    ASSERT_TRUE(waitFor([&] { return window.findChild<QDialog*>("nameDialog") != nullptr; }));
    check.leaveOut(window.findChild<QDialog*>("nameDialog")->findChild<QLabel*>("question"));
    EXPECT_TRUE(lookAtDialog(window, check, "name"));
  });
}

TEST_F(LanguageTest, QuestionsAboutWhatIsSavedAreTranslatedAndFit) {
  play([this](MainWindow& window) {
    LanguageCheck check(window, kEarlierName);
    ASSERT_TRUE(waitForProjectAndEdits(window));
    check.leaveOut(&window.messages());
    check.leaveOut(window.messages().findChild<QLabel*>("messagesText"));
    const QString cookie = keyOf(window, "CT-2");
    for (const char* line : {"edit rename CT-2 CT-3", "edit save CT-3", "edit rename CT-3 CT-4"}) {
      window.link().run(line);
    }
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "CT-4").isEmpty(); }));
    window.objects().choose(ObjectKind::eEdits, cookie);
    window.findChild<QDockWidget*>("historyDock")->show();
    ASSERT_TRUE(waitFor([&] { return window.history().rows().size() >= 2; }));
    QTreeWidget& versions = window.history().list();
    versions.setCurrentItem(versions.topLevelItem(versions.topLevelItemCount() - 1));
    auto* const restore = window.findChild<QAbstractButton*>("restoreVersion");
    ASSERT_TRUE(waitFor([&] { return restore->isEnabled(); }));
    restore->click();
    EXPECT_TRUE(lookAtDialog(window, check, "restore"));
    saveBehind(window, cookie);
    window.link().run("edit save CT-4");
    ASSERT_TRUE(waitFor([&] { return window.findChild<QDialog*>("saveDialog") != nullptr; }));
    EXPECT_TRUE(lookAtDialog(window, check, "save"));
    window.link().run("edit save CT-4 --over");
    window.link().run("edit delete LG-1");
    ASSERT_TRUE(waitFor([&] { return keyOf(window, "LG-1").isEmpty(); }));
    for (QAction* action : window.findChildren<QAction*>()) {
      if (action->shortcut() == QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_T)) action->trigger();
    }
    ASSERT_TRUE(waitFor([&] { return openDialog(window) != nullptr; }));
    const auto buttons = openDialog(window)->findChildren<QPushButton*>();
    const auto empty = std::ranges::find(buttons, MadeUpLanguage::of("&Empty the trash…"),
                                         [](const QPushButton* each) { return each->text(); });
    ASSERT_NE(empty, buttons.end());
    ASSERT_TRUE(waitFor([&] { return (*empty)->isEnabled(); }));
    (*empty)->click();
    QPointer<QDialog> question = window.findChild<QDialog*>("emptyDialog");
    ASSERT_TRUE(question);
    QTest::qWait(100);
    check.look("empty");
    question->reject();
  });
}

// A station of the same user's was killed with unsaved changes.
TEST_F(LanguageTest, WhatAnEndedStationLeftIsTranslatedAndFits) {
  script.clear();
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    StationProcess killed(other("ANNA"));
    killed.waitUntilReady();
    for (const char* line :
         {"project create PRJ", "project enter PRJ", "edit create CT-1", "edit create CT-2",
          "edit rename CT-1 CT-3", "edit rename CT-2 CT-4"}) {
      killed.command(line);
    }
    const auto isKept = [this] {
      const std::filesystem::path kept = folder / "state/korvel/recovery";
      return std::filesystem::exists(kept) && !std::filesystem::is_empty(kept);
    };
    EXPECT_TRUE(waitFor(isKept, 30'000));
    QTest::qWait(2500);
    killed.kill9();
    LanguageCheck check(window, kEarlierName);
    window.link().run("project enter PRJ");
    ASSERT_TRUE(waitFor([&] { return window.recovery().isVisible(); }, 30'000));
    lookAtBothSizes(window, check, "left");
    window.recovery().button(1).click();
    EXPECT_TRUE(lookAtDialog(window, check, "throw away"));
  });
}

TEST(LanguageFormsTest, EnglishSaysOneThingInTheSingular) {
  const WithoutDisplay application;
  EXPECT_EQ(WindowText::tr("%Ln objects", nullptr, 1), "1 object");
  EXPECT_EQ(WindowText::tr("%Ln objects", nullptr, 2), "2 objects");
  EXPECT_EQ(WindowText::tr("%Ln objects", nullptr, 0), "0 objects");
  EXPECT_EQ(WindowText::tr("%n more", nullptr, 1), "1 more");
}

/// A file of translations as the toolkit reads it: for each text its hash and its translation.
void writeTranslations(const std::filesystem::path& file,
                       const std::map<std::string, std::u16string>& texts) {
  const auto number = [](quint32 value) {
    std::string bytes;
    for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>(value >> shift);
    return bytes;
  };
  const auto hashOf = [](const std::string& text) {
    quint32 hash = 0;
    for (const char each : text) {
      hash = (hash << 4) + static_cast<unsigned char>(each);
      const quint32 high = hash & 0xf0000000;
      hash = (hash ^ high >> 24) & ~high;
    }
    return hash;
  };
  std::string messages;
  std::map<quint32, std::size_t> places;
  for (const auto& [text, translation] : texts) {
    places[hashOf(text)] = messages.size();
    messages += '\x03' + number(static_cast<quint32>(2 * translation.size()));
    for (const char16_t each : translation) {
      messages += {static_cast<char>(each >> 8), static_cast<char>(each)};
    }
    messages += '\x01';
  }
  std::string hashes;
  for (const auto& [hash, place] : places) {
    hashes += number(hash) + number(static_cast<quint32>(place));
  }
  const auto block = [&number](char tag, const std::string& bytes) {
    return tag + number(static_cast<quint32>(bytes.size())) + bytes;
  };
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file) << "\x3c\xb8\x64\x18\xca\xef\x9c\x95\xcd\x21\x1c\xbf\x60\xa1\xbd\xdd"
                      << block('\x42', hashes) << block('\x69', messages);
}

TEST(LanguageFormsTest, TheUsersLanguageIsTakenWhereThereIsOne) {
  const WithoutDisplay application;
  const ScratchFolder folder;
  const QString languages = QString::fromStdString(folder.path());
  writeTranslations(folder / "window_de.qm", {{"Ready", u"Bereit"}});
  WindowLanguage language;
  QLocale::setDefault(QLocale("fr_FR"));
  EXPECT_FALSE(language.load(languages));
  QLocale::setDefault(QLocale("en_GB"));
  EXPECT_FALSE(language.load(languages));
  EXPECT_EQ(StatusLine::tr("Ready"), "Ready");
  QLocale::setDefault(QLocale("de_AT"));
  EXPECT_TRUE(language.load(languages));
  EXPECT_EQ(StatusLine::tr("Ready"), "Bereit");
  EXPECT_EQ(WindowText::tr("%Ln objects", nullptr, 1), "1 object");
  QLocale::setDefault(QLocale::c());
}

TEST_F(LanguageTest, TheWindowSpeaksTheLanguageThatIsAmongItsResources) {
  writeTranslations(folder / "resources/languages/window_de.qm", {{"Ready", u"Bereit"}});
  config["resources"] = folder / "resources";
  language = nullptr;
  QLocale::setDefault(QLocale("de_DE"));
  play([](MainWindow& window) {
    EXPECT_TRUE(waitFor([&] { return window.status().busyText() == "Bereit"; }));
  });
  QLocale::setDefault(QLocale::c());
}

TEST(LanguageFormsTest, TimesAndNumbersAreWrittenAsTheSystemDoes) {
  const WithoutDisplay application;
  const QDateTime time(QDate(2024, 3, 4), QTime(16, 5, 7));
  struct Form {
    const char* locale;
    const char* clock;
    const char* minute;
    const char* number;
  };
  for (const Form& form :
       {Form{"C", "16:05:07", "16:05", "12345"}, Form{"de_DE", "16:05:07", "16:05", "12.345"},
        Form{"fi_FI", "16.05.07", "16.05", "12\u00a0345"},
        Form{"en_US", "4:05:07 PM", "4:05 PM", "12,345"}}) {
    QLocale::setDefault(QLocale(form.locale));
    EXPECT_EQ(clockTime(time.time()), form.clock) << form.locale;
    EXPECT_EQ(clockTimeToMinute(time.time()), form.minute) << form.locale;
    EXPECT_EQ(QString("%L1").arg(12345), QString::fromUtf8(form.number)) << form.locale;
    EXPECT_TRUE(shownTime(time).endsWith(form.minute)) << form.locale;
  }
  QLocale::setDefault(QLocale("de_DE"));
  EXPECT_EQ(shownTime(time), "04.03.24 16:05");
  QLocale::setDefault(QLocale::c());
}

}  // namespace

}  // namespace korvel
