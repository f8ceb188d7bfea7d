#include "tools/capture/CaptureFile.h"

#include <fcntl.h>
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

constexpr std::int64_t kNanosecondsASecond = 1'000'000'000;
constexpr int kBetweenLooks = 100;                   // milliseconds
constexpr std::int64_t kLastSecond = 9'000'000'000;  // a damaged time may name any

Error unreadable(const std::string& path, const std::string& why) {
  return {ErrorCode::eBadContent, shownText(path) + " cannot be read (" + why + ")", path};
}

/// Why a path is no file to read; nothing where it is one.
std::optional<Error> objectionTo(const std::string& path) {
  struct stat status {};
  if (path == "-") return {};
  if (::stat(path.c_str(), &status) != 0) return unreadable(path, std::strerror(errno));
  if (S_ISDIR(status.st_mode)) return unreadable(path, "it is a folder; name a capture in it");
  return {};
}

/// A file that may stand still, and what ends the wait.
struct PatientSource {
  int descriptor;
  const std::atomic<bool>& isEnding;
};

ssize_t readWhatComes(void* cookie, char* buffer, std::size_t size) {
  const auto& source = *static_cast<PatientSource*>(cookie);
  pollfd input{source.descriptor, POLLIN, 0};
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
  const int descriptor =
      path == "-" ? ::dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status {};
  if (descriptor < 0 || ::fstat(descriptor, &status) != 0) return nullptr;
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

}  // namespace korvel
