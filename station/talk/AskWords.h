#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "station/base/Json.h"
#include "station/base/Result.h"
#include "station/watch/StationNote.h"

namespace korvel {

/// An ask, or the answer to one, as it travels in words from user to user. People at a station
/// without asks read it like any other words; ours find all they need in the token at the end.
///
///     BEN asks for the edit "Opening titles": please [ask 1f2e3d4c5b6a7988 edit E0a1b2c3 6]
///     ANNA gives you the edit "Opening titles" [given 1f2e3d4c5b6a7988 edit E0a1b2c3 0]
///     ANNA keeps the edit "Opening titles" for now: at five [kept 1f2e3d4c5b6a7988 edit E0a1b2c3
///     7]
///
/// A room stands in the token by its name in hexadecimal, since it may hold any character. The
/// number is that of the bytes of the user's own words before it.
struct AskWords {
  enum class What { eAsk, eGiven, eKept, eWithdrawn };

  /// What can be asked for, as NotedAsk::kind.
  static constexpr const char* kEdit = "edit";
  static constexpr const char* kLog = "log";
  static constexpr const char* kRoom = "room";
  static constexpr const char* kProject = "project";

  /// The longest text of an ask or answer, and what is shown of a name, in bytes.
  static constexpr std::size_t kLongestText = 300;
  static constexpr std::size_t kLongestName = 200;

  /// Whether a kind is a log or an edit.
  static bool isDocument(std::string_view kind) { return kind == kEdit || kind == kLog; }

  What what = What::eAsk;
  NotedAsk ask;       ///< without `to` and `when`; an answer's `text` is the answer's
  std::string words;  ///< all of it, without the token
};

/// The ask or answer that words are; nothing for other words.
std::optional<AskWords> readAskWords(std::string_view words);

/// The words of an ask or answer of `user`, whole; carriedWords() are to be sent.
std::string composeAskWords(const std::string& user, AskWords::What what, const NotedAsk& ask);

/// The same as people at a station with asks read it.
std::string wordsWithoutToken(const std::string& user, AskWords::What what, const NotedAsk& ask);

/// "the edit "Opening titles"".
std::string titleOf(const NotedAsk& ask);

/// A new identifier: by it an ask and its answers know each other. Of one asker's the later is the
/// greater: 11 hexadecimal digits of milliseconds since 1970 and 5 that are random, or the next
/// after `last`, the asker's last one, where the clock was set back.
std::string newAskId(const std::string& last);

/// As much of a name as an ask carries.
std::string shortName(const std::string& name);

/// The room that is asked for; empty where its name was no hexadecimal.
std::string roomOf(const NotedAsk& ask);

/// An ask as lists, events and the conversation's file show it.
JsonValue shownAsk(const NotedAsk& ask, long number, const std::string& from, bool isOwn);

/// Whether an ask or answer is one of ours: others can write what they like into words and notes.
bool isSound(const NotedAsk& ask);

/// Why something cannot be asked for: nobody could give it; whose it is cannot be read; the name
/// may be any of these; or the text is too long, if it is.
Error nothingHeld(const std::string& object);
Error holderUnknown(const NotedAsk& held);
Error askedOfSeveral(const std::string& object, const std::vector<NotedAsk>& found);
Result<void> checkAskText(const std::string& text);

/// The kind and the name of "room:Sound"; empty for a text that names no kind.
std::pair<std::string, std::string> kindAndName(const std::string& object);

}  // namespace korvel
