#pragma once

#include <functional>
#include <string>
#include <vector>

namespace korvel {

/// A network namespace and a host name of their own: a machine without a cable yet. Both are held
/// by open files alone, so that nothing of them is left when this process ends, however it ends.
class Space {
 public:
  /// With its loopback up. Throws std::runtime_error where the system refuses.
  explicit Space(const std::string& hostName);
  Space(const Space&) = delete;
  Space& operator=(const Space&) = delete;
  ~Space();

  /// Why this process can make none; empty where it can.
  static std::string whyNone();

  /// Words that make a command run in here.
  [[nodiscard]] std::vector<std::string> prefix() const;

  /// Runs `ip` in here with these lines, each a command without the word `ip`. Throws
  /// std::runtime_error with its complaint where one fails.
  void ip(const std::string& lines) const;

  /// Does something on a thread that is in here. Sockets that it opens stay in here.
  void within(const std::function<void()>& work) const;

  /// A path by which other programs reach the network namespace.
  [[nodiscard]] std::string networkPath() const;

 private:
  int network_ = -1;
  int names_ = -1;
};

}  // namespace korvel
