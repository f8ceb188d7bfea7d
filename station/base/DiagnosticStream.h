#pragma once

#include <cstdio>
#include <functional>
#include <string>

namespace korvel {

/// Sends what the host prints on standard output (failed assertions and the like) to another
/// stream, which stays the caller's and must live until the next call; null restores standard
/// output. Any thread.
void setDiagnosticStream(std::FILE* stream);

/// Hands what the host prints on standard output to a function instead, which must not print by
/// these means itself; null restores the stream. Any thread.
void setDiagnosticWriter(std::function<void(const std::string& text)> writer);

}  // namespace korvel
