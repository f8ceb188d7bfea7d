#pragma once

#include <string>

#include "station/base/Json.h"

namespace korvel {

/// A command's result as people read it, without a line end: a text as it stands; an object as
/// lines of "key: value"; an array of objects as an aligned table, columns without any content left
/// out; any other array one element a line. Empty for null. Control characters become "?", except
/// the line ends of a text.
std::string renderForPeople(const JsonValue& value);

/// A number as people read it: with three decimals at most, and none that say nothing.
std::string shownNumber(double number);

/// An array of objects of two texts each as two columns of 80 in all: the first as it stands, the
/// second wrapped between words, beginning on a line of its own where the first is long.
std::string renderWrapped(const JsonValue& rows);

}  // namespace korvel
