#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "station/wire/MessageType.h"

namespace korvel {

/// The station's own view of a datagram's text, for its events and for tools: the fields as they
/// stand on the wire.
///
///     d <sep> type <sep> project <sep> the type's fields, each followed by <sep>
///
/// `<sep>` is the byte 0xAC. Bytes are kept as they are, UTF-8 or not. Which type has which fields
/// is the table of MessageType.
struct MessageFields {
  bool valid = false;        ///< stations that it concerns do what its type is for
  int type = 0;              ///< the number on the wire; 0 for a text of another version
  std::string typeName;      ///< "EditSaved" and its like; "unknown" for a number without a name
  std::string project;       ///< cookie text
  std::string cookie;        ///< cookie text
  std::string source;        ///< the sending user
  std::string target;        ///< user or machine addressed
  std::string data;          ///< owner, path, words or command
  std::string modification;  ///< the change's text form
  std::string container;     ///< the container value's text
  std::size_t count = 0;     ///< fields that the text has, version and all

  /// Whether a text of it holds the separator: the message has more fields than its type.
  [[nodiscard]] bool isCut() const;
};

/// Splits a text at its separators as every station does: a text without one is a single field; an
/// empty field before a leading separator does not count (unless the text is that one byte), nor
/// does one after a trailing separator.
std::vector<std::string> splitFields(std::string_view text);

/// Reads a datagram's text up to its first zero byte, if it has one, as receivers do.
MessageFields readMessage(std::string_view wireText);

/// The type of a datagram, as readMessage() has it, without reading the rest.
int typeOnWire(std::string_view wireText);

/// The number that a text begins with, as receivers read it; 0 for none.
long numberAtStart(const std::string& text);

/// Whether receivers take a text for a container value: what they read of it is one of
/// kContainerValues. Negative numbers wrap to high ones.
bool isContainerValue(const std::string& text);

/// The text of a request that the machine with this number runs a command, from `user`, sent while
/// `project` (a cookie's text) is open.
std::string composeActionRequest(const std::string& project, const std::string& user, int machine,
                                 const std::string& command);

}  // namespace korvel
