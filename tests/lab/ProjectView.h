#pragma once

#include <map>
#include <set>
#include <string>

#include "station/base/Json.h"

namespace korvel {

/// What a station shows of a project that all stations must show alike: its objects, their names,
/// owners and contents, the clips of the edits that it has open, the rooms. What is its own alone
/// (what it has open, where it is) is left out.
class ProjectView {
 public:
  /// From what the command `state` tells.
  explicit ProjectView(const JsonValue& state);

  /// What one shows and the other does not, a line each; empty when they agree. Clips are compared
  /// where both have the edit open.
  [[nodiscard]] std::string differenceFrom(const ProjectView& other) const;

  /// The project's cookie.
  [[nodiscard]] const std::string& project() const { return project_; }

  /// The cookies of the objects that are in files of their own name: all but media.
  [[nodiscard]] const std::set<std::string>& filed() const { return filed_; }

 private:
  std::string project_;
  std::map<std::string, std::string> objects_;  ///< by kind and cookie, or a room's name
  std::map<std::string, std::string> clips_;    ///< by the edit's cookie
  std::set<std::string> filed_;
};

/// The cookies of the objects among the names of files in a project's folder, media left out.
std::set<std::string> cookiesAmong(const std::set<std::string>& files);

}  // namespace korvel
