#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>

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

}  // namespace korvel
