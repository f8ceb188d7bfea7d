#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

// The parsers of small inputs, each as the program uses it, with what must hold whatever the bytes
// are. One program holds them all (ParsersFuzz), since linking takes longer than running.

namespace korvel {

/// Reads one input; ends the program where something does not hold.
using Parser = std::function<void(std::string_view bytes)>;

/// Parsers by name; the name is also that of the corpus.
using Parsers = std::map<std::string, Parser>;

/// What is read from the share and from this machine's own files by stations.
void addStationParsers(Parsers& parsers);

/// What people configure and type.
void addAppParsers(Parsers& parsers);

/// What only tools read.
void addToolParsers(Parsers& parsers);

/// The path of a file of this name that holds these bytes, in a folder in memory that ends with the
/// process.
std::string placed(const std::string& name, std::string_view bytes);

/// Ends the program where a line for people holds a control character or bytes that are no UTF-8.
void mustBeShowable(const char* what, std::string_view text);

}  // namespace korvel
