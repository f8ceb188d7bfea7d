#pragma once

#include <cstdio>

/// Sends what the host prints on standard output (failed assertions and the like) to another
/// stream, which stays the caller's and must live until the next call; null restores standard
/// output. Any thread.
void setDiagnosticStream(std::FILE* stream);
