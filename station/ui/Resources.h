#pragma once

#include <optional>
#include <string>

#include "host/ui/Geometry.h"

namespace korvel {

/// The folder of the host's resources: the configuration's `resources`, which kv-station sets, else
/// the folder "resources" beside the library that holds the toolkit. Any thread.
std::string resourceDirectory();

/// The size in pixels of the PNG picture in a file; nothing when it cannot be read or is no PNG.
std::optional<Size> pngSize(const std::string& path);

}  // namespace korvel
