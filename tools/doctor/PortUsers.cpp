#include "tools/doctor/PortUsers.h"

#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

namespace korvel {

namespace {

namespace fs = std::filesystem;

/// The inode numbers of the sockets that have the port, each as a link of /proc/PID/fd names it.
std::map<std::string, PortUser> socketsAt(int port, const std::string& proc) {
  std::map<std::string, PortUser> sockets;
  std::ifstream table(proc + "/net/udp");
  std::string line;
  std::getline(table, line);
  while (std::getline(table, line)) {
    std::istringstream words(line);
    std::string word, local, inode;
    words >> word >> local;
    for (int skipped = 0; skipped < 7; ++skipped) words >> word;
    words >> inode;
    const auto colon = local.find(':');
    if (colon == local.npos || inode.empty()) continue;
    int number = 0;
    std::from_chars(local.data() + colon + 1, local.data() + local.size(), number, 16);
    if (number == port) sockets["socket:[" + inode + "]"] = {};
  }
  return sockets;
}

std::string programOf(const fs::path& process) {
  std::ifstream file(process / "comm");
  std::string name;
  std::getline(file, name);
  return name;
}

void findOwner(const fs::path& process, int number, std::map<std::string, PortUser>& sockets) {
  std::error_code problem;
  for (fs::directory_iterator each(process / "fd", problem), end; !problem && each != end;
       each.increment(problem)) {
    std::error_code gone;
    const auto found = sockets.find(fs::read_symlink(each->path(), gone).string());
    if (found != sockets.end() && found->second.process == 0) {
      found->second = {programOf(process), number};
    }
  }
}

}  // namespace

std::vector<PortUser> usersOfPort(int port, const std::string& proc) {
  auto sockets = socketsAt(port, proc);
  std::error_code problem;
  for (fs::directory_iterator each(proc, problem), end; !sockets.empty() && each != end;
       each.increment(problem)) {
    if (problem) break;
    const std::string name = each->path().filename().string();
    int number = 0;
    const auto [stop, bad] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (bad == std::errc() && stop == name.data() + name.size()) {
      findOwner(each->path(), number, sockets);
    }
  }
  std::vector<PortUser> users;
  for (auto& [inode, user] : sockets) users.push_back(std::move(user));
  return users;
}

std::string namesOf(const std::vector<PortUser>& users) {
  std::string text;
  std::size_t unseen = 0;
  for (const PortUser& user : users) {
    if (user.process == 0) {
      ++unseen;
    } else {
      text += (text.empty() ? "" : ", ") + user.program + " (process " +
              std::to_string(user.process) + ")";
    }
  }
  if (unseen == 0) return text;
  return text + (text.empty() ? "" : ", ") + std::to_string(unseen) + " that this user may not see";
}

}  // namespace korvel
