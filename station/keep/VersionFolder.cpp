#include "station/keep/VersionFolder.h"

#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <set>

#include "host/base/Config.h"
#include "host/base/Log.h"
#include "station/base/Strings.h"
#include "station/os/FolderListing.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

std::size_t hashOf(std::string_view bytes) { return std::hash<std::string_view>()(bytes); }

Error notKept(const Error& why) {
  return {why.code,
          why.message +
              " Nothing was replaced that is not kept; \"edit save-copy\" saves yours beside it.",
          why.path};
}

/// Saves from one removal of old versions to the next. A removal lists the whole folder, so not
/// every save pays for it.
long thinningInterval(const KeepRule& rule) { return 1 + rule.versions / 8; }

void thinNowAndThen(const VersionFolder& versions, long number) {
  const KeepRule rule = KeepRule::configured();
  if (number % thinningInterval(rule) == 0) versions.thin(rule);
}

}  // namespace

void SavedFile::note(std::string_view bytes, long number) { noteHash(hashOf(bytes), number); }

void SavedFile::noteHash(std::size_t hash, long number) {
  content_ = hash;
  number_ = number;
  identity_.reset();
}

void SavedFile::noteMissing() {
  content_.reset();
  identity_.reset();
}

std::string SavedFile::mark() const { return VersionFolder::markOf(content_.value_or(0)); }

Result<void> SavedFile::requireNoted(const Result<FileStamp>& there) const {
  const bool isMissing = !there && there.error().code == ErrorCode::eNotFound;
  if (isMissing && !content_) return {};
  if (!isMissing && !there) return there.error();
  // The file that this station wrote: no need to read it.
  if (!isMissing && identity_ && *there == *identity_) return {};
  if (!isMissing && content_) {
    // The stamp alone decides nothing: a backup's hard link or a change of rights moves it, too.
    const auto bytes = readListed(path_);
    if (!bytes) return bytes.error();
    if (isNoted(*bytes)) return {};
  }
  return Error{ErrorCode::eChanged, path_ + " is no longer the file that was read.", path_};
}

// A file that this station wrote and that has a second name is a version already: that name is in
// the history. Of other files a second name may be a backup's, so the history is asked.
Result<void> SavedFile::lookAtReplaced(History history) {
  const auto there = freshStampOfFile(path_);
  if (auto noted = requireNoted(there); !noted) return noted;
  if (!there || (identity_ && there->names > 1)) return {};
  const VersionFolder versions(path_);
  if (versions.holds(*there, number_, mark())) return {};
  const auto kept = versions.keep(path_, number_, mark());
  if (!kept && history != History::eIfPossible) return notKept(kept.error());
  if (!kept) LogBoth("The version that was replaced is not kept: %s\n", kept.error().message);
  return {};
}

Result<void> SavedFile::replace(const std::string& text, long number, History history) {
  const VersionFolder versions(path_);
  std::optional<Version> made;
  std::optional<FileStamp> written;
  const auto prepare = [&](const std::string& temporary) -> Result<void> {
    // Inside writeAtomically(), where other writers of this path wait: after an earlier look
    // another station could replace the file before the rename.
    if (auto looked = lookAtReplaced(history); !looked) return looked;
    // The version is linked before the rename: whatever ends the station in between, every file
    // that was ever in the object's place has its version.
    auto kept = versions.keep(temporary, number, VersionFolder::markOf(hashOf(text)));
    if (!kept && history == History::eRequired) return notKept(kept.error());
    if (kept) made = *kept;
    if (!kept) LogBoth("No version is kept of what is saved: %s\n", kept.error().message);
    if (const auto identity = stampOfFile(temporary)) written = *identity;
    return {};
  };
  if (auto replaced = writeAtomically(path_, text, prepare); !replaced) {
    // A version of a file that never took the object's place would be shown as a save.
    if (made) VersionFolder::drop(*made);
    return replaced;
  }
  note(text, number);
  const auto now = stampOfFile(path_);
  // Another station may have replaced the file again since: then its stamp must not be taken for
  // this station's.
  if (now && written && now->inode == written->inode) identity_ = *now;
  if (made) thinNowAndThen(versions, number);
  return {};
}

namespace {

constexpr std::size_t kMarkLength = 8;
constexpr std::size_t kShortMark = 4;
constexpr std::int64_t kNanosecondsASecond = 1'000'000'000;
constexpr std::int64_t kDay = 86'400;

/// What link() says where the file system has no hard links, or no more of them for this file.
bool isWithoutLinks(int problem) {
  return problem == EPERM || problem == EOPNOTSUPP || problem == ENOSYS || problem == EMLINK ||
         problem == EXDEV || problem == EINVAL;
}

/// Gives what lies at a path another name, under which it is no version; nothing is success.
Result<void> moveAside(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return {};
    return errorFromErrno(errno, "look at", path);
  }
  const auto time = std::chrono::system_clock::now().time_since_epoch().count();
  return moveFile(path, path + ".aside-" + std::to_string(time));
}

/// Reads a version's file name, "000007-1a2b3c4d.otio"; false for any other.
bool readName(const std::string& name, const std::string& ending, Version& version) {
  const std::size_t dash = name.find('-');
  if (dash == 0 || dash == std::string::npos || !name.ends_with(ending)) return false;
  if (name.size() != dash + 1 + kMarkLength + ending.size()) return false;
  const char* const end = name.data() + dash;
  const auto [stopped, problem] = std::from_chars(name.data(), end, version.number);
  version.mark = name.substr(dash + 1, kMarkLength);
  return problem == std::errc{} && stopped == end && version.number >= 0 &&
         version.mark.find_first_not_of("0123456789abcdef") == std::string::npos;
}

bool isOlder(const Version& a, const Version& b) {
  if (a.number != b.number) return a.number < b.number;
  return a.modified != b.modified ? a.modified < b.modified : a.mark < b.mark;
}

}  // namespace

KeepRule KeepRule::configured() {
  const KeepRule usual;
  return {std::max(1, config_int("history_versions", usual.versions)),
          std::max(0, config_int("history_days", usual.days))};
}

VersionFolder::VersionFolder(const std::string& file) : parent_(folderOf(file) + "/.history") {
  const std::string name = nameOf(file);
  const std::size_t point = std::min(name.rfind('.'), name.size());
  folder_ = parent_ + "/" + name.substr(0, point);
  ending_ = name.substr(point);
}

std::string VersionFolder::markOf(std::size_t hash) {
  const std::uint64_t wide = hash;
  char text[kMarkLength + 1];
  std::snprintf(text, sizeof text, "%08x", static_cast<unsigned>(wide ^ (wide >> 32)));
  return text;
}

std::string VersionFolder::pathFor(long number, const std::string& mark) const {
  char text[32];
  std::snprintf(text, sizeof text, "/%06ld-", std::max(0L, number));
  return folder_ + text + mark + ending_;
}

Result<void> VersionFolder::make() const {
  for (const std::string& each : {parent_, folder_}) {
    if (auto made = makeFolder(each); !made && made.error().code != ErrorCode::eExists) {
      return made.error();
    }
    struct stat status {};
    if (::lstat(each.c_str(), &status) != 0) return errorFromErrno(errno, "look at", each);
    if (S_ISDIR(status.st_mode)) continue;
    return Error{ErrorCode::eBadContent,
                 each + " is no folder, so no versions can be kept there. Move it away.", each};
  }
  return {};
}

Result<Version> VersionFolder::keep(const std::string& file, long number,
                                    const std::string& mark) const {
  Version version;
  version.number = number;
  version.mark = mark;
  version.path = pathFor(number, mark);
  const auto link = [&] { return ::link(file.c_str(), version.path.c_str()) == 0 ? 0 : errno; };
  // The folder is made only when the link fails: nearly every save finds it there.
  int problem = link();
  const bool isWithoutFolder = problem == ENOENT || problem == ENOTDIR;
  if (isWithoutFolder || isWithoutLinks(problem)) {
    if (auto made = make(); !made) return made.error();
    if (isWithoutFolder) problem = link();
  }
  if (problem == 0) return version;
  struct stat status {};
  const bool isThere = ::lstat(version.path.c_str(), &status) == 0;
  if (!isThere && errno != ENOENT && errno != ENOTDIR) {
    return errorFromErrno(errno, "look at", version.path);
  }
  if (isThere) {
    const auto original = stampOfFile(file);
    if (!original) return original.error();
    const auto isHeld = isWhole(*original, number, mark);
    if (!isHeld) return isHeld.error();
    if (*isHeld) return version;
    // Only a whole version has the right to its name: what bears it otherwise is no longer one.
    if (auto aside = moveAside(version.path); !aside) return aside.error();
    if (problem == EEXIST) problem = link();
    if (problem == 0) return version;
  }
  if (!isWithoutLinks(problem)) return errorFromErrno(problem, "keep a version as", version.path);
  const auto bytes = readListed(file);
  if (!bytes) return bytes.error();
  if (auto copied = writeAtomically(version.path, *bytes); !copied) return copied.error();
  return version;
}

void VersionFolder::drop(const Version& version) { ::unlink(version.path.c_str()); }

void VersionFolder::removeIfEmpty() const { ::rmdir(folder_.c_str()); }

bool VersionFolder::holds(const FileStamp& file, long number, const std::string& mark) const {
  const auto isHeld = isWhole(file, number, mark);
  return isHeld && *isHeld;
}

// A version that cannot be read at this moment, since the share is away, may be whole.
Result<bool> VersionFolder::isWhole(const FileStamp& file, long number,
                                    const std::string& mark) const {
  const std::string path = pathFor(number, mark);
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return errorFromErrno(errno, "look at", path);
  if (!S_ISREG(status.st_mode)) return false;
  const auto kept = stampOfFile(path);
  if (!kept) return kept.error();
  if (kept->device == file.device && kept->inode == file.inode) return true;
  // A copy, or the same save under another name. A damaged one would be no version to go back to.
  if (kept->size != file.size) return false;
  const auto bytes = readListed(path);
  if (!bytes) return bytes.error();
  return markOf(hashOf(*bytes)) == mark;
}

Result<std::vector<Version>> VersionFolder::list() const {
  const auto names = listFresh(folder_);
  std::vector<Version> versions;
  // Without a history there are no versions; without the project's folder nobody knows.
  const bool isMissing = !names && names.error().code == ErrorCode::eNotFound;
  if (isMissing && existsFresh(folderOf(parent_))) return versions;
  if (!names) return names.error();
  for (const std::string& name : *names) {
    Version version;
    if (!readName(name, ending_, version)) continue;
    version.path = folder_ + "/" + name;
    const auto identity = stampOfFile(version.path);
    if (!identity) continue;
    version.modified = identity->modified / kNanosecondsASecond;
    version.size = identity->size;
    versions.push_back(std::move(version));
  }
  std::ranges::sort(versions, isOlder);
  return versions;
}

std::string VersionFolder::textOf(const Version& version, const std::vector<Version>& all) {
  const auto sameNumber = std::ranges::count(all, version.number, &Version::number);
  const std::string number = std::to_string(version.number);
  return sameNumber < 2 ? number : number + "." + version.mark.substr(0, kShortMark);
}

Result<Version> VersionFolder::find(const std::string& text) const {
  const auto all = list();
  if (!all) return all.error();
  return find(text, *all);
}

Result<Version> VersionFolder::find(const std::string& text, const std::vector<Version>& among) {
  std::vector<Version> found;
  std::ranges::copy_if(among, std::back_inserter(found), [&](const Version& each) {
    const std::string number = std::to_string(each.number);
    if (text == number) return true;
    return text.size() > number.size() + 1 && (number + "." + each.mark).starts_with(text);
  });
  if (found.size() == 1) return found.front();
  if (found.empty()) {
    return Error{ErrorCode::eNotFound,
                 "There is no version " + inQuotes(text) + "; \"edit history\" lists them.",
                 {}};
  }
  std::string candidates;
  for (const Version& each : found) candidates += " " + textOf(each, found);
  return Error{ErrorCode::eUsage,
               "Several versions have the number " + inQuotes(text) + "; name one of:" + candidates,
               {}};
}

void VersionFolder::thin(const KeepRule& rule) const {
  const auto all = list();
  if (!all || all->size() <= static_cast<std::size_t>(rule.versions)) return;
  // By the share's clock: the newest version was written just now. This machine's clock may be
  // wrong.
  const std::int64_t now = std::ranges::max(*all, {}, &Version::modified).modified;
  std::set<std::int64_t> days;
  const auto older = all->rbegin() + rule.versions;
  std::for_each(older, all->rend(), [&](const Version& version) {
    // From the newest on, so that the last save of each day stays.
    const bool isTooOld = now - version.modified >= rule.days * kDay;
    if (isTooOld || !days.insert(version.modified / kDay).second) drop(version);
  });
}

}  // namespace korvel
