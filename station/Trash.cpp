#include "station/Trash.h"

#include <algorithm>
#include <map>
#include <utility>

#include "host/base/Config.h"
#include "host/base/Log.h"
#include "host/project/ProjectSpacesManager.h"
#include "host/project/iPermissionsManager.h"
#include "station/base/Events.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/containers/ContainerPart.h"
#include "station/edit/EditActions.h"
#include "station/edit/EditSummary.h"
#include "station/edit/Edits.h"
#include "station/keep/VersionFolder.h"
#include "station/os/SharedFiles.h"
#include "station/project/Projects.h"
#include "station/project/Records.h"

namespace korvel {

namespace {

constexpr std::int64_t kSecondsOfDay = 86'400;

Cookie cookieOf(const Trashed& trashed) { return {trashed.object.c_str(), false}; }

bool isEdit(const Trashed& trashed) {
  return !Edits::cookieOfFile(trashed.object + trashed.ending).isNull();
}

/// Where its file was.
std::string placeOf(const Trashed& trashed, const std::string& folder) {
  return folder + "/" + trashed.object + trashed.ending;
}

/// Whether a word means this deletion by the object's cookie and the beginning of its mark.
bool isMarked(const Trashed& trashed, const std::string& word) {
  return word.size() > trashed.object.size() + 1 &&
         (trashed.object + "." + trashed.mark).starts_with(word);
}

/// The newest of the deletions that `isMeant`, if they are all of one object; eUsage where they are
/// of several, eNotFound for none.
template <typename IsMeant, typename NameOf>
Result<Trashed> findOne(const std::vector<Trashed>& all, const std::string& word,
                        const IsMeant& isMeant, const NameOf& nameOf) {
  std::map<std::string, const Trashed*> found;
  for (const Trashed& each : all) {
    if (isMeant(each)) found.emplace(each.object, &each);
  }
  if (found.size() == 1) return *found.begin()->second;
  if (found.empty()) {
    return Error{ErrorCode::eNotFound,
                 "Nothing called " + inQuotes(word) +
                     " is in the trash; \"trash list\" shows what there is.",
                 {}};
  }
  std::vector<NamedObject> candidates;
  for (const auto& [object, each] : found) {
    candidates.push_back({cookieOf(*each), nameOf(*each)});
  }
  return severalMeant("deleted objects", word, candidates);
}

/// Removes all versions of an object that is neither in the project nor in the trash.
void removeHistory(const std::string& file) {
  const VersionFolder versions(file);
  const auto kept = versions.list();
  if (!kept || kept->empty()) return;
  for (const Version& each : *kept) VersionFolder::drop(each);
  versions.removeIfEmpty();
}

}  // namespace

Result<std::string> Trash::folder() const {
  const auto open = projects_.requireOpen();
  if (!open) return open.error();
  return (*open)->folder;
}

ContainerPart* Trash::containerOf(const Trashed& trashed) const {
  const std::string file = trashed.object + trashed.ending;
  const auto part = std::ranges::find_if(containers_, [&](const ContainerPart* each) {
    return !recordCookie(file, each->kind().letters).isNull();
  });
  return part == containers_.end() ? nullptr : *part;
}

Result<std::vector<Trashed>> Trash::all() const {
  const auto project = folder();
  if (!project) return project.error();
  auto found = TrashFolder(*project).list();
  if (found) {
    std::erase_if(*found,
                  [this](const Trashed& each) { return !isEdit(each) && !containerOf(each); });
  }
  return found;
}

std::string Trash::kindOf(const Trashed& trashed) const {
  const ContainerPart* const container = containerOf(trashed);
  return container ? container->kind().word : Edits::kindText(cookieOf(trashed));
}

Trash::Content Trash::contentOf(const Trashed& trashed) const {
  if (!trashed.isPlain) {
    return {{}, {}, Error{ErrorCode::eBadContent, "It is no plain file.", trashed.path}};
  }
  const bool holdsEdit = isEdit(trashed);
  const auto bytes = readListed(trashed.path, holdsEdit ? kLargestFile : kLargestRecord);
  if (!bytes) return {{}, {}, bytes.error()};
  if (!holdsEdit) {
    const auto record = parseRecord(bytes, trashed.path);
    if (!record) return {{}, {}, record.error()};
    return {(*record)["name"].asString(), {}, {}};
  }
  auto summary = readEditSummary(*bytes);
  if (!summary) return {{}, {}, summary.error()};
  return {std::move(summary->name), std::move(summary->owner), {}};
}

Result<JsonValue> Trash::list() const {
  const auto found = all();
  if (!found) return found.error();
  JsonValue rows = JsonValue::array();
  for (const Trashed& each : *found) {
    const Content content = contentOf(each);
    const std::string problem = content.problem ? content.problem->message : "";
    rows.append(JsonValue::object({{"cookie", each.object},
                                   {"name", shownText(content.name)},
                                   {"kind", kindOf(each)},
                                   {"owner", shownText(content.owner)},
                                   {"deleted", each.at},
                                   {"by", shownText(each.by)},
                                   {"size", static_cast<unsigned long>(each.size)},
                                   {"deletion", each.mark},
                                   {"problem", shownText(problem)}}));
  }
  return rows;
}

std::vector<std::string> Trash::namesAndCookies() const {
  std::vector<std::string> words;
  const auto found = all();
  if (!found) return words;
  for (const Trashed& each : *found) {
    words.push_back(each.object);
    if (std::string name = contentOf(each).name; !name.empty()) words.push_back(std::move(name));
  }
  return words;
}

Result<Trashed> Trash::find(const std::string& object) const {
  const auto found = all();
  if (!found) return found.error();
  // What kept an object from being read whose name is therefore not known. Not of files that were
  // read and make no sense: they have no name.
  std::optional<Error> unread;
  const auto nameOf = [&](const Trashed& each) {
    const Content content = contentOf(each);
    if (content.problem && content.problem->code != ErrorCode::eBadContent)
      unread = content.problem;
    return content.name;
  };
  const auto meant = [&](const auto& isMeant) { return findOne(*found, object, isMeant, nameOf); };
  const auto isNone = [](const Result<Trashed>& each) {
    return !each && each.error().code == ErrorCode::eNotFound;
  };
  auto one =
      meant([&](const Trashed& each) { return each.object == object || isMarked(each, object); });
  if (isNone(one)) {
    one = meant([&](const Trashed& each) { return nameOf(each) == object; });
  }
  if (isNone(one)) {
    one = meant([&](const Trashed& each) {
      return object.size() > 1 && upperCased(each.object).starts_with(upperCased(object));
    });
  }
  if (!isNone(one) || !unread) return one;
  return Error{unread->code,
               "Whether something called " + inQuotes(object) +
                   " is in the trash is not known: " + unread->message,
               unread->path};
}

Result<Cookie> Trash::restore(const std::string& object) {
  const auto trashed = find(object);
  if (!trashed) return trashed.error();
  const Content content = contentOf(*trashed);
  const std::string what = "The " + kindOf(*trashed) + " " +
                           (content.name.empty() ? trashed->object : inQuotes(content.name));
  if (!trashed->isPlain) {
    return Error{ErrorCode::eBadContent,
                 what + " was not taken back from the trash: " + trashed->path +
                     " is no plain file. Look what it is, and move it away.",
                 trashed->path};
  }
  ContainerPart* const container = containerOf(*trashed);
  const auto taken = container ? container->takeBack(*trashed) : EditActions::takeBack(*trashed);
  if (!taken) {
    return Error{taken.error().code,
                 what + " was not taken back from the trash: " + taken.error().message,
                 taken.error().path};
  }
  recordStep(stepOf(*trashed, content.name));
  return cookieOf(*trashed);
}

/// Undoing moves the object to the trash again; doing it again takes its newest deletion back.
Step Trash::stepOf(const Trashed& trashed, const std::string& name) {
  const Cookie cookie = cookieOf(trashed);
  ContainerPart* const container = containerOf(trashed);
  return {"taking back of " + name,
          [cookie, container] {
            return container ? container->discard(cookie) : EditActions::remove({cookie});
          },
          [this, object = trashed.object]() -> Result<void> {
            const auto back = restore(object);
            if (!back) return back.error();
            return {};
          }};
}

/// The plug-in's rules cannot be asked: they know the objects of the project, and of a deleted one
/// at most the owner that it had before.
bool Trash::mayRemove(const Trashed& trashed) const {
  const auto* const permissions = iPermissionsManager::instance();
  const bool isFree = !permissions || !ProjectSpacesManager::machineIsInNetworkMode() ||
                      config_int("Administrator", 0) == 1;
  if (isFree || trashed.object.front() != CookieTypeEdit) return true;
  if (trashed.by == settings().user) return true;
  return upperCased(contentOf(trashed).owner) == utf8Text(permissions->getCurrentUser());
}

/// The versions of an object go with its last deletion, if it is not in the project again. Without
/// its lock they stay, since another station may be taking it back.
Result<bool> Trash::remove(const Trashed& trashed) const {
  const std::string project = *folder();
  const std::string file = placeOf(trashed, project);
  const ObjectLock lock(file);
  const std::string name = contentOf(trashed).name;
  auto removed = TrashFolder::remove(trashed);
  if (!removed || !*removed) return removed;
  events().audit("emptied", auditedObject(kindOf(trashed), cookieOf(trashed), name));
  if (!lock.taken()) return removed;
  const auto left = TrashFolder(project).list();
  const bool isLast =
      left && std::ranges::find(*left, trashed.object, &Trashed::object) == left->end();
  if (isLast && isGoneFrom(project, file)) removeHistory(file);
  return removed;
}

Result<JsonValue> Trash::empty(std::optional<int> days) {
  const auto found = all();
  if (!found) return found.error();
  const auto now = found->empty() ? Result<std::int64_t>(0) : TrashFolder(*folder()).shareTime();
  if (!now) return now.error();
  unsigned long removed = 0;
  unsigned long kept = 0;
  for (const Trashed& each : *found) {
    if (days && *now - each.deletedAt(*now) < *days * kSecondsOfDay) continue;
    if (!mayRemove(each)) {
      ++kept;
      continue;
    }
    const auto gone = remove(each);
    if (!gone) {
      LogBoth("%s\n", gone.error().message);
      ++kept;
    } else if (*gone) {
      ++removed;
    }
  }
  return JsonValue::object({{"removed", removed}, {"kept", kept}});
}

}  // namespace korvel
