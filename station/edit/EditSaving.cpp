// Saving, and what depends on versions: all of EditActions that writes existing objects.

#include "host/base/Log.h"
#include "station/base/Events.h"
#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/edit/EditHistory.h"
#include "station/edit/Edits.h"
#include "station/project/ObjectNames.h"
#include "station/project/ProjectListeners.h"

namespace korvel {

namespace {

/// Writes a loaded object and tells of it. Its lock keeps other stations from changing the owner
/// meanwhile; the owner that the file names decides.
Result<void> saveLoaded(EditFile& edit, EditFile::Overwrite overwrite) {
  const Cookie cookie = edit.getCookie();
  if (auto allowed = EditActions::requireAllowed(cookie, eModContentsChanged); !allowed) {
    return allowed;
  }
  const auto lock = edit.lockFile();
  if (!lock) {
    return Error{lock.error().code,
                 "The " + EditActions::titleOf(cookie) + " was not saved: " + lock.error().message,
                 lock.error().path};
  }
  edit.takeStoredOwner();
  if (auto allowed = EditActions::requireAllowed(cookie, eModContentsChanged); !allowed) {
    return allowed;
  }
  auto saved = edit.save(overwrite);
  const bool isChanged = !saved && saved.error().code == ErrorCode::eChanged;
  if (isChanged && EditHistory::takeChangedSettings(edit)) saved = edit.save(overwrite);
  if (!saved) {
    const Error& why = saved.error();
    if (why.code == ErrorCode::eChanged) return EditHistory::refusalOf(edit);
    return Error{why.code, "The " + EditActions::titleOf(cookie) + " was not saved: " + why.message,
                 why.path};
  }
  openEdits().noteLoaded(edit);
  events().changed(edit.kindText(), cookie, "refreshed", currentOrigin());
  ProjectListeners::instance().tell([&](auto& each) { each.handleLogStorage(cookie, false); });
  return {};
}

/// Does something with the loaded object; it stays loaded meanwhile.
template <typename Action>
Result<void> withLoaded(const Cookie& cookie, const Action& action) {
  const auto edit = openEdits().hold(cookie);
  if (!edit) return edit.error();
  Result<void> done = action(**edit);
  openEdits().release(*edit);
  return done;
}

/// Whether another deleted it, be that noticed yet or not.
bool hasNoFile(const EditFile& edit) {
  return edit.fileState() == EditFile::FileState::eGone || openEdits().isFileGone(edit.getCookie());
}

}  // namespace

Result<void> EditActions::save(const Cookie& cookie, EditFile::Overwrite overwrite) {
  return withLoaded(cookie, [&](EditFile& edit) { return saveLoaded(edit, overwrite); });
}

Result<Cookie> EditActions::saveCopy(const Cookie& cookie, const std::string& name) {
  if (auto checked = checkName(Edits::kindText(cookie), name); !checked) return checked.error();
  const auto edit = openEdits().hold(cookie);
  if (!edit) return edit.error();
  OtioDocument copy = (*edit)->document();
  const bool isGone = hasNoFile(**edit);
  openEdits().release(*edit);
  copy.rename(name);
  auto stored = store(std::move(copy), cookie.getType());
  if (stored && isGone) openEdits().letGo(cookie);
  return stored;
}

Result<void> EditActions::revert(const Cookie& cookie) {
  EditFile* const edit = openEdits().loaded(cookie);
  if (!edit || !edit->isDirty()) return {};
  if (hasNoFile(*edit)) {
    openEdits().letGo(cookie);
    return {};
  }
  if (auto reverted = edit->revert(); !reverted) {
    const Error& why = reverted.error();
    return Error{why.code, "The changes of the " + titleOf(cookie) + " were kept: " + why.message,
                 why.path};
  }
  openEdits().noteLoaded(*edit);
  events().changed(edit->kindText(), cookie, "reloaded", currentOrigin());
  return withLoaded(cookie, [](EditFile&) { return Result<void>(); });  // unloads it if not open
}

Result<void> EditActions::restore(const Cookie& cookie, const std::string& version) {
  auto document = EditHistory::read(cookie, version);
  if (!document) return document.error();
  return withLoaded(cookie, [&](EditFile& edit) -> Result<void> {
    if (auto allowed = requireAllowed(cookie, eModContentsChanged); !allowed) return allowed;
    if (edit.hasLocalChanges()) {
      return Error{ErrorCode::eUnsaved,
                   "The " + titleOf(cookie) +
                       " has unsaved changes; \"edit save\" or \"edit revert\" it first.",
                   {}};
    }
    edit.putContent(std::move(*document));
    auto saved = saveLoaded(edit, EditFile::Overwrite::eRefuse);
    if (!saved) (void)edit.revert();
    if (saved) events().changed(edit.kindText(), cookie, "reloaded", currentOrigin());
    return saved;
  });
}

}  // namespace korvel
