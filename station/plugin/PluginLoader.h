#pragma once

#include <string>

#include "host/plugin/KvPluginBase.h"
#include "host/plugin/Shutdown.h"
#include "station/base/Result.h"

namespace korvel {

/// Loads the station's plug-in and takes it down again. Host thread.
class PluginLoader {
 public:
  PluginLoader() = default;
  PluginLoader(const PluginLoader&) = delete;
  PluginLoader& operator=(const PluginLoader&) = delete;

  /// Unloads as the normal end does, if that has not happened yet.
  ~PluginLoader();

  /// Loads the library at `path`, asks it for its plug-in object, initialises that, and lets it
  /// register its panel types. Fails with a sentence that names the file when it is missing, no
  /// library, no plug-in or refuses to start; then nothing stays loaded, and what the plug-in has
  /// registered for the shutdown was called.
  Result<void> load(const std::string& path);

  /// Runs the shutdown callbacks, takes the plug-in down and unloads its library. Does nothing
  /// where none is loaded.
  void unload(Shutdown::eExitType type);

  /// The loaded plug-in's object, or null.
  [[nodiscard]] const KvPluginBase* plugin() const { return plugin_; }

 private:
  using Entry = bool (*)(KvPluginBase**);

  Result<void> open(const std::string& path);
  Result<void> initialise(const std::string& path);
  void registerPanelTypes();
  void close();

  void* library_ = nullptr;
  KvPluginBase* plugin_ = nullptr;
};

}  // namespace korvel
