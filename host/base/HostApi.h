#pragma once

// Symbol visibility of the host's library.
//
// The host's classes and functions live in libkorvelhost.so and are seen by every plug-in; whatever
// carries KV_HOST_API is part of that contract. A plug-in itself is built with hidden visibility.

#define KV_HOST_API __attribute__((visibility("default")))
