#include "station/keep/SavedFile.h"

#include <algorithm>

#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

std::size_t hashOf(std::string_view bytes) { return std::hash<std::string_view>()(bytes); }

/// How many saves there may be between two looks at what need not be kept any longer.
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
  if (!isMissing && identity_ && *there == *identity_) return {};
  if (!isMissing && content_) {
    const auto bytes = readListed(path_);
    if (!bytes) return bytes.error();
    if (isNoted(*bytes)) return {};
  }
  return Error{ErrorCode::eChanged, path_ + " is no longer the file that was read.", path_};
}

// What this station wrote has its name in the history; a second name alone could be a backup's.
Result<void> SavedFile::lookAtReplaced(History history) {
  const auto there = freshStampOfFile(path_);
  if (auto noted = requireNoted(there); !noted) return noted;
  if (!there || (identity_ && there->names > 1)) return {};
  const VersionFolder versions(path_);
  if (versions.holds(number_, mark())) return {};
  const auto kept = versions.keep(path_, number_, mark());
  if (!kept && history == History::eRequired) return kept.error();
  return {};
}

Result<void> SavedFile::replace(const std::string& text, long number, History history) {
  const VersionFolder versions(path_);
  std::optional<Version> made;
  std::optional<FileStamp> written;
  const auto prepare = [&](const std::string& temporary) -> Result<void> {
    if (auto looked = lookAtReplaced(history); !looked) return looked;
    auto kept = versions.keep(temporary, number, VersionFolder::markOf(hashOf(text)));
    if (!kept && history == History::eRequired) return kept.error();
    if (kept) made = *kept;
    if (const auto identity = stampOfFile(temporary)) written = *identity;
    return {};
  };
  if (auto replaced = writeAtomically(path_, text, prepare); !replaced) {
    if (made) VersionFolder::drop(*made);
    return replaced;
  }
  note(text, number);
  const auto now = stampOfFile(path_);
  if (now && written && now->inode == written->inode) identity_ = *now;
  if (made) thinNowAndThen(versions, number);
  return {};
}

}  // namespace korvel
