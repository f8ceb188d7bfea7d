#pragma once

#include <memory>

#include "host/ui/GenIcon.h"

namespace korvel {

/// A column of icons at the desktop's left edge: one of every type of tool that is not on the
/// desktop.
class Toolbox : public Glob {
 public:
  Toolbox();

  /// Makes the icons that are missing and removes those whose tool is on the desktop. A tool that
  /// cannot be made is reported in the log.
  void populate();

  /// The icon of a type, or null.
  [[nodiscard]] GenIcon* iconOf(const LightweightString<char>& typeName) const;

 private:
  void addIcon(std::unique_ptr<GenIcon> icon);
  void lineUp();
};

}  // namespace korvel
