#include <memory>

#include "station/base/Json.h"
#include "station/os/FolderListing.h"
#include "station/os/SharedFiles.h"
#include "station/project/ProjectFolder.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"

namespace korvel {

namespace {

/// What lies in a hidden folder of a project.
struct Amount {
  unsigned long objects = 0;  ///< folders and files at its top
  unsigned long files = 0;
  unsigned long bytes = 0;  ///< that its removal would free
};

/// Whether files with a second name count. A version that is still the object itself takes no room
/// of its own. A deleted object keeps its last version in the history, which is removed with it.
enum class SecondNames { eCount, eLeaveOut };

/// Adds a file, or what lies in a folder.
void addEntry(const std::string& path, int depth, SecondNames names, Amount& amount) {
  constexpr int kDeepest = 4;
  shareAnswered();
  if (const auto file = stampOfFile(path)) {
    ++amount.files;
    if (names == SecondNames::eCount || file->names < 2) amount.bytes += file->size;
    return;
  }
  const auto inside =
      depth < kDeepest ? listFresh(path) : Result<std::vector<std::string>>(Error{});
  if (!inside) return;
  for (const std::string& name : *inside) addEntry(path + "/" + name, depth + 1, names, amount);
}

Amount amountIn(const std::string& folder, SecondNames names) {
  Amount amount;
  const auto inside = listFresh(folder);
  if (!inside) return amount;
  for (const std::string& name : *inside) {
    // Files that are being written begin with a dot.
    if (name.starts_with(".")) continue;
    ++amount.objects;
    addEntry(folder + "/" + name, 0, names, amount);
  }
  return amount;
}

JsonValue shown(const Amount& amount, const char* objects, const char* files) {
  return JsonValue::object(
      {{objects, amount.objects}, {files, amount.files}, {"bytes", amount.bytes}});
}

JsonValue reportOf(const Cookie& project, const Result<ProjectRecord>& record) {
  const std::string folder = projectFolder(project);
  const std::string cookie = project.asString().str();
  return JsonValue::object(
      {textMember("project", record ? record->name : cookie),
       {"cookie", cookie},
       {"history",
        shown(amountIn(folder + "/.history", SecondNames::eLeaveOut), "objects", "versions")},
       {"trash", shown(amountIn(folder + "/.trash", SecondNames::eCount), "objects", "files")}});
}

std::string sizeText(long bytes) {
  constexpr long kMebi = 1 << 20;
  if (bytes < 1024) return std::to_string(bytes) + " B";
  if (bytes < kMebi) return std::to_string((bytes + 1023) / 1024) + " KiB";
  return std::to_string((bytes + kMebi - 1) / kMebi) + " MiB";
}

JsonValue tableOf(const JsonValue& reports) {
  JsonValue table = JsonValue::array();
  for (const JsonValue& each : reports.elements()) {
    const JsonValue* const name = each.find("project");
    table.append(JsonValue::object({{"project", name ? *name : each["cookie"]},
                                    {"edits with versions", each["history"]["objects"]},
                                    {"versions", each["history"]["versions"]},
                                    {"history", sizeText(each["history"]["bytes"].asLong())},
                                    {"in the trash", each["trash"]["objects"]},
                                    {"trash", sizeText(each["trash"]["bytes"].asLong())}}));
  }
  return table;
}

ToolStatus showHistory(const ShareRequest& request) {
  const ToolHost host(directoryOf(request.path));
  if (auto usable = host.checkDirectory(); !usable) {
    return toolProblem(eToolUsage, usable.error().message);
  }
  JsonValue reports = JsonValue::array();
  const auto listed = ProjectRecords().forEach([&](const Cookie& project, const auto& record) {
    reports.append(reportOf(project, record));
  });
  if (!listed) return toolProblem(eToolFinding, listed.error().message);
  if (request.asJson) {
    printJson(JsonValue::object({{"projects", std::move(reports)}}));
  } else if (reports.elements().empty()) {
    printForPeople("no projects: " + directoryOf(request.path) + " holds none");
  } else {
    printForPeople(tableOf(reports));
  }
  return eToolDone;
}

}  // namespace

void addHistoryCommand(CommandLine& line) {
  addShareCommand<ShareRequest>(
      line, {"history", "Show how much room the kept versions and the trashes of all projects take",
             [](CommandOptions& options, ShareRequest& request) {
               options.word("DIR", request.path, "The projects directory");
               options.flag("--json", request.asJson, "One JSON object instead of a table");
             },
             showHistory});
}

}  // namespace korvel
