#pragma once

#include <QColor>
#include <QIcon>
#include <QString>

namespace korvel {

/// What an icon means. Drawn, not loaded, so that each is sharp at every size and takes the
/// appearance's colours.
enum class Glyph {
  eProject,
  ePrivate,
  eRoom,
  eFree,
  eTaken,
  eLeftBehind,
  eUnknown,
  eHere,
  eEdit,
  eLog,
  eBin,
  eRack,
  eFilter,
  eMedia,
  eYes,
  eNo,
  eWaiting,
  eOpen,
  eDirty,
  eChanged,
  eProblem,
  eMessage,
  eBell,
  eSent,
  eReceived,
  eNetwork,
  eClose,
  eBusy,
  ePeople,
};

/// The icon in this colour, at 16 to 48 pixels. Window thread.
QIcon icon(Glyph glyph, const QColor& colour);

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
  QColor line;    ///< thin rules between what stands beside one another anyway
  QColor border;  ///< around what can be acted on
  QColor window;
  QColor panel;                ///< behind the lists
  QColor choice, softChoice;   ///< behind what is chosen, with and without the keyboard
  QColor onAccent;             ///< text on the accent
  QColor errorBack, noteBack;  ///< the message bars'
  QColor clip, nested, audio, gap, transition, clipText, edge;  ///< the timeline's
};

/// Colours the whole application. Window thread.
void applyAppearance(Appearance appearance);

/// The colours in use.
const Colours& colours();
[[nodiscard]] bool isDark();

QString appearanceName(Appearance appearance);    ///< "system", "light", "dark"
Appearance appearanceNamed(const QString& name);  ///< eSystem for anything else

}  // namespace korvel
