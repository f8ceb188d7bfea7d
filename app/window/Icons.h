#pragma once

#include <QColor>
#include <QIcon>

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
};

/// The icon in this colour, at 16 to 48 pixels. Window thread.
QIcon icon(Glyph glyph, const QColor& colour);

}  // namespace korvel
