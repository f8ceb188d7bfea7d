#pragma once

#include <memory>
#include <vector>

#include "host/notify/Notifier.h"

namespace korvel {

/// The registrations of one notifier: what an implementation of NotifierBase keeps, and notifies
/// through. Host thread.
class NotifierList {
 public:
  NotifierList();
  NotifierList(const NotifierList&) = delete;
  NotifierList& operator=(const NotifierList&) = delete;
  ~NotifierList();

  /// Registers a callback for its type (the dictionary's eAnyChange takes every type). The guard is
  /// the caller's: releasing it ends the registration, and may be done after this list is gone. An
  /// empty invoker is registered for nothing.
  Kv::Ptr<Kv::Guard> add(const Kv::Ptr<CallbackInvoker<NotifyMsg>>& invoker);

  /// Calls every callback that is registered for the message's type, in the order of registration.
  /// Registrations that begin meanwhile wait for the next message; those that end meanwhile are not
  /// called any more.
  void notify(const NotifyMsg& message) const;
  void notify(NotifyMsgType type, const NotifyPayload* payload = nullptr) const;

 private:
  struct Entry;
  class EntryGuard;
  using Entries = std::vector<std::shared_ptr<Entry>>;

  std::shared_ptr<Entries> entries_;
};

}  // namespace korvel
