#pragma once

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
