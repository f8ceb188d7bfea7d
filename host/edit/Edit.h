#pragma once

// One edit or log while it is loaded, and the ways to open and change it.
//
//     EditPtr edit;
//     edit.i_open(cookie, 0);                      the object is loaded until it is closed
//     {
//       EditModifier change(edit, "new owner");    what is changed now belongs together
//     }                                            released: the host announces the change
//     edit.i_close();
//
// A plug-in opens edits to learn their owner, and because of messages: to take up another station's
// change, to read a file again. Two rules hold for messages and not for the user's own actions:
// what the local user has not saved yet is never dropped, and no file is written.

#include "host/base/Config.h"
#include "host/base/Cookie.h"
#include "host/edit/EditModification.h"

/// An edit or log (shot) that is loaded in this station. The host owns it; reach it through
/// EditPtr. Host thread.
class KV_HOST_API Edit {
 public:
  /// The log type of edits; any other is a shot's.
  static constexpr int kEditLogType = 2;

  virtual ~Edit() = default;

  [[nodiscard]] virtual Cookie getCookie() const = 0;

  /// Whether this is an edit, as opposed to a log.
  [[nodiscard]] virtual bool isEdit() const = 0;
  [[nodiscard]] virtual int getLogType() const = 0;

  /// Whether the object is part of the open project's shared stock, so that other stations know it:
  /// it has been written to the project's folder.
  [[nodiscard]] virtual bool isImported() const = 0;

  /// Whether the object is a scratch log that exists in this station alone and is never announced.
  [[nodiscard]] virtual bool isScratch() const = 0;

  /// The stored owner (key "OWNER") as it stands, not upper-cased; empty when there is none.
  [[nodiscard]] virtual LightweightString<wchar_t> getOwner() const = 0;

  /// The object's own configuration.
  virtual configb& config() = 0;

  /// Sets what kind of change the next announcement of this edit describes; with `announce` it is
  /// made when the edit is next closed or its modifier released.
  virtual void setChangeDescription(EditModificationType type, bool announce) = 0;

  /// Reads the edit again from a file; unsaved changes are dropped. Because of a message, unsaved
  /// changes of the local user's stay, and only the owner is taken from the file. False, with the
  /// content as it was, when the file cannot be read as an edit.
  virtual bool reOpen(const LightweightString<wchar_t>& path) = 0;

  /// Whether cel cues are shown, and showing or hiding them.
  [[nodiscard]] virtual bool areCelCuesOn() const = 0;
  virtual void celCuesOn() = 0;
  virtual void celCuesOff() = 0;

  /// Tells this station's views that the edit changed as described.
  virtual void issueChangeNotification(const EditModification& modification) = 0;

  /// Whether the edit holds changes that its file does not.
  [[nodiscard]] virtual bool isDirty() const = 0;

  /// Marks the edit dirty or clean; because of a message unsaved changes stay as they are.
  virtual void setDirty(bool dirty) = 0;

  /// Forgets what a modifier has recorded and not yet announced.
  virtual void clearPendingModifications() = 0;
};

/// Opens an edit for as long as it is looked at.
class KV_HOST_API EditPtr {
 public:
  EditPtr() = default;
  EditPtr(const EditPtr&) = delete;
  EditPtr& operator=(const EditPtr&) = delete;

  /// Closes what is open.
  ~EditPtr();

  /// Opens the edit or log with this cookie, loading it if need be; `flags` is 0. Empty when it
  /// cannot be opened: no such object, or a file that is no edit. Closes what was open before.
  void i_open(const Cookie& cookie, int flags);

  /// Closes the edit; an announcement that setChangeDescription asked for is made first.
  void i_close();

  [[nodiscard]] Edit* get() const { return edit_; }
  Edit* operator->() const { return edit_; }
  explicit operator bool() const { return edit_ != nullptr; }

 private:
  Edit* edit_ = nullptr;
};

/// Changes an open edit under a description that the user sees. Releasing it lets the host announce
/// the change.
class KV_HOST_API EditModifier {
 public:
  /// Begins a change of the edit that `edit` has open; holds no edit when it has none.
  EditModifier(EditPtr& edit, const LightweightString<char>& description);
  EditModifier(const EditModifier&) = delete;
  EditModifier& operator=(const EditModifier&) = delete;

  /// Announces what was changed.
  ~EditModifier();

  Edit* operator->() const { return edit_; }
  explicit operator bool() const { return edit_ != nullptr; }

  /// Forgets the changes recorded so far: the release announces nothing.
  void clearModifications();

 private:
  Edit* edit_ = nullptr;
};
