#include <pcap/pcap.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <thread>
#include <utility>

#include "station/base/Strings.h"
#include "tools/capture/CaptureSource.h"
#include "tools/capture/HeardMessage.h"

namespace korvel {

namespace {

constexpr int kMillisecondsToWait = 100;
constexpr int kLargestPacket = 65'535 + 64;
constexpr int kBufferBytes = 16 << 20;
constexpr int kLongestRest = 200'000;  // packets, more than the buffer holds: a flood ends, too
constexpr std::int64_t kNanosecondsASecond = 1'000'000'000;

struct Closer {
  void operator()(pcap_t* capture) const { pcap_close(capture); }
};
using Handle = std::unique_ptr<pcap_t, Closer>;

Error refusal(const std::string& why) {
  return {ErrorCode::eNoRights,
          "packets cannot be captured (" + shownText(why) +
              "): run kv-share as root, or give it the right: setcap cap_net_raw+ep with its path",
          {}};
}

Result<Handle> openCapture(const Hearing& hearing) {
  char why[PCAP_ERRBUF_SIZE] = {};
  Handle capture(pcap_create("any", why));
  if (!capture) return refusal(why);
  pcap_set_snaplen(capture.get(), kLargestPacket);
  pcap_set_timeout(capture.get(), kMillisecondsToWait);
  pcap_set_immediate_mode(capture.get(), 1);
  pcap_set_buffer_size(capture.get(), kBufferBytes);
  pcap_set_tstamp_precision(capture.get(), PCAP_TSTAMP_PRECISION_NANO);
  if (const int failed = pcap_activate(capture.get()); failed < 0) {
    const char* const more = pcap_geterr(capture.get());
    return refusal(more && *more ? more : pcap_statustostr(failed));
  }
  const std::string wanted = "ip and udp dst port " + std::to_string(hearing.port);
  bpf_program filter{};
  const bool isReady = pcap_compile(capture.get(), &filter, wanted.c_str(), 1, 0) == 0 &&
                       pcap_setfilter(capture.get(), &filter) == 0 &&
                       pcap_setnonblock(capture.get(), 0, why) == 0;
  pcap_freecode(&filter);
  if (!isReady) return refusal(pcap_geterr(capture.get()));
  return capture;
}

/// Captures the packets to a port. A packet that leaves by one of this machine's networks and the
/// copy of it that comes back are the system's to tell apart: it hands over one of them.
class PacketCapture : public iCaptureSource {
 public:
  PacketCapture(Handle capture, Hearing hearing, CaptureQueue& queue)
      : capture_(std::move(capture)), hearing_(std::move(hearing)), queue_(queue) {
    thread_ = std::thread([this] { drain(); });
  }
  PacketCapture(const PacketCapture&) = delete;
  PacketCapture& operator=(const PacketCapture&) = delete;
  ~PacketCapture() override { finish(); }

  void finish() override {
    isEnding_ = true;
    pcap_breakloop(capture_.get());
    if (thread_.joinable()) thread_.join();
  }

  [[nodiscard]] std::string manner() const override {
    return "captured packets to port " + std::to_string(hearing_.port);
  }

 private:
  void drain() {
    pcap_pkthdr* header = nullptr;
    const unsigned char* bytes = nullptr;
    while (!isEnding_) {
      const int state = pcap_next_ex(capture_.get(), &header, &bytes);
      if (state == 1) take(*header, bytes);
      if (state == PCAP_ERROR) {
        queue_.fail("capturing ended (" + shownText(pcap_geterr(capture_.get())) + ")");
        return;
      }
      count();
    }
    takeTheRest();
  }

  /// What was captured before the end and waits in the buffer.
  void takeTheRest() {
    char why[PCAP_ERRBUF_SIZE] = {};
    pcap_pkthdr* header = nullptr;
    const unsigned char* bytes = nullptr;
    if (pcap_setnonblock(capture_.get(), 1, why) != 0) return;
    for (int left = kLongestRest; left > 0; --left) {
      if (pcap_next_ex(capture_.get(), &header, &bytes) != 1) break;
      take(*header, bytes);
    }
    count();
  }

  void take(const pcap_pkthdr& header, const unsigned char* bytes) {
    const std::string_view frame(reinterpret_cast<const char*>(bytes), header.caplen);
    auto message = datagramInFrame(pcap_datalink(capture_.get()), frame);
    if (!message) return;
    message->time = header.ts.tv_sec * kNanosecondsASecond + header.ts.tv_usec;
    queue_.add(std::move(*message));
  }

  void count() {
    pcap_stat statistics{};
    if (pcap_stats(capture_.get(), &statistics) == 0) queue_.systemDropped(statistics.ps_drop);
  }

  Handle capture_;
  Hearing hearing_;
  CaptureQueue& queue_;
  std::atomic<bool> isEnding_{false};
  std::thread thread_;
};

}  // namespace

Result<std::unique_ptr<iCaptureSource>> capturePackets(const Hearing& hearing,
                                                       CaptureQueue& queue) {
  auto capture = openCapture(hearing);
  if (!capture) return capture.error();
  return std::unique_ptr<iCaptureSource>(
      std::make_unique<PacketCapture>(std::move(*capture), hearing, queue));
}

Result<std::unique_ptr<iCaptureSource>> openEar(const Hearing& hearing, CaptureQueue& queue) {
  if (hearing.onlyCaptures) return capturePackets(hearing, queue);
  auto shared = sharePort(hearing, queue);
  if (shared || shared.error().code != ErrorCode::eHeld) return shared;
  auto captured = capturePackets(hearing, queue);
  if (captured) return captured;
  return Error{captured.error().code,
               "port " + std::to_string(hearing.port) +
                   " is held by a program that does not share it, and " + captured.error().message,
               {}};
}

}  // namespace korvel
