#include "station/watch/WatchedFiles.h"

#include <algorithm>
#include <utility>

namespace korvel {

namespace {

constexpr std::chrono::nanoseconds kTick(kCoarsestTick);

/// What one report may hold.
constexpr std::size_t kMostFiles = 64;
constexpr std::size_t kMostBytes = std::size_t{32} << 20;

/// Whether reading it again may have another end.
bool mayPass(const Result<std::string>& bytes) {
  return !bytes &&
         (bytes.error().code == ErrorCode::eSystem || bytes.error().code == ErrorCode::eStale);
}

}  // namespace

WatchedFiles::WatchedFiles(WatchedFolder folder)
    : folder_(std::move(folder)), stamp_(folder_.known.folder) {
  const auto now = Clock::now();
  for (const auto& [name, stamp] : folder_.known.files) {
    const bool isKept = folder_.cache && folder_.cache->find(name, stamp);
    const bool isSure = isKept || isAtRest(stamp, folder_.known);
    known_[name] = {stamp, now, isSure};
    if (!isSure) recheck_ = now + kTick;
  }
  folder_.known = {};
  folder_.cache.reset();  // it is the host thread's
}

Result<bool> WatchedFiles::hasMoved() {
  const auto stamp = stampOfFolder(folder_.path);
  if (stamp) return !(*stamp == stamp_) || Clock::now() >= recheck_;
  if (folder_.mayBeMissing && stamp.error().code == ErrorCode::eNotFound) return !known_.empty();
  return stamp.error();
}

Result<std::vector<std::string>> WatchedFiles::look() {
  if (folder_.shown) shown_.merge(folder_.shown->take());
  auto now = listStamped(folder_.path, folder_.isWanted);
  const bool isMissing = !now && now.error().code == ErrorCode::eNotFound;
  if (!now && !(folder_.mayBeMissing && isMissing)) return now.error();
  const FolderListing listing = now ? std::move(*now) : FolderListing();
  if (!folder_.proof.empty() && !listing.files.contains(folder_.proof)) {
    return Error{ErrorCode::eNotFound,
                 "The folder " + folder_.path + " is there without its " + folder_.proof +
                     ". See whether the share is mounted.",
                 folder_.path};
  }
  // The folder may change once more within the tick of the change that led to this look.
  const bool hasChanged = !(listing.folder == stamp_);
  recheck_ = hasChanged ? Clock::now() + kTick : Clock::time_point::max();
  return differing(listing);
}

std::vector<std::string> WatchedFiles::differing(const FolderListing& now) {
  std::vector<std::string> names;
  for (const auto& [name, stamp] : now.files) {
    const auto known = known_.find(name);
    const bool isSame = known != known_.end() && known->second.stamp == stamp;
    if (!isSame || !known->second.isSure) names.push_back(name);
  }
  for (const auto& [name, known] : known_) {
    if (!now.files.contains(name)) names.push_back(name);
  }
  for (const std::string& name : shown_) {
    if (!now.files.contains(name) && !known_.contains(name)) names.push_back(name);
  }
  shown_.clear();
  stamp_ = now.folder;
  listed_ = now.files;
  return names;
}

FoundFiles WatchedFiles::readSome(std::vector<std::string>& names) {
  FoundFiles found;
  std::size_t bytes = 0;
  while (!names.empty() && found.size() < kMostFiles && bytes < kMostBytes) {
    const std::size_t count = std::min(kMostInFlight, names.size());
    const std::vector<std::string> next(names.end() - static_cast<std::ptrdiff_t>(count),
                                        names.end());
    names.resize(names.size() - count);
    FoundFiles some(count);
    const auto start = Clock::now();
    inFlight(count, [&](std::size_t each) { read(next[each], some[each]); });
    for (std::size_t each = 0; each < count; ++each) {
      note(next[each], some[each], start);
      if (some[each].bytes) bytes += some[each].bytes->size();
      found.push_back(std::move(some[each]));
    }
  }
  return found;
}

/// Called by several threads at once.
void WatchedFiles::read(const std::string& name, FoundFile& found) const {
  found.name = folder_.prefix + name;
  found.path = folder_.path + "/" + name;
  if (const auto listed = listed_.find(name); listed != listed_.end()) found.stamp = listed->second;
  if (folder_.largest > 0) {
    auto content = readStamped(found.path, folder_.largest);
    if (content) {
      found.stamp = content->stamp;
      found.bytes = std::move(content->bytes);
    } else {
      found.bytes = content.error();
    }
  }
  // What the listing left out may have been replaced while the folder was read.
  found.isGone = isSurelyGone(found.path);
}

void WatchedFiles::note(const std::string& name, FoundFile& found, Clock::time_point start) {
  if (found.isGone) {
    known_.erase(name);
    return;
  }
  Known& known = known_[name];
  if (!(known.stamp == found.stamp)) known = {found.stamp, start, false};
  known.isSure = start - known.since >= kTick && !mayPass(found.bytes);
  found.isAtRest = known.isSure;
  if (!known.isSure) recheck_ = std::min(recheck_, std::max(start, known.since + kTick));
}

}  // namespace korvel
