#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
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
/// the share would keep it. Any thread.
class MediaFiles {
 public:
  static constexpr std::size_t kMaxOpen = 32;

  static MediaFiles& instance();

  /// The same, kept for as long as a thread that waits for a mount needs it.
  static std::shared_ptr<MediaFiles> shared();

  MediaFiles() = default;
  MediaFiles(const MediaFiles&) = delete;
  MediaFiles& operator=(const MediaFiles&) = delete;
  ~MediaFiles();

  /// Looks at the file that is at the path now. Waits for the mount that it is on, however long,
  /// and never for a pipe's other end.
  MediaLook look(const std::string& path);

  /// Closes the file if it is open. Does not wait for its mount.
  void close(const std::string& path);

  /// Forgets the file's first bytes.
  void dropHead(const std::string& path);

  [[nodiscard]] bool isOpen(const std::string& path) const;
  [[nodiscard]] bool keepsHead(const std::string& path) const;

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

  /// What is kept of the file in this state: its first bytes, where it is also open.
  [[nodiscard]] std::optional<std::string> kept(const std::string& path, const Stamp& stamp);
  void keep(const std::string& path, int descriptor, Head head, std::uint64_t closings);
  void letGo(const std::string& path);

  mutable std::mutex mutex_;  ///< never held while a mount is asked
  std::map<std::string, int> open_;
  std::deque<std::string> order_;  ///< of opening, oldest first
  std::map<std::string, Head> heads_;
  std::uint64_t closings_ = 0;  ///< how often a file was given up
};

/// Looks at media files on threads of its own, so that a mount that does not answer holds up
/// nothing but the looks at its files.
///
///     ask(path) --> lane of /mnt/store: c.mov b.mov   --a thread--> MediaFiles::look(a.mov)
///                   lane of /mnt/rushes: z.mov        --a thread--> MediaFiles::look(y.mov)
///
/// A lane is worked by one thread at a time; threads end when nothing is asked. Host thread.
class MediaLooks {
 public:
  using Look = std::function<MediaLook(const std::string& path)>;
  using Limit = std::chrono::milliseconds;

  /// More mounts that do not answer leave no thread for the others.
  static constexpr std::size_t kMostThreads = 8;

  /// A lane whose look takes longer counts as one that does not answer.
  static constexpr Limit kPatience{500};

  MediaLooks();

  /// Looks with this; any thread.
  explicit MediaLooks(Look look);
  MediaLooks(const MediaLooks&) = delete;
  MediaLooks& operator=(const MediaLooks&) = delete;

  /// Nothing is asked afterwards. A look that hangs is left to itself.
  ~MediaLooks();

  /// Has the file looked at, in the lane of `root`. Does not wait.
  void ask(const std::string& path, const std::string& root);

  /// Asks, and waits for the answer, at most so long; nothing where none comes.
  std::optional<MediaLook> lookNow(const std::string& path, const std::string& root, Limit limit);

  /// Waits until everything is answered that was asked, at most so long, and not for lanes that do
  /// not answer.
  void await(Limit limit);

  /// What the last look showed; nothing before the first, and while its lane does not answer.
  [[nodiscard]] std::optional<MediaLook> at(const std::string& path) const;

  /// Forgets a file, or all.
  void forget(const std::string& path);
  void forgetAll();

 private:
  class Work;

  std::shared_ptr<Work> work_;
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

/// The media directory on this station that a local path lies below, or empty.
std::string mediaDirectoryOf(const std::string& localPath);

/// Whether a path lies below a directory by its text: one that climbs ("..") does not.
bool liesBelow(const std::string& path, const std::string& directory);

/// A media file that the station knows. Texts are UTF-8.
struct MediaFile {
  Cookie cookie;        ///< of the material, by which other stations speak of the file
  std::string path;     ///< on this station
  std::string network;  ///< as all stations know it; what identifies it
  std::string proxyOf;  ///< the network form of the file that it is a proxy of, or empty

  /// Known by another station's message alone: no record in the project names it, and it lies
  /// neither in a media folder of this station nor in the project. Its path may be on a stranger's
  /// server, so the file is not looked at.
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
