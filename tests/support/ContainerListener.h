#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "host/containers/ContainerManager.h"
#include "station/base/Strings.h"

namespace korvel {

/// Notes a container manager's notifications as "G0001 82", the flags in hex.
template <typename Data>
class ContainerListener {
 public:
  explicit ContainerListener(NotifierBase& notifier)
      : guard_(notifier.registerInternal(
            Kv::Ptr<CallbackInvoker<NotifyMsg>>(new CallbackInvoker<NotifyMsg>(
                NotifyMsgTypeDictionary::instance()[NotifyMsgTypeDictionary::eAnyChange],
                Kv::Ptr<iCallback<NotifyMsg>>(new MethodCallback<ContainerListener, NotifyMsg, int>(
                    this, &ContainerListener::heard)))))) {}

  std::vector<std::string> notes;

 private:
  int heard(const NotifyMsg& message) {
    const auto& change =
        dynamic_cast<const ContainerManagerBase::Modification<Data>&>(*message.payload());
    const Data& object = *change.object();
    const Cookie cookie(object.uuid, static_cast<char>(object.typeBytes[0]), object.typeBytes[1],
                        object.typeBytes[2]);
    char flags[16];
    std::snprintf(flags, sizeof flags, " %02x", change.flags());
    notes.push_back(utf8Text(cookie.asString()) + flags);
    return 0;
  }

  Kv::Ptr<Kv::Guard> guard_;
};

}  // namespace korvel
