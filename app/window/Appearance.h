#pragma once

#include <QColor>
#include <QString>

namespace korvel {

/// How the window is coloured: as the desktop is, or always light or dark.
enum class Appearance { eSystem, eLight, eDark };

/// The colours that mean something, beside the palette's.
struct Colours {
  QColor text;
  QColor quiet;   ///< text of less weight
  QColor accent;  ///< what can be acted on, what is chosen
  QColor good;
  QColor held;  ///< taken by somebody
  QColor warn;
  QColor bad;
  QColor line;                                            ///< thin rules
  QColor panel;                                           ///< behind the lists
  QColor clip, nested, audio, gap, transition, clipText;  ///< the timeline's
};

/// Colours the whole application. Window thread.
void applyAppearance(Appearance appearance);

/// The colours in use.
const Colours& colours();
[[nodiscard]] bool isDark();

QString appearanceName(Appearance appearance);    ///< "system", "light", "dark"
Appearance appearanceNamed(const QString& name);  ///< eSystem for anything else

}  // namespace korvel
