#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/notify/Notifier.h"
#include "tests/fakes/Journal.h"

namespace korvel {

/// Keeps a fake notifier's registrations and delivers to them, in their order. Notes
/// "NAME::registerInternal" and, when a guard is released, "NAME::endRegistration".
class FakeRegistrations {
 public:
  FakeRegistrations(Journal& journal, const std::string& name) : journal_(journal), name_(name) {}

  Kv::Ptr<Kv::Guard> add(const Kv::Ptr<CallbackInvoker<NotifyMsg>>& invoker);

  /// Delivers to every living registration for the type, or for any change.
  void notify(NotifyMsgType type, const NotifyPayload* payload);

  [[nodiscard]] std::size_t size() const;

 private:
  struct Entry {
    Kv::Ptr<CallbackInvoker<NotifyMsg>> invoker;  ///< empty once ended
  };
  class EntryGuard;

  Journal& journal_;
  std::string name_;
  std::vector<std::shared_ptr<Entry>> entries_;
};

}  // namespace korvel
