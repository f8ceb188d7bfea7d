#pragma once

#include "station/base/HostParts.h"
#include "station/containers/ContainerPart.h"

namespace korvel {

/// The open project's filters, each the file <cookie>.json of the project's folder, with its text
/// under "filter". Building one makes it the host's ProjectFilterManager. Host thread.
class Filters : public ContainerNotifier<ProjectFilterManager, BinData, ContainerPart> {
 public:
  Filters();
  ~Filters() override;

  Result<Cookie> create(const std::string& name, const std::string& text);
  Result<void> change(const Cookie& filter, const std::string& text);

  /// Where the file of a filter is: in the open project, else in the project that the message being
  /// delivered names. Messages about filters come from every project, and the plug-in waits for the
  /// file that it is told. Without either: its path in the open project, or empty when none is
  /// open.
  [[nodiscard]] std::string metadataFile(const Cookie& filter) const;

  /// Reads all filters again and tells of each that is new, differs or is gone.
  void reInit() override { readAllAgain(); }

 protected:
  [[nodiscard]] std::string contentProblem(const JsonValue& content) const override;

 private:
  Result<void> changeFrom(const Cookie& filter, const std::string& from, const std::string& to);

  const HostEntry<Filters> entry_{&HostParts::filters, *this};
};

}  // namespace korvel
