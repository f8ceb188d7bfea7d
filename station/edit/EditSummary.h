#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "station/base/Result.h"

namespace korvel {

/// What lists show of an edit or log.
struct EditSummary {
  std::string name;
  std::string owner;        ///< the stored owner as it stands
  std::string problem;      ///< why its file cannot be read; empty when it can
  std::size_t content = 0;  ///< contentHash of the bytes that this was read from
  std::string savedBy{};    ///< who saved it last; empty where that is not known
  std::string savedAt{};    ///< when, as a SaveStamp has it; empty where that is not known

  bool operator==(const EditSummary&) const = default;
};

/// Tells contents of one file apart.
std::size_t contentHash(std::string_view bytes);

/// The summary as a cache of what was read holds it, and back.
std::string keptText(const EditSummary& summary);
std::optional<EditSummary> keptSummary(std::string_view keptText);

/// Reads name and owner out of an edit's file without building its document, since entering a
/// project does so for thousands of files. Checks the schema and that the text is whole, but not
/// all of its grammar: opening the edit does. Failure: eBadContent, and what is wrong.
Result<EditSummary> readEditSummary(const std::string& bytes);

}  // namespace korvel
