#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/ui/GlobManager.h"
#include "tests/fakes/Journal.h"

namespace korvel {

/// A widget that keeps the texts it was sent.
class FakeGlob : public Glob {
 public:
  explicit FakeGlob(const std::string& widgetId) : id(widgetId) {}
  std::string id;
  std::vector<std::string> texts;
  bool handleMessageEvent(const LightweightString<char>& text, Glob* sender) override;
};

/// The widgets on the fake screen; a test owns them.
class FakeUi {
 public:
  std::map<std::string, Glob*> globs;
};

}  // namespace korvel
