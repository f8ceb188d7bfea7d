#include "station/edit/EditSteps.h"

#include <cmath>
#include <memory>

#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/edit/Edits.h"
#include "station/keep/UndoList.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

Error changedSince(const std::string& what) {
  Error problem;
  problem.code = ErrorCode::eChanged;
  problem.message = what;
  problem.message += " was changed since, here or by another station.";
  return problem;
}

bool isSameRange(const ClipRange& a, const ClipRange& b) {
  constexpr double kTolerance = 1e-6;
  return std::abs(a.start - b.start) < kTolerance && std::abs(a.end - b.end) < kTolerance;
}

/// The document of an object as it is shown now.
Result<OtioDocument> shownDocumentOf(const Cookie& cookie) {
  const auto edit = openEdits().hold(cookie);
  if (!edit) return edit.error();
  OtioDocument document = (*edit)->document();
  openEdits().release(*edit);
  return document;
}

Result<void> trimBack(const Cookie& cookie, const std::string& path, const ClipRange& from,
                      const ClipRange& to) {
  const auto document = shownDocumentOf(cookie);
  if (!document) return document.error();
  const auto clip = clipAt(document->json(), path);
  if (!clip || !isSameRange(clip->range, from)) return changedSince("The clip");
  EditModification trim(eModTrim);
  trim.range_.start = to.start;
  trim.range_.end = to.end;
  trim.subject_ = hostText(path);
  return EditActions::modify(cookie, trim, "Trim");
}

Result<void> renameBack(const Cookie& cookie, const std::string& from, const std::string& to) {
  const auto document = shownDocumentOf(cookie);
  if (!document) return document.error();
  if (document->name() != from) return changedSince("The name");
  EditModification rename(eModRename);
  rename.value_ = hostText(to);
  return EditActions::modify(cookie, rename, "Rename");
}

/// What the file of an object holds, told from other contents.
Result<std::size_t> storedContent(const Cookie& cookie) {
  const auto bytes = readFresh(openEdits().pathFor(cookie));
  if (!bytes) return bytes.error();
  return contentHash(*bytes);
}

struct Gift {
  Cookie cookie;
  std::string before;
  std::string after;
  std::size_t content = 0;  ///< of its file after it was given
};

/// The rules would not let the user change what belongs to another now.
Result<void> takeGiftBack(const Gift& gift) {
  return EditActions::putOwner(gift.cookie, gift.before, [&gift]() -> Result<void> {
    const auto content = storedContent(gift.cookie);
    if (!content) return content.error();
    const bool isAsGiven =
        *content == gift.content && openEdits().ownerOf(gift.cookie) == gift.after;
    if (isAsGiven) return {};
    return changedSince("The " + EditActions::titleOf(gift.cookie));
  });
}

Result<void> giveAgain(Gift& gift) {
  const auto given = EditActions::putOwner(gift.cookie, gift.after, [&gift]() -> Result<void> {
    if (openEdits().ownerOf(gift.cookie) == gift.before) {
      return EditActions::requireMayGive(gift.cookie);
    }
    return changedSince("The " + EditActions::titleOf(gift.cookie));
  });
  if (const auto content = storedContent(gift.cookie); given && content) gift.content = *content;
  return given;
}

}  // namespace

void EditSteps::noteTrim(const Cookie& cookie, const ClipInfo& before) {
  const auto document = shownDocumentOf(cookie);
  const auto clip = document ? clipAt(document->json(), before.path) : document.error();
  if (!clip) return;
  const std::string name = before.name.empty() ? before.path : before.name;
  recordStep(
      {"trim of " + name + " in " + document->name(),
       [=, after = clip->range] { return trimBack(cookie, before.path, after, before.range); },
       [=, after = clip->range] { return trimBack(cookie, before.path, before.range, after); }});
}

void EditSteps::noteRename(const Cookie& cookie, const std::string& before) {
  const std::string after = openEdits().nameOf(cookie);
  recordStep({"rename of " + before + " to " + after,
              [=] { return renameBack(cookie, after, before); },
              [=] { return renameBack(cookie, before, after); }});
}

void EditSteps::noteGift(const Cookie& cookie, const std::string& before) {
  const auto content = storedContent(cookie);
  if (!content) return;
  const auto gift =
      std::make_shared<Gift>(Gift{cookie, before, openEdits().ownerOf(cookie), *content});
  recordStep({"gift of " + openEdits().nameOf(cookie) + " to " + gift->after,
              [gift] { return takeGiftBack(*gift); }, [gift] { return giveAgain(*gift); }});
}

void EditSteps::noteDeletion(const std::vector<Trashed>& trashed, const std::string& name) {
  const std::size_t count = trashed.size();
  const auto kept = std::make_shared<std::vector<Trashed>>(trashed);
  const auto takeBack = [kept]() -> Result<void> {
    for (const Trashed& each : *kept) {
      if (auto taken = EditActions::takeBack(each); !taken) return taken;
    }
    return {};
  };
  const auto removeAgain = [kept]() -> Result<void> {
    std::vector<Cookie> cookies;
    for (const Trashed& each : *kept) {
      cookies.emplace_back(each.object.c_str(), false);
      auto allowed = EditActions::requireAllowed(cookies.back(), eModContentsChanged);
      if (!allowed) return allowed;
    }
    return EditActions::moveToTrash(cookies, *kept);
  };
  recordStep({"deletion of " + (count == 1 ? name : std::to_string(count) + " edits"), takeBack,
              removeAgain});
}

}  // namespace korvel
