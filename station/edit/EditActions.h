#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/base/Cookie.h"
#include "station/base/Result.h"
#include "station/edit/EditFile.h"
#include "station/edit/OtioDocument.h"
#include "station/keep/TrashFolder.h"

namespace korvel {

// What the local user does with edits and logs of the open project. Every modification asks the
// permission rules first; a refusal names the owner, and nothing changes. Host thread.
namespace EditActions {

/// Makes an edit (kind 'E') or a log ('S') with a file of its own; an edit is the local user's.
Result<Cookie> create(const std::string& name, char kind);

/// The name that an import of this file would give its edit. Failure: a file that cannot be
/// imported.
Result<std::string> nameInFile(const std::string& path);

/// Takes an OpenTimelineIO file into the project as a new edit of the local user's. On failure
/// nothing is left behind.
Result<Cookie> import(const std::string& path);

/// Writes an object as it is shown, unsaved changes included, without this station's own data: what
/// was imported unchanged is exported unchanged, value by value. A file that is there is replaced
/// only where `replacing` accepts that; else eExists.
enum class Replacing { eRefuse, eAccept };
Result<void> exportTo(const Cookie& cookie, const std::string& path,
                      Replacing replacing = Replacing::eRefuse);

/// Makes a clip show another stretch of its material. `clip` is a path or an unambiguous name;
/// times are of its material, as Timecode reads them at the clip's own rate; a step ("+12f") counts
/// from where the clip starts and ends now.
Result<void> trim(const Cookie& cookie, const std::string& clip, const std::string& start,
                  const std::string& end);

Result<void> rename(const Cookie& cookie, const std::string& name);

/// Writes the object to its file and announces it. The version that it replaces is kept. Where
/// another saved since the object was opened, it is refused unless `overwrite` accepts that; the
/// refusal says who, when and what differs.
Result<void> save(const Cookie& cookie,
                  EditFile::Overwrite overwrite = EditFile::Overwrite::eRefuse);

/// Makes a new edit of the local user's of an object as it is shown, unsaved changes included; the
/// object itself keeps them, unless its file is gone: then the new edit takes its place.
Result<Cookie> saveCopy(const Cookie& cookie, const std::string& name);

/// Drops the local user's unsaved changes to an object, and the object itself where its file is
/// gone.
Result<void> revert(const Cookie& cookie);

/// What becomes of the local user's unsaved changes where other content is to be saved. They are
/// dropped only once that succeeded.
enum class Unsaved { eRefuse, eDrop };

/// Saves an older version as the newest of an object. Its owner stays.
Result<void> restore(const Cookie& cookie, const std::string& version,
                     Unsaved unsaved = Unsaved::eRefuse);

/// Saves any content as the newest version of an object. Its owner stays.
Result<void> saveAsNewest(const Cookie& cookie, const OtioDocument& document,
                          Unsaved unsaved = Unsaved::eRefuse);

/// Moves objects to the trash, all or (when one is refused) none; announces them together.
Result<void> remove(const std::vector<Cookie>& cookies);

/// Moves an object from the trash back to its place and announces it as created, whatever its file
/// holds. eExists where an object of its cookie is there again.
Result<void> takeBack(const Trashed& trashed);

/// Who may be made the owner.
enum class Recipient {
  eKnownUser,  ///< one in the user list, whose name is no reserved word
  ePresent,    ///< one whose station is here, whose name is no reserved word
  eAnybody,    ///< any name that messages carry whole
};

/// Whether something was given, or belonged to that user before.
enum class Given { eNow, eBefore };

/// Records another owner and announces it. Allowed to each user who may modify the object, and to
/// every user while an edit has no owner. Unsaved changes are saved first; where that fails, the
/// owner stays. What belongs to the user already is left alone, unsaved changes included, and
/// nothing is announced.
Result<Given> give(const Cookie& cookie, const std::string& user,
                   Recipient who = Recipient::eKnownUser);

/// Makes a modification under a description, as an unsaved change, and announces it.
Result<void> modify(const Cookie& cookie, const EditModification& modification,
                    const char* description);

/// Whether the user may make another user the owner: every user may take an edit without an owner.
Result<void> requireMayGive(const Cookie& cookie);

/// Records an owner and announces it, if that `isStillRight` while no other station can change it.
using Check = std::function<Result<void>()>;
Result<void> putOwner(const Cookie& cookie, const std::string& owner, const Check& isStillRight);

/// Moves objects to the trash and announces them together, without asking whether the user may.
/// What was moved is left in `trashed`, on failure too.
Result<void> moveToTrash(const std::vector<Cookie>& cookies, std::vector<Trashed>& trashed);

/// The refusal of a modification of this kind where the local user may not make it.
Result<void> requireAllowed(const Cookie& cookie, EditModificationType kind);

/// What messages call an object: edit "Reel".
std::string titleOf(const Cookie& cookie);

/// Gives a new document of this kind its owner, writes it to the project and tells of it.
Result<Cookie> store(OtioDocument document, char kind);

/// Whether the local user may modify the object.
bool isAllowed(const Cookie& cookie);

}  // namespace EditActions

// What the local user did with edits and logs, noted so that it can be undone (UndoList). Each is
// undone only where the object still is as it was left. To be called right after it was done. Host
// thread.
namespace EditSteps {

/// A clip, which is as `before` shows it no longer, was trimmed.
void noteTrim(const Cookie& cookie, const ClipInfo& before);

void noteRename(const Cookie& cookie, const std::string& before);

/// The object was given away by this owner. The user may not change it any more, but can take it
/// back as long as no other user saved it since.
void noteGift(const Cookie& cookie, const std::string& before);

/// A version was saved as the newest; the object's file held `before` then.
void noteRestore(const Cookie& cookie, const OtioDocument& before, const OtioDocument& after,
                 const std::string& version);

/// Notes that objects were moved to the trash; `name` is the first one's.
void noteDeletion(const std::vector<Trashed>& trashed, const std::string& name);

}  // namespace EditSteps

}  // namespace korvel
