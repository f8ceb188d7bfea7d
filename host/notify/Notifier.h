#pragma once

#include <functional>

#include "host/base/HostApi.h"
#include "host/base/Ptr.h"
#include "host/notify/NotifyMsg.h"

/// A callable that a notifier calls with a message; the result is ignored by the notifier.
template <typename Message>
class iCallback : public virtual Kv::InternalRefCount {
 public:
  ~iCallback() override = default;
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

  [[nodiscard]] NotifyMsgType type() const { return type_; }
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
