#pragma once

#include "host/base/HostApi.h"

// What the host prints on standard output, and writes to the host log. Any thread. A host that uses
// standard output for something else may send these lines elsewhere; the station with `--events -`
// sends them to standard error.

/// Prints "assertion failed %s at %s\n" with the condition and the place (such as
/// "ProjectShare/NetMessage line 46"). Never stops the program.
KV_HOST_API void assertionFailed(const char* condition, const char* place);

/// Prints a text as it stands, without adding a line end.
KV_HOST_API void printToStandardOutput(const char* text);
