#include "tools/doctor/Check.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "station/base/Log.h"
#include "station/os/FileErrors.h"
#include "station/os/SharedFiles.h"
#include "tools/doctor/ProbeFolder.h"

namespace korvel {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr auto kShareLimit = std::chrono::seconds(5);
constexpr auto kLongLimit = std::chrono::seconds(30);
constexpr unsigned long long kMebibyte = 1ULL << 20U;
// File systems may round times to 2 s.
constexpr double kClockTolerance = 2;  // seconds
constexpr auto kSlowToSee = milliseconds(2000);

std::string sizeText(unsigned long long bytes) {
  char text[32];
  if (bytes >= 1024 * kMebibyte) {
    std::snprintf(text, sizeof text, "%.1f GiB",
                  static_cast<double>(bytes) / static_cast<double>(1024 * kMebibyte));
  } else {
    std::snprintf(text, sizeof text, "%.1f MiB",
                  static_cast<double>(bytes) / static_cast<double>(kMebibyte));
  }
  return text;
}

std::string timeText(milliseconds time) { return std::to_string(time.count()) + " ms"; }

/// A sentence without its full stop, for a text that continues.
std::string clause(std::string sentence) {
  while (!sentence.empty() && sentence.back() == '.') sentence.pop_back();
  return sentence;
}

Findings lookExists(const DoctorFacts& facts) {
  const std::string& path = facts.station.projectsDirectory;
  const auto names = listFresh(path);
  if (!names) {
    return {fail(clause(names.error().message),
                 "mount the share there, or name the folder where it is mounted")};
  }
  return {pass(path + " is a folder that can be read, with " + std::to_string(names->size()) +
               (names->size() == 1 ? " entry" : " entries"))};
}

Findings lookRights(const DoctorFacts& facts) {
  const std::string& path = facts.station.projectsDirectory;
  ProbeFolder folder(path);
  auto made = folder.make();
  const ProbeFile file(folder.file(newTrialId(), "rights"));
  if (made) made = writeAtomically(file.path(), "rights");
  if (made) return {pass("this user can make folders and files in it")};
  return {fail("this user cannot make folders and files in it: " + clause(made.error().message),
               fileProblem(made.error().code).advice)};
}

Findings lookGroup(const DoctorFacts& facts) {
  struct stat status {};
  const std::string& path = facts.station.projectsDirectory;
  if (::stat(path.c_str(), &status) != 0) {
    return {fail("it cannot be looked at: " + std::string(std::strerror(errno)), "see above")};
  }
  return judgeGroup(status.st_mode, path);
}

Findings lookSpace(const DoctorFacts& facts) {
  struct statvfs status {};
  if (::statvfs(facts.station.projectsDirectory.c_str(), &status) != 0) {
    return {warn("the free space cannot be read: " + std::string(std::strerror(errno)),
                 "look at it on the server")};
  }
  // f_bavail, not f_bfree: the reserve of root is of no use to stations.
  return judgeSpace(static_cast<unsigned long long>(status.f_bavail) * status.f_frsize,
                    status.f_favail, status.f_files);
}

Findings lookMount(const DoctorFacts& facts) {
  const auto mount = mountOfFolder(facts);
  if (mount) return judgeMount(*mount);
  return {warn("its mount is not in " + facts.mountInfo,
               "look at the options that it was mounted with by hand: nolock, local_lock and nobrl "
               "break locks")};
}

Findings lockFailure(const DoctorFacts& facts, const std::string& what) {
  const auto mount = mountOfFolder(facts);
  const auto breakers = mount ? lockBreakersOf(*mount) : std::vector<std::string>();
  if (breakers.empty()) {
    return {fail(what, "use a file system with locks, such as NFSv4, SMB 3 or GlusterFS")};
  }
  return {fail(what, "mount it without " + breakers.front())};
}

Findings lookExclusion(const DoctorFacts& facts) {
  ProbeFolder folder(facts.station.projectsDirectory);
  if (auto made = folder.make(); !made) return {fail(made.error().message, "see rights, above")};
  const ProbeFile file(folder.file(newTrialId(), "lock"));
  LockHolder holder(facts.open, file.path());
  if (!holder.isHolding()) return lockFailure(facts, clause(refusalText(holder.problem())));
  if (facts.open(file.path()).problem == eFileError::eNone) {
    return lockFailure(facts, "two processes of this machine opened one file exclusively at once");
  }
  holder.kill();
  const auto free = timeUntilFree(facts.open, file.path(), std::chrono::seconds(5));
  if (!free) {
    return {fail("a lock stays after its holder was killed", "see the server's log of locks")};
  }
  return {pass("another process of this machine is refused, and gets it " + timeText(*free) +
               " after the holder was killed; only a second machine can prove that it is refused, "
               "too")};
}

/// Looks for the file as a station does. The first look finds nothing, so that the file system may
/// keep that answer; the second mark tells when the file is seen in spite of it.
void watchFor(const std::string& path, int pipe) {
  const char mark = existsFresh(path) ? '-' : '+';
  writeAll(pipe, {&mark, 1});
  while (!existsFresh(path)) ::usleep(1000);
  writeAll(pipe, {&mark, 1});
}

Findings lookSeen(const DoctorFacts& facts) {
  ProbeFolder folder(facts.station.projectsDirectory);
  if (auto made = folder.make(); !made) return {fail(made.error().message, "see rights, above")};
  const ProbeFile file(folder.file(newTrialId(), "seen"));
  ChildProcess watcher([&](int pipe) { watchFor(file.path(), pipe); });
  std::string marks;
  const auto deadline = Clock::now() + std::chrono::seconds(20);
  if (watcher.read(deadline, marks) != ChildProcess::Reading::eGot) {
    return {fail("another process cannot look into the folder", "see rights, above")};
  }
  const auto start = Clock::now();
  if (auto written = writeAtomically(file.path(), "seen"); !written) {
    return {fail(clause(written.error().message), "see rights, above")};
  }
  if (watcher.read(deadline, marks) != ChildProcess::Reading::eGot) {
    return {fail("another process did not see a new file within 20 s",
                 "mount it without nocto and with a short attribute cache")};
  }
  const auto taken = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
  const std::string text = "another process of this machine sees a new file " + timeText(taken) +
                           " after its writing began; other machines may take longer";
  if (taken <= kSlowToSee) return {pass(text)};
  return {warn(text, "see whether the server or the network is overloaded")};
}

Findings lookRemoval(const DoctorFacts& facts) {
  ProbeFolder folder(facts.station.projectsDirectory);
  if (auto made = folder.make(); !made) return {fail(made.error().message, "see rights, above")};
  const ProbeFile file(folder.file(newTrialId(), "removal"));
  auto done = writeAtomically(file.path(), "removal");
  if (done) done = removeFileAt(file.path());
  if (!done) {
    return {fail(clause(done.error().message),
                 "let every editor remove files in it: no sticky bit (chmod -t), and the group's "
                 "right to write")};
  }
  if (!existsFresh(file.path())) return {pass("a removed file is gone")};
  return {fail("a removed file is still shown", "mount it without nocto")};
}

Findings lookClock(const DoctorFacts& facts) {
  if (const auto seconds = clockBeforeShares(facts)) return judgeClock(*seconds);
  return {warn("the time of a new file cannot be read", "see rights, above")};
}

}  // namespace

std::optional<double> clockBeforeShares(const DoctorFacts& facts) {
  ProbeFolder folder(facts.station.projectsDirectory);
  if (!folder.make()) return std::nullopt;
  const ProbeFile file(folder.file(newTrialId(), "clock"));
  timespec here{};
  struct stat status {};
  // The kernel stamps local files with this clock; by the finer one a new file would seem to be
  // old.
  ::clock_gettime(CLOCK_REALTIME_COARSE, &here);
  if (!writeAtomically(file.path(), "clock") || ::lstat(file.path().c_str(), &status) != 0) {
    return std::nullopt;
  }
  return static_cast<double>(here.tv_sec - status.st_mtim.tv_sec) +
         static_cast<double>(here.tv_nsec - status.st_mtim.tv_nsec) / 1e9;
}

Findings judgeSpace(unsigned long long freeBytes, unsigned long long files,
                    unsigned long long allFiles) {
  const std::string text = sizeText(freeBytes) + " free";
  if (freeBytes < 16 * kMebibyte) return {fail(text, "make room on it: nothing can be saved")};
  // Some file systems count no files, and report 0 for both.
  if (allFiles > 0 && files == 0) {
    return {fail(text + ", but no more files can be made",
                 "remove files that nobody needs, or give the file system more inodes")};
  }
  if (freeBytes < 1024 * kMebibyte) return {warn(text, "make room on it before it is full")};
  return {pass(text)};
}

Findings judgeGroup(unsigned mode, const std::string& path) {
  const bool isForAll = (mode & 0007U) == 0007U;
  const bool isForGroup = (mode & 0070U) == 0070U;
  char bits[8];
  std::snprintf(bits, sizeof bits, "%04o", mode & 07777U);
  const std::string text = std::string("its mode is ") + bits;
  if (!isForGroup && !isForAll) {
    return {warn(text + ": editors other than its owner cannot work in it",
                 "chgrp editors '" + path + "'; chmod g+rwxs '" + path + "'")};
  }
  if ((mode & S_ISVTX) != 0) {
    return {warn(text + ": with the sticky bit nobody can remove what another left behind",
                 "chmod -t '" + path + "'")};
  }
  if (isForGroup && !isForAll && (mode & S_ISGID) == 0) {
    return {warn(text + ": what other programs make in it does not take its group",
                 "chmod g+s '" + path + "'")};
  }
  return {pass(text + ": every editor of its group can work in it")};
}

Findings judgeClock(double seconds) {
  char text[96];
  const double size = std::fabs(seconds);
  if (size <= kClockTolerance) return {pass("this machine's clock and the share's agree")};
  std::snprintf(text, sizeof text, "this machine's clock is %.0f s %s the share's", size,
                seconds > 0 ? "before" : "behind");
  return {warn(std::string(text) + ": ages of locks and markers are shown wrong",
               "let a time service set the clocks of this machine and the server (timedatectl "
               "set-ntp true)")};
}

std::optional<Mount> mountOfFolder(const DoctorFacts& facts) {
  std::error_code problem;
  const auto path = std::filesystem::canonical(facts.station.projectsDirectory, problem);
  const auto text = readFresh(facts.mountInfo);
  if (problem || !text) return std::nullopt;
  return mountOf(*text, path.string());
}

std::vector<Check> shareChecks(const DoctorFacts& facts) {
  using Look = Findings (*)(const DoctorFacts&);
  const auto check = [&facts](const char* name, Role role, milliseconds limit, Look look) {
    return Check{"share", name,  Touches::eShare,
                 role,    limit, [&facts, look] { return look(facts); }};
  };
  return {
      check("exists", Role::eGate, kShareLimit, lookExists),
      check("mount", Role::eOrdinary, kShareLimit, lookMount),
      check("rights", Role::eGate, kShareLimit, lookRights),
      check("group", Role::eOrdinary, kShareLimit, lookGroup),
      check("free space", Role::eOrdinary, kShareLimit, lookSpace),
      check("exclusive open", Role::eOrdinary, kLongLimit, lookExclusion),
      check("new files", Role::eOrdinary, kLongLimit, lookSeen),
      check("removal", Role::eOrdinary, kShareLimit, lookRemoval),
      check("clock", Role::eOrdinary, kShareLimit, lookClock),
  };
}

}  // namespace korvel
