#include "tests/fakes/FakeUi.h"

#include "tests/fakes/FakeHost.h"

using namespace korvel;

namespace korvel {

namespace {

std::string idOf(Glob* glob) {
  const auto* known = dynamic_cast<FakeGlob*>(glob);
  return known ? known->id : "?";
}

}  // namespace

bool FakeGlob::handleMessageEvent(const LightweightString<char>& text, Glob*) {
  texts.push_back(text.str());
  return true;
}

}  // namespace korvel

void Glob::sendMsg(Glob* target, const LightweightString<char>& text, Glob* sender) {
  FakeHost::current().journal.did("Glob::sendMsg", {idOf(target), text, idOf(sender)});
  target->handleMessageEvent(text, sender);
}

Glob* GlobManager::find(const LightweightString<char>& id) {
  FakeHost& host = FakeHost::current();
  host.journal.asked("GlobManager::find", {id});
  const auto found = host.ui.globs.find(id.str());
  return found == host.ui.globs.end() ? nullptr : found->second;
}
