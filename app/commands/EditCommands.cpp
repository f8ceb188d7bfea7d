#include "app/commands/EditCommands.h"

#include "host/base/Log.h"
#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/edit/Edits.h"
#include "station/project/Projects.h"

namespace korvel {

namespace {

constexpr const char* kForce = "--force";

Result<Cookie> resolved(const std::string& nameOrCookie) {
  return Projects::instance().resolve(nameOrCookie, Edits::kKinds);
}

Result<JsonValue> answer(const Result<void>& done) {
  if (!done) return done.error();
  return JsonValue();
}

Result<JsonValue> answer(const Result<Cookie>& made) {
  if (!made) return made.error();
  return JsonValue(made->asString().str());
}

/// A command on the edit that its first word names.
template <typename Action>
std::function<Result<JsonValue>(const Arguments&)> onEdit(Action action) {
  return [action](const Arguments& arguments) -> Result<JsonValue> {
    const auto cookie = resolved(arguments[0]);
    if (!cookie) return cookie.error();
    return action(*cookie, arguments);
  };
}

/// Names may stand for cookies, as long as they are one object's.
Result<JsonValue> answerNamed(const Result<Cookie>& made) {
  if (!made) return made.error();
  std::vector<NamedObject> namesakes;
  const std::string name = Edits::instance()->nameOf(*made);
  Edits::instance()->findByName(name, namesakes);
  std::string cookies;
  for (const NamedObject& each : namesakes) {
    if (!(each.cookie == *made)) cookies += " " + each.cookie.asString().str();
  }
  if (!cookies.empty()) {
    LogBoth(
        "There was an edit or log called \"%s\" already:%s. The name alone no longer says which "
        "one is meant; name either by its cookie, or by the beginning of it.\n",
        shownText(name), cookies);
  }
  return answer(made);
}

Result<JsonValue> createEdit(const Arguments& arguments) {
  return answerNamed(EditActions::create(arguments[0], CookieTypeEdit));
}

Result<JsonValue> createLog(const Arguments& arguments) {
  return answerNamed(EditActions::create(arguments[0], CookieTypeShot));
}

Result<JsonValue> import(const Arguments& arguments) {
  return answerNamed(EditActions::import(arguments[0]));
}

Result<JsonValue> exportTo(const Cookie& cookie, const Arguments& arguments) {
  using EditActions::Replacing;
  const bool isForced = arguments.size() > 2;
  if (isForced && arguments[2] != kForce) {
    return Error{ErrorCode::eUsage, "Usage: edit export E FILE [--force]", {}};
  }
  return answer(EditActions::exportTo(cookie, arguments[1],
                                      isForced ? Replacing::eAccept : Replacing::eRefuse));
}

/// The file has the name, so the user may not know it.
std::string cookieAndName(const Arguments&, const JsonValue& made) {
  const Cookie cookie(made.asString().c_str(), false);
  return made.asString() + "  " + shownText(Edits::instance()->nameOf(cookie));
}

Result<JsonValue> list(const Arguments&) {
  if (auto open = Projects::instance().requireOpen(); !open) return open.error();
  return Edits::instance()->list();
}

Result<JsonValue> remove(const Arguments& arguments) {
  std::vector<Cookie> cookies;
  for (const std::string& argument : arguments) {
    const auto cookie = resolved(argument);
    if (!cookie) return cookie.error();
    cookies.push_back(*cookie);
  }
  return answer(EditActions::remove(cookies));
}

Result<JsonValue> give(const Arguments& words) {
  Arguments names = words;
  const bool isForced = std::erase(names, "--force") > 0;
  if (names.size() != 2) {
    return Error{ErrorCode::eUsage, "edit give takes E USER [--force].", {}};
  }
  const auto cookie = resolved(names[0]);
  if (!cookie) return cookie.error();
  using EditActions::Recipient;
  return answer(
      EditActions::give(*cookie, names[1], isForced ? Recipient::eAnybody : Recipient::eKnownUser));
}

Result<JsonValue> may(const Cookie& cookie, const Arguments&) {
  return JsonValue::object({{"cookie", cookie.asString().str()},
                            {"allowed", EditActions::isAllowed(cookie)},
                            {"owner", shownText(Edits::instance()->ownerOf(cookie))}});
}

void addMaking(CommandTable& table) {
  table.add({"edit create", "NAME", "Makes an empty edit of yours and shows its cookie.", 1, 1,
             createEdit});
  table.add(
      {"log create", "NAME", "Makes an empty log (shot) and shows its cookie.", 1, 1, createLog});
  table.add({"edit import", "FILE",
             "Takes an OpenTimelineIO file (.otio) into the project as an edit of yours.", 1, 1,
             import, Command::Place::eHostThread, cookieAndName});
  table.add({"edit export",
             "E FILE [--force]",
             "Writes an edit or log, unsaved changes included, as OpenTimelineIO. A file that is "
             "there is replaced with --force alone.",
             2,
             3,
             onEdit(exportTo),
             Command::Place::eHostThread,
             {},
             {{ErrorCode::eExists, "replace", kForce}}});
}

void addLooking(CommandTable& table) {
  table.add({"edit list", "", "Shows the project's edits and logs.", 0, 0, list});
  table.add({"edit show", "E", "Shows an edit or log with its clips; times are in seconds.", 1, 1,
             onEdit([](const Cookie& cookie, const Arguments&) {
               return Edits::instance()->show(cookie);
             })});
  table.add({"edit open", "E", "Opens an edit or log: changes made elsewhere show at once.", 1, 1,
             onEdit([](const Cookie& cookie, const Arguments&) {
               return answer(Edits::instance()->open(cookie));
             })});
  table.add({"edit close", "E", "Closes an edit or log that has no unsaved changes of yours.", 1, 1,
             onEdit([](const Cookie& cookie, const Arguments&) {
               return answer(Edits::instance()->close(cookie));
             })});
  table.add({"edit may", "E", "Shows whether you may modify an edit or log, and its owner.", 1, 1,
             onEdit(may)});
}

void addChanging(CommandTable& table) {
  table.add({"edit trim", "E CLIP START END",
             "Makes a clip (by name, or by path such as 0/2) show its material from START to END, "
             "each in frames of the clip (36) or seconds (1.5s); announced before it is saved.",
             4, 4, onEdit([](const Cookie& cookie, const Arguments& arguments) {
               return answer(EditActions::trim(cookie, arguments[1], arguments[2], arguments[3]));
             })});
  table.add({"edit rename", "E NAME",
             "Gives an edit or log another name; announced before it is saved.", 2, 2,
             onEdit([](const Cookie& cookie, const Arguments& arguments) {
               return answer(EditActions::rename(cookie, arguments[1]));
             })});
  table.add({"edit delete", "E...", "Deletes edits and logs: all of them, or none if one may not.",
             1, Command::kAnyNumber, remove});
  table.add({"edit give", "E USER [--force]",
             "Makes USER the owner of an edit or log, and announces it; unsaved changes are saved "
             "first. A user in no list, and a reserved word, only with --force.",
             2, 3, give});
}

}  // namespace

void addEditCommands(CommandTable& table) {
  addMaking(table);
  addLooking(table);
  addChanging(table);
}

}  // namespace korvel
