#include "tools/capture/PcapngWriter.h"

#include <pcap/dlt.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace korvel {

namespace {

constexpr std::uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr std::uint32_t kInterfaceDescription = 1;
constexpr std::uint32_t kInterfaceStatistics = 5;
constexpr std::uint32_t kEnhancedPacket = 6;
constexpr std::uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr std::uint16_t kInterfaceName = 2;
constexpr std::uint16_t kTimeResolution = 9;
constexpr char kNanoseconds = 9;
constexpr std::uint16_t kUserProgram = 4;
constexpr std::uint16_t kReceived = 4;
constexpr std::uint16_t kDropped = 5;

/// Numbers stand in this machine's byte order, which the section header tells readers.
template <typename Number>
std::string bytesOf(Number number) {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

std::string padded(std::string bytes) {
  bytes.resize((bytes.size() + 3) / 4 * 4);
  return bytes;
}

std::string option(std::uint16_t code, const std::string& value) {
  return bytesOf(code) + bytesOf(static_cast<std::uint16_t>(value.size())) + padded(value);
}

std::string endOfOptions() { return std::string(4, '\0'); }

std::string blockOf(std::uint32_t type, const std::string& body) {
  const std::string size = bytesOf(static_cast<std::uint32_t>(body.size() + 12));
  return bytesOf(type) + size + body + size;
}

/// A time in nanoseconds as blocks have it: the upper half first.
std::string timeText(std::int64_t time) {
  const auto number = static_cast<std::uint64_t>(time);
  return bytesOf(static_cast<std::uint32_t>(number >> 32)) +
         bytesOf(static_cast<std::uint32_t>(number));
}

std::string sectionHeader() {
  return blockOf(kSectionHeader, bytesOf(kByteOrderMagic) + bytesOf(std::uint16_t{1}) +
                                     bytesOf(std::uint16_t{0}) + bytesOf(std::int64_t{-1}) +
                                     option(kUserProgram, "kv-share") + endOfOptions());
}

std::string interfaceDescription(const std::string& source) {
  return blockOf(kInterfaceDescription,
                 bytesOf(static_cast<std::uint16_t>(DLT_IPV4)) + bytesOf(std::uint16_t{0}) +
                     bytesOf(std::uint32_t{0}) + option(kInterfaceName, source) +
                     option(kTimeResolution, std::string(1, kNanoseconds)) + endOfOptions());
}

}  // namespace

PcapngWriter::PcapngWriter(int descriptor, std::string name)
    : descriptor_(descriptor), name_(std::move(name)) {}

PcapngWriter::~PcapngWriter() {
  if (descriptor_ >= 0) close(descriptor_);
}

Result<void> PcapngWriter::begin(const std::string& source) {
  return put(sectionHeader() + interfaceDescription(source));
}

Result<void> PcapngWriter::write(const HeardMessage& message) {
  const std::string packet = ipv4PacketOf(message);
  const std::string size = bytesOf(static_cast<std::uint32_t>(packet.size()));
  return put(blockOf(kEnhancedPacket, bytesOf(std::uint32_t{0}) + timeText(message.time) + size +
                                          size + padded(packet)));
}

Result<void> PcapngWriter::end(std::uint64_t heard, std::uint64_t missed, std::int64_t time) {
  auto put = this->put(
      blockOf(kInterfaceStatistics, bytesOf(std::uint32_t{0}) + timeText(time) +
                                        option(kReceived, bytesOf(heard + missed)) +
                                        option(kDropped, bytesOf(missed)) + endOfOptions()));
  if (close(std::exchange(descriptor_, -1)) != 0 && put) return failure(errno);
  return put;
}

Result<void> PcapngWriter::put(const std::string& block) {
  for (std::size_t done = 0; done < block.size();) {
    const ssize_t count = ::write(descriptor_, block.data() + done, block.size() - done);
    if (count >= 0) {
      done += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      const int problem = errno;
      // A pipe cannot be cut; who reads it has got the half block already.
      if (done > 0) static_cast<void>(!ftruncate(descriptor_, static_cast<off_t>(written_)));
      return failure(problem);
    }
  }
  written_ += block.size();
  return {};
}

Error PcapngWriter::failure(int problem) const {
  const ErrorCode code = problem == ENOSPC || problem == EDQUOT || problem == EFBIG
                             ? ErrorCode::eFull
                             : ErrorCode::eSystem;
  const std::string advice = code == ErrorCode::eFull ? "make room, or record to another disk"
                                                      : "see that it can be written";
  return {code,
          name_ + " takes no more (" + std::strerror(problem) + "): " + advice +
              "; what was recorded until then can be read",
          name_};
}

}  // namespace korvel
