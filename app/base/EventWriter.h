#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "app/base/EventSinks.h"
#include "station/base/Events.h"
#include "station/wire/MessageFields.h"

namespace korvel {

/// Turns what the station tells into events and hands each to every sink.
///
///     {"event":"changed","time":81.204711,"what":"edit","cookie":"E0001",...}
///
/// `time` is in seconds of the machine's monotonic clock, so that the events of several stations on
/// one machine can be put in order. A text that is not UTF-8 is given in hexadecimal under its key
/// with "_hex" appended. A notification of words that another user just sent has that user under
/// `source`. Any thread.
class EventWriter : public iStationEvents {
 public:
  /// Adds a sink, which must outlive this. Before other threads use this.
  void addSink(iEventSink& sink);

  /// Hands out an event with these keys, and the bytes of the datagram that it is about.
  void emit(std::string_view name, const std::vector<JsonValue::Member>& members,
            const std::string& datagram = {});

  void sent(const std::string& wireText) override;
  void received(const std::string& wireText, const MessageFields& message) override;
  void changed(const std::string& what, const Cookie& cookie, const std::string& how,
               Origin origin) override;
  void log(bool toConsole, const std::string& text) override;
  void command(const std::string& name) override;
  void network(const std::string& problem, std::uint64_t dropped) override;
  void presence(const std::string& how, const JsonValue& station) override;
  void health(const JsonValue& health) override;
  void steps(const std::string& undo, const std::string& redo) override;
  void notification(const std::string& text) override;
  void panel(const std::vector<std::string>& lines) override;

 private:
  std::mutex mutex_;
  std::vector<iEventSink*> sinks_;
  MessageFields message_;  ///< the words of a user that came last; host thread
};

}  // namespace korvel
