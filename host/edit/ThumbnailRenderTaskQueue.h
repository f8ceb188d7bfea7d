#pragma once

// Small pictures of edits are rendered on a thread of their own, from the loaded edit. A plug-in
// that is about to have an edit read again waits until the queue is idle, so that no picture is
// rendered from content that is being replaced.

#include "host/base/HostApi.h"

/// The host's queue of thumbnails to render, worked off by a thread of its own.
class KV_HOST_API ThumbnailRenderTaskQueue {
 public:
  virtual ~ThumbnailRenderTaskQueue() = default;

  /// The one queue, made on first use.
  static ThumbnailRenderTaskQueue& instance();

  /// Whether nothing is being rendered or waiting to be. Any thread.
  [[nodiscard]] virtual bool isIdle() const = 0;
};
