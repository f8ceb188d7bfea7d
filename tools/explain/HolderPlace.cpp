#include "tools/explain/HolderPlace.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>

namespace korvel {

namespace {

namespace fs = std::filesystem;

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
    std::ifstream file(each->path() / "comm");
    std::string program;
    std::getline(file, program);
    return program + ", process " + number + " on this machine";
  }
  return ::geteuid() == 0 ? "on another machine" : "on another machine or as another user";
}

}  // namespace korvel
