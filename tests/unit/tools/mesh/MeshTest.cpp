#include <gtest/gtest.h>

#include "station/net/HeardList.h"
#include "tools/mesh/Mesh.h"

using namespace korvel;

namespace {

constexpr long kNow = 1'000'000;

/// A station that has run for long and has sent lately.
HeardFile station(const std::string& name, const std::string& address) {
  HeardFile file;
  file.station = name;
  file.host = "host of " + name;
  file.port = 27015;
  file.sendsFrom = 50'000;
  file.addresses = {*parseIpv4("127.0.0.1"), *parseIpv4(address)};
  file.since = kNow - 1000;
  file.written = kNow;
  file.lastSent = kNow - 100;
  return file;
}

void hears(HeardFile& listener, const HeardFile& sender, long last) {
  listener.heard.push_back({sender.addresses.back(), sender.sendsFrom, 5, last});
}

struct PairRow {
  const char* what;
  bool aHearsB;
  bool bHearsA;
  int portOfB;
  const char* check;  ///< of the finding; null for none
  const char* text;   ///< that it holds, or its fix
};

TEST(MeshTest, PairsThatHearOneWayOrNotAtAllStandOutWithTheLikelyCause) {
  const PairRow rows[] = {
      {"both ways", true, true, 27015, nullptr, ""},
      {"one way", true, false, 27015, "one way", "A hears B, but B does not hear A"},
      {"the other way", false, true, 27015, "one way", "B hears A, but A does not hear B"},
      {"not at all", false, false, 27015, "no way", "A and B do not hear each other"},
      {"different ports", false, false, 27016, "no way", "they use ports 27015 and 27016"},
  };
  for (const PairRow& row : rows) {
    HeardFile a = station("A", "10.0.0.1");
    HeardFile b = station("B", "10.0.0.2");
    b.port = row.portOfB;
    if (row.aHearsB) hears(a, b, kNow - 100);
    if (row.bHearsA) hears(b, a, kNow - 100);
    const Findings found = judgeMesh({a, b});
    ASSERT_EQ(found.size(), row.check ? 1u : 0u) << row.what;
    if (!row.check) continue;
    EXPECT_EQ(found[0].check, row.check) << row.what;
    EXPECT_EQ(found[0].verdict, Verdict::eFail) << row.what;
    EXPECT_NE(found[0].text.find(row.text), std::string::npos) << row.what << found[0].text;
    EXPECT_FALSE(found[0].fix.empty()) << row.what;
  }
}

TEST(MeshTest, OneThatHasSentNothingThatCouldBeHeardIsQuietNotUnheard) {
  const HeardFile a = station("A", "10.0.0.1");
  HeardFile b = station("B", "10.0.0.2");
  for (const long sent : {0L, kNow - 2000, kNow - 1}) {  // never, before A listened, just now
    b.lastSent = sent;
    EXPECT_EQ(linkOf(a, b), MeshLink::eQuiet) << sent;
  }
  b.lastSent = kNow - 100;
  EXPECT_EQ(linkOf(a, b), MeshLink::eDeaf);
}

TEST(MeshTest, AListThatStrangersFilledAccusesNoFirewall) {
  HeardFile a = station("A", "10.0.0.1");
  a.strangers = 8001;
  const HeardFile b = station("B", "10.0.0.2");
  EXPECT_EQ(linkOf(a, b), MeshLink::eQuiet);
  HeardFile hearing = b;
  hears(hearing, a, kNow - 100);
  const Findings found = judgeMesh({a, hearing});
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].verdict, Verdict::eWarn);
  EXPECT_NE(found[0].text.find("8001 senders more"), std::string::npos) << found[0].text;
}

TEST(MeshTest, OneThatWasHeardLongBeforeItSentLastIsNoLongerHeard) {
  HeardFile a = station("A", "10.0.0.1");
  const HeardFile b = station("B", "10.0.0.2");
  hears(a, b, kNow - 110);
  EXPECT_EQ(linkOf(a, b), MeshLink::eHears);
  a.heard[0].last = kNow - 500;
  EXPECT_EQ(linkOf(a, b), MeshLink::eDeaf);
}

TEST(MeshTest, OneThatSendsAllTheTimeIsMissedAndNotJustQuiet) {
  constexpr auto kBefore = static_cast<long>(HeardList::kSentEarlier);
  HeardFile listener = station("A", "10.0.0.1");
  HeardFile sender = station("B", "10.0.0.2");
  listener.written = kNow - 2;  // lists are two seconds old at most
  sender.lastSent = kNow - kBefore;
  EXPECT_EQ(linkOf(listener, sender), MeshLink::eDeaf);
  hears(listener, sender, sender.lastSent - 16);
  EXPECT_EQ(linkOf(listener, sender), MeshLink::eDeaf);
}

TEST(MeshTest, TwoStationsOfOneMachineAreToldApartByThePortTheySendFrom) {
  HeardFile a = station("A", "10.0.0.1");
  const HeardFile b = station("B", "10.0.0.2");
  HeardFile c = station("C", "10.0.0.2");
  c.sendsFrom = 50'001;
  hears(a, c, kNow - 100);
  EXPECT_EQ(linkOf(a, c), MeshLink::eHears);
  EXPECT_EQ(linkOf(a, b), MeshLink::eDeaf);
  EXPECT_EQ(ownerOf(a.heard[0], {b, c})->station, "C");
  EXPECT_EQ(ownerOf({*parseIpv4("10.0.0.9"), 50'000, 1, kNow}, {b, c}), nullptr);
}

TEST(MeshTest, AListThatIsNoLongerWrittenIsAWarningAndNoWitness) {
  const HeardFile a = station("A", "10.0.0.1");
  HeardFile b = station("B", "10.0.0.2");
  b.age = 100;
  const Findings found = judgeMesh({a, b});
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].verdict, Verdict::eWarn);
  EXPECT_NE(found[0].text.find("B's list was written 100 s ago"), std::string::npos);
}

TEST(MeshTest, AMonitorThatHearsOneNotIsNamedAndNeverMissedItself) {
  HeardFile monitor = station("monitor", "10.0.0.3");
  monitor.sendsFrom = 0;
  monitor.lastSent = 0;
  const Findings found = judgeMesh({station("A", "10.0.0.1"), monitor});
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].text, "monitor does not hear A");
}

TEST(MeshTest, WhatIsNoListIsRefused) {
  for (const char* text :
       {"", "{}", "[]", "null", R"({"station":"A"})", R"({"station":"","heard":[]})"})
    EXPECT_FALSE(readHeardFile(text, 0)) << text;
  const auto odd = readHeardFile(
      R"({"station":"A","addresses":["x",1],"heard":[{"address":"y"},{"address":"10.0.0.1"},7]})",
      3);
  ASSERT_TRUE(odd);
  EXPECT_TRUE(odd->addresses.empty());
  EXPECT_EQ(odd->heard.size(), 1u);
  EXPECT_EQ(odd->age, 3);
}

}  // namespace
