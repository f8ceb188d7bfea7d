#pragma once

#include <string>

#include "tests/bench/BenchTable.h"

namespace korvel {

// Measurements between processes and of whole processes. Each adds its figures to the table; false
// when it could not be made, which is told on standard error. `programs` is the folder of the
// programs that are measured.

/// From a notification on one station to the change on the others, and messages a second.
bool measureLatency(BenchTable& table, const std::string& programs);
bool measureRate(BenchTable& table, const std::string& programs);

/// The former while a stranger floods the network.
bool measureFlood(BenchTable& table, const std::string& programs);

bool measureUserList(BenchTable& table, const std::string& programs);
bool measureEntering(BenchTable& table, const std::string& programs);

/// The same where each operation on the folder takes as long as a round trip to a file server.
bool measureEnteringSlowly(BenchTable& table, const std::string& programs);

/// What a station uses that has nothing to do.
bool measureIdle(BenchTable& table, const std::string& programs);

/// The window's longest frame beside 10 000 edits and 50 people: scrolled, narrowed, and while 200
/// changes a second arrive.
bool measureWindow(BenchTable& table, const std::string& programs);

bool measureEnteringAgain(BenchTable& table, const std::string& programs);
bool measureSaving(BenchTable& table, const std::string& programs);
bool measureStart(BenchTable& table, const std::string& programs);

}  // namespace korvel
