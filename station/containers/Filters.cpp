#include "station/containers/Filters.h"

#include "station/base/HostParts.h"
#include "station/base/Strings.h"
#include "station/keep/UndoList.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Records.h"

using namespace korvel;

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
