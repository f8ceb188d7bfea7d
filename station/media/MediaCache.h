#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/media/SystemCache.h"
#include "station/base/HostParts.h"
#include "station/base/Result.h"
#include "station/media/MediaFiles.h"
#include "station/notify/NotifierList.h"
#include "station/project/iProjectPart.h"

namespace korvel {

/// The media files of the open project, and those that other stations told of.
///
/// A file that a user adds here is recorded in the project's folder, one record a file, so that a
/// station that enters the project later finds it:
///
///     <project folder>/<cookie of the network form>.json
///         { "name": "a.mov", "file": "//store/rushes/a.mov" }
///         { "name": "a_p.mov", "file": "//store/rushes/a_p.mov", "proxyOf": "//store/rushes/a.mov"
///         }
///
/// The record's cookie is made from the whole network form and is the file's alone; the material's
/// cookie, by which stations speak of it, is made from the local path (materialCookie) and may be
/// shared by several files. What another station announces is looked up in the records: they tell
/// a proxy from a file of its own, and which of several files with one cookie was removed.
///
/// A file that is not there is known all the same, as offline. Building a cache makes it the host's
/// SystemCache. Host thread.
class MediaCache : public SystemCache, public iProjectPart {
 public:
  /// How many files are listed that only messages name and no project records: a stranger who
  /// invents files does not fill the memory.
  static constexpr std::size_t kMostHearsay = 10'000;

  MediaCache();
  MediaCache(const MediaCache&) = delete;
  MediaCache& operator=(const MediaCache&) = delete;
  ~MediaCache() override;

  /// Adds a local file to the open project and tells the other stations. One that is not there, or
  /// is known already, is refused.
  Result<Cookie> addMedia(const std::string& path);

  /// Adds a proxy of a known file; the material's cookie.
  Result<Cookie> addProxy(const std::string& path, const std::string& proxy);

  /// Takes a file, with its proxies, or one proxy out of the project; the file itself stays on the
  /// disk. `text` is its path here, its network form, its name, its cookie or the unambiguous
  /// beginning of one. What was taken out, the named file first.
  Result<std::vector<MediaFile>> removeMedia(const std::string& text);

  /// Whether a local path is known.
  [[nodiscard]] bool knows(const std::string& path) const;

  /// All files, each followed by its proxies, as a look at each shows it now. Waits half a
  /// second for them. A file whose mount does not answer has "looked_at": false, and so has one
  /// that only a stranger has named.
  [[nodiscard]] JsonValue look();

  void addFile(const Cookie& cookie, const MaterialFilename& file, bool isProxy) override;
  void removeFile(const Cookie& cookie, bool isProxy, int what) override;
  Kv::Ptr<Kv::Guard> registerInternal(const Kv::Ptr<CallbackInvoker<NotifyMsg>>& invoker) override;

  void enter(const OpenProject& project, const std::vector<std::string>& files) override;
  std::size_t catchUp(const FoundFiles& files) override;
  void leave() override;
  void findByName(const std::string& name, std::vector<NamedObject>& found) const override;
  [[nodiscard]] bool holds(const Cookie& cookie) const override;
  void listObjects(std::vector<NamedObject>& objects) const override;
  [[nodiscard]] std::string stateKey() const override { return "media"; }
  [[nodiscard]] JsonValue state() const override;

 private:
  Result<Cookie> add(const std::string& path, const std::string& proxyOf);
  Result<void> take(const Cookie& record, const JsonValue& content);
  [[nodiscard]] Result<MediaFile> understand(const Cookie& record, const JsonValue& content) const;
  bool catchUpOne(const Cookie& record, const FoundFile& file);
  bool catchUpGone(const Cookie& record);
  [[nodiscard]] Result<MediaFile> meant(const std::string& text) const;
  [[nodiscard]] std::string recordOf(const MediaFile& file) const;
  [[nodiscard]] std::string recordedProxyOf(const MediaFile& file) const;

  /// Whether a file that only another station's message names still has room.
  bool hasRoomForHearsay();
  [[nodiscard]] bool hasRecord(const MediaFile& file) const;
  [[nodiscard]] bool isOfOurs(const std::string& path) const;
  [[nodiscard]] std::string rootOf(const std::string& path) const;
  void askFor(const MediaFile& file);
  [[nodiscard]] std::vector<MediaFile> withoutRecord(std::vector<MediaFile> files) const;
  Result<void> discard(const MediaFile& file);
  [[nodiscard]] std::vector<MediaFile> unrecorded(const Cookie& cookie, bool isProxy,
                                                  int what) const;
  void show(const MediaFile& file);
  void drop(const MediaFile& file);
  void dropLate(const MediaFile& file);
  bool takeOut(const MediaFile& file);
  void tell(const MediaFile& file, NotifyMsgType asMain, NotifyMsgType asProxy,
            const std::string& how);

  std::string folder_;  ///< the open project's; empty when none is open
  std::shared_ptr<NewlyShown> shown_;
  MediaTable table_;
  MediaLooks looks_;
  bool toldFull_ = false;
  NotifierList listeners_;
  std::map<Cookie, std::string> problems_;  ///< of files found that cannot be read, as logged
  const HostEntry<MediaCache> entry_{&HostParts::media, *this};
};

}  // namespace korvel
