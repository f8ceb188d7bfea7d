#include "tests/fakes/FakeNotifier.h"

#include <algorithm>

#include "tests/fakes/FakeHost.h"

namespace korvel {

class FakeRegistrations::EntryGuard : public Kv::Guard {
 public:
  EntryGuard(std::shared_ptr<Entry> entry, const std::string& name)
      : entry_(std::move(entry)), name_(name) {}
  ~EntryGuard() override {
    entry_->invoker.reset();
    FakeHost::current().journal.did(name_ + "::endRegistration");
  }

 private:
  std::shared_ptr<Entry> entry_;
  std::string name_;
};

Kv::Ptr<Kv::Guard> FakeRegistrations::add(const Kv::Ptr<CallbackInvoker<NotifyMsg>>& invoker) {
  journal_.did(name_ + "::registerInternal", {static_cast<unsigned>(invoker->type())});
  entries_.push_back(std::make_shared<Entry>(Entry{invoker}));
  return new EntryGuard(entries_.back(), name_);
}

void FakeRegistrations::notify(NotifyMsgType type, const NotifyPayload* payload) {
  const NotifyMsgType any =
      NotifyMsgTypeDictionary::instance()[NotifyMsgTypeDictionary::eAnyChange];
  const NotifyMsg message(type, payload);
  for (const auto& entry : std::vector(entries_)) {
    const auto invoker = entry->invoker;
    if (invoker && (invoker->type() == any || invoker->type() == type)) invoker->invoke(message);
  }
}

std::size_t FakeRegistrations::size() const {
  return static_cast<std::size_t>(
      std::count_if(entries_.begin(), entries_.end(),
                    [](const auto& entry) { return static_cast<bool>(entry->invoker); }));
}

}  // namespace korvel
