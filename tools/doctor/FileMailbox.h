#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "station/base/Json.h"
#include "tools/doctor/ProbeFolder.h"

namespace korvel {

/// Letters between the trials of two machines: small files in the probe folder, each written once,
/// whole, under a name of its own, so that no cache of a network file system has an older one of it
/// and no lock is needed.
///
///     kvd-<who wrote it>-<step>      kvd-6f1c22ab-here
///
/// Letters are found by listing the folder, never by looking for one in vain. What this one wrote
/// is removed with it.
class FileMailbox {
 public:
  FileMailbox(const ProbeFolder& folder, std::string ownId);
  FileMailbox(const FileMailbox&) = delete;
  FileMailbox& operator=(const FileMailbox&) = delete;
  ~FileMailbox();

  [[nodiscard]] const std::string& ownId() const { return ownId_; }

  /// Writes a letter; false where the share does not take it.
  bool post(const std::string& step, const JsonValue& letter = JsonValue::object());

  /// The letter of this step by another trial, as soon as it is there; nothing after `patience`.
  [[nodiscard]] std::optional<JsonValue> await(const std::string& id, const std::string& step,
                                               std::chrono::milliseconds patience) const;

  /// The trials, other than this one, that have written this step.
  [[nodiscard]] std::set<std::string> writersOf(const std::string& step) const;

 private:
  /// A letter that came in the same tick of the server's clock as the last look leaves the folder's
  /// time as it was, and a network file system's cache does not look again for up to a minute; a
  /// new time of the folder makes it look.
  void touchNowAndThen() const;

  const ProbeFolder& folder_;
  std::string ownId_;
  mutable std::chrono::steady_clock::time_point nextTouch_;
  std::vector<std::string> written_;
};

}  // namespace korvel
