#include "station/edit/EditIndex.h"

namespace korvel {

void EditIndex::put(const Cookie& cookie, EditSummary summary) {
  remove(cookie);
  if (summary.problem.empty()) byName_.emplace(summary.name, cookie);
  summaries_.emplace(cookie, std::move(summary));
}

void EditIndex::remove(const Cookie& cookie) {
  const auto known = summaries_.find(cookie);
  if (known == summaries_.end()) return;
  removeName(cookie, known->second.name);
  summaries_.erase(known);
  stale_.erase(cookie);
}

void EditIndex::removeName(const Cookie& cookie, const std::string& name) {
  auto [at, end] = byName_.equal_range(name);
  for (; at != end; ++at) {
    if (at->second == cookie) {
      byName_.erase(at);
      return;
    }
  }
}

void EditIndex::clear() {
  summaries_.clear();
  byName_.clear();
  stale_.clear();
}

const EditSummary* EditIndex::find(const Cookie& cookie) const {
  const auto known = summaries_.find(cookie);
  return known == summaries_.end() ? nullptr : &known->second;
}

void EditIndex::findByName(const std::string& name, std::vector<NamedObject>& found) const {
  auto [at, end] = byName_.equal_range(name);
  for (; at != end; ++at) found.push_back({at->second, name});
}

}  // namespace korvel
