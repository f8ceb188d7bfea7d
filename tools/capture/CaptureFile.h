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
  /// Failure: the reason why the file cannot be read: not there, no rights, a folder, no capture,
  /// or a kind of network without IPv4 datagrams. Once `isEnding` is set, a pipe or terminal
  /// without input counts as ended; the flag must outlive the object.
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

/// Writes messages to a capture in pcapng, which network tools open. Not done by libpcap, which
/// reads pcapng but writes only pcap; that has no place for the number of missed messages.
///
///     section header | interface description | enhanced packet | enhanced packet | ...
///
/// Each message is one packet: its IPv4 and UDP headers, and its bytes. A packet is written in one
/// go, so that a file whose writer was killed can be read up to its last packet. One thread.
class PcapngWriter {
 public:
  /// Takes over a descriptor that can be written to; `name` is the file's name in errors.
  PcapngWriter(int descriptor, std::string name);
  PcapngWriter(const PcapngWriter&) = delete;
  PcapngWriter& operator=(const PcapngWriter&) = delete;
  ~PcapngWriter();

  /// Writes the blocks before the packets; `source` names the place where they were captured.
  Result<void> begin(const std::string& source);

  /// Writes one message. After a failure the file ends behind the message before it.
  Result<void> write(const HeardMessage& message);

  /// Writes the numbers of heard and missed messages, and closes the file.
  Result<void> end(std::uint64_t heard, std::uint64_t missed, std::int64_t time);

 private:
  Result<void> put(const std::string& block);
  [[nodiscard]] Error failure(int problem) const;

  int descriptor_;
  std::string name_;
  std::uint64_t written_ = 0;  ///< bytes of whole blocks
};

}  // namespace korvel
