#pragma once

// How a part of the host tells others that it changed.
//
//     listener                                  notifier (a container manager, the media cache)
//     registerInternal(type, callback) -------> keeps the callback
//               <------------- Kv::Guard ------
//                                               its user changes something
//     callback.call(message)  <---------------- calls all that asked for this type, one by one
//     guard.reset() --------------------------> forgets the callback
//
// All of it happens on the host thread, and nothing is queued: when the change returns, all have
// been told. A callback may register others, end registrations (its own too) and change the
// notifier again. Guards may outlive their notifier: either side, plug-in or document, may be taken
// down first.

#include <functional>

#include "host/base/HostApi.h"
#include "host/base/Ptr.h"
#include "host/notify/NotifyMsg.h"

/// A callable that a notifier calls with a message; the result is ignored by the notifier.
template <typename Message>
class iCallback : public virtual Kv::InternalRefCount {
 public:
  ~iCallback() override = default;

  /// Is called on the host thread. Must not throw.
  virtual int call(const Message& message) = 0;
};

/// Calls one method of one object, which must outlive the registration.
template <typename Class, typename Message, typename Result>
class MethodCallback : public iCallback<Message> {
 public:
  using Method = Result (Class::*)(const Message&);

  MethodCallback(Class* object, Method method) : object_(object), method_(method) {}
  int call(const Message& message) override { return (object_->*method_)(message); }

 private:
  Class* object_;
  Method method_;
};

/// A callback together with the notification type that it is for.
template <typename Message>
class CallbackInvoker : public virtual Kv::InternalRefCount {
 public:
  CallbackInvoker(NotifyMsgType type, Kv::Ptr<iCallback<Message>> callback)
      : type_(type), callback_(callback) {}

  /// The type that the registration is for.
  [[nodiscard]] NotifyMsgType type() const { return type_; }

  /// Calls the callback, whatever the message's type is: the notifier has compared them.
  int invoke(const Message& message) const { return callback_->call(message); }

 private:
  NotifyMsgType type_;
  Kv::Ptr<iCallback<Message>> callback_;
};

/// Something that others may listen to. Notifications are delivered synchronously on the host
/// thread, in the order of registration; a registration that ends or begins during a delivery is
/// honoured from the next delivery on, except that an ended one is never called again.
class KV_HOST_API NotifierBase {
 public:
  virtual ~NotifierBase() = default;

  /// Registers a callback for its type. The guard is the caller's: releasing it ends the
  /// registration, and may be done after the notifier is gone.
  virtual Kv::Ptr<Kv::Guard> registerInternal(
      const Kv::Ptr<CallbackInvoker<NotifyMsg>>& invoker) = 0;
};
