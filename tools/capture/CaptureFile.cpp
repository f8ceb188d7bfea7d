#include "tools/capture/CaptureFile.h"

#include <fcntl.h>
#include <pcap/dlt.h>
#include <pcap/pcap.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "station/base/Strings.h"

namespace korvel {

namespace {

constexpr int kBetweenLooks = 100;                   // milliseconds until Ctrl-C is seen
constexpr std::int64_t kLastSecond = 9'000'000'000;  // nanoseconds of a damaged time fit 64 bits

Error unreadable(const std::string& path, const std::string& why) {
  return {ErrorCode::eBadContent, shownText(path) + " cannot be read (" + why + ")", path};
}

/// Why a path cannot be read as a file; nothing where it can.
std::optional<Error> objectionTo(const std::string& path) {
  struct stat status {};
  if (path == "-") return {};
  if (::stat(path.c_str(), &status) != 0) return unreadable(path, std::strerror(errno));
  if (S_ISDIR(status.st_mode)) return unreadable(path, "it is a folder; name a capture in it");
  return {};
}

/// A pipe or terminal without end, and the flag that ends the wait for more.
struct PatientSource {
  int descriptor;
  const std::atomic<bool>& isEnding;
};

ssize_t readWhatComes(void* cookie, char* buffer, std::size_t size) {
  const auto& source = *static_cast<PatientSource*>(cookie);
  pollfd input{source.descriptor, POLLIN, 0};
  // libpcap would wait within read(), where it sees no flag. A return of 0 is the end of the file.
  while (::poll(&input, 1, kBetweenLooks) == 0) {
    if (source.isEnding) return 0;
  }
  return ::read(source.descriptor, buffer, size);
}

int closeSource(void* cookie) {
  const std::unique_ptr<PatientSource> source(static_cast<PatientSource*>(cookie));
  return ::close(source->descriptor);
}

/// A stream of the file; null, with errno, where it cannot be opened.
std::FILE* streamOf(const std::string& path, const std::atomic<bool>& isEnding) {
  // dup(): closing the stream must not close standard input.
  const int descriptor =
      path == "-" ? ::dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status {};
  if (descriptor < 0 || ::fstat(descriptor, &status) != 0) return nullptr;
  // A regular file never makes its reader wait.
  if (S_ISREG(status.st_mode)) return ::fdopen(descriptor, "rb");
  auto source = std::make_unique<PatientSource>(PatientSource{descriptor, isEnding});
  return ::fopencookie(source.release(), "rb", {readWhatComes, nullptr, nullptr, closeSource});
}

}  // namespace

void CaptureFile::Closer::operator()(pcap* capture) const { pcap_close(capture); }

CaptureFile::CaptureFile(Handle capture, std::string path)
    : capture_(std::move(capture)),
      path_(std::move(path)),
      linkType_(pcap_datalink(capture_.get())) {}

Result<CaptureFile> CaptureFile::open(const std::string& path, const std::atomic<bool>& isEnding) {
  if (auto objection = objectionTo(path)) return *objection;
  char why[PCAP_ERRBUF_SIZE] = {};
  std::FILE* const file = streamOf(path, isEnding);
  if (!file) return unreadable(path, std::strerror(errno));
  Handle capture(pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, why));
  if (!capture) {
    // libpcap takes the stream over only when it succeeds.
    std::fclose(file);
    return unreadable(path, std::string("it is no capture: ") + shownText(why));
  }
  CaptureFile opened(std::move(capture), path);
  if (isKnownLink(opened.linkType_)) return opened;
  const char* const name = pcap_datalink_val_to_name(opened.linkType_);
  return unreadable(path, "its packets are of a kind of network, " +
                              (name ? name : std::to_string(opened.linkType_)) +
                              ", that carries no messages of stations");
}

std::optional<HeardMessage> CaptureFile::next() {
  pcap_pkthdr* header = nullptr;
  const unsigned char* bytes = nullptr;
  int state = 0;
  while ((state = pcap_next_ex(capture_.get(), &header, &bytes)) == 1) {
    ++packets_;
    const std::string_view frame(reinterpret_cast<const char*>(bytes), header->caplen);
    if (auto message = datagramInFrame(linkType_, frame)) {
      const auto seconds = std::clamp<std::int64_t>(header->ts.tv_sec, 0, kLastSecond);
      // With nanosecond precision libpcap stores nanoseconds in tv_usec.
      message->time = seconds * kNanosecondsASecond + header->ts.tv_usec;
      return message;
    }
    if (isFragment(linkType_, frame)) ++fragments_;
  }
  if (state == PCAP_ERROR) {
    problem_ = shownText(path_) + " is cut or damaged behind packet " + std::to_string(packets_) +
               " (" + shownText(pcap_geterr(capture_.get())) + ")";
  }
  return {};
}

namespace {

// Block types and option codes of pcapng. Option codes count anew for each type of block: 4 stands
// for the program in one and for received packets in another.
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

/// Numbers are in this machine's byte order; the magic of the section header tells readers which.
template <typename Number>
std::string bytesOf(Number number) {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

/// Values and packets are filled up to 32 bits. The sizes written beside them do not count the
/// fill.
std::string padded(std::string bytes) {
  bytes.resize((bytes.size() + 3) / 4 * 4);
  return bytes;
}

std::string option(std::uint16_t code, const std::string& value) {
  return bytesOf(code) + bytesOf(static_cast<std::uint16_t>(value.size())) + padded(value);
}

std::string endOfOptions() { return std::string(4, '\0'); }

/// The size counts the type and the two sizes. It stands at both ends, so that readers can go
/// backwards.
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

/// The section's length is -1, not known: packets are written as they come.
std::string sectionHeader() {
  return blockOf(kSectionHeader, bytesOf(kByteOrderMagic) + bytesOf(std::uint16_t{1}) +
                                     bytesOf(std::uint16_t{0}) + bytesOf(std::int64_t{-1}) +
                                     option(kUserProgram, "kv-share") + endOfOptions());
}

/// The link type is bare IPv4: a socket hands over datagrams, not frames. The limit of 0 means that
/// no packet was cut.
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
  // A network file system may report a full disk only when the file is closed.
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
      // Removes the half block. A pipe cannot be cut: its reader has the half block already.
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
