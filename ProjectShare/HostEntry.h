#pragma once

#include <utility>

/// Writes one line to the log and the console about the exception that is being handled. Call it
/// from a handler alone. Never throws.
void reportFailedEntry(const char* entry) noexcept;

/// Runs the work of an operation that the host calls, and gives its result. No exception leaves the
/// plug-in: one is reported under the operation's name, and the result is then `onFailure`.
template <typename Result, typename Work>
Result guardedEntry(const char* entry, Result onFailure, Work&& work) noexcept {
  try {
    return std::forward<Work>(work)();
  } catch (...) {
    reportFailedEntry(entry);
  }
  return onFailure;
}

/// The same for an operation without a result.
template <typename Work>
void guardedEntry(const char* entry, Work&& work) noexcept {
  try {
    std::forward<Work>(work)();
  } catch (...) {
    reportFailedEntry(entry);
  }
}
