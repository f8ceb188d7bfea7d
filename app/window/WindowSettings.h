#pragma once

#include <QSettings>

namespace korvel {

/// What the window remembers from one run to the next, in a file beside the station's own
/// configuration, which people write by hand.
inline QSettings windowSettings() {
  return QSettings(QSettings::IniFormat, QSettings::UserScope, QStringLiteral("korvel"),
                   QStringLiteral("station-window"));
}

}  // namespace korvel
