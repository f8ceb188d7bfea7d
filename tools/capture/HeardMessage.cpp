#include "tools/capture/HeardMessage.h"

#include <pcap/dlt.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "host/base/Cookie.h"
#include "station/base/Strings.h"
#include "tools/locks/LockList.h"
#include "tools/wire/MessageReport.h"

namespace korvel {

namespace {

constexpr std::size_t kIpv4Header = 20;
constexpr std::size_t kUdpHeader = 8;
constexpr unsigned kUdp = 17;
constexpr unsigned kIpv4Frame = 0x0800;
constexpr unsigned kFragmentBits = 0x3FFF;  // the flag "more fragments", and the offset
constexpr int kRawInFiles = 101;            // the number of DLT_RAW in files

unsigned byteAt(std::string_view bytes, std::size_t at) {
  return static_cast<unsigned char>(bytes[at]);
}

unsigned number16(std::string_view bytes, std::size_t at) {
  return byteAt(bytes, at) << 8 | byteAt(bytes, at + 1);
}

Ipv4 addressAt(std::string_view bytes, std::size_t at) {
  return {number16(bytes, at) << 16 | number16(bytes, at + 2)};
}

std::string_view withoutFirst(std::string_view bytes, std::size_t count) {
  return bytes.size() < count ? std::string_view() : bytes.substr(count);
}

/// The IPv4 packet of an Ethernet frame. Each tag of a virtual network puts four more bytes before
/// the type.
std::string_view inEthernet(std::string_view frame) {
  std::size_t at = 12;
  for (; frame.size() >= at + 2; at += 4) {
    const unsigned type = number16(frame, at);
    if (type == kIpv4Frame) return frame.substr(at + 2);
    if (type != 0x8100 && type != 0x88A8) break;
  }
  return {};
}

std::string_view inCooked(std::string_view frame, std::size_t protocolAt, std::size_t header) {
  if (frame.size() < header || number16(frame, protocolAt) != kIpv4Frame) return {};
  return frame.substr(header);
}

/// The IPv4 packet in a frame. Empty without one, or without its whole header.
std::string_view packetIn(int linkType, std::string_view frame) {
  std::string_view packet;
  switch (linkType) {
    case DLT_NULL:
    case DLT_LOOP:
      // The family's number depends on the capturing system. The version in the packet tells IPv4.
      packet = withoutFirst(frame, 4);
      break;
    case DLT_EN10MB:
      packet = inEthernet(frame);
      break;
    case DLT_RAW:
    case kRawInFiles:
    case DLT_IPV4:
      packet = frame;
      break;
    case DLT_LINUX_SLL:
      packet = inCooked(frame, 14, 16);
      break;
    case DLT_LINUX_SLL2:
      packet = inCooked(frame, 0, 20);
      break;
    default:
      break;
  }
  return packet.size() >= kIpv4Header && byteAt(packet, 0) >> 4 == 4 ? packet : std::string_view();
}

void put16(std::string& packet, unsigned number) {
  packet += static_cast<char>(number >> 8 & 0xFF);
  packet += static_cast<char>(number & 0xFF);
}

void put32(std::string& packet, std::uint32_t number) {
  put16(packet, number >> 16);
  put16(packet, number & 0xFFFF);
}

/// The checksum of an IPv4 header. Tools report packets whose checksum is wrong.
unsigned checksumOf(std::string_view header) {
  unsigned sum = 0;
  for (std::size_t at = 0; at + 1 < header.size(); at += 2) sum += number16(header, at);
  while (sum >> 16) sum = (sum & 0xFFFF) + (sum >> 16);
  return ~sum & 0xFFFF;
}

}  // namespace

bool isKnownLink(int linkType) {
  constexpr std::array kKnown{DLT_NULL, DLT_EN10MB,    DLT_RAW,  kRawInFiles,
                              DLT_LOOP, DLT_LINUX_SLL, DLT_IPV4, DLT_LINUX_SLL2};
  return std::find(kKnown.begin(), kKnown.end(), linkType) != kKnown.end();
}

std::optional<HeardMessage> datagramInFrame(int linkType, std::string_view frame) {
  const std::string_view packet = packetIn(linkType, frame);
  if (packet.empty() || byteAt(packet, 9) != kUdp || isFragment(linkType, frame)) return {};
  const std::size_t header = (byteAt(packet, 0) & 0xF) * 4u;
  if (header < kIpv4Header || packet.size() < header + kUdpHeader) return {};
  const std::string_view datagram = packet.substr(header);
  // The datagram's own size counts: Ethernet fills short frames up.
  const std::size_t size = number16(datagram, 4);
  if (size < kUdpHeader || datagram.size() < size) return {};
  HeardMessage message;
  message.sender = addressAt(packet, 12);
  message.target = addressAt(packet, 16);
  message.senderPort = static_cast<std::uint16_t>(number16(datagram, 0));
  message.port = static_cast<std::uint16_t>(number16(datagram, 2));
  message.bytes = datagram.substr(kUdpHeader, size - kUdpHeader);
  return message;
}

bool isFragment(int linkType, std::string_view frame) {
  const std::string_view packet = packetIn(linkType, frame);
  return !packet.empty() && (number16(packet, 6) & kFragmentBits) != 0;
}

std::string ipv4PacketOf(const HeardMessage& message) {
  const auto size = static_cast<unsigned>(kUdpHeader + message.bytes.size());
  std::string packet{'\x45', '\0'};  // version 4, a header of five words
  put16(packet, static_cast<unsigned>(kIpv4Header) + size);
  put32(packet, 0);  // neither numbered nor in fragments
  packet += '\x40';  // hops to live
  packet += static_cast<char>(kUdp);
  put16(packet, 0);
  put32(packet, message.sender.value);
  put32(packet, message.target.value);
  const unsigned sum = checksumOf(packet);
  packet[10] = static_cast<char>(sum >> 8);
  packet[11] = static_cast<char>(sum & 0xFF);
  put16(packet, message.senderPort);
  put16(packet, message.port);
  put16(packet, size);
  put16(packet, 0);  // 0 means no checksum, which UDP over IPv4 allows
  return packet + message.bytes;
}

namespace {

Error refusal(const std::string& what) { return {ErrorCode::eUsage, what, {}}; }

}  // namespace

void declareFilter(CommandOptions& options, FilterWords& filter) {
  options.list("--type", "TYPE[,TYPE]", filter.types,
               "Only these: numbers, or names like edit-saved");
  options.list("--project", "COOKIE[,COOKIE]", filter.projects, "Only those of these projects");
  options.list("--user", "USER[,USER]", filter.users, "Only those from, for or about these users");
  options.list("--sender", "ADDR[,ADDR]", filter.senders,
               "Only those of these: addresses, address:port, or networks like 10.0.0.0/8");
}

Result<MessageFilter> MessageFilter::of(const FilterWords& words) {
  MessageFilter filter;
  if (auto read = filter.readTypes(words.types); !read) return read.error();
  if (auto read = filter.readProjects(words.projects); !read) return read.error();
  if (auto read = filter.readSenders(words.senders); !read) return read.error();
  for (const std::string& user : words.users) filter.users_.insert(upperCased(user));
  return filter;
}

bool MessageFilter::takes(const HeardMessage& message, const MessageFields& fields) {
  // Asked first: it learns senders of a user also from messages that the other filters leave out.
  const bool isOfUsers = users_.empty() || isOfUser(message, fields);
  return isOfUsers && isOfType(fields) &&
         (projects_.empty() || projects_.contains(fields.project)) &&
         (senders_.empty() || isFrom(message));
}

Result<void> MessageFilter::readTypes(const std::vector<std::string>& words) {
  for (const std::string& word : words) {
    if (word == kNotValid || word == kUnknownType) {
      states_.insert(word);
      continue;
    }
    const auto type = messageTypeOf(word);
    if (!type) return refusal(noSuchMessageType(word));
    types_.insert(*type);
  }
  return {};
}

Result<void> MessageFilter::readProjects(const std::vector<std::string>& words) {
  for (const std::string& word : words) {
    const Cookie cookie(word.c_str(), false);
    if (cookie.isNull()) {
      return refusal(inQuotes(word) + " is no cookie; kv-share locks shows those of projects");
    }
    projects_.insert(cookie.asString().str());
  }
  return {};
}

Result<void> MessageFilter::readSenders(const std::vector<std::string>& words) {
  for (const std::string& word : words) {
    const auto colon = word.find(':');
    Sender sender;
    const auto network = parseIpv4Network(word.substr(0, colon));
    bool isSender = network.has_value();
    if (network) sender.network = *network;
    if (colon != word.npos) {
      const char* const end = word.data() + word.size();
      const auto read = std::from_chars(word.data() + colon + 1, end, sender.port);
      isSender = isSender && read.ec == std::errc() && read.ptr == end && sender.port > 0;
    }
    if (!isSender) {
      return refusal(inQuotes(word) +
                     " is no sender: give an address, an address:port or a network like "
                     "192.168.1.0/24");
    }
    senders_.push_back(sender);
  }
  return {};
}

bool MessageFilter::isOfType(const MessageFields& fields) const {
  if (types_.empty() && states_.empty()) return true;
  return types_.contains(fields.type) || states_.contains(fields.typeName) ||
         (!fields.valid && states_.contains(kNotValid));
}

bool MessageFilter::isOfUser(const HeardMessage& message, const MessageFields& fields) {
  const bool isSource = users_.contains(upperCased(fields.source));
  // Many messages name no user. Address and port stand for the sender from now on.
  if (isSource) known_.insert(senderText(message));
  const MessageType* const type = messageType(fields.type);
  const bool namesOwner = type && type->has(kOwnerField);
  return isSource || users_.contains(upperCased(fields.target)) ||
         (namesOwner && users_.contains(upperCased(fields.data))) ||
         known_.contains(senderText(message));
}

bool MessageFilter::isFrom(const HeardMessage& message) const {
  return std::any_of(senders_.begin(), senders_.end(), [&](const Sender& sender) {
    return sender.network.contains(message.sender) &&
           (sender.port == 0 || sender.port == message.senderPort);
  });
}

}  // namespace korvel
