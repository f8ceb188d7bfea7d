#pragma once

// The media files that this station knows, by the cookie of their material.
//
// It grows in two ways: the user adds a file here, or a message tells that a colleague added one.
// A file that is known already is left alone, so a message that comes twice adds nothing. One
// material has at most one file of its own and any number of proxies, which are smaller copies to
// work with.

#include "host/base/Cookie.h"
#include "host/base/LightweightString.h"
#include "host/media/DiskManager.h"
#include "host/notify/Notifier.h"

/// A media file that the system cache knows, with its proxies. The payload of the cache's
/// notifications.
class KV_HOST_API FsysDirectoryEntry : public NotifyPayload {
 public:
  FsysDirectoryEntry(const Cookie& cookie, const MaterialFilename& file)
      : cookie_(cookie), file_(file) {}

  /// The cookie of the material, under which all its files are known.
  [[nodiscard]] const Cookie& getCookie() const { return cookie_; }

  /// The material's own file, as this station opens it.
  [[nodiscard]] const MaterialFilename& getFilename() const { return file_; }

  /// Its proxies in the order in which they were added.
  [[nodiscard]] const Vector<MaterialFilename>& getProxyFiles() const { return proxies_; }
  void addProxyFile(const MaterialFilename& proxy) { proxies_.push_back(proxy); }

 private:
  Cookie cookie_;
  MaterialFilename file_;
  Vector<MaterialFilename> proxies_;
};

/// The media files that this station can play. Host thread.
class KV_HOST_API SystemCache : public NotifierBase {
 public:
  /// The one cache, made on first use. Notifies with FsysDirectoryEntry and the types below.
  static SystemCache& instance();

  /// What is notified: a file or proxy became known, or was forgotten.
  static const NotifyMsgType fileAddedMsgType_;
  static const NotifyMsgType fileRemovedMsgType_;
  static const NotifyMsgType proxyAddedMsgType_;
  static const NotifyMsgType proxyRemovedMsgType_;

  /// Makes a file known under its material's cookie, and notifies. A file that is known already is
  /// left alone; one that is not there is reported, and known as offline. `isProxy` tells whether
  /// it is a proxy of the material rather than the material itself.
  virtual void addFile(const Cookie& cookie, const MaterialFilename& file, bool isProxy) = 0;

  /// Forgets a material's file, and notifies. A file that the project still records stays.
  /// `isProxy` as above; `what` is a sum of eRemove.
  virtual void removeFile(const Cookie& cookie, bool isProxy, int what) = 0;

  /// What removeFile forgets.
  enum eRemove : int {
    eRemoveEntry = 1,    ///< the entry in the list
    eRemoveProxies = 2,  ///< and those of its proxies
  };
};
