#pragma once

#include <algorithm>
#include <vector>

namespace korvel {

/// The living objects of one interface, of which the host uses the one registered last. Usable
/// while static objects are built and destroyed. Host thread.
template <typename Interface>
class InstanceRegistry {
 public:
  static void add(Interface* object) { objects().push_back(object); }
  static void remove(Interface* object) { std::erase(objects(), object); }

  /// The object added last that was not removed, or null.
  static Interface* newest() { return objects().empty() ? nullptr : objects().back(); }

 private:
  static std::vector<Interface*>& objects() {
    static auto* const list = new std::vector<Interface*>;
    return *list;
  }
};

}  // namespace korvel
