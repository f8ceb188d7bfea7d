#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace korvel {

/// The text of userlist.dat as stations read it: lines of ASCII, upper-cased, each name once. A
/// plain value.
struct UserList {
  std::vector<std::string> users;

  /// What makes a line a name that no station has, each with the line's number: a byte-order mark,
  /// blanks at its ends, letters that are not ASCII, nothing at all, or "<All>".
  std::vector<std::string> problems;

  [[nodiscard]] bool holds(const std::string& user) const;
};

/// Reads the bytes of a userlist.dat.
UserList readUserList(std::string_view bytes);

}  // namespace korvel
