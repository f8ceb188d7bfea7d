#include "tools/doctor/Check.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iomanip>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <utility>
#include <vector>

namespace korvel {

namespace {

enum class Answer { eNo, eYes, eMaybe };

Answer answerOf(bool isSo) { return isSo ? Answer::eYes : Answer::eNo; }

Answer opposite(Answer answer) {
  if (answer == Answer::eMaybe) return answer;
  return answerOf(answer == Answer::eNo);
}

/// The datagram's value of a field, in all spellings that a rule may use; nothing where it is not
/// known.
using Words = std::optional<std::vector<std::string>>;

std::string wordOf(const JsonValue& value) {
  return value.isNumber() ? value.spelling() : value.asString();
}

Answer isAmong(const std::vector<std::string>& words, const JsonValue& right);

Answer isInList(const std::vector<std::string>& words, const JsonValue& list) {
  Answer answer = Answer::eNo;
  for (const JsonValue& each : list.elements()) {
    const Answer one = isAmong(words, each);
    if (one == Answer::eYes) return one;
    if (one == Answer::eMaybe) answer = one;
  }
  return answer;
}

/// Whether the right side of a comparison, a word, a number, a range or a list, holds one of the
/// words.
Answer isAmong(const std::vector<std::string>& words, const JsonValue& right) {
  if (right.isArray()) return isInList(words, right);
  if (const JsonValue* const set = right.find("set")) return isInList(words, *set);
  if (const JsonValue* const range = right.find("range")) {
    const auto& ends = range->elements();
    const long value = JsonValue::number(words.front()).asLong(-1);
    if (ends.size() != 2 || !ends[0].isNumber() || value < 0) return Answer::eMaybe;
    return answerOf(value >= ends[0].asLong() && value <= ends[1].asLong());
  }
  const std::string wanted = wordOf(right);
  // A named set: its elements are not looked up.
  if (wanted.empty() || wanted.front() == '@') return Answer::eMaybe;
  for (const std::string& word : words) {
    if (word == wanted) return Answer::eYes;
  }
  return Answer::eNo;
}

/// Evaluates the rules for one datagram.
class Evaluation {
 public:
  Evaluation(const JsonValue& ruleset, Way way, int port)
      : items_(ruleset["nftables"].elements()), way_(way), port_(std::to_string(port)) {}

  FirewallRuling rule() {
    for (const JsonValue& item : items_) {
      const JsonValue& chain = item["chain"];
      if (!isOnWay(chain)) continue;
      base_ = &chain;
      mayAccept_ = mayDrop_ = false;
      walked_.clear();
      // Only a drop is final. An accept ends this base chain alone: the datagram goes on to those
      // of a later priority.
      const End end = walk(chain, 0);
      const bool isDropped =
          end == End::eDropped || (end == End::eFell && chain["policy"].asString() == "drop");
      // An earlier rule whose conditions are not understood may have decided the other way.
      const bool isUnsure = isDropped ? mayAccept_ : mayDrop_;
      if (isUnsure && ruling_.passage == Passage::eOpen) ruling_ = rulingOf(Passage::eUnsure);
      if (isDropped && !isUnsure) return rulingOf(Passage::eBlocked);
    }
    return ruling_;
  }

 private:
  enum class End { eFell, eAccepted, eDropped, eReturned };

  // The kernel allows no deeper jumps.
  static constexpr int kDeepest = 16;

  struct Walk {
    End end = End::eFell;
    bool mayAccept = false;
    bool mayDrop = false;
  };

  [[nodiscard]] bool isOnWay(const JsonValue& chain) const {
    const std::string& family = chain["family"].asString();
    const std::string& hook = chain["hook"].asString();
    if (family != "ip" && family != "inet" && family != "netdev" && family != kLegacyFamily) {
      return false;
    }
    // Chains that translate addresses drop nothing.
    if (chain["type"].asString() == "nat") return false;
    return way_ == Way::eIn ? hook == "input" || hook == "prerouting" || hook == "ingress"
                            : hook == "output" || hook == "postrouting" || hook == "egress";
  }

  [[nodiscard]] FirewallRuling rulingOf(Passage passage) const {
    const std::string& family = (*base_)["family"].asString();
    const std::string& table = (*base_)["table"].asString();
    const std::string chain = family + " " + table + " " + (*base_)["name"].asString();
    std::string remedy =
        "nft insert rule " + chain + " udp dport " + port_ + " accept, and keep it over restarts";
    if (family == kLegacyFamily) {
      remedy = "iptables-legacy -I " + (*base_)["name"].asString() + " -p udp --dport " + port_ +
               " -j ACCEPT, and keep it over restarts";
    }
    // These programs write their rules anew: a rule made by nft would be lost.
    if (table == "firewalld") {
      remedy = "firewall-cmd --permanent --add-port=" + port_ +
               "/udp && firewall-cmd --reload, in the zone of the stations' network";
    } else if (hasUfw()) {
      remedy = std::string("ufw allow ") + (way_ == Way::eOut ? "out " : "") + port_ + "/udp";
    }
    return {passage, chain, remedy};
  }

  [[nodiscard]] bool hasUfw() const {
    for (const JsonValue& item : items_) {
      if (item["chain"]["name"].asString().starts_with("ufw-")) return true;
    }
    return false;
  }

  [[nodiscard]] static bool isIn(const JsonValue& rule, const JsonValue& chain,
                                 const std::string& name) {
    return rule["chain"].asString() == name &&
           rule["table"].asString() == chain["table"].asString() &&
           rule["family"].asString() == chain["family"].asString();
  }

  End walk(const JsonValue& chain, int depth) { return walk(chain["name"].asString(), depth); }

  /// The fate of the datagram in a chain. Computed once for each chain: chains that jump to each
  /// other in many ways would take exponential time, and circles would not end.
  End walk(const std::string& name, int depth) {
    if (depth > kDeepest) return End::eFell;
    const auto [known, isNew] = walked_.try_emplace(name);
    if (isNew) {
      const bool couldAccept = std::exchange(mayAccept_, false);
      const bool couldDrop = std::exchange(mayDrop_, false);
      const End end = walkRules(name, depth);
      walked_[name] = {end, mayAccept_, mayDrop_};
      mayAccept_ = mayAccept_ || couldAccept;
      mayDrop_ = mayDrop_ || couldDrop;
      return end;
    }
    mayAccept_ = mayAccept_ || known->second.mayAccept;
    mayDrop_ = mayDrop_ || known->second.mayDrop;
    return known->second.end;
  }

  End walkRules(const std::string& name, int depth) {
    for (const JsonValue& item : items_) {
      const JsonValue& rule = item["rule"];
      if (!rule.isObject() || !isIn(rule, *base_, name)) continue;
      const End end = apply(rule["expr"].elements(), depth);
      if (end == End::eReturned) break;
      if (end != End::eFell) return end;
    }
    return End::eFell;
  }

  /// A rule's parts in order: first its conditions, then its action.
  End apply(const std::vector<JsonValue>& parts, int depth) {
    Answer fits = Answer::eYes;
    for (const JsonValue& part : parts) {
      const Answer one = fitsPart(part);
      if (one == Answer::eNo) return End::eFell;
      if (one == Answer::eMaybe) fits = one;
      const End end = actOf(part, depth);
      if (end == End::eFell) continue;
      if (fits == Answer::eYes) return end;
      (end == End::eDropped ? mayDrop_ : mayAccept_) = true;
      return End::eFell;
    }
    return End::eFell;
  }

  End actOf(const JsonValue& part, int depth) {
    if (part.find("accept")) return End::eAccepted;
    // A queued datagram waits for a program, which may not let it through.
    if (part.find("drop") || part.find("reject") || part.find("queue")) return End::eDropped;
    if (part.find("return")) return End::eReturned;
    if (const JsonValue* const jump = part.find("jump")) {
      return walk((*jump)["target"].asString(), depth + 1);
    }
    if (const JsonValue* const jump = part.find("goto")) {
      // No way back: the rules behind this one are not asked.
      const End end = walk((*jump)["target"].asString(), depth + 1);
      return end == End::eFell ? End::eReturned : end;
    }
    if (const JsonValue* const map = part.find("vmap")) return actOfMap(*map, depth);
    return End::eFell;
  }

  /// A verdict map: the action of the entry that fits the datagram.
  End actOfMap(const JsonValue& map, int depth) {
    const Words words = wordsOf(map["key"]);
    for (const JsonValue& entry : map["data"]["set"].elements()) {
      if (entry.elements().size() != 2) continue;
      const Answer fits = words ? isAmong(*words, entry.elements()[0]) : Answer::eMaybe;
      if (fits == Answer::eNo) continue;
      const End end = actOf(entry.elements()[1], depth);
      if (fits == Answer::eYes) return end;
      if (end == End::eDropped) mayDrop_ = true;
      if (end == End::eAccepted) mayAccept_ = true;
    }
    return End::eFell;
  }

  Answer fitsPart(const JsonValue& part) const {
    // Whether a limit is reached, or what an extension of the old filter asks, is not known here.
    if (part.find("limit") || part.find("xt")) return Answer::eMaybe;
    const JsonValue* const match = part.find("match");
    if (!match) return Answer::eYes;
    if (isOfAnotherProtocol((*match)["left"]["payload"]["protocol"].asString())) {
      return Answer::eNo;
    }
    const Words words = wordsOf((*match)["left"]);
    if (!words) return Answer::eMaybe;
    const Answer answer = isAmong(*words, (*match)["right"]);
    return (*match)["op"].asString() == "!=" ? opposite(answer) : answer;
  }

  static bool isOfAnotherProtocol(const std::string& protocol) {
    for (const char* const other : {"tcp", "icmp", "icmpv6", "ip6", "sctp", "dccp"}) {
      if (protocol == other) return true;
    }
    return false;
  }

  [[nodiscard]] Words wordsOf(const JsonValue& left) const {
    // The datagram in question is a new broadcast over UDP and IPv4.
    const std::string& meta = left["meta"]["key"].asString();
    if (meta == "l4proto") return {{"17", "udp"}};
    if (meta == "nfproto") return {{"ipv4"}};
    if (meta == "protocol") return {{"ip"}};
    if (meta == "pkttype") return {{"broadcast"}};
    if (left["ct"]["key"].asString() == "state") return {{"new"}};
    if (left["fib"]["result"].asString() == "type") return {{"broadcast"}};
    const std::string& field = left["payload"]["field"].asString();
    const std::string& protocol = left["payload"]["protocol"].asString();
    if (field == "dport") return {{port_}};
    if (protocol == "ip" && field == "protocol") return {{"17", "udp"}};
    return std::nullopt;
  }

  const std::vector<JsonValue>& items_;
  Way way_;
  std::string port_;
  const JsonValue* base_ = nullptr;
  bool mayAccept_ = false;
  bool mayDrop_ = false;
  std::map<std::string, Walk> walked_;  ///< by the chain's name, for the base chain at hand
  FirewallRuling ruling_;
};

}  // namespace

FirewallRuling ruleOn(const JsonValue& ruleset, Way way, int port) {
  return Evaluation(ruleset, way, port).rule();
}

namespace {

using RuleWords = std::vector<std::string>;

JsonValue wrapped(const char* key, JsonValue value) {
  return JsonValue::object({{key, std::move(value)}});
}

JsonValue match(JsonValue left, JsonValue right, bool isNot) {
  return wrapped("match", JsonValue::object({{"op", isNot ? "!=" : "=="},
                                             {"left", std::move(left)},
                                             {"right", std::move(right)}}));
}

JsonValue meta(const char* key) { return wrapped("meta", wrapped("key", key)); }

/// A condition that is not understood: it may or may not hold.
JsonValue unsure() { return wrapped("xt", true); }

/// "27000:27100", "27015"
JsonValue portOf(const std::string& text) {
  const std::size_t colon = text.find(':');
  if (colon == text.npos) return text;
  JsonValue ends = JsonValue::array();
  for (const std::string& end : {text.substr(0, colon), text.substr(colon + 1)}) {
    ends.append(std::atoi(end.c_str()));
  }
  return wrapped("range", std::move(ends));
}

JsonValue listOf(const std::string& text, JsonValue (*each)(const std::string&)) {
  JsonValue list = JsonValue::array();
  std::istringstream words(text);
  for (std::string word; std::getline(words, word, ',');) list.append(each(word));
  return list;
}

JsonValue lowered(const std::string& text) {
  std::string small;
  std::ranges::transform(text, std::back_inserter(small), [](unsigned char letter) {
    return static_cast<char>(std::tolower(letter));
  });
  return small;
}

/// One rule: "-A INPUT -p udp -m udp --dport 27015 -j DROP".
class Rule {
 public:
  explicit Rule(const std::string& line) {
    std::istringstream text(line);
    for (std::string word; text >> std::quoted(word);) words_.push_back(word);
  }

  JsonValue read(const std::string& table) {
    std::string chain;
    while (at_ < words_.size() && !isDone_) {
      const bool isNot = words_[at_] == "!" && ++at_ > 0;
      const std::string option = next();
      if (option == "-A") {
        chain = next();
      } else {
        readOption(option, isNot);
      }
    }
    return wrapped("rule", JsonValue::object({{"family", kLegacyFamily},
                                              {"table", table},
                                              {"chain", chain},
                                              {"expr", std::move(parts_)}}));
  }

 private:
  std::string next() { return at_ < words_.size() ? words_[at_++] : std::string(); }

  void readOption(const std::string& option, bool isNot) {
    const JsonValue port = wrapped("payload", wrapped("field", "dport"));
    if (option == "-m" || option == "--comment") {
      next();
    } else if (option == "-p") {
      const std::string protocol = next();
      if (protocol != "all") parts_.append(match(meta("l4proto"), protocol, isNot));
    } else if (option == "-i" || option == "-o") {
      readInterface(next(), isNot);
    } else if (option == "--dport" || option == "--dports") {
      parts_.append(match(port, listOf(next(), portOf), isNot));
    } else if (option == "--ctstate" || option == "--state") {
      const JsonValue state = wrapped("ct", wrapped("key", "state"));
      parts_.append(match(state, listOf(next(), lowered), isNot));
    } else if (option == "--pkt-type" || option == "--dst-type") {
      parts_.append(match(meta("pkttype"), lowered(next()), isNot));
    } else if (option == "-j" || option == "-g") {
      parts_.append(actOf(next()));
      isDone_ = true;
    } else {
      parts_.append(unsure());
      while (at_ < words_.size() && words_[at_][0] != '-' && words_[at_] != "!") ++at_;
    }
  }

  /// Datagrams of other machines never use the loopback interface, and may use any other.
  void readInterface(const std::string& name, bool isNot) {
    if (name != "lo") return parts_.append(unsure());
    // A condition that never holds.
    if (!isNot) parts_.append(match(meta("l4proto"), "none", false));
  }

  static JsonValue actOf(const std::string& target) {
    // These targets change or note a datagram, and the next rule goes on.
    for (const char* const log : {"LOG", "NFLOG", "MARK", "CONNMARK", "TRACE", "CT", "NOTRACK"}) {
      if (target == log) return wrapped("log", true);
    }
    if (target == "NFQUEUE") return wrapped("queue", true);
    for (const char* const verdict : {"ACCEPT", "DROP", "REJECT", "RETURN", "QUEUE"}) {
      if (target == verdict) return wrapped(lowered(target).asString().c_str(), true);
    }
    return wrapped("jump", wrapped("target", target));
  }

  RuleWords words_;
  std::size_t at_ = 0;
  bool isDone_ = false;
  JsonValue parts_ = JsonValue::array();
};

/// A chain: ":INPUT ACCEPT [0:0]".
JsonValue chainOf(const std::string& line, const std::string& table) {
  std::istringstream text(line.substr(1));
  std::string name;
  std::string policy;
  text >> name >> policy;
  JsonValue chain =
      JsonValue::object({{"family", kLegacyFamily}, {"table", table}, {"name", name}});
  for (const char* const hook : {"INPUT", "OUTPUT", "PREROUTING", "POSTROUTING"}) {
    if (name == hook) chain.set("hook", lowered(name));
  }
  chain.set("policy", lowered(policy));
  chain.set("type", table == "nat" ? "nat" : "filter");
  return wrapped("chain", std::move(chain));
}

}  // namespace

JsonValue rulesOfIptables(const std::string& saved) {
  JsonValue items = JsonValue::array();
  std::istringstream lines(saved);
  std::string table;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("*")) table = line.substr(1);
    if (line.starts_with(":")) items.append(chainOf(line, table));
    if (line.starts_with("-A ")) items.append(Rule(line).read(table));
  }
  return items;
}

}  // namespace korvel
