#include "tools/capture/MessageFilter.h"

#include <algorithm>
#include <charconv>

#include "host/base/Cookie.h"
#include "station/base/Strings.h"
#include "tools/locks/UserList.h"
#include "tools/wire/MessageTypes.h"

namespace korvel {

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
      return refusal("\"" + shownText(word) +
                     "\" is no cookie; kv-share locks shows those of projects");
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
      return refusal("\"" + shownText(word) +
                     "\" is no sender: give an address, an address:port or a network like "
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
