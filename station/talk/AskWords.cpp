#include "station/talk/AskWords.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <vector>

#include "host/base/Text.h"
#include "station/base/Strings.h"
#include "station/talk/Conversation.h"

namespace korvel {

namespace {

/// The first word of the token of each kind of words.
constexpr std::array<std::string_view, 4> kTokens{"ask", "given", "kept", "withdrawn"};

std::vector<std::string_view> wordsOf(std::string_view text) {
  std::vector<std::string_view> words;
  for (std::size_t end; (end = text.find(' ')) != text.npos; text.remove_prefix(end + 1)) {
    words.push_back(text.substr(0, end));
  }
  words.push_back(text);
  return words;
}

bool isId(std::string_view text) {
  return text.size() == 16 && text.find_first_not_of(kHexDigits) == text.npos;
}

bool isKind(std::string_view word) {
  return word == AskWords::kEdit || word == AskWords::kLog || word == AskWords::kRoom ||
         word == AskWords::kProject;
}

/// Splits the words before a token into the name that stands in quotation marks there and the
/// user's own text, the last `bytes` of them; false where they are not so many.
bool readBefore(std::string_view before, std::size_t bytes, NotedAsk& ask) {
  if (bytes > before.size()) return false;
  ask.text = std::string(before.substr(before.size() - bytes));
  before.remove_suffix(bytes);
  const std::size_t first = before.find('"');
  const std::size_t last = before.rfind('"');
  if (first < last) ask.name = std::string(before.substr(first + 1, last - first - 1));
  return true;
}

}  // namespace

bool isSound(const NotedAsk& ask) {
  constexpr std::size_t kLongestObject = 1024;
  return isId(ask.id) && isKind(ask.kind) && ask.text.size() <= AskWords::kLongestText &&
         ask.name.size() <= AskWords::kLongestName && ask.object.size() <= kLongestObject &&
         ask.project.size() <= kLongestObject;
}

std::string newAskId(const std::string& last) {
  constexpr int kRandomBits = 20;
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::system_clock::now().time_since_epoch());
  std::random_device random;
  std::uint64_t id = static_cast<std::uint64_t>(milliseconds.count()) << kRandomBits |
                     random() >> (std::numeric_limits<unsigned>::digits - kRandomBits);
  std::uint64_t before = 0;
  std::from_chars(last.data(), last.data() + last.size(), before, 16);
  id = std::max(id, before + 1);
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(id));
  return text;
}

std::string shortName(const std::string& name) {
  std::wstring letters(wideText(name).view());
  while (utf8Text(LightweightString<wchar_t>(std::wstring_view(letters))).size() >
         AskWords::kLongestName) {
    letters.resize(letters.size() - std::max<std::size_t>(letters.size() / 16, 1));
  }
  return utf8Text(LightweightString<wchar_t>(std::wstring_view(letters)));
}

std::string roomOf(const NotedAsk& ask) { return bytesOfHex(ask.object).value_or(std::string()); }

std::string titleOf(const NotedAsk& ask) { return "the " + ask.kind + " " + inQuotes(ask.name); }

std::optional<AskWords> readAskWords(std::string_view words) {
  const std::size_t start = words.rfind(" [");
  if (start == words.npos || !words.ends_with(']')) return std::nullopt;
  const auto token = wordsOf(words.substr(start + 2, words.size() - start - 3));
  if (token.size() != 5 || !isId(token[1]) || !isKind(token[2]) || token[3].empty()) return {};
  const auto what = std::ranges::find(kTokens, token[0]);
  std::size_t bytes = 0;
  const char* const end = token[4].data() + token[4].size();
  const auto [stop, problem] = std::from_chars(token[4].data(), end, bytes);
  if (what == kTokens.end() || problem != std::errc() || stop != end) return std::nullopt;
  AskWords read;
  read.what = static_cast<AskWords::What>(what - kTokens.begin());
  read.words = wordsAsTyped(std::string(words.substr(0, start)));
  read.ask.id = token[1];
  read.ask.kind = token[2];
  read.ask.object = token[3];
  if (!readBefore(words.substr(0, start), bytes, read.ask) || !isSound(read.ask)) return {};
  return read;
}

std::string composeAskWords(const std::string& user, AskWords::What what, const NotedAsk& ask) {
  std::string words = shownText(user);
  if (what == AskWords::What::eAsk) words += " asks for " + titleOf(ask);
  if (what == AskWords::What::eGiven) words += " gives you " + titleOf(ask);
  if (what == AskWords::What::eKept) words += " keeps " + titleOf(ask) + " for now";
  if (what == AskWords::What::eWithdrawn) words += " no longer asks for " + titleOf(ask);
  if (!ask.text.empty()) words += ": " + ask.text;
  words += " [";
  words += kTokens[static_cast<std::size_t>(what)];
  for (const std::string& each :
       {ask.id, ask.kind, ask.object, std::to_string(ask.text.size()) + "]"}) {
    words += " " + each;
  }
  return words;
}

std::string wordsWithoutToken(const std::string& user, AskWords::What what, const NotedAsk& ask) {
  const std::string words = composeAskWords(user, what, ask);
  return words.substr(0, words.rfind(" ["));
}

JsonValue shownAsk(const NotedAsk& ask, long number, const std::string& from, bool isOwn) {
  return JsonValue::object(
      {{"number", number},
       {"own", isOwn},
       {"from", shownText(from)},
       {"to", shownText(ask.to)},
       {"kind", ask.kind},
       {"object", shownText(ask.kind == AskWords::kRoom ? roomOf(ask) : ask.object)},
       {"name", shownText(ask.name)},
       {"project", shownText(ask.project)},
       {"text", shownText(ask.text)},
       {"when", ask.when},
       {"time", utcText(ask.when)},
       {"id", ask.id}});
}

// What is said where something cannot be asked for.

Error nothingHeld(const std::string& object) {
  return {ErrorCode::eNotFound,
          "There is no edit, room or private project called " + inQuotes(object) +
              " that another could give you.",
          {}};
}

Error holderUnknown(const NotedAsk& held) {
  return {ErrorCode::eHeld,
          "Another station holds " + titleOf(held) +
              ", and whose it is cannot be read. Try again in a moment.",
          {}};
}

Error askedOfSeveral(const std::string& object, const std::vector<NotedAsk>& found) {
  std::string several;
  for (const NotedAsk& each : found) {
    several += (several.empty() ? "" : ", ") + titleOf(each) +
               (each.kind == AskWords::kRoom ? std::string() : " (" + each.object + ")");
  }
  return {ErrorCode::eUsage,
          inQuotes(object) + " may be " + several +
              ". Say which: \"edit:\", \"room:\" or \"project:\" before the name, or a cookie.",
          {}};
}

Result<void> checkAskText(const std::string& text) {
  if (text.size() <= AskWords::kLongestText) return {};
  return Error{ErrorCode::eUsage,
               "The text has " + std::to_string(text.size()) + " bytes; one beside an ask has " +
                   std::to_string(AskWords::kLongestText) +
                   " at most. Make it shorter, and write the rest as a message.",
               {}};
}

std::pair<std::string, std::string> kindAndName(const std::string& object) {
  for (const char* const kind : {AskWords::kEdit, AskWords::kRoom, AskWords::kProject}) {
    const std::string head = std::string(kind) + ":";
    if (object.starts_with(head)) return {kind, object.substr(head.size())};
  }
  return {};
}

}  // namespace korvel
