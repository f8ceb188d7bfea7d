#include "TinyHost.h"

#include <algorithm>

#include "host/containers/ContainerManager.h"
#include "host/media/SystemCache.h"
#include "host/os/Files.h"
#include "host/project/ProjectSpacesManager.h"

namespace {

class Sender : public iUDPBroadcaster {
 public:
  void broadcast(const LightweightString<char>& text) override {
    TinyHost::instance().sent.push_back(text.str());
  }
};

class Listening : public iUDPListener {
 public:
  explicit Listening(iNetMessageReceiver* to) { TinyHost::instance().receiver = to; }
  ~Listening() override { TinyHost::instance().receiver = nullptr; }
};

class Bytes : public iMemHolder {
 public:
  explicit Bytes(std::string text) : text_(std::move(text)) {}
  const char* bytes() const override { return text_.data(); }
  std::size_t size() const override { return text_.size(); }

 private:
  std::string text_;
};

class OpenFile : public iFile {
 public:
  OpenFile(std::wstring path, bool isExclusive) : path_(std::move(path)), exclusive_(isExclusive) {
    if (exclusive_) TinyHost::instance().held.insert(path_);
  }
  ~OpenFile() override {
    if (exclusive_) TinyHost::instance().held.erase(path_);
  }
  bool isOpen() const override { return true; }
  std::uint64_t size() const override { return text().size(); }
  std::size_t read(void* bytes, std::size_t count) override {
    const std::size_t taken = text().copy(static_cast<char*>(bytes), count, at_);
    at_ += taken;
    return taken;
  }
  bool write(const void* bytes, std::size_t count) override {
    text() = std::string(static_cast<const char*>(bytes), count);
    return true;
  }

 private:
  std::string& text() const { return TinyHost::instance().files[path_]; }

  std::wstring path_;
  bool exclusive_;
  std::size_t at_ = 0;
};

class NoGuard : public Kv::Guard {};

/// A manager whose objects never change.
template <typename Manager>
class Quiet : public Manager {
 public:
  Kv::Ptr<Kv::Guard> registerInternal(const Kv::Ptr<CallbackInvoker<NotifyMsg>>&) override {
    return new NoGuard;
  }
};

template <typename Manager>
class QuietContainers : public Quiet<Manager> {
 public:
  void destroy(const Cookie&, const LightweightString<char>&) override {}
  void reload(const Cookie&) override {}
};

class QuietFilters : public Quiet<ProjectFilterManager> {
 public:
  void reInit() override {}
};

class QuietMedia : public Quiet<SystemCache> {
 public:
  void addFile(const Cookie&, const MaterialFilename&, bool) override {}
  void removeFile(const Cookie&, bool, int) override {}
};

}  // namespace

// Never destroyed: the plug-in's static objects may ask for it to the very end.
TinyHost& TinyHost::instance() {
  static auto* const host = new TinyHost;
  return *host;
}

Kv::Ptr<iUDPBroadcaster> TinyHost::createUDPBroadcaster(int) { return new Sender; }

Kv::Ptr<iUDPListener> TinyHost::createUDPListener(int, unsigned, iNetMessageReceiver* to) {
  return new Listening(to);
}

Kv::Ptr<iFile> TinyHost::openFile(const LightweightString<wchar_t>& path, int, int disposition,
                                  int share, int) {
  const std::wstring name = path.str();
  if (held.count(name)) return nullptr;
  if (disposition == eFileOpenExisting && !files.count(name)) return nullptr;
  files[name];
  return new OpenFile(name, share == eFileShareNone && disposition == eFileReplace);
}

bool TinyHost::removeFile(const LightweightString<wchar_t>& path) {
  return !held.count(path.str()) && files.erase(path.str()) == 1;
}

bool TinyHost::listDirectory(const LightweightString<wchar_t>&, int, int, Vector<DirectoryItem>&) {
  return true;
}

bool TinyHost::markFile(const LightweightString<wchar_t>& path, int) {
  files[path.str()];
  return true;
}

CommandMap::Index TinyHost::findCommand(const LightweightString<char>& name) const {
  return name.str() == "beep" ? 7 : kNotFound;
}

void TinyHost::deliver(const std::string& text) const {
  receiver->receive(Kv::Ptr<iMemHolder>(new Bytes(text)), nullptr);
}

// The host's operations, of which these take the place of the library's.

iOS& OS() { return TinyHost::instance(); }
iOSPrivate& OSPrivate() { return TinyHost::instance(); }
LightweightString<wchar_t> getProjectsBaseDirectory() { return L"/projects/"; }
bool fileExists(const LightweightString<wchar_t>& path) {
  return TinyHost::instance().files.count(path.str()) == 1;
}

Cookie get_project_cookie() { return Cookie("P0001", false); }
bool ProjectSpacesManager::machineIsInNetworkMode() { return true; }
int ProjectSpacesManager::getCurrentProjectSpaceType() { return eSharedProjectSpace; }
void ProjectSpacesManager::refreshCurrentLobby() {}
CommandMap& CommandMap::theCommandMap() { return TinyHost::instance(); }

ProjectListener::ProjectListener() { TinyHost::instance().listeners.push_back(this); }
ProjectListener::~ProjectListener() { std::erase(TinyHost::instance().listeners, this); }

void Shutdown::addCallback(const Kv::Ptr<Callback>& callback, int) {
  TinyHost::instance().atTheEnd.push_back(callback);
}

BinManager* BinManager::instance() {
  static QuietContainers<BinManager> bins;
  return &bins;
}
RackManager* RackManager::instance() {
  static QuietContainers<RackManager> racks;
  return &racks;
}
ProjectFilterManager* ProjectFilterManager::instance() {
  static QuietFilters filters;
  return &filters;
}
SystemCache& SystemCache::instance() {
  static QuietMedia media;
  return media;
}
