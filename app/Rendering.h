#pragma once

#include <string>

#include "station/base/Json.h"

/// A command's result as people read it, without a line end: a text as it stands; an object as
/// lines of "key: value"; an array of objects as an aligned table, columns without any content left
/// out; any other array one element a line. Empty for null. Control characters become "?", except
/// the line ends of a text.
std::string renderForPeople(const JsonValue& value);
