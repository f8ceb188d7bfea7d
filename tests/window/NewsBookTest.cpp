#include "app/window/NewsBook.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

namespace fs = std::filesystem;

/// What a user's window knows of the project P1, and what colleagues do to it.
class NewsBookTest : public ::testing::Test {
 protected:
  NewsBookTest() { begin(); }

  /// The window is closed, and opened again by this user.
  void begin(const QString& user = QStringLiteral("ANNA")) {
    book_.reset();
    book_ = std::make_unique<NewsBook>(folder_ / "news");
    book_->open(QStringLiteral("P1"), user);
    take();
  }

  void take() { book_->take(ObjectKind::eEdits, rows_); }

  static ObjectRow row(const QString& key, quint64 content, const QString& savedBy) {
    ObjectRow row;
    row.key = row.cookie = key;
    row.content = content;
    row.savedBy = savedBy;
    return row;
  }

  void show(const ObjectRow& row) {
    putRow(rows_, row.key, row);
    take();
  }

  /// BEN does something to an edit, which a message or the folder tells.
  void benChanges(const QString& key, bool makes = false) {
    ObjectRow changed = row(key, ++content_, QStringLiteral("BEN"));
    wasMade_ = wasMade_ || makes;  // a visit's changes are counted together
    changed.elsewhere = {
        ++changes_, wasMade_, QStringLiteral("BEN"), QDateTime(QDate(2026, 3, 4), QTime(12, 4)), {},
        {},         {}};
    show(changed);
  }

  [[nodiscard]] QString told(const QString& key) const {
    const auto mark = book_->mark(key);
    return mark ? newsText(*mark) : QString();
  }

  [[nodiscard]] std::string file() const {
    for (const auto& each : fs::directory_iterator(folder_ / "news")) return each.path();
    return {};
  }

  ScratchFolder folder_;
  ObjectRows rows_{row(QStringLiteral("E1"), 1, QStringLiteral("BEN"))};
  std::unique_ptr<NewsBook> book_;
  quint64 content_ = 100;
  unsigned changes_ = 0;
  bool wasMade_ = false;
};

TEST_F(NewsBookTest, AtTheFirstVisitNothingIsNews) { EXPECT_EQ(told("E1"), ""); }

TEST_F(NewsBookTest, WhatOthersDoIsNewsByWhomAndWhen) {
  benChanges("E1");
  EXPECT_EQ(told("E1"), "changed by BEN, 4 Mar 2026 12:04");
  benChanges("E2", true);
  EXPECT_EQ(told("E2"), "new by BEN, 4 Mar 2026 12:04");
  benChanges("E2");  // which does not make it older
  EXPECT_EQ(told("E2"), "new by BEN, 4 Mar 2026 12:04");
  book_->forget("E2");
  EXPECT_EQ(told("E2"), "");
  benChanges("E2");
  EXPECT_EQ(told("E2"), "changed by BEN, 4 Mar 2026 12:04");
}

TEST_F(NewsBookTest, OfTodayTheTimeIsEnough) {
  NewsBook::Mark mark{false, "BEN", QDateTime::currentDateTime()};
  EXPECT_EQ(newsText(mark), "changed by BEN, " + mark.at.toString("HH:mm"));
  EXPECT_EQ(newsInFull(mark), newsText(mark));
  mark.by = {};
  mark.at = {};
  EXPECT_EQ(newsText(mark), "changed elsewhere");
}

TEST_F(NewsBookTest, WhatOneDoesOneselfIsNone) {
  show(row("E1", 7, "ANNA"));
  show(row("E2", 8, "ANNA"));
  EXPECT_EQ(told("E1") + told("E2"), "");
  begin();
  EXPECT_EQ(told("E1") + told("E2"), "");
}

TEST_F(NewsBookTest, AFileOfAnyNameIsKnownAgain) {
  const char* const key = "V1 /rushes/5%2 take.mov";
  show(row(key, 7, {}));
  begin();
  begin();
  EXPECT_EQ(told(key), "");
}

TEST_F(NewsBookTest, MarksSurviveTheEndOfTheProgramAndLeaving) {
  benChanges("E1");
  benChanges("E2", true);
  rows_[0].elsewhere = rows_[1].elsewhere = {};  // counted from the beginning of a visit
  begin();
  EXPECT_EQ(told("E1"), "changed by BEN, 4 Mar 2026 12:04");
  EXPECT_EQ(told("E2"), "new by BEN, 4 Mar 2026 12:04");
  book_->forget("E1");
  book_->open("P2", "ANNA");
  EXPECT_EQ(told("E2"), "");
  book_->open("P1", "ANNA");
  take();
  EXPECT_EQ(told("E1"), "");
  EXPECT_EQ(told("E2"), "new by BEN, 4 Mar 2026 12:04");
}

TEST_F(NewsBookTest, WhatOthersDidWhileNobodyWasHereIsNewsToo) {
  book_.reset();
  putRow(rows_, "E1", row("E1", 2, "BEN"));
  putRow(rows_, "E2", row("E2", 3, "BEN"));
  putRow(rows_, "E3", row("E3", 4, "ANNA"));  // her own, at another machine
  putRow(rows_, "E4", row("E4", 5, {}));
  begin();
  EXPECT_EQ(told("E1"), "changed by BEN");
  EXPECT_EQ(told("E2"), "new by BEN");
  EXPECT_EQ(told("E3"), "");
  EXPECT_EQ(told("E4"), "new elsewhere");
}

TEST_F(NewsBookTest, WhatWasSavedWhileNobodyWasHereHasTheTimeOfTheSave) {
  const QDateTime saved(QDate(2026, 3, 4), QTime(12, 4));
  book_.reset();
  for (const char* const key : {"E1", "E2"}) {
    ObjectRow late = row(key, 2, "BEN");
    late.savedAt = saved.toUTC();
    putRow(rows_, key, late);
  }
  begin();
  EXPECT_EQ(told("E1"), "changed by BEN, 4 Mar 2026 12:04");
  EXPECT_EQ(told("E2"), "new by BEN, 4 Mar 2026 12:04");
  EXPECT_EQ(newsInFull(*book_->mark("E1")), "changed by BEN, Wednesday, 4 March 2026 12:04");
  begin();  // nothing changed since
  EXPECT_EQ(told("E1"), "changed by BEN, 4 Mar 2026 12:04");
  EXPECT_EQ(book_->mark("E2")->at, saved);
}

TEST_F(NewsBookTest, WhatIsNewAndChangesAgainBeforeItIsListedIsNew) {
  book_.reset();
  ObjectRow late = row("E2", 3, "BEN");
  late.elsewhere = {1, false, {}, QDateTime(QDate(2026, 3, 4), QTime(12, 4))};
  putRow(rows_, "E2", late);
  begin();
  EXPECT_EQ(told("E2"), "new by BEN, 4 Mar 2026 12:04");
}

TEST_F(NewsBookTest, AnotherUserKnowsNothingOfIt) {
  benChanges("E1");
  begin("BEN");
  EXPECT_EQ(told("E1"), "changed by BEN, 4 Mar 2026 12:04") << "of this visit";
  rows_[0].elsewhere = {};
  begin("CARL");
  EXPECT_EQ(told("E1"), "");
}

TEST_F(NewsBookTest, AnEditThatCannotBeReadIsNotChangedByThat) {
  ObjectRow broken = row("E1", 0, {});
  broken.problem = "it is cut off";
  book_.reset();
  putRow(rows_, "E1", broken);
  begin();
  EXPECT_EQ(told("E1"), "");
  book_.reset();
  putRow(rows_, "E1", row("E1", 9, "BEN"));
  begin();
  EXPECT_EQ(told("E1"), "changed by BEN");
}

TEST_F(NewsBookTest, WhatIsGoneIsForgotten) {
  benChanges("E1");
  putRow(rows_, "E1", {});
  take();
  EXPECT_EQ(told("E1"), "");
  book_.reset();
  putRow(rows_, "E1", row("E1", 1, "BEN"));
  begin();
  EXPECT_EQ(told("E1"), "new by BEN");
}

TEST_F(NewsBookTest, ABookThatIsCutForgedOrNoFileCountsAsNone) {
  benChanges("E1");
  book_.reset();
  std::string whole;
  std::getline(std::ifstream(file()), whole, '\0');
  ASSERT_TRUE(whole.ends_with("end\n")) << whole;
  rows_[0].elsewhere = {};
  rows_[0].content = 77;
  const std::string path = file();
  for (std::size_t length = 0; length + 1 < whole.size(); ++length) {
    std::ofstream(path) << whole.substr(0, length);
    begin();
    EXPECT_EQ(told("E1"), "") << whole.substr(0, length);
  }
  for (const char* const bad :
       {"korvel news 2\nE1 0 1 - 0 \nend\n", "korvel news 1\nE1 0 1 - 0\nend\n",
        "korvel news 1\nE1 9 1 - 0 \nend\n", "korvel news 1\n\nend\n", "\xFF\xFE\n\nend\n"}) {
    std::ofstream(path) << bad;
    begin();
    EXPECT_EQ(told("E1"), "") << bad;
  }
  book_.reset();
  fs::remove(path);
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  begin();  // does not wait for a writer
  EXPECT_EQ(told("E1"), "");
}

TEST_F(NewsBookTest, WhatIsTheSameNeedsNotBeWrittenAgain) {
  EXPECT_TRUE(book_->hasChanged());
  book_->save();
  take();
  EXPECT_FALSE(book_->hasChanged());
  show(row("E2", 7, "BEN"));
  EXPECT_TRUE(book_->hasChanged());
}

TEST_F(NewsBookTest, WithoutAFolderNothingIsKeptAndNothingFails) {
  std::ofstream(folder_ / "file") << "in the folder's place";
  for (const std::string& folder : {std::string(), folder_ / "file"}) {
    NewsBook book(folder);
    book.open("P1", "ANNA");
    book.take(ObjectKind::eEdits, rows_);
    book.save();
    EXPECT_FALSE(book.has("E1"));
  }
}

}  // namespace
