#include "station/edit/EditSummary.h"

#include <initializer_list>
#include <vector>

#include "station/base/Json.h"

namespace {

Error broken(const std::string& why) {
  return {ErrorCode::eBadContent, "it is no OpenTimelineIO timeline: " + why, {}};
}

/// Walks over a JSON text and picks up the strings that a summary needs.
class SummaryScanner {
 public:
  explicit SummaryScanner(std::string_view text) : text_(text) {}

  /// True when the text was walked to its end and every bracket was closed.
  bool scan() {
    for (at_ = text_.find_first_not_of(" \t\r\n\xEF\xBB\xBF"); at_ < text_.size(); ++at_) {
      if (!step(text_[at_])) return false;
      begun_ = true;
    }
    return begun_ && levels_.empty();
  }

  std::string schema, name, adoptedName, owner;

 private:
  struct Level {
    bool isObject;
    std::string_view key;
    bool expectsKey;
  };

  bool step(char letter) {
    if (begun_ && levels_.empty()) return isBlank(letter);
    switch (letter) {
      case '{':
      case '[':
        levels_.push_back({letter == '{', {}, letter == '{'});
        return true;
      case '}':
      case ']':
        return close(letter == '}');
      case ',':
        if (!levels_.empty()) levels_.back().expectsKey = levels_.back().isObject;
        return true;
      case '"':
        return takeString();
      default:
        return begun_;
    }
  }

  static bool isBlank(char letter) {
    return letter == ' ' || letter == '\t' || letter == '\r' || letter == '\n';
  }

  bool close(bool isObject) {
    if (levels_.empty() || levels_.back().isObject != isObject) return false;
    levels_.pop_back();
    return true;
  }

  bool takeString() {
    const std::size_t begin = at_ + 1;
    at_ = begin;
    while (true) {
      at_ = text_.find_first_of("\"\\", at_);
      if (at_ == std::string_view::npos) return false;
      if (text_[at_] == '"') break;
      at_ += 2;
    }
    const std::string_view raw = text_.substr(begin, at_ - begin);
    if (levels_.empty()) return false;
    Level& level = levels_.back();
    if (level.expectsKey) {
      level.key = raw;
      level.expectsKey = false;
    } else {
      takeValue(raw);
    }
    return true;
  }

  void takeValue(std::string_view raw) {
    if (isAt({"OTIO_SCHEMA"})) schema = plain(raw);
    if (isAt({"name"})) name = plain(raw);
    if (isAt({"metadata", "korvel", "name"})) adoptedName = plain(raw);
    if (isAt({"metadata", "korvel", "config", "OWNER"})) owner = plain(raw);
  }

  [[nodiscard]] bool isAt(std::initializer_list<std::string_view> path) const {
    if (levels_.size() != path.size()) return false;
    auto level = levels_.begin();
    for (const std::string_view key : path) {
      if (!level->isObject || level->key != key) return false;
      ++level;
    }
    return true;
  }

  static std::string plain(std::string_view raw) {
    if (raw.find('\\') == std::string_view::npos) return std::string(raw);
    const auto value = parseJson("\"" + std::string(raw) + "\"");
    return value ? value->asString() : std::string();
  }

  std::string_view text_;
  std::size_t at_ = 0;
  bool begun_ = false;
  std::vector<Level> levels_;
};

}  // namespace

Result<EditSummary> readEditSummary(std::string_view bytes) {
  if (bytes.empty()) return broken("it is empty.");
  SummaryScanner scanner(bytes);
  if (!scanner.scan()) return broken("it is cut off or no JSON.");
  if (scanner.schema.rfind("Timeline.", 0) != 0) {
    return broken(scanner.schema.empty() ? "it names no schema."
                                         : "its schema is " + scanner.schema + ".");
  }
  return EditSummary{scanner.name.empty() ? scanner.adoptedName : scanner.name, scanner.owner, {}};
}
