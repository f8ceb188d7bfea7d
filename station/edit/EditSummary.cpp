#include "station/edit/EditSummary.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <new>
#include <vector>

#include "station/base/Json.h"

namespace korvel {

namespace {

Error broken(const std::string& why) {
  return {ErrorCode::eBadContent, "it is no OpenTimelineIO timeline: " + why, {}};
}

/// Walks over a JSON text and picks up the strings that a summary needs. Everything else between
/// brackets, commas and strings (blanks, colons, numbers, words) is skipped by strcspn(), which the
/// C library makes fast even in builds without optimisation.
class SummaryScanner {
 public:
  explicit SummaryScanner(const std::string& text) : text_(text) {}

  /// True when the text was walked to its end and every bracket was closed.
  bool scan() {
    at_ = text_.find_first_not_of(" \t\r\n\xEF\xBB\xBF");
    if (at_ == std::string::npos || text_[at_] != '{') return false;
    do {
      if (!step(text_[at_])) return false;
      ++at_;
      at_ += levels_.empty() ? 0 : std::strcspn(text_.c_str() + at_, "\"{}[],");
    } while (!levels_.empty() && at_ < text_.size());
    return levels_.empty() && text_.find_first_not_of(" \t\r\n", at_) == std::string::npos;
  }

  std::string schema, name, adoptedName, owner, savedBy, savedAt;

 private:
  struct Level {
    bool isObject;
    std::string_view key;
    bool expectsKey;
  };

  bool step(char letter) {
    switch (letter) {
      case '{':
      case '[':
        // What opening would refuse is refused here, so that lists and opening agree.
        if (levels_.size() == kDeepestNesting) return false;
        levels_.push_back({letter == '{', {}, letter == '{'});
        return true;
      case '}':
      case ']':
        return close(letter == '}');
      case ',':
        levels_.back().expectsKey = levels_.back().isObject;
        return true;
      default:
        return letter == '"' && takeString();
    }
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
      at_ += std::strcspn(text_.c_str() + at_, "\"\\");
      if (at_ >= text_.size() || text_[at_] == '\0') return false;
      if (text_[at_] == '"') break;
      at_ = std::min(at_ + 2, text_.size());
    }
    const std::string_view raw(text_.data() + begin, at_ - begin);
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
    if (levels_.size() > kDeepest) return;
    if (isAt({"OTIO_SCHEMA"})) schema = plain(raw);
    if (isAt({"name"})) name = plain(raw);
    if (isAt({"metadata", "korvel", "name"})) adoptedName = plain(raw);
    if (isAt({"metadata", "korvel", "config", "OWNER"})) owner = plain(raw);
    if (isAt({"metadata", "korvel", "saved", "by"})) savedBy = plain(raw);
    if (isAt({"metadata", "korvel", "saved", "at"})) savedAt = plain(raw);
  }

  [[nodiscard]] bool isAt(std::initializer_list<std::string_view> path) const {
    if (levels_.size() != path.size()) return false;
    auto level = levels_.begin();
    for (const std::string_view key : path) {
      if (!level->isObject || plain(level->key) != key) return false;
      ++level;
    }
    return true;
  }

  static std::string plain(std::string_view raw) {
    if (raw.find('\\') == std::string_view::npos) return std::string(raw);
    const auto value = parseJson("\"" + std::string(raw) + "\"");
    return value ? value->asString() : std::string();
  }

  static constexpr std::size_t kDeepest = 4;           ///< where the owner stands
  static constexpr std::size_t kDeepestNesting = 512;  ///< what opening reads

  const std::string& text_;
  std::size_t at_ = 0;
  std::vector<Level> levels_;
};

}  // namespace

std::size_t contentHash(std::string_view bytes) { return std::hash<std::string_view>()(bytes); }

std::string keptText(const EditSummary& summary) {
  char head[80];
  std::snprintf(head, sizeof head, "%zx %zx %zx %zx ", summary.content, summary.name.size(),
                summary.owner.size(), summary.savedBy.size());
  return head + summary.name + summary.owner + summary.savedBy + summary.savedAt;
}

std::optional<EditSummary> keptSummary(std::string_view keptText) {
  EditSummary summary;
  std::size_t name = 0, owner = 0, savedBy = 0;
  const char* const end = keptText.data() + keptText.size();
  const char* at = keptText.data();
  for (std::size_t* number : {&summary.content, &name, &owner, &savedBy}) {
    const auto read = std::from_chars(at, end, *number, 16);
    if (read.ec != std::errc() || read.ptr == end) return {};
    at = read.ptr + 1;
  }
  std::string_view texts(at, static_cast<std::size_t>(end - at));
  const auto next = [&texts](std::size_t size) {
    const std::string_view text = texts.substr(0, size);
    texts.remove_prefix(text.size());
    return text;
  };
  summary.name = next(name);
  summary.owner = next(owner);
  summary.savedBy = next(savedBy);
  summary.savedAt = texts;
  if (summary.name.size() < name || summary.owner.size() < owner ||
      summary.savedBy.size() < savedBy) {
    return {};
  }
  return summary;
}

Result<EditSummary> readEditSummary(const std::string& bytes) try {
  if (bytes.empty()) return broken("it is empty.");
  SummaryScanner scanner(bytes);
  if (!scanner.scan()) return broken("it is cut off or no JSON.");
  if (scanner.schema.rfind("Timeline.", 0) != 0) {
    return broken(scanner.schema.empty() ? "it names no schema."
                                         : "its schema is " + scanner.schema + ".");
  }
  return EditSummary{scanner.name.empty() ? scanner.adoptedName : scanner.name,
                     scanner.owner,
                     {},
                     contentHash(bytes),
                     scanner.savedBy,
                     scanner.savedAt};
} catch (const std::bad_alloc&) {
  return Error{ErrorCode::eSystem, "there is not enough memory to read it.", {}};
}

}  // namespace korvel
