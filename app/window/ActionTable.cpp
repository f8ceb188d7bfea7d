#include "app/window/ActionTable.h"

#include <QCoreApplication>
#include <QHash>
#include <QRegularExpression>
#include <QStringList>
#include <algorithm>
#include <iterator>

#include "app/window/Texts.h"

namespace korvel {

namespace {

using Kind = ActionField::Kind;

/// The tables' texts are English, and translated where they are used: the tables may be older than
/// the language.
class Actions {
  Q_DECLARE_TR_FUNCTIONS(Actions)

 public:
  static const std::vector<ActionSpec>& table();
  static const QHash<QString, const char*>& menus();
};

const std::vector<ActionSpec>& Actions::table() {
  static const std::vector<ActionSpec> kTable{
      {"Project",
       QT_TR_NOOP("&New shared project…"),
       "Ctrl+N",
       Target::eNothing,
       "project create {0}",
       {{QT_TR_NOOP("Name")}}},
      {"Project",
       QT_TR_NOOP("New &private project…"),
       "Ctrl+Shift+N",
       Target::eNothing,
       "project create {0} --private",
       {{QT_TR_NOOP("Name")}}},
      {"Project",
       QT_TR_NOOP("&Enter the chosen project"),
       "Ctrl+O",
       Target::eProject,
       "project enter {object}",
       {}},
      {"Project",
       QT_TR_NOOP("&Leave the open project"),
       "Ctrl+Shift+L",
       Target::eOpenProject,
       "project leave",
       {}},
      {"Project",
       QT_TR_NOOP("As&k for the chosen project"),
       "",
       Target::eProject,
       "ask {object}",
       {}},
      {"Project",
       QT_TR_NOOP("Ask for it with a &word…"),
       "",
       Target::eProject,
       "ask {object} {0}",
       {{QT_TR_NOOP("Your words")}}},
      {"Project",
       QT_TR_NOOP("Tell me when it is &free"),
       "",
       Target::eProject,
       "tell-when-free {object}",
       {}},
      {"Project", QT_TR_NOOP("Show the &state as text"), "", Target::eNothing, "state", {}},
      {"Project",
       QT_TR_NOOP("L&ist all projects as text"),
       "",
       Target::eNothing,
       "project list",
       {}},

      {"Room",
       QT_TR_NOOP("&New room…"),
       "Ctrl+Shift+R",
       Target::eSharedProject,
       "room create {0}",
       {{QT_TR_NOOP("Name")}}},
      {"Room",
       QT_TR_NOOP("&Go into the chosen room"),
       "Ctrl+R",
       Target::eRoom,
       "room enter {object}",
       {}},
      {"Room", QT_TR_NOOP("&Leave the room"), "", Target::eSharedProject, "room leave", {}},
      {"Room", QT_TR_NOOP("As&k for the chosen room"), "", Target::eRoom, "ask {object}", {}},
      {"Room",
       QT_TR_NOOP("Ask for it with a &word…"),
       "",
       Target::eRoom,
       "ask {object} {0}",
       {{QT_TR_NOOP("Your words")}}},
      {"Room",
       QT_TR_NOOP("Tell me when it is &free"),
       "",
       Target::eRoom,
       "tell-when-free {object}",
       {}},
      {"Room", QT_TR_NOOP("L&ist all rooms as text"), "", Target::eSharedProject, "room list", {}},

      {"Edit",
       QT_TR_NOOP("&New edit…"),
       "Ctrl+E",
       Target::eOpenProject,
       "edit create {0}",
       {{QT_TR_NOOP("Name")}}},
      {"Edit",
       QT_TR_NOOP("New &log…"),
       "Ctrl+L",
       Target::eOpenProject,
       "log create {0}",
       {{QT_TR_NOOP("Name")}}},
      {"Edit",
       QT_TR_NOOP("&Import…"),
       "Ctrl+I",
       Target::eOpenProject,
       "edit import {0}",
       {{QT_TR_NOOP("OpenTimelineIO files"), Kind::eImportFiles}}},
      {"Edit",
       QT_TR_NOOP("E&xport…"),
       "Ctrl+Shift+E",
       Target::eEdit,
       "edit export {object} {0}",
       {{QT_TR_NOOP("To the file"), Kind::eSaveFile, "{name}.otio"}}},
      {"Edit", QT_TR_NOOP("&Open"), "Ctrl+Return", Target::eEdit, "edit open {object}", {}},
      {"Edit", QT_TR_NOOP("&Close"), "Ctrl+W", Target::eEdit, "edit close {object}", {}},
      {"Edit",
       QT_TR_NOOP("&Rename…"),
       "F2",
       Target::eEdit,
       "edit rename {object} {0}",
       {{QT_TR_NOOP("New name"), Kind::eText, "{name}"}}},
      {"Edit", QT_TR_NOOP("&Save"), "Ctrl+S", Target::eEdit, "edit save {object}", {}},
      {"Edit",
       QT_TR_NOOP("Save over another's version"),
       "",
       Target::eEdit,
       "edit save {object} --over",
       {}},
      {"Edit",
       QT_TR_NOOP("Save a copy…"),
       "Ctrl+Shift+S",
       Target::eEdit,
       "edit save-copy {object} {0}",
       {{QT_TR_NOOP("Name of the copy"), Kind::eText, "{name}"}}},
      {"Edit",
       QT_TR_NOOP("Duplicate"),
       "Ctrl+D",
       Target::eEdit,
       "edit save-copy {object} {copy}",
       {}},
      {"Edit", QT_TR_NOOP("Drop unsaved changes"), "", Target::eEdit, "edit revert {object}", {}},
      {"Edit",
       QT_TR_NOOP("Recover unsaved changes…"),
       "",
       Target::eOpenProject,
       "edit recover {0}",
       {{QT_TR_NOOP("Edit, by name or cookie")}}},
      {"Edit",
       QT_TR_NOOP("&Give to…"),
       "Ctrl+G",
       Target::eEdit,
       "edit give {object} {0}",
       {{QT_TR_NOOP("New owner"), Kind::eNewOwner}}},
      {"Edit",
       QT_TR_NOOP("As&k its owner for it"),
       "Ctrl+Shift+K",
       Target::eEdit,
       "ask {object}",
       {}},
      {"Edit",
       QT_TR_NOOP("Ask its owner with a &word…"),
       "",
       Target::eEdit,
       "ask {object} {0}",
       {{QT_TR_NOOP("Your words")}}},
      {"Edit",
       QT_TR_NOOP("Tell me when it is &free"),
       "",
       Target::eEdit,
       "tell-when-free {object}",
       {}},
      {"Edit", QT_TR_NOOP("&May I change it?"), "", Target::eEdit, "edit may {object}", {}},
      {"Edit", QT_TR_NOOP("S&how it as text"), "", Target::eEdit, "edit show {object}", {}},
      {"Edit", QT_TR_NOOP("List &all as text"), "", Target::eOpenProject, "edit list", {}},
      {"Edit", QT_TR_NOOP("&Delete…"), "Del", Target::eEdit, "edit delete {objects}", {}},

      {"Clip",
       QT_TR_NOOP("&Trim a clip…"),
       "Ctrl+T",
       Target::eEdit,
       "edit trim {object} {0} {1} {2}",
       {{QT_TR_NOOP("Clip")}, {QT_TR_NOOP("In")}, {QT_TR_NOOP("Out")}}},
      {"Clip",
       QT_TR_NOOP("&In a frame earlier"),
       "Shift+Left",
       Target::eClip,
       "edit trim {object} {clip} -1f +0f",
       {}},
      {"Clip",
       QT_TR_NOOP("In a frame &later"),
       "Shift+Right",
       Target::eClip,
       "edit trim {object} {clip} +1f +0f",
       {}},
      {"Clip",
       QT_TR_NOOP("&Out a frame earlier"),
       "Ctrl+Left",
       Target::eClip,
       "edit trim {object} {clip} +0f -1f",
       {}},
      {"Clip",
       QT_TR_NOOP("Out a frame late&r"),
       "Ctrl+Right",
       Target::eClip,
       "edit trim {object} {clip} +0f +1f",
       {}},

      {"Bin",
       QT_TR_NOOP("&New bin…"),
       "",
       Target::eOpenProject,
       "bin create {0}",
       {{QT_TR_NOOP("Name")}}},
      {"Bin",
       QT_TR_NOOP("&Put the chosen into a bin…"),
       "Ctrl+B",
       Target::eObject,
       "bin add {0} {objects}",
       {{QT_TR_NOOP("Bin"), Kind::eBin}}},
      {"Bin",
       QT_TR_NOOP("&Take something out…"),
       "",
       Target::eBin,
       "bin remove {object} {0}",
       {{QT_TR_NOOP("What"), Kind::eContent}}},
      {"Bin", QT_TR_NOOP("&Show it as text"), "", Target::eBin, "bin show {object}", {}},
      {"Bin", QT_TR_NOOP("&List all as text"), "", Target::eOpenProject, "bin list", {}},
      {"Bin", QT_TR_NOOP("&Delete the bin…"), "Del", Target::eBin, "bin destroy {object}", {}},

      {"Rack",
       QT_TR_NOOP("&New rack…"),
       "",
       Target::eOpenProject,
       "rack create {0}",
       {{QT_TR_NOOP("Name")}}},
      {"Rack",
       QT_TR_NOOP("&Put the chosen into a rack…"),
       "",
       Target::eObject,
       "rack add {0} {objects}",
       {{QT_TR_NOOP("Rack"), Kind::eRack}}},
      {"Rack",
       QT_TR_NOOP("&Take something out…"),
       "",
       Target::eRack,
       "rack remove {object} {0}",
       {{QT_TR_NOOP("What"), Kind::eContent}}},
      {"Rack", QT_TR_NOOP("&Show it as text"), "", Target::eRack, "rack show {object}", {}},
      {"Rack", QT_TR_NOOP("&List all as text"), "", Target::eOpenProject, "rack list", {}},
      {"Rack", QT_TR_NOOP("&Delete the rack…"), "Del", Target::eRack, "rack destroy {object}", {}},

      {"Filter",
       QT_TR_NOOP("&New filter…"),
       "",
       Target::eOpenProject,
       "filter create {0} {1}",
       {{QT_TR_NOOP("Name")}, {QT_TR_NOOP("What it finds")}}},
      {"Filter",
       QT_TR_NOOP("&Change…"),
       "",
       Target::eFilter,
       "filter change {object} {0}",
       {{QT_TR_NOOP("What it finds"), Kind::eText, "{detail}"}}},
      {"Filter", QT_TR_NOOP("&List all as text"), "", Target::eOpenProject, "filter list", {}},
      {"Filter",
       QT_TR_NOOP("&Delete the filter…"),
       "Del",
       Target::eFilter,
       "filter destroy {object}",
       {}},

      {"Media",
       QT_TR_NOOP("&Add a file…"),
       "Ctrl+Shift+I",
       Target::eOpenProject,
       "media add {0}",
       {{QT_TR_NOOP("Media file"), Kind::eOpenFile}}},
      {"Media",
       QT_TR_NOOP("Add a &proxy of the chosen file…"),
       "",
       Target::eMedia,
       "media add {object} --proxy {0}",
       {{QT_TR_NOOP("Proxy file"), Kind::eOpenFile}}},
      {"Media",
       QT_TR_NOOP("&List all, with where each is"),
       "",
       Target::eOpenProject,
       "media list",
       {}},
      {"Media",
       QT_TR_NOOP("&Take the chosen out of the project"),
       "",
       Target::eMedia,
       "media remove {object}",
       {}},

      {"Messages", QT_TR_NOOP("&Open the panel"), "Ctrl+M", Target::eNothing, "panel open", {}},
      {"Messages",
       QT_TR_NOOP("&Close the panel"),
       "Ctrl+Shift+M",
       Target::eNothing,
       "panel close",
       {}},
      {"Messages",
       QT_TR_NOOP("&Write to a user…"),
       "Ctrl+Shift+W",
       Target::eNothing,
       "say {0} {1}",
       {{QT_TR_NOOP("To"), Kind::eUser}, {QT_TR_NOOP("Message")}}},
      {"Messages", QT_TR_NOOP("&Notifications as text"), "", Target::eNothing, "notifications", {}},

      {"Station", QT_TR_NOOP("&Users"), "Ctrl+U", Target::eNothing, "users", {}},
      {"Station",
       QT_TR_NOOP("&Add a user…"),
       "",
       Target::eNothing,
       "user add {0}",
       {{QT_TR_NOOP("Name")}}},
      {"Station", QT_TR_NOOP("&Stations at work"), "", Target::eNothing, "who --all", {}},
      {"Station", QT_TR_NOOP("&How many are at work?"), "", Target::eNothing, "active", {}},
      {"Station", QT_TR_NOOP("&Who am I?"), "", Target::eNothing, "whoami", {}},
      {"Station",
       QT_TR_NOOP("&Request something of a machine…"),
       "",
       Target::eNothing,
       "request {0} {1}",
       {{QT_TR_NOOP("Machine number")}, {QT_TR_NOOP("Command"), Kind::eText, "identify"}}},
  };
  return kTable;
}

// A different letter for each menu.
const QHash<QString, const char*>& Actions::menus() {
  static const QHash<QString, const char*> kTitles{
      {QStringLiteral("Project"), QT_TR_NOOP("&Project")},
      {QStringLiteral("Room"), QT_TR_NOOP("R&oom")},
      {QStringLiteral("Edit"), QT_TR_NOOP("&Edit")},
      {QStringLiteral("Clip"), QT_TR_NOOP("&Clip")},
      {QStringLiteral("Bin"), QT_TR_NOOP("&Bin")},
      {QStringLiteral("Rack"), QT_TR_NOOP("&Rack")},
      {QStringLiteral("Filter"), QT_TR_NOOP("&Filter")},
      {QStringLiteral("Media"), QT_TR_NOOP("&Media")},
      {QStringLiteral("Messages"), QT_TR_NOOP("Me&ssages")},
      {QStringLiteral("Station"), QT_TR_NOOP("S&tation")},
      {QStringLiteral("View"), QT_TR_NOOP("&View")},
      {QStringLiteral("Help"), QT_TR_NOOP("&Help")}};
  return kTitles;
}

}  // namespace

std::span<const ActionSpec> actionTable() { return Actions::table(); }

QString actionText(const char* text) { return Actions::tr(text); }

QString menuTitle(const QString& menu) { return Actions::tr(Actions::menus().value(menu)); }

QString withoutMarks(QString text) {
  return text.remove(QLatin1Char('&')).remove(QStringLiteral("…"));
}

// Replaces word by word, in one pass: braces within names and values stay as they are.
QString filledLine(const ActionSpec& action, const QStringList& objects,
                   const QStringList& values) {
  QStringList words;
  for (const QString& word : QString::fromUtf8(action.line).split(QLatin1Char(' '))) {
    if (word == QLatin1String("{objects}")) {
      for (const QString& object : objects) words.append(quoted(object));
    } else if (word == QLatin1String("{object}")) {
      words.append(quoted(objects.value(0)));
    } else if (word == QLatin1String("{clip}") || word == QLatin1String("{copy}")) {
      words.append(quoted(objects.value(1)));
    } else if (word.startsWith(QLatin1Char('{'))) {
      words.append(quoted(values.value(word.mid(1, word.size() - 2).toInt())));
    } else {
      words.append(word);
    }
  }
  return words.join(QLatin1Char(' '));
}

namespace {

/// Where the window has what no line of the table does: in a menu, or in a place that has no name
/// and is described.
struct Place {
  const char* line;
  const char* where;
  enum class Kind { eMenu, eDescribed } kind = Kind::eMenu;
};
constexpr Place kElsewhere[] = {
    {"project list", QT_TRANSLATE_NOOP("Actions", "the list of projects"), Place::Kind::eDescribed},
    {"room list", QT_TRANSLATE_NOOP("Actions", "the list of rooms"), Place::Kind::eDescribed},
    {"trash", QT_TRANSLATE_NOOP("Actions", "Project > Trash")},
    {"edit history", QT_TRANSLATE_NOOP("Actions", "View > History")},
    {"edit compare", QT_TRANSLATE_NOOP("Actions", "View > History")},
    {"edit restore", QT_TRANSLATE_NOOP("Actions", "View > History")},
    {"undo", QT_TRANSLATE_NOOP("Actions", "Edit > Undo")},
    {"redo", QT_TRANSLATE_NOOP("Actions", "Edit > Redo")},
    {"panel", QT_TRANSLATE_NOOP("Actions", "the message panel"), Place::Kind::eDescribed},
    {"asks", QT_TRANSLATE_NOOP("Actions", "Messages > Asks that wait")},
    {"answer", QT_TRANSLATE_NOOP("Actions", "Messages > Asks that wait")},
    {"conversation", QT_TRANSLATE_NOOP("Actions", "View > Conversation")},
    {"happened", QT_TRANSLATE_NOOP("Actions", "View > What happened")},
    {"quit", QT_TRANSLATE_NOOP("Actions", "Project > Quit")},
    {"help", QT_TRANSLATE_NOOP("Actions", "Help > Commands")},
    {"wait", QT_TRANSLATE_NOOP("Actions", "Help > Commands")},
    {"sleep", QT_TRANSLATE_NOOP("Actions", "Help > Commands")},
};

/// The words of a line that are always the same, in front of its places.
QStringList fixedWords(const QString& line) {
  QStringList words = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
  words.removeIf([](const QString& word) { return word.startsWith(QLatin1Char('{')); });
  return words;
}

/// Whether a line runs this command: it has all of its words, and begins with the same ones.
bool runs(const QStringList& words, const QStringList& command) {
  if (words.isEmpty() || words.front() != command.front()) return false;
  if (command.size() > 1 && words.value(1) != command[1]) return false;
  return std::ranges::all_of(command,
                             [&words](const QString& word) { return words.contains(word); });
}

QString menuPlace(const ActionSpec& action) {
  return withoutMarks(menuTitle(QString::fromUtf8(action.menu))) + QStringLiteral(" > ") +
         withoutMarks(actionText(action.text));
}

const Place* elsewhere(const QString& line) {
  const QStringList words = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
  const auto found = std::ranges::find_if(kElsewhere, [&words](const Place& place) {
    return runs(words, fixedWords(QLatin1String(place.line)));
  });
  return found == std::end(kElsewhere) ? nullptr : found;
}

bool isDescribed(const QString& line) {
  const Place* const place = elsewhere(line);
  return place && place->kind == Place::Kind::eDescribed;
}

}  // namespace

// The command that has most words in common is the one that is meant: "edit save --over" is not
// "edit save".
QString placeOf(const QString& line) {
  const QStringList words = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
  if (const Place* const place = elsewhere(line)) return actionText(place->where);
  const ActionSpec* found = nullptr;
  qsizetype most = 0;
  for (const ActionSpec& action : actionTable()) {
    const QStringList command = fixedWords(QString::fromUtf8(action.line));
    const auto isOption = [](const QString& word) { return word.startsWith(QLatin1String("--")); };
    const auto options = std::ranges::count_if(command, isOption);
    QStringList plain = command;
    plain.removeIf(isOption);
    if (!runs(words, plain)) continue;
    const bool isWhole = runs(words, command);
    const qsizetype score = 2 * (isWhole ? command.size() : plain.size()) + (isWhole || !options);
    if (score <= most) continue;
    most = score;
    found = &action;
  }
  return found ? menuPlace(*found) : QString();
}

namespace {

/// What reads otherwise where there are lists to choose from. The station's sentences are English,
/// so what is put into them is, too.
QString withLists(QString text) {
  // The window names objects by their cookies, which nobody reads.
  static const QRegularExpression kGone(
      QStringLiteral("\\b(holds) no such object as \"[A-Za-z][0-9a-f]{16,32}(?:-[0-9a-f]{4})?\""));
  text.replace(kGone, QStringLiteral("no longer \\1 what was chosen: it was deleted meanwhile"));
  for (const QString& what : {QStringLiteral("room"), QStringLiteral("project")}) {
    text.replace(QStringLiteral("enter another %1 (\"%1 list\")").arg(what),
                 QStringLiteral("choose another %1 in the list").arg(what));
  }
  return text;
}

}  // namespace

QString inWindowWords(const QString& said) {
  const QString text = withLists(said);
  static const QRegularExpression kQuoted(QStringLiteral(
      "(\\b(?:edit|log|project|room|bin|rack|filter|file|user|version|clip|called|named) )?"
      "\"([^\"\\n]+)\""));
  QString told;
  qsizetype from = 0;
  for (auto each = kQuoted.globalMatch(text); each.hasNext();) {
    const QRegularExpressionMatch match = each.next();
    const QString place = match.hasCaptured(1) && !match.captured(1).isEmpty()
                              ? QString()
                              : placeOf(match.captured(2));
    if (place.isEmpty()) continue;
    // Words that describe a place are no name of a menu: they stand without quotes.
    const qsizetype quotes = isDescribed(match.captured(2)) ? 1 : 0;
    told += text.mid(from, match.capturedStart(2) - quotes - from) + place;
    from = match.capturedEnd(2) + quotes;
  }
  return told + text.mid(from);
}

QString shownError(const Error& error) { return inWindowWords(readableText(error.message)); }

}  // namespace korvel
