#pragma once

#include <cstdint>
#include <string>

namespace korvel {

/// Writes a projects directory with the measurements' project in it, which holds so many edits, as
/// a station leaves them.
void writeBenchProject(const std::string& projectsDirectory, std::uint32_t edits);

/// Adds an edit of so many clips to it, kBenchLongEdit.
void writeBenchLongEdit(const std::string& projectsDirectory, std::uint32_t clips);

}  // namespace korvel
