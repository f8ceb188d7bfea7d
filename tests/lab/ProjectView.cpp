#include "tests/lab/ProjectView.h"

#include <filesystem>
#include <string_view>

namespace korvel {

namespace {

constexpr std::string_view kOwnAlone[] = {"open", "dirty", "here", "clips"};

std::string sharedText(JsonValue object) {
  for (const std::string_view key : kOwnAlone) object.remove(key);
  return writeJson(object);
}

void tellMissing(std::string& told, const std::map<std::string, std::string>& here,
                 const std::map<std::string, std::string>& there, const char* mark) {
  for (const auto& [key, value] : here) {
    const auto found = there.find(key);
    if (found == there.end() || found->second != value) told += mark + key + " " + value + "\n";
  }
}

}  // namespace

ProjectView::ProjectView(const JsonValue& state) : project_(state["project"]["cookie"].asString()) {
  for (const auto& [kind, objects] : state.members()) {
    for (const JsonValue& object : objects.elements()) {
      const std::string& cookie = object["cookie"].asString();
      objects_[kind + " " + (cookie.empty() ? object["name"].asString() : cookie)] =
          sharedText(object);
      if (!cookie.empty() && kind != "media") filed_.insert(cookie);
      if (object["open"].asBool()) clips_[cookie] = writeJson(object["clips"]);
    }
  }
}

std::string ProjectView::differenceFrom(const ProjectView& other) const {
  std::string told;
  tellMissing(told, objects_, other.objects_, "- ");
  tellMissing(told, other.objects_, objects_, "+ ");
  for (const auto& [cookie, clips] : clips_) {
    const auto found = other.clips_.find(cookie);
    if (found == other.clips_.end() || found->second == clips) continue;
    told += "- clips of " + cookie + " " + clips + "\n+ clips of " + cookie + " " + found->second +
            "\n";
  }
  return told;
}

std::set<std::string> cookiesAmong(const std::set<std::string>& files) {
  std::set<std::string> cookies;
  for (const std::filesystem::path file : files) {
    const std::string name = file.stem();
    const bool isObject = file.extension() == ".otio" || file.extension() == ".json";
    const bool isKind = std::string_view("ESGMBF").find(name[0]) != std::string_view::npos;
    if (isObject && isKind && name.size() > 4) cookies.insert(name);
  }
  return cookies;
}

}  // namespace korvel
