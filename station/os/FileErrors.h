#pragma once

#include <string>

#include "host/os/iFileManager.h"
#include "station/base/Result.h"

namespace korvel {

/// What can keep a file of the share from being opened, read, written or locked: one row for each
/// reason, from which every message, list and check takes its code and its words.
struct FileProblem {
  ErrorCode code;
  eFileError error;    ///< how the file manager tells it
  const char* name;    ///< in lists and JSON: "read-only"
  const char* text;    ///< a sentence without its end: "the share is mounted read-only"
  const char* advice;  ///< what to do, the same: "mount it for writing"
};

/// The row of an errno value, of what a file manager told, and of a failure's code; the last row
/// ("the system could not do it") where there is no other. Any thread.
const FileProblem& fileProblem(int number);
const FileProblem& fileProblem(eFileError error);
const FileProblem& fileProblem(ErrorCode code);

/// Reason and advice in one: "the share is full; make room on it".
std::string sentenceOf(const FileProblem& problem);

/// The failure for an errno value met while doing `what` ("write", "open") to `path`: "Cannot write
/// /p/x: No space left on device. The share is full; make room on it."
Error errorFromErrno(int number, const std::string& what, const std::string& path);

}  // namespace korvel
