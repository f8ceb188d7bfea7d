#pragma once

#include <cstdint>

#include "host/base/HostApi.h"

/// A kind of notification; 0 is none.
using NotifyMsgType = std::uint32_t;

/// What a notification is about. Notifications carry a class derived from it, and a handler casts
/// to the class that the notifier it registered with sends.
class KV_HOST_API NotifyPayload {
 public:
  virtual ~NotifyPayload() = default;
};

/// One notification, alive for the duration of the call that delivers it.
class KV_HOST_API NotifyMsg {
 public:
  NotifyMsg(NotifyMsgType type, const NotifyPayload* payload) : type_(type), payload_(payload) {}

  [[nodiscard]] NotifyMsgType type() const { return type_; }

  /// What the notification carries, owned by the sender; null where it carries nothing.
  [[nodiscard]] const NotifyPayload* payload() const { return payload_; }

 private:
  NotifyMsgType type_;
  const NotifyPayload* payload_;
};

/// The host's well-known notification types.
class KV_HOST_API NotifyMsgTypeDictionary {
 public:
  enum eEntry {
    eAnyChange,  ///< a registration for it receives every notification that its notifier issues
  };

  static NotifyMsgTypeDictionary& instance();

  [[nodiscard]] NotifyMsgType operator[](eEntry entry) const;
};
