#include "tests/fakes/FakeEdits.h"

#include "host/base/Text.h"
#include "tests/fakes/FakeHost.h"

using namespace korvel;

namespace korvel {

void FakeConfig::set(const LightweightString<char>& key, const LightweightString<char>& value) {
  journal_.did("configb::set", {cookie_, key, value});
  values[key.str()] = value.str();
}

LightweightString<char> FakeConfig::get(const LightweightString<char>& key) const {
  const auto found = values.find(key.str());
  return found == values.end() ? LightweightString<char>()
                               : LightweightString<char>(found->second.c_str());
}

LightweightString<wchar_t> FakeEdit::getOwner() const { return fromUTF8(settings.get("OWNER")); }

void FakeEdit::setChangeDescription(EditModificationType type, bool announceIt) {
  journal_.did("Edit::setChangeDescription", {cookie_, static_cast<int>(type), announceIt});
  if (announceIt) pending = type;
}

bool FakeEdit::reOpen(const LightweightString<wchar_t>& path) {
  journal_.did("Edit::reOpen", {cookie_, path});
  return true;
}

void FakeEdit::celCuesOn() {
  journal_.did("Edit::celCuesOn", {cookie_});
  celCues = true;
}

void FakeEdit::celCuesOff() {
  journal_.did("Edit::celCuesOff", {cookie_});
  celCues = false;
}

void FakeEdit::issueChangeNotification(const EditModification& modification) {
  journal_.did("Edit::issueChangeNotification", {cookie_, modification.asString()});
}

void FakeEdit::setDirty(bool isDirty) {
  journal_.did("Edit::setDirty", {cookie_, isDirty});
  dirty = isDirty;
}

void FakeEdit::clearPendingModifications() { pending.reset(); }

void FakeEdit::announce() {
  if (!pending) return;
  const EditModification modification(*pending);
  pending.reset();
  journal_.did("announce", {cookie_, static_cast<int>(modification.type_)});
  FakeHost::current().project.eachListener(
      [&](ProjectListener& listener) { listener.handleLogModification(cookie_, modification); });
}

FakeEdit& FakeEdits::add(const Cookie& cookie) {
  auto& edit = edits_[cookie.asString(false).str()];
  edit = std::make_unique<FakeEdit>(journal_, cookie);
  return *edit;
}

FakeEdit* FakeEdits::find(const Cookie& cookie) {
  const auto found = edits_.find(cookie.asString(false).str());
  return found == edits_.end() ? nullptr : found->second.get();
}

namespace {

FakeEdit* fake(Edit* edit) { return dynamic_cast<FakeEdit*>(edit); }

}  // namespace

}  // namespace korvel

EditPtr::~EditPtr() { i_close(); }

void EditPtr::i_open(const Cookie& cookie, int flags) {
  i_close();
  FakeHost& host = FakeHost::current();
  host.journal.did("EditPtr::i_open", {cookie, flags});
  FakeEdit* edit = host.edits.find(cookie);
  edit_ = edit && edit->canBeOpened ? edit : nullptr;
}

void EditPtr::i_close() {
  if (!edit_) return;
  FakeEdit* edit = fake(edit_);
  edit->announce();
  edit_ = nullptr;
  FakeHost::current().journal.did("EditPtr::i_close", {edit->getCookie()});
}

EditModifier::EditModifier(EditPtr& edit, const LightweightString<char>& description) {
  if (!edit) return;
  FakeHost::current().journal.did("EditModifier", {edit->getCookie(), description});
  edit_ = fake(edit.get())->canBeModified ? edit.get() : nullptr;
}

EditModifier::~EditModifier() {
  if (!edit_) return;
  fake(edit_)->announce();
  FakeHost::current().journal.did("EditModifier::release", {edit_->getCookie()});
}

void EditModifier::clearModifications() {
  if (!edit_) return;
  FakeHost::current().journal.did("EditModifier::clearModifications", {edit_->getCookie()});
  edit_->clearPendingModifications();
}

void EditManager::addNetMessage(const Cookie& cookie, const LightweightString<char>& wireText) {
  FakeHost::current().journal.did("EditManager::addNetMessage", {cookie, wireText});
}

void EditManager::handleNetDelete(const Cookie& cookie) {
  FakeHost::current().journal.did("EditManager::handleNetDelete", {cookie});
}

void EditManager::updateProjdbRec(const Cookie& cookie) {
  FakeHost::current().journal.did("EditManager::updateProjdbRec", {cookie});
}

void EditManager::updateLocalPermissions(const Cookie& cookie,
                                         const LightweightString<char>& owner) {
  FakeHost::current().journal.did("EditManager::updateLocalPermissions", {cookie, owner});
}

bool EditManager::isOpen(const Cookie& cookie) {
  FakeHost& host = FakeHost::current();
  host.journal.asked("EditManager::isOpen", {cookie});
  return host.edits.openHere.count(cookie.asString(false).str()) != 0;
}

Cookie EditManager::getCurrentProjectID() { return FakeHost::current().project.current; }

void EditManager::flushChanges(const Cookie& cookie) {
  FakeHost::current().journal.did("EditManager::flushChanges", {cookie});
}

LightweightString<wchar_t> getFilenameForCookie(const Cookie& cookie, const Cookie& project) {
  FakeHost& host = FakeHost::current();
  host.journal.asked("getFilenameForCookie", {cookie, project});
  return host.fileOf(cookie, ".otio");
}

namespace korvel {

bool FakeThumbnails::isIdle() const {
  journal_.asked("ThumbnailRenderTaskQueue::isIdle");
  return busyAnswers-- <= 0;
}

}  // namespace korvel

ThumbnailRenderTaskQueue& ThumbnailRenderTaskQueue::instance() {
  return FakeHost::current().thumbnails;
}
