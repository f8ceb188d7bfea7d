#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "station/base/Result.h"

namespace korvel {

class JsonValue;

/// How long an edit is, and from which media it comes.
struct EditExtent {
  double length = 0;        ///< of its longest track, in seconds
  double rate = 0;          ///< frames a second of its first item; 0 where none tells it
  std::string source{};     ///< the media file that fills most of it; empty where none is named
  std::size_t sources = 0;  ///< how many media files it shows; beyond kMostSources not counted

  static constexpr std::size_t kMostSources = 1000;

  bool operator==(const EditExtent&) const = default;
};

/// What lists show of an edit or log.
struct EditSummary {
  std::string name;
  std::string owner;        ///< the stored owner as it stands
  std::string problem;      ///< why its file cannot be read; empty when it can
  std::size_t content = 0;  ///< contentHash of the bytes that this was read from
  std::string savedBy{};    ///< who saved it last; empty where that is not known
  std::string savedAt{};    ///< when, as a SaveStamp has it; empty where that is not known
  EditExtent extent{};      ///< Edits::extent() has that of an edit that is loaded

  bool operator==(const EditSummary&) const = default;
};

/// Tells contents of one file apart.
std::size_t contentHash(std::string_view bytes);

/// The summary as a cache of what was read holds it, and back.
std::string keptText(const EditSummary& summary);
std::optional<EditSummary> keptSummary(std::string_view keptText);

/// Reads the summary out of an edit's file without building its document, since entering a project
/// does so for thousands of files. Checks the schema and that the text is whole, but not all of its
/// grammar: opening the edit does. Failure: eBadContent, and what is wrong.
Result<EditSummary> readEditSummary(const std::string& bytes);

/// The extent of a document that was built, which is that of its file's summary.
EditExtent extentOf(const JsonValue& timeline);

}  // namespace korvel
