#pragma once

// Shared ownership between the host and its plug-ins.
//
// Files, senders, listeners and callbacks are held by counted pointers, since neither side can
// know when the other is done with them. The side that lets go last destroys the object, on its
// thread:
//
//     host                                   plug-in
//     openFile() makes an iFile, count 1 --> Kv::Ptr<iFile> lock_        holds it
//                                            lock_.reset()               count 0: the file is
//                                            closed
//
// The order in reset() matters: the pointer is empty before the object's destructor runs. A
// destructor that reaches back for the same pointer finds nothing instead of an object that is
// half destroyed.
//
// The counts must work while a library is loaded: static initialisers of plug-ins make counted
// objects before the host has called anything.

#include <utility>

#include "host/base/HostApi.h"

namespace Kv {

/// Base of everything that is held by `Kv::Ptr`.
///
/// The count itself is kept by the host's operating-system layer (`OS()`), keyed by `refCountId()`.
/// A new object has no reference; the `Kv::Ptr` that releases the last one destroys the object
/// through this virtual destructor, on the thread that released it. An object that was never held
/// by a `Kv::Ptr` is destroyed by its owner.
class KV_HOST_API InternalRefCount {
 public:
  InternalRefCount();
  InternalRefCount(const InternalRefCount&) = delete;
  InternalRefCount& operator=(const InternalRefCount&) = delete;
  virtual ~InternalRefCount();

  /// The key of this object's count, valid while the object lives.
  [[nodiscard]] void* refCountId() const { return refCountId_; }

 private:
  void* refCountId_;
};

/// Takes one reference on the count with this key. Any thread.
KV_HOST_API void addReference(void* refCountId);

/// Gives one reference back; true when it was the last, and the object is now the caller's to
/// destroy. Any thread.
KV_HOST_API bool releaseReference(void* refCountId);

/// The host's intrusive reference-counted pointer to a `T` derived from `InternalRefCount`.
template <typename T>
class Ptr {
 public:
  /// An empty pointer; so is one from a null pointer.
  Ptr() = default;
  Ptr(std::nullptr_t) {}                           // NOLINT(google-explicit-constructor)
  Ptr(T* object) : object_(object) { acquire(); }  // NOLINT(google-explicit-constructor)
  Ptr(const Ptr& other) : object_(other.object_) { acquire(); }
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <typename U>
  Ptr(const Ptr<U>& other) : object_(other.get()) {  // NOLINT(google-explicit-constructor)
    acquire();
  }
  ~Ptr() { release(); }

  /// Takes a reference on the new object, then releases the one on the old.
  Ptr& operator=(Ptr other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  /// Gives the reference up; the pointer is empty before the object is destroyed.
  void reset() { Ptr().swap(*this); }
  void swap(Ptr& other) noexcept { std::swap(object_, other.object_); }

  /// The object, still owned by the pointers; null when this one is empty.
  [[nodiscard]] T* get() const { return object_; }
  T* operator->() const { return object_; }
  T& operator*() const { return *object_; }
  explicit operator bool() const { return object_ != nullptr; }

  friend bool operator==(const Ptr& a, const Ptr& b) { return a.object_ == b.object_; }

 private:
  void acquire() const {
    if (object_) addReference(object_->refCountId());
  }
  void release() {
    if (object_ && releaseReference(object_->refCountId())) delete object_;
    object_ = nullptr;
  }

  T* object_ = nullptr;
};

/// A registration that lasts as long as the guard: releasing the last reference ends it.
class KV_HOST_API Guard : public virtual InternalRefCount {
 public:
  ~Guard() override = default;
};

}  // namespace Kv

/// Base of the host's counted service objects.
class KV_HOST_API iObject : public virtual Kv::InternalRefCount {
 public:
  ~iObject() override = default;
};
