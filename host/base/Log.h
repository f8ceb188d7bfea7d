#pragma once

#include <concepts>
#include <initializer_list>
#include <string>
#include <type_traits>

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"

// The host log. `LogBoth` writes to the log and the console, `Log` to the log alone. Any thread.
//
// Formats look like printf's, and formatting is type-safe: each conversion takes the next argument;
// a conversion that does not fit its argument, or is none at all, prints the argument's text; a
// conversion without an argument and an argument without a conversion print nothing. It is never
// undefined behaviour, whatever the format.
//
// Arguments may come from the network or the share. Control characters in them are written as
// escapes, bytes that are no UTF-8 as U+FFFD, and of a text of more than 4 kB only the beginning,
// with its length. So a line of the log is always made by a format.

/// One argument of a log line, already turned into what a conversion may ask for.
struct KV_HOST_API LogArgument {
  enum eKind { eText, eSigned, eUnsigned, eReal };

  LogArgument(const char* value) : kind(eText), text(value ? value : "(null)") {}         // NOLINT
  LogArgument(const std::string& value) : kind(eText), text(value) {}                     // NOLINT
  LogArgument(const LightweightString<char>& value) : kind(eText), text(value.view()) {}  // NOLINT
  LogArgument(const LightweightString<wchar_t>& value);  // NOLINT: written as UTF-8
  LogArgument(std::signed_integral auto value) : kind(eSigned), signedValue(value) {}  // NOLINT
  LogArgument(std::unsigned_integral auto value)
      : kind(eUnsigned), unsignedValue(value) {}                             // NOLINT
  LogArgument(std::floating_point auto value) : kind(eReal), real(value) {}  // NOLINT

  eKind kind;
  std::string text;
  long long signedValue = 0;
  unsigned long long unsignedValue = 0;
  double real = 0;
};

/// The text that a format and its arguments make.
KV_HOST_API std::string formatLogLine(const char* format,
                                      std::initializer_list<LogArgument> arguments);

/// Writes a finished text to the log (and to the console). What cannot be written is lost: the log
/// never stops the program.
KV_HOST_API void writeLog(const std::string& text);
KV_HOST_API void writeLogAndConsole(const std::string& text);

/// Formats and writes one line. Nothing is thrown, whatever the format and the arguments.
template <typename... Arguments>
void Log(const char* format, const Arguments&... arguments) {
  writeLog(formatLogLine(format, {LogArgument(arguments)...}));
}

template <typename... Arguments>
void LogBoth(const char* format, const Arguments&... arguments) {
  writeLogAndConsole(formatLogLine(format, {LogArgument(arguments)...}));
}

// What the host prints on standard output, and writes to the host log. Any thread. A host that uses
// standard output for something else may send these lines elsewhere; the station with `--events -`
// sends them to standard error.

/// Prints "assertion failed %s at %s\n" with the condition and the place (such as
/// "ProjectShare/NetMessage line 46"). Never stops the program.
KV_HOST_API void assertionFailed(const char* condition, const char* place);

/// Prints a text as it stands, without adding a line end.
KV_HOST_API void printToStandardOutput(const char* text);
