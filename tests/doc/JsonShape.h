#pragma once

#include <string>
#include <vector>

namespace korvel {

/// The shape of a command's JSON as docs/kv-share-json.md gives it: a table of paths, each with the
/// kind of its value.
///
///     | `active[].user` | text, not always | whose marker it is |
class JsonShape {
 public:
  /// Reads the table of a section, whose heading this is ("users"). Empty where there is none.
  static JsonShape ofSection(const std::string& heading);

  [[nodiscard]] bool isEmpty() const { return rows_.empty(); }

  /// How the lines of an output differ from the shape, each a JSON value: paths that the page does
  /// not give, values of another kind, and paths that are always there and are not. Empty where
  /// nothing does.
  [[nodiscard]] std::string differences(const std::string& output) const;

 private:
  struct Row {
    std::string path;
    std::string kind;
    bool isAlways = true;
  };

  std::vector<Row> rows_;
};

}  // namespace korvel
