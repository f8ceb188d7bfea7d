#pragma once

#include <string>

#include "host/containers/ContainerManager.h"
#include "tests/fakes/FakeNotifier.h"

namespace korvel {

/// Bins or racks: notes what is asked, and notifies when a test says so.
template <typename Manager, typename Data>
class FakeContainerManager : public Manager {
 public:
  FakeContainerManager(Journal& journal, const std::string& name)
      : registrations(journal, name), journal_(journal), name_(name) {}

  FakeRegistrations registrations;

  void destroy(const Cookie& cookie, const LightweightString<char>& reason) override {
    journal_.did(name_ + "::destroy", {cookie, reason});
  }
  void reload(const Cookie& cookie) override { journal_.did(name_ + "::reload", {cookie}); }
  Kv::Ptr<Kv::Guard> registerInternal(const Kv::Ptr<CallbackInvoker<NotifyMsg>>& invoker) override {
    return registrations.add(invoker);
  }

  /// Notifies of a change of the container with this cookie; a null cookie gives no object.
  void notifyChange(const Cookie& cookie, std::uint32_t flags) {
    const Data data{cookie.getUuid(), cookie.getTypeBytes()};
    const ContainerManagerBase::Modification<Data> change(cookie.isNull() ? nullptr : &data, flags);
    registrations.notify(kChange, &change);
  }

  static constexpr NotifyMsgType kChange = 200;

 private:
  Journal& journal_;
  std::string name_;
};

using FakeBins = FakeContainerManager<BinManager, BinData>;
using FakeRacks = FakeContainerManager<RackManager, RackData>;

class FakeFilters : public ProjectFilterManager {
 public:
  explicit FakeFilters(Journal& journal)
      : registrations(journal, "ProjectFilterManager"), journal_(journal) {}

  FakeRegistrations registrations;

  void reInit() override { journal_.did("ProjectFilterManager::reInit"); }
  Kv::Ptr<Kv::Guard> registerInternal(const Kv::Ptr<CallbackInvoker<NotifyMsg>>& invoker) override {
    return registrations.add(invoker);
  }

  /// As FakeContainerManager's.
  void notifyChange(const Cookie& cookie, std::uint32_t flags) {
    const BinData data{cookie.getUuid(), cookie.getTypeBytes()};
    const ContainerManagerBase::Modification<BinData> change(cookie.isNull() ? nullptr : &data,
                                                             flags);
    registrations.notify(FakeBins::kChange, &change);
  }

 private:
  Journal& journal_;
};

}  // namespace korvel
