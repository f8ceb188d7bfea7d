#pragma once

#include "host/os/OS.h"
#include "tests/fakes/Journal.h"

namespace korvel {

class FakeFiles;
class FakeNetwork;

/// The fake host's operating-system layer. Sleeping only notes that it was asked for.
class FakeOs : public iOS, public iOSPrivate {
 public:
  FakeOs(Journal& journal, FakeFiles& files, FakeNetwork& network)
      : journal_(journal), files_(files), network_(network) {}

  LightweightString<wchar_t> userName = L"anna";
  LightweightString<wchar_t> hostName = L"edit-1";
  LightweightString<wchar_t> projectsDirectory = L"/projects/";

  [[nodiscard]] iFileManager& fileManager() override;
  [[nodiscard]] LightweightString<wchar_t> currentUserName() const override { return userName; }
  [[nodiscard]] LightweightString<wchar_t> networkHostName() const override { return hostName; }
  void sleepMilliseconds(unsigned milliseconds) override;
  [[nodiscard]] iNetworkService& networkService() override;

 private:
  Journal& journal_;
  FakeFiles& files_;
  FakeNetwork& network_;
};

}  // namespace korvel
