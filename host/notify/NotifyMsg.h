#pragma once

// What is handed to a callback: the kind of notification, and what it is about.
//
// Each notifier says in its own header which class its payload is. A receiver that registers for
// eAnyChange with one notifier may therefore cast the payload without asking; payloads of two
// notifiers are never mixed in one registration. The message and its payload live for the duration
// of the call alone: what is needed later is copied.

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

  /// The kind that the notifier issued, never eAnyChange itself.
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

  /// The one dictionary, made on first use. Any thread.
  static NotifyMsgTypeDictionary& instance();

  /// The type's number in this run; it is not stored and not sent.
  [[nodiscard]] NotifyMsgType operator[](eEntry entry) const;
};
