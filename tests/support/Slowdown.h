#pragma once

namespace korvel {

/// How many times longer a build with a sanitizer may take where a test bounds a time.
#ifdef KV_SANITIZED
constexpr int kSlowdown = 10;
#else
constexpr int kSlowdown = 1;
#endif

/// So many where one thread only counts or measures; in a build with a sanitizer as many as take
/// about the same time. What more of them would show, the build without shows. What several threads
/// do at once is done as often in every build.
constexpr int fewer(int count) { return count / kSlowdown; }

}  // namespace korvel
