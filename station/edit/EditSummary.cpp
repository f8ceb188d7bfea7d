#include "station/edit/EditSummary.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <new>
#include <unordered_map>
#include <vector>

#include "station/base/Json.h"
#include "station/edit/OtioDocument.h"

namespace korvel {

namespace {

// Where a media reference has its file, and where the files of a sequence have their common name.
constexpr std::string_view kUrl = "target_url";
constexpr std::string_view kSequence = "name_prefix";

Error broken(const std::string& why) {
  return {ErrorCode::eBadContent, "it is no OpenTimelineIO timeline: " + why, {}};
}

constexpr double kLongestTime = 1e7;  // seconds; a length beyond it is a mistake in the file

/// How long a piece of material is, in seconds, and its frames a second.
struct Piece {
  double length = 0;
  double rate = 0;
};

Piece pieceOf(double value, double rate) {
  if (!(rate > 0) || !std::isfinite(rate)) return {};
  const double length = value / rate;
  return {std::isfinite(length) ? std::clamp(length, 0.0, kLongestTime) : 0, rate};
}

/// What a clip refers to.
struct MediaNote {
  std::string_view key;  ///< by which a clip that has several chooses it
  bool isOnly = false;
  std::string_view url;
  std::string_view name;
  std::optional<Piece> available;
};

/// Adds up the items of a timeline. Each is begun, described and ended, its children in between.
/// The texts that it is told must outlive it.
class ExtentMeter {
 public:
  struct Item {
    std::string_view schema;
    std::string_view activeMedia;
    std::optional<Piece> ownRange;
    std::size_t firstMedia = 0;
    double sum = 0;      ///< of the children's lengths
    double longest = 0;  ///< of them
  };

  void begin() {
    items_.emplace_back();
    items_.back().firstMedia = media_.size();
  }
  [[nodiscard]] Item& item() { return items_.back(); }
  void add(const MediaNote& media) { media_.push_back(media); }
  void end();

  /// What all items come to. `plain` makes the text itself of a text of the file.
  [[nodiscard]] EditExtent extent(std::string (*plain)(std::string_view)) const;

 private:
  struct Use {
    double seconds = 0;
    std::size_t order = 0;
    bool isUrl = false;
  };

  [[nodiscard]] const MediaNote* mediaOf(const Item& item) const;
  [[nodiscard]] Piece pieceOfItem(const Item& item, const MediaNote* media) const;
  void use(const MediaNote& media, double seconds);

  std::vector<Item> items_;  ///< those that are not ended, the stack of the tracks first
  std::vector<MediaNote> media_;
  std::unordered_map<std::string_view, Use> uses_;
  double length_ = 0;
  double rate_ = 0;
};

const MediaNote* ExtentMeter::mediaOf(const Item& item) const {
  for (std::size_t at = item.firstMedia; at < media_.size(); ++at) {
    if (media_[at].isOnly || media_[at].key == item.activeMedia) return &media_[at];
  }
  return nullptr;
}

Piece ExtentMeter::pieceOfItem(const Item& item, const MediaNote* media) const {
  // A transition takes no time of its own: it overlaps the ends of its neighbours.
  if (item.schema.starts_with("Transition.")) return {};
  const bool isTrack = item.schema.starts_with("Track.");
  // The timeline shows its stack and each track whole, whatever their own ranges are.
  const bool isWhole = items_.size() == 1 || (items_.size() == 2 && isTrack);
  if (!isWhole && item.ownRange) return *item.ownRange;
  if (!isWhole && media && media->available) return *media->available;
  return {isTrack ? item.sum : item.longest, 0};
}

void ExtentMeter::use(const MediaNote& media, double seconds) {
  const bool isUrl = !media.url.empty();
  const std::string_view source = isUrl ? media.url : media.name;
  const bool isFull = uses_.size() == EditExtent::kMostSources;
  if (source.empty() || (isFull && !uses_.contains(source))) return;
  const auto known = uses_.try_emplace(source, Use{0, uses_.size(), isUrl}).first;
  known->second.seconds += seconds;
}

void ExtentMeter::end() {
  const Item& item = items_.back();
  const MediaNote* const media = mediaOf(item);
  const Piece piece = pieceOfItem(item, media);
  if (rate_ == 0) rate_ = piece.rate;
  if (media) use(*media, piece.length);
  media_.resize(item.firstMedia);
  items_.pop_back();
  if (items_.empty()) {
    length_ = piece.length;
  } else {
    items_.back().sum += piece.length;
    items_.back().longest = std::max(items_.back().longest, piece.length);
  }
}

/// "Pier 4.mov" of "file:///reels/Pier%204.mov"; of a path its last part as it stands.
std::string mediaFileName(std::string_view url) {
  const bool isEscaped = url.find("://") != std::string_view::npos;
  while (url.ends_with('/')) url.remove_suffix(1);
  url.remove_prefix(std::min(url.find_last_of("/\\") + 1, url.size()));
  std::string name;
  for (std::size_t at = 0; at < url.size(); ++at) {
    unsigned char byte = 0;
    const char* const digits = url.data() + at + 1;
    const bool isByte = isEscaped && url[at] == '%' && url.size() - at > 2 &&
                        std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2;
    name += isByte ? static_cast<char>(byte) : url[at];
    if (isByte) at += 2;
  }
  return name;
}

EditExtent ExtentMeter::extent(std::string (*plain)(std::string_view)) const {
  EditExtent extent{length_, rate_, {}, uses_.size()};
  const auto main = std::ranges::max_element(uses_, [](const auto& a, const auto& b) {
    // Of equals the first.
    return a.second.seconds != b.second.seconds ? a.second.seconds < b.second.seconds
                                                : a.second.order > b.second.order;
  });
  if (main == uses_.end()) return extent;
  extent.source = plain(main->first);
  const std::string name = main->second.isUrl ? mediaFileName(extent.source) : std::string();
  if (!name.empty()) extent.source = name;
  return extent;
}

/// Walks over a JSON text and picks up what a summary needs. Everything else between brackets,
/// commas and strings (blanks, colons, numbers, words) is skipped by strcspn(), which the C library
/// makes fast even in builds without optimisation.
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

  [[nodiscard]] EditExtent extent() const { return meter_.extent(plain); }

  std::string schema, name, adoptedName, owner, savedBy, savedAt;

 private:
  /// What stands between two brackets.
  enum class Part : char { eOther, eTimeline, eItem, eChildren, eRange, eTime, eMedia, eMediaMap };

  struct Level {
    std::string_view key;
    Part part;
    bool isObject;
    bool expectsKey;
  };

  bool step(char letter) {
    switch (letter) {
      case '{':
      case '[':
        // What opening would refuse is refused here, so that lists and opening agree.
        if (levels_.size() == kDeepestNesting) return false;
        open(letter == '{');
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

  void open(bool isObject) {
    const Part part = levels_.empty() ? Part::eTimeline : partBelow(levels_.back(), isObject);
    levels_.push_back({{}, part, isObject, isObject});
    if (part == Part::eItem) meter_.begin();
    if (part == Part::eRange) piece_ = {};
    if (part == Part::eTime) rate_ = value_ = 0;
    if (part == Part::eMedia) media_ = {};
  }

  static Part partBelow(const Level& level, bool isObject) {
    const std::string_view key = level.key;
    switch (level.part) {
      case Part::eTimeline:
        return isObject && key == "tracks" ? Part::eItem : Part::eOther;
      case Part::eItem:
        if (!isObject) return key == "children" ? Part::eChildren : Part::eOther;
        if (key == "source_range") return Part::eRange;
        if (key == "media_reference") return Part::eMedia;
        return key == "media_references" ? Part::eMediaMap : Part::eOther;
      case Part::eChildren:
        return isObject ? Part::eItem : Part::eOther;
      case Part::eRange:
        return isObject && key == "duration" ? Part::eTime : Part::eOther;
      case Part::eMedia:
        return isObject && key == "available_range" ? Part::eRange : Part::eOther;
      case Part::eMediaMap:
        return isObject ? Part::eMedia : Part::eOther;
      default:
        return Part::eOther;
    }
  }

  bool close(bool isObject) {
    if (levels_.empty() || levels_.back().isObject != isObject) return false;
    const Part part = levels_.back().part;
    levels_.pop_back();
    if (part == Part::eItem) meter_.end();
    if (part == Part::eTime) piece_ = pieceOf(value_, rate_);
    if (part == Part::eRange) closeRange();
    if (part == Part::eMedia) closeMedia();
    return true;
  }

  void closeRange() {
    const bool isOfMedia = levels_.back().part == Part::eMedia;
    (isOfMedia ? media_.available : meter_.item().ownRange) = piece_;
  }

  void closeMedia() {
    media_.isOnly = levels_.back().part == Part::eItem;
    media_.key = levels_.back().key;
    meter_.add(media_);
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
      if (level.part == Part::eTime) takeNumber(raw);
    } else {
      takeValue(raw);
    }
    return true;
  }

  void takeNumber(std::string_view key) {
    if (key != "rate" && key != "value") return;
    const std::size_t begin = text_.find_first_not_of(" \t\r\n:", at_ + 1);
    double number = 0;
    if (begin < text_.size()) {
      std::from_chars(text_.data() + begin, text_.data() + text_.size(), number);
    }
    (key == "rate" ? rate_ : value_) = number;
  }

  void takeValue(std::string_view raw) {
    const Level& level = levels_.back();
    if (level.part == Part::eItem) {
      if (level.key == "OTIO_SCHEMA") meter_.item().schema = raw;
      if (level.key == "active_media_reference_key") meter_.item().activeMedia = raw;
    } else if (level.part == Part::eMedia) {
      if (level.key == kUrl) media_.url = raw;
      if (level.key == kSequence && media_.url.empty()) media_.url = raw;
      if (level.key == "name") media_.name = raw;
    }
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
  ExtentMeter meter_;
  MediaNote media_;  ///< the one that is being read, as are these:
  Piece piece_;
  double rate_ = 0;
  double value_ = 0;
};

std::string asItIs(std::string_view text) { return std::string(text); }

std::optional<Piece> pieceIn(const JsonValue& range) {
  if (!range.isObject()) return {};
  const JsonValue& duration = range["duration"];
  return pieceOf(duration["value"].asDouble(), duration["rate"].asDouble());
}

void measure(const JsonValue& json, ExtentMeter& meter) {
  meter.begin();
  meter.item().schema = json["OTIO_SCHEMA"].asString();
  meter.item().ownRange = pieceIn(json["source_range"]);
  if (const JsonValue& media = mediaOf(json); media.isObject()) {
    const std::string& url = media[kUrl].asString();
    meter.add({{},
               true,
               url.empty() ? media[kSequence].asString() : url,
               media["name"].asString(),
               pieceIn(media["available_range"])});
  }
  for (const JsonValue& child : json["children"].elements()) {
    if (child.isObject()) measure(child, meter);
  }
  meter.end();
}

}  // namespace

std::size_t contentHash(std::string_view bytes) { return std::hash<std::string_view>()(bytes); }

std::string keptText(const EditSummary& summary) {
  const EditExtent& extent = summary.extent;
  char head[160];
  std::snprintf(head, sizeof head, "%zx %zx %zx %zx %zx %zx %zx %zx ", summary.content,
                summary.name.size(), summary.owner.size(), summary.savedBy.size(),
                summary.savedAt.size(), extent.sources, std::bit_cast<std::size_t>(extent.length),
                std::bit_cast<std::size_t>(extent.rate));
  return head + summary.name + summary.owner + summary.savedBy + summary.savedAt + extent.source;
}

std::optional<EditSummary> keptSummary(std::string_view keptText) {
  std::optional<EditSummary> kept(std::in_place);
  EditSummary& summary = *kept;
  std::size_t name = 0, owner = 0, savedBy = 0, savedAt = 0, length = 0, rate = 0;
  const char* const end = keptText.data() + keptText.size();
  const char* at = keptText.data();
  for (std::size_t* number : {&summary.content, &name, &owner, &savedBy, &savedAt,
                              &summary.extent.sources, &length, &rate}) {
    const auto read = std::from_chars(at, end, *number, 16);
    if (read.ec != std::errc() || read.ptr == end) return {};
    at = read.ptr + 1;
  }
  std::string_view texts(at, static_cast<std::size_t>(end - at));
  bool isWhole = true;
  const auto next = [&texts, &isWhole](std::size_t size) {
    isWhole = isWhole && size <= texts.size();
    const std::string_view text = texts.substr(0, size);
    texts.remove_prefix(text.size());
    return text;
  };
  summary.name = next(name);
  summary.owner = next(owner);
  summary.savedBy = next(savedBy);
  summary.savedAt = next(savedAt);
  summary.extent.source = texts;
  summary.extent.length = std::bit_cast<double>(length);
  summary.extent.rate = std::bit_cast<double>(rate);
  const auto isTime = [](double time) { return std::isfinite(time) && time >= 0; };
  if (!isWhole || !isTime(summary.extent.length) || !isTime(summary.extent.rate)) return {};
  return kept;
}

EditExtent extentOf(const JsonValue& timeline) {
  ExtentMeter meter;
  if (const JsonValue& tracks = timeline["tracks"]; tracks.isObject()) measure(tracks, meter);
  return meter.extent(asItIs);
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
                     scanner.savedAt,
                     scanner.extent()};
} catch (const std::bad_alloc&) {
  return Error{ErrorCode::eSystem, "there is not enough memory to read it.", {}};
}

}  // namespace korvel
