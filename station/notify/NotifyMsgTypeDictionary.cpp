#include "host/notify/NotifyMsg.h"

NotifyMsgTypeDictionary& NotifyMsgTypeDictionary::instance() {
  static NotifyMsgTypeDictionary dictionary;
  return dictionary;
}

NotifyMsgType NotifyMsgTypeDictionary::operator[](eEntry entry) const {
  constexpr NotifyMsgType kAnyChange = 0xFFFFFFFF;  // no notifier issues a type of this number
  return entry == eAnyChange ? kAnyChange : 0;
}
