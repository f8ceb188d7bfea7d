#pragma once

#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/base/Cookie.h"
#include "station/edit/EditSummary.h"
#include "station/project/iProjectPart.h"

namespace korvel {

/// The open project's edits and logs by cookie and by name, without their documents. Host thread.
class EditIndex {
 public:
  /// Adds an object, or replaces what is known of it.
  void put(const Cookie& cookie, EditSummary summary);

  /// Forgets an object; an unknown one is ignored.
  void remove(const Cookie& cookie);
  void clear();

  /// What is known of an object, or null; valid until the index changes.
  [[nodiscard]] const EditSummary* find(const Cookie& cookie) const;

  /// Appends every readable object of exactly this name.
  void findByName(const std::string& name, std::vector<NamedObject>& found) const;

  [[nodiscard]] const std::map<Cookie, EditSummary>& all() const { return summaries_; }

  /// Notes that an object's file has changed since it was looked at.
  void markStale(const Cookie& cookie) { stale_.insert(cookie); }

  [[nodiscard]] bool isStale(const Cookie& cookie) const { return stale_.contains(cookie); }

  /// Notes that it was looked at again; whether it was so noted.
  bool clearStale(const Cookie& cookie) { return stale_.erase(cookie) > 0; }

  /// The objects so noted, which are no longer noted afterwards.
  std::set<Cookie> takeStale() { return std::exchange(stale_, {}); }

 private:
  void removeName(const Cookie& cookie, const std::string& name);

  std::map<Cookie, EditSummary> summaries_;
  std::unordered_multimap<std::string, Cookie> byName_;
  std::set<Cookie> stale_;
};

}  // namespace korvel
