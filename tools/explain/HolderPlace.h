#pragma once

#include <string>

namespace korvel {

/// Where a file is held open, as far as this machine's /proc tells: "kv-station, process 311 on
/// this machine" or that it is no process of this machine that this user can see.
std::string placeOfHolder(const std::string& path);

}  // namespace korvel
