#pragma once

namespace korvel {

/// How many times longer a build with a sanitizer may take where a test bounds a time.
#ifdef KV_SANITIZED
constexpr int kSlowdown = 10;
#else
constexpr int kSlowdown = 1;
#endif

}  // namespace korvel
