#include "tests/fakes/FakeFiles.h"

#include <algorithm>
#include <cstring>

#include "host/base/Text.h"
#include "tests/fakes/FakeHost.h"

namespace korvel {

class FakeFiles::OpenFile : public iFile {
 public:
  OpenFile(std::shared_ptr<Opening> opening, std::shared_ptr<std::string> bytes, bool replace)
      : opening_(std::move(opening)), bytes_(std::move(bytes)), replace_(replace) {}
  ~OpenFile() override { FakeHost::current().journal.did("iFile::close", {opening_->path}); }

  [[nodiscard]] bool isOpen() const override {
    FakeHost::current().journal.asked("iFile::isOpen", {opening_->path});
    return true;
  }
  [[nodiscard]] std::uint64_t size() const override {
    const auto& sizes = FakeHost::current().files.reportedSizes;
    const auto reported = sizes.find(opening_->path);
    return reported == sizes.end() ? bytes_->size() : reported->second;
  }

  std::size_t read(void* bytes, std::size_t count) override {
    const std::size_t available = bytes_->size() - std::min(at_, bytes_->size());
    const std::size_t taken = std::min(count, available);
    if (taken != 0) std::memcpy(bytes, bytes_->data() + at_, taken);
    at_ += taken;
    return taken;
  }

  bool write(const void* bytes, std::size_t count) override {
    const std::string text(static_cast<const char*>(bytes), count);
    FakeHost& host = FakeHost::current();
    host.journal.did("iFile::write", {opening_->path, text});
    if (host.files.writesFail) return false;
    if (replace_) bytes_->clear();
    replace_ = false;
    if (bytes_->size() < at_ + count) bytes_->resize(at_ + count);
    bytes_->replace(at_, count, text);
    at_ += count;
    return true;
  }

 private:
  std::shared_ptr<Opening> opening_;
  std::shared_ptr<std::string> bytes_;
  bool replace_;  ///< the next write replaces the content
  std::size_t at_ = 0;
};

class FakeFiles::ClosedFile : public iFile {
 public:
  explicit ClosedFile(const std::string& path) : path_(path) {}
  [[nodiscard]] bool isOpen() const override {
    FakeHost::current().journal.asked("iFile::isOpen", {path_});
    return false;
  }
  [[nodiscard]] std::uint64_t size() const override { return 0; }
  std::size_t read(void*, std::size_t) override { return 0; }
  bool write(const void*, std::size_t) override { return false; }

 private:
  std::string path_;
};

namespace {

/// Whether a name matches a pattern in which `*` stands for any characters.
bool matches(std::string_view name, std::string_view pattern) {
  if (pattern.empty()) return name.empty();
  if (pattern[0] != '*')
    return !name.empty() && name[0] == pattern[0] && matches(name.substr(1), pattern.substr(1));
  for (std::size_t skipped = 0; skipped <= name.size(); ++skipped)
    if (matches(name.substr(skipped), pattern.substr(1))) return true;
  return false;
}

}  // namespace

void FakeFiles::put(const std::string& path, const std::string& content) {
  files_[path] = std::make_shared<std::string>(content);
}

std::string FakeFiles::content(const std::string& path) const {
  const auto found = files_.find(path);
  return found == files_.end() ? "" : *found->second;
}

std::size_t FakeFiles::openHandles(const std::string& path) const {
  return static_cast<std::size_t>(
      std::count_if(openings_.begin(), openings_.end(), [&path](const auto& each) {
        const auto opening = each.lock();
        return opening && opening->path == path;
      }));
}

bool FakeFiles::isHeld(const std::string& path, int share) const {
  if (heldElsewhere.count(path) != 0) return true;
  return std::any_of(openings_.begin(), openings_.end(), [&](const auto& each) {
    const auto opening = each.lock();
    return opening && opening->path == path &&
           (share == eFileShareNone || opening->share == eFileShareNone);
  });
}

eFileError FakeFiles::refusalOf(const std::string& path, int disposition, int share) const {
  const auto refusal = refusals.find(path);
  if (refusal != refusals.end()) return refusal->second;
  if (isHeld(path, share)) return eFileError::eHeld;
  if (disposition == eFileOpenExisting && !has(path)) return eFileError::eMissing;
  return eFileError::eNone;
}

Kv::Ptr<iFile> FakeFiles::openFile(const LightweightString<wchar_t>& path, int access,
                                   int disposition, int share, int flags) {
  const std::string name = toUTF8(path).str();
  journal_.did("iFileManager::openFile", {name, access, disposition, share, flags});
  lastError_ = refusalOf(name, disposition, share);
  if (lastError_ != eFileError::eNone)
    return failedOpensGiveHandles ? Kv::Ptr<iFile>(new ClosedFile(name)) : Kv::Ptr<iFile>();
  if (!has(name)) put(name, "");
  auto opening = std::make_shared<Opening>(Opening{name, share});
  openings_.push_back(opening);
  const bool replace = disposition == eFileReplace && share != eFileShareNone;
  return new OpenFile(std::move(opening), files_[name], replace);
}

bool FakeFiles::removeFile(const LightweightString<wchar_t>& path) {
  const std::string name = toUTF8(path).str();
  journal_.did("iFileManager::removeFile", {name});
  lastError_ = refusalOf(name, eFileOpenExisting, eFileShareRead);
  if (lastError_ == eFileError::eNone) take(name);
  return lastError_ == eFileError::eNone || lastError_ == eFileError::eMissing;
}

bool FakeFiles::listDirectory(const LightweightString<wchar_t>& pattern, int kind, int details,
                              Vector<DirectoryItem>& items) {
  const std::string whole = toUTF8(pattern).str();
  journal_.asked("iFileManager::listDirectory", {whole, kind, details});
  if (listingsFail) return false;
  const std::size_t cut = whole.rfind('/') + 1;
  for (const auto& [path, bytes] : files_) {
    const bool inFolder =
        path.compare(0, cut, whole, 0, cut) == 0 && path.find('/', cut) == std::string::npos;
    if (!inFolder || !matches(path.substr(cut), whole.substr(cut))) continue;
    DirectoryItem item;
    item.name = fromUTF8(path.substr(cut).c_str());
    if (details != 0) {
      item.size = bytes->size();
      const auto time = modified.find(path);
      item.modified = time == modified.end() ? 0 : time->second;
    }
    items.push_back(item);
  }
  return true;
}

bool FakeFiles::markFile(const LightweightString<wchar_t>& path, int value) {
  const std::string name = toUTF8(path).str();
  journal_.did("iFileManager::markFile", {name, value});
  if (marksFail) return false;
  if (!has(name)) put(name, "");
  return true;
}

}  // namespace korvel
