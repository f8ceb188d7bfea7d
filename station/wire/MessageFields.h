#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace korvel {

/// The station's own view of a datagram's text, for its events and for tools: the fields as they
/// stand on the wire.
///
///     d <sep> type <sep> project <sep> the type's fields, each followed by <sep>
///
/// `<sep>` is the byte 0xAC. Bytes are kept as they are, UTF-8 or not.
struct MessageFields {
  bool valid = false;        ///< a message that a station would look at
  int type = 0;              ///< the number on the wire; 0 for a text of another version
  std::string typeName;      ///< "EditSaved" and its like; "unknown" for a number without a name
  std::string project;       ///< cookie text
  std::string cookie;        ///< cookie text; types 1 to 7, 11, 12, 14 and 15
  std::string source;        ///< the sending user; types 10 to 13
  std::string target;        ///< user or machine addressed; types 10 to 13
  std::string data;          ///< types 5, 8, 9, 10 and 13
  std::string modification;  ///< the change's text form; type 1
  std::string container;     ///< the container value's text; types 7 and 15
};

/// The byte that follows every field.
inline constexpr char kFieldSeparator = '\xAC';

/// Splits a text at its separators as every station does: a text without one is a single field; an
/// empty field before a leading separator does not count (unless the text is that one byte), nor
/// does one after a trailing separator.
std::vector<std::string> splitFields(std::string_view text);

/// Reads a datagram's text up to its first zero byte, if it has one, as receivers do.
MessageFields readMessage(const std::string& wireText);

/// The name of a message type: "EditSaved" for 2; "unknown" for a number without one.
const char* messageTypeName(int type);

/// The name of a datagram's type, as readMessage gives it.
const char* messageTypeNameOf(std::string_view wireText);

/// The text of a request that the machine with this number runs a command, from `user`, sent while
/// `project` (a cookie's text) is open.
std::string composeActionRequest(const std::string& project, const std::string& user, int machine,
                                 const std::string& command);

}  // namespace korvel
