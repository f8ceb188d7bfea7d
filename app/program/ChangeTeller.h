#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/base/EventSinks.h"
#include "app/base/TextOutput.h"
#include "station/Station.h"
#include "station/project/Rooms.h"

namespace korvel {

/// Tells a person at the console in one line each what others changed: "ANNA saved Harbour at
/// dawn", and who came and went: "BEN opened this project", "BEN left the room "Sound"".
///
/// What comes within kTogether is told together: an object once, with what matters most of it, and
/// of very many only the first. Names are asked for on the host thread afterwards; those of objects
/// that are gone are remembered. Any thread.
class ChangeTeller : public iEventSink {
 public:
  static constexpr auto kTogether = std::chrono::milliseconds(300);

  /// Of more lines at once the rest are counted.
  static constexpr std::size_t kMostLines = 8;

  /// Both must outlive this; what is on its way when this ends is not told.
  ChangeTeller(Station& station, TextOutput& text);
  ChangeTeller(const ChangeTeller&) = delete;
  ChangeTeller& operator=(const ChangeTeller&) = delete;

  void take(const StationEvent& event) override;
  [[nodiscard]] bool takes(std::string_view name) const override {
    return name == "changed" || name == "presence" || name == "reply";
  }

 private:
  struct Change {
    std::string what;
    std::string cookie;
    std::string how;
    std::string who;
  };

  bool isBack(const std::string& cookie, const std::string& how);
  void note(Change change);
  void tellSoon(bool hasEntered);
  void tell();
  void learnNames();
  std::vector<std::string> newsOfPeople();
  void newsOfRooms(std::vector<std::string>& lines, bool hasMade);
  [[nodiscard]] std::string lineOf(const Change& change) const;
  [[nodiscard]] std::string nameOf(const Change& change) const;

  Station& station_;
  HostThread& hostThread_;
  TextOutput& text_;
  std::mutex mutex_;
  std::vector<Change> pending_;
  bool isPosted_ = false;
  std::atomic<bool> hasMadeRoom_{false};      ///< here, since it was told last
  bool hasEntered_ = false;                   ///< a project was entered since it was told last
  std::map<std::string, std::string> names_;  ///< by cookie; host thread
  std::map<std::string, RoomInfo> rooms_;     ///< by name, as told last; host thread
  std::set<std::string> gone_;                ///< cookies of what was deleted; under the mutex
  std::set<std::string> people_;              ///< users who have the project open; host thread
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);  ///< what posted tasks hold weakly
};

}  // namespace korvel
