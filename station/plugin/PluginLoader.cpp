#include "station/plugin/PluginLoader.h"

#include <dlfcn.h>

#include "station/os/SharedFiles.h"
#include "station/plugin/PluginServices.h"

namespace korvel {

namespace {

constexpr const char* kEntry = "kvPluginInstance";

// The C++ name of Messager::registerTypes(), which a plug-in with a panel exports.
constexpr const char* kRegisterTypes = "_ZN8Messager13registerTypesEv";

// A leak checker follows pointers in a library's own objects only while the library is mapped.
#ifdef KV_SANITIZED
constexpr int kLoadFlags = RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE;
#else
constexpr int kLoadFlags = RTLD_NOW | RTLD_LOCAL;
#endif

std::string lastLoadProblem() {
  const char* problem = ::dlerror();
  return problem ? problem : "no reason given";
}

Error failure(ErrorCode code, const std::string& path, const std::string& why) {
  return {code, "The plug-in " + path + " " + why, path};
}

}  // namespace

PluginLoader::~PluginLoader() { unload(Shutdown::eNormalExit); }

Result<void> PluginLoader::load(const std::string& path) {
  if (auto opened = open(path); !opened) return opened;
  auto initialised = initialise(path);
  if (!initialised) {
    unload(Shutdown::eNormalExit);
    return initialised;
  }
  registerPanelTypes();
  plugin_->postEnumerationInitialization();
  return {};
}

Result<void> PluginLoader::open(const std::string& path) {
  if (!existsFresh(path)) {
    return failure(ErrorCode::eNotFound, path,
                   "does not exist; name the library with --plugin FILE.");
  }
  // A name without a slash would be looked for in the system's library folders.
  const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
  library_ = ::dlopen(file.c_str(), kLoadFlags);
  if (library_) return {};
  return failure(ErrorCode::eBadContent, path,
                 "cannot be loaded (" + lastLoadProblem() +
                     "); name a plug-in built for this host with --plugin FILE.");
}

Result<void> PluginLoader::initialise(const std::string& path) {
  const auto entry = reinterpret_cast<Entry>(::dlsym(library_, kEntry));
  if (!entry) {
    return failure(ErrorCode::eBadContent, path,
                   "is a library but no plug-in: it does not export " + std::string(kEntry) +
                       "; name another with --plugin FILE.");
  }
  KvPluginBase* found = nullptr;
  entry(&found);  // it returns false before the initialisation: required, and no failure
  if (!found) {
    return failure(ErrorCode::eBadContent, path,
                   "hands out no plug-in object; name another with --plugin FILE.");
  }
  found->postLoadInitialization();
  plugin_ = found;
  if (entry(&found) && found == plugin_) return {};
  return failure(ErrorCode::eRefused, path,
                 "was loaded but refuses to start; what it wrote to the log says why.");
}

void PluginLoader::registerPanelTypes() {
  const auto registerTypes = reinterpret_cast<void (*)()>(::dlsym(library_, kRegisterTypes));
  if (registerTypes) registerTypes();
}

void PluginLoader::unload(Shutdown::eExitType type) {
  if (!library_) return;
  // First: the callbacks are code of the library that is unmapped below.
  runShutdownCallbacks(type);
  close();
}

void PluginLoader::close() {
  if (plugin_) plugin_->preUnloadDeinitialization();
  plugin_ = nullptr;
  ::dlclose(library_);
  library_ = nullptr;
}

}  // namespace korvel
