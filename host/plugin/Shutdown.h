#pragma once

// How the application ends.
//
//     user quits, or SIGTERM
//       -> the open project and its room are left   their locks are released, tools are closed
//       -> callbacks, the highest priority first    nothing is sent or received any more
//       -> preUnloadDeinitialization() of each plug-in, then its library is unloaded
//
// A plug-in lets go of the network in a callback, not in a destructor: while callbacks run, the
// share, the network and the log still work.

#include "host/base/HostApi.h"
#include "host/base/Ptr.h"

/// The host's shutdown service: calls what was registered when the application ends, on the host
/// thread, the highest priority first and equal priorities in the order of registration. Each
/// callback is called once.
class KV_HOST_API Shutdown {
 public:
  /// Why the application ends. Either way the callbacks have time to finish.
  enum eExitType {
    eNormalExit,     ///< the user ended the application
    eSignalledExit,  ///< the system asked it to end
  };

  /// What is called at the end; the service holds a reference until then.
  class KV_HOST_API Callback : public virtual Kv::InternalRefCount {
   public:
    ~Callback() override = default;

    /// Is called once, on the host thread. Must not throw: the others are to be called as well.
    virtual void call(eExitType type) = 0;
  };

  /// Calls one method of one object, which must outlive the shutdown.
  template <typename Class>
  class MethodCallback : public Callback {
   public:
    using Method = void (Class::*)(eExitType);

    MethodCallback(Class* object, Method method) : object_(object), method_(method) {}
    void call(eExitType type) override { (object_->*method_)(type); }

   private:
    Class* object_;
    Method method_;
  };

  /// Keeps a reference on the callback until it was called or the service ends.
  static void addCallback(const Kv::Ptr<Callback>& callback, int priority);
};
