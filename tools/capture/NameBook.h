#pragma once

#include <memory>
#include <string>

#include "station/wire/MessageFields.h"

namespace korvel {

/// The names of the projects and objects of a projects directory, for people who watch messages, in
/// which stand cookies alone. Looks them up on a thread of its own, which a share that hangs keeps
/// without keeping anybody else. One thread.
class NameBook {
 public:
  explicit NameBook(const std::string& directory);
  NameBook(const NameBook&) = delete;
  NameBook& operator=(const NameBook&) = delete;
  ~NameBook();

  /// The same message with names before its cookies: "Feature (P0001)". A cookie whose name is not
  /// there, or is not found within a third of a second, stays alone.
  [[nodiscard]] MessageFields withNames(MessageFields fields);

 private:
  struct Shared;

  std::string nameOf(const std::string& path);

  std::string directory_;
  std::shared_ptr<Shared> shared_;
};

}  // namespace korvel
