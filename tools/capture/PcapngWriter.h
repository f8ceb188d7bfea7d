#pragma once

#include <cstdint>
#include <string>

#include "station/base/Result.h"
#include "tools/capture/HeardMessage.h"

namespace korvel {

/// Writes messages to a capture in pcapng, which network tools open. It is our own, since libpcap
/// reads pcapng but writes only pcap, which has no place for how many messages were missed.
///
///     section header | interface description | enhanced packet | enhanced packet | ...
///
/// Each message is one packet: its IPv4 and UDP headers, and its bytes. A packet is written in one
/// go, so that a file whose writer was killed can be read up to its last packet. One thread.
class PcapngWriter {
 public:
  /// Takes over a descriptor that can be written to; `name` is how errors call the file.
  PcapngWriter(int descriptor, std::string name);
  PcapngWriter(const PcapngWriter&) = delete;
  PcapngWriter& operator=(const PcapngWriter&) = delete;
  ~PcapngWriter();

  /// Writes what stands before the packets; `source` says where they were heard.
  Result<void> begin(const std::string& source);

  /// Writes one message. After a failure the file ends behind the message before it.
  Result<void> write(const HeardMessage& message);

  /// Writes how many were heard, and how many were missed; closes the file.
  Result<void> end(std::uint64_t heard, std::uint64_t missed, std::int64_t time);

 private:
  Result<void> put(const std::string& block);
  [[nodiscard]] Error failure(int problem) const;

  int descriptor_;
  std::string name_;
  std::uint64_t written_ = 0;  ///< bytes of whole blocks
};

}  // namespace korvel
