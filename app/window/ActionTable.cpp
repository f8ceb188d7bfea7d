#include "app/window/ActionTable.h"

#include <QRegularExpression>
#include <QStringList>
#include <algorithm>

#include "app/window/Texts.h"

namespace korvel {

namespace {

using Kind = ActionField::Kind;

const std::vector<ActionSpec>& table() {
  static const std::vector<ActionSpec> kTable{
      {"Project",
       "&New shared project…",
       "Ctrl+N",
       Target::eNothing,
       "project create {0}",
       {{"Name"}}},
      {"Project",
       "New &private project…",
       "Ctrl+Shift+N",
       Target::eNothing,
       "project create {0} --private",
       {{"Name"}}},
      {"Project",
       "&Enter the chosen project",
       "Ctrl+O",
       Target::eProject,
       "project enter {object}",
       {}},
      {"Project",
       "&Leave the open project",
       "Ctrl+Shift+L",
       Target::eOpenProject,
       "project leave",
       {}},
      {"Project", "As&k for the chosen project", "", Target::eProject, "ask {object}", {}},
      {"Project", "Tell me when it is &free", "", Target::eProject, "tell-when-free {object}", {}},
      {"Project", "Show the &state as text", "", Target::eNothing, "state", {}},
      {"Project", "L&ist all projects as text", "", Target::eNothing, "project list", {}},

      {"Room", "&New room…", "Ctrl+Shift+R", Target::eSharedProject, "room create {0}", {{"Name"}}},
      {"Room", "&Go into the chosen room", "Ctrl+R", Target::eRoom, "room enter {object}", {}},
      {"Room", "&Leave the room", "", Target::eSharedProject, "room leave", {}},
      {"Room", "As&k for the chosen room", "", Target::eRoom, "ask {object}", {}},
      {"Room", "Tell me when it is &free", "", Target::eRoom, "tell-when-free {object}", {}},
      {"Room", "L&ist all rooms as text", "", Target::eSharedProject, "room list", {}},

      {"Edit", "&New edit…", "Ctrl+E", Target::eOpenProject, "edit create {0}", {{"Name"}}},
      {"Edit", "New &log…", "Ctrl+L", Target::eOpenProject, "log create {0}", {{"Name"}}},
      {"Edit",
       "&Import…",
       "Ctrl+I",
       Target::eOpenProject,
       "edit import {0}",
       {{"OpenTimelineIO files", Kind::eImportFiles}}},
      {"Edit",
       "E&xport…",
       "Ctrl+Shift+E",
       Target::eEdit,
       "edit export {object} {0}",
       {{"To the file", Kind::eSaveFile, "{name}.otio"}}},
      {"Edit", "&Open", "Ctrl+Return", Target::eEdit, "edit open {object}", {}},
      {"Edit", "&Close", "Ctrl+W", Target::eEdit, "edit close {object}", {}},
      {"Edit",
       "&Rename…",
       "F2",
       Target::eEdit,
       "edit rename {object} {0}",
       {{"New name", Kind::eText, "{name}"}}},
      {"Edit", "&Save", "Ctrl+S", Target::eEdit, "edit save {object}", {}},
      {"Edit", "Save over another's version", "", Target::eEdit, "edit save {object} --over", {}},
      {"Edit",
       "Save a copy…",
       "Ctrl+Shift+S",
       Target::eEdit,
       "edit save-copy {object} {0}",
       {{"Name of the copy", Kind::eText, "{name}"}}},
      {"Edit", "Duplicate", "Ctrl+D", Target::eEdit, "edit save-copy {object} {copy}", {}},
      {"Edit", "Drop unsaved changes", "", Target::eEdit, "edit revert {object}", {}},
      {"Edit",
       "Recover unsaved changes…",
       "",
       Target::eOpenProject,
       "edit recover {0}",
       {{"Edit, by name or cookie"}}},
      {"Edit",
       "&Give to…",
       "Ctrl+G",
       Target::eEdit,
       "edit give {object} {0}",
       {{"New owner", Kind::eNewOwner}}},
      {"Edit", "As&k its owner for it", "Ctrl+Shift+K", Target::eEdit, "ask {object}", {}},
      {"Edit", "Tell me when it is &free", "", Target::eEdit, "tell-when-free {object}", {}},
      {"Edit", "&May I change it?", "", Target::eEdit, "edit may {object}", {}},
      {"Edit", "S&how it as text", "", Target::eEdit, "edit show {object}", {}},
      {"Edit", "List &all as text", "", Target::eOpenProject, "edit list", {}},
      {"Edit", "&Delete…", "Del", Target::eEdit, "edit delete {objects}", {}},

      {"Clip",
       "&Trim a clip…",
       "Ctrl+T",
       Target::eEdit,
       "edit trim {object} {0} {1} {2}",
       {{"Clip"}, {"In"}, {"Out"}}},
      {"Clip",
       "&In a frame earlier",
       "Shift+Left",
       Target::eClip,
       "edit trim {object} {clip} -1f +0f",
       {}},
      {"Clip",
       "In a frame &later",
       "Shift+Right",
       Target::eClip,
       "edit trim {object} {clip} +1f +0f",
       {}},
      {"Clip",
       "&Out a frame earlier",
       "Ctrl+Left",
       Target::eClip,
       "edit trim {object} {clip} +0f -1f",
       {}},
      {"Clip",
       "Out a frame late&r",
       "Ctrl+Right",
       Target::eClip,
       "edit trim {object} {clip} +0f +1f",
       {}},

      {"Bin", "&New bin…", "", Target::eOpenProject, "bin create {0}", {{"Name"}}},
      {"Bin",
       "&Put the chosen into a bin…",
       "Ctrl+B",
       Target::eObject,
       "bin add {0} {objects}",
       {{"Bin", Kind::eBin}}},
      {"Bin",
       "&Take something out…",
       "",
       Target::eBin,
       "bin remove {object} {0}",
       {{"What", Kind::eContent}}},
      {"Bin", "&Show it as text", "", Target::eBin, "bin show {object}", {}},
      {"Bin", "&List all as text", "", Target::eOpenProject, "bin list", {}},
      {"Bin", "&Delete the bin…", "Del", Target::eBin, "bin destroy {object}", {}},

      {"Rack", "&New rack…", "", Target::eOpenProject, "rack create {0}", {{"Name"}}},
      {"Rack",
       "&Put the chosen into a rack…",
       "",
       Target::eObject,
       "rack add {0} {objects}",
       {{"Rack", Kind::eRack}}},
      {"Rack",
       "&Take something out…",
       "",
       Target::eRack,
       "rack remove {object} {0}",
       {{"What", Kind::eContent}}},
      {"Rack", "&Show it as text", "", Target::eRack, "rack show {object}", {}},
      {"Rack", "&List all as text", "", Target::eOpenProject, "rack list", {}},
      {"Rack", "&Delete the rack…", "Del", Target::eRack, "rack destroy {object}", {}},

      {"Filter",
       "&New filter…",
       "",
       Target::eOpenProject,
       "filter create {0} {1}",
       {{"Name"}, {"What it finds"}}},
      {"Filter",
       "&Change…",
       "",
       Target::eFilter,
       "filter change {object} {0}",
       {{"What it finds", Kind::eText, "{detail}"}}},
      {"Filter", "&List all as text", "", Target::eOpenProject, "filter list", {}},
      {"Filter", "&Delete the filter…", "Del", Target::eFilter, "filter destroy {object}", {}},

      {"Media",
       "&Add a file…",
       "Ctrl+Shift+I",
       Target::eOpenProject,
       "media add {0}",
       {{"Media file", Kind::eOpenFile}}},
      {"Media",
       "Add a &proxy of the chosen file…",
       "",
       Target::eMedia,
       "media add {object} --proxy {0}",
       {{"Proxy file", Kind::eOpenFile}}},
      {"Media", "&List all, with where each is", "", Target::eOpenProject, "media list", {}},
      {"Media",
       "&Take the chosen out of the project",
       "",
       Target::eMedia,
       "media remove {object}",
       {}},

      {"Messages", "&Open the panel", "Ctrl+M", Target::eNothing, "panel open", {}},
      {"Messages", "&Close the panel", "Ctrl+Shift+M", Target::eNothing, "panel close", {}},
      {"Messages",
       "&Write to a user…",
       "Ctrl+Shift+W",
       Target::eNothing,
       "say {0} {1}",
       {{"To", Kind::eUser}, {"Message"}}},
      {"Messages", "&Notifications as text", "", Target::eNothing, "notifications", {}},

      {"Station", "&Users", "Ctrl+U", Target::eNothing, "users", {}},
      {"Station", "&Add a user…", "", Target::eNothing, "user add {0}", {{"Name"}}},
      {"Station", "&Stations at work", "", Target::eNothing, "who --all", {}},
      {"Station", "&How many are at work?", "", Target::eNothing, "active", {}},
      {"Station", "&Who am I?", "", Target::eNothing, "whoami", {}},
      {"Station",
       "&Request something of a machine…",
       "",
       Target::eNothing,
       "request {0} {1}",
       {{"Machine number"}, {"Command", Kind::eText, "identify"}}},
  };
  return kTable;
}

}  // namespace

std::span<const ActionSpec> actionTable() { return table(); }

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

/// Where the window has what no line of the table does.
struct Place {
  const char* line;
  const char* where;
};
constexpr Place kElsewhere[] = {
    {"project list", "the list of projects"},
    {"room list", "the list of rooms"},
    {"trash", "Project > Trash"},
    {"edit history", "View > History"},
    {"edit compare", "View > History"},
    {"edit restore", "View > History"},
    {"undo", "Edit > Undo"},
    {"redo", "Edit > Redo"},
    {"panel", "the message panel"},
    {"asks", "Messages > Asks that wait"},
    {"answer", "Messages > Asks that wait"},
    {"conversation", "View > Conversation"},
    {"quit", "Project > Quit"},
    {"help", "Help > Commands"},
    {"wait", "Help > Commands"},
    {"sleep", "Help > Commands"},
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
  QString text = QString::fromUtf8(action.text);
  text.remove(QLatin1Char('&')).remove(QStringLiteral("…"));
  return QString::fromUtf8(action.menu) + QStringLiteral(" > ") + text;
}

}  // namespace

// The command that has most words in common is the one that is meant: "edit save --over" is not
// "edit save".
QString placeOf(const QString& line) {
  const QStringList words = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
  for (const Place& place : kElsewhere) {
    if (runs(words, fixedWords(QLatin1String(place.line)))) return QLatin1String(place.where);
  }
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

/// What reads otherwise where there are lists to choose from.
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
    const qsizetype quotes = place.front().isLower() ? 1 : 0;
    told += text.mid(from, match.capturedStart(2) - quotes - from) + place;
    from = match.capturedEnd(2) + quotes;
  }
  return told + text.mid(from);
}

QString shownError(const Error& error) { return inWindowWords(readableText(error.message)); }

}  // namespace korvel
