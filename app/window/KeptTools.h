#pragma once

#include <QString>
#include <vector>

class QSettings;

namespace korvel {

class Desktop;

/// A tool on the station's desktop, as the window remembers it from one run to the next.
struct KeptTool {
  QString type;
  int sizeState = 0;  ///< as the toolkit counts: 0 open, 1 an icon
  double x = 0;
  double y = 0;

  friend bool operator==(const KeptTool&, const KeptTool&) = default;
};
using KeptTools = std::vector<KeptTool>;

/// The tools on the desktop now. Host thread.
KeptTools toolsOn(const Desktop& desktop);

/// Puts tools back as they were, unless some are there already: a script came first. Host thread.
void putBack(const KeptTools& tools, Desktop& desktop);

/// Remembers tools, and what was remembered.
void keepTools(QSettings& settings, const KeptTools& tools);
KeptTools keptTools(QSettings& settings);

}  // namespace korvel
