#pragma once

#include <string>
#include <string_view>

#include "host/os/iFileManager.h"

namespace korvel {

/// Whether a name matches a pattern in which `*` stands for any bytes, none included, and
/// everything else for itself. No name is hidden.
bool matchesPattern(std::string_view name, std::string_view pattern);

/// iFileManager::listDirectory, for a UTF-8 path. Only a listing with details looks at the files.
bool listMatching(const std::string& pattern, int kind, int details,
                  Vector<iFileManager::DirectoryItem>& items);

}  // namespace korvel
