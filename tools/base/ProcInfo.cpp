#include "tools/base/ProcInfo.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
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

bool hasOpen(const fs::path& process, const struct stat& wanted) {
  std::error_code problem;
  for (fs::directory_iterator each(process / "fd", problem), end; !problem && each != end;
       each.increment(problem)) {
    std::error_code gone;
    // A link's text first: asking for the file behind it could wait for a share that hangs.
    if (!fs::read_symlink(each->path(), gone).is_absolute()) continue;
    struct stat status {};
    if (::stat(each->path().c_str(), &status) == 0 && status.st_dev == wanted.st_dev &&
        status.st_ino == wanted.st_ino) {
      return true;
    }
  }
  return false;
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

std::string placeOfHolder(const std::string& path) {
  struct stat wanted {};
  if (::stat(path.c_str(), &wanted) != 0) return {};
  std::error_code problem;
  for (fs::directory_iterator each("/proc", problem), end; !problem && each != end;
       each.increment(problem)) {
    const std::string number = each->path().filename().string();
    if (!std::all_of(number.begin(), number.end(), [](unsigned char c) { return std::isdigit(c); }))
      continue;
    if (!hasOpen(each->path(), wanted)) continue;
    return programOf(each->path()) + ", process " + number + " on this machine";
  }
  return ::geteuid() == 0 ? "on another machine" : "on another machine or as another user";
}

bool isStationRunning() {
  std::error_code problem;
  for (fs::directory_iterator each("/proc", problem), end; !problem && each != end;
       each.increment(problem)) {
    if (programOf(each->path()) == "kv-station") return true;
  }
  return false;
}

}  // namespace korvel
