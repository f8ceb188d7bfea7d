#include "station/notify/NotifierList.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

using namespace korvel;

namespace {

constexpr NotifyMsgType kChanged = 7;
constexpr NotifyMsgType kRemoved = 8;

/// Listens to a list and notes what it hears.
class Listener {
 public:
  Listener(std::string name, std::vector<std::string>& heard)
      : name_(std::move(name)), heard_(heard) {}

  void listen(NotifierList& list, NotifyMsgType type) {
    guard = list.add(new CallbackInvoker<NotifyMsg>(
        type, new MethodCallback<Listener, NotifyMsg, int>(this, &Listener::handle)));
  }

  int handle(const NotifyMsg& message) {
    heard_.push_back(name_ + std::to_string(message.type()));
    if (meanwhile) meanwhile();
    return 0;
  }

  Kv::Ptr<Kv::Guard> guard;
  std::function<void()> meanwhile;

 private:
  std::string name_;
  std::vector<std::string>& heard_;
};

using Heard = std::vector<std::string>;

class NotifierListTest : public testing::Test {
 protected:
  Heard heard;
  NotifierList list;
  Listener a{"a", heard};
  Listener b{"b", heard};
};

TEST_F(NotifierListTest, CallbacksAreCalledForTheirTypeInOrder) {
  a.listen(list, kChanged);
  b.listen(list, kChanged);
  list.notify(kChanged);
  list.notify(kRemoved);
  EXPECT_EQ(heard, (Heard{"a7", "b7"}));
}

TEST_F(NotifierListTest, ARegistrationForAnyChangeHearsEverything) {
  a.listen(list, NotifyMsgTypeDictionary::instance()[NotifyMsgTypeDictionary::eAnyChange]);
  list.notify(kChanged);
  list.notify(kRemoved);
  EXPECT_EQ(heard, (Heard{"a7", "a8"}));
}

TEST_F(NotifierListTest, ReleasingTheGuardEndsTheRegistration) {
  a.listen(list, kChanged);
  const Kv::Ptr<Kv::Guard> copy = a.guard;
  a.guard.reset();
  list.notify(kChanged);
  EXPECT_EQ(heard, (Heard{"a7"})) << "a copy keeps it";
  const_cast<Kv::Ptr<Kv::Guard>&>(copy).reset();
  list.notify(kChanged);
  EXPECT_EQ(heard.size(), 1U);
}

TEST_F(NotifierListTest, ARegistrationThatEndsDuringADeliveryIsNotCalledAnyMore) {
  a.listen(list, kChanged);
  b.listen(list, kChanged);
  a.meanwhile = [this] { b.guard.reset(); };
  list.notify(kChanged);
  EXPECT_EQ(heard, (Heard{"a7"}));
}

TEST_F(NotifierListTest, ARegistrationThatBeginsDuringADeliveryWaitsForTheNext) {
  a.listen(list, kChanged);
  a.meanwhile = [this] {
    if (!b.guard) b.listen(list, kChanged);
  };
  list.notify(kChanged);
  EXPECT_EQ(heard, (Heard{"a7"}));
  list.notify(kChanged);
  EXPECT_EQ(heard, (Heard{"a7", "a7", "b7"}));
}

TEST_F(NotifierListTest, ACallbackMayEndItsOwnRegistration) {
  a.listen(list, kChanged);
  a.meanwhile = [this] { a.guard.reset(); };
  list.notify(kChanged);
  list.notify(kChanged);
  EXPECT_EQ(heard, (Heard{"a7"}));
}

TEST_F(NotifierListTest, AGuardMayBeReleasedAfterItsNotifierIsGone) {
  auto brief = std::make_unique<NotifierList>();
  a.listen(*brief, kChanged);
  brief.reset();
  a.guard.reset();
  EXPECT_TRUE(heard.empty());
}

TEST_F(NotifierListTest, ANotifierMayGoDuringItsOwnDelivery) {
  auto brief = std::make_unique<NotifierList>();
  a.listen(*brief, kChanged);
  b.listen(*brief, kChanged);
  a.meanwhile = [&brief] { brief.reset(); };
  brief->notify(kChanged);
  EXPECT_EQ(heard, (Heard{"a7", "b7"}));
}

TEST_F(NotifierListTest, AnEmptyInvokerHearsNothing) {
  EXPECT_TRUE(list.add({}));
  list.notify(kChanged);
}

}  // namespace
