#include "station/notify/NotifierList.h"

#include <utility>

#include "host/notify/NotifyMsg.h"

namespace korvel {

struct NotifierList::Entry {
  Kv::Ptr<CallbackInvoker<NotifyMsg>> invoker;
  bool ended = false;

  [[nodiscard]] bool takes(NotifyMsgType type) const {
    const NotifyMsgType any =
        NotifyMsgTypeDictionary::instance()[NotifyMsgTypeDictionary::eAnyChange];
    return !ended && (invoker->type() == type || invoker->type() == any);
  }
};

class NotifierList::EntryGuard : public Kv::Guard {
 public:
  EntryGuard(std::weak_ptr<Entries> entries, std::shared_ptr<Entry> entry)
      : entries_(std::move(entries)), entry_(std::move(entry)) {}

  ~EntryGuard() override {
    // A notification that is under way has a copy of the list, and must not call this callback any
    // more.
    entry_->ended = true;
    if (const auto entries = entries_.lock()) std::erase(*entries, entry_);
  }

 private:
  std::weak_ptr<Entries> entries_;
  std::shared_ptr<Entry> entry_;
};

NotifierList::NotifierList() : entries_(std::make_shared<Entries>()) {}

NotifierList::~NotifierList() = default;

Kv::Ptr<Kv::Guard> NotifierList::add(const Kv::Ptr<CallbackInvoker<NotifyMsg>>& invoker) {
  auto entry = std::make_shared<Entry>();
  entry->invoker = invoker;
  if (invoker) entries_->push_back(entry);
  return {new EntryGuard(entries_, std::move(entry))};
}

void NotifierList::notify(const NotifyMsg& message) const {
  // A callback may add or end others: the copy is walked, and keeps all alive while they run.
  const Entries atStart = *entries_;
  for (const auto& entry : atStart) {
    if (entry->takes(message.type())) entry->invoker->invoke(message);
  }
}

void NotifierList::notify(NotifyMsgType type, const NotifyPayload* payload) const {
  notify(NotifyMsg(type, payload));
}

}  // namespace korvel

NotifyMsgTypeDictionary& NotifyMsgTypeDictionary::instance() {
  static NotifyMsgTypeDictionary dictionary;
  return dictionary;
}

NotifyMsgType NotifyMsgTypeDictionary::operator[](eEntry entry) const {
  constexpr NotifyMsgType kAnyChange = 0xFFFFFFFF;  // no notifier issues a type of this number
  return entry == eAnyChange ? kAnyChange : 0;
}
