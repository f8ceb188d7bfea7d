#pragma once

// Widgets by name, and types of tools by name.
//
// The desktop is saved when the application ends and restored when it starts: for each tool the
// name of its type, its state and its place. On restoring, the factory of that name makes the tool
// again. A factory gets a GlobCreationInfo and may leave its hints alone.

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"
#include "host/ui/Geometry.h"
#include "host/ui/Glob.h"

/// How big a tool is shown; the number is what is saved.
enum eSizeState : int {
  eExpandedState = 0,  ///< a panel
  eIconState = 1,      ///< an icon
};

/// What a component is created with: anew, or as it was when it was saved.
struct GlobCreationInfo {
  LightweightString<char> typeName;

  /// Not zero when the component is restored from what was saved of it; then the two below count.
  int restore = 0;
  int sizeState = eIconState;
  XY position;  ///< on the desktop
};

/// The toolkit's register of widgets and of the types of component that a user can put on the
/// desktop. User-interface thread.
class KV_HOST_API GlobManager {
 public:
  /// Makes a component. The result is the caller's; null when it cannot be made.
  using Factory = Glob* (*)(GlobCreationInfo*);

  /// The widget whose idstring is `id`, or null. One on the desktop goes before one in the toolbox,
  /// then the older before the younger. The toolkit owns it.
  static Glob* find(const LightweightString<char>& id);

  /// Registers a type of component under a name, in place of one of the same name. The toolbox
  /// offers it from now on. The factory must be callable until the host unloads its plug-ins.
  static void registerUiComponentType(const LightweightString<char>& name, Factory factory);
};
