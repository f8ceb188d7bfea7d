#include "tests/fault/TroubledShare.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>

#include <cstdlib>
#include <filesystem>
#include <utility>

namespace korvel {

namespace {

namespace fs = std::filesystem;

constexpr const char* kRoomy = "size=1g";

/// Mounts made from now on are this process's own, and end with it.
bool enterOwnMounts() {
  if (::unshare(CLONE_NEWNS) != 0) return false;
  return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace

TroubledShare::TroubledShare(Trouble trouble, std::string folder)
    : trouble_(trouble), folder_(std::move(folder)), away_(folder_ + "-away") {
  fs::create_directory(folder_);
  if (trouble_ == Trouble::eNone || !enterOwnMounts()) return;
  isMounted_ = ::mount("share", folder_.c_str(), "tmpfs", 0, kRoomy) == 0;
}

TroubledShare::~TroubledShare() {
  end();
  if (isMounted_) ::umount2(folder_.c_str(), MNT_DETACH);
}

void TroubledShare::begin() {
  if (std::exchange(isInTrouble_, true)) return;
  if (trouble_ == Trouble::eGone) vanish();
  if (trouble_ == Trouble::eFull) fill();
}

void TroubledShare::end() {
  if (!std::exchange(isInTrouble_, false)) return;
  if (trouble_ == Trouble::eGone) comeBack();
  if (trouble_ == Trouble::eFull && !resize(kRoomy)) std::abort();
}

// It is refused when more was written since the size was asked for.
void TroubledShare::fill() const {
  struct statvfs status {};
  do {
    ::statvfs(folder_.c_str(), &status);
  } while (!resize("size=" + std::to_string((status.f_blocks - status.f_bfree) * status.f_frsize)));
}

bool TroubledShare::resize(const std::string& size) const {
  return ::mount("share", folder_.c_str(), "tmpfs", MS_REMOUNT, size.c_str()) == 0;
}

void TroubledShare::vanish() {
  if (!isMounted_) return fs::rename(folder_, away_);
  fs::create_directory(away_);
  if (::mount(folder_.c_str(), away_.c_str(), nullptr, MS_MOVE, nullptr) != 0) std::abort();
  std::error_code ignored;
  if (++times_ % 2 == 0) fs::remove(folder_, ignored);
}

void TroubledShare::comeBack() {
  std::error_code none;
  for (const auto& each : fs::directory_iterator(folder_, none)) {
    strays_ += " " + each.path().string();
  }
  if (!isMounted_) {
    fs::remove_all(folder_, none);
    return fs::rename(away_, folder_);
  }
  fs::create_directory(folder_);
  if (::mount(away_.c_str(), folder_.c_str(), nullptr, MS_MOVE, nullptr) != 0) std::abort();
}

}  // namespace korvel
