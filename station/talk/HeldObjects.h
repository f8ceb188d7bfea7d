#pragma once

#include <string>
#include <vector>

#include "station/base/Result.h"
#include "station/watch/StationNote.h"

namespace korvel {

class Edits;
class Presence;
class Projects;
class Rooms;

/// What others hold, for which they can be asked: an edit that is theirs, a room they are in, a
/// private project that they have open. Host thread.
class HeldObjects {
 public:
  struct Parts {
    Projects& projects;
    Edits& edits;
    Rooms& rooms;
    Presence& presence;
  };

  explicit HeldObjects(const Parts& parts) : parts_(parts) {}

  /// Who holds an object of this name or cookie, as an ask to him without an identifier.
  /// "room:Sound" is the room where an edit or project is called so, too; likewise "edit:" and
  /// "project:". May ask the share. Failures: there is no such object, nobody else holds it, whose
  /// it is cannot be read, several are meant.
  [[nodiscard]] Result<NotedAsk> find(const std::string& object) const;

  /// Whether this user can have it by now. Of a project the share is asked.
  [[nodiscard]] bool isFree(const NotedAsk& object) const;

  /// Whether it was deleted, as far as is known without asking.
  [[nodiscard]] bool isGone(const NotedAsk& object) const;

  /// Gives it the name that it has here: people are asked for what they know it as, whatever the
  /// asker calls it.
  void nameAsHere(NotedAsk& object) const;

  /// The user to whom words for a holder are sent: edits have owners of the names of hosts.
  [[nodiscard]] std::string userOf(const std::string& holder) const;

 private:
  void findCalled(const std::string& object, std::vector<NotedAsk>& found, bool& isKnown) const;
  void findEdit(const std::string& object, std::vector<NotedAsk>& found, bool& isKnown) const;
  void findRoom(const std::string& object, std::vector<NotedAsk>& found, bool& isKnown) const;
  void findProject(const std::string& object, std::vector<NotedAsk>& found, bool& isKnown) const;

  Parts parts_;
};

}  // namespace korvel
