#pragma once

#include <string>

namespace korvel {

/// What befalls the share while stations work on it.
enum class Trouble {
  eNone,
  eFull,  ///< nothing more can be written
  eGone,  ///< it vanishes, and an empty folder or none stands in its place, and comes back
};

/// A projects folder in memory, mounted for this process and those that it starts, which can fill
/// up and vanish. Where the machine allows no mounts it is a plain folder: that one vanishes by
/// being renamed, and never fills up. One object a process, made before any thread. begin() and
/// end() may be called by one thread at a time.
class TroubledShare {
 public:
  /// Makes the folder, and mounts it where `trouble` needs that.
  TroubledShare(Trouble trouble, std::string folder);
  TroubledShare(const TroubledShare&) = delete;
  TroubledShare& operator=(const TroubledShare&) = delete;
  ~TroubledShare();

  /// Whether the trouble can be made here.
  [[nodiscard]] bool isAble() const { return trouble_ != Trouble::eFull || isMounted_; }

  void begin();
  void end();
  [[nodiscard]] bool isInTrouble() const { return isInTrouble_; }

  /// What was written into the empty folder that stood in the share's place, beside the stations'
  /// own notes; empty where nothing was.
  [[nodiscard]] const std::string& strays() const { return strays_; }

 private:
  void vanish();
  void comeBack();
  void fill() const;
  [[nodiscard]] bool resize(const std::string& size) const;

  Trouble trouble_;
  std::string folder_;
  std::string away_;
  std::string strays_;
  bool isMounted_ = false;
  bool isInTrouble_ = false;
  int times_ = 0;
};

}  // namespace korvel
