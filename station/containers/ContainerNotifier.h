#pragma once

#include <cstdint>
#include <utility>

#include "host/containers/ContainerManager.h"
#include "station/notify/NotifierList.h"

namespace korvel {

/// What makes a part of the project one of the host's managers: its listeners, who are told of each
/// change with a Modification<Data>. `Part` is a ContainerPart. Host thread.
template <typename Manager, typename Data, typename Part>
class ContainerNotifier : public Manager, public Part {
 public:
  template <typename... Arguments>
  explicit ContainerNotifier(Arguments&&... arguments)
      : Part(std::forward<Arguments>(arguments)...) {}

  Kv::Ptr<Kv::Guard> registerInternal(const Kv::Ptr<CallbackInvoker<NotifyMsg>>& invoker) override {
    return listeners_.add(invoker);
  }

 protected:
  void notify(const Cookie& cookie, std::uint32_t flags) override {
    constexpr NotifyMsgType kContainerChanged = 1;
    const Data object{cookie.getUuid(), cookie.getTypeBytes()};
    const ContainerManagerBase::Modification<Data> modification(&object, flags);
    listeners_.notify(kContainerChanged, &modification);
  }

 private:
  NotifierList listeners_;
};

}  // namespace korvel
