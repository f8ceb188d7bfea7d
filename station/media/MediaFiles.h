#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/base/Cookie.h"

namespace korvel {

/// What a look at a media file shows.
struct MediaLook {
  bool isOnline = false;   ///< a plain file that can be read is there
  std::uint64_t size = 0;  ///< bytes
  std::string problem;     ///< why it is not online, "Permission denied"
  std::string format;      ///< as its first bytes tell: "MXF"; empty when they tell nothing
};

/// The media files that this station has looked at: the ones opened last stay open, and the first
/// bytes of each are kept until the file changes. Both must be given up when a file is removed, or
/// the share would keep it. Host thread.
class MediaFiles {
 public:
  static constexpr std::size_t kMaxOpen = 32;

  static MediaFiles& instance();

  MediaFiles() = default;
  MediaFiles(const MediaFiles&) = delete;
  MediaFiles& operator=(const MediaFiles&) = delete;
  ~MediaFiles();

  /// Looks at the file that is at the path now. Never waits for a pipe's other end.
  MediaLook look(const std::string& path);

  /// Closes the file if it is open.
  void close(const std::string& path);

  /// Forgets the file's first bytes.
  void dropHead(const std::string& path);

  [[nodiscard]] bool isOpen(const std::string& path) const { return open_.contains(path); }
  [[nodiscard]] bool keepsHead(const std::string& path) const { return heads_.contains(path); }

 private:
  /// What tells one state of a file from another.
  struct Stamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t changed = 0;  ///< nanoseconds

    friend bool operator==(const Stamp&, const Stamp&) = default;
  };
  struct Head {
    Stamp stamp;
    std::string bytes;
  };

  static bool stampAt(const std::string& path, Stamp& stamp);
  int descriptorFor(const std::string& path);
  const std::string& headOf(const std::string& path, const Stamp& stamp, int descriptor);

  std::map<std::string, int> open_;
  std::deque<std::string> order_;  ///< of opening, oldest first
  std::map<std::string, Head> heads_;
};

// Texts of media paths, UTF-8. Host thread.

/// The same for every way to write one network path: a text that begins with two backslashes has
/// its backslashes turned into slashes; anything else is left as it is (a file's name may hold a
/// backslash).
std::string mediaKey(const std::string& path);

/// The cookie of the material in a local file, as every station makes it from a path that it
/// receives: the path's text is cut at its first dot, wherever that is, and the directories are
/// stripped. Files that differ behind that dot alone share a cookie, and a dot in the name of a
/// directory cuts there: required, since other stations make their cookies so.
Cookie materialCookie(const std::string& localPath);

/// The two conversions of DiskManager, by settings().media: the longest directory that holds the
/// path, on whole components. A path that climbs out of it ("..") is below none.
std::string networkForm(const std::string& localPath);
std::string localForm(const std::string& networkPath);

/// A media file that the station knows. Texts are UTF-8.
struct MediaFile {
  Cookie cookie;        ///< of the material, by which other stations speak of the file
  std::string path;     ///< on this station
  std::string network;  ///< as all stations know it; what identifies it
  std::string proxyOf;  ///< the network form of the file that it is a proxy of, or empty

  /// Known by another station's message alone: no record in the project names it, and it lies in no
  /// media folder of this station. Its path may be on a mount that hangs or on a stranger's server,
  /// so the file is not looked at.
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
