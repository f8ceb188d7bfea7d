#include <iostream>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "ProjectShare/NetMessage.h"
#include "app/base/OptionTable.h"
#include "host/project/iProjectShare.h"
#include "station/base/Events.h"
#include "station/base/HostThread.h"
#include "station/base/Log.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/net/NetworkService.h"
#include "station/project/Projects.h"
#include "station/seal/KeyRing.h"
#include "station/seal/Seals.h"
#include "station/wire/MessageTable.h"
#include "tools/base/CommandLine.h"
#include "tools/wire/MessageReport.h"

namespace korvel {

namespace {

struct SendRequest {
  std::string type;
  std::optional<std::string> project;
  std::optional<std::string> cookie;
  std::optional<std::string> target;
  std::optional<std::string> data;
  std::string source = loginName();
  int port = kDefaultPort;
  std::vector<std::string> sendTo;
  std::optional<std::string> keys;
};

/// Stands in for a station's project share: a message takes its source field from there. Knows the
/// name of the user, and holds nothing.
class NamedSender : public iProjectShare {
 public:
  explicit NamedSender(const std::string& user)
      : iProjectShare("kv-share"), user_(wideText(user)) {}

  LightweightString<wchar_t> getCurrentUser() override { return user_; }

  [[nodiscard]] bool canManageCurrentProjectSpace() const override { return false; }
  LightweightString<wchar_t> getProjectLockFile(const Cookie&) override { return {}; }
  bool isProjectOccupied(const Cookie&) override { return false; }
  bool lockProject(const Cookie&) override { return false; }
  bool unlockCurrentlyLockedProject() override { return false; }
  LightweightString<wchar_t> getProjectLockOwner(const Cookie&) override { return {}; }
  bool isRoomOccupied(const LightweightString<wchar_t>&) override { return false; }
  bool lockRoom(const LightweightString<wchar_t>&) override { return false; }
  void unlockCurrentRoom() override {}
  LightweightString<wchar_t> getRoomLockOwner(const LightweightString<wchar_t>&) override {
    return {};
  }
  std::uint32_t getNumActiveUsers() override { return 0; }

 private:
  LightweightString<wchar_t> user_;
};

/// Notes whether the datagram has left, and reports network problems to the user.
class SendEvents : public iStationEvents {
 public:
  SendEvents() { installEvents(this); }
  SendEvents(const SendEvents&) = delete;
  SendEvents& operator=(const SendEvents&) = delete;
  ~SendEvents() override { installEvents(nullptr); }

  [[nodiscard]] bool hasLeft() const { return hasLeft_; }

  void sent(const std::string&) override { hasLeft_ = true; }
  void network(const std::string& problem, std::uint64_t) override {
    toolProblem(eToolFinding, problem);
  }
  void received(const std::string&, const MessageFields&) override {}
  void changed(const std::string&, const Cookie&, const std::string&, Origin) override {}
  void log(bool, const std::string&) override {}
  void command(const std::string&) override {}
  void notification(const std::string&) override {}
  void panel(const std::vector<std::string>&) override {}

 private:
  bool hasLeft_ = false;
};

/// The fields of a message, each as the user gives it; types without a row have an object.
std::span<const WireField* const> fieldsOf(int type) {
  static constexpr const WireField* kObject[] = {&kCookieField};
  const MessageType* const row = messageType(type);
  return row ? row->fields() : std::span<const WireField* const>(kObject);
}

/// Whether the request has what goes into a field.
bool has(const SendRequest& request, const WireField& field) {
  if (!field.option) return true;
  const std::string_view option(field.option);
  if (option == "--cookie") return request.cookie.has_value();
  if (option == "--target") return request.target.has_value();
  return request.data.has_value();
}

/// What is wrong with the request; empty when nothing is.
std::string objectionTo(const SendRequest& request, int type) {
  for (const WireField* const field : fieldsOf(type)) {
    if (has(request, *field)) continue;
    return std::string(messageTypeName(type)) + " needs " + field->option + ", " + field->meaning;
  }
  for (const auto& text : {request.project.value_or(""), request.cookie.value_or("")}) {
    if (!text.empty() && Cookie(text.c_str(), false).isNull()) {
      return inQuotes(text) + " is no cookie: a cookie is a letter and hex digits, like P0001";
    }
  }
  for (const auto& word : request.sendTo) {
    if (!parseIpv4(word)) return "--send-to names " + inQuotes(word) + ", which is no IPv4 address";
  }
  return {};
}

NetMessage recordOf(const SendRequest& request, int type) {
  const auto kind = static_cast<NetMessage::Type>(type);
  const Cookie cookie(request.cookie.value_or("").c_str(), false);
  const auto data = hostText(request.data.value_or(""));
  const auto target = hostText(request.target.value_or(""));
  switch (kind) {
    case NetMessage::eEditModification:
      return NetMessage(cookie, EditModification(data));
    case NetMessage::eContainerModification:
      return NetMessage(cookie, ContainerModification(data));
    case NetMessage::eFilterModification: {
      NetMessage message(kind, cookie);
      message.containerModification = ContainerModification(data);
      return message;
    }
    case NetMessage::eAddMaterial:
    case NetMessage::eRemoveMaterial:
      return NetMessage(kind, data);
    case NetMessage::eUserMessage:
    case NetMessage::eActionRequest:
      return NetMessage(kind, target, data);
    case NetMessage::eBinTransfer:
    case NetMessage::eClipTransfer:
      return NetMessage(kind, target, cookie);
    default:
      return NetMessage(kind, cookie, data);
  }
}

/// The datagram, written by the record that stations write it with.
std::string datagramOf(const SendRequest& request, int type) {
  const Projects noneOpen;
  const NamedSender sender(request.source);
  NetMessage message = recordOf(request, type);
  message.projectCookie = Cookie(request.project.value_or("").c_str(), false);
  return utf8Text(message.asString());
}

/// What seals the message: nothing where no key is asked for, or the share has none.
Result<std::shared_ptr<Seals>> sealsFor(const SendRequest& request) {
  if (!request.keys) return std::shared_ptr<Seals>();
  auto ring = KeyRing::read(*request.keys);
  if (!ring) return ring.error();
  if (!ring->used()) {
    std::cerr << "warning: " << shownText(*request.keys)
              << " has no key in use, so the message is not sealed\n";
    return std::shared_ptr<Seals>();
  }
  // The same sender as a station of this user here, so that nobody is taken for an impostor.
  const std::string host = machineHostName();
  const auto sender = Seals::senderOf(request.source, host, machineNumberFor(host));
  return std::make_shared<Seals>(SealPolicy::eAccept, std::move(*ring), sender);
}

ToolStatus sendDatagram(const SendRequest& request, const std::string& datagram, int type) {
  const auto seals = sealsFor(request);
  if (!seals) return toolProblem(eToolFinding, seals.error().message);
  SendEvents events;
  StationSettings with;
  with.sendTo = request.sendTo;
  installSettings(with);
  HostThread hostThread;
  NetworkService network(hostThread);
  network.sealBy(*seals);
  network.createUDPBroadcaster(request.port)->broadcast(hostText(datagram));
  if (!events.hasLeft()) return eToolFinding;
  std::cout << "sent " << messageTypeName(type) << " (" << type << "), " << datagram.size()
            << " bytes" << (*seals ? " and a seal" : "") << ", to "
            << (request.sendTo.empty() ? "every network of this machine"
                                       : joined(request.sendTo, ", "))
            << ", port " << request.port << '\n';
  return eToolDone;
}

ToolStatus send(const SendRequest& request) {
  const auto type = messageTypeOf(request.type);
  if (!type) return toolProblem(eToolUsage, noSuchMessageType(request.type));
  const std::string objection = objectionTo(request, *type);
  if (!objection.empty()) return toolProblem(eToolUsage, objection);
  // Standard output is for the result alone.
  setDiagnosticStream(stderr);
  const std::string datagram = datagramOf(request, *type);
  for (const auto& warning : warningsAbout(datagram)) std::cerr << "warning: " << warning << '\n';
  return sendDatagram(request, datagram, *type);
}

void declare(CommandOptions& options, SendRequest& request) {
  options.word("TYPE", request.type, "A number, or a name like edit-saved");
  options.offer(messageTypeNames());
  options.text("--project", "COOKIE", request.project, "The sender's open project");
  options.text("--cookie", "COOKIE", request.cookie, "The object concerned");
  options.text("--target", "USER", request.target, "The user (or <All>) or machine it is for");
  options.text("--data", "TEXT", request.data,
               "The text: permissions, path, words, command, change or container value");
  options.text("--source", "USER", request.source, "The sender's name; the login name by default");
  options.number("--port", "N", request.port, 1, 65535, "The stations' UDP port");
  options.list("--send-to", "ADDR[,ADDR]", request.sendTo,
               "IPv4 addresses; all networks by default");
  options.text(
      "--keys", "DIR", request.keys,
      "The projects directory with whose key the message is sealed; else it bears no seal");
}

}  // namespace

void addSendCommand(CommandLine& line) {
  line.add<SendRequest>({"send", "Send one message to the stations", declare, send});
}

}  // namespace korvel
