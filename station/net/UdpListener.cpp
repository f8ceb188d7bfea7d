#include "station/net/UdpListener.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <sstream>
#include <string>
#include <utility>

#include "station/base/HostThread.h"
#include "station/base/Log.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/net/UdpBroadcaster.h"
#include "station/wire/MessageTable.h"

namespace korvel {

namespace {

/// Beyond this many refused senders no further one is reported: addresses can be forged without
/// end.
constexpr std::size_t kMaxTold = 256;

std::string nameOf(const DeliveryLanes::Source& source) {
  if (source.address == Ipv4{}) return "sources that are too many to be told apart";
  return textOf(source.address) +
         (source.port == 0 ? std::string() : " port " + std::to_string(source.port));
}

std::string withoutBlanks(std::string word) {
  std::erase_if(word, [](char letter) { return letter == ' ' || letter == '\t'; });
  return word;
}

}  // namespace

AcceptedNetworks::AcceptedNetworks(const std::string& configured) {
  std::istringstream words(configured);
  for (std::string word; std::getline(words, word, ',');) {
    word = withoutBlanks(word);
    if (word.empty()) continue;
    // Also for a word that is no network: a typing error must not open the station to everyone.
    takesAll_ = false;
    if (const auto network = parseIpv4Network(word)) {
      networks_.push_back(*network);
    } else {
      tellNetworkProblem("accept_networks names " + inQuotes(word) +
                         ", which is no network: write it like 192.168.1.0/24");
    }
  }
}

bool AcceptedNetworks::accepts(Ipv4 sender) {
  if (takesAll_) return true;
  const bool accepted = std::any_of(networks_.begin(), networks_.end(),
                                    [&](const auto& network) { return network.contains(sender); });
  if (!accepted) tellOnce(sender);
  return accepted;
}

void AcceptedNetworks::tellOnce(Ipv4 sender) {
  if (told_.size() >= kMaxTold || !told_.insert(sender).second) return;
  const std::string problem = "a sender refused: datagrams from " + textOf(sender) +
                              " are not taken, since accept_networks does not name its network";
  tellNetworkProblem(problem);
  events().audit("refused", {{"problem", problem}});
}

namespace {

std::string trimmed(const std::string& word) {
  const std::size_t first = word.find_first_not_of(" \t");
  if (first == word.npos) return {};
  return word.substr(first, word.find_last_not_of(" \t") - first + 1);
}

/// A sender as `kv-share decode` shows it: 16 hexadecimal digits.
std::optional<std::uint64_t> senderIn(const std::string& word) {
  constexpr std::size_t kDigits = 16;
  constexpr int kHexadecimal = 16;
  std::uint64_t sender = 0;
  const char* const end = word.data() + word.size();
  const auto read = std::from_chars(word.data(), end, sender, kHexadecimal);
  if (word.size() != kDigits || read.ec != std::errc() || read.ptr != end) return std::nullopt;
  return sender;
}

}  // namespace

AcceptedStations::AcceptedStations(const std::string& configured) {
  std::istringstream words(configured);
  for (std::string word; std::getline(words, word, ',');) {
    word = trimmed(word);
    if (word.empty()) continue;
    takesAll_ = false;
    if (const auto sender = senderIn(word)) senders_.insert(*sender);
    const std::string name = upperCased(word);
    names_.insert(name);
    // A station that was named as usual is heard from its start on, before its note was read.
    for (const std::string& host : {name, word}) {
      senders_.insert(Seals::senderOf(host, host, machineNumberFor(host)));
    }
  }
}

bool AcceptedStations::accepts(const DeliveryLanes::Item& item, const DeliveryHooks& hooks) {
  if (takesAll_ || (item.sender != 0 && senders_.contains(item.sender))) return true;
  const auto names = hooks.namesOf
                         ? hooks.namesOf(item.source.address, item.source.port, item.sender)
                         : std::vector<std::string>();
  const bool isTaken = std::ranges::any_of(
      names, [this](const std::string& name) { return names_.contains(upperCased(name)); });
  // A seal proves the same for as long as the user works there.
  if (isTaken && item.sender != 0) senders_.insert(item.sender);
  if (!isTaken) tellOnce(item, names);
  return isTaken;
}

void AcceptedStations::tellOnce(const DeliveryLanes::Item& item,
                                const std::vector<std::string>& names) {
  const std::string who =
      nameOf(item.source) + (names.empty() ? std::string() : " (" + shownText(names.front()) + ")");
  if (told_.size() >= kMaxTold || !told_.insert(who).second) return;
  const std::string problem = "a station refused: what " + who +
                              " sends is not taken, since accept_stations does not name it";
  tellNetworkProblem(problem);
  events().audit("refused", {{"problem", problem}});
}

namespace {

void tellLoss(std::uint64_t& count, const std::string& why) {
  if (count == 0) return;
  const std::uint64_t lost = std::exchange(count, 0);
  tellNetworkProblem(std::to_string(lost) + (lost == 1 ? " datagram" : " datagrams") + why, lost);
}

constexpr const char* kReadAgain =
    "; what they announced shows when the project is left and entered again";

}  // namespace

void LossReport::wasTooLarge(Time now) {
  note(now);
  ++tooLarge_;
}

void LossReport::systemDropped(std::uint32_t total, Time now) {
  const std::uint32_t more = total - systemTotal_;
  // A count carried by a datagram may be older than the one asked for last.
  if (more == 0 || more > 0x7FFFFFFF) return;
  note(now);
  system_ += more;
  systemTotal_ = total;
}

void LossReport::tellIfOver(Time now) {
  if (!isPending()) return;
  if (now - last_ >= kQuiet || now - first_ >= kLongest) tell();
}

void LossReport::tell() {
  tellLoss(system_, std::string(" dropped by the system, whose buffer was full") + kReadAgain);
  tellLoss(tooLarge_, " dropped, larger than a datagram can be");
}

void LossReport::note(Time now) {
  if (!isPending()) first_ = now;
  last_ = now;
}

namespace {

constexpr auto kBetweenLooksForGroups = std::chrono::milliseconds(5000);
constexpr auto kBetweenJoins = std::chrono::milliseconds(1000);
constexpr int kMillisecondsAfterError = 200;
constexpr int kMillisecondsBetweenTellings = 1000;
constexpr auto kBetweenLines = std::chrono::seconds(1);

/// What a message is to this station: a text shown to its user, a command to be run, or another.
DeliveryLanes::Kind kindOf(std::string_view bytes) {
  const int type = typeOnWire(bytes);
  if (type != MessageType::eUserMessage && type != MessageType::eActionRequest) {
    return DeliveryLanes::Kind::eOther;
  }
  const MessageFields message = readMessage(bytes);
  if (type == MessageType::eActionRequest) {
    const bool isOurs = numberAtStart(message.target) == settings().machine;
    return isOurs ? DeliveryLanes::Kind::eRequest : DeliveryLanes::Kind::eOther;
  }
  const bool isOurs = message.target == kEverybody || message.target == settings().user;
  return isOurs ? DeliveryLanes::Kind::eWords : DeliveryLanes::Kind::eOther;
}

/// Whether it is a message of this protocol: other programs may use the port.
bool isOurs(const Datagram& datagram) {
  static const std::string kStart = std::string(kWireVersion) + kFieldSeparator;
  return datagram.bytes.starts_with(kStart);
}

void tellLoss(const DeliveryLanes::Loss& loss) {
  const auto tell = [&loss](std::uint64_t count, const std::string& why, bool isRefusal = false) {
    if (count == 0) return;
    const std::string problem = std::to_string(count) + (count == 1 ? " datagram" : " datagrams") +
                                " of " + nameOf(loss.source) + " dropped, " + why;
    tellNetworkProblem(problem, count);
    if (isRefusal) events().audit("refused", {{"problem", problem}});
  };
  tell(loss.overLimit,
       "since it sends more than this station takes of one source; see who it is with kv-share "
       "monitor, or raise receive_limit");
  tell(
      loss.unproven,
      "since words without a seal come more often than this station takes of all who seal nothing; "
      "give your own stations the share's key, or raise receive_limit_words");
  tell(
      loss.unsealed,
      "since they are not sealed with the share's key; if a station of yours is there, see that it "
      "reads the projects directory and that its clock is right",
      true);
  tell(loss.forged, "since their seal is not right: somebody there pretends to be a station", true);
  tell(loss.noRoom,
       "by this station's full queue; what they announced shows when the project is left and "
       "entered again");
}

}  // namespace

UdpListener::DeliveryTarget::DeliveryTarget(iNetMessageReceiver* receiver,
                                            const Dependencies& surroundings)
    : taker(std::make_shared<Taker>()),
      hostThread(surroundings.hostThread),
      seals(surroundings.seals),
      hooks(surroundings.hooks),
      lanes(surroundings.limits),
      stations(surroundings.stations) {
  taker->receiver = receiver;
  const auto deliver = [to = taker, delivered = hooks.delivered](const ReceivedMessage& message,
                                                                 AwaitedFiles::Waited waited) {
    if (!to->isOpen) return;
    if (waited == AwaitedFiles::Waited::eYes) {
      deliverAfterWait(*to->receiver, message);
    } else {
      deliverMessage(*to->receiver, message);
    }
    if (delivered) delivered(message);
  };
  awaited = std::make_shared<AwaitedFiles>(hostThread, hooks.judge, deliver);
}

UdpListener::UdpListener(ListenerSocket socket, Dependencies surroundings,
                         iNetMessageReceiver* receiver)
    : socket_(std::move(socket)),
      surroundings_(std::move(surroundings)),
      outlet_(std::make_shared<DeliveryTarget>(receiver, surroundings_)),
      drops_(socket_.bufferBytes()),
      turn_(ReadingTurn::patienceFor(socket_.bufferBytes())) {
  followInterfaces();
  thread_ = threadWithoutSignals([this] { drain(); });
  surroundings_.hostThread.waitFor(*this);
}

UdpListener::~UdpListener() {
  // First: deliveries that are queued on the host thread must find the receiver closed.
  outlet_->taker->isOpen = false;
  surroundings_.hostThread.waitNoMoreFor(*this);
  isEnding_ = true;
  turn_.wakeReader();
  thread_.join();
}

void UdpListener::queueDelivery(const std::shared_ptr<DeliveryTarget>& outlet) {
  // One queued task at most, however many messages wait: the host thread's queue stays short.
  if (outlet->isDue.exchange(true)) return;
  if (!outlet->hostThread.postDelivery([outlet] { deliverNext(outlet); }, 0)) outlet->isDue = false;
}

// One message a task, so that other tasks of the host thread get their turn in between.
void UdpListener::deliverNext(const std::shared_ptr<DeliveryTarget>& outlet) {
  outlet->isDue = false;
  if (!outlet->taker->isOpen) return;
  auto item = outlet->lanes.next();
  if (!item) return;
  queueDelivery(outlet);
  if (!outlet->stations.accepts(*item, outlet->hooks)) return;
  ReceivedMessage message = receivedMessage(std::move(item->bytes));
  message.arrived = item->arrived;
  message.from = textOf(item->source.address) + ":" + std::to_string(item->source.port);
  if (outlet->seals) judgeSender(*outlet, *item, message);
  if (outlet->hooks.userAt) {
    std::string user = outlet->hooks.userAt(item->source.address, item->source.port);
    if (!user.empty()) message.by = std::move(user);
  }
  outlet->awaited->take(item->source, std::move(message));
  tellLeftOutLines(outlet);
}

void UdpListener::judgeSender(DeliveryTarget& outlet, const DeliveryLanes::Item& item,
                              ReceivedMessage& message) {
  // Where there is no key nobody could have sealed anything.
  if (!outlet.seals->marksUnsealed()) return;
  if (!item.source.isSealed) message.markUnverified();
  const std::string alarm = outlet.impostors.note(message.fields.source, item.sender);
  if (alarm.empty()) return;
  tellNetworkProblem(alarm);
  events().audit("refused", {{"problem", alarm}});
}

void UdpListener::tellLeftOutLines(const std::shared_ptr<DeliveryTarget>& outlet) {
  if (!hasLeftOutLines() || outlet->tellsLines.exchange(true)) return;
  outlet->hostThread.postAfter(kBetweenLines, [outlet] {
    outlet->tellsLines = false;
    if (!outlet->taker->isOpen) return;
    logLeftOutLines(LeftOutLines::eOfQuietSources);
    tellLeftOutLines(outlet);
  });
}

int UdpListener::beginWait() {
  return turn_.beginWait(std::chrono::steady_clock::now()) ? socket_.descriptor() : -1;
}

void UdpListener::endWait(bool isReadable) {
  // One batch: what is done with it comes before the next.
  if (isReadable) takeBatch();
  turn_.endWait(std::chrono::steady_clock::now(), isReadable && needsReader());
}

bool UdpListener::needsReader() const {
  return toldError_ != 0 || losses_.isPending() || outlet_->lanes.hasLosses();
}

void UdpListener::drain() {
  bool reads = true;
  while (!isEnding_) {
    if (reads) {
      takeWhatIsThere();
      tellLosses(std::chrono::steady_clock::now());
    }
    waitForMore(reads);
    followInterfaces();
    const auto turn = turn_.next(std::chrono::steady_clock::now(), reads && !needsReader());
    reads = turn == ReadingTurn::Reader::eReads;
    if (turn == ReadingTurn::Reader::eGaveBack) surroundings_.hostThread.post([] {});
  }
  losses_.tell();
  for (const auto& loss : outlet_->lanes.allLosses()) tellLoss(loss);
  logLeftOutLines(LeftOutLines::eAll);
}

void UdpListener::takeWhatIsThere() {
  while (!isEnding_ && takeBatch()) {
  }
}

bool UdpListener::takeBatch() {
  // Asked for before: what is sent while the batch is taken is counted by later datagrams.
  const std::uint32_t deliveredBefore = surroundings_.ownSender->delivered();
  const int result = reader_.read(socket_.descriptor());
  const auto count = static_cast<std::size_t>(std::max(result, 0));
  const bool isEmptied = count < DatagramReader::kBatch;
  const auto now = std::chrono::steady_clock::now();
  datagramsRead_ += count;
  std::size_t bytes = 0;
  for (std::size_t index = 0; index < count; ++index) {
    const Datagram datagram = reader_.at(index);
    bytes += datagram.bytes.size();
    if (reader_.wasCut(index)) {
      losses_.wasTooLarge(now);
    } else {
      take(datagram, now);
    }
  }
  drops_.wasRead(count, bytes);
  noteDrops(now, isEmptied);
  if (isEmptied) drops_.wasEmptied(deliveredBefore);
  losses_.tellIfOver(now);
  if (isEmptied) tellBrokenRead(std::max(-result, 0));
  return !isEmptied;
}

void UdpListener::noteDrops(LossReport::Time now, bool isEmptied) {
  // The count that datagrams carry is that of the time when they came. Asking takes a call, and so
  // is left for the end of a flood.
  const bool isToBeAsked = isEmptied && drops_.mayHaveBeenFull();
  const auto total = isToBeAsked ? socket_.droppedBySystem() : reader_.droppedBySystem();
  const std::uint32_t sent = surroundings_.ownSender->sent();
  losses_.systemDropped(drops_.lost(total, sent), now);
}

void UdpListener::take(Datagram datagram, LossReport::Time now) {
  // A station's own broadcasts come back to it. What it does itself it has shown already.
  if (isOwn(datagram) || !surroundings_.accepted.accepts(datagram.source)) return;
  DeliveryLanes::Source lane = laneOf(datagram);
  const auto sender = passSeal(datagram, lane, now);
  if (!sender) return;
  tellObserver(datagram);
  if (outlet_->lanes.refuseBeyondLimit(lane, now)) return;
  // The sequence number in a seal has told copies apart already.
  if (!lane.isSealed && duplicates_.isDuplicate(datagram, now)) return;
  if (surroundings_.observer && isOurs(datagram)) {
    surroundings_.observer->taken(datagram.source, datagram.port);
  }
  DeliveryLanes::Kind kind = kindOf(datagram.bytes);
  const bool isWords = kind == DeliveryLanes::Kind::eWords;
  if (isWords && !lane.isSealed && surroundings_.seals && surroundings_.seals->marksUnsealed()) {
    kind = DeliveryLanes::Kind::eUnprovenWords;
  }
  const bool isTaken = outlet_->lanes.add(lane, kind, std::string(datagram.bytes), now, *sender);
  if (isTaken) queueDelivery(outlet_);
}

/// Takes the seal off. The sender that it proves, 0 where nothing does; nothing where the datagram
/// is not to be taken.
std::optional<std::uint64_t> UdpListener::passSeal(Datagram& datagram, DeliveryLanes::Source& lane,
                                                   LossReport::Time now) {
  if (!surroundings_.seals) return 0;
  const auto judged = surroundings_.seals->judge(datagram.bytes, millisecondsNow());
  datagram.bytes = judged.text;
  lane.isSealed = judged.verdict == Seals::Verdict::eSealed;
  const bool isForged = judged.verdict == Seals::Verdict::eForged;
  if (isForged || judged.verdict == Seals::Verdict::eRefused) {
    outlet_->lanes.refuse(lane, isForged, now);
  }
  return judged.isTaken() ? std::optional(judged.sender) : std::nullopt;
}

// Programs of this machine share its addresses and are told apart by their ports. All of another
// machine is one source: else a stranger would have a lane for each port.
DeliveryLanes::Source UdpListener::laneOf(const Datagram& datagram) const {
  const bool isHere = surroundings_.interfaces->isOwn(datagram.source);
  return {datagram.source, isHere ? datagram.port : std::uint16_t{0}, false};
}

void UdpListener::tellLosses(LossReport::Time now) {
  if (!outlet_->lanes.hasLosses()) return;
  for (const auto& loss : outlet_->lanes.lossesToTell(now, LossReport::kQuiet)) tellLoss(loss);
}

void UdpListener::tellObserver(const Datagram& datagram) {
  if (!surroundings_.observer || !isOurs(datagram)) return;
  surroundings_.observer->heard(datagram.source, datagram.port);
}

void UdpListener::followInterfaces() {
  const auto now = std::chrono::steady_clock::now();
  if (now < nextLook_) return;
  nextLook_ = now + betweenLooks();
  filter_.follow(socket_, surroundings_.ownSender->port(), surroundings_.interfaces->own());
  joinGroups();
}

void UdpListener::joinGroups() {
  if (surroundings_.groups.empty()) return;
  socket_.join(surroundings_.interfaces->destinations(surroundings_.groups),
               *surroundings_.interfaces);
}

bool UdpListener::isOwn(const Datagram& datagram) {
  const std::uint16_t ownPort = surroundings_.ownSender->port();
  if (datagram.port != ownPort || !surroundings_.interfaces->isOwn(datagram.source)) return false;
  // The system has let it through: this machine has a new address, or refuses filters.
  filter_.follow(socket_, ownPort, surroundings_.interfaces->own());
  return true;
}

int UdpListener::millisecondsToWait() const {
  if (toldError_ != 0 || turn_.alarm() < 0) return kMillisecondsAfterError;
  if (losses_.isPending()) return static_cast<int>(LossReport::kQuiet.count());
  if (outlet_->lanes.hasLosses()) return kMillisecondsBetweenTellings;
  return static_cast<int>(betweenLooks().count());
}

std::chrono::milliseconds UdpListener::betweenLooks() const {
  return surroundings_.groups.empty() ? kBetweenLooksForGroups : kBetweenJoins;
}

void UdpListener::tellBrokenRead(int error) {
  if (error == EAGAIN || error == EINTR) error = 0;
  if (error != 0 && error != toldError_) {
    tellNetworkProblem(std::string("messages cannot be received (") + std::strerror(error) +
                       "): check that the network is connected");
  }
  toldError_ = error;
}

void UdpListener::waitForMore(bool reads) {
  // A socket with an error stays readable, and poll() would return at once again and again. So only
  // the end, or the next try, is waited for.
  const int socket = reads && toldError_ == 0 ? socket_.descriptor() : -1;
  pollfd waitFor[] = {{turn_.alarm(), POLLIN, 0}, {socket, POLLIN, 0}};
  poll(waitFor, 2, reads ? millisecondsToWait() : static_cast<int>(betweenLooks().count()));
  if (waitFor[0].revents != 0) turn_.quietAlarm();
}

}  // namespace korvel
