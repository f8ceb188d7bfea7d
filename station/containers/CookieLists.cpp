#include "station/containers/CookieLists.h"

#include <set>

#include "station/base/Strings.h"

namespace korvel {

namespace {

constexpr const char* kContents = "contents";

std::string textOf(const Cookie& cookie) { return utf8Text(cookie.asString()); }

std::set<std::string> textsOf(const std::vector<JsonValue>& cookies) {
  std::set<std::string> texts;
  for (const JsonValue& cookie : cookies) texts.insert(cookie.asString());
  return texts;
}

}  // namespace

Result<Cookie> CookieLists::create(const std::string& name) {
  return ContainerPart::create(name, JsonValue::array());
}

Result<std::size_t> CookieLists::add(const Cookie& container, const CookieVec& objects) {
  std::size_t added = 0;
  const Result<void> changed = change(container, [&](JsonValue& record) -> Result<bool> {
    JsonValue& contents = *record.find(kContents);
    std::set<std::string> held = textsOf(contents.elements());
    for (const Cookie& object : objects) {
      if (object == container) {
        return Error{ErrorCode::eUsage, "A " + kind().word + " cannot hold itself.", {}};
      }
      if (!held.insert(textOf(object)).second) continue;
      contents.append(textOf(object));
      ++added;
    }
    return added > 0;
  });
  if (!changed) return changed.error();
  return added;
}

Result<std::size_t> CookieLists::remove(const Cookie& container, const CookieVec& objects) {
  std::size_t removed = 0;
  const Result<void> changed = change(container, [&](JsonValue& record) -> Result<bool> {
    std::set<std::string> unwanted;
    for (const Cookie& object : objects) unwanted.insert(textOf(object));
    removed = std::erase_if(record.find(kContents)->elements(), [&](const JsonValue& held) {
      return unwanted.contains(held.asString());
    });
    return removed > 0;
  });
  if (!changed) return changed.error();
  return removed;
}

CookieVec CookieLists::contents(const Cookie& container) const {
  CookieVec cookies;
  const Container* const found = find(container);
  if (!found) return cookies;
  for (const JsonValue& cookie : found->record[kContents].elements()) {
    cookies.emplace_back(cookie.asString().c_str(), false);
  }
  return cookies;
}

std::string CookieLists::contentProblem(const JsonValue& content) const {
  if (!content.isArray()) return "its \"contents\" are no list";
  for (const JsonValue& cookie : content.elements()) {
    if (Cookie(cookie.asString().c_str(), false).isNull()) {
      return "its \"contents\" hold something that is no cookie";
    }
  }
  return {};
}

}  // namespace korvel
