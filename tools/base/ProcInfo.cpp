#include "tools/base/ProcInfo.h"
#include "station/base/Strings.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
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
    // Seven columns lie between the local address and the inode: remote address, state, queues,
    // timer, retransmissions, user, timeout.
    for (int skipped = 0; skipped < 7; ++skipped) words >> word;
    words >> inode;
    const auto colon = local.find(':');
    if (colon == local.npos || inode.empty()) continue;
    int number = 0;
    // The kernel writes addresses and ports of this table in hex.
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
    // After a fork several processes have one socket; the first of them is named.
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
    // A link that is no absolute path is a socket or a pipe: there is no file to compare.
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
  // /proc shows the open files of other users to root alone.
  return ::geteuid() == 0 ? "on another machine" : "on another machine or as another user";
}

bool isStationRunning() {
  std::error_code problem;
  // A window that asks for its folder has this program look at it, and runs no station yet.
  for (fs::directory_iterator each("/proc", problem), end; !problem && each != end;
       each.increment(problem)) {
    // The kernel cuts this name after 15 bytes; that of the station is shorter.
    const bool isAsking = each->path().filename() == std::to_string(::getppid());
    if (!isAsking && programOf(each->path()) == "kv-station") return true;
  }
  return false;
}

namespace {

struct KnownOption {
  const char* type;  ///< the beginning of the file systems' names: "nfs" is nfs4, too; "" is all
  const char* name;  ///< with "=VALUE" where only that value matters
  Verdict verdict;
  const char* meaning;
  const char* fix;
};

constexpr const char* kWithLocks =
    "mount it without this option, on every machine (umount, take it out of /etc/fstab, mount); "
    "NFSv4 needs no lock option at all";

constexpr std::array kKnownOptions{
    KnownOption{"nfs", "nolock", Verdict::eFail,
                "locks hold on this machine alone: two stations can take one project", kWithLocks},
    KnownOption{"nfs", "local_lock=all", Verdict::eFail,
                "locks hold on this machine alone: two stations can take one project", kWithLocks},
    KnownOption{"nfs", "local_lock=posix", Verdict::eFail,
                "locks hold on this machine alone: two stations can take one project", kWithLocks},
    KnownOption{"cifs", "nobrl", Verdict::eFail,
                "locks are never sent to the server: two stations can take one project",
                "mount it without nobrl, on every machine"},
    KnownOption{"smb3", "nobrl", Verdict::eFail,
                "locks are never sent to the server: two stations can take one project",
                "mount it without nobrl, on every machine"},
    KnownOption{"", "ro", Verdict::eFail, "nothing can be written", "mount it with rw"},
    KnownOption{"nfs", "soft", Verdict::eWarn,
                "a server that is slow for a moment makes writes fail, and what was being saved is "
                "lost",
                "mount it with hard"},
    KnownOption{"nfs", "softerr", Verdict::eWarn,
                "a server that is slow for a moment makes writes fail, and what was being saved is "
                "lost",
                "mount it with hard"},
    KnownOption{"nfs", "nocto", Verdict::eWarn,
                "what other machines wrote may not be seen for a minute", "mount it without nocto"},
    KnownOption{"nfs", "noac", Verdict::eWarn,
                "every look at a file asks the server: nothing breaks, everything is slow",
                "mount it without noac: stations look freshly where they must"},
    KnownOption{"cifs", "cache=loose", Verdict::eWarn,
                "what other machines wrote may not be seen for long", "mount it with cache=strict"},
    KnownOption{"smb3", "cache=loose", Verdict::eWarn,
                "what other machines wrote may not be seen for long", "mount it with cache=strict"},
};

/// File systems that other machines may have mounted as well. "fuse" alone does not tell what is
/// behind it, and is taken for one of them.
constexpr std::array kNetworkTypes{
    "nfs",        "nfs4",      "cifs",        "smb3",   "ceph",
    "gfs2",       "ocfs2",     "lustre",      "beegfs", "afs",
    "9p",         "virtiofs",  "gpfs",        "fuse",   "fuse.glusterfs",
    "fuse.sshfs", "fuse.ceph", "fuse.rclone", "vboxsf", "glusterfs"};

/// Of these, those that pass no lock on to a server: a lock holds on one machine alone.
constexpr std::array kWithoutLocks{"fuse.sshfs", "fuse.rclone", "vboxsf"};

/// An attribute cache of more seconds is reported: 60 s is the largest that NFS uses by itself.
constexpr int kLongestCache = 60;

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

/// The kernel separates the fields of a line by blanks. It writes a blank within a field as a
/// backslash and three octal digits.
std::string unescaped(const std::string& text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\\' && at + 3 < text.size()) {
      int code = 0;
      std::from_chars(text.data() + at + 1, text.data() + at + 4, code, 8);
      plain += static_cast<char>(code);
      at += 3;
    } else {
      plain += text[at];
    }
  }
  return plain;
}

/// A line: id, parent, device, root, mount point, options, tags up to "-", type, source, options.
/// The first options are those of this mount, the second those of the file system; "ro" may stand
/// in either.
std::optional<Mount> readLine(const std::string& line) {
  const auto words = split(line, ' ');
  const auto dash = std::find(words.begin(), words.end(), "-");
  if (dash - words.begin() < 6 || words.end() - dash < 4) return std::nullopt;
  Mount mount{unescaped(words[4]), dash[1], unescaped(dash[2]), split(words[5], ',')};
  for (auto& option : split(dash[3], ',')) {
    if (std::ranges::find(mount.options, option) == mount.options.end()) {
      mount.options.push_back(std::move(option));
    }
  }
  return mount;
}

bool liesIn(const std::string& path, const std::string& folder) {
  return folder == "/" || path == folder || path.starts_with(folder + "/");
}

bool isOf(const Mount& mount, const KnownOption& known) {
  return mount.type.starts_with(known.type) &&
         std::ranges::find(mount.options, known.name) != mount.options.end();
}

Findings judgeCaches(const Mount& mount) {
  Findings findings;
  for (const std::string& option : mount.options) {
    for (const char* name : {"actimeo=", "acregmax=", "acdirmax="}) {
      if (!option.starts_with(name)) continue;
      int seconds = 0;
      std::from_chars(option.data() + option.find('=') + 1, option.data() + option.size(), seconds);
      if (seconds <= kLongestCache) continue;
      findings.push_back(warn(
          "the option " + option + ": a changed file may look unchanged for that many seconds",
          "mount it with " + std::string(name) + std::to_string(kLongestCache) + " or without it"));
    }
  }
  return findings;
}

std::string describe(const Mount& mount) {
  std::string text = mount.type + " from " + mount.source + " at " + mount.point;
  if (!mount.isNetwork()) {
    return text + ": a disk of this machine, which other machines see only if it serves it to them";
  }
  return text + " with " + joined(mount.options, ",");
}

}  // namespace

bool Mount::isNetwork() const {
  return std::ranges::find(kNetworkTypes, type) != kNetworkTypes.end();
}

std::optional<Mount> mountOf(const std::string& mountInfo, const std::string& path) {
  std::optional<Mount> found;
  for (const std::string& line : split(mountInfo, '\n')) {
    auto mount = readLine(line);
    // Of several at one point, the last was mounted over the others.
    if (mount && liesIn(path, mount->point) &&
        (!found || mount->point.size() >= found->point.size())) {
      found = std::move(mount);
    }
  }
  return found;
}

Findings judgeMount(const Mount& mount) {
  Findings findings{pass(describe(mount))};
  if (std::ranges::find(kWithoutLocks, mount.type) != kWithoutLocks.end()) {
    findings.push_back(fail(mount.type + " keeps no locks between machines",
                            "share the folder over NFSv4, SMB 3 or GlusterFS"));
  }
  for (const KnownOption& known : kKnownOptions) {
    if (!isOf(mount, known)) continue;
    const std::string text = std::string("the option ") + known.name + ": " + known.meaning;
    findings.push_back({known.verdict, {}, {}, text, known.fix});
  }
  for (Finding& finding : judgeCaches(mount)) findings.push_back(std::move(finding));
  return findings;
}

std::vector<std::string> lockBreakersOf(const Mount& mount) {
  std::vector<std::string> names;
  for (const KnownOption& known : kKnownOptions) {
    const std::string name = known.name;
    const bool isLock = name == "nolock" || name == "nobrl" || name.starts_with("local_lock=");
    if (isLock && isOf(mount, known)) names.push_back(name);
  }
  return names;
}

}  // namespace korvel
