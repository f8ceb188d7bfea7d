#include "tools/mesh/Mesh.h"

#include <algorithm>

#include "station/base/Json.h"

namespace korvel {

namespace {

/// How far the clocks of two machines may differ, and how late a list may be, in seconds.
constexpr long kTolerance = 10;

/// One that has sent for so long after it was heard last is no longer heard.
constexpr long kLostAfter = 15;

std::vector<Ipv4> addressesOf(const JsonValue& list) {
  std::vector<Ipv4> addresses;
  for (const JsonValue& each : list.elements()) {
    if (const auto address = parseIpv4(each.asString())) addresses.push_back(*address);
  }
  return addresses;
}

std::vector<HeardSender> sendersOf(const JsonValue& list) {
  std::vector<HeardSender> senders;
  for (const JsonValue& each : list.elements()) {
    const auto address = parseIpv4(each["address"].asString());
    if (!address) continue;
    senders.push_back({*address, static_cast<int>(each["port"].asLong()), each["count"].asLong(),
                       each["last"].asLong()});
  }
  return senders;
}

bool isFrom(const HeardSender& sender, const HeardFile& file) {
  return sender.port == file.sendsFrom && file.sendsFrom != 0 &&
         std::ranges::find(file.addresses, sender.address) != file.addresses.end();
}

/// When the listener heard the sender last; 0 for never.
long lastHeard(const HeardFile& listener, const HeardFile& sender) {
  long last = 0;
  for (const HeardSender& each : listener.heard) {
    if (isFrom(each, sender)) last = std::max(last, each.last);
  }
  return last;
}

Finding named(const char* check, Finding finding) {
  finding.group = "mesh";
  finding.check = check;
  return finding;
}

Finding oneWay(const HeardFile& hearing, const HeardFile& deaf) {
  const std::string port = std::to_string(deaf.port);
  return named("one way",
               fail(hearing.station + " hears " + deaf.station + ", but " + deaf.station +
                        " does not hear " + hearing.station,
                    "most likely a firewall on " + deaf.host + " drops what comes in to UDP port " +
                        port + " (there: ufw allow " + port + "/udp), or one on " + hearing.host +
                        " drops what goes out; kv-share doctor DIR --with " + hearing.host +
                        " on " + deaf.host + " proves it"));
}

Finding noWay(const HeardFile& one, const HeardFile& other) {
  const std::string text = one.station + " and " + other.station + " do not hear each other";
  if (one.port != other.port) {
    return named("no way", fail(text + ": they use ports " + std::to_string(one.port) + " and " +
                                    std::to_string(other.port),
                                "set one port on every station (shared_projects_udp_port)"));
  }
  return named("no way",
               fail(text,
                    "most likely they are in different networks, which broadcasts do not "
                    "cross: name each other with --send-to; else see the firewalls of both"));
}

Finding strangersOf(const HeardFile& file) {
  return named("strangers",
               warn(file.station + " heard " + std::to_string(file.strangers) +
                        " senders more than its list holds: whom it does not hear cannot be told",
                    "somebody sends under many addresses or ports; kv-share monitor on " +
                        file.host + " shows who, and accept_networks keeps strangers out"));
}

/// What is wrong between two programs, if anything.
void judgePair(const HeardFile& one, const HeardFile& other, Findings& findings) {
  const MeshLink there = linkOf(one, other);
  const MeshLink back = linkOf(other, one);
  if (there == MeshLink::eDeaf && back == MeshLink::eDeaf) {
    findings.push_back(noWay(one, other));
  } else if (there == MeshLink::eDeaf && back == MeshLink::eHears) {
    findings.push_back(oneWay(other, one));
  } else if (back == MeshLink::eDeaf && there == MeshLink::eHears) {
    findings.push_back(oneWay(one, other));
  } else if (there == MeshLink::eDeaf || back == MeshLink::eDeaf) {
    const HeardFile& deaf = there == MeshLink::eDeaf ? one : other;
    const HeardFile& sender = there == MeshLink::eDeaf ? other : one;
    findings.push_back(
        named("deaf", fail(deaf.station + " does not hear " + sender.station,
                           "see whether a firewall on " + deaf.host + " drops UDP port " +
                               std::to_string(deaf.port) + ", and that both are in one network")));
  }
}

}  // namespace

Result<HeardFile> readHeardFile(const std::string& text, long age) {
  const auto json = parseJson(text);
  if (!json) return json.error();
  if ((*json)["station"].asString().empty() || !(*json)["heard"].isArray()) {
    return Error{ErrorCode::eBadContent, "it is no list of heard stations.", {}};
  }
  HeardFile file;
  file.station = (*json)["station"].asString();
  file.host = (*json)["host"].asString();
  file.port = static_cast<int>((*json)["port"].asLong());
  file.sendsFrom = static_cast<int>((*json)["sends_from"].asLong());
  file.addresses = addressesOf((*json)["addresses"]);
  file.since = (*json)["since"].asLong();
  file.written = (*json)["written"].asLong();
  file.lastSent = (*json)["sent_earlier"].asLong();
  file.age = age;
  file.strangers = (*json)["strangers"].asLong();
  file.heard = sendersOf((*json)["heard"]);
  return file;
}

MeshLink linkOf(const HeardFile& listener, const HeardFile& sender) {
  const long last = lastHeard(listener, sender);
  const bool couldHear = sender.lastSent > listener.since + kTolerance &&
                         sender.lastSent + kTolerance < listener.written;
  if (last != 0) {
    return couldHear && sender.lastSent > last + kLostAfter ? MeshLink::eDeaf : MeshLink::eHears;
  }
  // A list that forgot senders does not prove that one of them was never heard.
  return couldHear && listener.strangers == 0 ? MeshLink::eDeaf : MeshLink::eQuiet;
}

Findings judgeMesh(const std::vector<HeardFile>& files) {
  Findings findings;
  for (std::size_t one = 0; one < files.size(); ++one) {
    const HeardFile& file = files[one];
    if (!file.isFresh()) {
      findings.push_back(
          named("list", warn(file.station + "'s list was written " + std::to_string(file.age) +
                                 " s ago: it has ended, or cannot reach the folder",
                             "see whether it runs; the list of one that is gone for good may be "
                             "removed")));
      continue;
    }
    if (file.strangers > 0) findings.push_back(strangersOf(file));
    for (std::size_t other = one + 1; other < files.size(); ++other) {
      if (files[other].isFresh()) judgePair(file, files[other], findings);
    }
  }
  return findings;
}

const HeardFile* ownerOf(const HeardSender& sender, const std::vector<HeardFile>& files) {
  for (const HeardFile& file : files) {
    if (isFrom(sender, file)) return &file;
  }
  return nullptr;
}

}  // namespace korvel
