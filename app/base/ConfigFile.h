#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "station/base/Result.h"

namespace korvel {

/// One `key = value` line of a configuration file.
struct ConfigLine {
  int number = 0;  ///< counted from 1
  std::string key;
  std::string value;
};

/// The lines of a configuration file's text, in order.
///
///     # a comment
///     projects = /mnt/projects
///     user     = "Anna B."        # quotes keep blanks and # and are no part of the value
///
/// A line that is none of these is eUsage, with `file`, the line's number and what is wrong.
Result<std::vector<ConfigLine>> parseConfig(std::string_view text, const std::string& file);

/// Reads and parses a file; eNotFound when there is none. Refused: what is no plain file, is larger
/// than 1 MiB, or may be written by everybody.
Result<std::vector<ConfigLine>> readConfigFile(const std::string& file);

}  // namespace korvel
