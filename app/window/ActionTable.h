#pragma once

#include <QString>
#include <span>
#include <vector>

#include "station/base/Result.h"

namespace korvel {

/// Something to fill in before an action can run.
struct ActionField {
  enum class Kind {
    eText,
    eOpenFile,
    eImportFiles,  ///< one OpenTimelineIO file or several; its value has one a line
    eSaveFile,
    eUser,      ///< one to write to
    eNewOwner,  ///< a user's exact name, which nothing fills in beforehand
    eBin,
    eRack,
    eContent
  };
  const char* label;  ///< English; actionText() has it in the language of the window
  Kind kind = Kind::eText;
  const char* initial = "";  ///< "{name}" for the chosen object's name
};

/// What has to be chosen for an action to make sense.
enum class Target {
  eNothing,
  eOpenProject,
  eSharedProject,  ///< that is open
  eProject,        ///< one of the list
  eRoom,
  eEdit,
  eClip,    ///< of the timeline that is shown
  eObject,  ///< of any kind
  eBin,
  eRack,
  eFilter,
  eMedia,
};

/// One action of the menus: a line of the console with places for what is chosen and what is filled
/// in.
///
///     "edit give {object} {0}"    {object}   the chosen one
///                                 {objects}  all that are chosen
///                                 {clip}     the chosen one of the timeline, by its path
///                                 {copy}     a name for a copy of the chosen one
///                                 {0} {1}    the fields
struct ActionSpec {
  const char* menu;  ///< "Edit", whatever the language; menuTitle() is what is shown
  const char* text;  ///< English, with its mnemonic
  const char* shortcut;
  Target target;
  const char* line;
  std::vector<ActionField> fields;
};

/// Every action that is a line of the console, menu by menu in the order in which they are shown.
std::span<const ActionSpec> actionTable();

/// A text of the table in the language of the window.
QString actionText(const char* text);

/// What a menu of the table or of the window is called, with its mnemonic: "R&oom" of "Room".
QString menuTitle(const QString& menu);

/// A text of a menu without its mnemonic and its "…".
QString withoutMarks(QString text);

/// The line with everything in its place. `objects` are words as commands take them, the chosen one
/// first; of a clip the edit's and its own, of a copy the edit's and its name. All are quoted.
QString filledLine(const ActionSpec& action, const QStringList& objects, const QStringList& values);

/// Where the window does what a line of the console does: "Edit > Rename" for "edit rename E Quay".
/// Empty for a line that nothing here does.
QString placeOf(const QString& line);

/// A text of the station in which the window's own words stand for the console's commands that it
/// has in quotation marks: "Edit > Give to" for "edit give". What an object is called stays.
QString inWindowWords(const QString& text);

/// What an error says to somebody in the window.
QString shownError(const Error& error);

}  // namespace korvel
