#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/media/DiskManager.h"
#include "host/media/SystemCache.h"
#include "tests/fakes/FakeNotifier.h"

namespace korvel {

/// The media cache: notes what is asked, and notifies when a test says so.
class FakeMedia : public SystemCache {
 public:
  explicit FakeMedia(Journal& journal) : registrations(journal, "SystemCache"), journal_(journal) {}

  FakeRegistrations registrations;

  /// Local directories and their network forms, both without a trailing separator.
  std::vector<std::pair<std::string, std::string>> directories = {{"/media", "//store/rushes"}};

  void addFile(const Cookie& cookie, const MaterialFilename& file, bool isProxy) override;
  void removeFile(const Cookie& cookie, bool isProxy, int what) override;
  Kv::Ptr<Kv::Guard> registerInternal(const Kv::Ptr<CallbackInvoker<NotifyMsg>>& invoker) override {
    return registrations.add(invoker);
  }

 private:
  Journal& journal_;
};

}  // namespace korvel
