#include "station/ui/ComponentTypes.h"

#include <algorithm>

#include "station/base/HostParts.h"
#include "station/base/Strings.h"
#include "station/ui/Desktop.h"

using namespace korvel;

namespace korvel {

ComponentTypes& ComponentTypes::instance() {
  static ComponentTypes types;
  return types;
}

void ComponentTypes::add(const LightweightString<char>& name, GlobManager::Factory factory) {
  const auto same = std::ranges::find(types_, name, &Type::name);
  if (same == types_.end()) {
    types_.push_back({name, factory});
  } else {
    same->factory = factory;
  }
}

std::vector<LightweightString<char>> ComponentTypes::names() const {
  std::vector<LightweightString<char>> names;
  for (const Type& type : types_) names.push_back(type.name);
  return names;
}

const ComponentTypes::Type* ComponentTypes::find(const LightweightString<char>& name) const {
  const auto found = std::ranges::find(types_, name, &Type::name);
  return found == types_.end() ? nullptr : &*found;
}

Result<std::unique_ptr<GenIcon>> ComponentTypes::create(GlobCreationInfo info) {
  const std::string name = shownText(info.typeName.view());
  const Type* type = instance().find(info.typeName);
  if (!type) {
    return Error{ErrorCode::eNotFound, "There is no tool \"" + name + "\": no plug-in offers it",
                 ""};
  }
  std::unique_ptr<Glob> made(type->factory(&info));
  auto* tool = dynamic_cast<GenIcon*>(made.get());
  if (!tool) {
    return Error{ErrorCode::eSystem, "The tool \"" + name + "\" could not be made by its plug-in",
                 ""};
  }
  made.release();
  return std::unique_ptr<GenIcon>(tool);
}

}  // namespace korvel

void GlobManager::registerUiComponentType(const LightweightString<char>& name, Factory factory) {
  ComponentTypes::instance().add(name, factory);
  if (Desktop* desktop = hostParts().desktop) desktop->toolbox().populate();
}
