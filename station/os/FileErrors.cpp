#include "station/os/FileErrors.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <iterator>

namespace korvel {

namespace {

// The last row answers for everything without a row of its own, so eSystem stays last.
constexpr FileProblem kProblems[] = {
    {ErrorCode::eNotFound, eFileError::eMissing, "missing", "it is not there",
     "check the path, and that the share is mounted"},
    {ErrorCode::eExists, eFileError::eOther, "exists", "something of this name is there already",
     "choose another name"},
    {ErrorCode::eHeld, eFileError::eHeld, "held", "another station is using it",
     "try again when it is done"},
    {ErrorCode::eNoRights, eFileError::eNoRights, "no rights", "this user may not use it",
     "give the editors' group the right to read and write it (chgrp, chmod g+rwX), and make this "
     "user a member of the group"},
    {ErrorCode::eNoLockService, eFileError::eNoLockService, "no locks",
     "the share offers no locks, so that nothing can be held safely",
     "mount it with locks: NFS without nolock, SMB without nobrl"},
    {ErrorCode::eStale, eFileError::eStale, "stale", "the share has lost it",
     "mount the share again"},
    {ErrorCode::eReadOnly, eFileError::eReadOnly, "read-only", "the share is mounted read-only",
     "mount it for writing"},
    {ErrorCode::eFull, eFileError::eFull, "full", "the share is full", "make room on it"},
    {ErrorCode::eBadContent, eFileError::eNotAFile, "broken",
     "something that is no plain file is in its place", "move it away"},
    {ErrorCode::eSystem, eFileError::eOther, "broken", "the system could not do it",
     "try again, and see the system's log if it stays so"},
};

struct Number {
  int number;
  ErrorCode code;
};

// EACCES means missing rights here: tryLock() has turned the EACCES of a lock that SMB refuses into
// EAGAIN. EISDIR, ENXIO, ELOOP and EMLINK are what openPlainFile() and openToChange() leave for
// folders, pipes, links and files of several names.
constexpr Number kNumbers[] = {
    {ENOENT, ErrorCode::eNotFound},      {ENOTDIR, ErrorCode::eNotFound},
    {EEXIST, ErrorCode::eExists},        {EAGAIN, ErrorCode::eHeld},
    {EACCES, ErrorCode::eNoRights},      {EPERM, ErrorCode::eNoRights},
    {ENOLCK, ErrorCode::eNoLockService}, {ESTALE, ErrorCode::eStale},
    {EROFS, ErrorCode::eReadOnly},       {ENOSPC, ErrorCode::eFull},
    {EDQUOT, ErrorCode::eFull},          {EFBIG, ErrorCode::eFull},
    {EISDIR, ErrorCode::eBadContent},    {ENXIO, ErrorCode::eBadContent},
    {ELOOP, ErrorCode::eBadContent},     {EMLINK, ErrorCode::eBadContent},
};

const FileProblem& otherProblem() { return *std::prev(std::end(kProblems)); }

}  // namespace

const FileProblem& fileProblem(int number) {
  const auto* const known = std::ranges::find(kNumbers, number, &Number::number);
  return known == std::end(kNumbers) ? otherProblem() : fileProblem(known->code);
}

const FileProblem& fileProblem(eFileError error) {
  // The row of eExists is eOther too, and its text fits no other failure.
  if (error == eFileError::eOther) return otherProblem();
  const auto* const known = std::ranges::find(kProblems, error, &FileProblem::error);
  return known == std::end(kProblems) ? otherProblem() : *known;
}

const FileProblem& fileProblem(ErrorCode code) {
  const auto* const known = std::ranges::find(kProblems, code, &FileProblem::code);
  return known == std::end(kProblems) ? otherProblem() : *known;
}

std::string sentenceOf(const FileProblem& problem) {
  return std::string(problem.text) + "; " + problem.advice;
}

Error errorFromErrno(int number, const std::string& what, const std::string& path) {
  const FileProblem& problem = fileProblem(number);
  std::string advice = sentenceOf(problem);
  advice[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(advice[0])));
  return {problem.code,
          "Cannot " + what + " " + path + ": " + std::strerror(number) + ". " + advice + ".", path};
}

}  // namespace korvel
