#pragma once

// What a plug-in is to the host: an object with a name and components.
//
// A component is what the host works with: a permissions manager, a project share. The plug-in
// makes its components when it is initialised, and owns them; the host finds them by their own
// registration and never deletes one. When the plug-in closes down they go in the reverse order,
// since a later one may use an earlier one.

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"

// The plug-in protocol.
//
// A plug-in is a shared library that exports, unmangled,
//
//     bool kvPluginInstance(KvPluginBase** plugin);
//
// which writes the library's one plug-in object and tells whether it is initialised. The host loads
// the library, asks for the object, calls postLoadInitialization() once,
// postEnumerationInitialization() when every plug-in is loaded, and preUnloadDeinitialization()
// before it unloads. All on the host thread, one call at a time. The plug-in object belongs to the
// library: the host never deletes it.

/// Shared by all component bases of one object.
class KV_HOST_API KvComponentBaseSharedResourceTag {
 public:
  virtual ~KvComponentBaseSharedResourceTag() = default;
};

/// Something that a plug-in registers with the host under a name.
class KV_HOST_API KvComponentBase : public virtual KvComponentBaseSharedResourceTag {
 public:
  /// A component under this name; the name does not change any more.
  explicit KvComponentBase(const LightweightString<char>& name) : name_(name) {}
  KvComponentBase(const KvComponentBase&) = delete;
  KvComponentBase& operator=(const KvComponentBase&) = delete;
  ~KvComponentBase() override = default;

  /// The name as it was given, for logs and for looking a component up.
  [[nodiscard]] const LightweightString<char>& componentName() const { return name_; }

 private:
  LightweightString<char> name_;
};

/// A component of which the host uses one at a time, the one registered last.
class KV_HOST_API KvResourceTypeBase : public KvComponentBase {
 public:
  explicit KvResourceTypeBase(const LightweightString<char>& name) : KvComponentBase(name) {}
};

/// A plug-in object: its name, its version and the components that it owns.
class KV_HOST_API KvPluginBase {
 public:
  /// A plug-in without components that is not initialised yet.
  KvPluginBase(const LightweightString<char>& name, const LightweightString<char>& version);
  KvPluginBase(const KvPluginBase&) = delete;
  KvPluginBase& operator=(const KvPluginBase&) = delete;

  /// Calls closedown().
  virtual ~KvPluginBase();

  /// Called once after the library was loaded.
  virtual void postLoadInitialization() {}

  /// Called once when all plug-ins are loaded.
  virtual void postEnumerationInitialization() {}

  /// Called once before the library is unloaded.
  virtual void preUnloadDeinitialization() {}

  /// Turn the plug-in on or off; 0 is success.
  virtual int enable() { return 0; }
  virtual int disable() { return 0; }

  /// Name and version as the host shows them to users.
  [[nodiscard]] const LightweightString<char>& pluginName() const { return name_; }
  [[nodiscard]] const LightweightString<char>& pluginVersion() const { return version_; }

  /// Whether initialisation has succeeded; kvPluginInstance answers the same.
  [[nodiscard]] bool isInitialised() const { return initialised_; }

 protected:
  /// Deletes the components, the one added last first, and empties the list. May be called again.
  void closedown();

  LightweightString<char> name_;
  LightweightString<char> version_;
  Vector<KvComponentBase*> components_;  ///< owned; freed by closedown()
  bool initialised_ = false;
};

/// A plug-in of the device-driver kind: it is loaded for as long as the application runs, and shows
/// nothing by itself.
class KV_HOST_API KvDeviceDriverBase : public KvPluginBase {
 public:
  using KvPluginBase::KvPluginBase;
};
