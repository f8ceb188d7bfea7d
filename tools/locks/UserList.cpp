#include "tools/locks/UserList.h"

#include <algorithm>

#include "host/base/Text.h"
#include "station/base/Strings.h"

namespace korvel {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kEverybody = "<ALL>";

/// Takes the next line off a text. Lines end as stations end them: LF, CR LF or CR.
std::string takeLine(std::string_view& rest) {
  const std::size_t end = std::min(rest.find_first_of("\r\n"), rest.size());
  const std::string line(rest.substr(0, end));
  rest.remove_prefix(end);
  rest.remove_prefix(std::min<std::size_t>(rest.starts_with("\r\n") ? 2 : 1, rest.size()));
  return line;
}

bool isAscii(const std::string& text) {
  return std::ranges::all_of(text, [](unsigned char byte) { return byte < 0x80; });
}

/// What is wrong with a line; empty where it is a name that a station can have.
std::string problemOf(const std::string& line) {
  if (line.starts_with(kByteOrderMark)) {
    return "begins with a byte-order mark, which becomes a part of the name";
  }
  if (line.find_first_not_of(" \t") == line.npos) return "is empty";
  if (line.front() == ' ' || line.back() == ' ' || line.back() == '\t' || line.front() == '\t') {
    return "has blanks at an end, which become a part of the name";
  }
  if (!isAscii(line)) return "holds letters beyond ASCII, which stations read as others";
  if (upperCased(line) == kEverybody) return "is \"<All>\", which means everybody";
  return {};
}

}  // namespace

bool UserList::holds(const std::string& user) const {
  return std::ranges::find(users, upperCased(user)) != users.end();
}

UserList readUserList(std::string_view bytes) {
  UserList list;
  for (std::size_t number = 1; !bytes.empty(); ++number) {
    const std::string line = takeLine(bytes);
    const std::string problem = problemOf(line);
    if (!problem.empty()) {
      list.problems.push_back("userlist.dat line " + std::to_string(number) + " " + problem);
    }
    auto name = Kv::WStringFromAscii(hostText(line));
    Kv::toUpper(name);
    const std::string user = utf8Text(name);
    if (std::ranges::find(list.users, user) == list.users.end()) list.users.push_back(user);
  }
  return list;
}

}  // namespace korvel
