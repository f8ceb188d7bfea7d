#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "station/base/Result.h"
#include "tools/capture/HeardMessage.h"

struct pcap;

namespace korvel {

/// Reads the datagrams of a capture, pcap or pcapng, one after the other: never more than one
/// packet is held. One thread.
class CaptureFile {
 public:
  /// Failure: what is wrong with the file: not there, no rights, a folder, no capture, or of a kind
  /// of network that no datagram can be read from. A pipe or a terminal that stands still is at its
  /// end once `isEnding` is set, which must outlive the object.
  static Result<CaptureFile> open(const std::string& path, const std::atomic<bool>& isEnding);

  /// The next UDP datagram over IPv4; nothing at the end of what can be read.
  std::optional<HeardMessage> next();

  /// Why the file could not be read to its end; empty where it was.
  [[nodiscard]] const std::string& problem() const { return problem_; }

  [[nodiscard]] std::uint64_t packets() const { return packets_; }
  [[nodiscard]] std::uint64_t fragments() const { return fragments_; }

 private:
  struct Closer {
    void operator()(pcap* capture) const;
  };
  using Handle = std::unique_ptr<pcap, Closer>;

  CaptureFile(Handle capture, std::string path);

  Handle capture_;
  std::string path_;
  std::string problem_;
  int linkType_;
  std::uint64_t packets_ = 0;
  std::uint64_t fragments_ = 0;
};

}  // namespace korvel
