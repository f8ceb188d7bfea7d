#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

namespace korvel {

/// A text for the user that no panel took.
struct Notification {
  std::chrono::system_clock::time_point time;
  std::string text;      ///< as it came: UTF-8, if its sender wrote that
  std::string source{};  ///< the user who wrote it; empty where this station did
  bool isCut = false;    ///< the separator of fields ended it

  /// The local time of day as "2024-05-31 12:00:00".
  [[nodiscard]] std::string timeText() const;
};

/// Shows a text to the user: keeps it with the time and tells the station's events. Host thread.
void notifyUser(const std::string& text);

/// The same for a text of another user. Host thread.
void notifyUser(Notification notification);

/// The notifications of this process, the oldest first; of very many the latest kMostNotifications,
/// so that a flood does not take the machine's memory. Host thread.
const std::deque<Notification>& notifications();

inline constexpr std::size_t kMostNotifications = 10'000;

/// How many texts people were shown so far, in a notification or in a conversation. Host thread.
std::uint64_t textsShown();

/// Counts one that was shown in a conversation. Host thread.
void noteTextShown();

}  // namespace korvel
