#include "app/commands/Commands.h"

#include "host/base/Log.h"
#include "station/Station.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/edit/Edits.h"
#include "station/project/Projects.h"
#include "station/watch/Presence.h"

namespace korvel {

namespace {

constexpr const char* kForce = "--force";

Result<Cookie> resolved(Station& station, const std::string& nameOrCookie) {
  return station.projects().resolve(nameOrCookie, Edits::kKinds);
}

/// The cookies of the edits and logs of a name, but for one, each after a blank.
std::string namesakesOf(Station& station, const std::string& name, const Cookie& butFor) {
  std::vector<NamedObject> namesakes;
  station.edits().findByName(name, namesakes);
  std::string cookies;
  for (const NamedObject& each : namesakes) {
    if (!(each.cookie == butFor)) cookies += " " + each.cookie.asString().str();
  }
  return cookies;
}

std::string doubtAboutNew(Station& station, const Arguments& arguments) {
  if (namesakesOf(station, arguments[0], {}).empty()) return {};
  return "There is an edit or log called " + inQuotes(arguments[0]) + " already. Make another?";
}

/// The name comes from the file. One that cannot be read is refused by the import itself.
std::string doubtAboutImport(Station& station, const Arguments& arguments) {
  const auto name = EditActions::nameInFile(arguments[0]);
  return name ? doubtAboutNew(station, {*name}) : std::string();
}

std::string doubtAboutRename(Station& station, const Arguments& arguments) {
  const auto cookie = resolved(station, arguments[0]);
  if (!cookie || namesakesOf(station, arguments[1], *cookie).empty()) return {};
  return "There is an edit or log called " + inQuotes(arguments[1]) +
         " already. Call this one so, too?";
}

/// Answers with the cookie of a new object. Warns where its name is no longer unique: names stand
/// for cookies only then.
Result<JsonValue> answerNamed(Station& station, const Result<Cookie>& made) {
  if (!made) return made.error();
  const std::string name = station.edits().nameOf(*made);
  const std::string cookies = namesakesOf(station, name, *made);
  if (!cookies.empty()) {
    LogBoth(
        "There was an edit or log called \"%s\" already:%s. The name alone no longer says which "
        "one is meant; name either by its cookie, or by the beginning of it.\n",
        shownText(name), cookies);
  }
  return answer(made);
}

Result<JsonValue> createEdit(Station& station, const Arguments& arguments) {
  return answerNamed(station, EditActions::create(arguments[0], CookieTypeEdit));
}

Result<JsonValue> createLog(Station& station, const Arguments& arguments) {
  return answerNamed(station, EditActions::create(arguments[0], CookieTypeShot));
}

Result<JsonValue> import(Station& station, const Arguments& arguments) {
  return answerNamed(station, EditActions::import(arguments[0]));
}

Result<JsonValue> exportTo(Station&, const Cookie& cookie, const Arguments& arguments) {
  using EditActions::Replacing;
  const bool isForced = arguments.size() > 2;
  if (isForced && arguments[2] != kForce) {
    return Error{ErrorCode::eUsage, "Usage: edit export E FILE [--force]", {}};
  }
  return answer(EditActions::exportTo(cookie, arguments[1],
                                      isForced ? Replacing::eAccept : Replacing::eRefuse));
}

/// The name comes from the imported file, so the user may not know it.
std::string cookieAndName(Station& station, const Arguments&, const JsonValue& made) {
  const Cookie cookie(made.asString().c_str(), false);
  return made.asString() + "  " + shownText(station.edits().nameOf(cookie));
}

Result<JsonValue> list(Station& station, const Arguments&) {
  if (auto open = station.projects().requireOpen(); !open) return open.error();
  return station.edits().list();
}

Result<JsonValue> remove(Station& station, const Arguments& arguments) {
  std::vector<Cookie> cookies;
  for (const std::string& argument : arguments) {
    const auto cookie = resolved(station, argument);
    if (!cookie) return cookie.error();
    cookies.push_back(*cookie);
  }
  return answer(EditActions::remove(cookies));
}

Result<JsonValue> give(Station& station, const Arguments& words) {
  Arguments names = words;
  const bool isForced = std::erase(names, kForce) > 0;
  if (names.size() != 2) {
    return Error{ErrorCode::eUsage, "edit give takes E USER [--force].", {}};
  }
  const auto cookie = resolved(station, names[0]);
  if (!cookie) return cookie.error();
  using EditActions::Recipient;
  const std::string owner = upperCased(names[1]);
  const bool isHere = station.presence().hosts().contains(owner);
  const Recipient who = isHere ? Recipient::ePresent : Recipient::eKnownUser;
  if (!isForced) {
    if (auto whole = station.unsaved().requireNothingLeft(*cookie); !whole) return whole.error();
  }
  const auto given = EditActions::give(*cookie, names[1], isForced ? Recipient::eAnybody : who);
  if (!given) return given.error();
  if (*given == EditActions::Given::eNow) return JsonValue();
  return JsonValue("The " + EditActions::titleOf(*cookie) + " belongs to " + shownText(owner) +
                   " already.");
}

Result<JsonValue> may(Station& station, const Cookie& cookie, const Arguments&) {
  return JsonValue::object({{"cookie", cookie.asString().str()},
                            {"allowed", EditActions::isAllowed(cookie)},
                            {"owner", shownText(station.edits().ownerOf(cookie))}});
}

void addMaking(CommandTable& table) {
  Command makeEdit{
      "edit create", "NAME", "Makes an empty edit of yours and shows its cookie.", 1, 1,
      createEdit};
  Command makeLog{"log create", "NAME", "Makes an empty log (shot) and shows its cookie.", 1, 1,
                  createLog};
  makeEdit.doubt = makeLog.doubt = doubtAboutNew;
  table.add(std::move(makeEdit));
  table.add(std::move(makeLog));
  Command importing{"edit import",
                    "FILE",
                    "Takes an OpenTimelineIO file (.otio) into the project as an edit of yours.",
                    1,
                    1,
                    import,
                    Command::Place::eHostThread,
                    cookieAndName};
  importing.doubt = doubtAboutImport;
  table.add(std::move(importing));
  table.add({"edit export",
             "E FILE [--force]",
             "Writes an edit or log, unsaved changes included, as OpenTimelineIO. A file that is "
             "there is replaced with --force alone.",
             2,
             3,
             onEdit(exportTo),
             Command::Place::eHostThread,
             [](Station&, const Arguments& arguments, const JsonValue&) {
               return "Exported to " + inQuotes(arguments[1]) + ".";
             },
             {{ErrorCode::eExists, "replace", kForce}}});
}

/// The text, and what of others' changes is missing in what it says of the edit.
std::string withMissing(Station& station, const Arguments& words, const std::string& text) {
  const auto cookie = station.projects().resolve(words[0], Edits::kKinds);
  const std::string missing = cookie ? station.edits().missingText(*cookie) : std::string();
  return missing.empty() ? text : text + "\n" + missing;
}

void addLooking(CommandTable& table) {
  table.add({"edit list", "", "Shows the project's edits and logs.", 0, 0, list,
             Command::Place::eHostThread, [](Station&, const Arguments&, const JsonValue& edits) {
               return renderForPeople(withShortCookies(sortedByName(edits)));
             }});
  table.add({"edit show", "E",
             "Shows an edit or log with its clips; times are timecode, for scripts seconds.", 1, 1,
             onEdit([](Station& station, const Cookie& cookie, const Arguments&) {
               return station.edits().show(cookie);
             }),
             Command::Place::eHostThread,
             [](Station& station, const Arguments& words, const JsonValue& edit) {
               const std::string text = renderForPeople(withTimecodes(withShortCookies(edit)));
               return withMissing(station, words, text);
             }});
  table.add({"edit open", "E", "Opens an edit or log: changes made elsewhere show at once.", 1, 1,
             onEdit([](Station& station, const Cookie& cookie, const Arguments&) {
               return answer(station.edits().open(cookie));
             }),
             Command::Place::eHostThread,
             [](Station& station, const Arguments& words, const JsonValue&) {
               return withMissing(station, words, "It is open.");
             }});
  table.add({"edit close", "E", "Closes an edit or log that has no unsaved changes of yours.", 1, 1,
             onEdit([](Station& station, const Cookie& cookie, const Arguments&) {
               return answer(station.edits().close(cookie));
             }),
             Command::Place::eHostThread, said("It is closed.")});
  table.add({"edit may", "E", "Shows whether you may modify an edit or log, and its owner.", 1, 1,
             onEdit(may)});
}

void addChanging(CommandTable& table) {
  table.add(
      {"edit trim", "E CLIP START END",
       "Makes a clip (by name, or by path such as 0/2) show its material from START to END, "
       "each as timecode (1:12), frames of the clip (36), seconds (1.5s) or a step from where "
       "it is now (+12f); announced before it is saved.",
       4, 4, onEdit([](Station&, const Cookie& cookie, const Arguments& arguments) {
         return answer(EditActions::trim(cookie, arguments[1], arguments[2], arguments[3]));
       }),
       Command::Place::eHostThread, said("Trimmed; \"edit save\" keeps it.")});
  Command rename{"edit rename",
                 "E NAME",
                 "Gives an edit or log another name; announced before it is saved.",
                 2,
                 2,
                 onEdit([](Station&, const Cookie& cookie, const Arguments& arguments) {
                   return answer(EditActions::rename(cookie, arguments[1]));
                 }),
                 Command::Place::eHostThread,
                 said("Renamed; \"edit save\" keeps it.")};
  rename.doubt = doubtAboutRename;
  table.add(std::move(rename));
  table.add({"edit delete", "E...",
             "Moves edits and logs to the project's trash: all of them, or none if one may not be "
             "deleted.",
             1, Command::kAnyNumber, remove, Command::Place::eHostThread,
             said("Moved to the trash; \"undo\" takes it back.")});
  table.add({"edit give", "E USER [--force]",
             "Makes USER the owner of an edit or log, and announces it; unsaved changes are saved "
             "first. What has no owner may be given by anybody. A user in no list whose station is "
             "not here, a reserved word, and an edit of which unsaved changes were left when a "
             "station ended, only with --force.",
             2, 3, give, Command::Place::eHostThread,
             [](Station&, const Arguments& arguments, const JsonValue& result) {
               if (result.isString()) return result.asString();
               Arguments names = arguments;
               std::erase(names, kForce);
               return shownText(upperCased(names[1])) + " is its owner now.";
             }});
}

}  // namespace

void addEditCommands(CommandTable& table) {
  addMaking(table);
  addLooking(table);
  addChanging(table);
}

}  // namespace korvel
