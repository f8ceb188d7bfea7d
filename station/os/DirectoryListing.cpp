#include "station/os/DirectoryListing.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <iterator>

#include "host/base/Text.h"
#include "station/os/Posix.h"

namespace korvel {

namespace {

/// Whether an entry is a folder; asks the file system only where the folder does not tell.
bool isFolderEntry(int folder, const dirent& entry) {
  if (entry.d_type != DT_UNKNOWN && entry.d_type != DT_LNK) return entry.d_type == DT_DIR;
  struct stat status {};
  return ::fstatat(folder, entry.d_name, &status, 0) == 0 && S_ISDIR(status.st_mode);
}

bool isOfKind(int folder, const dirent& entry, int kind) {
  if (kind == iFileManager::eListFiles) return !isFolderEntry(folder, entry);
  if (kind == iFileManager::eListFolders) return isFolderEntry(folder, entry);
  return true;
}

iFileManager::DirectoryItem itemFor(int folder, const dirent& entry, int details) {
  iFileManager::DirectoryItem item;
  item.name = fromUTF8(entry.d_name);
  struct stat status {};
  if (details != 0 && ::fstatat(folder, entry.d_name, &status, 0) == 0) {
    item.size = static_cast<std::uint64_t>(status.st_size);
    item.modified = status.st_mtime;
  }
  return item;
}

/// Whether a name ends with what follows the pattern's last star: cheap, and says no to most names
/// of a large folder.
bool endsLike(std::string_view name, std::string_view pattern) {
  return name.ends_with(pattern.substr(pattern.rfind('*') + 1));
}

}  // namespace

bool matchesPattern(std::string_view name, std::string_view pattern) {
  if (!endsLike(name, pattern)) return false;
  std::size_t at = 0;
  std::size_t next = 0;
  std::size_t star = std::string_view::npos;  // the last star met, and what it stands for so far
  std::size_t taken = 0;
  while (at < name.size()) {
    if (next < pattern.size() && pattern[next] == '*') {
      star = next++;
      taken = at;
    } else if (next < pattern.size() && pattern[next] == name[at]) {
      ++at;
      ++next;
    } else if (star != std::string_view::npos) {
      next = star + 1;
      at = ++taken;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', next) == std::string_view::npos;
}

bool listMatching(const std::string& pattern, int kind, int details,
                  Vector<iFileManager::DirectoryItem>& items) {
  const OpenFolder folder(::opendir(folderOf(pattern).c_str()));
  if (pattern.empty() || !folder) return false;
  const std::string names = nameOf(pattern);
  Vector<iFileManager::DirectoryItem> found;
  errno = 0;
  while (const dirent* const entry = ::readdir(folder.get())) {
    const std::string_view name = entry->d_name;
    if (matchesPattern(name, names) && name != "." && name != ".." &&
        isOfKind(::dirfd(folder.get()), *entry, kind)) {
      found.push_back(itemFor(::dirfd(folder.get()), *entry, details));
    }
    errno = 0;
  }
  if (errno != 0) return false;
  items.insert(items.end(), std::make_move_iterator(found.begin()),
               std::make_move_iterator(found.end()));
  return true;
}

}  // namespace korvel
