#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace korvel {

/// What happens to the one operation that is chosen.
enum class FaultAction : int {
  eNone,
  eFail,        ///< it fails with an errno value, and nothing is done
  eShort,       ///< a read or write does half of what was asked for
  eKillBefore,  ///< SIGKILL, and nothing is done
  eKillAfter,   ///< SIGKILL once it is done
  eHang,        ///< it never comes back, nor any after it
  eStall,       ///< it and all after it wait until the action is another one
};

/// An operation that came: "read /path", and when.
struct FaultRecord {
  std::int64_t when;  ///< milliseconds of the monotonic clock
  char what[248];
};

/// The operations that are remembered.
inline constexpr std::size_t kFaultRecords = 1024;

/// What a test and the process that it makes fail agree on: both map one file. Operations are
/// counted from 1 in the order in which the process makes them.
struct FaultControl {
  std::atomic<std::uint64_t> count;   ///< operations so far
  std::atomic<std::uint64_t> chosen;  ///< the operation to be met; 0 for none
  std::atomic<FaultAction> action;
  std::atomic<int> number;             ///< the errno value
  std::atomic<bool> isMet;             ///< whether the chosen operation came
  std::atomic<bool> seesBackground;    ///< threads that look by the clock are counted and met, too
  char operation[16];                  ///< count those of this name alone, "open"; empty for all
  char path[64];                       ///< and of those the ones with this in their path
  char what[512];                      ///< which it was, "write /path"; valid once isMet
  std::atomic<unsigned> pause;         ///< microseconds that each operation takes, as on a network
  std::atomic<int> pausing;            ///< operations within their pause
  std::atomic<int> mostPausing;        ///< the most of them at the same time
  std::atomic<bool> isRecording;       ///< each operation is remembered
  FaultRecord records[kFaultRecords];  ///< operation n at n % kFaultRecords: the latest ones
};

static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

/// The environment in which the library FailingFiles finds its control file, and the folder whose
/// files it watches.
inline constexpr const char* kFaultControlVariable = "KV_FAULT_CONTROL";
inline constexpr const char* kFaultFolderVariable = "KV_FAULT_FOLDER";

}  // namespace korvel
