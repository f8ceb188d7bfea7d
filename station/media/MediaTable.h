#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/base/Cookie.h"

namespace korvel {

/// A media file that the station knows. Texts are UTF-8.
struct MediaFile {
  Cookie cookie;        ///< of the material, by which other stations speak of the file
  std::string path;     ///< on this station
  std::string network;  ///< as all stations know it; what identifies it
  std::string proxyOf;  ///< the network form of the file that it is a proxy of, or empty

  /// Known by another station's message alone: no record in the project names it, and it lies in no
  /// media folder of this station. It is not looked at: its path may be one that hangs, or that has
  /// a stranger's server mounted.
  bool isHearsay = false;
};

/// Media files by network form, by cookie and by name. Several files may share a cookie. A proxy
/// whose file is not known counts as a file of its own. Host thread.
class MediaTable {
 public:
  using Keys = std::set<std::string>;

  /// The file with this network form, however written, or null; valid until it is removed.
  [[nodiscard]] const MediaFile* find(const std::string& network) const;

  /// The file that this one is a proxy of, or null.
  [[nodiscard]] const MediaFile* mainOf(const MediaFile& file) const;

  [[nodiscard]] std::vector<MediaFile> withCookie(const Cookie& cookie) const;
  [[nodiscard]] std::vector<MediaFile> withName(const std::string& name) const;
  [[nodiscard]] std::vector<MediaFile> proxiesOf(const MediaFile& file) const;

  /// All files, in order of their network forms.
  [[nodiscard]] std::vector<MediaFile> all() const;

  /// All but the proxies, in order of their network forms.
  [[nodiscard]] std::vector<MediaFile> mains() const;

  [[nodiscard]] std::size_t size() const { return files_.size(); }

  void insert(const MediaFile& file);
  void remove(const MediaFile& file);
  void clear();

 private:
  template <typename Key>
  using Index = std::map<Key, Keys>;

  template <typename Key>
  [[nodiscard]] std::vector<MediaFile> lookUp(const Index<Key>& index, const Key& key) const;

  std::map<std::string, MediaFile> files_;
  Index<Cookie> byCookie_;
  Index<std::string> byName_;
  Index<std::string> proxies_;
};

/// A path's last component, as users call the file.
std::string mediaName(const std::string& path);

}  // namespace korvel
