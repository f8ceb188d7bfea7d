#include "tools/doctor/Firewall.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <utility>
#include <vector>

namespace korvel {

namespace {

using Words = std::vector<std::string>;

JsonValue wrapped(const char* key, JsonValue value) {
  return JsonValue::object({{key, std::move(value)}});
}

JsonValue match(JsonValue left, JsonValue right, bool isNot) {
  return wrapped("match", JsonValue::object({{"op", isNot ? "!=" : "=="},
                                             {"left", std::move(left)},
                                             {"right", std::move(right)}}));
}

JsonValue meta(const char* key) { return wrapped("meta", wrapped("key", key)); }

/// A condition that may or may not hold.
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

  /// Other machines' datagrams come and go by any interface but the loopback.
  void readInterface(const std::string& name, bool isNot) {
    if (name != "lo") return parts_.append(unsure());
    if (!isNot) parts_.append(match(meta("l4proto"), "none", false));
  }

  static JsonValue actOf(const std::string& target) {
    for (const char* const log : {"LOG", "NFLOG", "MARK", "CONNMARK", "TRACE", "CT", "NOTRACK"}) {
      if (target == log) return wrapped("log", true);
    }
    if (target == "NFQUEUE") return wrapped("queue", true);
    for (const char* const verdict : {"ACCEPT", "DROP", "REJECT", "RETURN", "QUEUE"}) {
      if (target == verdict) return wrapped(lowered(target).asString().c_str(), true);
    }
    return wrapped("jump", wrapped("target", target));
  }

  Words words_;
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
