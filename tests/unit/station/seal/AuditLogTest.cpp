#include "station/seal/AuditLog.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "tests/fakes/ScratchFolder.h"

using namespace korvel;

namespace {

class AuditLogTest : public testing::Test {
 protected:
  void append(const std::string& what) const {
    const auto written = log_.append(JsonValue::object({{"what", what}}));
    ASSERT_TRUE(written) << written.error().message;
  }

  [[nodiscard]] AuditLog::Checked check() const {
    const auto checked = log_.check();
    EXPECT_TRUE(checked) << checked.error().message;
    return checked ? *checked : AuditLog::Checked();
  }

  [[nodiscard]] std::string bytes() const {
    std::ifstream file(log_.path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  void write(const std::string& text) const {
    std::ofstream(log_.path(), std::ios::binary) << text;
  }

  /// The lines in which something is wrong.
  [[nodiscard]] std::vector<std::size_t> faults() const {
    std::vector<std::size_t> lines;
    for (const auto& each : check().faults) lines.push_back(each.line);
    return lines;
  }

  void replace(const std::string& from, const std::string& to) const {
    std::string text = bytes();
    ASSERT_NE(text.find(from), text.npos);
    write(text.replace(text.find(from), from.size(), to));
  }

  using Lines = std::vector<std::size_t>;

  ScratchFolder folder_;
  AuditLog log_{folder_ / "audit.log"};
};

TEST_F(AuditLogTest, WhatWasWrittenIsWhole) {
  for (const char* what : {"one", "two", "three"}) append(what);
  const auto checked = check();
  EXPECT_EQ(checked.lines, 3u);
  EXPECT_TRUE(checked.faults.empty());
  EXPECT_NE(checked.last, std::string(64, '0'));
  EXPECT_EQ(checked.last.size(), 64u);
}

TEST_F(AuditLogTest, IsReadableByItsUserAlone) {
  append("one");
  struct stat status {};
  ASSERT_EQ(::stat(log_.path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(AuditLogTest, AChangedRecordShowsInTheNext) {
  for (const char* what : {"one", "two", "three"}) append(what);
  replace("\"one\"", "\"ONE\"");
  EXPECT_EQ(faults(), Lines{2});
}

TEST_F(AuditLogTest, ARecordThatWasTakenOutShows) {
  for (const char* what : {"one", "two", "three"}) append(what);
  const std::string text = bytes();
  const std::size_t second = text.find('\n') + 1;
  write(text.substr(0, second) + text.substr(text.find('\n', second) + 1));
  EXPECT_EQ(faults(), Lines{2});
}

TEST_F(AuditLogTest, OneTakenOffTheFrontShows) {
  for (const char* what : {"one", "two"}) append(what);
  write(bytes().substr(bytes().find('\n') + 1));
  EXPECT_EQ(faults(), Lines{1});
}

TEST_F(AuditLogTest, ARecordTurnedIntoNonsenseIsNoCutLine) {
  for (const char* what : {"one", "two", "three"}) append(what);
  replace("\"two\"", "\"two");
  EXPECT_EQ(faults(), (Lines{2, 3}));
  EXPECT_TRUE(check().cut.empty());
}

TEST_F(AuditLogTest, WhatAnotherEndWouldHideTheLastHashTells) {
  for (const char* what : {"one", "two"}) append(what);
  const std::string last = check().last;
  write(bytes().substr(0, bytes().find('\n') + 1));
  EXPECT_TRUE(faults().empty());
  EXPECT_NE(check().last, last);
}

TEST_F(AuditLogTest, AfterALineThatWasCutTheNextBeginsOnItsOwn) {
  append("one");
  append("two");
  write(bytes().substr(0, bytes().size() - 40));
  append("three");
  const auto checked = check();
  EXPECT_TRUE(checked.faults.empty());
  ASSERT_EQ(checked.cut.size(), 1u);
  EXPECT_EQ(checked.cut.front().line, 2u);
  EXPECT_EQ(checked.lines, 3u);
}

TEST_F(AuditLogTest, TwoWritersKeepOneChain) {
  const auto writeMany = [this] {
    const AuditLog other(log_.path());
    for (int each = 0; each < 50; ++each) {
      EXPECT_TRUE(other.append(JsonValue::object({{"what", each}})));
    }
  };
  std::thread first(writeMany);
  std::thread second(writeMany);
  first.join();
  second.join();
  EXPECT_EQ(check().lines, 100u);
  EXPECT_TRUE(faults().empty());
}

TEST_F(AuditLogTest, AFileThatCannotBeWrittenIsNamed) {
  const AuditLog nowhere(folder_ / "missing/audit.log");
  const auto written = nowhere.append(JsonValue::object());
  ASSERT_FALSE(written);
  EXPECT_NE(written.error().message.find("missing/audit.log"), std::string::npos);
  EXPECT_FALSE(nowhere.check());
}

TEST_F(AuditLogTest, NeitherAFolderNorAFileOfTwoNamesIsWritten) {
  std::filesystem::create_directory(folder_ / "folder");
  EXPECT_FALSE(AuditLog(folder_ / "folder").append(JsonValue::object()));
  EXPECT_FALSE(AuditLog(folder_ / "folder").check());
  append("one");
  std::filesystem::create_hard_link(log_.path(), folder_ / "second");
  EXPECT_FALSE(log_.append(JsonValue::object()));
}

}  // namespace
