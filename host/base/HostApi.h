#pragma once

// Symbol visibility of the host's library.
//
// A plug-in is linked with its host's operations undefined, and finds them in the program that
// loads it. They must therefore be visible there, with their class's type information: an exception
// or a dynamic_cast across the border compares types by the symbol. All else of a host stays
// hidden, so that two libraries in one process cannot take each other's functions.
//
// The host's classes and functions live in libkorvelhost.so and are seen by every plug-in; whatever
// carries KV_HOST_API is part of that contract. A plug-in itself is built with hidden visibility.

#define KV_HOST_API __attribute__((visibility("default")))
