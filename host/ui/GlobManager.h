#pragma once

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"

// The toolkit as far as messages need it. User-interface thread (the station's is the host thread).

/// A widget.
class KV_HOST_API Glob {
 public:
  virtual ~Glob() = default;

  /// Hands a text to `target` on behalf of `sender`. A text that the target does not handle goes to
  /// its parent and so on up to the desktop.
  static void sendMsg(Glob* target, const LightweightString<char>& text, Glob* sender);

  /// A text sent to this widget; true when it was handled here.
  virtual bool handleMessageEvent(const LightweightString<char>& text, Glob* sender) = 0;
};

class KV_HOST_API GlobManager {
 public:
  /// The widget whose idstring is `id`, or null. The toolkit owns it.
  static Glob* find(const LightweightString<char>& id);
};
