#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/ui/GenIcon.h"
#include "host/ui/GlobManager.h"
#include "station/base/Result.h"

namespace korvel {

/// The types of tool that plug-ins registered, in the order in which they did. Host thread.
class ComponentTypes {
 public:
  static ComponentTypes& instance();

  /// Adds a type, or replaces the factory of one of the same name.
  void add(const LightweightString<char>& name, GlobManager::Factory factory);

  /// Forgets all types; before the code of their factories goes away.
  void clear() { types_.clear(); }

  [[nodiscard]] std::vector<LightweightString<char>> names() const;

  /// Makes a tool of the type that `info` names. Failure: no such type, or its factory made nothing
  /// that is a tool.
  static Result<std::unique_ptr<GenIcon>> create(GlobCreationInfo info);

 private:
  struct Type {
    LightweightString<char> name;
    GlobManager::Factory factory;
  };

  [[nodiscard]] const Type* find(const LightweightString<char>& name) const;

  std::vector<Type> types_;
};

}  // namespace korvel
