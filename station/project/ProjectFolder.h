#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/base/Cookie.h"
#include "station/base/Result.h"

namespace korvel {

/// The record of a project: the file "project.json" in its folder.
struct ProjectRecord {
  std::string name;
  bool isPrivate = false;
  std::string made;    ///< when, "2024-05-31T12:00:00Z"
  std::string madeBy;  ///< the user
};

// The folders of the projects directory. Any thread; answers are fresh.

/// <projects directory>/<cookie>, without a trailing separator.
std::string projectFolder(const Cookie& project);

/// The cookies of all projects in the projects directory, in order; the failure says what is wrong
/// with the directory and how to name another.
Result<std::vector<Cookie>> listProjectFolders();

/// The path of a file of this name in the folder of a project that holds one; empty when none does.
std::string findInAnyProject(const std::string& fileName);

/// Whether a file of this name in a project's folder can belong to one of its parts, or is its
/// record. Other programs' files are not looked at.
bool isProjectFile(std::string_view name);

/// Reads a project's record. A broken one is eBadContent, and is never written over.
Result<ProjectRecord> readProjectRecord(const Cookie& project);

/// Makes the folder of a new project with its record in it. Others see it whole or not at all; on
/// failure nothing is left. What a station left an hour ago or longer that was killed meanwhile is
/// removed.
Result<void> makeProjectFolder(const Cookie& project, const ProjectRecord& record);

/// The time as records have it.
std::string timeForRecord();

}  // namespace korvel
