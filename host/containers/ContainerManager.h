#pragma once

// Containers: bins (log groups), racks and project filters. Each kind has a manager that keeps the
// open project's containers and notifies of their changes. Host thread.
//
//     user adds an edit to a bin
//       -> the manager writes the bin's file
//       -> notification: Modification<BinData>(bin, eFileWritten | eChanged)
//       -> the plug-in announces it; other stations call reload() of their manager
//
// A container is a file of the project's folder, and its file is what counts: on another station's
// message a manager reads the file again, or forgets the container if its file is gone. Bins and
// racks are announced one by one; filters are few, and are all read again.

#include <cstdint>

#include "host/base/Cookie.h"
#include "host/notify/Notifier.h"

/// Identifies a bin or a filter (filters are kept as bin data).
struct KV_HOST_API BinData {
  UUID uuid;
  std::array<std::uint8_t, 3> typeBytes{};
};

/// Identifies a rack.
struct KV_HOST_API RackData {
  UUID uuid;
  std::array<std::uint8_t, 3> typeBytes{};
};

/// What the managers of bins and racks have in common: their notifications, and what messages of
/// other stations have them do.
class KV_HOST_API ContainerManagerBase : public NotifierBase {
 public:
  /// What a change did, as bits.
  enum eModificationFlags : std::uint32_t {
    eFileWritten = 0x02,  ///< the container's file was rewritten
    eDestroyed = 0x04,    ///< the container is gone
    eDisplayed = 0x08,    ///< only how it is shown changed
    eChanged = 0x80,      ///< its contents or name changed
  };

  /// The payload of a container manager's notifications.
  template <typename Data>
  class Modification : public NotifyPayload {
   public:
    Modification(const Data* object, std::uint32_t flags) : object_(object), flags_(flags) {}

    /// The changed container, owned by the manager for the duration of the notification; may be
    /// null.
    [[nodiscard]] const Data* object() const { return object_; }

    /// A sum of eModificationFlags; several may be set at once.
    [[nodiscard]] std::uint32_t flags() const { return flags_; }

   private:
    const Data* object_;
    std::uint32_t flags_;
  };

  /// Takes a container out of this station. As the user's own action it removes the file. Because
  /// of a message the file is left alone: the station that destroyed the container has removed it,
  /// and a container whose file is still there stays. `reason` may be empty. Unknown cookies are
  /// ignored.
  virtual void destroy(const Cookie& cookie, const LightweightString<char>& reason) = 0;

  /// Reads a container again from its file, or for the first time. A file that cannot be read
  /// leaves what is shown.
  virtual void reload(const Cookie& cookie) = 0;
};

/// The open project's bins. Without a project there are none, and cookies are ignored.
class KV_HOST_API BinManager : public ContainerManagerBase {
 public:
  /// Notifies with Modification<BinData>.
  static BinManager* instance();
};

/// The open project's racks.
class KV_HOST_API RackManager : public ContainerManagerBase {
 public:
  /// Notifies with Modification<RackData>.
  static RackManager* instance();
};

/// The open project's filters.
class KV_HOST_API ProjectFilterManager : public NotifierBase {
 public:
  /// Notifies with Modification<BinData>.
  static ProjectFilterManager* instance();

  /// Reads all project filters again.
  virtual void reInit() = 0;
};

/// The file of a bin or rack. `name` is unused by this host and may be empty; a null `project`
/// means the open one. The file need not exist; empty when no project is open.
KV_HOST_API LightweightString<wchar_t> getFileNameForLogGroup(
    const Cookie& cookie, const LightweightString<wchar_t>& name, const Cookie& project);

/// Where filters are stored.
class KV_HOST_API UserFilter {
 public:
  /// The file of a filter, which need not exist: in the open project, or where that holds none, in
  /// the one that the message being delivered names. Empty when no project is known.
  static LightweightString<wchar_t> getFilterMetadataFileName(const Cookie& cookie);
};
