#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/doc/SourceText.h"

// The window's sources keep what another language needs: each text goes through tr(), and each
// number has its singular in English.

using namespace korvel;

namespace {

namespace fs = std::filesystem;

const fs::path kWindowFolder = fs::path(KV_SOURCE_DIR) / "app/window";

/// A string literal of a source, and the calls around it, the outermost first: "setText",
/// "QStringLiteral". A brace is a call without a name.
struct Literal {
  std::string text;
  std::vector<std::string> calls;
};

/// Reads the string literals of a C++ text; those that stand side by side are one.
class LiteralReader {
 public:
  explicit LiteralReader(const std::string& source) : source_(source) {}

  std::vector<Literal> read() {
    while (at_ < source_.size()) take(source_[at_]);
    return std::move(found_);
  }

 private:
  void take(char letter) {
    if (skips("//", "\n") || skips("#include", "\n") || skips("R\"(", ")\"")) return;
    if (letter == '"') return takeLiteral();
    if (letter == '\'') return skipCharacter();
    ++at_;
    if (std::isspace(static_cast<unsigned char>(letter))) return;
    isBeside_ = false;
    if (std::isalnum(static_cast<unsigned char>(letter)) || letter == '_') {
      const bool isNext = at_ >= 2 && std::isspace(static_cast<unsigned char>(source_[at_ - 2]));
      word_ = (isNext ? std::string() : word_) + letter;
      return;
    }
    if (letter == '(') calls_.push_back(word_);
    if (letter == '{') calls_.emplace_back();
    if ((letter == ')' || letter == '}') && !calls_.empty()) calls_.pop_back();
    word_.clear();
  }

  bool skips(const std::string& begin, const std::string& end) {
    if (source_.compare(at_, begin.size(), begin) != 0) return false;
    const std::size_t found = source_.find(end, at_ + begin.size());
    at_ = found == source_.npos ? source_.size() : found + end.size();
    word_.clear();
    return true;
  }

  void skipCharacter() {
    const bool isNumber = !word_.empty() && std::isdigit(static_cast<unsigned char>(word_[0]));
    at_ = isNumber ? at_ + 1 : source_.find('\'', at_ + (source_[at_ + 1] == '\\' ? 3 : 2)) + 1;
  }

  void takeLiteral() {
    std::size_t end = at_ + 1;
    while (source_[end] != '"') end += source_[end] == '\\' ? 2 : 1;
    const std::string text = source_.substr(at_ + 1, end - at_ - 1);
    if (isBeside_) {
      found_.back().text += text;
    } else {
      found_.push_back({text, calls_});
    }
    isBeside_ = true;
    at_ = end + 1;
  }

  const std::string& source_;
  std::size_t at_ = 0;
  std::vector<std::string> calls_;
  std::string word_;
  bool isBeside_ = false;
  std::vector<Literal> found_;
};

std::vector<Literal> literalsOf(const std::string& source) { return LiteralReader(source).read(); }

bool isTranslated(const Literal& literal) {
  static const std::set<std::string> kTranslating{"tr", "translate", "QT_TR_NOOP",
                                                  "QT_TRANSLATE_NOOP"};
  return !literal.calls.empty() && kTranslating.count(literal.calls.back()) > 0;
}

/// What the literal is handed to, past what only makes a text of it.
std::string takerOf(const Literal& literal) {
  static const std::set<std::string> kMaking{"",        "QStringLiteral", "QLatin1String",
                                             "QString", "fromUtf8",       "QStringList"};
  const auto found = std::find_if(literal.calls.rbegin(), literal.calls.rend(),
                                  [](const std::string& call) { return !kMaking.count(call); });
  return found == literal.calls.rend() ? std::string() : *found;
}

/// Whether people would read it: it reads like a sentence, or is handed to what shows it.
bool isShown(const Literal& literal) {
  static const std::regex kSentence(R"(^[^A-Za-z]*[A-Z&][a-z]*[^"]* [a-z])");
  static const std::regex kWord("[A-Za-z]{2}");
  static const std::set<std::string> kShowing{"setText",
                                              "setToolTip",
                                              "setTabToolTip",
                                              "setStatusTip",
                                              "setWindowTitle",
                                              "setTitle",
                                              "setPlaceholderText",
                                              "setAccessibleName",
                                              "setAccessibleDescription",
                                              "setHeaderLabels",
                                              "setLabelText",
                                              "setHint",
                                              "addAction",
                                              "addMenu",
                                              "addToolBar",
                                              "addTab",
                                              "addRow",
                                              "QLabel",
                                              "QPushButton",
                                              "QToolButton",
                                              "QGroupBox",
                                              "QCheckBox",
                                              "QRadioButton",
                                              "tell",
                                              "offer",
                                              "usualAnswer"};
  if (std::regex_search(literal.text, kSentence)) return true;
  return kShowing.count(takerOf(literal)) > 0 && std::regex_search(literal.text, kWord);
}

/// The table of what English calls one thing, which its own class reads.
std::string singulars() {
  const std::string text = readText(kWindowFolder / "Texts.cpp");
  const std::size_t begin = text.find("kSingulars[] = {");
  return begin == text.npos ? std::string() : text.substr(begin, text.find("};", begin) - begin);
}

std::string withoutSingulars(std::string text) {
  const std::size_t begin = text.find("kSingulars[] = {");
  return begin == text.npos ? text : text.erase(begin, text.find("};", begin) - begin);
}

/// The texts of a source that would stay English.
std::vector<std::string> leftOut(const std::string& source) {
  std::vector<std::string> texts;
  for (const Literal& each : literalsOf(withoutSingulars(source))) {
    if (isShown(each) && !isTranslated(each)) texts.push_back(each.text);
  }
  return texts;
}

}  // namespace

TEST(WindowTexts, EveryTextGoesThroughTr) {
  std::size_t translated = 0;
  for (const fs::path& file : sourcesBelow(kWindowFolder)) {
    const std::string source = readText(file);
    for (const std::string& text : leftOut(source)) {
      ADD_FAILURE() << file.filename() << " shows a text without tr(): " << text;
    }
    const std::vector<Literal> all = literalsOf(source);
    translated += static_cast<std::size_t>(std::count_if(all.begin(), all.end(), isTranslated));
  }
  EXPECT_GE(translated, 400u) << "the texts were not found";
}

TEST(WindowTexts, ATextWithoutTrIsFoundInWhateverItIsWrapped) {
  const std::vector<std::pair<const char*, std::size_t>> sources{
      {R"(label->setText(QStringLiteral("Ready"));)", 1},
      {R"(label->setText(tr("Ready"));)", 0},
      {R"(label->setText(isIt ? tr("Ready") : QStringLiteral("busy"));)", 1},
      {R"(list->setHeaderLabels({tr("Name"), QStringLiteral("Owner")});)", 1},
      {R"(return QStringLiteral("Choose an edit "
                                "first.");)",
       1},
      {R"(return Pane::tr("Choose an edit "
                          "first.").arg(QStringLiteral("edit list"));)",
       0},
      {R"(new QLabel(QLatin1String("To"));)", 1},
      {R"(link_.run(QStringLiteral("edit open ") + cookie);)", 0},
      {R"(setObjectName(QStringLiteral("trashDialog"));  // "A word that is quoted")", 0},
      {R"(text.split(QLatin1Char('"'));)", 0},
      {R"(static const Row kRows[] = {{"Edit", QT_TR_NOOP("Save a copy"), "Ctrl+S"}};)", 0},
  };
  for (const auto& [source, count] : sources) EXPECT_EQ(leftOut(source).size(), count) << source;
}

TEST(WindowTexts, EveryTextWithANumberHasItsSingular) {
  static const std::regex kNumber("%L?n");
  const std::vector<Literal> known = literalsOf(singulars());
  const auto isKnown = [&known](const std::string& text) {
    return std::any_of(known.begin(), known.end(),
                       [&text](const Literal& each) { return each.text == text; });
  };
  int texts = 0;
  for (const fs::path& file : sourcesBelow(kWindowFolder)) {
    for (const Literal& each : literalsOf(withoutSingulars(readText(file)))) {
      if (!isTranslated(each) || !std::regex_search(each.text, kNumber)) continue;
      EXPECT_TRUE(isKnown(each.text))
          << file.filename() << ": kSingulars in Texts.cpp lacks \"" << each.text << '"';
      ++texts;
    }
  }
  EXPECT_GE(texts, 15);
}
