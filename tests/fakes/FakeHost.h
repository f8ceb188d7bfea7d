#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/fakes/FakeContainers.h"
#include "tests/fakes/FakeEdits.h"
#include "tests/fakes/FakeFiles.h"
#include "tests/fakes/FakeMedia.h"
#include "tests/fakes/FakeNetwork.h"
#include "tests/fakes/FakeOs.h"
#include "tests/fakes/FakeProject.h"
#include "tests/fakes/FakeUi.h"
#include "tests/fakes/Journal.h"

namespace korvel {

/// A whole host on memory, behind the host's own static operations: one member a folder of host/.
///
/// A test makes one before anything of the plug-in. Its members are set to what a station in
/// network mode with the shared project "P0001" open answers; a test changes what it needs. What
/// the plug-in does to it is in `journal`, what it logs in `log`.
class FakeHost {
 public:
  FakeHost();
  FakeHost(const FakeHost&) = delete;
  FakeHost& operator=(const FakeHost&) = delete;
  ~FakeHost();

  /// The fake host made last that still lives; one for the whole process where there is none.
  static FakeHost& current();

  /// Sets what config_int reads, and the local machine number.
  void configure(const std::string& key, const std::string& value);
  void setMachine(int number);

  /// Where the open project keeps an object: "/projects/P0001/E0001.otio".
  [[nodiscard]] LightweightString<wchar_t> fileOf(const Cookie& cookie, const char* ending) const;

  /// The log lines in order, each with "both: " or "log: " before it.
  std::vector<std::string> logLines;

  Journal journal;
  FakeFiles files{journal};
  FakeNetwork network{journal};
  FakeOs os{journal, files, network};
  FakeProject project;
  FakeCommands commands{journal};
  FakeEdits edits{journal};
  FakeThumbnails thumbnails{journal};
  FakeBins bins{journal, "BinManager"};
  FakeRacks racks{journal, "RackManager"};
  FakeFilters filters{journal};
  FakeMedia media{journal};
  FakeUi ui;

 private:
  class LogSink;

  FakeHost* outer_;
  std::unique_ptr<LogSink> logSink_;
};

}  // namespace korvel
