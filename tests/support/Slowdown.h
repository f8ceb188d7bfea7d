#pragma once

namespace korvel {

/// How many times longer a build with a sanitizer may take where a test bounds a time.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int kSlowdown = 10;
#else
constexpr int kSlowdown = 1;
#endif

}  // namespace korvel
