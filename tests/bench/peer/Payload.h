#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace korvel {

// The messages of the measurements between processes: "that edit is saved", each about an edit of
// its own, so that a message's number can be read off it.

/// The project that all peers have open, and the edit that message `number` is about, as cookies'
/// texts.
inline constexpr const char* kBenchProject = "P7c1d0000000000000000000000000001";
std::string benchEdit(std::uint32_t number);

/// An edit of many clips that peers may have open, and the trim of it that message `number` is
/// about, whose start in seconds tells the number.
inline constexpr const char* kBenchLongEdit = "E9b00000000000000000000000000001";
inline constexpr std::uint32_t kBenchClips = 2000;
std::string benchTrim(std::uint32_t number);

/// The environment variable with the messages a second that a station takes of one source; without
/// it there is no limit.
inline constexpr const char* kReceiveLimitVariable = "KV_BENCH_RECEIVE_LIMIT";

/// The wire text of message `number`, and back.
std::string payloadOf(std::uint32_t number);
std::uint32_t numberOf(std::string_view payload);

/// The number of the edit whose cookie has this text.
std::uint32_t numberOfEdit(std::string_view cookie);

}  // namespace korvel
