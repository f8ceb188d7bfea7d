#include "station/containers/Containers.h"

#include <algorithm>
#include <cstddef>
#include <set>

#include "station/base/HostParts.h"
#include "station/base/Strings.h"
#include "station/keep/UndoList.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Records.h"

namespace korvel {

namespace {

constexpr const char* kContents = "contents";

std::string textOf(const Cookie& cookie) { return utf8Text(cookie.asString()); }

std::string countOf(std::size_t objects) {
  return std::to_string(objects) + (objects == 1 ? " object" : " objects");
}

std::set<std::string> textsOf(const std::vector<JsonValue>& cookies) {
  std::set<std::string> texts;
  for (const JsonValue& cookie : cookies) texts.insert(cookie.asString());
  return texts;
}

}  // namespace

Result<Cookie> CookieLists::create(const std::string& name) {
  return ContainerPart::create(name, JsonValue::array());
}

Result<std::size_t> CookieLists::add(const Cookie& container, const CookieVec& objects) {
  Places added;
  const Result<void> changed = change(container, [&](JsonValue& record) -> Result<bool> {
    JsonValue& contents = *record.find(kContents);
    std::set<std::string> held = textsOf(contents.elements());
    for (const Cookie& object : objects) {
      if (object == container) {
        return Error{ErrorCode::eUsage, "A " + kind().word + " cannot hold itself.", {}};
      }
      if (!held.insert(textOf(object)).second) continue;
      added.push_back({textOf(object), contents.elements().size()});
      contents.append(textOf(object));
    }
    return !added.empty();
  });
  if (!changed) return changed.error();
  if (!added.empty()) noteAdded(container, added);
  return added.size();
}

Result<std::size_t> CookieLists::remove(const Cookie& container, const CookieVec& objects) {
  Places removed;
  const Result<void> changed = change(container, [&](JsonValue& record) -> Result<bool> {
    std::set<std::string> unwanted;
    for (const Cookie& object : objects) unwanted.insert(textOf(object));
    std::vector<JsonValue>& held = record.find(kContents)->elements();
    // Places before anything is taken out: putting the objects back in this order restores the
    // list.
    for (std::size_t index = 0; index < held.size(); ++index) {
      if (unwanted.contains(held[index].asString())) {
        removed.push_back({held[index].asString(), index});
      }
    }
    std::erase_if(held, [&](const JsonValue& each) { return unwanted.contains(each.asString()); });
    return !removed.empty();
  });
  if (!changed) return changed.error();
  if (!removed.empty()) noteRemoved(container, removed);
  return removed.size();
}

Result<void> CookieLists::putBack(const Cookie& container, const Places& places) {
  return change(container, [&](JsonValue& record) -> Result<bool> {
    std::vector<JsonValue>& held = record.find(kContents)->elements();
    const std::set<std::string> there = textsOf(held);
    const std::size_t before = held.size();
    for (const Place& each : places) {
      // Another station may have put it back already.
      if (there.contains(each.object)) continue;
      // Another station may have shortened the list since.
      const auto at = static_cast<std::ptrdiff_t>(std::min(each.index, held.size()));
      held.insert(held.begin() + at, JsonValue(each.object));
    }
    if (held.size() > before) return true;
    return Error{ErrorCode::eChanged, "All of it is in the " + wordsFor(container) + " again.", {}};
  });
}

Result<void> CookieLists::takeOut(const Cookie& container, const Places& places) {
  return change(container, [&](JsonValue& record) -> Result<bool> {
    std::set<std::string> unwanted;
    for (const Place& each : places) unwanted.insert(each.object);
    const auto taken =
        std::erase_if(record.find(kContents)->elements(),
                      [&](const JsonValue& each) { return unwanted.contains(each.asString()); });
    if (taken > 0) return true;
    return Error{
        ErrorCode::eChanged, "Nothing of it is in the " + wordsFor(container) + " any more.", {}};
  });
}

void CookieLists::noteAdded(const Cookie& container, const Places& places) {
  recordStep({"putting " + countOf(places.size()) + " into " + wordsFor(container),
              [this, container, places] { return takeOut(container, places); },
              [this, container, places] { return putBack(container, places); }});
}

void CookieLists::noteRemoved(const Cookie& container, const Places& places) {
  recordStep({"taking " + countOf(places.size()) + " out of " + wordsFor(container),
              [this, container, places] { return putBack(container, places); },
              [this, container, places] { return takeOut(container, places); }});
}

CookieVec CookieLists::contents(const Cookie& container) const {
  CookieVec cookies;
  const Container* const found = find(container);
  if (!found) return cookies;
  for (const JsonValue& cookie : found->record[kContents].elements()) {
    cookies.emplace_back(cookie.asString().c_str(), false);
  }
  return cookies;
}

std::string CookieLists::contentProblem(const JsonValue& content) const {
  if (!content.isArray()) return "its \"contents\" are no list";
  for (const JsonValue& cookie : content.elements()) {
    if (Cookie(cookie.asString().c_str(), false).isNull()) {
      return "its \"contents\" hold something that is no cookie";
    }
  }
  return {};
}

}  // namespace korvel

using namespace korvel;

namespace korvel {

Bins::Bins() : CookieListManager("bin", "GM", "bins") {}

Bins::~Bins() = default;

}  // namespace korvel

BinManager* BinManager::instance() { return hostParts().bins; }

LightweightString<wchar_t> getFileNameForLogGroup(const Cookie& cookie,
                                                  const LightweightString<wchar_t>& /*name*/,
                                                  const Cookie& project) {
  if (!project.isNull()) return wideText(recordPath(projectFolder(project), cookie));
  const Bins* const bins = hostParts().bins;
  return bins ? wideText(bins->fileOf(cookie)) : LightweightString<wchar_t>();
}

namespace korvel {

Racks::Racks() : CookieListManager("rack", "B", "racks") {}

Racks::~Racks() = default;

}  // namespace korvel

RackManager* RackManager::instance() { return hostParts().racks; }

namespace korvel {

namespace {

constexpr const char* kText = "filter";

}  // namespace

Filters::Filters() : ContainerNotifier(ContainerKind{"filter", "F", "filters", kText}) {}

Filters::~Filters() = default;

Result<Cookie> Filters::create(const std::string& name, const std::string& text) {
  return ContainerPart::create(name, text);
}

Result<void> Filters::change(const Cookie& filter, const std::string& text) {
  std::string before = text;
  const auto changed = ContainerPart::change(filter, [&](JsonValue& record) -> Result<bool> {
    before = record[kText].asString();
    if (before == text) return false;
    record.set(kText, text);
    return true;
  });
  // Where nothing was changed there is nothing to undo.
  if (!changed || before == text) return changed;
  recordStep({"change of " + wordsFor(filter),
              [this, filter, before, text] { return changeFrom(filter, text, before); },
              [this, filter, before, text] { return changeFrom(filter, before, text); }});
  return changed;
}

Result<void> Filters::changeFrom(const Cookie& filter, const std::string& from,
                                 const std::string& to) {
  return ContainerPart::change(filter, [&](JsonValue& record) -> Result<bool> {
    // Undoing must not overwrite what another station wrote since.
    if (record[kText].asString() != from) {
      return Error{ErrorCode::eChanged,
                   "The " + wordsFor(filter) + " was changed since, here or by another station.",
                   {}};
    }
    record.set(kText, to);
    return true;
  });
}

std::string Filters::metadataFile(const Cookie& filter) const {
  std::string here = fileOf(filter);
  if (existsFresh(here)) return here;
  const std::string there = pathInNamedProject(nameOf(recordPath({}, filter)));
  return there.empty() ? here : there;
}

std::string Filters::contentProblem(const JsonValue& content) const {
  return content.isString() ? "" : "it has no text under \"filter\"";
}

}  // namespace korvel

ProjectFilterManager* ProjectFilterManager::instance() { return hostParts().filters; }

LightweightString<wchar_t> UserFilter::getFilterMetadataFileName(const Cookie& cookie) {
  const Filters* const filters = hostParts().filters;
  return filters ? wideText(filters->metadataFile(cookie)) : LightweightString<wchar_t>();
}
