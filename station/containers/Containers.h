#pragma once

#include <cstddef>

#include "station/base/HostParts.h"
#include "station/containers/ContainerPart.h"

namespace korvel {

/// Containers that hold other objects, by cookie: bins and racks. An object stands in a container
/// once; objects are in the order in which they were added. Host thread.
class CookieLists : public ContainerPart {
 public:
  CookieLists(std::string word, std::string letters, std::string key)
      : ContainerPart({std::move(word), std::move(letters), std::move(key), "contents"}) {}

  /// Makes an empty container.
  Result<Cookie> create(const std::string& name);

  /// Puts objects in; those that are there already stay. The number of new ones. A container cannot
  /// hold itself.
  Result<std::size_t> add(const Cookie& container, const CookieVec& objects);

  /// Takes objects out; those that are not there are passed over. The number taken out.
  Result<std::size_t> remove(const Cookie& container, const CookieVec& objects);

  /// What a container holds; empty for an unknown one.
  [[nodiscard]] CookieVec contents(const Cookie& container) const;

 protected:
  [[nodiscard]] std::string contentProblem(const JsonValue& content) const override;

 private:
  /// An object and where in the list it is.
  struct Place {
    std::string object;
    std::size_t index = 0;
  };
  using Places = std::vector<Place>;

  Result<void> putBack(const Cookie& container, const Places& places);
  Result<void> takeOut(const Cookie& container, const Places& places);
  void noteAdded(const Cookie& container, const Places& places);
  void noteRemoved(const Cookie& container, const Places& places);
};

/// The host's manager of a kind of container that holds cookies: bins and racks. Host thread.
template <typename Manager, typename Data>
class CookieListManager : public ContainerNotifier<Manager, Data, CookieLists> {
 public:
  using ContainerNotifier<Manager, Data, CookieLists>::ContainerNotifier;

  void destroy(const Cookie& cookie, const LightweightString<char>& /*reason*/) override {
    this->forget(cookie);
  }
  void reload(const Cookie& cookie) override { this->readAgain(cookie); }
};

/// The open project's bins, each the file <cookie>.json of the project's folder. Building one makes
/// it the host's BinManager. Host thread.
class Bins : public CookieListManager<BinManager, BinData> {
 public:
  Bins();
  ~Bins() override;

 private:
  const HostEntry<Bins> entry_{&HostParts::bins, *this};
};

/// The open project's racks, each the file <cookie>.json of the project's folder. Building one
/// makes it the host's RackManager. Host thread.
class Racks : public CookieListManager<RackManager, RackData> {
 public:
  Racks();
  ~Racks() override;

 private:
  const HostEntry<Racks> entry_{&HostParts::racks, *this};
};

/// The open project's filters, each the file <cookie>.json of the project's folder, with its text
/// under "filter". Building one makes it the host's ProjectFilterManager. Host thread.
class Filters : public ContainerNotifier<ProjectFilterManager, BinData, ContainerPart> {
 public:
  Filters();
  ~Filters() override;

  Result<Cookie> create(const std::string& name, const std::string& text);
  Result<void> change(const Cookie& filter, const std::string& text);

  /// Where the file of a filter is: in the open project, else in the project that the message being
  /// delivered names. Messages about filters come from every project, and the plug-in waits for the
  /// file that it is told. Without either: its path in the open project, or empty when none is
  /// open.
  [[nodiscard]] std::string metadataFile(const Cookie& filter) const;

  /// Reads all filters again and tells of each that is new, differs or is gone.
  void reInit() override { readAllAgain(); }

 protected:
  [[nodiscard]] std::string contentProblem(const JsonValue& content) const override;

 private:
  Result<void> changeFrom(const Cookie& filter, const std::string& from, const std::string& to);

  const HostEntry<Filters> entry_{&HostParts::filters, *this};
};

}  // namespace korvel
