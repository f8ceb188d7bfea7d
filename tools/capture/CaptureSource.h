#pragma once

#include <memory>
#include <string>

#include "station/base/Result.h"
#include "tools/capture/CaptureQueue.h"

namespace korvel {

/// Hears the messages of a network on a thread of its own until it is destroyed.
class iCaptureSource {
 public:
  virtual ~iCaptureSource() = default;

  /// How it hears, for people: "port 27015, beside the stations of this machine".
  [[nodiscard]] virtual std::string manner() const = 0;

  /// Takes what came until now, counts what the system dropped, and hears no more.
  virtual void finish() = 0;
};

/// Where to hear, and how.
struct Hearing {
  int port = 27015;
  std::string listen =
      "0.0.0.0";              ///< all, a multicast or broadcast address, or one of this machine
  bool onlyCaptures = false;  ///< capture packets even where the port could be shared
};

/// Shares the stations' port. Where another program holds it without sharing, captures the packets
/// instead. The ear hands what it hears to `queue`, which must outlive it.
Result<std::unique_ptr<iCaptureSource>> openEar(const Hearing& hearing, CaptureQueue& queue);

/// Shares the stations' port, and takes nothing from them. A multicast address is joined; an
/// address of this machine stands for the network that it is in.
Result<std::unique_ptr<iCaptureSource>> sharePort(const Hearing& hearing, CaptureQueue& queue);

/// Captures the packets of all networks, which takes the right to do so.
Result<std::unique_ptr<iCaptureSource>> capturePackets(const Hearing& hearing, CaptureQueue& queue);

}  // namespace korvel
